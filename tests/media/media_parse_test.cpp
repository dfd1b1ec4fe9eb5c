// Codec lookups and WAVE corrections, and reader dispatch over real files with
// recording fake readers.
#include "media/media_parse.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/log.h"

namespace {

uint32_t tag(const char (&s)[5]) {
  return mediaFourcc(s[0], s[1], s[2], s[3]);
}

// An exact match anywhere beats a case-folded one; each pass takes the first
// row; folding is ASCII only and applies to both the query and the rows.
TEST(MediaCodec, LookupRules) {
  const MediaCodecTag rules[] = {{1, tag("abcd")}, {2, tag("ABCD")}, {4, tag("x\xe4yz")}, {0, 0}};
  const struct {
    const MediaCodecTag* table;
    uint32_t tag, id;
  } cases[] = {
      {rules, tag("ABCD"), 2},
      {rules, tag("aBcD"), 1},
      {rules, tag("X\xe4YZ"), 4},
      {rules, tag("X\xc4YZ"), 0},
      {nullptr, tag("abcd"), 0},
      {media_codec_bmp_tags, tag("avc1"), kMediaCodecH264},
      {media_codec_bmp_tags, tag("xvid"), kMediaCodecMpeg4},
      {media_codec_bmp_tags, tag("DIV3"), kMediaCodecMsMpeg4V3},
      {media_codec_bmp_tags, tag("WVC1"), kMediaCodecVc1},
      {media_codec_bmp_tags, tag("mpg2"), kMediaCodecMpeg1Video},  // listed twice
      {media_codec_bmp_tags, tag("H263"), kMediaCodecH263},        // listed twice
      {media_codec_bmp_tags, tag("KGV1"), kMediaCodecKgv1},        // last row
      {media_codec_bmp_tags, tag("QQQQ"), kMediaCodecNone},
  };
  for (const auto& c : cases)
    EXPECT_EQ(media_codec_get_id(c.table, c.tag), c.id) << std::hex << c.tag;
}

TEST(MediaCodec, WavTagsAreCorrectedBySampleWidth) {
  const struct {
    uint32_t tag, bits, id;
  } cases[] = {
      {0x0001, 16, kMediaCodecPcmS16Le}, {0x0001, 8, kMediaCodecPcmU8},
      {0x0001, 24, kMediaCodecPcmS24Le}, {0x0001, 32, kMediaCodecPcmS32Le},
      {0x0001, 64, kMediaCodecPcmS16Le}, {0x0003, 32, kMediaCodecPcmF32Le},
      {0x0003, 64, kMediaCodecPcmF64Le}, {0x0011, 4, kMediaCodecAdpcmImaWav},
      {0x0011, 8, kMediaCodecPcmZork},   {0x0069, 8, kMediaCodecPcmZork},
      {0x0055, 8, kMediaCodecMp3},       {0xabcd, 8, kMediaCodecNone},
      {0x706d, 16, kMediaCodecAac},      {0x0162, 16, kMediaCodecWmaPro},
      {tag("MP3 "), 16, kMediaCodecMp3},  // last row
  };
  for (const auto& c : cases) {
    EXPECT_EQ(media_wav_codec_get_id(c.tag, c.bits), c.id) << std::hex << c.tag << " " << c.bits;
  }
}

// ---- Dispatch ----

// Fake readers record their calls in globals: a reader is a plain function.
struct Calls {
  int exif = 0, reader = 0;
  uint32_t io_type = 99;
  uint8_t first_byte = 0;
  int32_t exif_result = 0, reader_result = 0;
} g_calls;

int32_t fakeExif(MediaInfo*, const char*) {
  ++g_calls.exif;
  return g_calls.exif_result;
}

int32_t fakeReader(MediaIo* io, MediaInfo*) {
  ++g_calls.reader;
  g_calls.io_type = io->type;
  media_read_data(io, &g_calls.first_byte, 1);
  return g_calls.reader_result;
}

MediaReaderTable fakeTable(bool exif, bool readers) {
  MediaReaderTable table{};
  if (exif) table.exif = fakeExif;
  for (MediaReaderFn& reader : table.readers) reader = readers ? fakeReader : nullptr;
  return table;
}

class MediaParse : public testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/media_parse_test.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    g_calls = Calls{};
    saved_level_ = g_iDmsLogLevel.load();
    g_iDmsLogLevel = kLogEvent;
  }
  void TearDown() override {
    g_iDmsLogLevel = saved_level_;
    std::filesystem::remove_all(dir_);
  }
  std::string Write(const char* bytes) {
    std::string path = dir_ + "/f" + std::to_string(++files_);
    std::ofstream(path) << bytes;
    return path;
  }

  std::string dir_;
  int files_ = 0, saved_level_ = 6;
  std::unique_ptr<MediaInfo> info_ = std::make_unique<MediaInfo>();  // 6 KB: off the stack
};

