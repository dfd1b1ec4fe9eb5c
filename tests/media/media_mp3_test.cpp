// The MP3 reader over hand-built files: header words, ID3 tag rules, frame
// counts, search bounds, album art.
#include "media/media_mp3.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "media/reader_test_util.h"
#include "platform/ctype.h"

namespace {

using namespace std::string_literals;  // "..."s keeps embedded zero bytes

std::string big(uint32_t v, int width) {
  const reader_test::Bytes b = reader_test::be(v, width);
  return std::string(b.begin(), b.end());
}

// `count` frames of `size` bytes: the header word, then zeros.
std::string frames(uint32_t header, size_t size, int count = 1) {
  std::string b;
  for (int i = 0; i < count; ++i) b += big(header, 4) + std::string(size - 4, '\0');
  return b;
}

std::string id3Frame(int major, const std::string& id, const std::string& data) {
  const auto n = static_cast<uint32_t>(data.size());
  return id + (major == 2 ? big(n, 3) : big(n, 4) + big(0, 2)) + data;
}

std::string id3Tag(int major, int flags, const std::string& body) {
  std::string b = "ID3"s + char(major) + '\0' + char(flags);
  const auto n = static_cast<uint32_t>(body.size());
  for (int shift : {21, 14, 7, 0}) b.push_back(static_cast<char>((n >> shift) & 0x7f));
  return b + body;
}

std::string id3v1(const std::string& title, uint8_t genre) {
  std::string b = "TAG" + title;
  b.resize(127);
  return b + char(genre);
}

constexpr uint32_t kMpeg1Stereo128k = 0xfffb9044;  // 44100 Hz, 417-byte frames
constexpr uint32_t kMpeg2Mono64k = 0xfff380c4;     // 22050 Hz, 208-byte frames
constexpr uint32_t kMpeg25Mono8k = 0xffe310c4;     // 11025 Hz, 52-byte frames

const std::string kCbrAudio = frames(kMpeg1Stereo128k, 417, 4);

class Mp3 : public testing::Test {
 protected:
  static void SetUpTestSuite() { ctypeInit(1, kCtypeDetect); }
  // Reads as the dispatcher would, with the file's size.
  int32_t readBytes(const std::string& bytes) {
    info_ = std::make_unique<MediaInfo>();
    info_->file_size = static_cast<uint32_t>(bytes.size());
    return reader_test::readBytes(mp3_read_info, kMediaFileMp3,
                                  reader_test::Bytes(bytes.begin(), bytes.end()), info_.get());
  }
  std::string tags() const {
    return std::string(info_->title) + "|" + info_->genre + "|" + std::to_string(info_->year) +
           "-" + std::to_string(info_->month) + "-" + std::to_string(info_->day) + "|" +
           std::to_string(info_->track);
  }

