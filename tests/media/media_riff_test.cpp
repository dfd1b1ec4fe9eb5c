// The AVI and WAV readers over byte layouts built here: odd, cut and endless
// headers no encoder writes.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "media/media_avi.h"
#include "media/media_wav.h"
#include "media/reader_test_util.h"

namespace {

using Bytes = std::string;

Bytes le(uint32_t v, int width) {
  const reader_test::Bytes b = reader_test::le(v, width);
  return Bytes(b.begin(), b.end());
}
Bytes le16(uint32_t v) {
  return le(v, 2);
}
Bytes le32(uint32_t v) {
  return le(v, 4);
}
Bytes zeros(size_t n) {
  return Bytes(n, '\0');
}
Bytes chunk(const Bytes& id, const Bytes& body) {
  return id + le32(body.size()) + body;
}
Bytes list(const Bytes& type, const Bytes& body) {
  return "LIST" + le32(body.size() + 4) + type + body;
}
Bytes avih(uint32_t frames, uint32_t width) {
  return chunk("avih", zeros(16) + le32(frames) + zeros(12) + le32(width) + le32(240) + zeros(16));
}
Bytes video(uint32_t scale = 1, uint32_t rate = 25) {
  const Bytes strh = chunk("strh", "vids" + zeros(16) + le32(scale) + le32(rate) + zeros(28));
  return list("strl", strh + chunk("strf", zeros(14) + le16(24) + "XVID" + zeros(20)));
}
Bytes hdrl(const Bytes& body) {
  return list("hdrl", body);
}
Bytes riffAvi(const Bytes& body) {
  return "RIFF" + le32(body.size() + 4) + "AVI " + body;
}
Bytes aviFile(const Bytes& headers) {
  return riffAvi(headers + list("movi", zeros(8)));
}
Bytes words(size_t count) {
  Bytes b;
  while (count--) b += "abcd";
  return b;
}

struct Read {
  int32_t rc = -100;
  std::unique_ptr<MediaInfo> info = std::make_unique<MediaInfo>();
};

// info.file_size is what media_read_info would have put there.
Read readBytes(MediaReaderFn reader, const Bytes& bytes, uint32_t file_size) {
  Read r;
  r.info->file_size = file_size;
  r.rc = reader_test::readBytes(reader, 0, reader_test::text(bytes), r.info.get());
  return r;
}

// Short chunk heads give -2, cut headers -1, and a failed walk leaves the
// record untouched. Scanning unknown data stops at the read cap.
TEST(AviReader, FailuresAndReadCap) {
  const Bytes whole = aviFile(hdrl(avih(1500, 320) + video()));
  const struct {
    const char* name;
    Bytes bytes;
    int32_t rc;
  } cases[] = {
      {"empty", "", -2},
      {"no form type", "RIFF" + le32(100), -2},
      {"RIFF WAVE", "RIFF" + le32(100) + "WAVE", -1},
      {"cut in avih", whole.substr(0, 40), -1},
      {"cut in strh", whole.substr(0, 120), -1},
      {"cut in LIST head", riffAvi("LIST" + le32(100)), -2},
      {"no movi", riffAvi(hdrl(avih(1500, 320))), -2},
      {"one word short of the cap", riffAvi(words(kAviMaxChunkReads - 1)), -2},
      {"cap", riffAvi(words(kAviMaxChunkReads)), 0},
      {"far past the cap", riffAvi(words(20000)), 0},
  };
  for (const auto& c : cases) {
    Read r = readBytes(avi_read_info, c.bytes, 1000);
    EXPECT_EQ(r.rc, c.rc) << c.name;
    EXPECT_STREQ(r.info->format, c.rc == 0 ? "avi" : "") << c.name;
  }
}

Bytes pcm(uint32_t tag, uint32_t byte_rate, uint32_t bits) {
  return le16(tag) + le16(2) + le32(48000) + le32(byte_rate) + le16(4) + le16(bits);
}
// An extensible body for 24 valid bits of PCM, its tail cut to `tail` bytes.
Bytes extensible(uint32_t extra_size, size_t tail) {
  const Bytes ext = le16(24) + le32(3) + le32(1) + zeros(12);
  return pcm(kWavFormatExtensible, 288000, 32) + le16(extra_size) + ext.substr(0, tail);
}
Bytes wavLayout(const Bytes& fmt) {
  return "RIFFWAVEfmt " + le32(__builtin_bswap32(fmt.size())) + fmt + "data";  // size big-endian
}

// file_size is 576100 throughout: the duration is its bits over the bit rate.
TEST(WavReader, Layouts) {
  const Bytes body = pcm(1, 192000, 16);
  const struct {
    const char* name;
    Bytes bytes;
    int32_t rc;
    uint32_t codec, bit_rate;
    int64_t duration;
  } cases[] = {
      {"PCM", wavLayout(body), 0, kMediaCodecPcmS16Le, 1536000, 3000000},
      {"no rate", wavLayout(pcm(1, 0, 16)), 0, kMediaCodecPcmS16Le, 0, 0},
      {"no sample width", wavLayout(body.substr(0, 14)), 0, kMediaCodecPcmU8, 1536000, 3000000},
      {"extensible", wavLayout(extensible(22, 22)), 0, kMediaCodecPcmS24Le, 2304000, 2000000},
      {"extra size too small", wavLayout(extensible(10, 22)), 0, 0, 2304000, 2000000},
      {"fmt size too small", wavLayout(extensible(22, 14)), 0, 0, 2304000, 2000000},
      {"conventional", "RIFF" + le32(36) + "WAVEfmt " + le32(16) + body, -1, 0, 0, 0},
      {"no fmt size", "RIFFWAVEfmt ", -1, 0, 0, 0},
  };
  for (const auto& c : cases) {
    Read r = readBytes(wav_read_info, c.bytes, 576100);
    EXPECT_EQ(r.rc, c.rc) << c.name;
    EXPECT_STREQ(r.info->format, c.rc == 0 ? "wav" : "") << c.name;
    EXPECT_EQ(r.info->audio_codec, c.codec) << c.name;
    EXPECT_EQ(r.info->bit_rate, c.bit_rate) << c.name;
    EXPECT_EQ(r.info->duration, c.duration) << c.name;
  }
}

}  // namespace
