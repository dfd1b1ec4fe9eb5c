// File access and bit reading: both byte orders, the sign rules of the signed
// decoders, short reads, segment accounting, bit reader bounds and Exp-Golomb.
#include "media/media_io.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
const Bytes k8 = {1, 2, 3, 4, 5, 6, 7, 8};

// An anonymous temporary file holding `bytes`, read through stdio as readers do.
struct File {
  std::unique_ptr<FILE, int (*)(FILE*)> f{tmpfile(), fclose};
  MediaIo io{};
  explicit File(const Bytes& bytes) {
    if (!bytes.empty()) fwrite(bytes.data(), 1, bytes.size(), f.get());
    rewind(f.get());
    media_init_io(&io, f.get(), 7);
  }
};

using GetFn = uint64_t (*)(MediaIo*, MediaSegment*);
// Signed results are sign-extended to 64 bits; plain getters ignore the segment.
// clang-format off
#define GET(fn) #fn, [](MediaIo* io, MediaSegment*) { return static_cast<uint64_t>(fn(io)); }, false
#define SEG(fn) #fn, [](MediaIo* io, MediaSegment* s) { return static_cast<uint64_t>(fn(io, s)); }, true
// clang-format on

// Exactly the width is read; a short file gives what arrived, zero-padded, with
// status -1. A segment getter counts its width even when the read falls short.
TEST(MediaIoGetters, DecodeAndCountTheirWidth) {
  const struct {
    const char* name;
    GetFn get;
    bool counts;
    uint32_t width;
    Bytes file;
    int64_t value;
  } cases[] = {
      {GET(media_get_8LittleEndianValue), 8, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 0x0807060504030201},
      {GET(media_get_8BigEndianValue), 8, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 0x0102030405060708},
      {GET(media_get_4LittleEndianValue), 4, {1, 2, 3, 0x84, 5}, 0x84030201},
      {GET(media_get_4BigEndianValue), 4, {0x81, 2, 3, 4, 5}, 0x81020304},
      {GET(media_get_3BigEndianValue), 3, {0x81, 2, 3, 4}, 0x810203},
      {GET(media_get_2BigEndianValue), 2, {0xFF, 0xFE, 3}, 0xFFFE},
      {GET(media_get_2BigEndianSignedValue), 2, {0xFF, 0xFE}, 0x7FFE},
      {GET(media_get_2LittleEndianValue), 2, {0x05, 0x01, 3}, 0x0105},
      // Little-endian signed: sign in bit 0 of the high byte, magnitude its low 7 bits on.
      {GET(media_get_2LittleEndianSignedValue), 2, {0xFF, 0x80}, 255},
      {GET(media_get_2LittleEndianSignedValue), 2, {0x34, 0xFF}, -0x7F34},
      {GET(media_get_1LittleEndianValue), 1, {0xFE, 3}, 0xFE},
      {GET(media_get_1BigEndianValue), 1, {0xFE, 3}, 0xFE},
      {GET(media_get_1BigEndianSignedValue), 1, {0xFE, 3}, -2},
      {GET(media_get_4BigEndianValue), 4, {0xAB}, 0xAB000000},
      {GET(media_get_8LittleEndianValue), 8, {1, 2, 3}, 0x030201},
      {GET(media_get_2BigEndianValue), 2, {}, 0},
      {SEG(segmentGet8LittleEndianValue), 8, k8, 0x0807060504030201},
      {SEG(segmentGet8BigEndianValue), 8, {1, 2, 3}, 0x0102030000000000},
      {SEG(segmentGet4LittleEndianValue), 4, k8, 0x04030201},
      {SEG(segmentGet4BigEndianValue), 4, {}, 0},
      {SEG(segmentGet2LittleEndianSignedValue), 2, {0x34, 0xFF}, -0x7F34},
      {SEG(segmentGet2BigEndianValue), 2, k8, 0x0102},
      {SEG(segmentGet1BigEndianSignedValue), 1, {0xFE}, -2},
      {SEG(segmentGet1BigEndianValue), 1, {}, 0},
      {SEG(mpeg_get_8BigEndianValue), 8, k8, 0x0102030405060708},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    File file(c.file);
    MediaSegment seg{100, 10};
    EXPECT_EQ(c.get(&file.io, &seg), static_cast<uint64_t>(c.value));
    const bool complete = c.file.size() >= c.width;
    EXPECT_EQ(file.io.status, complete ? 0 : -1);
    EXPECT_EQ(media_ftell_data(&file.io), static_cast<int32_t>(complete ? c.width : c.file.size()));
    EXPECT_EQ(seg.consumed, c.counts ? 10 + c.width : 10);
  }
}

