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

TEST(Mp4Reader, FormatComesFromA3gpBrandOnly) {
  const struct {
    const char* brand;
    const char* format;
  } cases[] = {
      {"3gp6", "3gp6"}, {"3gp4", "3gp4"}, {"3g2a", "mp4"}, {"isom", "mp4"}, {"M4A ", "mp4"}};
  for (const auto& c : cases) {
    EXPECT_STREQ(readMp4(cat({ftyp(c.brand), box("moov", mvhd(1000, 2000))}))->format, c.format)
        << c.brand;
  }
  EXPECT_STREQ(readMp4({})->format, "mp4");  // no ftyp at all
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

// Fields of later tracks win, except the audio bit rates: the first found stay.
TEST(Mp4Reader, LaterTracksOverwriteButNotAudioBitRates) {
  const Bytes mono =
      trak({"soun", 8000, 80000, audioEntry("mp4a", 1, 8000, esds({0x15, 0x88}, 24000, 12000)),
            stts({{10, 1024}})});
  auto info = readMp4(cat({box("moov", cat({mvhd(1000, 10000), kAacTrack, mono}))}));
  EXPECT_EQ(info->channels, 1);
  EXPECT_EQ(info->sample_rate, 8000u);
  EXPECT_EQ(info->audio_config[0], 0x15);
  EXPECT_EQ(info->audio_max_bit_rate, 128000u);
  EXPECT_EQ(info->audio_bit_rate, 96000u);
}

// 90000 / 3003 is 29.97; the whole part is kept. A zero delta counts as none
// and a larger later one does not replace the smallest. The video bit rate is
// the whole mdat over the track's seconds.
TEST(Mp4Reader, VideoFrameRateFromSmallestDeltaAndBitRateFromMdat) {
  const Bytes mdat = box("mdat", Bytes(1000, 0));
  const Bytes video = trak(
      {"vide", 90000, 900000, visualEntry("avc1", {}), stts({{1, 0}, {299, 3003}, {1, 3600}})});
  auto info = readMp4(cat({ftyp("isom"), mdat, box("moov", cat({mvhd(1000, 10000), video}))}));
  EXPECT_EQ(info->video_codec, kMediaCodecH264);
  EXPECT_EQ(info->frame_rate, 29u);
  EXPECT_EQ(info->video_width, 640);
  EXPECT_EQ(info->video_height, 360);
  EXPECT_EQ(info->video_bit_rate, 1008u * 8 / 10);
  EXPECT_EQ(info->video_max_bit_rate, info->video_bit_rate);
}

// Under a second, there is no whole second to divide by.
TEST(Mp4Reader, HalfSecondMovieHasNoBitRates) {
  const Bytes track = trak({"vide", 1000, 500, visualEntry("mp4v", {}), stts({{12, 40}})});
  auto info = readMp4(cat({box("moov", cat({mvhd(1000, 500), track})), box("mdat", Bytes(64, 0))}));
  EXPECT_EQ(info->duration, 500000);
  EXPECT_EQ(info->bit_rate, 0u);
  EXPECT_EQ(info->video_bit_rate, 0u);
  EXPECT_EQ(info->frame_rate, 0u);
  EXPECT_EQ(info->video_codec, kMediaCodecMpeg4);
}

TEST(Mp4Reader, Version1MovieHeaderGivesDateAndDuration) {
  const uint64_t created = 2082844800ull + 1278418830;  // 2010-07-06 12:20:30 UTC
  const Bytes v1 = fullBox(
      "mvhd", 1, cat({be(created, 8), be(0, 8), be(600, 4), be(6000000000ull, 8), Bytes(80, 0)}));
  auto info = readMp4(box("moov", v1));
  EXPECT_EQ(info->duration, 10000000000000);  // 64-bit duration, no overflow
  EXPECT_EQ(info->year, 2010);
  EXPECT_EQ(info->month, 7);
  EXPECT_EQ(info->day, 6);
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
