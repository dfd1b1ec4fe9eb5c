// MPEG program/transport/elementary stream reader: finds the first video and
// audio stream, parses their sequence and frame headers, and takes the play
// time from the presentation time stamps at the head and the tail of the file.
//
// Only a head window and a tail window are read, so a multi-gigabyte recording
// on a slow stick costs the same as a short clip. Everything after the two
// reads works on memory with explicit bounds; see media_mpeg.h.
#include "media/media_mpeg.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

#include "media/media_codec.h"
#include "media/media_io.h"
#include "media/media_parse.h"
#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "media_mpeg";

constexpr size_t kHeadSize = 256 * 1024;
constexpr size_t kTailSize = 128 * 1024;
// Sequence headers come first in a stream; these windows of payload hold
// them and, for audio, enough frames to average an ADTS bit rate.
constexpr size_t kVideoEsCap = 64 * 1024;
constexpr size_t kAudioEsCap = 16 * 1024;
constexpr size_t kSpsCap = 512;
constexpr size_t kTsPacket = 188;
constexpr uint64_t kPtsWrap = uint64_t{1} << 33;
constexpr int kSyncRun = 8;  // packets that must line up to call it a transport stream

uint32_t be16(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 8 | p[1];
}

uint32_t be32(const uint8_t* p) {
  return be16(p) << 16 | be16(p + 2);
}

bool isStartCode(const uint8_t* p, size_t avail) {
  return avail >= 4 && p[0] == 0 && p[1] == 0 && p[2] == 1;
}

// Index of the next 00 00 01 prefix at or after `from` with a byte after it,
// or `size`.
size_t findStartCode(const uint8_t* d, size_t size, size_t from) {
  for (size_t i = from; i + 4 <= size; ++i) {
    if (d[i + 2] > 1) {
      i += 2;  // no prefix can end before i + 3
      continue;
    }
    if (d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1) return i;
  }
  return size;
}

// ---- Small shared helpers ----

void reduceRate(uint32_t num, uint32_t den, MpegVideoParams* out) {
  if (num == 0 || den == 0) return;
  uint32_t g = std::gcd(num, den);
  out->frame_rate_num = num / g;
  out->frame_rate_den = den / g;
}

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

// ---- Audio frame headers. Each returns the frame length, 0 when `p` holds
// no valid header of its kind. `avail` is at least 16 for all of them. ----

uint32_t mpegAudioHeader(const uint8_t* p, MpegAudioParams* a) {
  if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return 0;
  uint32_t version = p[1] >> 3 & 3;  // 0 MPEG-2.5, 2 MPEG-2, 3 MPEG-1
  uint32_t layer = 4 - (p[1] >> 1 & 3);
  uint32_t rate_idx = p[2] >> 4;
  uint32_t sr_idx = p[2] >> 2 & 3;
  // Free format (rate index 0) is refused: without a frame length there is
  // nothing to confirm a chance sync word against.
  if (version == 1 || layer == 4 || rate_idx == 0 || rate_idx == 15 || sr_idx == 3) return 0;
  constexpr uint16_t kRates[5][15] = {
      {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},  // v1 L1
      {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},     // v1 L2
      {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},      // v1 L3
      {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},     // v2 L1
      {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},          // v2 L2/L3
  };
  constexpr uint32_t kSampleRates[] = {44100, 48000, 32000};
  bool v1 = version == 3;
  uint32_t row = v1 ? layer - 1 : (layer == 1 ? 3 : 4);
  uint32_t bit_rate = kRates[row][rate_idx] * 1000u;
  uint32_t sr = kSampleRates[sr_idx] >> (v1 ? 0 : (version == 2 ? 1 : 2));
  uint32_t pad = p[2] >> 1 & 1;
  uint32_t len = layer == 1 ? (12 * bit_rate / sr + pad) * 4
                            : (layer == 3 && !v1 ? 72 : 144) * bit_rate / sr + pad;
  MpegAudioParams out{};
  constexpr uint32_t kLayerCodec[] = {kMediaCodecMp1, kMediaCodecMp2, kMediaCodecMp3};
  out.codec = kLayerCodec[layer - 1];
  out.channels = (p[3] >> 6) == 3 ? 1 : 2;
  out.sample_rate = sr;
  out.bit_rate = bit_rate;
  *a = out;
  return len;
}

constexpr uint32_t kAdtsRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                   22050, 16000, 12000, 11025, 8000,  7350};

