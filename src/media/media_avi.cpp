// The AVI reader; see media_avi.h. The walk reads chunk ids one after another
// and steps into lists rather than over them: list sizes are never used to find
// the end of the headers, only the "movi" list or the read cap ends the walk.
#include "media/media_avi.h"

#include "media/media_codec.h"

namespace {

constexpr uint32_t kRiff = mediaFourcc('R', 'I', 'F', 'F');
constexpr uint32_t kAviForm = mediaFourcc('A', 'V', 'I', ' ');
constexpr uint32_t kList = mediaFourcc('L', 'I', 'S', 'T');
constexpr uint32_t kHdrl = mediaFourcc('h', 'd', 'r', 'l');
constexpr uint32_t kStrl = mediaFourcc('s', 't', 'r', 'l');
constexpr uint32_t kMovi = mediaFourcc('m', 'o', 'v', 'i');
constexpr uint32_t kOdml = mediaFourcc('o', 'd', 'm', 'l');
constexpr uint32_t kInfo = mediaFourcc('I', 'N', 'F', 'O');
constexpr uint32_t kAvih = mediaFourcc('a', 'v', 'i', 'h');
constexpr uint32_t kStrh = mediaFourcc('s', 't', 'r', 'h');
constexpr uint32_t kStrf = mediaFourcc('s', 't', 'r', 'f');
constexpr uint32_t kStrd = mediaFourcc('s', 't', 'r', 'd');
constexpr uint32_t kStrn = mediaFourcc('s', 't', 'r', 'n');
constexpr uint32_t kIdx1 = mediaFourcc('i', 'd', 'x', '1');
constexpr uint32_t kIndx = mediaFourcc('i', 'n', 'd', 'x');
constexpr uint32_t kJunk = mediaFourcc('J', 'U', 'N', 'K');
constexpr uint32_t kVids = mediaFourcc('v', 'i', 'd', 's');
constexpr uint32_t kAuds = mediaFourcc('a', 'u', 'd', 's');

constexpr int32_t kNotAvi = -1;
constexpr int32_t kShortRead = -2;
// Walk steps: go on with the next id, or stop at the media data.
constexpr int32_t kGoOn = 0;
constexpr int32_t kEndOfHeaders = 1;

enum class Stream { kNone, kVideo, kAudio };

// Little-endian fields of one chunk. After the first short read or failed skip
// it reads nothing more, so a header reader checks once at its end.
class FieldReader {
 public:
  explicit FieldReader(MediaIo* io) : io_(io) {}

  uint32_t u32() { return ok_ ? checked(media_get_4LittleEndianValue(io_)) : 0; }
  uint16_t u16() {
    return static_cast<uint16_t>(ok_ ? checked(media_get_2LittleEndianValue(io_)) : 0);
  }
  void skip(uint32_t n) {
    // A size past the signed range becomes a backward seek; the read cap still ends the walk.
    if (ok_) ok_ = media_skip_data(io_, static_cast<int32_t>(n)) == 1;
  }
  int32_t result() const { return ok_ ? 0 : kShortRead; }

 private:
  uint32_t checked(uint32_t value) {
    ok_ = io_->status == 0;
    return value;
  }

  MediaIo* io_;
  bool ok_ = true;
};

bool readLe32(MediaIo* io, uint32_t* value) {
  *value = media_get_4LittleEndianValue(io);
  return io->status == 0;
}

int32_t skipOrFail(MediaIo* io, uint32_t n) {
  return media_skip_data(io, static_cast<int32_t>(n)) == 1 ? kGoOn : kNotAvi;
}

int32_t headerStep(int32_t reader_result) {
  return reader_result == 0 ? kGoOn : kNotAvi;
}

int32_t checkRiffAvi(MediaIo* io) {
  uint32_t riff = 0, size = 0, form = 0;
  if (!readLe32(io, &riff)) return kShortRead;
  if (riff != kRiff) return kNotAvi;
  if (!readLe32(io, &size) || !readLe32(io, &form)) return kShortRead;
  return form == kAviForm ? 0 : kNotAvi;
}

int32_t onList(MediaIo* io, AviHeaders* avi) {
  uint32_t size = 0, type = 0;
  if (!readLe32(io, &size) || !readLe32(io, &type)) return kShortRead;
  switch (type) {
    case kHdrl:
      avi->hdrl_seen = 1;
      return kGoOn;
    case kStrl:
      avi->strl_seen = 1;
      return kGoOn;
    case kMovi:
      return kEndOfHeaders;
    case kOdml:
    case kInfo:
      return skipOrFail(io, size - 4);  // the size counts the list type
    default:
      return kGoOn;  // entered: its chunks are walked like any others
  }
}

int32_t onStreamHeader(MediaIo* io, AviHeaders* avi, Stream* current) {
  uint32_t size = 0, type = 0;
  if (!readLe32(io, &size) || !readLe32(io, &type)) return kShortRead;
  if (type == kVids) {
    *current = Stream::kVideo;
    return headerStep(avi_read_vidstreamheader(io, avi));
  }
  if (type == kAuds) {
    *current = Stream::kAudio;
    return headerStep(avi_read_audstreamheader(io, avi));
  }
  return skipOrFail(io, size - 4);
}

int32_t onStreamFormat(MediaIo* io, AviHeaders* avi, Stream current) {
  if (current == Stream::kVideo) return headerStep(avi_read_vidsaviheader(io, avi));
  if (current == Stream::kAudio) return headerStep(avi_read_audsaviheader(io, avi));
  return kGoOn;
}

int32_t onSkippedChunk(MediaIo* io) {
  uint32_t size = 0;
  if (!readLe32(io, &size)) return kShortRead;
  return skipOrFail(io, size);
}

// Acts on one chunk id; the stream is just past it.
int32_t onChunk(MediaIo* io, uint32_t id, AviHeaders* avi, Stream* current) {
  switch (id) {
    case kList:
      return onList(io, avi);
    case kAvih:
      if (!avi->hdrl_seen) return kGoOn;
      if (!media_skip_data(io, -4)) return kNotAvi;
      return headerStep(avi_read_mainheader(io, avi));
    case kStrh:
      return avi->strl_seen ? onStreamHeader(io, avi, current) : kGoOn;
    case kStrf:
      return onStreamFormat(io, avi, *current);
    case kStrd:
    case kStrn:
    case kIdx1:
    case kIndx:
    case kJunk:
      return onSkippedChunk(io);
    default:
      // Unknown data is scanned a word at a time; the read cap bounds it.
      return kGoOn;
  }
}

int32_t walkHeaders(MediaIo* io, AviHeaders* avi) {
  Stream current = Stream::kNone;
  for (uint32_t reads = 0; reads < kAviMaxChunkReads; ++reads) {
    uint32_t id = 0;
    if (!readLe32(io, &id)) return kShortRead;
    const int32_t step = onChunk(io, id, avi, &current);
    if (step == kEndOfHeaders) break;
    if (step != kGoOn) return step;
  }
  return 0;
}

}  // namespace