TEST(MediaIoDecoders, BeyondWhatTheGettersReach) {
  // Bytes beyond 32 bits fall out of the accumulator; the rest keeps its own sign.
  const Bytes five = {0x00, 0x80, 0x00, 0x00, 0x00};
  EXPECT_EQ(media_Get_BigEndianSignedValue(five.data(), 5), INT32_MIN);
  const Bytes eight = {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x81};
  EXPECT_EQ(media_Get_LittleEndianSignedValue(eight.data(), 8), -0x0102030405060708);
  EXPECT_EQ(media_Get_LittleEndianSignedValue(eight.data(), 7), 0x02030405060708);
  EXPECT_EQ(media_Get_BigEndianSignedValue(eight.data(), 0) +
                media_Get_LittleEndianSignedValue(nullptr, 4) +
                media_Get_BigEndianValue(nullptr, 4),
            0);
}

TEST(MediaIoFile, ReadStatusAndPositioning) {
  Bytes bytes(200);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i);
  File file(bytes);
  MediaIo* io = &file.io;
  uint8_t buf[16] = {};
  EXPECT_EQ(media_skip_data(io, 10) + media_skip_data(io, -4), 2u);
  EXPECT_EQ(media_skip_data(io, -7), 0u);  // before the start
  EXPECT_EQ(media_skip_16(io) + media_skip_32(io) + media_skip_64(io), 3u);
  EXPECT_EQ(media_ftell_data(io), 118);
  EXPECT_EQ(media_get_bookmark(io) + media_reverse_data(io, 3), 2u);
  EXPECT_EQ(media_get_1BigEndianValue(io), 197u);
  EXPECT_EQ(media_reverse_data(io, 201) + media_orient_data(io, -1), 0u);
  EXPECT_EQ(media_orient_data(io, 40), 1u);
  EXPECT_EQ(media_get_1BigEndianValue(io), 40u);
  EXPECT_EQ(media_set_bookmark(io) + media_get_guid(io, buf), 2u);
  EXPECT_EQ(buf[0] + buf[15], 118 + 133);

  // A short read keeps what arrived; n = 0 and a skip of 0 succeed at the end.
  EXPECT_EQ(media_goto_end(io), 1u);
  EXPECT_EQ(media_ftell_data(io), 200);
  EXPECT_EQ(media_skip_data(io, -2), 1u);
  EXPECT_EQ(media_read_data(io, buf, 4), 0u);
  EXPECT_EQ(io->status, -1);
  EXPECT_EQ(Bytes(buf, buf + 3), (Bytes{198, 199, 120}));
  EXPECT_EQ(media_skip_data(io, 0) + media_read_data(io, buf, 0), 2u);
  EXPECT_EQ(io->status, 0);
}

// Positions beyond 4 GiB survive seeks and bookmarks; a segment remainder above
// 2 GiB is still a forward skip.
TEST(MediaIoFile, LargeFileOffsets) {
  const off_t far = (off_t{1} << 32) + 16;
  File file({});
  const uint8_t tail[4] = {0xDE, 0xAD, 0xBE, 0xEF};
  if (fseeko(file.f.get(), far, SEEK_SET) != 0 || fwrite(tail, 1, 4, file.f.get()) != 4) {
    GTEST_SKIP() << "no sparse file beyond 4 GiB here";
  }
  ASSERT_EQ(media_orient_data(&file.io, far) + media_get_bookmark(&file.io) +
                media_goto_start(&file.io) + media_set_bookmark(&file.io),
            4u);
  EXPECT_EQ(media_get_4BigEndianValue(&file.io), 0xDEADBEEFu);

  ASSERT_EQ(media_goto_start(&file.io), 1u);
  MediaSegment seg{0xF0000000u, 8};
  EXPECT_EQ(segmentSkipSeg(&file.io, &seg), 0);
  EXPECT_EQ(ftello(file.f.get()), off_t{0xF0000000u - 8});
  EXPECT_EQ(seg.consumed, seg.size);
}

TEST(MediaIoFile, SegmentCountsReadsAndSkips) {
  File file(Bytes(12, 0));
  MediaIo* io = &file.io;
  MediaSegment seg{10, 0};
  uint8_t buf[4] = {};
  EXPECT_EQ(segmentReadData(io, buf, 3, &seg), 1u);
  EXPECT_EQ(mpeg_skip_data(io, 2, &seg), 1u);
  EXPECT_EQ(segmentSkipData(io, -1, &seg), 1u);  // a step back gives a byte back
  EXPECT_EQ(segmentSkipData(io, -100, &seg), 0u);
  EXPECT_EQ(seg.consumed, 4u);
  EXPECT_EQ(segmentSkipSeg(io, &seg), 0);
  EXPECT_EQ(seg.consumed, 10u);
  // A null segment reads nothing, so the stream and the count never disagree.
  EXPECT_EQ(segmentReadData(io, buf, 2, nullptr) + segmentSkipData(io, 2, nullptr) +
                mpeg_get_4BigEndianValue(io, nullptr),
            0u);
  EXPECT_EQ(segmentSkipSeg(io, nullptr), -1);
  EXPECT_EQ(media_ftell_data(io), 10);
  EXPECT_EQ(mpeg_read_data(io, buf, 4, &seg), 0u);  // short: not counted
  EXPECT_EQ(seg.consumed, 10u);

  // After an overrun the rest of the segment is a step back to its end.
  ASSERT_EQ(media_orient_data(io, 12), 1u);
  seg = {8, 12};
  EXPECT_EQ(segmentSkipSeg(io, &seg), 0);
  EXPECT_EQ(media_ftell_data(io), 8);
  EXPECT_EQ(seg.consumed, 8u);
}