uint32_t adtsHeader(const uint8_t* p, MpegAudioParams* a) {
  if (p[0] != 0xFF || (p[1] & 0xF6) != 0xF0) return 0;
  uint32_t profile = p[2] >> 6;
  uint32_t sf = p[2] >> 2 & 0x0F;
  uint32_t chan_cfg = (p[2] & 1) << 2 | p[3] >> 6;
  uint32_t len = (p[3] & 3) << 11 | p[4] << 3 | p[5] >> 5;
  if (sf >= std::size(kAdtsRates) || len < 7) return 0;
  MpegAudioParams out{};
  out.codec = kMediaCodecAac;
  out.sample_rate = kAdtsRates[sf];
  out.channels = static_cast<uint16_t>(chan_cfg == 7 ? 8 : chan_cfg);
  // AudioSpecificConfig: object type (profile + 1), rate index, channel
  // configuration, then three zero GA flags.
  uint32_t object = profile + 1;
  out.config[0] = static_cast<uint8_t>(object << 3 | sf >> 1);
  out.config[1] = static_cast<uint8_t>((sf & 1) << 7 | chan_cfg << 3);
  out.config_size = 2;
  *a = out;
  return len;
}

uint32_t ac3Header(const uint8_t* p, MpegAudioParams* a) {
  if (p[0] != 0x0B || p[1] != 0x77) return 0;
  uint32_t fscod = p[4] >> 6;
  uint32_t frmsizecod = p[4] & 0x3F;
  uint32_t bsid = p[5] >> 3;
  if (fscod == 3 || frmsizecod > 37 || bsid > 10) return 0;  // bsid above 10 is E-AC-3
  constexpr uint16_t kKbps[] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                                192, 224, 256, 320, 384, 448, 512, 576, 640};
  constexpr uint32_t kRates[] = {48000, 44100, 32000};
  constexpr uint8_t kAcmodChannels[] = {2, 1, 2, 3, 3, 4, 4, 5};
  uint32_t bit_rate = kKbps[frmsizecod >> 1] * 1000u;
  uint32_t sr = kRates[fscod];
  // 16-bit words per frame: 1536 samples at the bit rate, 44.1 kHz rounding
  // down and taking one more word in odd size codes.
  uint32_t words = static_cast<uint32_t>(uint64_t{bit_rate} * 1536 / sr / 16);
  if (fscod == 1) words += frmsizecod & 1;

  uint32_t acmod = p[6] >> 5;
  uint32_t bits = static_cast<uint32_t>(p[6]) << 8 | p[7];  // acmod's byte and the next
  int pos = 16 - 3;                                         // bits left after acmod
  if ((acmod & 1) && acmod != 1) pos -= 2;                  // centre mix level
  if (acmod & 4) pos -= 2;                                  // surround mix level
  if (acmod == 2) pos -= 2;                                 // Dolby surround mode
  uint32_t lfe = bits >> (pos - 1) & 1;

  MpegAudioParams out{};
  out.codec = kMediaCodecAc3;
  out.sample_rate = sr;
  out.channels = static_cast<uint16_t>(kAcmodChannels[acmod] + lfe);
  out.bit_rate = bit_rate;
  *a = out;
  return words * 2;
}

uint32_t dtsHeader(const uint8_t* p, size_t avail, MpegAudioParams* a) {
  if (be32(p) != 0x7FFE8001) return 0;
  PaddedBits b;
  if (!b.init(p + 4, 12)) return 0;
  b.u(1 + 5 + 1);  // frame type, deficit samples, CRC flag
  uint32_t blocks = b.u(7) + 1;
  uint32_t fsize = b.u(14) + 1;
  uint32_t amode = b.u(6);
  uint32_t sfreq = b.u(4);
  uint32_t rate = b.u(5);
  b.u(10);  // mix, dynamic range, time stamp, aux, HDCD, extension id/flag, ASPF
  uint32_t lff = b.u(2);
  constexpr uint32_t kFreq[16] = {0,     8000, 16000, 32000, 0,     0,     11025, 22050,
                                  44100, 0,    0,     12000, 24000, 48000, 0,     0};
  constexpr uint32_t kRate[29] = {
      32000,   56000,   64000,   96000,   112000,  128000,  192000,  224000,  256000,  320000,
      384000,  448000,  512000,  576000,  640000,  768000,  960000,  1024000, 1152000, 1280000,
      1344000, 1408000, 1411200, 1472000, 1536000, 1920000, 2048000, 3072000, 3840000};
  constexpr uint8_t kAmodeChannels[16] = {1, 2, 2, 2, 2, 3, 3, 4, 4, 5, 6, 6, 6, 7, 8, 8};
  if (blocks < 6 || fsize < 96 || kFreq[sfreq] == 0) return 0;
  MpegAudioParams out{};
  out.codec = kMediaCodecDts;
  out.sample_rate = kFreq[sfreq];
  out.bit_rate = rate < std::size(kRate) ? kRate[rate] : 0;
  out.channels = static_cast<uint16_t>((amode < 16 ? kAmodeChannels[amode] : 0) + (lff ? 1 : 0));
  out.sub_type = 1;
  if (fsize + 4 <= avail && be32(p + fsize) == 0x64582025) out.sub_type = 2;
  *a = out;
  return fsize;
}

enum class AudioSync { kMpeg, kAdts, kAc3, kDts };

