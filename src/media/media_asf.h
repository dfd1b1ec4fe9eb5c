// ASF (WMA, WMV) header reader: walks the objects of the header — file and
// stream properties, the extended stream properties inside the header
// extension, stream bit rates and the content description — and fills a
// MediaInfo. Objects are told apart by their 16-byte GUIDs.
//
// Nothing here keeps state between calls, so reads may run on any thread. The
// GUIDs are here for the tests that build ASF files.
#pragma once

#include <cstdint>

#include "media/media_io.h"
#include "media/media_parse.h"

// A GUID as it lies in the file: the first three fields little-endian.
struct AsfGuid {
  uint8_t bytes[16];
};

// Builds a GUID from its usual text groups, e.g. 75B22630-668E-11CF-A6D9-00AA0062CE6C.
constexpr AsfGuid asfGuid(uint32_t d1, uint16_t d2, uint16_t d3, uint64_t d4) {
  AsfGuid g{};
  for (int i = 0; i < 4; ++i) g.bytes[i] = static_cast<uint8_t>(d1 >> (8 * i));
  for (int i = 0; i < 2; ++i) g.bytes[4 + i] = static_cast<uint8_t>(d2 >> (8 * i));
  for (int i = 0; i < 2; ++i) g.bytes[6 + i] = static_cast<uint8_t>(d3 >> (8 * i));
  for (int i = 0; i < 8; ++i) g.bytes[8 + i] = static_cast<uint8_t>(d4 >> (8 * (7 - i)));
  return g;
}

// clang-format off
// Top-level objects.
inline constexpr AsfGuid media_asf_header                  = asfGuid(0x75B22630, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
inline constexpr AsfGuid media_asf_data                    = asfGuid(0x75B22636, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
// Header objects.
inline constexpr AsfGuid media_asf_file_properties         = asfGuid(0x8CABDCA1, 0xA947, 0x11CF, 0x8EE400C00C205365);
inline constexpr AsfGuid media_asf_stream_properties       = asfGuid(0xB7DC0791, 0xA9B7, 0x11CF, 0x8EE600C00C205365);
inline constexpr AsfGuid media_asf_header_extension        = asfGuid(0x5FBF03B5, 0xA92E, 0x11CF, 0x8EE300C00C205365);
inline constexpr AsfGuid media_asf_content_description     = asfGuid(0x75B22633, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
inline constexpr AsfGuid media_asf_stream_bitrate_props    = asfGuid(0x7BF875CE, 0x468D, 0x11D1, 0x8D82006097C9A2B2);
// Stream types.
inline constexpr AsfGuid media_asf_audio_media             = asfGuid(0xF8699E40, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);
inline constexpr AsfGuid media_asf_video_media             = asfGuid(0xBC19EFC0, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);
inline constexpr AsfGuid media_asf_command_media           = asfGuid(0x59DACFC0, 0x59E6, 0x11D0, 0xA3AC00A0C90348F6);
inline constexpr AsfGuid media_asf_jfif_media              = asfGuid(0xB61BE100, 0x5B4E, 0x11CF, 0xA8FD00805F5C442B);
inline constexpr AsfGuid media_asf_ext_stream_embed        = asfGuid(0x3AFB65E2, 0x47EF, 0x40F2, 0xAC2C70A90D71D343);
inline constexpr AsfGuid media_asf_ext_stream_audio        = asfGuid(0x31178C9D, 0x03E1, 0x4528, 0xB5823DF9DB22F503);
// Error-correction types.
inline constexpr AsfGuid media_asf_no_error_correction     = asfGuid(0x20FB5700, 0x5B55, 0x11CF, 0xA8FD00805F5C442B);
// Header extension and the objects inside it.
inline constexpr AsfGuid media_asf_reserved_1              = asfGuid(0xABD3D211, 0xA9BA, 0x11CF, 0x8EE600C00C205365);
inline constexpr AsfGuid media_asf_ext_stream_properties   = asfGuid(0x14E6A5CB, 0xC672, 0x4332, 0x8399A96952065B5A);
// clang-format on

// Reads the ASF header behind `io` into `info`. 0 on success; -1 when the file
// does not start with a header object, a stream has an unknown media type or an
// allocation fails; otherwise an object reader's failure.
int32_t asf_read_info(MediaIo* io, MediaInfo* info);
