// ASF header reader: walks the header's objects by GUID, keeps what it needs in
// an AsfContext that owns every block it allocates, and fills the MediaInfo at
// the end. Each object is left by seeking to its declared end, so a field the
// reader does not understand never shifts the walk.
#include "media/media_asf.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "platform/alloc.h"
#include "platform/ctype.h"

namespace {

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

constexpr uint64_t kObjectHeaderSize = 24;
constexpr uint64_t kHeaderExtensionFixed = 46;  // object header, reserved GUID and fields
constexpr uint64_t kExtStreamFixed = 88;        // sub-object header and fixed fields
constexpr uint32_t kMaxStreams = 128;           // stream numbers are 7 bits
constexpr uint64_t kHundredNsPerSecond = 10000000;
constexpr int64_t kFileTimeToUnix = 11644473600;  // seconds from 1601 to 1970
constexpr size_t kArtistSize = 1024;
constexpr size_t kTitleSize = 512;

int64_t asfTell(MediaIo* io) {
  return io && io->stream ? static_cast<int64_t>(ftello(io->stream)) : -1;
}

// Frees a media_mallocz list linked through `next`.
template <class T>
void freeList(T* node) {
  while (node) {
    T* next = node->next;
    RetUB(node);
    node = next;
  }
}

template <class T>
void appendToList(T** head, T* node) {
  while (*head) head = &(*head)->next;
  *head = node;
}

// media_strncpy that does not leave half a UTF-8 sequence at the cut.
void copyText(char* dst, const char* src, size_t size) {
  media_strncpy(dst, src, static_cast<uint32_t>(size));
  size_t len = strlen(dst);
  if (len + 1 < size) return;
  size_t lead = len;
  while (lead > 0 && (static_cast<uint8_t>(dst[lead - 1]) & 0xC0) == 0x80) --lead;
  if (lead == 0) return;
  auto c = static_cast<uint8_t>(dst[lead - 1]);
  size_t need = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
  if (len - (lead - 1) < need) dst[lead - 1] = '\0';
}

// Each UTF-16 unit on its own, for text the charset service refuses (a lone
// surrogate, an odd length); keeps the text readable rather than dropping it.
char* utf16LeFallback(const char* bytes, uint32_t length) {
  std::vector<uint16_t> units(length / 2 + 1, 0);
  for (uint32_t i = 0; i + 1 < length; i += 2) {
    units[i / 2] = static_cast<uint16_t>(static_cast<uint8_t>(bytes[i]) |
                                         static_cast<uint8_t>(bytes[i + 1]) << 8);
  }
  auto dstSize = static_cast<int32_t>(units.size() * 3);
  auto* out = static_cast<char*>(GetUB(static_cast<size_t>(dstSize) + 1));
  if (out) media_convert_utf16_to_utf8(out, units.data(), dstSize);
  return out;
}

int32_t readVideoFormat(MediaIo* io, AsfStream* s) {
  if (s->type_specific_len < 51) return 0;
  AsfVideoFormat& v = s->video;
  v.encoded_width = media_get_4LittleEndianValue(io);
  v.encoded_height = media_get_4LittleEndianValue(io);
  v.reserved_flags = static_cast<uint8_t>(media_get_1LittleEndianValue(io));
  v.format_data_size = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  v.bmi_size = media_get_4LittleEndianValue(io);
  v.width = media_get_4LittleEndianValue(io);
  v.height = media_get_4LittleEndianValue(io);
  v.planes = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  v.bit_count = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  v.compression = media_get_4LittleEndianValue(io);
  v.codec_id = media_codec_get_id(media_codec_bmp_tags, v.compression);
  v.image_size = media_get_4LittleEndianValue(io);
  v.x_pels_per_meter = media_get_4LittleEndianValue(io);
  v.y_pels_per_meter = media_get_4LittleEndianValue(io);
  v.colors_used = media_get_4LittleEndianValue(io);
  v.colors_important = media_get_4LittleEndianValue(io);
  return 0;
}

int32_t readAudioFormat(MediaIo* io, AsfStream* s) {
  if (s->type_specific_len < 19) return 0;
  AsfAudioFormat& a = s->audio;
  a.format_tag = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  a.channels = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  a.samples_per_sec = media_get_4LittleEndianValue(io);
  a.avg_bytes_per_sec = media_get_4LittleEndianValue(io);
  a.block_align = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  a.bits_per_sample = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  a.extra_size = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  a.codec_id = media_wav_codec_get_id(a.format_tag, a.bits_per_sample);
  return 0;
}

int32_t readStreamObject(MediaIo* io, AsfContext* ctx) {
  if (ctx->stream_count >= kMaxStreams) return 0;
  auto* s = static_cast<AsfStream*>(media_mallocz(sizeof(AsfStream)));
  if (!s) return -1;
  appendToList(&ctx->streams, s);
  ++ctx->stream_count;
  return asf_read_stream_property_object(io, s);
}

int32_t readObject(MediaIo* io, const AsfObject& obj, AsfContext* ctx) {
  if (cmpGUID(obj.guid, media_asf_file_properties)) {
    ctx->has_file_properties = true;
    return asf_read_file_property_object(io, &ctx->file);
  }
  if (cmpGUID(obj.guid, media_asf_stream_properties)) return readStreamObject(io, ctx);
  if (cmpGUID(obj.guid, media_asf_header_extension)) {
    return asf_read_header_extension_object(io, &obj, ctx);
  }
  if (cmpGUID(obj.guid, media_asf_stream_bitrate_props)) {
    return asf_read_stream_bitrate_proper_object(io, &obj, &ctx->bitrates);
  }
  if (cmpGUID(obj.guid, media_asf_content_description)) {
    return asf_read_content_description_object(io, &ctx->content);
  }
  return 0;
}

// The objects after the header record, up to the data object. A header cut
// short ends the walk with what was read so far.
int32_t readHeaderObjects(MediaIo* io, AsfContext* ctx) {
  for (uint32_t i = 0; i < ctx->header.object_count; ++i) {
    AsfObject obj{};
    if (asf_read_object(io, &obj) != 0) break;
    if (cmpGUID(obj.guid, media_asf_data)) break;
    int32_t rc = readObject(io, obj, ctx);
    if (rc != 0) return rc;
    if (asf_skip_object(io, &obj) != 0) return -1;
  }
  return 0;
}

void fillFile(const AsfContext& ctx, MediaInfo* info) {
  const AsfFileProperties& f = ctx.file;
  info->file_size = static_cast<uint32_t>(f.file_size);
  // 32-bit on purpose: long files wrap, as the profile rules have always seen them.
  uint32_t duration =
      static_cast<uint32_t>(f.play_duration) / 10 - static_cast<uint32_t>(f.preroll) * 1000u;
  info->duration = duration;
  if (f.has_date) {
    info->year = f.date.tm_year + 1900;
    info->month = f.date.tm_mon + 1;
    info->day = f.date.tm_mday;
  }
}

void fillStreams(const AsfContext& ctx, MediaInfo* info) {
  for (const AsfStream* s = ctx.streams; s; s = s->next) {
    auto number = static_cast<uint8_t>(s->flags & 0x7F);
    if (s->type == kAsfStreamAudio) {
      info->has_audio = 1;
      info->audio_track = number;
      info->channels = s->audio.channels;
      info->audio_reserved = 0;
      info->audio_bit_rate = s->audio.avg_bytes_per_sec * 8;
      info->audio_max_bit_rate = info->audio_bit_rate;
      info->sample_rate = s->audio.samples_per_sec;
      info->audio_codec = s->audio.codec_id;
      info->audio_streams = 1;
    } else if (s->type == kAsfStreamVideo) {
      info->has_video = 1;
      info->video_track = number;
      info->video_width = static_cast<uint16_t>(s->video.width);
      info->video_height = static_cast<uint16_t>(s->video.height);
      info->video_stream_type = 0;
      info->video_codec = s->video.codec_id;
    }
  }
}

void fillExtStreams(const AsfContext& ctx, MediaInfo* info) {
  for (const AsfExtStream* e = ctx.ext_streams; e; e = e->next) {
    uint32_t rate = e->avg_time_per_frame
                        ? static_cast<uint32_t>(kHundredNsPerSecond / e->avg_time_per_frame)
                        : 0;
    uint32_t maxRate = e->alt_data_bit_rate ? e->alt_data_bit_rate : e->data_bit_rate;
    if (e->stream_number == info->audio_track) {
      if (rate) info->audio_frame_rate = rate;
      info->audio_bit_rate = e->data_bit_rate;
      info->audio_max_bit_rate = maxRate;
    } else if (e->stream_number == info->video_track) {
      if (rate) info->frame_rate = rate;
      info->video_bit_rate = e->data_bit_rate;
      info->video_max_bit_rate = maxRate;
    }
  }
}

void fillInfo(const AsfContext& ctx, MediaInfo* info) {
  media_strncpy(info->format, "asf", 64);
  if (ctx.has_file_properties) fillFile(ctx, info);
  info->track = 0;
  const char* title = ctx.content.texts[0];
  const char* author = ctx.content.texts[1];
  if (author && author[0]) copyText(info->artist, author, kArtistSize);
  if (title && title[0]) copyText(info->title, title, kTitleSize);
  fillStreams(ctx, info);
  fillExtStreams(ctx, info);
  auto duration = static_cast<uint64_t>(info->duration);
  uint64_t seconds = duration / 1000000;
  if (seconds == 0) {
    info->bit_rate = info->video_bit_rate + info->audio_bit_rate;
  } else {
    info->bit_rate = static_cast<uint32_t>((info->file_size * 8u) / seconds);
  }
}

AsfContext::~AsfContext() {
  freeList(streams);
  freeList(ext_streams);
  for (char* text : content.texts) RetUB(text);
  RetUB(bitrates.entries);
}

bool cmpGUID(const AsfGuid& a, const AsfGuid& b) {
  return memcmp(a.bytes, b.bytes, sizeof a.bytes) == 0;
}

int32_t asf_read_object(MediaIo* io, AsfObject* header) {
  if (!io || !header) return -1;
  header->pos = asfTell(io);
  if (!media_get_guid(io, header->guid.bytes)) return -1;
  header->size = media_get_8LittleEndianValue(io);
  return io->status == 0 ? 0 : -1;
}

int32_t asf_skip_object(MediaIo* io, const AsfObject* header) {
  if (!io || !header || header->pos < 0) return -1;
  uint64_t size = header->size < kObjectHeaderSize ? kObjectHeaderSize : header->size;
  if (size > static_cast<uint64_t>(INT64_MAX - header->pos)) return -1;
  return media_orient_data(io, header->pos + static_cast<int64_t>(size)) ? 0 : -1;
}

int32_t asf_read_header_object(MediaIo* io, AsfHeaderRecord* record) {
  record->object_count = media_get_4LittleEndianValue(io);
  media_skip_data(io, 2);
  return 0;
}

int32_t asf_read_file_property_object(MediaIo* io, AsfFileProperties* f) {
  media_get_guid(io, f->file_id.bytes);
  f->file_size = media_get_8LittleEndianValue(io);
  f->creation_date = media_get_8LittleEndianValue(io);
  f->packet_count = media_get_8LittleEndianValue(io);
  f->play_duration = media_get_8LittleEndianValue(io);
  f->send_duration = media_get_8LittleEndianValue(io);
  f->preroll = media_get_8LittleEndianValue(io);
  f->flags = media_get_4LittleEndianValue(io);
  f->min_packet_size = media_get_4LittleEndianValue(io);
  f->max_packet_size = media_get_4LittleEndianValue(io);
  f->max_bit_rate = media_get_4LittleEndianValue(io);
  f->has_date = false;
  if (!(f->flags & 1)) {
    time_t seconds = static_cast<time_t>(
        static_cast<int64_t>(f->creation_date / kHundredNsPerSecond) - kFileTimeToUnix);
    f->has_date = gmtime_r(&seconds, &f->date) != nullptr;
  }
  return 0;
}

int32_t asf_read_stream_property_object(MediaIo* io, AsfStream* s) {
  AsfGuid type{};
  if (!media_get_guid(io, type.bytes)) {
    s->type = kAsfStreamIncomplete;
    return 0;
  }
  if (cmpGUID(type, media_asf_audio_media)) {
    s->type = kAsfStreamAudio;
  } else if (cmpGUID(type, media_asf_video_media)) {
    s->type = kAsfStreamVideo;
  } else if (cmpGUID(type, media_asf_command_media)) {
    s->type = kAsfStreamCommand;
  } else if (cmpGUID(type, media_asf_ext_stream_embed)) {
    s->type = kAsfStreamEmbedded;
  } else {
    return -1;
  }
  media_get_guid(io, s->error_correction.bytes);
  s->time_offset = media_get_8LittleEndianValue(io);
  s->type_specific_len = media_get_4LittleEndianValue(io);
  s->error_correction_len = media_get_4LittleEndianValue(io);
  s->flags = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  media_skip_data(io, 4);
  if (s->type == kAsfStreamEmbedded && s->type_specific_len >= 17) {
    AsfGuid inner{};
    media_get_guid(io, inner.bytes);
    if (cmpGUID(inner, media_asf_ext_stream_audio)) {
      s->type = kAsfStreamAudio;
      media_skip_data(io, 48);  // the embedded header up to its wave format
    }
  }
  if (s->type == kAsfStreamVideo) return readVideoFormat(io, s);
  if (s->type == kAsfStreamAudio) return readAudioFormat(io, s);
  return 0;
}

int32_t asf_read_header_extension_object(MediaIo* io, const AsfObject* header, AsfContext* ctx) {
  media_skip_data(io, 16 + 2);  // reserved GUID and field
  uint32_t dataSize = media_get_4LittleEndianValue(io);
  if (io->status != 0) return 0;  // cut short: the walk ends at the next read
  if (header->size < kHeaderExtensionFixed || dataSize != header->size - kHeaderExtensionFixed) {
    return -1;
  }
  uint64_t left = dataSize;
  while (left >= kObjectHeaderSize) {
    AsfObject sub{};
    if (asf_read_object(io, &sub) != 0) break;
    if (sub.size < kObjectHeaderSize || sub.size > left) break;
    if (cmpGUID(sub.guid, media_asf_ext_stream_properties) && sub.size >= kExtStreamFixed &&
        ctx->ext_stream_count < kMaxStreams) {
      auto* e = static_cast<AsfExtStream*>(media_mallocz(sizeof(AsfExtStream)));
      if (!e) return -1;
      appendToList(&ctx->ext_streams, e);
      ++ctx->ext_stream_count;
      e->start_time = media_get_8LittleEndianValue(io);
      e->end_time = media_get_8LittleEndianValue(io);
      e->data_bit_rate = media_get_4LittleEndianValue(io);
      e->buffer_size = media_get_4LittleEndianValue(io);
      e->initial_buffer_fullness = media_get_4LittleEndianValue(io);
      e->alt_data_bit_rate = media_get_4LittleEndianValue(io);
      e->alt_buffer_size = media_get_4LittleEndianValue(io);
      e->alt_initial_buffer_fullness = media_get_4LittleEndianValue(io);
      e->max_object_size = media_get_4LittleEndianValue(io);
      e->flags = media_get_4LittleEndianValue(io);
      e->stream_number = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
      e->language_index = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
      e->avg_time_per_frame = media_get_8LittleEndianValue(io);
      e->stream_name_count = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
      e->payload_ext_count = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
    }
    if (asf_skip_object(io, &sub) != 0) return -1;
    left -= sub.size;
  }
  return 0;
}

int32_t asf_read_stream_bitrate_proper_object(MediaIo* io, const AsfObject* header,
                                              AsfBitrateList* record) {
  RetUB(record->entries);
  record->entries = nullptr;
  uint32_t count = media_get_2LittleEndianValue(io);
  uint64_t body = header->size > kObjectHeaderSize + 2 ? header->size - kObjectHeaderSize - 2 : 0;
  if (count > body / 6) count = static_cast<uint32_t>(body / 6);
  record->count = static_cast<uint16_t>(count);
  if (count == 0) return 0;
  record->entries = static_cast<AsfBitrateEntry*>(media_mallocz(count * sizeof(AsfBitrateEntry)));
  if (!record->entries) return -1;
  for (uint32_t i = 0; i < count; ++i) {
    record->entries[i].stream_number =
        static_cast<uint16_t>(media_get_2LittleEndianValue(io) & 0x7F);
    record->entries[i].avg_bit_rate = media_get_4LittleEndianValue(io);
  }
  return 0;
}

int32_t asf_read_content_description_object(MediaIo* io, AsfContentDescription* record) {
  for (uint16_t& len : record->lengths)
    len = static_cast<uint16_t>(media_get_2LittleEndianValue(io));
  for (size_t i = 0; i < 5; ++i) {
    RetUB(record->texts[i]);
    record->texts[i] = static_cast<char*>(media_mallocz(record->lengths[i] + 1u));
    if (!record->texts[i]) return -1;
    media_read_data(io, record->texts[i], record->lengths[i]);
    if (asf_conv_wchar(&record->texts[i], record->lengths[i]) != 0) return -1;
  }
  return 0;
}

int32_t asf_conv_wchar(char** text, uint32_t length) {
  if (!text || !*text) return -1;
  CtypeIn in{kCtypeUtf16Le, *text, length};
  CtypeOut out{kCtypeUtf8, nullptr, 0};
  char* converted = ctypeConvertTo(&in, &out) == 0 ? out.text : utf16LeFallback(*text, length);
  if (!converted) return -1;
  RetUB(*text);
  *text = converted;
  return 0;
}

}  // namespace

int32_t asf_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !info) return -1;
  AsfObject first{};
  if (asf_read_object(io, &first) != 0 || !cmpGUID(first.guid, media_asf_header)) return -1;
  AsfContext ctx;
  int32_t rc = asf_read_header_object(io, &ctx.header);
  if (rc == 0) rc = readHeaderObjects(io, &ctx);
  if (rc != 0) return rc;
  fillInfo(ctx, info);
  return 0;
}
