// Flash Video reader: walks at most kFlvMaxTags tags until the audio and video
// tags the header announced have been met, decoding the script tag's AMF0
// metadata on the way. AMF0 parsing is recursive, so its depth is bounded, and
// every loop over file data is bounded by the tag's end or a short read.
#include "media/media_flv.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "media_flv";

constexpr uint8_t kFlvVideo = 0x01;
constexpr uint8_t kFlvAudio = 0x04;
constexpr uint32_t kTagAudio = 8;
constexpr uint32_t kTagVideo = 9;
constexpr uint32_t kTagScript = 18;
// Codecs with no row in the shared tag tables.
constexpr uint32_t kCodecFlashScreen = 89;
constexpr uint32_t kCodecVp6Alpha = 110;

int64_t flvTell(MediaIo* io) {
  return static_cast<int64_t>(ftello(io->stream));
}

// Metadata numbers come from the file: NaN, negatives and huge values must
// not reach an integer conversion unclamped.
uint64_t toU64(double v) {
  if (!(v > 0)) return 0;
  if (v >= 18446744073709551615.0) return UINT64_MAX;
  return static_cast<uint64_t>(v);
}

uint32_t toU32(double v) {
  uint64_t u = toU64(v);
  return u > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(u);
}

struct AudioFormatRow {
  uint32_t format;  // high nibble left in place
  uint32_t codec;
  uint32_t sample_rate;  // 0: the tag's own
};

// Linear PCM (0 and 48) depends on the sample size and is handled apart.
constexpr AudioFormatRow kAudioFormats[] = {
    {16, kMediaCodecAdpcmSwf, 0},   {32, kMediaCodecMp3, 0},  {80, kMediaCodecNellymoser, 8000},
    {96, kMediaCodecNellymoser, 0}, {160, kMediaCodecAac, 0}, {176, kMediaCodecSpeex, 16000},
};

struct VideoCodecRow {
  uint32_t flv_id;
  uint32_t codec;
};

constexpr VideoCodecRow kVideoCodecs[] = {
    {2, kMediaCodecFlv1}, {3, kCodecFlashScreen}, {4, kMediaCodecVp6F},
    {5, kCodecVp6Alpha},  {7, kMediaCodecH264},
};

void applyNumber(FlvInfo* r, const char* key, double v) {
  if (strcmp(key, "duration") == 0) {
    r->duration = toU64(v * 1000000);
  } else if (strcmp(key, "width") == 0) {
    if (v > 0) r->width = toU32(v);
  } else if (strcmp(key, "height") == 0) {
    if (v > 0) r->height = toU32(v);
  } else if (strcmp(key, "framerate") == 0) {
    if (v > 0) r->frame_rate = v;
  } else if (strcmp(key, "videodatarate") == 0) {
    if (v * 1024 >= 0) r->video_data_rate = toU32(v * 1024);
  } else if (strcmp(key, "audiodatarate") == 0) {
    if (v * 1024 >= 0) r->audio_data_rate = toU32(v * 1024);
  } else if (strcmp(key, "audiocodecid") == 0) {
    if (v >= 0) flv_set_audio_info(r, static_cast<uint32_t>(toU64(v) & 0xFFF) * 16);
  } else if (strcmp(key, "videocodecid") == 0) {
    if (v >= 0) flv_set_video_info(r, static_cast<uint32_t>(toU64(v) & 0xFFFF));
  } else if (strcmp(key, "audiosamplesize") == 0) {
    if (v > 0) r->sample_size = toU32(v);
  }
}

// A 16-bit length and that many bytes; up to kFlvAmfTextSize - 1 of them land
// in `buf` (may be null), the rest is skipped. -1 on a short read.
int32_t readAmfText(MediaIo* io, char* buf, uint32_t length) {
  uint32_t kept = length < kFlvAmfTextSize ? length : kFlvAmfTextSize - 1;
  char scratch[kFlvAmfTextSize];
  char* dst = buf ? buf : scratch;
  if (!media_read_data(io, dst, kept)) return -1;
  dst[kept] = '\0';
  media_skip_data(io, static_cast<int32_t>(length - kept));
  return 0;
}

int32_t readKeyLength(MediaIo* io, uint32_t* length) {
  *length = media_get_2BigEndianValue(io);
  return io->status == 0 ? 0 : -1;
}