TEST(MediaIoFile, NullContextsDoNothing) {
  uint8_t buf[16] = {};
  MediaSegment seg{8, 2};
  media_init_io(nullptr, nullptr, 0);
  EXPECT_EQ(media_read_data(nullptr, buf, 4) + media_skip_data(nullptr, 0) +
                media_goto_start(nullptr) + media_get_bookmark(nullptr) +
                media_get_8BigEndianValue(nullptr) + mpeg_get_1BigEndianValue(nullptr, &seg),
            0u);
  EXPECT_EQ(media_ftell_data(nullptr), -1);
  EXPECT_EQ(segmentSkipSeg(nullptr, &seg), -1);
  EXPECT_EQ(seg.consumed, 2u);

  MediaIo none{};  // no stream: reads nothing and says so
  EXPECT_EQ(media_get_4BigEndianValue(&none) + media_goto_end(&none), 0u);
  EXPECT_EQ(none.status, -1);
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
  EXPECT_EQ(s.byte_pos * 8 + s.bit_pos, 100u);
}

// Reads never leave the buffer (ASan watches the exact-size vector); a failed
// read changes nothing; near the end the cache is topped up, not reloaded.
TEST(MediaIoBits, BoundsAndTail) {
  const Bytes bytes = {0x01, 0x02, 0x03};
  MediaBitReader s = Bits(bytes);
  EXPECT_EQ(mediaGetBits(&s, 25), -1);
  EXPECT_EQ(mediaGetBits(&s, 8), 0x01);
  EXPECT_EQ(mediaGetBits(&s, 8), 0x03);  // 0x02 added onto the previous cache
  EXPECT_EQ(mediaGetBits(&s, 9), -1);
  EXPECT_EQ(mediaGetBits(&s, 8), 0x06);
  EXPECT_EQ(mediaGetBits(&s, 1) & mediaGetBitsLong(&s, 20), -1);
  mediaSkipBits(&s, 1000);
  EXPECT_EQ(s.byte_pos, 128u);
  mediaSkipBits(&s, UINT32_MAX);  // saturates instead of wrapping into the buffer
  mediaSkipBits(&s, UINT32_MAX);
  EXPECT_EQ(mediaGetBits(&s, 8), -1);

  EXPECT_EQ(mediaInitGetBits(&s, bytes.data(), 0), UINT32_MAX);
  EXPECT_EQ(mediaGetBits(&s, 1), -1);  // a failed init leaves nothing to read
  EXPECT_EQ(mediaInitGetBits(&s, nullptr, 4) & mediaInitGetBits(nullptr, bytes.data(), 1),
            UINT32_MAX);
  EXPECT_EQ(mediaGetBits(nullptr, 4) + mediaGetBitsLong(nullptr, 20) + mediaGetUeGolomb(nullptr) +
                mediaGetSeGolomb(nullptr),
            0);
}

TEST(MediaIoBits, ExpGolomb) {
  // Codes 1, 010, 011, 00100, 00111, 0001000, padded so that every load is whole.
  const Bytes codes = {0xA6, 0x43, 0x88, 0xFF, 0xFF, 0xFF, 0xFF};
  MediaBitReader ue = Bits(codes), se = Bits(codes);
  const int32_t unsignedValues[] = {0, 1, 2, 3, 6, 7}, signedValues[] = {0, 1, -1, 2, -3, 4};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(mediaGetUeGolomb(&ue), unsignedValues[i]) << i;
    EXPECT_EQ(mediaGetSeGolomb(&se), signedValues[i]) << i;
  }
  EXPECT_EQ(ue.byte_pos, 3u);

  // Truncated codes end at the buffer; the failed suffix read still enters the sum.
  const Bytes zeros = {0x00}, manyZeros(8, 0x00);
  MediaBitReader s = Bits(zeros);
  EXPECT_EQ(mediaGetUeGolomb(&s), -1 - 1 + (1 << 8));
  s = Bits(zeros);
  EXPECT_EQ(mediaGetSeGolomb(&s), -127);
  s = Bits(manyZeros);  // 64 zeros: no power term
  EXPECT_EQ(mediaGetUeGolomb(&s), -2);
}

}  // namespace
