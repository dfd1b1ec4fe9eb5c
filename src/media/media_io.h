// File access for the media readers: a context over a buffered stdio stream,
// fixed-width integer getters in both byte orders, a byte-counting segment layer
// for box- and chunk-structured formats, and an MSB-first bit reader over a
// memory buffer with Exp-Golomb codes.
//
// Nothing here knows a format. Every call tolerates a null context (and a null
// stream or segment): it returns 0, or the failure value noted, and touches
// nothing. Getters never report a short read in their value: missing bytes
// count as 0 and MediaIo::status tells the caller. A context belongs to one read
// on one thread; the stream is owned by whoever opened it.
#pragma once

#include <cstdint>
#include <cstdio>

// The file-access context of one read; zero-filled on the caller's stack.
struct MediaIo {
  FILE* stream = nullptr;  // binary, read-only; not owned
  uint32_t type = 0;       // the MediaFileType the file is read as
  fpos_t bookmark{};       // one saved position; 64-bit with _FILE_OFFSET_BITS=64
  int32_t status = 0;      // last media_read_data: 0 complete, -1 short read
};

// Byte accounting of the structure a reader is inside (a box, an object).
// Format readers derive from it and add their own fields after these two.
struct MediaSegment {
  uint32_t size = 0;      // whole structure in bytes, header included
  uint32_t consumed = 0;  // bytes of it read or skipped so far
};

// MSB-first bit reader over a buffer it never copies; the buffer must outlive it.
struct MediaBitReader {
  const uint8_t* data = nullptr;
  uint32_t size = 0;
  uint32_t cache = 0;  // up to 4 bytes at byte_pos, first byte in the top bits
  uint32_t byte_pos = 0;
  uint32_t bit_pos = 0;  // 0..7 bits of the current byte already consumed
};

// ---- File access: 1 on success, 0 on failure or a null context/stream. ----
void media_init_io(MediaIo* io, FILE* stream, uint32_t type);
// Reads exactly n bytes; buf may be partly filled when it returns 0 (status -1).
uint32_t media_read_data(MediaIo* io, void* buf, uint32_t n);
// Relative seek; n is signed so readers can step back. n = 0 always succeeds.
uint32_t media_skip_data(MediaIo* io, int32_t n);
uint32_t media_orient_data(MediaIo* io, int64_t pos);  // absolute position
uint32_t media_reverse_data(MediaIo* io, int64_t n);   // n bytes before the end
uint32_t media_goto_start(MediaIo* io);                // 1 whenever a stream exists
uint32_t media_goto_end(MediaIo* io);                  // 1 whenever a stream exists
// The position truncated to 32 bits; -1 for a null context or stream.
int32_t media_ftell_data(MediaIo* io);
uint32_t media_get_bookmark(MediaIo* io);            // saves the position
uint32_t media_set_bookmark(MediaIo* io);            // returns to it
uint32_t media_get_guid(MediaIo* io, uint8_t* buf);  // 16 bytes
// These skip bytes, not bits.
uint32_t media_skip_16(MediaIo* io);
uint32_t media_skip_32(MediaIo* io);
uint32_t media_skip_64(MediaIo* io);

// ---- Byte-array decoders of up to 8 bytes; 0 for a null array. ----
uint64_t media_Get_BigEndianValue(const uint8_t* bytes, uint32_t n);
uint64_t media_Get_LittleEndianValue(const uint8_t* bytes, uint32_t n);
// The first byte's top bit is dropped and the rest gathered in 32 bits: never
// negative for 1 to 4 bytes. Readers use it only for non-negative fields.
int64_t media_Get_BigEndianSignedValue(const uint8_t* bytes, uint32_t n);
// Sign and magnitude: the sign is bit 0 of the last (most significant) byte,
// the magnitude that byte's low 7 bits followed by the lower bytes.
int64_t media_Get_LittleEndianSignedValue(const uint8_t* bytes, uint32_t n);

// ---- Stream integer getters: 0 for a null context. ----
uint64_t media_get_8LittleEndianValue(MediaIo* io);
uint64_t media_get_8BigEndianValue(MediaIo* io);
uint64_t media_get_7BigEndianValue(MediaIo* io);
uint64_t media_get_6BigEndianValue(MediaIo* io);
uint64_t media_get_5BigEndianValue(MediaIo* io);
uint32_t media_get_4LittleEndianValue(MediaIo* io);
int32_t media_get_4BigEndianSignedValue(MediaIo* io);
uint32_t media_get_4BigEndianValue(MediaIo* io);
int32_t media_get_3BigEndianSignedValue(MediaIo* io);
uint32_t media_get_3BigEndianValue(MediaIo* io);
int32_t media_get_2LittleEndianSignedValue(MediaIo* io);  // narrowed to 16 bits
uint32_t media_get_2LittleEndianValue(MediaIo* io);
int32_t media_get_2BigEndianSignedValue(MediaIo* io);  // narrowed to 16 bits
uint32_t media_get_2BigEndianValue(MediaIo* io);
uint32_t media_get_1LittleEndianValue(MediaIo* io);
int32_t media_get_1BigEndianSignedValue(MediaIo* io);  // two's complement byte
uint32_t media_get_1BigEndianValue(MediaIo* io);