int32_t parseNumber(MediaIo* io, FlvInfo* r, const char* key, uint32_t depth) {
  uint8_t bytes[8];
  if (!media_read_data(io, bytes, sizeof bytes)) return -1;
  double v = std::bit_cast<double>(static_cast<uint64_t>(media_Get_BigEndianValue(bytes, 8)));
  // Only the members of the metadata array itself describe the file.
  if (depth == 1 && key) applyNumber(r, key, v);
  return 0;
}

// A child's failure ends the object without failing its parent.
int32_t parseObject(MediaIo* io, FlvInfo* r, int64_t end, uint32_t depth) {
  while (flvTell(io) < end - 2) {
    uint32_t keyLength = 0;
    if (readKeyLength(io, &keyLength) != 0) return -1;
    if (keyLength == 0) break;
    media_skip_data(io, static_cast<int32_t>(keyLength));
    if (parse_script_object(io, r, nullptr, end, depth + 1) != 0) break;
  }
  if (flvTell(io) < end) media_skip_data(io, 1);  // end marker
  return 0;
}

int32_t parseEcmaArray(MediaIo* io, FlvInfo* r, int64_t end, uint32_t depth) {
  media_skip_data(io, 4);  // count; the end marker is what ends the array
  char key[kFlvAmfTextSize];
  while (flvTell(io) < end - 2) {
    uint32_t keyLength = 0;
    if (readKeyLength(io, &keyLength) != 0) return -1;
    if (keyLength == 0) break;
    if (readAmfText(io, key, keyLength) != 0) return -1;
    if (strcmp(key, "keyframes") == 0) {
      media_orient_data(io, end);  // the seek index is large and of no use here
      break;
    }
    if (parse_script_object(io, r, key, end, depth + 1) == -1) return -1;
  }
  if (flvTell(io) < end) media_skip_data(io, 1);
  return 0;
}

int32_t parseStrictArray(MediaIo* io, FlvInfo* r, int64_t end, uint32_t depth) {
  uint32_t count = media_get_4BigEndianValue(io);
  if (io->status != 0) return -1;
  for (uint32_t i = 0; i < count && flvTell(io) < end - 1; ++i) {
    int32_t rc = parse_script_object(io, r, nullptr, end, depth + 1);
    if (rc != 0) return rc;
  }
  return 0;
}

// The tag header up to the body's first byte, which carries the stream's format.
int32_t readFirstBodyByte(MediaIo* io, uint32_t* dataSize, uint8_t* first) {
  *dataSize = media_get_3BigEndianValue(io);
  media_skip_data(io, 7);  // timestamp, its extension, stream id
  return media_read_data(io, first, 1) ? 0 : -1;
}

int32_t readVideoTag(MediaIo* io, FlvInfo* r) {
  uint32_t size = 0;
  uint8_t b = 0;
  if (readFirstBodyByte(io, &size, &b) != 0) return -1;
  flv_set_video_info(r, b & 0x0F);
  r->seen |= kFlvVideo;
  r->has_video = 1;
  media_skip_data(io, static_cast<int32_t>(size) - 1);
  return 0;
}

int32_t readAudioTag(MediaIo* io, FlvInfo* r) {
  static constexpr uint32_t kRates[] = {5512, 11025, 22050, 44100};
  uint32_t size = 0;
  uint8_t b = 0;
  if (readFirstBodyByte(io, &size, &b) != 0) return -1;
  r->sample_rate = kRates[(b & 0x0C) >> 2];
  r->sample_size = (b & 2) ? 16 : 8;
  r->channels = (b & 1) ? 2 : 1;
  flv_set_audio_info(r, b & 0xF0);
  r->seen |= kFlvAudio;
  r->has_audio = 1;
  media_skip_data(io, static_cast<int32_t>(size) - 1);
  return 0;
}

int32_t readScriptTag(MediaIo* io, FlvInfo* r) {
  uint32_t size = media_get_3BigEndianValue(io);
  media_skip_data(io, 7);
  if (io->status != 0) return -1;
  int64_t end = flvTell(io) + size;
  while (flvTell(io) < end) {
    if (parse_script_object(io, r, nullptr, end, 0) == -1) return -1;
  }
  r->has_metadata = 1;
  return 0;
}

