// Flash Video reader: the FLV header, the first audio and video tags (codec,
// rate, size, channels) and the script-data tag, whose AMF0 metadata array
// gives duration, picture size, frame rate and data rates.
//
// The working record lives on the caller's stack for one read; nothing here
// keeps state between calls, so reads may run on any thread.
#pragma once

#include <cstdint>

#include "media/media_io.h"
#include "media/media_parse.h"

// What one read gathers from tags and metadata; whichever comes later wins.
struct FlvInfo {
  uint8_t expected;  // 0x01 video, 0x04 audio, as the file header announces
  uint8_t seen;      // the same bits for the tags met
  uint8_t has_audio;
  uint32_t audio_codec;  // MediaCodecId
  uint32_t sample_rate;
  uint32_t channels;
  uint32_t audio_data_rate;  // bits per second
  uint32_t sample_size;      // 8 or 16
  uint8_t has_video;
  uint32_t video_codec;  // MediaCodecId
  uint32_t video_data_rate;
  uint32_t width;
  uint32_t height;
  double frame_rate;
  uint8_t has_metadata;
  uint64_t duration;  // microseconds
};

// AMF0 values nest at most this deep; deeper data is refused.
inline constexpr uint32_t kFlvMaxAmfDepth = 16;
// Keys and strings are kept up to 255 bytes; the rest is skipped.
inline constexpr uint32_t kFlvAmfTextSize = 256;
inline constexpr uint32_t kFlvMaxTags = 1024;

// Reads the FLV behind `io` into `info`. 0 on success; -1 for a file that is
// not FLV (info untouched) or a read failure (info filled with what was found).
int32_t flv_read_info(MediaIo* io, MediaInfo* info);

// `format` is the audio tag's high nibble left in place (format × 16). An
// unknown one is logged and leaves the codec as it was.
void flv_set_audio_info(FlvInfo* record, uint32_t format);
// An unknown codec id is logged and leaves the codec as it was.
void flv_set_video_info(FlvInfo* record, uint32_t codec_id);

// Parses one AMF0 value ending no later than `end` (a file position). `key` is
// the member name the value belongs to, or null. 0, or -1 for a short read, an
// unknown type or nesting deeper than kFlvMaxAmfDepth.
int32_t parse_script_object(MediaIo* io, FlvInfo* record, const char* key, int64_t end,
                            uint32_t depth);
