// Codec tag lookups and the WAVE corrections, reader dispatch over real files
// (missing, special, huge, unknown kinds) with recording fake readers, the copy
// helpers' bounds, and UTF-16 conversion at the edge of its buffer.
#include "media/media_parse.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/log.h"

namespace {

// ---- Codec ids ----

struct TagCase {
  const char* name;
  const MediaCodecTag* table;
  uint32_t tag;
  uint32_t id;
};

TEST(MediaCodec, LooksUpTagsExactlyThenIgnoringCase) {
  const TagCase cases[] = {
      {"H264", media_codec_bmp_tags, mediaFourcc('H', '2', '6', '4'), kMediaCodecH264},
      {"avc1", media_codec_bmp_tags, mediaFourcc('a', 'v', 'c', '1'), kMediaCodecH264},
      {"XVID", media_codec_bmp_tags, mediaFourcc('X', 'V', 'I', 'D'), kMediaCodecMpeg4},
      {"DIVX", media_codec_bmp_tags, mediaFourcc('D', 'I', 'V', 'X'), kMediaCodecMpeg4},
      {"mp4v", media_codec_bmp_tags, mediaFourcc('m', 'p', '4', 'v'), kMediaCodecMpeg4},
      {"DIV3", media_codec_bmp_tags, mediaFourcc('D', 'I', 'V', '3'), kMediaCodecMsMpeg4V3},
      {"WMV3", media_codec_bmp_tags, mediaFourcc('W', 'M', 'V', '3'), kMediaCodecWmv3},
      {"WVC1", media_codec_bmp_tags, mediaFourcc('W', 'V', 'C', '1'), kMediaCodecVc1},
      {"WMVA", media_codec_bmp_tags, mediaFourcc('W', 'M', 'V', 'A'), kMediaCodecVc1},
      {"FLV1", media_codec_bmp_tags, mediaFourcc('F', 'L', 'V', '1'), kMediaCodecFlv1},
      {"MJPG", media_codec_bmp_tags, mediaFourcc('M', 'J', 'P', 'G'), kMediaCodecMjpeg},
      {"mpg1", media_codec_bmp_tags, mediaFourcc('m', 'p', 'g', '1'), kMediaCodecMpeg1Video},
      {"MPEG", media_codec_bmp_tags, mediaFourcc('M', 'P', 'E', 'G'), kMediaCodecMpeg2Video},
      {"last row", media_codec_bmp_tags, mediaFourcc('K', 'G', 'V', '1'), kMediaCodecKgv1},
      // A tag listed twice takes its earlier row.
      {"mpg2 first row", media_codec_bmp_tags, mediaFourcc('m', 'p', 'g', '2'),
       kMediaCodecMpeg1Video},
      {"H263 not H263P", media_codec_bmp_tags, mediaFourcc('H', '2', '6', '3'), kMediaCodecH263},
      // An exact match beats a case-folded one earlier in the table.
      {"h264 exact", media_codec_bmp_tags, mediaFourcc('h', '2', '6', '4'), kMediaCodecH264},
      {"LJPG exact first", media_codec_bmp_tags, mediaFourcc('L', 'J', 'P', 'G'), kMediaCodecMjpeg},
      // Case-folded second pass: the query and the rows are both upper-cased.
      {"xvid", media_codec_bmp_tags, mediaFourcc('x', 'v', 'i', 'd'), kMediaCodecMpeg4},
      {"dIvX", media_codec_bmp_tags, mediaFourcc('d', 'I', 'v', 'X'), kMediaCodecMpeg4},
      {"MP4V", media_codec_bmp_tags, mediaFourcc('M', 'P', '4', 'V'), kMediaCodecMpeg4},
      {"wvc1", media_codec_bmp_tags, mediaFourcc('w', 'v', 'c', '1'), kMediaCodecVc1},
      {"MPG2 folded first row", media_codec_bmp_tags, mediaFourcc('M', 'P', 'G', '2'),
       kMediaCodecMpeg1Video},
      {"unknown", media_codec_bmp_tags, mediaFourcc('Q', 'Q', 'Q', 'Q'), kMediaCodecNone},
      {"near miss", media_codec_bmp_tags, mediaFourcc('a', 'v', 'c', '2'), kMediaCodecNone},
      // Folding is ASCII only: 0xE4 is not a lower-case 0xC4.
      {"high byte", media_codec_bmp_tags, mediaFourcc('\xe4', 'I', 'V', 'X'), kMediaCodecNone},
      {"null table", nullptr, mediaFourcc('H', '2', '6', '4'), kMediaCodecNone},
      {"wav PCM", media_codec_wav_tags, 0x0001, kMediaCodecPcmS16Le},
      {"wav MP3", media_codec_wav_tags, 0x0055, kMediaCodecMp3},
      {"wav AAC 0xff", media_codec_wav_tags, 0x00ff, kMediaCodecAac},
      {"wav AAC 0x706d", media_codec_wav_tags, 0x706d, kMediaCodecAac},
      {"wav WMA2", media_codec_wav_tags, 0x0161, kMediaCodecWmaV2},
      {"wav WMA Pro", media_codec_wav_tags, 0x0162, kMediaCodecWmaPro},
      {"wav AC-3", media_codec_wav_tags, 0x2000, kMediaCodecAc3},
      {"wav DTS", media_codec_wav_tags, 0x2001, kMediaCodecDts},
      {"wav FLAC", media_codec_wav_tags, 0xf1ac, kMediaCodecFlac},
      {"wav 'MP3 ' last row", media_codec_wav_tags, mediaFourcc('M', 'P', '3', ' '),
       kMediaCodecMp3},
      {"wav 'vO' folded", media_codec_wav_tags, 0x764f, kMediaCodecVorbis},
      {"wav unknown", media_codec_wav_tags, 0x1234, kMediaCodecNone},
  };
  for (const TagCase& c : cases) {
    EXPECT_EQ(media_codec_get_id(c.table, c.tag), c.id) << c.name;
  }
}

TEST(MediaCodec, WavTagsAreCorrectedBySampleWidth) {
  struct Case {
    uint32_t tag, bits, id;
  };
  const Case cases[] = {
      {0x0001, 16, kMediaCodecPcmS16Le}, {0x0001, 0, kMediaCodecPcmS16Le},
      {0x0001, 8, kMediaCodecPcmU8},     {0x0001, 24, kMediaCodecPcmS24Le},
      {0x0001, 32, kMediaCodecPcmS32Le}, {0x0001, 64, kMediaCodecPcmS16Le},
      {0x0003, 32, kMediaCodecPcmF32Le}, {0x0003, 64, kMediaCodecPcmF64Le},
      {0x0003, 8, kMediaCodecPcmF32Le},  {0x0011, 4, kMediaCodecAdpcmImaWav},
      {0x0011, 8, kMediaCodecPcmZork},   {0x0069, 8, kMediaCodecPcmZork},  // the other IMA tag
      {0x0055, 8, kMediaCodecMp3},  // no correction outside PCM, float, IMA
      {0x0002, 8, kMediaCodecAdpcmMs},   {0xabcd, 8, kMediaCodecNone},
      {0xabcd, 24, kMediaCodecNone},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(media_wav_codec_get_id(c.tag, c.bits), c.id)
        << std::hex << "tag 0x" << c.tag << std::dec << " bits " << c.bits;
  }
}

// ---- Dispatch ----

// What stderr receives while `run` runs.
template <class F>
std::string stderrOf(F run) {
  testing::internal::CaptureStderr();
  run();
  return testing::internal::GetCapturedStderr();
}

// Fake readers record their calls in globals: a reader is a plain function.
struct Calls {
  int exif = 0;
  int reader = 0;
  uint32_t io_type = 99;
  uint8_t first_byte = 0;
  int32_t exif_result = 0;
  int32_t reader_result = 0;
};
Calls g_calls;

int32_t fakeExif(MediaInfo* info, const char* path) {
  ++g_calls.exif;
  if (!info || !path) return -1;
  if (g_calls.exif_result == 0) info->width = 640;
  return g_calls.exif_result;
}

int32_t fakeReader(MediaIo* io, MediaInfo* info) {
  ++g_calls.reader;
  g_calls.io_type = io->type;
  uint8_t byte = 0;
  if (media_read_data(io, &byte, 1)) g_calls.first_byte = byte;
  info->audio_codec = kMediaCodecMp3;
  return g_calls.reader_result;
}

MediaReaderTable fakeTable(bool with_exif) {
  MediaReaderTable table{};
  if (with_exif) table.exif = fakeExif;
  for (MediaReaderFn& reader : table.readers) reader = fakeReader;
  return table;
}

class MediaParse : public testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/media_parse_test.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    g_calls = Calls{};
    info_ = std::make_unique<MediaInfo>();
    saved_level_ = g_iDmsLogLevel.load();
    g_iDmsLogLevel = kLogEvent;
  }
  void TearDown() override {
    g_iDmsLogLevel = saved_level_;
    std::filesystem::remove_all(dir_);
  }

  std::string Write(const std::string& bytes) {
    std::string path = dir_ + "/f" + std::to_string(++files_);
    FILE* f = fopen(path.c_str(), "wb");
    EXPECT_NE(f, nullptr);
    if (f) {
      fwrite(bytes.data(), 1, bytes.size(), f);
      fclose(f);
    }
    return path;
  }

  std::string dir_;
  int files_ = 0;
  int saved_level_ = 6;
  std::unique_ptr<MediaInfo> info_;  // 6 KB: kept off the stack
};