int32_t readTags(MediaIo* io, FlvInfo* r) {
  for (uint32_t n = 0; n < kFlvMaxTags; ++n) {
    media_get_4BigEndianValue(io);  // previous tag size
    uint8_t type = 0;
    if (io->status != 0 || !media_read_data(io, &type, 1)) return -1;
    int32_t rc = 0;
    switch (type & 0x1F) {
      case kTagVideo:
        rc = readVideoTag(io, r);
        break;
      case kTagAudio:
        rc = readAudioTag(io, r);
        break;
      case kTagScript:
        rc = readScriptTag(io, r);
        break;
      default:  // its body is read as the next tag's header; the tag cap bounds it
        break;
    }
    if (rc != 0) return rc;
    if (r->seen == r->expected) return 0;
  }
  return 0;
}

void fillInfo(const FlvInfo& r, MediaInfo* info) {
  info->track = 0;
  if (r.has_video) {
    info->has_video = 1;
    info->video_stream_type = 0;
    info->video_bit_rate = r.video_data_rate;
    info->video_max_bit_rate = r.video_data_rate;
    info->frame_rate = toU32(r.frame_rate);
    info->video_width = static_cast<uint16_t>(r.width);
    info->video_height = static_cast<uint16_t>(r.height);
    info->video_codec = r.video_codec;
  }
  if (r.has_audio) {
    info->has_audio = 1;
    info->audio_streams = 1;
    info->channels = static_cast<uint16_t>(r.channels);
    info->audio_bit_rate = r.audio_data_rate;
    info->audio_max_bit_rate = r.audio_data_rate;
    info->sample_rate = r.sample_rate;
    info->audio_codec = r.audio_codec;
  }
  info->duration = r.duration > INT64_MAX ? INT64_MAX : static_cast<int64_t>(r.duration);
  uint64_t seconds = r.duration / 1000000;
  if (seconds == 0) {
    info->bit_rate = info->video_bit_rate + info->audio_bit_rate;
  } else {
    info->bit_rate = static_cast<uint32_t>(uint64_t{info->file_size} * 8 / seconds);
  }
}

}  // namespace

void flv_set_audio_info(FlvInfo* r, uint32_t format) {
  if (format == 0 || format == 48) {
    r->audio_codec = r->sample_size == 8 ? kMediaCodecPcmS8 : kMediaCodecPcmS16Le;
    return;
  }
  for (const AudioFormatRow& row : kAudioFormats) {
    if (row.format != format) continue;
    r->audio_codec = row.codec;
    if (row.sample_rate) r->sample_rate = row.sample_rate;
    return;
  }
  DMS_LOG(kLogTrace, "Unsupported audio codec (%x)\n", format >> 4);
}

void flv_set_video_info(FlvInfo* r, uint32_t codec_id) {
  for (const VideoCodecRow& row : kVideoCodecs) {
    if (row.flv_id == codec_id) {
      r->video_codec = row.codec;
      return;
    }
  }
  DMS_LOG(kLogTrace, "Unsupported video codec (%x)", codec_id);
}

int32_t parse_script_object(MediaIo* io, FlvInfo* r, const char* key, int64_t end, uint32_t depth) {
  if (depth > kFlvMaxAmfDepth) return -1;
  uint8_t type = 0;
  if (!media_read_data(io, &type, 1)) return -1;
  switch (type) {
    case 0:
      return parseNumber(io, r, key, depth);
    case 1: {
      uint8_t flag = 0;
      return media_read_data(io, &flag, 1) ? 0 : -1;
    }
    case 2: {
      uint32_t length = 0;
      if (readKeyLength(io, &length) != 0) return -1;
      return readAmfText(io, nullptr, length);
    }
    case 3:
      return parseObject(io, r, end, depth);
    case 5:
    case 6:
    case 13:
      return 0;
    case 8:
      return parseEcmaArray(io, r, end, depth);
    case 10:
      return parseStrictArray(io, r, end, depth);
    case 11:
      media_skip_data(io, 10);
      return 0;
    default:
      return -1;
  }
}

int32_t flv_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  uint8_t header[5];
  if (!media_read_data(io, header, sizeof header) || memcmp(header, "FLV", 3) != 0) return -1;
  FlvInfo r{};
  r.expected = header[4] & (kFlvVideo | kFlvAudio);
  uint32_t headerSize = media_get_4BigEndianValue(io);
  if (io->status != 0 || !media_orient_data(io, headerSize)) return -1;
  int32_t rc = readTags(io, &r);
  fillInfo(r, info);
  return rc;
}
