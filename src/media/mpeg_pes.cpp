// PES packet headers of MPEG program and transport streams: where the payload
// starts, where the packet ends and its presentation time stamp, in both the
// MPEG-1 and the MPEG-2 syntax; see mpeg_bytes.h.
#include <algorithm>

#include "media/mpeg_bytes.h"

namespace mpeg {
namespace {

bool decodeTimestamp(const uint8_t* b, uint64_t* out) {
  if (!(b[0] & 1) || !(b[2] & 1) || !(b[4] & 1)) return false;
  *out = (uint64_t{b[0]} >> 1 & 7) << 30 | uint64_t{b[1]} << 22 | (uint64_t{b[2]} >> 1) << 15 |
         uint64_t{b[3]} << 7 | uint64_t{b[4]} >> 1;
  return true;
}

bool hasPesExtension(uint8_t sid) {
  return sid != 0xBC && sid != 0xBE && sid != 0xBF && sid != 0xF0 && sid != 0xF1 && sid != 0xF2 &&
         sid != 0xF8 && sid != 0xFF;
}

}  // namespace

bool parsePes(const uint8_t* p, size_t avail, PesHeader* h) {
  if (avail < 9 || !isStartCode(p, avail)) return false;
  uint32_t len = be16(p + 4);
  h->end = len == 0 ? avail : std::min(avail, size_t{6} + len);
  h->has_pts = false;
  if (!hasPesExtension(p[3])) {
    h->payload = 6;
    return true;
  }
  if ((p[6] & 0xC0) == 0x80) {  // MPEG-2 syntax
    h->payload = 9 + size_t{p[8]};
    if ((p[7] & 0x80) && 14 <= h->end) h->has_pts = decodeTimestamp(p + 9, &h->pts);
    return h->payload <= h->end;
  }
  size_t i = 6;  // MPEG-1 syntax: stuffing, buffer size, time stamps
  while (i < h->end && p[i] == 0xFF && i < 6 + 16) ++i;
  if (i + 1 < h->end && (p[i] & 0xC0) == 0x40) i += 2;
  if (i >= h->end) return false;
  uint8_t kind = p[i] >> 4;
  if (kind == 2 || kind == 3) {
    if (i + (kind == 2 ? 5 : 10) > h->end) return false;
    h->has_pts = decodeTimestamp(p + i, &h->pts);
    i += kind == 2 ? 5 : 10;
  } else if (p[i] == 0x0F) {
    ++i;
  } else {
    return false;
  }
  h->payload = i;
  return true;
}

}  // namespace mpeg
