// File access and bit reading for the media readers; see media_io.h. Nothing
// here logs: readers decide what a short read means for their format.
#include "media/media_io.h"

#include <sys/types.h>

#include <algorithm>

// Files on USB sticks exceed 2 GiB; a 32-bit off_t would silently wrap seeks.
static_assert(sizeof(off_t) == 8, "media files need 64-bit offsets (_FILE_OFFSET_BITS=64)");

namespace {

constexpr uint32_t kMaxValueBytes = 8;
constexpr uint32_t kGuidBytes = 16;
constexpr uint32_t kMaxBits = 25;  // with bit_pos up to 7 this still fits the 32-bit cache
constexpr int32_t kBitsFailed = -1;

bool hasStream(const MediaIo* io) {
  return io && io->stream;
}

uint32_t seekTo(MediaIo* io, off_t offset, int whence) {
  if (!hasStream(io)) return 0;
  return fseeko(io->stream, offset, whence) == 0 ? 1 : 0;
}

// Reads `width` bytes into a zeroed buffer: a short read leaves the missing
// bytes 0 and the ones that arrived in place.
template <uint32_t width>
struct Raw {
  uint8_t bytes[width] = {};
  explicit Raw(MediaIo* io) { media_read_data(io, bytes, width); }
};

template <uint32_t width>
uint64_t readBig(MediaIo* io) {
  if (!io) return 0;
  return media_Get_BigEndianValue(Raw<width>(io).bytes, width);
}

template <uint32_t width>
uint64_t readLittle(MediaIo* io) {
  if (!io) return 0;
  return media_Get_LittleEndianValue(Raw<width>(io).bytes, width);
}

template <uint32_t width>
int64_t readBigSigned(MediaIo* io) {
  if (!io) return 0;
  return media_Get_BigEndianSignedValue(Raw<width>(io).bytes, width);
}

template <uint32_t width>
int64_t readLittleSigned(MediaIo* io) {
  if (!io) return 0;
  return media_Get_LittleEndianSignedValue(Raw<width>(io).bytes, width);
}

// The width is counted before the read, so it counts even when the read falls
// short; without a context nothing is read and nothing counted.
template <uint32_t width, typename Getter>
auto countedGet(MediaIo* io, MediaSegment* seg, Getter get) -> decltype(get(io)) {
  if (!io || !seg) return 0;
  seg->consumed += width;
  return get(io);
}

}  // namespace

// ---- File access ----

void media_init_io(MediaIo* io, FILE* stream, uint32_t type) {
  if (!io) return;
  io->stream = stream;
  io->type = type;
  io->status = 0;
}

uint32_t media_read_data(MediaIo* io, void* buf, uint32_t n) {
  if (!io) return 0;
  // A missing stream or buffer is a read where nothing arrived; say so in status.
  if (!io->stream || (!buf && n > 0)) {
    io->status = -1;
    return 0;
  }
  size_t got = n > 0 ? fread(buf, 1, n, io->stream) : 0;
  io->status = got == n ? 0 : -1;
  return io->status == 0 ? 1 : 0;
}

uint32_t media_skip_data(MediaIo* io, int32_t n) {
  if (!hasStream(io)) return 0;
  if (n == 0) return 1;
  return seekTo(io, static_cast<off_t>(n), SEEK_CUR);
}

uint32_t media_orient_data(MediaIo* io, int64_t pos) {
  return seekTo(io, static_cast<off_t>(pos), SEEK_SET);
}

uint32_t media_reverse_data(MediaIo* io, int64_t n) {
  if (n < 0) return 0;  // "before the end" only; also keeps -n defined
  return seekTo(io, -static_cast<off_t>(n), SEEK_END);
}

uint32_t media_goto_start(MediaIo* io) {
  if (!hasStream(io)) return 0;
  seekTo(io, 0, SEEK_SET);
  return 1;
}

uint32_t media_goto_end(MediaIo* io) {
  if (!hasStream(io)) return 0;
  seekTo(io, 0, SEEK_END);
  return 1;
}

int32_t media_ftell_data(MediaIo* io) {
  // -1, as ftell reports errors, rather than a 0 that reads as "at the start".
  if (!hasStream(io)) return -1;
  return static_cast<int32_t>(ftello(io->stream));
}

