// The WAV reader; see media_wav.h. Only the format chunk is read: the duration
// follows from the file size and the average byte rate, so the data chunk is
// never looked for.
#include "media/media_wav.h"

#include <algorithm>

#include "media/media_codec.h"

namespace {

// The leading ids are compared as big-endian words.
constexpr uint32_t bigFourcc(char a, char b, char c, char d) {
  return static_cast<uint32_t>(static_cast<uint8_t>(a)) << 24 |
         static_cast<uint32_t>(static_cast<uint8_t>(b)) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(c)) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(d));
}

constexpr uint32_t kLeadingIds[] = {
    bigFourcc('R', 'I', 'F', 'F'),
    bigFourcc('W', 'A', 'V', 'E'),
    bigFourcc('f', 'm', 't', ' '),
};

constexpr uint32_t kShortFormatSize = 14;  // WAVEFORMAT: no sample width
constexpr uint32_t kExtraSizeEnd = 18;     // WAVEFORMATEX up to its extra size
constexpr uint32_t kExtensibleBytes = 22;  // valid bits, mask, sub-format

// Little-endian fields of the format body, counting what it has read.
class BodyReader {
 public:
  explicit BodyReader(MediaIo* io) : io_(io) {}

  uint32_t u16() { return count(2, media_get_2LittleEndianValue(io_)); }
  uint32_t u32() { return count(4, media_get_4LittleEndianValue(io_)); }
  void skip(uint32_t n) {
    media_skip_data(io_, static_cast<int32_t>(n));
    used_ += n;
  }
  uint32_t used() const { return used_; }

 private:
  uint32_t count(uint32_t width, uint32_t value) {
    used_ += width;
    return value;
  }

  MediaIo* io_;
  uint32_t used_ = 0;
};

void readExtensible(BodyReader* r, WavFormat* fmt) {
  fmt->bits_per_sample = r->u16();
  fmt->channel_mask = r->u32();
  fmt->format_tag = r->u32();  // the sub-format GUID starts with the format tag
  r->skip(12);
}

}  // namespace

uint32_t media_get_wav_header(MediaIo* io, WavFormat* fmt, uint32_t fmt_size) {
  if (!io || !fmt) return 0;
  BodyReader r(io);
  fmt->format_tag = r.u16();
  fmt->channels = r.u16();
  fmt->samples_per_sec = r.u32();
  fmt->bit_rate = r.u32() * 8;
  fmt->block_align = r.u16();
  if (fmt_size == kShortFormatSize) {
    fmt->bits_per_sample = 8;
  } else {
    fmt->bits_per_sample = r.u16();
    if (fmt_size >= kExtraSizeEnd) {
      fmt->extra_size = r.u16();
      const uint32_t extra = std::min(fmt->extra_size, fmt_size - kExtraSizeEnd);
      if (fmt->format_tag == kWavFormatExtensible && extra >= kExtensibleBytes) {
        readExtensible(&r, fmt);
      }
    }
  }
  if (fmt_size > r.used()) r.skip(fmt_size - r.used());
  fmt->codec_id = media_wav_codec_get_id(fmt->format_tag, fmt->bits_per_sample);
  fmt->valid = 1;
  return fmt->codec_id;
}

void wavSetMediaInfo(MediaInfo* info, const WavFormat* fmt) {
  if (!info || !fmt) return;
  media_strncpy(info->format, "wav", sizeof info->format);
  info->channels = static_cast<uint16_t>(fmt->channels);
  info->sample_rate = fmt->samples_per_sec;
  info->has_audio = 1;
  info->audio_streams = 1;
  info->audio_codec = fmt->codec_id;
  info->audio_bit_rate = fmt->bit_rate;
  info->audio_max_bit_rate = fmt->bit_rate;
  info->bit_rate = fmt->bit_rate;
  if (fmt->bit_rate == 0) return;
  // 32-bit on purpose: the size in bits wraps for files of 512 MiB and more.
  const uint32_t bits = info->file_size * 8u;
  info->duration = static_cast<uint32_t>(bits / fmt->bit_rate * 1000000u);
}

int32_t wav_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !info) return -1;
  for (uint32_t id : kLeadingIds) {
    if (media_get_4BigEndianValue(io) != id || io->status != 0) return -1;
  }
  const uint32_t fmt_size = media_get_4BigEndianValue(io);
  if (io->status != 0) return -1;
  WavFormat fmt{};
  media_get_wav_header(io, &fmt, fmt_size);
  wavSetMediaInfo(info, &fmt);
  info->parsed = 1;
  return 0;
}