uint32_t audioHeader(AudioSync kind, const uint8_t* p, size_t avail, MpegAudioParams* a) {
  switch (kind) {
    case AudioSync::kMpeg:
      return mpegAudioHeader(p, a);
    case AudioSync::kAdts:
      return adtsHeader(p, a);
    case AudioSync::kAc3:
      return ac3Header(p, a);
    case AudioSync::kDts:
      return dtsHeader(p, avail, a);
  }
  return 0;
}

bool hintAllows(uint32_t hint, AudioSync kind) {
  switch (kind) {
    case AudioSync::kMpeg:
      return hint == 0 || hint == kMediaCodecMp1 || hint == kMediaCodecMp2 ||
             hint == kMediaCodecMp3;
    case AudioSync::kAdts:
      return hint == 0 || hint == kMediaCodecAac;
    case AudioSync::kAc3:
      return hint == 0 || hint == kMediaCodecAc3;
    case AudioSync::kDts:
      return hint == 0 || hint == kMediaCodecDts;
  }
  return false;
}

// A header at `pos` counts when the frame after it, if within the buffer,
// starts with a header of the same kind.
bool confirmedFrame(AudioSync kind, const uint8_t* d, size_t size, size_t pos, MpegAudioParams* a) {
  uint32_t len = audioHeader(kind, d + pos, size - pos, a);
  if (len == 0) return false;
  if (pos + len + 16 > size) return true;
  MpegAudioParams next{};
  return audioHeader(kind, d + pos + len, size - pos - len, &next) != 0 && next.codec == a->codec &&
         next.sample_rate == a->sample_rate;
}

// ADTS headers carry no bit rate: average the frames that follow each other.
uint32_t adtsAverageRate(const uint8_t* d, size_t size, size_t pos, uint32_t sample_rate) {
  uint64_t bytes = 0;
  uint32_t frames = 0;
  MpegAudioParams a{};
  while (pos + 16 <= size) {
    uint32_t len = adtsHeader(d + pos, &a);
    if (len == 0 || pos + len > size) break;
    bytes += len;
    ++frames;
    pos += len;
  }
  if (frames == 0) return 0;
  return static_cast<uint32_t>(bytes * 8 * sample_rate / (uint64_t{frames} * 1024));
}

// ---- PES ----

struct PesHeader {
  size_t payload = 0;  // offset of the payload from the 00 00 01 prefix
  size_t end = 0;      // end of the packet within the buffer
  bool has_pts = false;
  uint64_t pts = 0;
};

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

// `p` is at 00 00 01 sid with `avail` bytes; a length of 0 (unbounded video
// in transport streams) runs to the end of the buffer.
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

// ---- Streams being followed ----

enum class Kind : uint8_t { kNone, kVideo, kAudio };

struct Track {
  Kind kind = Kind::kNone;
  uint32_t id = 0;       // transport PID, or program stream id
  uint8_t sub_id = 0;    // private stream 1 sub-stream
  uint32_t codec = 0;    // from the stream type or the sub-stream; 0 = look at the data
  bool started = false;  // a PES start was seen: payload goes to `es`
  std::vector<uint8_t> es;
  size_t cap = 0;
  bool has_pts = false;
  uint64_t first_pts = 0;
  int64_t min_rel = 0;  // earliest and latest time stamp, in ticks after the first
  int64_t max_rel = 0;
  bool tail_pts = false;  // a time stamp came from the tail window
  bool has_lpcm = false;
  uint8_t lpcm[3] = {};
};

// 33-bit time stamps wrap about every 26.5 hours; a difference of more than
// half the range is read as going backwards.
int64_t ptsAfter(uint64_t from, uint64_t to) {
  uint64_t d = (to - from) & (kPtsWrap - 1);
  return d >= kPtsWrap / 2 ? static_cast<int64_t>(d) - static_cast<int64_t>(kPtsWrap)
                           : static_cast<int64_t>(d);
}

// The head pass finds the streams and collects their first payload; the tail
// pass only looks for time stamps of streams already found.
enum class Pass { kHead, kTail };

void notePts(Track* t, uint64_t pts, Pass pass) {
  if (pass == Pass::kTail) t->tail_pts = true;
  if (!t->has_pts) {
    t->has_pts = true;
    t->first_pts = pts;
    return;
  }
  int64_t rel = ptsAfter(t->first_pts, pts);
  t->min_rel = std::min(t->min_rel, rel);
  t->max_rel = std::max(t->max_rel, rel);
}

void appendEs(Track* t, const uint8_t* p, size_t n) {
  size_t room = t->cap - std::min(t->cap, t->es.size());
  t->es.insert(t->es.end(), p, p + std::min(n, room));
}

struct Scan {
  Track video;
  Track audio;
  uint32_t psm_codec[256] = {};  // program stream map: stream id to codec
};

void openTrack(Track* t, Kind kind, uint32_t id, uint32_t codec) {
  t->kind = kind;
  t->id = id;
  t->codec = codec;
  t->cap = kind == Kind::kVideo ? kVideoEsCap : kAudioEsCap;
}