uint32_t media_get_bookmark(MediaIo* io) {
  if (!hasStream(io)) return 0;
  return fgetpos(io->stream, &io->bookmark) == 0 ? 1 : 0;
}

uint32_t media_set_bookmark(MediaIo* io) {
  if (!hasStream(io)) return 0;
  return fsetpos(io->stream, &io->bookmark) == 0 ? 1 : 0;
}

uint32_t media_get_guid(MediaIo* io, uint8_t* buf) {
  return media_read_data(io, buf, kGuidBytes);
}

uint32_t media_skip_16(MediaIo* io) {
  return media_skip_data(io, 16);
}
uint32_t media_skip_32(MediaIo* io) {
  return media_skip_data(io, 32);
}
uint32_t media_skip_64(MediaIo* io) {
  return media_skip_data(io, 64);
}

// ---- Byte-array decoders ----
// Widths above 8 are read as 8: more cannot be represented, and looking further
// would only risk reading past a short caller buffer.

uint64_t media_Get_BigEndianValue(const uint8_t* bytes, uint32_t n) {
  if (!bytes) return 0;
  n = std::min(n, kMaxValueBytes);
  uint64_t value = 0;
  for (uint32_t i = 0; i < n; ++i) value = (value << 8) | bytes[i];
  return value;
}

uint64_t media_Get_LittleEndianValue(const uint8_t* bytes, uint32_t n) {
  if (!bytes) return 0;
  n = std::min(n, kMaxValueBytes);
  uint64_t value = 0;
  for (uint32_t i = n; i > 0; --i) value = (value << 8) | bytes[i - 1];
  return value;
}

int64_t media_Get_BigEndianSignedValue(const uint8_t* bytes, uint32_t n) {
  if (!bytes || n == 0) return 0;
  n = std::min(n, kMaxValueBytes);
  // Unsigned, so that bytes shifted out past 32 bits wrap instead of overflowing.
  uint32_t acc = bytes[0] & 0x7Fu;
  for (uint32_t i = 1; i < n; ++i) acc = (acc << 8) | bytes[i];
  return static_cast<int32_t>(acc);
}

int64_t media_Get_LittleEndianSignedValue(const uint8_t* bytes, uint32_t n) {
  if (!bytes || n == 0) return 0;
  n = std::min(n, kMaxValueBytes);
  const uint8_t top = bytes[n - 1];
  uint64_t magnitude = top & 0x7Fu;
  for (uint32_t i = n - 1; i > 0; --i) magnitude = (magnitude << 8) | bytes[i - 1];
  // At most 63 bits, so the negation cannot overflow.
  const int64_t value = static_cast<int64_t>(magnitude);
  return (top & 0x01u) ? -value : value;
}

// ---- Stream integer getters ----

uint64_t media_get_8LittleEndianValue(MediaIo* io) {
  return readLittle<8>(io);
}
uint64_t media_get_8BigEndianValue(MediaIo* io) {
  return readBig<8>(io);
}
uint64_t media_get_7BigEndianValue(MediaIo* io) {
  return readBig<7>(io);
}
uint64_t media_get_6BigEndianValue(MediaIo* io) {
  return readBig<6>(io);
}
uint64_t media_get_5BigEndianValue(MediaIo* io) {
  return readBig<5>(io);
}

uint32_t media_get_4LittleEndianValue(MediaIo* io) {
  return static_cast<uint32_t>(readLittle<4>(io));
}

int32_t media_get_4BigEndianSignedValue(MediaIo* io) {
  return static_cast<int32_t>(readBigSigned<4>(io));
}

uint32_t media_get_4BigEndianValue(MediaIo* io) {
  return static_cast<uint32_t>(readBig<4>(io));
}

int32_t media_get_3BigEndianSignedValue(MediaIo* io) {
  return static_cast<int32_t>(readBigSigned<3>(io));
}

uint32_t media_get_3BigEndianValue(MediaIo* io) {
  return static_cast<uint32_t>(readBig<3>(io));
}

int32_t media_get_2LittleEndianSignedValue(MediaIo* io) {
  return static_cast<int16_t>(readLittleSigned<2>(io));
}