int32_t avi_read_mainheader(MediaIo* io, AviHeaders* avi) {
  if (!io || !avi) return kShortRead;
  FieldReader r(io);
  r.skip(24);  // id, size, frame period, max rate, padding, flags
  avi->total_frames = r.u32();
  r.skip(12);  // initial frames, streams, buffer size
  avi->width = r.u32();
  avi->height = r.u32();
  r.skip(16);  // reserved
  return r.result();
}

int32_t avi_read_vidstreamheader(MediaIo* io, AviHeaders* avi) {
  if (!io || !avi) return kShortRead;
  FieldReader r(io);
  r.skip(16);  // handler, flags, priority, language, initial frames
  avi->vids_scale = r.u32();
  avi->vids_rate = r.u32();
  r.skip(28);  // start, length, buffer size, quality, sample size, frame rectangle
  avi->vids_type = kVids;
  return r.result();
}

int32_t avi_read_audstreamheader(MediaIo* io, AviHeaders* avi) {
  if (!io || !avi) return kShortRead;
  FieldReader r(io);
  r.skip(16);
  avi->auds_scale = r.u32();
  r.skip(32);  // rate and the rest as for video
  avi->auds_type = kAuds;
  return r.result();
}

int32_t avi_read_vidsaviheader(MediaIo* io, AviHeaders* avi) {
  if (!io || !avi) return kShortRead;
  FieldReader r(io);
  const uint32_t size = r.u32();
  r.skip(14);  // header size, width, height, planes
  avi->bit_count = r.u16();
  avi->compression = r.u32();
  r.skip(size - 20);
  return r.result();
}

int32_t avi_read_audsaviheader(MediaIo* io, AviHeaders* avi) {
  if (!io || !avi) return kShortRead;
  FieldReader r(io);
  const uint32_t size = r.u32();
  avi->format_tag = r.u16();
  avi->channels = r.u16();
  avi->samples_per_sec = r.u32();
  avi->avg_bytes_per_sec = r.u32();
  r.skip(2);  // block align
  avi->bits_per_sample = r.u16();
  r.skip(size - 16);
  return r.result();
}

void avi_Set_MediaInfo(MediaInfo* info, const AviHeaders* avi) {
  if (!info || !avi) return;
  media_strncpy(info->format, "avi", sizeof info->format);
  if (avi->auds_type == kAuds) {
    info->has_audio = 1;
    info->audio_codec = media_wav_codec_get_id(avi->format_tag, avi->bits_per_sample);
    info->audio_streams = 1;
    info->channels = avi->channels;
    info->sample_rate = avi->samples_per_sec;
  }
  if (avi->vids_type != kVids) return;
  info->has_video = 1;
  info->video_stream_type = 0;
  info->video_width = static_cast<uint16_t>(avi->width);
  info->video_height = static_cast<uint16_t>(avi->height);
  info->video_codec = media_codec_get_id(media_codec_bmp_tags, avi->compression);
  uint32_t fps = 0;
  if (avi->vids_scale != 0) {
    fps = avi->vids_rate / avi->vids_scale;
    info->video_bit_rate = fps;  // the profile rules read the frame rate here
  }
  if (fps == 0) return;
  const uint32_t seconds = avi->total_frames / fps;
  info->duration = static_cast<uint32_t>(seconds * 1000000u);
  if (seconds >= 1) {
    info->bit_rate = static_cast<uint32_t>(uint64_t{info->file_size} * 8 / seconds);
  }
}

int32_t avi_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !info) return kNotAvi;
  const int32_t riff = checkRiffAvi(io);
  if (riff != 0) return riff;
  AviHeaders avi{};
  const int32_t walk = walkHeaders(io, &avi);
  if (walk != 0) return walk;
  avi_Set_MediaInfo(info, &avi);
  info->parsed = 1;
  return 0;
}