// ---- Segment layer: reads and skips counted against seg->consumed. ----
// A null segment reads nothing and gives 0, so the stream and the count agree.
uint32_t segmentReadData(MediaIo* io, void* buf, uint32_t n, MediaSegment* seg);
uint32_t segmentSkipData(MediaIo* io, int32_t n, MediaSegment* seg);
// Skips the rest of the segment (back to its end after an overrun) and marks it
// consumed; -1 for a null argument, else 0 whatever the seek did.
int32_t segmentSkipSeg(MediaIo* io, MediaSegment* seg);
// The width counts even when the read falls short.
uint64_t segmentGet8LittleEndianValue(MediaIo* io, MediaSegment* seg);
uint64_t segmentGet8BigEndianValue(MediaIo* io, MediaSegment* seg);
uint32_t segmentGet4LittleEndianValue(MediaIo* io, MediaSegment* seg);
uint32_t segmentGet4BigEndianValue(MediaIo* io, MediaSegment* seg);
int32_t segmentGet2LittleEndianSignedValue(MediaIo* io, MediaSegment* seg);
uint32_t segmentGet2LittleEndianValue(MediaIo* io, MediaSegment* seg);
int32_t segmentGet2BigEndianSignedValue(MediaIo* io, MediaSegment* seg);
uint32_t segmentGet2BigEndianValue(MediaIo* io, MediaSegment* seg);
uint32_t segmentGet1LittleEndianValue(MediaIo* io, MediaSegment* seg);
int32_t segmentGet1BigEndianSignedValue(MediaIo* io, MediaSegment* seg);
uint32_t segmentGet1BigEndianValue(MediaIo* io, MediaSegment* seg);

// The names the MP4 box reader uses for the segment layer.
uint32_t mpeg_read_data(MediaIo* io, void* buf, uint32_t n, MediaSegment* seg);
uint32_t mpeg_skip_data(MediaIo* io, int32_t n, MediaSegment* seg);
uint64_t mpeg_get_8LittleEndianValue(MediaIo* io, MediaSegment* seg);
uint64_t mpeg_get_8BigEndianValue(MediaIo* io, MediaSegment* seg);
uint32_t mpeg_get_4LittleEndianValue(MediaIo* io, MediaSegment* seg);
uint32_t mpeg_get_4BigEndianValue(MediaIo* io, MediaSegment* seg);
int32_t mpeg_get_2LittleEndianSignedValue(MediaIo* io, MediaSegment* seg);
uint32_t mpeg_get_2LittleEndianValue(MediaIo* io, MediaSegment* seg);
int32_t mpeg_get_2BigEndianSignedValue(MediaIo* io, MediaSegment* seg);
uint32_t mpeg_get_2BigEndianValue(MediaIo* io, MediaSegment* seg);
uint32_t mpeg_get_1LittleEndianValue(MediaIo* io, MediaSegment* seg);
int32_t mpeg_get_1BigEndianSignedValue(MediaIo* io, MediaSegment* seg);
uint32_t mpeg_get_1BigEndianValue(MediaIo* io, MediaSegment* seg);

// ---- Bit reader. A read past the end gives -1 (all ones). ----
// 0, or all ones for a null state, null data or size 0 (the state then reads
// nothing).
uint32_t mediaInitGetBits(MediaBitReader* state, const uint8_t* data, uint32_t size);
// n bits MSB-first, 0 <= n <= 25; -1 for a larger n or too few bytes left.
// Near the end of the buffer the result may carry bits of the previous read.
int32_t mediaGetBits(MediaBitReader* state, uint32_t n);
// Up to 32 bits as two reads; -1 when either falls short or n > 32.
int32_t mediaGetBitsLong(MediaBitReader* state, uint32_t n);
// Moves on by n bits without a bounds check (reads past the end fail); 0.
uint32_t mediaSkipBits(MediaBitReader* state, uint32_t n);
int32_t mediaGetUeGolomb(MediaBitReader* state);
int32_t mediaGetSeGolomb(MediaBitReader* state);
