// The AVI reader: walks the RIFF header list for the main header, the stream
// headers and the stream formats, and reports the last video and audio stream
// found in the MediaInfo record.
//
// The walk is bounded (kAviMaxChunkReads ids read), so any byte sequence ends
// it. MediaInfo is written only after a walk that succeeded. Nothing here keeps
// state: each read has its own AviHeaders, and two reads may run at once on
// different threads with their own MediaIo contexts.
#pragma once

#include <cstdint>

#include "media/media_io.h"
#include "media/media_parse.h"

// Ids read by one walk at most; unknown data is scanned 4 bytes at a time.
inline constexpr uint32_t kAviMaxChunkReads = 1024;

// What one walk has found so far; zero-filled per read.
struct AviHeaders {
  uint8_t hdrl_seen;  // inside or past the "hdrl" list: "avih" counts from here
  uint8_t strl_seen;  // inside or past a "strl" list: "strh" counts from here
  // Main header.
  uint32_t total_frames;
  uint32_t width;
  uint32_t height;
  // Video stream header: vids_type is "vids" once one was seen.
  uint32_t vids_type;
  uint32_t vids_scale;
  uint32_t vids_rate;
  // Video format.
  uint16_t bit_count;
  uint32_t compression;  // FOURCC
  // Audio stream header: auds_type is "auds" once one was seen.
  uint32_t auds_type;
  uint32_t auds_scale;
  // Audio format.
  uint16_t format_tag;
  uint16_t channels;
  uint32_t samples_per_sec;
  uint32_t avg_bytes_per_sec;
  uint16_t bits_per_sample;
};

// The header readers: 0, or -2 on a short read or a failed skip (the record may
// then hold part of the chunk). A null argument gives -2 as well.
//
// Reads an "avih" chunk from its id: total frames, width, height.
int32_t avi_read_mainheader(MediaIo* io, AviHeaders* avi);
// Read the rest of an "strh" chunk from just past its stream type.
int32_t avi_read_vidstreamheader(MediaIo* io, AviHeaders* avi);
int32_t avi_read_audstreamheader(MediaIo* io, AviHeaders* avi);
// Read an "strf" chunk from just past its id (size, format, the rest skipped).
int32_t avi_read_vidsaviheader(MediaIo* io, AviHeaders* avi);
int32_t avi_read_audsaviheader(MediaIo* io, AviHeaders* avi);

// Copies what the walk found into info. video_bit_rate receives the integer
// frame rate (rate / scale), from which duration and bit_rate are derived;
// duration is computed in 32 bits, as the consumers expect.
void avi_Set_MediaInfo(MediaInfo* info, const AviHeaders* avi);

// avi_read_info (media_parse.h): 0 with info->parsed set; -1 when the file is
// not RIFF "AVI " or a header could not be read or skipped; -2 on a short read
// of a chunk id or size. Uses info->file_size for the bit rate.
