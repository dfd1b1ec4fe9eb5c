// File access and bit reading: both byte orders on known bytes, the sign rules
// of the signed decoders, short reads at the end of a file, segment accounting,
// bit reader bounds and Exp-Golomb codes, and null contexts.
#include "media/media_io.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
const Bytes k8 = {1, 2, 3, 4, 5, 6, 7, 8};

// Real files in a fresh temporary folder, read through stdio as readers do.
class MediaIoFile : public testing::Test {
 protected:
  void SetUp() override {
    char dir[] = "/tmp/media_io_test.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
  }
  void TearDown() override {
    for (FILE* f : open_) fclose(f);
    std::filesystem::remove_all(dir_);
  }

  std::string Write(const Bytes& bytes) {
    std::string path = dir_ + "/f" + std::to_string(++files_);
    FILE* f = fopen(path.c_str(), "wb");
    EXPECT_NE(f, nullptr);
    if (f && !bytes.empty()) fwrite(bytes.data(), 1, bytes.size(), f);
    if (f) fclose(f);
    return path;
  }

  MediaIo Open(const std::string& path) {
    MediaIo io{};
    FILE* f = fopen(path.c_str(), "rb");
    EXPECT_NE(f, nullptr);
    if (f) open_.push_back(f);
    media_init_io(&io, f, 7);
    return io;
  }
  MediaIo Open(const Bytes& bytes) { return Open(Write(bytes)); }

  std::string dir_;
  int files_ = 0;
  std::vector<FILE*> open_;
};

// A getter under test, signed results sign-extended to 64 bits.
using GetFn = uint64_t (*)(MediaIo*, MediaSegment*);
// clang-format off
#define GET(fn) #fn, [](MediaIo* io, MediaSegment*) -> uint64_t { return static_cast<uint64_t>(fn(io)); }
#define SEG(fn) #fn, [](MediaIo* io, MediaSegment* s) -> uint64_t { return static_cast<uint64_t>(fn(io, s)); }
// clang-format on

struct GetterCase {
  const char* name;
  GetFn get;
  uint32_t width;
  Bytes file;
  int64_t value;
};

void PrintTo(const GetterCase& c, std::ostream* os) {
  *os << c.name;
}
auto ByName = [](const auto& info) {
  return std::string(info.param.name) + "_" + std::to_string(info.index);
};

class MediaIoGetters : public MediaIoFile, public testing::WithParamInterface<GetterCase> {};

// Exactly the getter's width is read; a short file gives what arrived,
// zero-padded, with status -1 and the position at the end.
TEST_P(MediaIoGetters, DecodeTheirWidth) {
  const GetterCase& c = GetParam();
  MediaIo io = Open(c.file);
  EXPECT_EQ(c.get(&io, nullptr), static_cast<uint64_t>(c.value));
  const bool complete = c.file.size() >= c.width;
  EXPECT_EQ(io.status, complete ? 0 : -1);
  EXPECT_EQ(media_ftell_data(&io), static_cast<int32_t>(complete ? c.width : c.file.size()));
}

