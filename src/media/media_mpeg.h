// Reader of MPEG program streams, transport streams (188-byte packets, and
// 192-byte packets with a 4-byte time stamp) and video elementary streams for
// the media-info record: container name, play time, bit rates and the codec
// parameters of the first video and the first audio stream.
//
// mpeg_read_info (declared in media_parse.h) reads a bounded head and tail of
// the file, whatever its size, and parses from memory. The header parsers
// below work on a caller's buffer, never read past `size`, and keep no state:
// all of them are thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>

// What a video elementary-stream header tells; 0 where it says nothing.
struct MpegVideoParams {
  uint32_t codec;  // MediaCodecId
  uint16_t width;
  uint16_t height;
  uint32_t frame_rate_num;  // reduced, e.g. 30000/1001 or 25/1
  uint32_t frame_rate_den;
  uint32_t bit_rate;    // bits per second, from an MPEG-1/2 sequence header
  uint8_t vc1_profile;  // VC-1: the sequence header's first byte (profile in
                        // bits 7-6, level in bits 5-3)
};

// What the first audio frame header tells; 0 where it says nothing.
struct MpegAudioParams {
  uint32_t codec;  // MediaCodecId
  uint16_t channels;
  uint32_t sample_rate;
  uint32_t bit_rate;    // bits per second; for ADTS the average of the frames seen
  uint8_t sub_type;     // DTS: 1 core only, 2 core followed by an HD extension
  uint8_t config[2];    // AAC: AudioSpecificConfig built from the ADTS header
  uint8_t config_size;  // 2 for AAC, else 0
};

// The transport packet size of `data`: 188 or 192 when packets line up from
// somewhere in the first packet on, else 0. At least two sync bytes in a row
// are needed.
uint32_t mpeg_ts_packet_size(const uint8_t* data, size_t size);

// Parses an H.264 sequence parameter set; `nal` starts at the NAL header byte
// (type 7) and may still hold emulation-prevention bytes. Fills codec, size
// and, when the VUI carries timing, the frame rate. False when it is no SPS or
// its values are out of range.
bool mpeg_parse_h264_sps(const uint8_t* nal, size_t size, MpegVideoParams* out);

// Finds and parses the first sequence header of an elementary video stream:
// MPEG-1/2 (with the MPEG-2 sequence extension), VC-1 advanced profile, H.264
// SPS, or MPEG-4 part 2 (recognised, not measured). `codec_hint` (a
// MediaCodecId, 0 for none) restricts the search to that codec; MPEG-1 and
// MPEG-2 hints both allow either, as the sequence header decides. False when
// nothing was recognised; `out` is then untouched.
bool mpeg_parse_video_es(const uint8_t* data, size_t size, uint32_t codec_hint,
                         MpegVideoParams* out);

// Finds the first audio frame of an elementary audio stream (MPEG audio, ADTS,
// AC-3 or DTS core; `codec_hint` restricts the search as above, MPEG layers
// 1 to 3 all allowed by any of them) and parses its header. A sync word counts
// only when the next frame, if it lies within `size`, starts where the header
// says. False when nothing was found; `out` is then untouched.
bool mpeg_parse_audio_es(const uint8_t* data, size_t size, uint32_t codec_hint,
                         MpegAudioParams* out);

// Parses the 3-byte DVD LPCM header that follows a private-stream-1
// sub-stream's 4-byte prefix. False for a reserved sample width.
bool mpeg_parse_lpcm_header(const uint8_t* header, MpegAudioParams* out);