// ---- Transport streams ----

struct StreamTypeRow {
  uint8_t type;
  Kind kind;
  uint32_t codec;
};
// clang-format off
constexpr StreamTypeRow kStreamTypes[] = {
    {0x01, Kind::kVideo, kMediaCodecMpeg1Video},
    {0x02, Kind::kVideo, kMediaCodecMpeg2Video},
    {0x03, Kind::kAudio, kMediaCodecMp2},
    {0x04, Kind::kAudio, kMediaCodecMp2},
    {0x0F, Kind::kAudio, kMediaCodecAac},
    {0x10, Kind::kVideo, kMediaCodecMpeg4},
    {0x11, Kind::kAudio, kMediaCodecAac},
    {0x1B, Kind::kVideo, kMediaCodecH264},
    {0x81, Kind::kAudio, kMediaCodecAc3},
    {0x82, Kind::kAudio, kMediaCodecDts},
    {0x85, Kind::kAudio, kMediaCodecDts},
    {0x86, Kind::kAudio, kMediaCodecDts},
    {0x8A, Kind::kAudio, kMediaCodecDts},
    {0xEA, Kind::kVideo, kMediaCodecVc1},
};
// clang-format on

struct Classified {
  Kind kind = Kind::kNone;
  uint32_t codec = 0;
};

// Private data (type 6) and unknown types say what they carry in descriptors.
Classified classifyByDescriptors(const uint8_t* d, size_t size) {
  for (size_t i = 0; i + 2 <= size; i += 2 + size_t{d[i + 1]}) {
    uint8_t tag = d[i];
    size_t len = d[i + 1];
    if (i + 2 + len > size) break;
    const uint8_t* body = d + i + 2;
    if (tag == 0x6A || tag == 0x81) return {Kind::kAudio, kMediaCodecAc3};
    if (tag == 0x7B) return {Kind::kAudio, kMediaCodecDts};
    if (tag == 0x05 && len >= 4) {
      if (!std::memcmp(body, "AC-3", 4)) return {Kind::kAudio, kMediaCodecAc3};
      if (!std::memcmp(body, "DTS", 3) && body[3] >= '1' && body[3] <= '3')
        return {Kind::kAudio, kMediaCodecDts};
      if (!std::memcmp(body, "VC-1", 4)) return {Kind::kVideo, kMediaCodecVc1};
    }
  }
  return {};
}

Classified classifyStream(uint8_t type, const uint8_t* desc, size_t desc_size) {
  for (const auto& row : kStreamTypes)
    if (row.type == type) return {row.kind, row.codec};
  return classifyByDescriptors(desc, desc_size);
}

// The section a payload starts, after its pointer field; null if it does not fit.
const uint8_t* sectionStart(const uint8_t* payload, size_t size, uint8_t table_id,
                            size_t* section_end) {
  if (size < 1 || size_t{payload[0]} + 4 > size) return nullptr;
  const uint8_t* s = payload + 1 + payload[0];
  size_t left = size - 1 - payload[0];
  if (s[0] != table_id) return nullptr;
  size_t len = (s[1] & 0x0F) << 8 | s[2];
  // Sections longer than one packet keep what the packet holds; the CRC goes.
  *section_end = std::min(left, 3 + len);
  if (3 + len <= left && len >= 4) *section_end -= 4;
  return s;
}

struct TsPacket {
  uint32_t pid = 0;
  bool pusi = false;
  const uint8_t* payload = nullptr;
  size_t size = 0;
};

// `p` holds 188 bytes starting at the sync byte.
bool readTsPacket(const uint8_t* p, TsPacket* pk) {
  if (p[0] != 0x47 || (p[1] & 0x80)) return false;  // transport error flag
  pk->pid = (p[1] & 0x1F) << 8 | p[2];
  pk->pusi = p[1] & 0x40;
  uint32_t afc = p[3] >> 4 & 3;
  size_t off = 4;
  if (afc & 2) off += 1 + size_t{p[4]};
  if (!(afc & 1) || off >= kTsPacket) return false;
  pk->payload = p + off;
  pk->size = kTsPacket - off;
  return true;
}

// First position from `from` on where the sync byte repeats every packet for
// up to kSyncRun packets (or to the end of the buffer).
size_t findTsSync(const uint8_t* d, size_t size, size_t from, uint32_t packet_size) {
  for (size_t i = from; i + kTsPacket <= size; ++i) {
    int run = 0;
    for (size_t j = i; j < size && run < kSyncRun && d[j] == 0x47; j += packet_size) ++run;
    if (run >= kSyncRun || (run >= 2 && i + run * size_t{packet_size} >= size) ||
        (run == 1 && i + packet_size >= size))
      return i;
  }
  return size;
}