uint32_t media_get_2LittleEndianValue(MediaIo* io) {
  return static_cast<uint32_t>(readLittle<2>(io));
}

int32_t media_get_2BigEndianSignedValue(MediaIo* io) {
  return static_cast<int16_t>(readBigSigned<2>(io));
}

uint32_t media_get_2BigEndianValue(MediaIo* io) {
  return static_cast<uint32_t>(readBig<2>(io));
}

uint32_t media_get_1LittleEndianValue(MediaIo* io) {
  return static_cast<uint32_t>(readLittle<1>(io));
}

int32_t media_get_1BigEndianSignedValue(MediaIo* io) {
  return static_cast<int8_t>(readBig<1>(io));
}

uint32_t media_get_1BigEndianValue(MediaIo* io) {
  return static_cast<uint32_t>(readBig<1>(io));
}

// ---- Segment layer ----

uint32_t segmentReadData(MediaIo* io, void* buf, uint32_t n, MediaSegment* seg) {
  if (!seg || !media_read_data(io, buf, n)) return 0;
  seg->consumed += n;
  return 1;
}

uint32_t segmentSkipData(MediaIo* io, int32_t n, MediaSegment* seg) {
  if (!seg || !media_skip_data(io, n)) return 0;
  seg->consumed += static_cast<uint32_t>(n);  // a step back gives bytes back
  return 1;
}

int32_t segmentSkipSeg(MediaIo* io, MediaSegment* seg) {
  if (!io || !seg) return -1;
  // Sizes run up to 4 GiB: a remainder above 2 GiB must stay a forward seek,
  // and an overrun (consumed > size) becomes a step back to the segment's end.
  const int64_t rest = static_cast<int64_t>(seg->size) - static_cast<int64_t>(seg->consumed);
  if (rest != 0) seekTo(io, static_cast<off_t>(rest), SEEK_CUR);
  seg->consumed = seg->size;
  return 0;
}

uint64_t segmentGet8LittleEndianValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<8>(io, seg, media_get_8LittleEndianValue);
}
uint64_t segmentGet8BigEndianValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<8>(io, seg, media_get_8BigEndianValue);
}
uint32_t segmentGet4LittleEndianValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<4>(io, seg, media_get_4LittleEndianValue);
}
uint32_t segmentGet4BigEndianValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<4>(io, seg, media_get_4BigEndianValue);
}
int32_t segmentGet2LittleEndianSignedValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<2>(io, seg, media_get_2LittleEndianSignedValue);
}
uint32_t segmentGet2LittleEndianValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<2>(io, seg, media_get_2LittleEndianValue);
}
int32_t segmentGet2BigEndianSignedValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<2>(io, seg, media_get_2BigEndianSignedValue);
}
uint32_t segmentGet2BigEndianValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<2>(io, seg, media_get_2BigEndianValue);
}
uint32_t segmentGet1LittleEndianValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<1>(io, seg, media_get_1LittleEndianValue);
}
int32_t segmentGet1BigEndianSignedValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<1>(io, seg, media_get_1BigEndianSignedValue);
}
uint32_t segmentGet1BigEndianValue(MediaIo* io, MediaSegment* seg) {
  return countedGet<1>(io, seg, media_get_1BigEndianValue);
}

uint32_t mpeg_read_data(MediaIo* io, void* buf, uint32_t n, MediaSegment* seg) {
  return segmentReadData(io, buf, n, seg);
}
uint32_t mpeg_skip_data(MediaIo* io, int32_t n, MediaSegment* seg) {
  return segmentSkipData(io, n, seg);
}
uint64_t mpeg_get_8LittleEndianValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet8LittleEndianValue(io, seg);
}
uint64_t mpeg_get_8BigEndianValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet8BigEndianValue(io, seg);
}
uint32_t mpeg_get_4LittleEndianValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet4LittleEndianValue(io, seg);
}
uint32_t mpeg_get_4BigEndianValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet4BigEndianValue(io, seg);
}
int32_t mpeg_get_2LittleEndianSignedValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet2LittleEndianSignedValue(io, seg);
}
uint32_t mpeg_get_2LittleEndianValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet2LittleEndianValue(io, seg);
}
int32_t mpeg_get_2BigEndianSignedValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet2BigEndianSignedValue(io, seg);
}
uint32_t mpeg_get_2BigEndianValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet2BigEndianValue(io, seg);
}
uint32_t mpeg_get_1LittleEndianValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet1LittleEndianValue(io, seg);
}
int32_t mpeg_get_1BigEndianSignedValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet1BigEndianSignedValue(io, seg);
}
uint32_t mpeg_get_1BigEndianValue(MediaIo* io, MediaSegment* seg) {
  return segmentGet1BigEndianValue(io, seg);
}