bool allZero(const void* p, size_t n) {
  const auto* bytes = static_cast<const uint8_t*>(p);
  for (size_t i = 0; i < n; ++i) {
    if (bytes[i]) return false;
  }
  return true;
}

TEST_F(MediaParse, NullArgumentsFailAndTouchNothing) {
  std::string path = Write("data");
  EXPECT_EQ(media_read_info(nullptr, kMediaFileMp3, info_.get()), -1);
  EXPECT_TRUE(allZero(info_.get(), sizeof(MediaInfo)));
  EXPECT_EQ(media_read_info(path.c_str(), kMediaFileMp3, nullptr), -1);
}

TEST_F(MediaParse, MissingFileFailsWithItsMessage) {
  std::string path = dir_ + "/absent.mp3";
  info_->file_size = 77;
  int32_t result = 0;
  std::string err = stderrOf([&] { result = media_read_info(path.c_str(), 6, info_.get()); });
  EXPECT_EQ(result, -1);
  EXPECT_NE(err.find("file not exist"), std::string::npos) << err;
  EXPECT_NE(err.find("media_parse"), std::string::npos) << err;
  EXPECT_EQ(info_->path, path.c_str());
  EXPECT_EQ(info_->file_size, 77u);
  EXPECT_EQ(info_->parsed, 0);
}

