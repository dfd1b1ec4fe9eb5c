// Audio frame headers of MPEG streams: MPEG audio layers 1 to 3, AAC ADTS,
// AC-3, DTS core and the DVD LPCM header; see media_mpeg.h.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "media/media_codec.h"
#include "media/media_mpeg.h"
#include "media/mpeg_bytes.h"

using namespace mpeg;

namespace {

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

}  // namespace

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