template <typename Fn>
void forEachTsPacket(const uint8_t* d, size_t size, uint32_t packet_size, Fn&& fn) {
  size_t pos = findTsSync(d, size, 0, packet_size);
  while (pos + kTsPacket <= size) {
    if (d[pos] != 0x47) {
      pos = findTsSync(d, size, pos + 1, packet_size);
      continue;
    }
    TsPacket pk;
    if (readTsPacket(d + pos, &pk)) fn(pk);
    pos += packet_size;
  }
}

void parsePat(const TsPacket& pk, std::vector<uint32_t>* pmt_pids) {
  size_t end = 0;
  const uint8_t* s = sectionStart(pk.payload, pk.size, 0x00, &end);
  if (!s) return;
  for (size_t i = 8; i + 4 <= end; i += 4) {
    uint32_t program = be16(s + i);
    uint32_t pid = (s[i + 2] & 0x1F) << 8 | s[i + 3];
    if (program != 0 && pmt_pids->size() < 32 &&
        std::find(pmt_pids->begin(), pmt_pids->end(), pid) == pmt_pids->end())
      pmt_pids->push_back(pid);
  }
}

// Streams of a type the table does not know go to `others`.
bool parsePmt(const TsPacket& pk, Scan* scan, std::vector<uint32_t>* others) {
  size_t end = 0;
  const uint8_t* s = sectionStart(pk.payload, pk.size, 0x02, &end);
  if (!s || end < 12) return false;
  size_t i = 12 + ((s[10] & 0x0F) << 8 | s[11]);
  for (; i + 5 <= end; i += 5 + ((s[i + 3] & 0x0F) << 8 | s[i + 4])) {
    uint32_t pid = (s[i + 1] & 0x1F) << 8 | s[i + 2];
    size_t desc_len = (s[i + 3] & 0x0F) << 8 | s[i + 4];
    size_t desc_end = std::min(end, i + 5 + desc_len);
    Classified c = classifyStream(s[i], s + i + 5, desc_end - (i + 5));
    Track* t = c.kind == Kind::kVideo   ? &scan->video
               : c.kind == Kind::kAudio ? &scan->audio
                                        : nullptr;
    if (t && t->kind == Kind::kNone) openTrack(t, c.kind, pid, c.codec);
    if (!t && others->size() < 32) others->push_back(pid);
  }
  return true;
}

// Where the program map says nothing useful, PES stream ids tell video from
// audio: among the map's unknown streams (`allowed`), or among all streams when
// there is no map (null). Private stream 1 also carries subtitles and
// teletext, so it counts as audio only without a map.
void tracksFromStreamIds(const uint8_t* d, size_t size, uint32_t packet_size,
                         const std::vector<uint32_t>* allowed, Scan* scan) {
  forEachTsPacket(d, size, packet_size, [&](const TsPacket& pk) {
    if (!pk.pusi || pk.pid < 0x10 || pk.pid == 0x1FFF || !isStartCode(pk.payload, pk.size)) return;
    if (allowed && std::find(allowed->begin(), allowed->end(), pk.pid) == allowed->end()) return;
    uint8_t sid = pk.payload[3];
    bool audio = (sid >= 0xC0 && sid <= 0xDF) || (sid == 0xBD && !allowed);
    if (sid >= 0xE0 && sid <= 0xEF && scan->video.kind == Kind::kNone)
      openTrack(&scan->video, Kind::kVideo, pk.pid, 0);
    else if (audio && scan->audio.kind == Kind::kNone)
      openTrack(&scan->audio, Kind::kAudio, pk.pid, 0);
  });
}

void tsFeed(Track* t, const TsPacket& pk, Pass pass) {
  bool collect = pass == Pass::kHead;
  if (pk.pusi) {
    PesHeader h;
    if (!parsePes(pk.payload, pk.size, &h)) return;
    if (h.has_pts) notePts(t, h.pts, pass);
    t->started = true;
    if (collect) appendEs(t, pk.payload + h.payload, h.end - h.payload);
  } else if (t->started && collect) {
    appendEs(t, pk.payload, pk.size);
  }
}

void tsWalkPes(const uint8_t* d, size_t size, uint32_t packet_size, Scan* scan, Pass pass) {
  forEachTsPacket(d, size, packet_size, [&](const TsPacket& pk) {
    if (scan->video.kind != Kind::kNone && pk.pid == scan->video.id)
      tsFeed(&scan->video, pk, pass);
    else if (scan->audio.kind != Kind::kNone && pk.pid == scan->audio.id)
      tsFeed(&scan->audio, pk, pass);
  });
}

void tsScanHead(const uint8_t* d, size_t size, uint32_t packet_size, Scan* scan) {
  std::vector<uint32_t> pmt_pids;
  forEachTsPacket(d, size, packet_size, [&](const TsPacket& pk) {
    if (pk.pid == 0 && pk.pusi) parsePat(pk, &pmt_pids);
  });
  bool have_pmt = false;
  std::vector<uint32_t> others;
  forEachTsPacket(d, size, packet_size, [&](const TsPacket& pk) {
    if (pk.pusi && std::find(pmt_pids.begin(), pmt_pids.end(), pk.pid) != pmt_pids.end())
      have_pmt |= parsePmt(pk, scan, &others);
  });
  if (scan->video.kind == Kind::kNone || scan->audio.kind == Kind::kNone)
    tracksFromStreamIds(d, size, packet_size, have_pmt ? &others : nullptr, scan);
  tsWalkPes(d, size, packet_size, scan, Pass::kHead);
}