INSTANTIATE_TEST_SUITE_P(
    MediaIo, MediaIoGetters,
    testing::Values(
        GetterCase{
            GET(media_get_8LittleEndianValue), 8, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 0x0807060504030201},
        GetterCase{GET(media_get_8LittleEndianValue), 8, Bytes(8, 0xFF), -1},
        GetterCase{
            GET(media_get_8BigEndianValue), 8, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 0x0102030405060708},
        GetterCase{GET(media_get_7BigEndianValue), 7, k8, 0x01020304050607},
        GetterCase{GET(media_get_6BigEndianValue), 6, k8, 0x010203040506},
        GetterCase{GET(media_get_5BigEndianValue), 5, {0xF1, 2, 3, 4, 5, 6}, 0xF102030405},
        GetterCase{GET(media_get_4LittleEndianValue), 4, {1, 2, 3, 0x84, 5}, 0x84030201},
        GetterCase{GET(media_get_4BigEndianValue), 4, {0x81, 2, 3, 4, 5}, 0x81020304},
        // The big-endian signed decoder drops the top bit and never negates.
        GetterCase{GET(media_get_4BigEndianSignedValue), 4, {0xFF, 0xFF, 0xFF, 0xFE}, 0x7FFFFFFE},
        GetterCase{GET(media_get_3BigEndianValue), 3, {0x81, 2, 3, 4}, 0x810203},
        GetterCase{GET(media_get_3BigEndianSignedValue), 3, {0x81, 2, 3}, 0x010203},
        GetterCase{GET(media_get_2BigEndianValue), 2, {0xFF, 0xFE, 3}, 0xFFFE},
        GetterCase{GET(media_get_2BigEndianSignedValue), 2, {0xFF, 0xFE}, 0x7FFE},
        GetterCase{GET(media_get_2LittleEndianValue), 2, {0x05, 0x01, 3}, 0x0105},
        // Sign from bit 0 of the high byte, magnitude from its low 7 bits on.
        GetterCase{GET(media_get_2LittleEndianSignedValue), 2, {0x05, 0x01}, -261},
        GetterCase{GET(media_get_2LittleEndianSignedValue), 2, {0xFF, 0x80}, 255},
        GetterCase{GET(media_get_2LittleEndianSignedValue), 2, {0x34, 0xFF}, -0x7F34},
        GetterCase{GET(media_get_1LittleEndianValue), 1, {0xFE, 3}, 0xFE},
        GetterCase{GET(media_get_1BigEndianValue), 1, {0xFE, 3}, 0xFE},
        GetterCase{GET(media_get_1BigEndianSignedValue), 1, {0xFE, 3}, -2},
        GetterCase{GET(media_get_1BigEndianSignedValue), 1, {0x7F}, 127},
        // Short files.
        GetterCase{GET(media_get_4BigEndianValue), 4, {0xAB}, 0xAB000000},
        GetterCase{GET(media_get_4LittleEndianValue), 4, {0xAB, 0xCD}, 0xCDAB},
        GetterCase{GET(media_get_8BigEndianValue), 8, {1, 2, 3}, 0x0102030000000000},
        GetterCase{GET(media_get_8LittleEndianValue), 8, {1, 2, 3}, 0x030201},
        GetterCase{GET(media_get_2BigEndianValue), 2, {}, 0}),
    ByName);

TEST(MediaIoDecoders, BeyondWhatTheGettersReach) {
  // Bytes beyond 32 bits fall out of the accumulator; the rest keeps its own sign.
  const Bytes five = {0x00, 0x80, 0x00, 0x00, 0x00};
  EXPECT_EQ(media_Get_BigEndianSignedValue(five.data(), 5), INT32_MIN);
  const Bytes eight = {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x81};
  EXPECT_EQ(media_Get_LittleEndianSignedValue(eight.data(), 8), -0x0102030405060708);
  EXPECT_EQ(media_Get_LittleEndianSignedValue(eight.data(), 7), 0x02030405060708);
  EXPECT_EQ(media_Get_BigEndianSignedValue(eight.data(), 0), 0);
  EXPECT_EQ(media_Get_LittleEndianSignedValue(nullptr, 4), 0);
  EXPECT_EQ(media_Get_BigEndianValue(nullptr, 4), 0u);
}

TEST_F(MediaIoFile, ReadStatusAndPositioning) {
  Bytes bytes(200);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
  MediaIo io = Open(bytes);
  uint8_t buf[16] = {};
  EXPECT_EQ(media_skip_data(&io, 10), 1u);
  EXPECT_EQ(media_skip_data(&io, -4), 1u);
  EXPECT_EQ(media_skip_data(&io, -7), 0u);  // before the start
  EXPECT_EQ(media_ftell_data(&io), 6);
  EXPECT_EQ(media_skip_16(&io) + media_skip_32(&io) + media_skip_64(&io), 3u);
  EXPECT_EQ(media_ftell_data(&io), 118);
  EXPECT_EQ(media_get_bookmark(&io), 1u);
  EXPECT_EQ(media_reverse_data(&io, 3), 1u);
  EXPECT_EQ(media_get_1BigEndianValue(&io), 197u);
  EXPECT_EQ(media_reverse_data(&io, 201), 0u);
  EXPECT_EQ(media_orient_data(&io, 40), 1u);
  EXPECT_EQ(media_get_1BigEndianValue(&io), 40u);
  EXPECT_EQ(media_orient_data(&io, -1), 0u);
  EXPECT_EQ(media_goto_start(&io), 1u);
  EXPECT_EQ(media_set_bookmark(&io), 1u);
  EXPECT_EQ(media_get_guid(&io, buf), 1u);
  EXPECT_EQ(buf[0] + buf[15], 118 + 133);

  // A short read keeps what arrived; n = 0 and a skip of 0 succeed at the end.
  EXPECT_EQ(media_goto_end(&io), 1u);
  EXPECT_EQ(media_ftell_data(&io), 200);
  EXPECT_EQ(media_reverse_data(&io, 2), 1u);
  EXPECT_EQ(media_read_data(&io, buf, 4), 0u);
  EXPECT_EQ(io.status, -1);
  EXPECT_EQ(Bytes(buf, buf + 3), (Bytes{198, 199, 120}));
  EXPECT_EQ(media_skip_data(&io, 0), 1u);
  EXPECT_EQ(media_read_data(&io, buf, 0), 1u);
  EXPECT_EQ(io.status, 0);
}