TEST_F(MediaParse, NonRegularFilesFailSilentlyWithoutBlocking) {
  std::string fifo = dir_ + "/pipe";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const MediaReaderTable table = fakeTable(true);
  for (const std::string& path : {dir_, fifo}) {
    for (uint32_t type : {0u, 6u, 17u}) {
      int32_t result = 0;
      std::string err =
          stderrOf([&] { result = mediaReadInfoWith(table, path.c_str(), type, info_.get()); });
      EXPECT_EQ(result, -1) << path << " type " << type;
      EXPECT_EQ(err, "") << path;
      EXPECT_EQ(info_->parsed, 0);
    }
  }
  EXPECT_EQ(g_calls.exif + g_calls.reader, 0);
}

TEST_F(MediaParse, UnknownKindSucceedsWithNothingRead) {
  std::string path = Write("0123456789");
  for (uint32_t type : {17u, 18u, 0xffffffffu}) {
    auto info = std::make_unique<MediaInfo>();
    EXPECT_EQ(mediaReadInfoWith(fakeTable(true), path.c_str(), type, info.get()), 0);
    EXPECT_EQ(info->parsed, 1);
    EXPECT_EQ(info->file_size, 10u);
    EXPECT_EQ(info->path, path.c_str());
    // Everything after file_size is still zero.
    const size_t from = offsetof(MediaInfo, width);
    EXPECT_TRUE(
        allZero(reinterpret_cast<const uint8_t*>(info.get()) + from, sizeof(MediaInfo) - from));
  }
  EXPECT_EQ(g_calls.exif + g_calls.reader, 0);
}