// ---- Program streams ----

// Private stream 1 sub-streams: the id range, the codec, and the bytes before
// the audio frames (the id, a frame count, a first-access-unit pointer and,
// for LPCM, its own 3-byte header).
struct SubStreamRow {
  uint8_t first, last;
  uint32_t codec;
  uint8_t prefix;
};
// clang-format off
constexpr SubStreamRow kSubStreams[] = {
    {0x80, 0x87, kMediaCodecAc3, 4},
    {0x88, 0x8F, kMediaCodecDts, 4},
    {0xA0, 0xA7, kMediaCodecPcmDvd, 7},
};
// clang-format on

const SubStreamRow* subStream(uint8_t id) {
  for (const auto& row : kSubStreams)
    if (id >= row.first && id <= row.last) return &row;
  return nullptr;
}

// Pack header length: MPEG-2 packs carry stuffing, MPEG-1 packs are 12 bytes.
size_t packHeader(const uint8_t* p, size_t avail) {
  if (avail >= 14 && (p[4] & 0xC0) == 0x40) return 14 + (p[13] & 7);
  if (avail >= 12 && (p[4] & 0xF0) == 0x20) return 12;
  return 4;
}

void parsePsm(const uint8_t* p, size_t end, Scan* scan) {
  if (end < 12) return;
  size_t i = 10 + be16(p + 8);
  if (i + 2 > end) return;
  size_t map_end = std::min(end, i + 2 + be16(p + i));
  for (i += 2; i + 4 <= map_end; i += 4 + be16(p + i + 2)) {
    Classified c = classifyStream(p[i], nullptr, 0);
    scan->psm_codec[p[i + 1]] = c.codec;
  }
}

void psFeed(Track* t, const uint8_t* p, const PesHeader& h, size_t skip, Pass pass) {
  if (h.has_pts) notePts(t, h.pts, pass);
  t->started = true;
  if (pass == Pass::kHead && h.payload + skip <= h.end)
    appendEs(t, p + h.payload + skip, h.end - h.payload - skip);
}

void psPrivateStream1(const uint8_t* p, const PesHeader& h, Scan* scan, Pass pass) {
  if (h.payload >= h.end) return;
  uint8_t sub = p[h.payload];
  const SubStreamRow* row = subStream(sub);
  if (!row) return;  // subtitles and the like
  Track* t = &scan->audio;
  if (t->kind == Kind::kNone && pass == Pass::kHead) {
    openTrack(t, Kind::kAudio, 0xBD, row->codec);
    t->sub_id = sub;
  }
  if (t->id != 0xBD || t->sub_id != sub) return;
  if (row->codec == kMediaCodecPcmDvd && !t->has_lpcm && h.payload + 7 <= h.end) {
    std::memcpy(t->lpcm, p + h.payload + 4, 3);
    t->has_lpcm = true;
  }
  psFeed(t, p, h, row->prefix, pass);
}

void psPes(const uint8_t* p, size_t avail, Scan* scan, Pass pass) {
  uint8_t sid = p[3];
  bool media = sid == 0xBD || (sid >= 0xC0 && sid <= 0xEF);
  PesHeader h;
  if ((sid != 0xBC && !media) || !parsePes(p, avail, &h)) return;
  if (sid == 0xBC) {
    parsePsm(p, h.end, scan);
  } else if (sid == 0xBD) {
    psPrivateStream1(p, h, scan, pass);
  } else {
    Kind kind = sid >= 0xE0 ? Kind::kVideo : Kind::kAudio;
    Track* t = kind == Kind::kVideo ? &scan->video : &scan->audio;
    if (t->kind == Kind::kNone && pass == Pass::kHead)
      openTrack(t, kind, sid, scan->psm_codec[sid]);
    if (t->kind != Kind::kNone && t->id == sid) psFeed(t, p, h, 0, pass);
  }
}

// Walks packs and PES packets; anything else is skipped up to the next start
// code, so a cut or damaged stream resynchronises.
void psWalk(const uint8_t* d, size_t size, Scan* scan, Pass pass) {
  size_t pos = findStartCode(d, size, 0);
  while (pos + 4 <= size) {
    if (!isStartCode(d + pos, size - pos)) {
      pos = findStartCode(d, size, pos + 1);
      continue;
    }
    uint8_t sid = d[pos + 3];
    if (sid == 0xBA) {
      pos += packHeader(d + pos, size - pos);
    } else if (sid >= 0xBB && pos + 6 <= size) {
      psPes(d + pos, size - pos, scan, pass);
      pos += 6 + size_t{be16(d + pos + 4)};
    } else {
      pos += 4;
    }
  }
}