// ---- Bit reader ----

uint32_t mediaInitGetBits(MediaBitReader* state, const uint8_t* data, uint32_t size) {
  if (!state) return UINT32_MAX;
  // Cleared even on failure, so a state whose init failed reads nothing.
  *state = MediaBitReader{};
  if (!data || size == 0) return UINT32_MAX;
  state->data = data;
  state->size = size;
  return 0;
}

int32_t mediaGetBits(MediaBitReader* state, uint32_t n) {
  if (!state) return 0;
  if (n > kMaxBits) return kBitsFailed;
  if (n == 0) return 0;
  // A skip may have left byte_pos beyond the end; then nothing is available
  // (the plain difference would wrap and read outside the buffer).
  const uint32_t left = state->byte_pos < state->size ? state->size - state->byte_pos : 0;
  const uint32_t avail = std::min(left, 4u);
  if (avail < (n + 7) / 8) return kBitsFailed;
  const uint8_t* p = state->data + state->byte_pos;
  // Fewer than 4 bytes are added onto the previous cache, not a cleared one:
  // readers only use the bit reader well inside their buffers.
  if (avail == 4) state->cache = p[3];
  if (avail >= 3) state->cache += static_cast<uint32_t>(p[2]) << 8;
  if (avail >= 2) state->cache += static_cast<uint32_t>(p[1]) << 16;
  state->cache += static_cast<uint32_t>(p[0]) << 24;
  const uint32_t result = (state->cache << state->bit_pos) >> (32 - n);
  mediaSkipBits(state, n);
  return static_cast<int32_t>(result);
}

int32_t mediaGetBitsLong(MediaBitReader* state, uint32_t n) {
  if (n <= 16) return mediaGetBits(state, n);
  // A 32-bit result holds no more, and the shift below must stay under 32.
  if (n > 32) return kBitsFailed;
  const int32_t high = mediaGetBits(state, 16);
  if (high == kBitsFailed) return kBitsFailed;
  const int32_t low = mediaGetBits(state, n - 16);
  if (low == kBitsFailed) return kBitsFailed;
  return static_cast<int32_t>((static_cast<uint32_t>(high) << (n - 16)) |
                              static_cast<uint32_t>(low));
}

uint32_t mediaSkipBits(MediaBitReader* state, uint32_t n) {
  if (!state) return 0;
  const uint64_t bits = static_cast<uint64_t>(state->bit_pos) + n;
  // Saturate rather than wrap: a position past the end must stay past the end.
  const uint64_t byte_pos = state->byte_pos + bits / 8;
  state->byte_pos = static_cast<uint32_t>(std::min<uint64_t>(byte_pos, UINT32_MAX));
  state->bit_pos = static_cast<uint32_t>(bits % 8);
  return 0;
}

int32_t mediaGetUeGolomb(MediaBitReader* state) {
  if (!state) return 0;
  // Bounded by the buffer: each zero consumes a bit and the end gives -1.
  uint32_t zeros = 0;
  while (mediaGetBits(state, 1) == 0) ++zeros;
  const uint32_t power = zeros < 32 ? 1u << zeros : 0;
  const uint32_t bits = static_cast<uint32_t>(mediaGetBits(state, zeros));
  return static_cast<int32_t>(bits - 1 + power);
}

int32_t mediaGetSeGolomb(MediaBitReader* state) {
  if (!state) return 0;
  // 64-bit so that u + 1 cannot overflow for the garbage codes of a broken stream.
  const int64_t u = mediaGetUeGolomb(state);
  const int64_t half = (u + 1) / 2;
  return static_cast<int32_t>((u & 1) ? half : -half);
}
