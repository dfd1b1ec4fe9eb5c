// The WAV reader for LPCM audio: checks the file's leading ids and reads the
// format chunk (WAVEFORMAT, WAVEFORMATEX or WAVEFORMATEXTENSIBLE body) into the
// MediaInfo record.
//
// The accepted layout is "RIFF", "WAVE", "fmt " back to back at bytes 0, 4 and
// 8, then the format size big-endian. A conventional file, with the RIFF size
// between "RIFF" and "WAVE", is rejected with -1; this strict check is kept on
// purpose, do not relax it. Nothing here keeps state; reads on different
// threads with their own MediaIo contexts are independent.
#pragma once

#include <cstdint>

#include "media/media_io.h"
#include "media/media_parse.h"

inline constexpr uint32_t kWavFormatExtensible = 0xFFFE;

// The format chunk as read; zero-filled by the caller.
struct WavFormat {
  uint32_t valid;       // 1 once read
  uint32_t format_tag;  // the sub-format's first 4 bytes for the extensible format
  uint32_t channels;
  uint32_t samples_per_sec;
  uint32_t bit_rate;  // average bytes per second x 8
  uint32_t codec_id;  // MediaCodecId
  uint32_t block_align;
  uint32_t bits_per_sample;  // the valid bits for the extensible format
  uint32_t channel_mask;     // extensible format only
  uint32_t reserved;
  uint32_t extra_size;
};

// Reads a format body of fmt_size bytes from the stream's position and returns
// the codec id (also in fmt->codec_id). A body of 14 bytes has no sample width
// and counts as 8 bits. Missing bytes of a cut file read as 0. Null arguments
// give 0 and read nothing.
uint32_t media_get_wav_header(MediaIo* io, WavFormat* fmt, uint32_t fmt_size);

// Copies the format into info. The duration comes from info->file_size and the
// bit rate in 32-bit arithmetic; a bit rate of 0 leaves it untouched.
void wavSetMediaInfo(MediaInfo* info, const WavFormat* fmt);

// wav_read_info (media_parse.h): 0 with info->parsed set, or -1 when the leading
// ids or the format size are not there as described above.
