// File access and bit reading: both byte orders, the sign rules of the signed
// decoders, short reads, large offsets and Exp-Golomb.
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

MediaBitReader Bits(const Bytes& bytes) {
  MediaBitReader state;
  EXPECT_EQ(mediaInitGetBits(&state, bytes.data(), static_cast<uint32_t>(bytes.size())), 0u);
  return state;
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
