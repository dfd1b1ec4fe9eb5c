// PNG header reading: the signature check, chunk headers and the IHDR chunk,
// which is all profiling needs (the picture size).
//
// A PngReader lives on the stack of one png_read_info call; nothing here keeps
// state between calls, so reads may run on any threads at once. No CRC is
// computed: a damaged stick often keeps readable headers, and the size is all
// that is wanted.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/media_io.h"
#include "media/media_parse.h"

inline constexpr uint32_t kPngHaveIhdr = 0x01;
inline constexpr size_t kPngSignatureSize = 8;
inline constexpr uint32_t kPngIhdrSize = 13;
// Rendered chunk name (up to 4 x "[XX]"), ": ", 63 message characters, NUL.
inline constexpr size_t kPngFormatBufferSize = 96;

// The state of one PNG read.
struct PngReader {
  MediaIo* io;
  MediaInfo* info;
  uint32_t mode;          // kPngHaveIhdr once IHDR has been handled
  uint32_t crc;           // running CRC; never computed, so it stays 0
  uint32_t chunk_length;  // of the chunk whose header was read last
  uint8_t chunk_name[4];
};

// Compares sig[start..] with the PNG signature, n bytes at most and never past
// its 8: memcmp's result (0 = equal); -1 for a null sig, n = 0 or start > 7.
int32_t png_sig_cmp(const uint8_t* sig, size_t start, size_t n);

// Reads the next 8-byte chunk header (big-endian length, type) into png.
// 0, or -1 at the end of the file. A type that is not four ASCII letters is
// let through: the caller looks only for IHDR.
int32_t png_read_chunk_header(PngReader* png);

// Reads the 13-byte IHDR body and its CRC after its header; width and height go
// into png->info. 0, or -1 when the body is cut short (nothing written).
int32_t png_handle_IHDR(PngReader* png, uint32_t length);

// Skips `skip` bytes and reads the chunk's stored CRC. 0 when it equals
// png->crc, 1 otherwise; a mismatch decides nothing.
int32_t png_crc_finish(PngReader* png, uint32_t skip);

// Renders a chunk type into buf (kPngFormatBufferSize bytes): letters as they
// are, other bytes as "[XX]" in upper-case hex, then ": " and at most 63
// characters of message when one is given.
void png_format_buffer(const uint8_t chunk[4], char* buf, const char* message);
