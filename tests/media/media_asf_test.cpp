// ASF header reading over headers built byte by byte (WMV3 has no encoder at
// hand, and corrupt headers none at all), and over the WMA and WMV fixtures.
#include "media/media_asf.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "media/reader_test_util.h"
#include "platform/ctype.h"

namespace {

using reader_test::Bytes;
using reader_test::cat;

// Little-endian fields given as value, width in bytes, value, width, ...
Bytes le(std::initializer_list<uint64_t> fields) {
  Bytes b;
  for (auto it = fields.begin(); it + 1 < fields.end(); it += 2) {
    for (uint64_t i = 0; i < it[1]; ++i)
      b.push_back(i < 8 ? static_cast<uint8_t>(*it >> (8 * i)) : 0);
  }
  return b;
}
Bytes guid(const AsfGuid& g) {
  return Bytes(g.bytes, g.bytes + 16);
}
Bytes object(const AsfGuid& g, const Bytes& body) {
  return cat({guid(g), le({body.size() + 24, 8}), body});
}

Bytes header(const std::vector<Bytes>& objects, uint32_t count = 0) {
  Bytes body = le({count ? count : objects.size() + 1, 4, 0x0201, 2});
  for (const Bytes& o : objects) body = cat({body, o});
  return cat({object(media_asf_header, body), object(media_asf_data, Bytes(26, 0))});
}

Bytes fileProperties(uint64_t play = 300000000, uint64_t preroll = 3000, uint32_t flags = 1,
                     uint64_t creation = 0) {
  return object(
      media_asf_file_properties,
      cat({Bytes(16, 0xAB), le({5000000, 8, creation, 8, 100,  8, play, 8, play,    8,
                                preroll, 8, flags,    4, 3200, 4, 3200, 4, 1000000, 4})}));
}

Bytes stream(const AsfGuid& type, uint16_t number, const Bytes& specific) {
  return object(media_asf_stream_properties,
                cat({guid(type), guid(media_asf_no_error_correction),
                     le({0, 8, specific.size(), 4, 0, 4, number, 2, 0, 4}), specific}));
}
// With 10 extra bytes.
Bytes waveFormat(uint16_t tag, uint16_t channels, uint32_t rate, uint32_t bytesPerSec) {
  return le({tag, 2, channels, 2, rate, 4, bytesPerSec, 4, 2973, 2, 16, 2, 10, 2, 0x1111, 10});
}
Bytes audioStream(uint16_t number, uint16_t tag, uint16_t channels, uint32_t rate,
                  uint32_t bytesPerSec) {
  return stream(media_asf_audio_media, number, waveFormat(tag, channels, rate, bytesPerSec));
}
Bytes wmv3Stream(uint16_t number, uint32_t width, uint32_t height) {
  uint32_t fourcc = mediaFourcc('W', 'M', 'V', '3');
  return stream(media_asf_video_media, number,  // BITMAPINFOHEADER with 4 bytes of codec data
                le({width,  4, height, 4, 2,  1, 44,     2, 44, 4,  width,      4,
                    height, 4, 1,      2, 24, 2, fourcc, 4, 0,  20, 0x4F0A0B0C, 4}));
}

// With one stream name, which the reader steps over.
Bytes extStream(uint16_t number, uint32_t rate, uint32_t altRate, uint64_t timePerFrame) {
  return object(media_asf_ext_stream_properties,
                le({0, 16, rate,         4, 3000, 8, altRate, 4, 3000, 8, 0, 8, number,     2,
                    0, 2,  timePerFrame, 8, 1,    2, 0,       2, 0,    2, 4, 2, 0x00410041, 4}));
}
Bytes headerExtension(const std::vector<Bytes>& subs, int32_t sizeError = 0) {
  Bytes data;
  for (const Bytes& s : subs) data = cat({data, s});
  return object(media_asf_header_extension,
                cat({guid(media_asf_reserved_1), le({6, 2, data.size() + sizeError, 4}), data}));
}

Bytes utf16(const std::u16string& s) {
  Bytes b;
  for (char16_t c : s) b = cat({b, le({c, 2})});
  return s.empty() ? b : cat({b, le({0, 2})});
}
Bytes contentDescription(const Bytes& title, const Bytes& author) {
  return object(media_asf_content_description,
                cat({le({title.size(), 2, author.size(), 2, 0, 6}), title, author}));
}

class Asf : public testing::Test {
 protected:
  void SetUp() override { ctypeInit(1, kCtypeDetect); }