  std::unique_ptr<MediaInfo> info_;
};

TEST(Mp3Header, CheckAndDecode) {
  const struct {
    uint32_t header;
    int32_t check;
    uint32_t decoded;
    int32_t layer, sample_rate, bit_rate, channels, lsf, frame_size;
  } cases[] = {
      {kMpeg1Stereo128k, 0, 0, 3, 44100, 128000, 2, 0, 417},
      {0xfffb9244, 0, 0, 3, 44100, 128000, 2, 0, 418},  // padded
      {0xfffba044, 0, 0, 3, 44100, 160000, 2, 0, 522},
      {0xfffb9844, 0, 0, 3, 32000, 128000, 2, 0, 576},
      {kMpeg2Mono64k, 0, 0, 3, 22050, 64000, 1, 1, 208},
      {kMpeg25Mono8k, 0, 0, 3, 11025, 8000, 1, 1, 52},
      {0xfffd9044, 0, 0, 2, 44100, 160000, 2, 0, 522},
      {0xffff9044, 0, 0, 1, 44100, 288000, 2, 0, 312},
      {0xfffb0044, 0, 1, 3, 44100, 0, 2, 0, 0},  // free format: no size
      {0x7ffb9044, -1, 0, 0, 0, 0, 0, 0, 0},
      {0xfff99044, -2, 1, 4, 44100, 0, 2, 0, 0},  // reserved layer
      {0xfffbf044, -3, 1, 3, 44100, 0, 2, 0, 0},
      {0xfffb9c44, -4, 1, 3, 0, 0, 2, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.header);
    EXPECT_EQ(mp3CheckHeader(c.header), c.check);
    if (c.check == -1) continue;
    MpegAudioFrameHeader h{};
    EXPECT_EQ(mpegAudioDecodeHeader(&h, c.header), c.decoded);
    EXPECT_EQ(h.layer, c.layer);
    EXPECT_EQ(h.channels, c.channels);
    EXPECT_EQ(h.lsf, c.lsf);
    EXPECT_EQ(h.sample_rate, c.sample_rate);
    EXPECT_EQ(h.bit_rate, c.bit_rate);
    EXPECT_EQ(h.frame_size, c.frame_size);
  }
}

// Each file: the tag, CBR audio, an optional ID3v1 tag; result title|genre|date|track.
TEST_F(Mp3, Id3v2TextFrames) {
  auto t3 = [](const char* id, const std::string& text, char enc = 0) {
    return id3Frame(3, id, enc + text);
  };
  const std::string v1 = id3v1("V1", 0);
  const struct {
    int major, flags;
    std::string body, trailer, tags;
  } cases[] = {
      {3, 0, t3("TCON", "(17)"), v1, "V1|Rock|0-0-0|0"},  // ID3v2 wins over ID3v1
      {3, 0, t3("TCON", "(200)"), "", "|(200)|0-0-0|0"},
      {3, 0, t3("TCON", "(-1)"), "", "|(-1)|0-0-0|0"},
      {4, 0, id3Frame(4, "TCON", "\3Jazz"), "", "|Jazz|0-0-0|0"},
      {3, 0, t3("TYER", "2009-12-31"), "", "||2009-12-0|0"},
      {3, 0, t3("TYER", "1987-13-30"), "", "||1987-0-30|0"},
      {3, 0, t3("TRCK", "3/12"), "", "||0-0-0|3"},
      {3, 0, t3("TIT2", "\xff\xfe\x41\0\xe9\0"s, 1), "", "A\xc3\xa9||0-0-0|0"},
      {3, 0, t3("TIT2", "\xc4"), "", "\xc3\x84||0-0-0|0"},
      {2, 0, id3Frame(2, "TT2", "\0Two"s) + id3Frame(2, "TYE", '\0' + "1999"s), "", "Two||0-0-0|0"},
      {2, 0x40, id3Frame(2, "TT2", "\0Two"s), v1, "V1|Blues|0-0-0|0"},  // compressed: skipped
      {3, 0, t3("TIT2", "A") + std::string(10, '\0') + t3("TRCK", "7"), "", "A||0-0-0|0"},
      {3, 0x40, big(6, 4) + std::string(6, '\0') + t3("TIT2", "X"), "", "X||0-0-0|0"},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(readBytes(id3Tag(c.major, c.flags, c.body) + kCbrAudio + c.trailer), 0) << c.tags;
    EXPECT_EQ(tags(), c.tags);
    EXPECT_EQ(info_->sample_rate, 44100u) << c.tags;  // the audio after the tag was found
  }
}

TEST_F(Mp3, Rejections) {
  const struct {
    const char* name;
    std::string file;
    int32_t result;
  } cases[] = {
      {"sync at the search limit", std::string(204800, '\0') + kCbrAudio, 0},
      {"sync past the search limit", std::string(204801, '\0') + kCbrAudio, -1},
      {"no sync before the end", std::string(4096, '\0'), -1},
      {"layer II", frames(0xfffd9044, 522, 4), -1},
      {"shorter than ID3v1", std::string(100, '\0'), -2},
      {"tag larger than the file", id3Tag(3, 0, std::string(1000, '\0')).substr(0, 500), -1},
  };
  for (const auto& c : cases) EXPECT_EQ(readBytes(c.file), c.result) << c.name;
  // Tag texts read before a failure stay.
  ASSERT_EQ(readBytes(std::string(300, '\0') + id3v1("Kept", 8)), -1);
  EXPECT_EQ(tags(), "Kept|Jazz|0-0-0|0");
}

}  // namespace