TEST_F(MediaParse, MissingOrNonRegularFilesFail) {
  EXPECT_EQ(media_read_info(nullptr, kMediaFileMp3, info_.get()), -1);
  EXPECT_EQ(info_->path, nullptr);
  EXPECT_EQ(media_read_info(Write("data").c_str(), kMediaFileMp3, nullptr), -1);

  std::string missing = dir_ + "/absent.mp3";
  testing::internal::CaptureStderr();
  EXPECT_EQ(media_read_info(missing.c_str(), kMediaFileMp3, info_.get()), -1);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("file not exist"), std::string::npos);
  EXPECT_EQ(info_->path, missing.c_str());

  // A FIFO must be refused without blocking in open(), a directory before reading.
  std::string fifo = dir_ + "/pipe";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {dir_, fifo}) {
    for (uint32_t type : {kMediaFileJpeg, kMediaFileMp3}) {
      EXPECT_EQ(mediaReadInfoWith(fakeTable(true, true), path.c_str(), type, info_.get()), -1);
    }
  }
  EXPECT_EQ(g_calls.exif + g_calls.reader, 0);
  EXPECT_EQ(info_->parsed, 0);
}

TEST_F(MediaParse, DispatchPassesResultsAndSetsParsedOnlyOnSuccess) {
  const struct {
    const char* name;
    uint32_t type;
    bool exif, readers;
    int32_t exif_result, reader_result, result;
    int exif_calls, reader_calls;
  } cases[] = {
      {"jpeg with exif", 0, true, true, 0, -1, 0, 1, 0},
      {"jpeg without exif, markers ok", 0, true, true, -1, 0, 0, 1, 1},
      {"jpeg without exif, markers bad", 0, true, true, -1, -2, 1, 1, 1},
      {"jpeg, no exif reader", 0, false, true, 0, -1, 1, 0, 1},
      {"jpeg, no readers", 0, false, false, 0, 0, 1, 0, 0},
      {"mp3 ok", 6, true, true, 0, 0, 0, 0, 1},
      {"mkv positive failure", 16, true, true, 0, 2, 2, 0, 1},
      {"mp3, no reader", 6, true, false, 0, 0, -1, 0, 0},
      {"unknown kind", 17, true, true, 0, -1, 0, 0, 0},
  };
  std::string path = Write("\x47rest");
  for (const auto& c : cases) {
    g_calls = Calls{};
    g_calls.exif_result = c.exif_result;
    g_calls.reader_result = c.reader_result;
    auto info = std::make_unique<MediaInfo>();
    const MediaReaderTable table = fakeTable(c.exif, c.readers);
    EXPECT_EQ(mediaReadInfoWith(table, path.c_str(), c.type, info.get()), c.result) << c.name;
    EXPECT_EQ(info->parsed, c.result == 0 ? 1 : 0) << c.name;
    EXPECT_EQ(info->file_size, 5u) << c.name;
    EXPECT_EQ(g_calls.exif, c.exif_calls) << c.name;
    EXPECT_EQ(g_calls.reader, c.reader_calls) << c.name;
    if (c.reader_calls) {
      // The reader gets the kind and a stream at the start of the file.
      EXPECT_EQ(g_calls.io_type, c.type) << c.name;
      EXPECT_EQ(g_calls.first_byte, 0x47) << c.name;
    }
  }
}

TEST_F(MediaParse, FileSizeKeepsTheLow32Bits) {
  std::string path = Write("");
  if (truncate(path.c_str(), (off_t{5} << 30) + 123) != 0) GTEST_SKIP() << "no sparse 5 GiB file";
  EXPECT_EQ(media_read_info(path.c_str(), kMediaFileTypeCount, info_.get()), 0);
  EXPECT_EQ(info_->file_size, (1u << 30) + 123u);
}

// ---- UTF-16 to UTF-8 ----

}  // namespace