// ---- Whole file ----

enum class Container { kNone, kTransport, kProgram, kElementary };

// A program stream starts with a pack or a PES packet, an elementary video
// stream with any other start code; a few zero bytes may come first.
Container detect(const uint8_t* d, size_t size, uint32_t* packet_size) {
  size_t lead = 0;
  while (lead < size && lead < 64 && d[lead] == 0) ++lead;
  bool start = lead >= 2 && lead + 2 <= size && d[lead] == 1;
  if (start && d[lead + 1] == 0xBA) return Container::kProgram;
  *packet_size = mpeg_ts_packet_size(d, size);
  if (*packet_size) return Container::kTransport;
  if (!start) return Container::kNone;
  return d[lead + 1] >= 0xBB ? Container::kProgram : Container::kElementary;
}

int64_t fileSize(MediaIo* io) {
  if (!media_goto_end(io)) return -1;
  return ftello(io->stream);
}

bool readWindow(MediaIo* io, int64_t pos, size_t n, std::vector<uint8_t>* buf) {
  buf->assign(n, 0);
  return n > 0 && media_orient_data(io, pos) &&
         media_read_data(io, buf->data(), static_cast<uint32_t>(n));
}

void parseTracks(Scan* scan, MpegVideoParams* v, MpegAudioParams* a) {
  Track& vt = scan->video;
  if (vt.kind != Kind::kNone) {
    v->codec = vt.codec;
    mpeg_parse_video_es(vt.es.data(), vt.es.size(), vt.codec, v);
  }
  Track& at = scan->audio;
  if (at.kind != Kind::kNone) {
    a->codec = at.codec;
    if (at.codec == kMediaCodecPcmDvd) {
      if (at.has_lpcm) mpeg_parse_lpcm_header(at.lpcm, a);
    } else {
      mpeg_parse_audio_es(at.es.data(), at.es.size(), at.codec, a);
    }
  }
}

// Microseconds from the first to the last time stamp of the main stream, plus
// one frame for video whose rate is known. The main stream is the video, or
// the audio when only the audio reaches into the tail window (muxers may end
// a file with a run of audio packets).
int64_t durationUs(const Scan& scan, const MpegVideoParams& v, bool has_tail) {
  auto usable = [&](const Track& t) { return t.has_pts && (!has_tail || t.tail_pts); };
  // The head alone covers a fraction of a long file: no answer beats a wrong one.
  const Track* main = usable(scan.video) ? &scan.video : usable(scan.audio) ? &scan.audio : nullptr;
  if (!main) return 0;
  int64_t ticks = main->max_rel - main->min_rel;
  if (ticks <= 0) return 0;
  int64_t us = ticks * 100 / 9;
  if (main == &scan.video && v.frame_rate_num)
    us += 1000000LL * v.frame_rate_den / v.frame_rate_num;
  return us;
}

void fillVideo(const Track& t, const MpegVideoParams& v, MediaInfo* info) {
  if (t.kind == Kind::kNone) return;
  info->has_video = 1;
  if (v.codec) info->video_codec = v.codec;
  if (v.width) info->video_width = v.width;
  if (v.height) info->video_height = v.height;
  if (v.frame_rate_num) {
    info->frame_rate_num = v.frame_rate_num;
    info->frame_rate_den = v.frame_rate_den;
    info->frame_rate = v.frame_rate_num / v.frame_rate_den;
  }
  if (v.bit_rate) {
    info->video_bit_rate = v.bit_rate;
    info->video_max_bit_rate = v.bit_rate;
  }
  if (v.codec == kMediaCodecVc1) info->vc1_profile = v.vc1_profile;
}

void fillAudio(const Track& t, const MpegAudioParams& a, MediaInfo* info) {
  if (t.kind == Kind::kNone) return;
  info->has_audio = 1;
  info->audio_streams = 1;
  if (a.codec) info->audio_codec = a.codec;
  if (a.channels) info->channels = a.channels;
  if (a.sample_rate) info->sample_rate = a.sample_rate;
  if (a.bit_rate) {
    info->audio_bit_rate = a.bit_rate;
    info->audio_max_bit_rate = a.bit_rate;
  }
  if (a.config_size) {
    media_memcpy(info->audio_config, a.config, kMediaConfigSize, a.config_size);
    info->audio_config_size = a.config_size;
  }
}

}  // namespace

uint32_t mpeg_ts_packet_size(const uint8_t* data, size_t size) {
  if (!data) return 0;
  for (uint32_t ps : {uint32_t{188}, uint32_t{192}}) {
    size_t packets = size / ps;
    size_t need = std::min<size_t>(kSyncRun, std::max<size_t>(packets, 2));
    for (size_t i = 0; i < ps && i < size; ++i) {
      size_t run = 0;
      for (size_t j = i; j < size && run < need && data[j] == 0x47; j += ps) ++run;
      if (run >= need) return ps;
    }
  }
  return 0;
}

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

