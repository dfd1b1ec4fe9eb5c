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
