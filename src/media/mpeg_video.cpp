// Video sequence headers of MPEG streams: MPEG-1/2 sequence header and
// extension, VC-1 advanced-profile sequence header, H.264 sequence parameter
// set, MPEG-4 part 2 recognised; see media_mpeg.h.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <numeric>

#include "media/media_codec.h"
#include "media/media_mpeg.h"
#include "media/mpeg_bytes.h"

using namespace mpeg;

namespace {

void reduceRate(uint32_t num, uint32_t den, MpegVideoParams* out) {
  if (num == 0 || den == 0) return;
  uint32_t g = std::gcd(num, den);
  out->frame_rate_num = num / g;
  out->frame_rate_den = den / g;
}

// ---- MPEG-1/2 video ----

struct RateRow {
  uint32_t num, den;
};
// By frame_rate_code 1..8; code 0 and 9..15 are reserved.
constexpr RateRow kMpegFrameRates[] = {
    {24000, 1001}, {24, 1}, {25, 1}, {30000, 1001}, {30, 1}, {50, 1}, {60000, 1001}, {60, 1},
};

// `p` is at 00 00 01 B3.
bool parseSequenceHeader(const uint8_t* p, size_t avail, MpegVideoParams* out) {
  if (avail < 12) return false;
  uint32_t width = p[4] << 4 | p[5] >> 4;
  uint32_t height = (p[5] & 0x0F) << 8 | p[6];
  uint32_t rate_code = p[7] & 0x0F;
  uint32_t bit_rate = p[8] << 10 | p[9] << 2 | p[10] >> 6;
  if (width == 0 || height == 0 || rate_code == 0 || rate_code > 8) return false;

  MpegVideoParams v{};
  v.codec = kMediaCodecMpeg1Video;
  RateRow rate = kMpegFrameRates[rate_code - 1];
  // The quantiser matrices hold no zero bytes, so the next start code is the
  // extension if there is one.
  size_t next = findStartCode(p, avail, 12);
  if (next + 10 <= avail && p[next + 3] == 0xB5 && (p[next + 4] >> 4) == 1) {
    const uint8_t* x = p + next + 4;
    v.codec = kMediaCodecMpeg2Video;
    width |= ((x[1] & 0x01) << 1 | x[2] >> 7) << 12;
    height |= (x[2] >> 5 & 0x03) << 12;
    uint32_t rate_ext = (x[2] & 0x1F) << 7 | x[3] >> 1;
    bit_rate |= rate_ext << 18;
    uint32_t ext_n = x[5] >> 5 & 0x03;
    uint32_t ext_d = x[5] & 0x1F;
    rate.num *= ext_n + 1;
    rate.den *= ext_d + 1;
  }
  if (bit_rate == 0x3FFFF) bit_rate = 0;  // all ones: variable or not given
  v.width = static_cast<uint16_t>(std::min<uint32_t>(width, 0xFFFF));
  v.height = static_cast<uint16_t>(std::min<uint32_t>(height, 0xFFFF));
  v.bit_rate = bit_rate * 400;
  reduceRate(rate.num, rate.den, &v);
  *out = v;
  return true;
}

// ---- VC-1 ----

// `p` is at 00 00 01 0F. Only the advanced profile has a sequence header in a
// stream; the others keep theirs in the container.
bool parseVc1SequenceHeader(const uint8_t* p, size_t avail, MpegVideoParams* out) {
  if (avail < 12) return false;
  PaddedBits b;
  if (!b.init(p + 4, avail - 4)) return false;
  MpegVideoParams v{};
  v.codec = kMediaCodecVc1;
  v.vc1_profile = p[4];
  if (b.u(2) != 3) {
    *out = v;
    return true;
  }
  b.u(3 + 2 + 3 + 5 + 1);  // level, colour format, post-processing hints
  v.width = static_cast<uint16_t>((b.u(12) + 1) * 2);
  v.height = static_cast<uint16_t>((b.u(12) + 1) * 2);
  b.u(6);  // pulldown, interlace, frame counter, interpolation, reserved, psf
  if (b.u(1)) {
    b.u(28);  // display size
    if (b.u(1) && b.u(4) == 15) b.u(16);
    if (b.u(1)) {
      if (b.u(1) == 0) {
        constexpr uint32_t kNr[] = {0, 24000, 25000, 30000, 50000, 60000, 48000, 72000};
        uint32_t nr = b.u(8);
        uint32_t dr = b.u(4);
        if (nr >= 1 && nr <= 7 && (dr == 1 || dr == 2))
          reduceRate(kNr[nr], dr == 1 ? 1000 : 1001, &v);
      } else {
        reduceRate(b.u(16) + 1, 32, &v);
      }
    }
  }
  *out = v;
  return true;
}

// ---- H.264 ----

// Copies a NAL unit without its emulation-prevention bytes; stops at the next
// start code or when `dst` is full. Returns the bytes written.
size_t unescapeNal(const uint8_t* src, size_t size, uint8_t* dst, size_t cap) {
  size_t n = 0;
  int zeros = 0;
  for (size_t i = 0; i < size && n < cap; ++i) {
    uint8_t b = src[i];
    if (zeros >= 2 && b <= 1) break;  // 00 00 00 or 00 00 01: the unit has ended
    if (zeros >= 2 && b == 3) {
      zeros = 0;
      continue;
    }
    zeros = b == 0 ? zeros + 1 : 0;
    dst[n++] = b;
  }
  return n;
}

bool highProfile(uint32_t profile_idc) {
  constexpr uint8_t kHigh[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
  return std::find(std::begin(kHigh), std::end(kHigh), profile_idc) != std::end(kHigh);
}

void skipScalingList(PaddedBits& b, int size) {
  int last = 8, next = 8;
  for (int j = 0; j < size && next != 0; ++j) {
    next = (last + b.se() + 256) % 256;
    if (next != 0) last = next;
  }
}

// Reads the VUI up to its timing information.
void parseVuiTiming(PaddedBits& b, MpegVideoParams* v) {
  if (b.u(1) && b.u(8) == 255) b.u(32);  // aspect ratio, extended SAR
  if (b.u(1)) b.u(1);                    // overscan
  if (b.u(1)) {                          // video signal type
    b.u(4);
    if (b.u(1)) b.u(24);
  }
  if (b.u(1)) {  // chroma sample location
    b.ue();
    b.ue();
  }
  if (!b.u(1)) return;
  uint32_t units = b.u(32);
  uint32_t scale = b.u(32);
  // A tick is one field: a frame takes two.
  if (units == 0 || scale == 0 || units > 0x7FFFFFFF) return;
  if (scale / (2 * units) > 1000) return;
  reduceRate(scale, 2 * units, v);
}

bool parseSpsBits(PaddedBits& b, MpegVideoParams* out) {
  uint32_t profile = b.u(8);
  b.u(16);  // constraint flags, level
  if (b.ue() > 31) return false;
  uint32_t chroma = 1;
  bool separate_planes = false;
  if (highProfile(profile)) {
    chroma = b.ue();
    if (chroma > 3) return false;
    if (chroma == 3) separate_planes = b.u(1);
    if (b.ue() > 6 || b.ue() > 6) return false;  // bit depths
    b.u(1);
    if (b.u(1)) {
      for (int i = 0; i < (chroma == 3 ? 12 : 8); ++i)
        if (b.u(1)) skipScalingList(b, i < 6 ? 16 : 64);
    }
  } else if (profile != 66 && profile != 77 && profile != 88) {
    return false;
  }
  if (b.ue() > 12) return false;  // log2_max_frame_num - 4
  uint32_t poc_type = b.ue();
  if (poc_type == 0) {
    if (b.ue() > 12) return false;
  } else if (poc_type == 1) {
    b.u(1);
    b.se();
    b.se();
    uint32_t cycle = b.ue();
    if (cycle > 255) return false;
    for (uint32_t i = 0; i < cycle; ++i) b.se();
  } else if (poc_type != 2) {
    return false;
  }
  if (b.ue() > 16) return false;  // reference frames
  b.u(1);
  uint32_t mb_w = b.ue() + 1;
  uint32_t map_h = b.ue() + 1;
  bool frame_mbs_only = b.u(1);
  if (!frame_mbs_only) b.u(1);
  b.u(1);
  if (mb_w == 0 || map_h == 0 || mb_w > 1024 || map_h > 1024) return false;
  uint32_t width = mb_w * 16;
  uint32_t height = (2 - frame_mbs_only) * map_h * 16;
  if (b.u(1)) {  // cropping, in chroma units
    uint32_t cx = (chroma == 0 || separate_planes) ? 1 : (chroma == 3 ? 1 : 2);
    uint32_t cy =
        ((chroma == 0 || separate_planes) ? 1 : (chroma == 1 ? 2 : 1)) * (2 - frame_mbs_only);
    uint32_t l = b.ue(), r = b.ue(), t = b.ue(), bot = b.ue();
    uint64_t crop_w = (uint64_t{l} + r) * cx, crop_h = (uint64_t{t} + bot) * cy;
    if (crop_w >= width || crop_h >= height) return false;
    width -= static_cast<uint32_t>(crop_w);
    height -= static_cast<uint32_t>(crop_h);
  }
  MpegVideoParams v{};
  v.codec = kMediaCodecH264;
  v.width = static_cast<uint16_t>(width);
  v.height = static_cast<uint16_t>(height);
  if (b.u(1)) parseVuiTiming(b, &v);
  *out = v;
  return true;
}

// ---- MPEG-4 part 2 ----

bool isMpeg4Start(uint8_t code) {
  return code == 0xB0 || (code >= 0x20 && code <= 0x2F);
}

}  // namespace

bool mpeg_parse_h264_sps(const uint8_t* nal, size_t size, MpegVideoParams* out) {
  if (!nal || !out || size < 4 || (nal[0] & 0x9F) != 7) return false;
  uint8_t rbsp[kSpsCap];
  size_t n = unescapeNal(nal + 1, size - 1, rbsp, sizeof rbsp);
  PaddedBits b;
  if (n < 3 || !b.init(rbsp, n)) return false;
  return parseSpsBits(b, out);
}

bool mpeg_parse_video_es(const uint8_t* data, size_t size, uint32_t hint, MpegVideoParams* out) {
  if (!data || !out) return false;
  bool any = hint == 0;
  bool mpeg12 = any || hint == kMediaCodecMpeg1Video || hint == kMediaCodecMpeg2Video;
  bool mpeg4_seen = false;
  for (size_t pos = findStartCode(data, size, 0); pos < size;
       pos = findStartCode(data, size, pos + 3)) {
    uint8_t code = data[pos + 3];
    const uint8_t* p = data + pos;
    size_t avail = size - pos;
    if (mpeg12 && code == 0xB3 && parseSequenceHeader(p, avail, out)) return true;
    if ((any || hint == kMediaCodecVc1) && code == 0x0F && parseVc1SequenceHeader(p, avail, out))
      return true;
    if ((any || hint == kMediaCodecMpeg4) && isMpeg4Start(code)) mpeg4_seen = true;
  }
  // H.264 NAL headers overlap MPEG-2 slice codes, so they are only tried once
  // the stream is known not to be MPEG-1/2.
  if (any || hint == kMediaCodecH264) {
    for (size_t pos = findStartCode(data, size, 0); pos < size;
         pos = findStartCode(data, size, pos + 3)) {
      if ((data[pos + 3] & 0x1F) == 7 && mpeg_parse_h264_sps(data + pos + 3, size - pos - 3, out))
        return true;
    }
  }
  if (mpeg4_seen) {
    *out = MpegVideoParams{};
    out->codec = kMediaCodecMpeg4;
    return true;
  }
  return false;
}
