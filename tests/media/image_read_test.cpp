// Still-image readers over headers built byte by byte (cut-off, damaged and
// unusual ones no encoder writes), and the messages the readers log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "media/jpg_read.h"
#include "media/reader_test_util.h"

namespace {

using reader_test::Bytes;

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
const auto be16 = [](uint32_t v) { return Bytes{uint8_t(v >> 8), uint8_t(v)}; };
const auto be32 = [](uint32_t v) { return be16(v >> 16) + be16(v); };
const auto le16 = [](uint32_t v) { return Bytes{uint8_t(v), uint8_t(v >> 8)}; };
const auto le32 = [](uint32_t v) { return le16(v) + le16(v >> 16); };
const auto text = [](const char* s) { return reader_test::text(s); };
const auto drop = [](const Bytes& b, size_t front, size_t back) {
  return Bytes(b.begin() + long(front), b.end() - long(back));
};

const Bytes kSoi = {0xFF, 0xD8}, kEoi = {0xFF, 0xD9};
Bytes seg(uint8_t code, const Bytes& payload) {
  return Bytes{0xFF, code} + be16(uint32_t(payload.size() + 2)) + payload;
}
Bytes frame(uint8_t sof, uint32_t h, uint32_t w) {
  return seg(sof, Bytes{8} + be16(h) + be16(w) + Bytes{1, 1, 0x11, 0});
}
Bytes jpeg(uint32_t h, uint32_t w, uint8_t sof = 0xC0) {
  return kSoi + seg(0xE0, text("JFIF")) + frame(sof, h, w) + seg(0xDA, {1, 1, 0, 0}) +
         Bytes{0x12, 0xFF, 0x00, 0x34} + kEoi;
}
const Bytes kPngSig = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
Bytes png(uint32_t w, uint32_t h, const Bytes& sig = kPngSig, uint32_t ihdr_length = 13) {
  const Bytes depth_to_crc = {8, 2, 0, 0, 0, 0, 0, 0, 0};
  return sig + be32(ihdr_length) + text("IHDR") + be32(w) + be32(h) + depth_to_crc;
}
Bytes gif(const char* version, uint32_t w, uint32_t h) {
  return text("GIF") + text(version) + le16(w) + le16(h);
}
// (tag, type, value) entries; SHORT values sit in the first two value bytes.
Bytes tiff(bool little, const std::vector<std::array<uint32_t, 3>>& fields, uint32_t count) {
  auto u16 = little ? le16 : be16;
  auto u32 = little ? le32 : be32;
  Bytes out = text(little ? "II" : "MM") + u16(42) + u32(8) + u16(count);
  for (const auto& [tag, type, value] : fields)
    out = out + u16(tag) + u16(type) + be32(1) + (type == 3 ? u16(value) + u16(0) : u32(value));
  return out;
}
Bytes bmp(int32_t w, int32_t h) {
  return text("BM") + le32(0) + le32(0) + le32(54) + le32(40) + le32(w) + le32(h) + le32(0);
}

TEST(ImageRead, BuiltHeaders) {
  Bytes crlf = kPngSig;
  crlf[4] = 0x0A;
  Bytes no_sof0 = kSoi;
  for (int i = 0; i < 1100; ++i) no_sof0 = no_sof0 + seg(0xFE, {});
  const struct {
    const char* name;
    MediaReaderFn reader;
    Bytes bytes;
    int32_t rc, width, height;
    const char* format = "";
    const char* log = nullptr;  // source:line function: message
  } cases[] = {
      {"jpeg", jpg_read_info, jpeg(240, 320), 0, 320, 240},
      {"jpeg fill", jpg_read_info, kSoi + Bytes(3, 0xFF) + frame(0xC0, 48, 64), 0, 64, 48},
      {"jpeg too much fill", jpg_read_info, kSoi + Bytes(300, 0xFF) + frame(0xC0, 2, 2), -1, 0, 0},
      {"jpeg progressive", jpg_read_info, jpeg(240, 320, 0xC2), -1, 0, 0},
      {"jpeg no SOF0 in 1024", jpg_read_info, no_sof0, 0, 0, 0},
      {"jpeg SOF0 cut", jpg_read_info, kSoi + Bytes{0xFF, 0xC0, 0, 17, 8, 0}, -2, 0, 0},
      {"png", png_read_info, png(300, 200), 0, 300, 200},
      {"png line ends", png_read_info, png(300, 200, crlf), 0, 300, 200, "",
       "png_read:[0-9]+ png_parse_info: PNG file corrupted by ASCII conversion"},
      {"png IHDR length", png_read_info, png(3, 4, kPngSig, 12), 0, 3, 4, "",
       "png_rutil:[0-9]+ png_handle_IHDR: Invalid IHDR chunk"},
      {"png not png", png_read_info, png(300, 200, text("GIF89a..")), -1, 0, 0},
      {"png no IHDR", png_read_info, kPngSig + be32(21) + text("IDAT") + Bytes(25, 7), -1, 0, 0},
      {"png IHDR cut", png_read_info, drop(png(300, 200), 0, 10), -1, 0, 0},
      {"gif89a", gif_read_info, gif("89a", 64, 48), 0, 64, 48},
      {"gif87a", gif_read_info, gif("87a", 64, 48), 0, 64, 48, "NON-DLNA"},
      {"gif cut", gif_read_info, text("GIF89a") + le16(64), -1, 0, 0},
      {"tiff le", tif_read_info, tiff(true, {{256, 3, 120}, {257, 4, 80}}, 2), 0, 120, 80, "",
       "tif_read:[0-9]+ tif_read_IFD: width 120,height 80"},
      {"tiff be", tif_read_info, tiff(false, {{257, 3, 80}, {1, 5, 1}, {256, 4, 120}}, 3), 0, 120,
       80},
      {"tiff no height", tif_read_info, tiff(false, {{256, 3, 120}}, 1), -1, 120, 0},
      {"tiff entries run out", tif_read_info, tiff(true, {{256, 3, 120}}, 40), -1, 120, 0},
      // The cut entry names the height tag: its partial bytes must not count.
      {"tiff entry cut", tif_read_info, tiff(true, {{256, 3, 64}}, 2) + le16(257), -1, 64, 0},
      {"tiff bad order", tif_read_info, Bytes{'I', 'M', 42, 0, 8, 0, 0, 0}, -1, 0, 0},
      {"tiff header cut", tif_read_info, Bytes{'I', 'I', 42, 0}, -2, 0, 0},
      {"tiff IFD past end", tif_read_info, text("II") + le16(42) + le32(4000), -2, 0, 0},
      {"bmp top-down", bmp_read_info, bmp(64, -480), 0, 64, 480},
      {"bmp lowest height", bmp_read_info, bmp(1, INT32_MIN), 0, 1, INT32_MAX},
      {"bmp cut", bmp_read_info, text("BM") + le32(0), -1, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto info = std::make_unique<MediaInfo>();
    const std::string log = reader_test::logOf(kLogTrace, [&] {
      EXPECT_EQ(reader_test::readBytes(c.reader, 0, c.bytes, info.get()), c.rc);
    });
    if (c.log) {
      EXPECT_THAT(log, testing::ContainsRegex(c.log));
    }
    EXPECT_EQ(info->width, c.width);
    EXPECT_EQ(info->height, c.height);
    EXPECT_STREQ(info->format, c.format);
  }
}

}  // namespace