TEST_F(MediaParse, BuiltinKindsWithoutReaderFailCleanly) {
  std::string path = Write("not really media");
  for (uint32_t type = 0; type < kMediaFileTypeCount; ++type) {
    if (mediaBuiltinReaders().readers[type]) continue;
    auto info = std::make_unique<MediaInfo>();
    int32_t result = media_read_info(path.c_str(), type, info.get());
    EXPECT_NE(result, 0) << "type " << type;
    EXPECT_EQ(info->parsed, 0) << "type " << type;
    EXPECT_EQ(info->file_size, 16u);
    if (type == kMediaFileJpeg && !mediaBuiltinReaders().exif) {
      EXPECT_EQ(result, 1);
    }
  }
}

TEST_F(MediaParse, DispatchPassesResultsAndSetsParsedOnlyOnSuccess) {
  struct Case {
    const char* name;
    uint32_t type;
    bool with_exif;
    int32_t exif_result, reader_result;
    int32_t result;
    int exif_calls, reader_calls;
  };
  const Case cases[] = {
      {"jpeg with exif", 0, true, 0, -1, 0, 1, 0},
      {"jpeg without exif, markers ok", 0, true, -1, 0, 0, 1, 1},
      {"jpeg without exif, markers bad", 0, true, -1, -2, 1, 1, 1},
      {"jpeg, no exif reader", 0, false, 0, -1, 1, 0, 1},
      {"mp3 ok", 6, true, 0, 0, 0, 0, 1},
      {"mp3 not mp3", 6, true, 0, -1, -1, 0, 1},
      {"mp4 own failure", 8, true, 0, -3, -3, 0, 1},
      {"mkv positive failure", 16, true, 0, 2, 2, 0, 1},
  };
  std::string path = Write("\x47rest");
  for (const Case& c : cases) {
    g_calls = Calls{};
    g_calls.exif_result = c.exif_result;
    g_calls.reader_result = c.reader_result;
    auto info = std::make_unique<MediaInfo>();
    EXPECT_EQ(mediaReadInfoWith(fakeTable(c.with_exif), path.c_str(), c.type, info.get()), c.result)
        << c.name;
    EXPECT_EQ(info->parsed, c.result == 0 ? 1 : 0) << c.name;
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
  std::string path = dir_ + "/big";
  int fd = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(fd, 0);
  const off_t size = (off_t{5} << 30) + 123;  // sparse: takes no disk space
  int rc = ftruncate(fd, size);
  close(fd);
  if (rc != 0) GTEST_SKIP() << "no sparse 5 GiB file here";
  EXPECT_EQ(media_read_info(path.c_str(), 17, info_.get()), 0);
  EXPECT_EQ(info_->file_size, (1u << 30) + 123u);
}

// ---- Copy helpers ----

constexpr uint8_t kGuard = 0xa5;

TEST(MediaCopy, MemcpyZeroesThenCopiesOnlyWhatFits) {
  struct Case {
    uint32_t dst_size, len;
    int32_t result;
  };
  const Case cases[] = {{8, 4, 0}, {4, 4, 0}, {4, 0, 0}, {3, 4, -1}, {0, 1, -1}, {0, 0, 0}};
  const char src[] = "abcdefgh";
  for (const Case& c : cases) {
    std::vector<uint8_t> dst(c.dst_size + 4, kGuard);
    EXPECT_EQ(media_memcpy(dst.data(), src, c.dst_size, c.len), c.result) << c.dst_size;
    const uint32_t copied = c.result == 0 ? c.len : 0;
    for (uint32_t i = 0; i < c.dst_size; ++i) {
      EXPECT_EQ(dst[i], i < copied ? static_cast<uint8_t>(src[i]) : 0) << c.dst_size << " @" << i;
    }
    for (size_t i = c.dst_size; i < dst.size(); ++i) EXPECT_EQ(dst[i], kGuard) << c.dst_size;
  }
  uint8_t dst[4] = {kGuard, kGuard, kGuard, kGuard};
  EXPECT_EQ(media_memcpy(dst, nullptr, 4, 1), -1);
  EXPECT_EQ(media_memcpy(nullptr, src, 4, 1), -1);
  EXPECT_EQ(dst[0], kGuard);
}

TEST(MediaCopy, StrncpyAlwaysTerminatesWithinSize) {
  struct Case {
    uint32_t size;
    const char* src;
    int32_t result;
    const char* out;
  };
  const Case cases[] = {
      {8, "hello", 0, "hello"}, {6, "hello", 0, "hello"}, {5, "hello", 0, "hell"},
      {1, "hello", 0, ""},      {4, "", 0, ""},           {0, "hello", -1, nullptr},
  };
  for (const Case& c : cases) {
    std::vector<char> dst(c.size + 4, static_cast<char>(kGuard));
    EXPECT_EQ(media_strncpy(dst.data(), c.src, c.size), c.result) << c.size;
    if (c.out) {
      EXPECT_STREQ(dst.data(), c.out) << c.size;
      for (uint32_t i = strlen(c.out); i < c.size; ++i) EXPECT_EQ(dst[i], 0) << c.size;
    }
    for (size_t i = c.size; i < dst.size(); ++i) {
      EXPECT_EQ(static_cast<uint8_t>(dst[i]), kGuard) << c.size;
    }
  }
  char dst[4] = "xyz";
  EXPECT_EQ(media_strncpy(dst, nullptr, 4), -1);
  EXPECT_EQ(media_strncpy(nullptr, "a", 4), -1);
  EXPECT_STREQ(dst, "xyz");
}

TEST(MediaCopy, StrncpyReadsNoFurtherThanSizeFromAnUnterminatedSource) {
  // A header field without a terminator, allocated exactly so ASan sees overreads.
  auto src = std::make_unique<char[]>(4);
  memcpy(src.get(), "ABCD", 4);
  char dst[5];
  EXPECT_EQ(media_strncpy(dst, src.get(), 5), 0);
  EXPECT_STREQ(dst, "ABCD");
}

// ---- UTF-16 to UTF-8 ----

TEST(MediaUtf16, ConvertsUnitByUnitAndStopsAtTheEdge) {
  struct Case {
    const char* name;
    std::vector<uint16_t> units;  // terminated by the test
    int32_t dst_size;
    std::string out;
  };
  const Case cases[] = {
      {"ascii", {'A', 'b'}, 8, "Ab"},
      {"ascii needs room for the terminator", {'A'}, 1, ""},
      {"ascii fills", {'A', 'B'}, 2, "A"},
      {"0x7f one byte", {0x7f}, 2, "\x7f"},
      {"0x80 two bytes", {0x80}, 3, "\xc2\x80"},
      {"0x7ff two bytes", {0x7ff}, 3, "\xdf\xbf"},
      {"two bytes do not fit in 2", {0xe9}, 2, ""},
      {"0x800 three bytes", {0x800}, 4, "\xe0\xa0\x80"},
      {"euro fills dst_size exactly", {0x20ac}, 3, "\xe2\x82\xac"},
      {"euro after ascii does not fit", {'A', 0x20ac}, 3, "A"},
      {"stops at first misfit", {0x20ac, 'A', 'B'}, 4, "\xe2\x82\xac"},
      {"surrogates stay separate", {0xd83d, 0xde00}, 8, "\xed\xa0\xbd\xed\xb8\x80"},
      {"unit 0 ends the text", {'a', 0, 'b'}, 8, "a"},
      {"empty", {}, 4, ""},
  };
  for (const Case& c : cases) {
    std::vector<uint16_t> src = c.units;
    src.push_back(0);
    // dst_size + 1 bytes may be written; the guard after them must survive.
    std::vector<char> dst(c.dst_size + 1 + 4, static_cast<char>(kGuard));
    media_convert_utf16_to_utf8(dst.data(), src.data(), c.dst_size);
    EXPECT_EQ(std::string(dst.data()), c.out) << c.name;
    for (size_t i = c.dst_size + 1; i < dst.size(); ++i) {
      EXPECT_EQ(static_cast<uint8_t>(dst[i]), kGuard) << c.name;
    }
  }
}

TEST(MediaUtf16, WritesNothingWithoutRoom) {
  const uint16_t src[] = {'A', 0};
  for (int32_t size : {0, -1}) {
    char dst[2] = {'x', 'y'};
    media_convert_utf16_to_utf8(dst, src, size);
    EXPECT_EQ(dst[0], 'x') << size;
  }
  char dst[4] = "abc";
  media_convert_utf16_to_utf8(dst, nullptr, 4);
  EXPECT_STREQ(dst, "");
  media_convert_utf16_to_utf8(nullptr, src, 4);  // must not crash
}

}  // namespace