bool mpeg_parse_audio_es(const uint8_t* data, size_t size, uint32_t hint, MpegAudioParams* out) {
  if (!data || !out) return false;
  constexpr AudioSync kKinds[] = {AudioSync::kMpeg, AudioSync::kAdts, AudioSync::kAc3,
                                  AudioSync::kDts};
  for (size_t pos = 0; pos + 16 <= size; ++pos) {
    for (AudioSync kind : kKinds) {
      MpegAudioParams a{};
      if (!hintAllows(hint, kind) || !confirmedFrame(kind, data, size, pos, &a)) continue;
      if (kind == AudioSync::kAdts) a.bit_rate = adtsAverageRate(data, size, pos, a.sample_rate);
      *out = a;
      return true;
    }
  }
  return false;
}

bool mpeg_parse_lpcm_header(const uint8_t* header, MpegAudioParams* out) {
  if (!header || !out) return false;
  constexpr uint32_t kRates[] = {48000, 96000, 44100, 32000};
  constexpr uint32_t kBits[] = {16, 20, 24, 0};
  uint32_t bits = kBits[header[1] >> 6];
  if (bits == 0) return false;
  MpegAudioParams a{};
  a.codec = kMediaCodecPcmDvd;
  a.sample_rate = kRates[header[1] >> 4 & 3];
  a.channels = static_cast<uint16_t>((header[1] & 7) + 1);
  a.bit_rate = a.sample_rate * a.channels * bits;
  *out = a;
  return true;
}

int32_t mpeg_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  int64_t size = fileSize(io);
  if (size <= 0) return -1;
  std::vector<uint8_t> head;
  size_t head_len = static_cast<size_t>(std::min<int64_t>(size, kHeadSize));
  if (!readWindow(io, 0, head_len, &head)) return -1;

  uint32_t packet_size = 0;
  Container kind = detect(head.data(), head.size(), &packet_size);
  if (kind == Container::kNone) {
    DMS_LOG(kLogEvent, "not an MPEG stream\n");
    return -1;
  }

  auto scan = std::make_unique<Scan>();
  if (kind == Container::kTransport) {
    tsScanHead(head.data(), head.size(), packet_size, scan.get());
  } else if (kind == Container::kProgram) {
    psWalk(head.data(), head.size(), scan.get(), Pass::kHead);
  } else {
    openTrack(&scan->video, Kind::kVideo, 0, 0);
    scan->video.es.assign(head.begin(), head.begin() + std::min(head.size(), kVideoEsCap));
  }

  if (scan->video.kind == Kind::kNone && scan->audio.kind == Kind::kNone) {
    DMS_LOG(kLogEvent, "no audio or video stream found\n");
    return -1;
  }

  // Time stamps near the end give the play time; the tail window never
  // overlaps the head.
  std::vector<uint8_t> tail;
  int64_t tail_pos =
      std::max<int64_t>(static_cast<int64_t>(head_len), size - static_cast<int64_t>(kTailSize));
  if (kind != Container::kElementary && tail_pos < size &&
      readWindow(io, tail_pos, static_cast<size_t>(size - tail_pos), &tail)) {
    if (kind == Container::kTransport)
      tsWalkPes(tail.data(), tail.size(), packet_size, scan.get(), Pass::kTail);
    else
      psWalk(tail.data(), tail.size(), scan.get(), Pass::kTail);
  }

  MpegVideoParams v{};
  MpegAudioParams a{};
  parseTracks(scan.get(), &v, &a);
  if (kind == Container::kElementary && v.codec == 0) {
    DMS_LOG(kLogEvent, "no video sequence header in elementary stream\n");
    return -1;
  }

  media_strncpy(info->format, kind == Container::kTransport ? "mpegts" : "mpeg", 64);
  info->video_codec = kMediaCodecMpeg2Video;
  fillVideo(scan->video, v, info);
  fillAudio(scan->audio, a, info);
  if (v.codec == kMediaCodecVc1 && a.codec == kMediaCodecDts) info->audio_sub_type = a.sub_type;

  int64_t us = durationUs(*scan, v, tail_pos < size);
  uint64_t bits = static_cast<uint64_t>(size) * 8;
  if (us == 0 && kind == Container::kElementary && v.bit_rate) {
    // No time stamps to go by: estimate from the declared rate.
    us = static_cast<int64_t>(static_cast<double>(bits) * 1e6 / v.bit_rate);
  }
  if (us > 0) {
    info->duration = us;
    double rate = static_cast<double>(bits) * 1e6 / static_cast<double>(us);
    info->bit_rate = static_cast<uint32_t>(std::min(rate, 4294967295.0));
  }
  DMS_LOG(kLogTrace, "%s: video %u %ux%u, audio %#x %u Hz %u ch, %lld us\n", info->format,
          info->video_codec, info->video_width, info->video_height, info->audio_codec,
          info->sample_rate, info->channels, static_cast<long long>(info->duration));
  return 0;
}