// Positions beyond 4 GiB survive seeks and bookmarks; a segment remainder above
// 2 GiB is still a forward skip.
TEST_F(MediaIoFile, LargeFileOffsets) {
  const off_t far = (off_t{1} << 32) + 16;
  const std::string path = Write({});
  FILE* f = fopen(path.c_str(), "r+b");
  ASSERT_NE(f, nullptr);
  const uint8_t tail[4] = {0xDE, 0xAD, 0xBE, 0xEF};
  const bool sparse = fseeko(f, far, SEEK_SET) == 0 && fwrite(tail, 1, 4, f) == 4;
  fclose(f);
  if (!sparse) GTEST_SKIP() << "no sparse file beyond 4 GiB here";

  MediaIo io = Open(path);
  ASSERT_EQ(media_orient_data(&io, far), 1u);
  ASSERT_EQ(media_get_bookmark(&io), 1u);
  ASSERT_EQ(media_goto_start(&io), 1u);
  ASSERT_EQ(media_set_bookmark(&io), 1u);
  EXPECT_EQ(media_get_4BigEndianValue(&io), 0xDEADBEEFu);

  ASSERT_EQ(media_goto_start(&io), 1u);
  MediaSegment seg{0xF0000000u, 8};
  EXPECT_EQ(segmentSkipSeg(&io, &seg), 0);
  EXPECT_EQ(ftello(io.stream), off_t{0xF0000000u - 8});
  EXPECT_EQ(seg.consumed, seg.size);
}

TEST_F(MediaIoFile, SegmentCountsReadsAndSkips) {
  MediaIo io = Open(Bytes(12, 0));
  MediaSegment seg{10, 0};
  uint8_t buf[4] = {};
  EXPECT_EQ(segmentReadData(&io, buf, 3, &seg), 1u);
  EXPECT_EQ(mpeg_skip_data(&io, 2, &seg), 1u);
  EXPECT_EQ(segmentSkipData(&io, -1, &seg), 1u);  // a step back gives a byte back
  EXPECT_EQ(segmentSkipData(&io, -100, &seg), 0u);
  EXPECT_EQ(seg.consumed, 4u);
  EXPECT_EQ(segmentSkipSeg(&io, &seg), 0);
  EXPECT_EQ(seg.consumed, 10u);
  EXPECT_EQ(media_ftell_data(&io), 10);
  EXPECT_EQ(mpeg_read_data(&io, buf, 4, &seg), 0u);  // short: not counted
  EXPECT_EQ(seg.consumed, 10u);

  // After an overrun the rest of the segment is a step back to its end.
  ASSERT_EQ(media_orient_data(&io, 12), 1u);
  seg = {8, 12};
  EXPECT_EQ(segmentSkipSeg(&io, &seg), 0);
  EXPECT_EQ(media_ftell_data(&io), 8);
  EXPECT_EQ(seg.consumed, 8u);
}

class MediaIoSegmentGetters : public MediaIoFile, public testing::WithParamInterface<GetterCase> {};

// The width counts before the read, so also when nothing arrives.
TEST_P(MediaIoSegmentGetters, CountTheirWidth) {
  const GetterCase& c = GetParam();
  MediaSegment seg{100, 10};
  MediaIo io = Open(k8);
  EXPECT_EQ(c.get(&io, &seg), static_cast<uint64_t>(c.value));
  EXPECT_EQ(seg.consumed, 10 + c.width);
  EXPECT_EQ(media_ftell_data(&io), static_cast<int32_t>(c.width));
  MediaIo empty = Open(Bytes{});
  EXPECT_EQ(c.get(&empty, &seg), 0u);
  EXPECT_EQ(seg.consumed, 10 + 2 * c.width);
}

