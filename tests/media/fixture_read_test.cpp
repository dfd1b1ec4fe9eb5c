// Every reader against ffprobe's view of the encoder-made fixtures
// (tests/data/media/expected.tsv, written by make_fixtures.sh), and every
// prefix of every fixture read safely. Where a reader reports something other
// than a demuxer would, the rule for its family below says so.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "media/media_codec.h"
#include "media/reader_test_util.h"

namespace {

using reader_test::fixture;

// One row of expected.tsv: the format, the first video and the first audio stream.
struct Probe {
  std::string file, format;
  double duration = 0;
  int64_t bit_rate = 0, size = 0;
  std::string vcodec;
  int width = 0, height = 0;
  std::string fps;  // "num/den"
  int64_t vbit_rate = 0;
  double vduration = 0;
  std::string profile;
  int level = 0;
  std::string acodec;
  int channels = 0, sample_rate = 0;
  int64_t abit_rate = 0;
};

std::map<std::string, Probe> loadProbes() {
  std::map<std::string, Probe> probes;
  std::ifstream in(fixture("expected.tsv"));
  std::string line;
  std::getline(in, line);  // the header
  while (std::getline(in, line)) {
    std::stringstream fields(line);
    auto text = [&fields] {
      std::string field;
      std::getline(fields, field, '\t');
      return field;
    };
    auto num = [&text] { return std::stod(text()); };
    // Braces run the reads left to right.
    Probe p{text(),     text(),     num(),      (int64_t)num(), (int64_t)num(), text(),
            (int)num(), (int)num(), text(),     (int64_t)num(), num(),          text(),
            (int)num(), text(),     (int)num(), (int)num(),     (int64_t)num()};
    if (fields) probes[p.file] = p;
  }
  return probes;
}

uint32_t codecOf(const std::string& name) {
  static const std::map<std::string, uint32_t> kCodecs = {
      {"-", kMediaCodecNone},
      {"h263", kMediaCodecNone},  // 3GP's "s263" is not in the shared FOURCC table
      {"mpeg1video", kMediaCodecMpeg1Video},
      {"mpeg2video", kMediaCodecMpeg2Video},
      {"mpeg4", kMediaCodecMpeg4},
      {"h264", kMediaCodecH264},
      {"flv1", kMediaCodecFlv1},
      {"wmv2", kMediaCodecWmv2},
      {"mp2", kMediaCodecMp2},
      {"mp3", kMediaCodecMp3},
      {"aac", kMediaCodecAac},
      {"ac3", kMediaCodecAc3},
      {"wmav2", kMediaCodecWmaV2},
      {"pcm_u8", kMediaCodecPcmU8},
      {"pcm_dvd", kMediaCodecPcmDvd},
  };
  auto it = kCodecs.find(name);
  return it == kCodecs.end() ? 0xBAD : it->second;
}

double rateOf(const std::string& fraction) {
  unsigned num = 0, den = 0;
  return sscanf(fraction.c_str(), "%u/%u", &num, &den) == 2 && den ? 1.0 * num / den : 0;
}

struct Fixture {
  const char* file;
  MediaReaderFn reader;
  uint32_t kind;
  int32_t rc = 0;
  const char* probe = nullptr;  // another file's view, where ffprobe refuses this one
  const char* format = "";      // what the reader names the container, where it names it
  int channels = 0, sample_rate = 0, audio_config = -1;  // where not ffprobe's
  bool frame_count = false;  // MP3: a Xing/Info header gives the exact length
};

// clang-format off
const Fixture kFixtures[] = {
    {"jpeg_plain.jpg", jpg_read_info, kMediaFileJpeg},
    {"jpeg_exif_thumb.jpg", jpg_read_info, kMediaFileJpeg},
    // Only baseline frames are understood; a JPEG failure is reported as 1.
    {"jpeg_progressive.jpg", jpg_read_info, kMediaFileJpeg, 1},
    {"png_plain.png", png_read_info, kMediaFilePng},
    {"png_crlf_damaged.png", png_read_info, kMediaFilePng, 0, "png_plain.png"},
    {"gif87a.gif", gif_read_info, kMediaFileGif, 0, nullptr, "NON-DLNA"},
    {"gif89a.gif", gif_read_info, kMediaFileGif},
    {"bmp_topdown.bmp", bmp_read_info, kMediaFileBmp},
    {"tiff_le.tif", tif_read_info, kMediaFileTiff},
    {"tiff_be.tif", tif_read_info, kMediaFileTiff},
    {"mp3_cbr_44k_128k_stereo.mp3", mp3_read_info, kMediaFileMp3},
    {"mp3_cbr_22k_64k_mono.mp3", mp3_read_info, kMediaFileMp3},
    {"mp3_vbr_xing.mp3", mp3_read_info, kMediaFileMp3, 0, nullptr, "", 0, 0, -1, true},
    {"mp3_apic.mp3", mp3_read_info, kMediaFileMp3, 0, nullptr, "", 0, 0, -1, true},
    {"mp3_id3v1_only.mp3", mp3_read_info, kMediaFileMp3},
    {"mp3_id3v23_genre_date.mp3", mp3_read_info, kMediaFileMp3},
    {"mp3_id3v24_unsync.mp3", mp3_read_info, kMediaFileMp3},
    {"wma_wmav2.wma", asf_read_info, kMediaFileWmv},
    {"asf_wmv2.wmv", asf_read_info, kMediaFileWmv},
    {"avi_mpeg4_mp3.avi", avi_read_info, kMediaFileAvi},
    {"avi_pcm_u8.avi", avi_read_info, kMediaFileAvi},
    {"flv_h264_aac_meta.flv", flv_read_info, kMediaFileFlv},
    {"flv_sorenson_mp3.flv", flv_read_info, kMediaFileFlv},
    {"flv_nometa.flv", flv_read_info, kMediaFileFlv},
    {"mp4_h264_aac.mp4", mp4_read_info, kMediaFileMp4, 0, nullptr, "mp4"},
    {"mp4_moov_after_mdat.mp4", mp4_read_info, kMediaFileMp4, 0, nullptr, "mp4"},
    {"mp4_mpeg4part2.mp4", mp4_read_info, kMediaFileMp4, 0, nullptr, "mp4"},
    {"m4a_aac.m4a", mp4_read_info, kMediaFileMp4, 0, nullptr, "mp4"},
    {"gp3_brand.3gp", mp4_read_info, kMediaFileMp4, 0, nullptr, "3gp4", 2},  // the entry says 2
    {"mpeg1_vcd.mpg", mpeg_read_info, kMediaFileMpeg2},
    {"mpeg2_ps_pal_ac3.mpg", mpeg_read_info, kMediaFileMpeg2},
    {"mpeg2_ps_pal_lpcm.mpg", mpeg_read_info, kMediaFileMpeg2},
    {"mpeg2_ts.ts", mpeg_read_info, kMediaFileMpeg2},
    {"mpeg2_m2ts.m2ts", mpeg_read_info, kMediaFileMpeg2},
    {"h264_aac.ts", mpeg_read_info, kMediaFileMpeg2},
    {"h264_ac3_1080.m2ts", mpeg_read_info, kMediaFileMpeg2},
    // Matroska keeps the head of the AudioSpecificConfig, at most 4 bytes, and
    // the track's own rate where ffprobe gives the SBR output rate.
    {"mkv_h264_high_ac3.mkv", mkv_read_info, kMediaFileMkv, 0, nullptr, "", 0, 0, 0},
    {"mkv_h264_aac.mkv", mkv_read_info, kMediaFileMkv, 0, nullptr, "", 0, 0, 4},
    {"mkv_h264_mp3.mkv", mkv_read_info, kMediaFileMkv, 0, nullptr, "", 0, 0, 0},
    {"mkv_h264_high41_ac3.mkv", mkv_read_info, kMediaFileMkv, 0, nullptr, "", 0, 0, 0},
    {"mkv_h264_main31_aac.mkv", mkv_read_info, kMediaFileMkv, 0, nullptr, "", 0, 0, 2},
    {"mkvmerge_h264_high41_ac3.mkv", mkv_read_info, kMediaFileMkv, 0, nullptr, "", 0, 0, 0},
    {"mkvmerge_h264_main31_heaac.mkv", mkv_read_info, kMediaFileMkv, 0, nullptr, "", 0, 24000, 4},
};
// clang-format on

void PrintTo(const Fixture& f, std::ostream* os) {
  *os << f.file;
}

class FixtureRead : public testing::TestWithParam<Fixture> {};

std::string nameOf(const testing::TestParamInfo<Fixture>& info) {
  std::string name = info.param.file;
  for (char& c : name)
    if (!isalnum(static_cast<unsigned char>(c))) c = '_';
  return name;
}

TEST_P(FixtureRead, AgreesWithFfprobe) {
  static const std::map<std::string, Probe> probes = loadProbes();
  const Fixture& c = GetParam();
  auto found = probes.find(c.probe ? c.probe : c.file);
  ASSERT_NE(found, probes.end()) << "no row in expected.tsv";
  const Probe& p = found->second;
  auto info = std::make_unique<MediaInfo>();
  ASSERT_EQ(reader_test::readFixture(c.reader, c.kind, c.file, info.get()), c.rc);
  if (c.rc != 0) return;
  const MediaInfo& i = *info;
  const int whole = static_cast<int>(p.duration);  // rates need a whole second

  if (c.kind <= kMediaFileBmp) {  // pictures
    EXPECT_EQ(i.width, p.width);
    EXPECT_EQ(i.height, p.height);
    EXPECT_STREQ(i.format, c.format);
    return;
  }
  // Codecs, channels and sample rate every reader takes from the streams.
  EXPECT_EQ(i.audio_codec, codecOf(p.acodec));
  EXPECT_EQ(i.channels, c.channels ? c.channels : p.channels);
  EXPECT_EQ(i.sample_rate, static_cast<uint32_t>(c.sample_rate ? c.sample_rate : p.sample_rate));
  // FLV has the picture size, frame rate, data rates and duration only from
  // its metadata (a file without gives ffprobe no video bit rate either).
  const bool flvMeta = c.kind != kMediaFileFlv || p.vbit_rate != 0;
  if (c.kind != kMediaFileMp3) {
    EXPECT_EQ(i.video_codec, codecOf(p.vcodec));
    EXPECT_EQ(i.video_width, flvMeta ? p.width : 0);
    EXPECT_EQ(i.video_height, flvMeta ? p.height : 0);
  }
  const std::string fps = std::to_string(i.frame_rate_num) + "/" + std::to_string(i.frame_rate_den);
  switch (c.kind) {
    case kMediaFileMp3:
      // Without a frame count the size-based estimate is cut to whole seconds.
      if (c.frame_count) {
        EXPECT_NEAR(i.duration / 1e6, p.duration, 0.001);
      } else {
        EXPECT_EQ(i.duration, whole * 1000000LL);
        EXPECT_EQ(i.audio_bit_rate, p.abit_rate);
      }
      break;
    case kMediaFileWmv:
      // Play time less preroll from the file properties; a demuxer reaches to
      // the last packet's end.
      EXPECT_EQ(i.file_size, p.size);
      EXPECT_NEAR(i.duration / 1e6, p.duration, 0.1);
      EXPECT_EQ(i.audio_bit_rate, p.abit_rate);
      break;
    case kMediaFileAvi:
      // The frame rate travels in video_bit_rate; the frame count is divided
      // by the whole rate, so the duration is whole seconds.
      EXPECT_EQ(std::to_string(i.video_bit_rate) + "/1", p.fps);
      EXPECT_EQ(i.duration, whole * 1000000LL);
      EXPECT_EQ(i.bit_rate, i.file_size * 8 / static_cast<uint32_t>(whole));
      break;
    case kMediaFileFlv:
      EXPECT_EQ(i.frame_rate, flvMeta ? static_cast<uint32_t>(rateOf(p.fps)) : 0);
      EXPECT_EQ(i.video_bit_rate, flvMeta ? p.vbit_rate : 0);
      EXPECT_NEAR(i.duration / 1e6, flvMeta ? p.duration : 0, 1e-6);
      break;
    case kMediaFileMp4:
      EXPECT_STREQ(i.format, c.format);
      EXPECT_NEAR(i.duration / 1e6, p.duration, 0.001);
      EXPECT_EQ(i.bit_rate, p.bit_rate);
      EXPECT_EQ(i.audio_bit_rate, p.abit_rate);
      EXPECT_EQ(i.has_video, p.vcodec != "-");
      EXPECT_EQ(i.frame_rate, static_cast<uint32_t>(rateOf(p.fps)));  // 29.97 keeps 29
      break;
    case kMediaFileMpeg2:
      EXPECT_EQ(i.format, p.format);
      EXPECT_EQ(fps, p.fps);
      // The play time is the video's, to within a frame.
      EXPECT_NEAR(i.duration / 1e6, p.vduration, 0.041);
      EXPECT_NEAR(i.bit_rate, p.bit_rate, p.bit_rate * 0.05);
      if (p.vbit_rate) {
        EXPECT_EQ(i.video_bit_rate, p.vbit_rate);
      }
      if (i.audio_codec == kMediaCodecAac) {
        // ADTS headers carry no rate: an average of frame sizes, headers included.
        EXPECT_NEAR(i.audio_bit_rate, p.abit_rate, p.abit_rate * 0.05);
        ASSERT_EQ(i.audio_config_size, 2u);
        EXPECT_EQ(i.audio_config[0] >> 3, 2);  // AAC LC
      } else {
        EXPECT_EQ(i.audio_bit_rate, p.abit_rate);
      }
      break;
    case kMediaFileMkv:
      EXPECT_NEAR(i.duration / 1e6, p.duration, 0.001);
      EXPECT_EQ(i.bit_rate, whole ? p.size * 8 / whole : 0);
      EXPECT_NEAR(1.0 * i.frame_rate_num / i.frame_rate_den, rateOf(p.fps), 0.001);
      ASSERT_EQ(i.video_config_size, 4u);  // the head of the AVC record
      EXPECT_EQ(i.video_config[0], 1);
      EXPECT_EQ(i.video_config[1], p.profile == "High" ? 100 : p.profile == "Main" ? 77 : 0);
      EXPECT_EQ(i.video_config[3], p.level);
      EXPECT_EQ(i.audio_config_size, static_cast<uint32_t>(c.audio_config));
      break;
  }
}

INSTANTIATE_TEST_SUITE_P(Media, FixtureRead, testing::ValuesIn(kFixtures), nameOf);

// Any prefix of any fixture (a file still being copied, a cut download) is
// read without fault: the reader succeeds or refuses, never crashes or hangs.
// Under the sanitizers this also catches reads past the end and leaks.
TEST_P(FixtureRead, EveryPrefixIsReadSafely) {
  const Fixture& c = GetParam();
  const reader_test::Bytes whole = reader_test::fixtureBytes(c.file);
  ASSERT_FALSE(whole.empty());
  // Every length through the headers; beyond them, lengths ever further apart.
  for (size_t n = 0; n < whole.size(); n += n < 1024 ? 1 : 1 + n / 64) {
    auto info = std::make_unique<MediaInfo>();
    info->file_size = static_cast<uint32_t>(n);
    const int32_t rc =
        reader_test::readBytes(c.reader, c.kind, reader_test::prefix(whole, n), info.get());
    EXPECT_LE(rc, 0) << "prefix " << n;
  }
}

}  // namespace
