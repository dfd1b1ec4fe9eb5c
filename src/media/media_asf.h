// ASF (WMA, WMV) header reader: walks the objects of the header — file and
// stream properties, the extended stream properties inside the header
// extension, stream bit rates and the content description — and fills a
// MediaInfo. Objects are told apart by their 16-byte GUIDs.
//
// Every record below is allocated and released inside one asf_read_info call;
// nothing here keeps state between calls, so reads may run on any thread.
#pragma once

#include <cstdint>
#include <ctime>

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
inline constexpr AsfGuid media_asf_simple_index            = asfGuid(0x33000890, 0xE5B1, 0x11CF, 0x89F400A0C90349CB);
inline constexpr AsfGuid media_asf_index                   = asfGuid(0xD6E229D3, 0x35DA, 0x11D1, 0x903400A0C90349BE);
// Header objects.
inline constexpr AsfGuid media_asf_file_properties         = asfGuid(0x8CABDCA1, 0xA947, 0x11CF, 0x8EE400C00C205365);
inline constexpr AsfGuid media_asf_stream_properties       = asfGuid(0xB7DC0791, 0xA9B7, 0x11CF, 0x8EE600C00C205365);
inline constexpr AsfGuid media_asf_header_extension        = asfGuid(0x5FBF03B5, 0xA92E, 0x11CF, 0x8EE300C00C205365);
inline constexpr AsfGuid media_asf_codec_list              = asfGuid(0x86D15240, 0x311D, 0x11D0, 0xA3A400A0C90348F6);
inline constexpr AsfGuid media_asf_script_command          = asfGuid(0x1EFB1A30, 0x0B62, 0x11D0, 0xA39B00A0C90348F6);
inline constexpr AsfGuid media_asf_marker                  = asfGuid(0xF487CD01, 0xA951, 0x11CF, 0x8EE600C00C205365);
inline constexpr AsfGuid media_asf_bitrate_mutual_excl     = asfGuid(0xD6E229DC, 0x35DA, 0x11D1, 0x903400A0C90349BE);
inline constexpr AsfGuid media_asf_error_correction        = asfGuid(0x75B22635, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
inline constexpr AsfGuid media_asf_content_description     = asfGuid(0x75B22633, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
inline constexpr AsfGuid media_asf_ext_content_description = asfGuid(0xD2D0A440, 0xE307, 0x11D2, 0x97F000A0C95EA850);
inline constexpr AsfGuid media_asf_content_branding        = asfGuid(0x2211B3FA, 0xBD23, 0x11D2, 0xB4B700A0C955FC6E);
inline constexpr AsfGuid media_asf_stream_bitrate_props    = asfGuid(0x7BF875CE, 0x468D, 0x11D1, 0x8D82006097C9A2B2);
inline constexpr AsfGuid media_asf_content_encryption      = asfGuid(0x2211B3FB, 0xBD23, 0x11D2, 0xB4B700A0C955FC6E);
inline constexpr AsfGuid media_asf_ext_content_encryption  = asfGuid(0x298AE614, 0x2622, 0x4C17, 0xB935DAE07EE9289C);
inline constexpr AsfGuid media_asf_digital_signature       = asfGuid(0x2211B3FC, 0xBD23, 0x11D2, 0xB4B700A0C955FC6E);
inline constexpr AsfGuid media_asf_padding                 = asfGuid(0x1806D474, 0xCADF, 0x4509, 0xA4BA9AABCB96AAE8);
// Stream types.
inline constexpr AsfGuid media_asf_audio_media             = asfGuid(0xF8699E40, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);
inline constexpr AsfGuid media_asf_video_media             = asfGuid(0xBC19EFC0, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);
inline constexpr AsfGuid media_asf_command_media           = asfGuid(0x59DACFC0, 0x59E6, 0x11D0, 0xA3AC00A0C90348F6);
inline constexpr AsfGuid media_asf_jfif_media              = asfGuid(0xB61BE100, 0x5B4E, 0x11CF, 0xA8FD00805F5C442B);
inline constexpr AsfGuid media_asf_degradable_jpeg_media   = asfGuid(0x35907DE0, 0xE415, 0x11CF, 0xA91700805F5C442B);
inline constexpr AsfGuid media_asf_file_transfer_media     = asfGuid(0x91BD222C, 0xF21C, 0x497A, 0x8B6D5AA86BFC0185);
inline constexpr AsfGuid media_asf_ext_stream_embed        = asfGuid(0x3AFB65E2, 0x47EF, 0x40F2, 0xAC2C70A90D71D343);
inline constexpr AsfGuid media_asf_ext_stream_audio        = asfGuid(0x31178C9D, 0x03E1, 0x4528, 0xB5823DF9DB22F503);
// Error-correction types.
inline constexpr AsfGuid media_asf_no_error_correction     = asfGuid(0x20FB5700, 0x5B55, 0x11CF, 0xA8FD00805F5C442B);
inline constexpr AsfGuid media_asf_audio_spread            = asfGuid(0xBFC3CD50, 0x618F, 0x11CF, 0x8BB200AA00B4E220);
// Header extension and the objects inside it.
inline constexpr AsfGuid media_asf_reserved_1              = asfGuid(0xABD3D211, 0xA9BA, 0x11CF, 0x8EE600C00C205365);
inline constexpr AsfGuid media_asf_ext_stream_properties   = asfGuid(0x14E6A5CB, 0xC672, 0x4332, 0x8399A96952065B5A);
inline constexpr AsfGuid media_asf_advanced_mutual_excl    = asfGuid(0xA08649CF, 0x4775, 0x4670, 0x8A166E35357566CD);
inline constexpr AsfGuid media_asf_group_mutual_excl       = asfGuid(0xD1465A40, 0x5A79, 0x4338, 0xB71BE36B8FD6C249);
inline constexpr AsfGuid media_asf_stream_prioritization   = asfGuid(0xD4FED15B, 0x88D3, 0x454F, 0x81F0ED5C45999E24);
inline constexpr AsfGuid media_asf_bandwidth_sharing       = asfGuid(0xA69609E6, 0x517B, 0x11D2, 0xB6AF00C04FD908E9);
inline constexpr AsfGuid media_asf_language_list           = asfGuid(0x7C4346A9, 0xEFE0, 0x4BFC, 0xB229393EDE415C85);
inline constexpr AsfGuid media_asf_metadata                = asfGuid(0xC5F8CBEA, 0x5BAF, 0x4877, 0x8467AA8C44FA4CCA);
inline constexpr AsfGuid media_asf_metadata_library        = asfGuid(0x44231C94, 0x9498, 0x49D1, 0xA1411D134E457054);
inline constexpr AsfGuid media_asf_index_parameters        = asfGuid(0xD6E229DF, 0x35DA, 0x11D1, 0x903400A0C90349BE);
// clang-format on

// 16-byte equality.
bool cmpGUID(const AsfGuid& a, const AsfGuid& b);

// Stream types as recorded; an embedded stream stays kAsfStreamEmbedded unless
// its inner type is audio. Only audio and video reach the MediaInfo.
inline constexpr int32_t kAsfStreamVideo = 0;
inline constexpr int32_t kAsfStreamAudio = 1;
inline constexpr int32_t kAsfStreamCommand = 2;
inline constexpr int32_t kAsfStreamEmbedded = -1;
inline constexpr int32_t kAsfStreamIncomplete = 3;  // cut off by the end of the file

// Object header; `pos` is where the object starts in the file.
struct AsfObject {
  AsfGuid guid;
  uint64_t size;  // header included
  int64_t pos;
};

struct AsfHeaderRecord {
  uint32_t object_count;
};

struct AsfFileProperties {
  AsfGuid file_id;
  uint64_t file_size;
  uint64_t creation_date;  // 100 ns since 1601-01-01
  uint64_t packet_count;
  uint64_t play_duration;  // 100 ns
  uint64_t send_duration;
  uint64_t preroll;  // milliseconds
  uint32_t flags;    // bit 0: broadcast
  uint32_t min_packet_size;
  uint32_t max_packet_size;
  uint32_t max_bit_rate;
  bool has_date;
  struct tm date;
};

struct AsfAudioFormat {
  uint16_t format_tag;
  uint32_t codec_id;  // MediaCodecId
  uint16_t channels;
  uint32_t samples_per_sec;
  uint32_t avg_bytes_per_sec;
  uint16_t block_align;
  uint16_t bits_per_sample;
  uint16_t extra_size;
};

struct AsfVideoFormat {
  uint32_t encoded_width;
  uint32_t encoded_height;
  uint8_t reserved_flags;
  uint16_t format_data_size;
  uint32_t bmi_size;
  uint32_t width;
  uint32_t height;
  uint16_t planes;
  uint16_t bit_count;
  uint32_t compression;  // FOURCC
  uint32_t codec_id;     // MediaCodecId
  uint32_t image_size;
  uint32_t x_pels_per_meter;
  uint32_t y_pels_per_meter;
  uint32_t colors_used;
  uint32_t colors_important;
};

// One stream properties object; a media_mallocz block in a list in file order.
struct AsfStream {
  AsfStream* next;
  int32_t type;  // kAsfStream*
  AsfGuid error_correction;
  uint64_t time_offset;
  uint32_t type_specific_len;
  uint32_t error_correction_len;
  uint16_t flags;  // stream number = flags & 0x7F
  AsfAudioFormat audio;
  AsfVideoFormat video;
};

// One extended stream properties object from the header extension.
struct AsfExtStream {
  AsfExtStream* next;
  uint64_t start_time;
  uint64_t end_time;
  uint32_t data_bit_rate;
  uint32_t buffer_size;
  uint32_t initial_buffer_fullness;
  uint32_t alt_data_bit_rate;
  uint32_t alt_buffer_size;
  uint32_t alt_initial_buffer_fullness;
  uint32_t max_object_size;
  uint32_t flags;
  uint16_t stream_number;
  uint16_t language_index;
  uint64_t avg_time_per_frame;  // 100 ns
  uint16_t stream_name_count;
  uint16_t payload_ext_count;
};

// Title, author, copyright, description, rating: UTF-8 GetUB blocks or null.
struct AsfContentDescription {
  uint16_t lengths[5];
  char* texts[5];
};

struct AsfBitrateEntry {
  uint16_t stream_number;
  uint32_t avg_bit_rate;
};

// The stream bitrate properties; read but not used.
struct AsfBitrateList {
  uint16_t count;
  AsfBitrateEntry* entries;  // media_mallocz block of `count` entries
};

// Everything one read gathers. Owns its lists, texts and entries: they go back
// to RetUB when the record is destroyed, whichever way the read ended.
struct AsfContext {
  AsfHeaderRecord header{};
  bool has_file_properties = false;
  AsfFileProperties file{};
  AsfStream* streams = nullptr;
  uint32_t stream_count = 0;
  AsfExtStream* ext_streams = nullptr;
  uint32_t ext_stream_count = 0;
  AsfContentDescription content{};
  AsfBitrateList bitrates{};

  AsfContext() = default;
  AsfContext(const AsfContext&) = delete;
  AsfContext& operator=(const AsfContext&) = delete;
  ~AsfContext();
};

// Reads the ASF header behind `io` into `info`. 0 on success; -1 when the file
// does not start with a header object, a stream has an unknown media type or an
// allocation fails; otherwise an object reader's failure.
int32_t asf_read_info(MediaIo* io, MediaInfo* info);

// GUID and size at the current position; -1 on a short read.
int32_t asf_read_object(MediaIo* io, AsfObject* header);
// Moves past the object's body (nothing for a size below 24); -1 if that fails.
int32_t asf_skip_object(MediaIo* io, const AsfObject* header);

// Each reads its object's body, positioned just past the object header.
int32_t asf_read_header_object(MediaIo* io, AsfHeaderRecord* record);
int32_t asf_read_file_property_object(MediaIo* io, AsfFileProperties* record);
int32_t asf_read_stream_property_object(MediaIo* io, AsfStream* record);
int32_t asf_read_header_extension_object(MediaIo* io, const AsfObject* header, AsfContext* ctx);
int32_t asf_read_stream_bitrate_proper_object(MediaIo* io, const AsfObject* header,
                                              AsfBitrateList* record);
int32_t asf_read_content_description_object(MediaIo* io, AsfContentDescription* record);

// Replaces *text, `length` bytes of UTF-16LE in a GetUB block, with its UTF-8
// form in a new GetUB block. The old block is released. -1 when no block could
// be made (then *text is left as it was).
int32_t asf_conv_wchar(char** text, uint32_t length);