INSTANTIATE_TEST_SUITE_P(
    MediaIo, MediaIoSegmentGetters,
    testing::Values(GetterCase{SEG(segmentGet8LittleEndianValue), 8, {}, 0x0807060504030201},
                    GetterCase{SEG(segmentGet8BigEndianValue), 8, {}, 0x0102030405060708},
                    GetterCase{SEG(segmentGet4LittleEndianValue), 4, {}, 0x04030201},
                    GetterCase{SEG(segmentGet4BigEndianValue), 4, {}, 0x01020304},
                    GetterCase{SEG(segmentGet2LittleEndianSignedValue), 2, {}, 0x0201},
                    GetterCase{SEG(segmentGet2LittleEndianValue), 2, {}, 0x0201},
                    GetterCase{SEG(segmentGet2BigEndianSignedValue), 2, {}, 0x0102},
                    GetterCase{SEG(segmentGet2BigEndianValue), 2, {}, 0x0102},
                    GetterCase{SEG(segmentGet1LittleEndianValue), 1, {}, 1},
                    GetterCase{SEG(segmentGet1BigEndianSignedValue), 1, {}, 1},
                    GetterCase{SEG(segmentGet1BigEndianValue), 1, {}, 1},
                    GetterCase{SEG(mpeg_get_8BigEndianValue), 8, {}, 0x0102030405060708},
                    GetterCase{SEG(mpeg_get_2LittleEndianSignedValue), 2, {}, 0x0201},
                    GetterCase{SEG(mpeg_get_1BigEndianValue), 1, {}, 1}),
    ByName);

TEST_F(MediaIoFile, NullContextsDoNothing) {
  uint8_t buf[16] = {};
  MediaSegment seg{8, 2};
  media_init_io(nullptr, nullptr, 0);
  EXPECT_EQ(media_read_data(nullptr, buf, 4) + media_skip_data(nullptr, 0) +
                media_orient_data(nullptr, 0) + media_goto_start(nullptr) +
                media_goto_end(nullptr) + media_get_bookmark(nullptr) +
                media_set_bookmark(nullptr) + media_get_guid(nullptr, buf),
            0u);
  EXPECT_EQ(media_ftell_data(nullptr), -1);
  EXPECT_EQ(media_get_8BigEndianValue(nullptr), 0u);
  EXPECT_EQ(media_get_1BigEndianSignedValue(nullptr), 0);
  EXPECT_EQ(segmentSkipSeg(nullptr, &seg), -1);
  EXPECT_EQ(mpeg_get_1BigEndianValue(nullptr, &seg), 0u);
  EXPECT_EQ(seg.consumed, 2u);

  // A context without a stream reads nothing and says so.
  MediaIo none{};
  EXPECT_EQ(media_get_4BigEndianValue(&none), 0u);
  EXPECT_EQ(none.status, -1);
  EXPECT_EQ(media_goto_end(&none), 0u);

  // A null segment reads nothing, so the stream and the count never disagree.
  MediaIo io = Open(k8);
  EXPECT_EQ(segmentSkipSeg(&io, nullptr), -1);
  EXPECT_EQ(segmentReadData(&io, buf, 2, nullptr), 0u);
  EXPECT_EQ(segmentSkipData(&io, 2, nullptr), 0u);
  EXPECT_EQ(mpeg_get_4BigEndianValue(&io, nullptr), 0u);
  EXPECT_EQ(media_ftell_data(&io), 0);
}

MediaBitReader Bits(const Bytes& bytes) {
  MediaBitReader state;
  EXPECT_EQ(mediaInitGetBits(&state, bytes.data(), static_cast<uint32_t>(bytes.size())), 0u);
  return state;
}

