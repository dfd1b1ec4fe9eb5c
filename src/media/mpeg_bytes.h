// What the MPEG stream reader's files share (media_mpeg.cpp, mpeg_pes.cpp,
// mpeg_video.cpp, mpeg_audio.cpp): byte and start-code helpers, a padded bit
// reader and the PES header. Not for other readers.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "media/media_io.h"

namespace mpeg {

inline uint32_t be16(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 8 | p[1];
}

inline uint32_t be32(const uint8_t* p) {
  return be16(p) << 16 | be16(p + 2);
}

inline bool isStartCode(const uint8_t* p, size_t avail) {
  return avail >= 4 && p[0] == 0 && p[1] == 0 && p[2] == 1;
}

// Index of the next 00 00 01 prefix at or after `from` with a byte after it,
// or `size`.
inline size_t findStartCode(const uint8_t* d, size_t size, size_t from) {
  for (size_t i = from; i + 4 <= size; ++i) {
    if (d[i + 2] > 1) {
      i += 2;  // no prefix can end before i + 3
      continue;
    }
    if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1) return i;
  }
  return size;
}

// Sequence headers and DTS frame headers are read through this window.
inline constexpr size_t kSpsCap = 512;

// A bit reader over a copy with zero padding: the reader's loads near the end
// of a buffer mix in stale bits, and Exp-Golomb codes over garbage must end.
struct PaddedBits {
  uint8_t bytes[kSpsCap + 8] = {};
  MediaBitReader br{};
  bool init(const uint8_t* src, size_t n) {
    n = std::min(n, kSpsCap);
    std::memcpy(bytes, src, n);
    return mediaInitGetBits(&br, bytes, static_cast<uint32_t>(n + 8)) == 0;
  }
  uint32_t u(uint32_t n) { return static_cast<uint32_t>(mediaGetBitsLong(&br, n)); }
  uint32_t ue() { return static_cast<uint32_t>(mediaGetUeGolomb(&br)); }
  int32_t se() { return mediaGetSeGolomb(&br); }
};

struct PesHeader {
  size_t payload = 0;  // offset of the payload from the 00 00 01 prefix
  size_t end = 0;      // end of the packet within the buffer
  bool has_pts = false;
  uint64_t pts = 0;
};

// Parses the PES header at `p` (00 00 01 sid) with `avail` bytes; a length of
// 0 (unbounded video in transport streams) runs to the end of the buffer.
bool parsePes(const uint8_t* p, size_t avail, PesHeader* h);

}  // namespace mpeg