  // Reads into a fresh record unless told to read on top of the current one.
  int32_t read(const Bytes& bytes, bool fresh = true) {
    if (fresh) *info = MediaInfo{};
    return reader_test::readBytes(asf_read_info, kMediaFileWmv, bytes, info.get());
  }

  std::unique_ptr<MediaInfo> info = std::make_unique<MediaInfo>();
};

TEST_F(Asf, RefusedHeaders) {
  Bytes notHeader = header({fileProperties()});
  notHeader[0] ^= 1;
  const Bytes cases[] = {
      {},
      notHeader,
      header({stream(media_asf_jfif_media, 1, {}), audioStream(2, 0x161, 2, 8000, 1)}),
      header({headerExtension({extStream(1, 1, 1, 1)}, 2)}),  // data size disagrees
  };
  for (const Bytes& c : cases) EXPECT_EQ(read(c), -1) << c.size();
}

// A WMV9 main-profile file as encoders lay it out: the extended stream
// properties give the frame rate and the real data rates; a command stream is
// recorded but not reported.
TEST_F(Asf, Wmv3WithExtendedStreamProperties) {
  uint64_t creation = (1274054400 + 11644473600ull) * 10000000;  // 2010-05-17
  ASSERT_EQ(read(header({fileProperties(300000000, 3000, 2, creation),
                         headerExtension(
                             {extStream(1, 4800000, 0, 400000), extStream(2, 128000, 192000, 0)}),
                         stream(media_asf_command_media, 3, {}), wmv3Stream(1, 720, 576),
                         audioStream(2, 0x162, 6, 48000, 24000)})),
            0);
  EXPECT_EQ(info->video_codec, kMediaCodecWmv3);
  EXPECT_EQ(info->video_width, 720);
  EXPECT_EQ(info->video_height, 576);
  EXPECT_EQ(info->frame_rate, 25u);
  EXPECT_EQ(info->video_bit_rate, 4800000u);
  EXPECT_EQ(info->video_max_bit_rate, 4800000u);
  EXPECT_EQ(info->audio_codec, kMediaCodecWmaPro);
  EXPECT_EQ(info->channels, 6);
  EXPECT_EQ(info->sample_rate, 48000u);
  EXPECT_EQ(info->audio_bit_rate, 128000u);
  EXPECT_EQ(info->audio_max_bit_rate, 192000u);
  EXPECT_EQ(info->year * 10000 + info->month * 100 + info->day, 20100517);

  // An audio stream embedded in an extended stream header counts as audio.
  Bytes embedded =
      cat({guid(media_asf_ext_stream_audio), Bytes(48, 0), waveFormat(0x161, 2, 44100, 16000)});
  ASSERT_EQ(read(header({stream(media_asf_ext_stream_embed, 5, embedded)})), 0);
  EXPECT_EQ(info->audio_codec, kMediaCodecWmaV2);
  EXPECT_EQ(info->audio_bit_rate, 128000u);
}

TEST_F(Asf, ContentDescriptionTexts) {
  media_strncpy(info->artist, "kept", sizeof info->artist);
  ASSERT_EQ(read(header({contentDescription(utf16(u"Caf\u00e9 \u65e5\u672c"), {})}), false), 0);
  EXPECT_STREQ(info->title, "Caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac");
  EXPECT_STREQ(info->artist, "kept");  // an empty author leaves it

  // Cut at 511 and 1023 bytes, never inside a character; a lone surrogate that
  // the converter refuses still leaves the text around it.
  ASSERT_EQ(read(header({contentDescription(utf16(std::u16string(400, u'\u00e9')),
                                            utf16(u"a\xd800z" + std::u16string(1100, u'b')))})),
            0);
  std::string e;
  for (int i = 0; i < 255; ++i) e += "\xc3\xa9";
  EXPECT_EQ(std::string(info->title), e);
  EXPECT_EQ(std::string(info->artist), "a\xed\xa0\x80z" + std::string(1018, 'b'));
}

}  // namespace
