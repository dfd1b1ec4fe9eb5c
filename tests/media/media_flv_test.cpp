// FLV reading over files built byte by byte (codec bytes, metadata, nesting
// and truncation no encoder produces) and over the FLV fixtures.
#include "media/media_flv.h"

#include <gtest/gtest.h>

#include <bit>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "media/reader_test_util.h"

namespace {

using reader_test::Bytes;

void putBe(Bytes& b, uint64_t v, int n) {
  const Bytes more = reader_test::be(v, n);
  b.insert(b.end(), more.begin(), more.end());
}
void put(Bytes& b, const Bytes& more) {
  b.insert(b.end(), more.begin(), more.end());
}

Bytes flvHeader(uint8_t flags) {
  return {'F', 'L', 'V', 1, flags, 0, 0, 0, 9};
}
// A tag with the previous tag size in front of it.
Bytes tag(uint8_t type, const Bytes& body) {
  Bytes b{0, 0, 0, 0, type};
  putBe(b, body.size(), 3);
  putBe(b, 0, 7);
  put(b, body);
  return b;
}

Bytes amfNumber(double v) {
  Bytes b{0};
  putBe(b, std::bit_cast<uint64_t>(v), 8);
  return b;
}
Bytes amfText(const std::string& s) {
  Bytes b;
  putBe(b, s.size(), 2);
  b.insert(b.end(), s.begin(), s.end());
  return b;
}
Bytes amfString(const std::string& s) {
  Bytes b{2};
  put(b, amfText(s));
  return b;
}
using Members = std::vector<std::pair<std::string, Bytes>>;
Bytes amfMembers(uint8_t type, const Members& members) {
  Bytes b{type};
  if (type == 8) putBe(b, members.size(), 4);
  for (const auto& [key, value] : members) {
    put(b, amfText(key));
    put(b, value);
  }
  put(b, {0, 0, 9});
  return b;
}
class Flv : public testing::Test {
 protected:
  // Reads into a fresh record unless told to read on top of the current one.
  int32_t read(const Bytes& bytes, bool fresh = true) {
    if (fresh) *info = MediaInfo{};
    return reader_test::readBytes(flv_read_info, kMediaFileFlv, bytes, info.get());
  }

  std::unique_ptr<MediaInfo> info = std::make_unique<MediaInfo>();
};

// The first body byte of an audio or video tag: format, rate, size, channels.
TEST_F(Flv, TagCodecs) {
  const struct {
    uint8_t type, byte;
    uint32_t codec, rate, channels;
  } cases[] = {
      {8, 0x2F, kMediaCodecMp3, 44100, 2},       {8, 0xAE, kMediaCodecAac, 44100, 1},
      {8, 0x5A, kMediaCodecNellymoser, 8000, 1}, {8, 0xB6, kMediaCodecSpeex, 16000, 1},
      {8, 0x17, kMediaCodecAdpcmSwf, 11025, 2},  {8, 0x01, kMediaCodecPcmS8, 5512, 2},
      {9, 0x12, kMediaCodecFlv1, 0, 0},          {9, 0x17, kMediaCodecH264, 0, 0},
      {9, 0x24, kMediaCodecVp6F, 0, 0},          {9, 0x13, 89, 0, 0},
  };
  for (const auto& c : cases) {
    Bytes file = flvHeader(c.type == 8 ? 4 : 1);
    put(file, tag(c.type, {c.byte, 0x55, 0x55}));
    ASSERT_EQ(read(file), 0) << std::hex << +c.byte;
    EXPECT_EQ(c.type == 8 ? info->audio_codec : info->video_codec, c.codec) << std::hex << +c.byte;
    EXPECT_EQ(info->sample_rate, c.rate) << std::hex << +c.byte;
    EXPECT_EQ(info->channels, c.channels) << std::hex << +c.byte;
  }
}

// Nesting far beyond any real file ends without exhausting the stack.
TEST_F(Flv, DeepNestingIsBounded) {
  const struct {
    uint8_t opener;
    Bytes inner;
    int32_t rc;
  } cases[] = {
      {8, {0, 0, 0, 0, 0, 1, 'k'}, -1},  // ECMA arrays: the refusal propagates
      {10, {0, 0, 0, 1}, -1},            // strict arrays
      {3, {0, 1, 'k'}, 0},               // objects end quietly
  };
  for (const auto& c : cases) {
    Bytes body = amfString("onMetaData");
    put(body, amfMembers(8, {{"duration", amfNumber(7)}}));
    for (int i = 0; i < 20000; ++i) {
      body.push_back(c.opener);
      put(body, c.inner);
    }
    Bytes file = flvHeader(0);  // nothing announced: the script tag is the last one read
    put(file, tag(18, body));
    EXPECT_EQ(read(file), c.rc) << +c.opener;
    EXPECT_EQ(info->duration, 7000000) << +c.opener;
  }
}

}  // namespace