TEST(MediaIoBits, ReadsMsbFirst) {
  const Bytes bytes = {0xA5, 0x5A, 0xFF, 0x00, 0x12, 0x34, 0x56, 0x78,
                       0x9A, 0xBC, 0xDE, 0xF0, 0x11, 0x22, 0x33, 0x44};
  MediaBitReader s = Bits(bytes);
  EXPECT_EQ(mediaGetBits(&s, 0), 0);
  EXPECT_EQ(mediaGetBits(&s, 1), 1);
  EXPECT_EQ(mediaGetBits(&s, 3), 0x2);
  EXPECT_EQ(mediaGetBits(&s, 8), 0x55);  // across a byte boundary
  EXPECT_EQ(mediaGetBits(&s, 26), -1);
  EXPECT_EQ(mediaGetBits(&s, 20), 0xAFF00);
  EXPECT_EQ(mediaGetBitsLong(&s, 32), 0x12345678);
  EXPECT_EQ(mediaGetBitsLong(&s, 33), -1);
  EXPECT_EQ(mediaSkipBits(&s, 4), 0u);
  EXPECT_EQ(mediaGetBitsLong(&s, 20), 0xABCDE);
  EXPECT_EQ(mediaGetBits(&s, 12), 0xF01);
  EXPECT_EQ(s.byte_pos, 12u);
  EXPECT_EQ(s.bit_pos, 4u);
}

// Reads never leave the buffer (ASan watches the exact-size vector); a failed
// read changes nothing; near the end the cache is topped up, not reloaded.
TEST(MediaIoBits, BoundsAndTail) {
  const Bytes bytes = {0x01, 0x02, 0x03};
  MediaBitReader s = Bits(bytes);
  EXPECT_EQ(mediaGetBits(&s, 25), -1);
  EXPECT_EQ(s.byte_pos + s.bit_pos, 0u);
  EXPECT_EQ(mediaGetBits(&s, 8), 0x01);
  EXPECT_EQ(mediaGetBits(&s, 8), 0x03);  // 0x02 added onto the previous cache
  EXPECT_EQ(mediaGetBits(&s, 9), -1);
  EXPECT_EQ(mediaGetBits(&s, 8), 0x06);
  EXPECT_EQ(mediaGetBits(&s, 1), -1);
  EXPECT_EQ(mediaGetBitsLong(&s, 20), -1);
  mediaSkipBits(&s, 1000);
  EXPECT_EQ(s.byte_pos, 128u);
  mediaSkipBits(&s, UINT32_MAX);  // saturates instead of wrapping into the buffer
  mediaSkipBits(&s, UINT32_MAX);
  EXPECT_EQ(mediaGetBits(&s, 8), -1);

  EXPECT_EQ(mediaInitGetBits(&s, bytes.data(), 0), UINT32_MAX);
  EXPECT_EQ(mediaGetBits(&s, 1), -1);  // a failed init leaves nothing to read
  EXPECT_EQ(mediaInitGetBits(&s, nullptr, 4), UINT32_MAX);
  EXPECT_EQ(mediaInitGetBits(nullptr, bytes.data(), 1), UINT32_MAX);
  EXPECT_EQ(mediaGetBits(nullptr, 4) + mediaGetBitsLong(nullptr, 20) + mediaGetUeGolomb(nullptr) +
                mediaGetSeGolomb(nullptr),
            0);
}

TEST(MediaIoBits, ExpGolomb) {
  // Codes 1, 010, 011, 00100, 00111, 0001000, padded so that every load is whole.
  const Bytes codes = {0xA6, 0x43, 0x88, 0xFF, 0xFF, 0xFF, 0xFF};
  MediaBitReader ue = Bits(codes);
  MediaBitReader se = Bits(codes);
  const int32_t unsignedValues[] = {0, 1, 2, 3, 6, 7};
  const int32_t signedValues[] = {0, 1, -1, 2, -3, 4};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(mediaGetUeGolomb(&ue), unsignedValues[i]) << i;
    EXPECT_EQ(mediaGetSeGolomb(&se), signedValues[i]) << i;
  }
  EXPECT_EQ(ue.byte_pos, 3u);
  const Bytes zeroCode = {0x80, 0x00};
  MediaBitReader s = Bits(zeroCode);
  EXPECT_EQ(mediaGetUeGolomb(&s), 0);

  // Truncated codes end at the buffer; the failed suffix read still enters the sum.
  const Bytes zeros = {0x00};
  s = Bits(zeros);
  EXPECT_EQ(mediaGetUeGolomb(&s), -1 - 1 + (1 << 8));
  s = Bits(zeros);
  EXPECT_EQ(mediaGetSeGolomb(&s), -127);
  const Bytes manyZeros(8, 0x00);  // 64 zeros: no power term
  s = Bits(manyZeros);
  EXPECT_EQ(mediaGetUeGolomb(&s), -2);
}

}  // namespace
