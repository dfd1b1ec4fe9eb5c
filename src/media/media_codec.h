// Codec identifiers shared by the readers and the profile rules, and the tables
// that map container tags to them: video FOURCCs (RIFF, MP4, ASF) and WAVE
// format tags.
//
// The numbering is the customary one of open-source decoders: video codecs from
// 1 upward, PCM from 0x10000, ADPCM from 0x11000, AMR from 0x12000, other audio
// from 0x15000. Values the profile rules test must never change. The tables are
// constant data; every call here is thread-safe.
#pragma once

#include <cstdint>

enum MediaCodecId : uint32_t {
  kMediaCodecNone = 0,

  kMediaCodecMpeg1Video = 1,
  kMediaCodecMpeg2Video = 2,
  kMediaCodecH261 = 4,
  kMediaCodecH263 = 5,
  kMediaCodecMjpeg = 8,
  kMediaCodecLjpeg = 10,
  kMediaCodecSp5x = 11,
  kMediaCodecJpegLs = 12,
  kMediaCodecMpeg4 = 13,
  kMediaCodecRawVideo = 14,
  kMediaCodecMsMpeg4V1 = 15,
  kMediaCodecMsMpeg4V2 = 16,
  kMediaCodecMsMpeg4V3 = 17,
  kMediaCodecWmv1 = 18,
  kMediaCodecWmv2 = 19,
  kMediaCodecH263P = 20,
  kMediaCodecH263I = 21,
  kMediaCodecFlv1 = 22,
  kMediaCodecSvq1 = 23,
  kMediaCodecSvq3 = 24,
  kMediaCodecDvVideo = 25,
  kMediaCodecHuffYuv = 26,
  kMediaCodecCyuv = 27,
  kMediaCodecH264 = 28,
  kMediaCodecIndeo3 = 29,
  kMediaCodecVp3 = 30,
  kMediaCodecTheora = 31,
  kMediaCodecAsv1 = 32,
  kMediaCodecAsv2 = 33,
  kMediaCodecFfv1 = 34,
  kMediaCodec4Xm = 35,
  kMediaCodecVcr1 = 36,
  kMediaCodecCljr = 37,
  kMediaCodecRpza = 43,
  kMediaCodecCinepak = 44,
  kMediaCodecMsRle = 46,
  kMediaCodecMsVideo1 = 47,
  kMediaCodecTrueMotion1 = 52,
  kMediaCodecMszh = 54,
  kMediaCodecZlib = 55,
  kMediaCodecSnow = 57,
  kMediaCodecTscc = 58,
  kMediaCodecUlti = 59,
  kMediaCodecVixl = 61,
  kMediaCodecQpeg = 62,
  kMediaCodecPng = 64,
  kMediaCodecFfvHuff = 70,
  kMediaCodecVc1 = 73,
  kMediaCodecWmv3 = 74,
  kMediaCodecLoco = 75,
  kMediaCodecWnv1 = 76,
  kMediaCodecAasc = 77,
  kMediaCodecIndeo2 = 78,
  kMediaCodecFraps = 79,
  kMediaCodecTrueMotion2 = 80,
  kMediaCodecCscd = 82,
  kMediaCodecZmbv = 84,
  kMediaCodecKmvc = 88,
  kMediaCodecCavs = 90,
  kMediaCodecJpeg2000 = 91,
  kMediaCodecVmnc = 92,
  kMediaCodecVp5 = 93,
  kMediaCodecVp6 = 94,
  kMediaCodecVp6F = 95,
  kMediaCodecTarga = 96,
  kMediaCodecIndeo4 = 115,
  kMediaCodecIndeo5 = 116,
  kMediaCodecMimic = 117,
  kMediaCodecDirac = 122,
  kMediaCodecAura = 129,
  kMediaCodecAura2 = 130,
  kMediaCodecDpx = 134,
  kMediaCodecKgv1 = 144,
  kMediaCodecVp8 = 146,

  kMediaCodecPcmS16Le = 0x10000,
  kMediaCodecPcmS16Be = 0x10001,
  kMediaCodecPcmS8 = 0x10004,
  kMediaCodecPcmU8 = 0x10005,
  kMediaCodecPcmMulaw = 0x10006,
  kMediaCodecPcmAlaw = 0x10007,
  kMediaCodecPcmS32Le = 0x10008,
  kMediaCodecPcmS24Le = 0x1000c,
  kMediaCodecPcmS24Be = 0x1000d,
  kMediaCodecPcmZork = 0x10011,
  kMediaCodecPcmDvd = 0x10013,
  kMediaCodecPcmF32Le = 0x10015,
  kMediaCodecPcmF64Le = 0x10017,

  kMediaCodecAdpcmImaWav = 0x11001,
  kMediaCodecAdpcmImaDk3 = 0x11002,
  kMediaCodecAdpcmImaDk4 = 0x11003,
  kMediaCodecAdpcmMs = 0x11006,
  kMediaCodecAdpcmAdx = 0x11009,
  kMediaCodecAdpcmG726 = 0x1100b,
  kMediaCodecAdpcmCt = 0x1100c,
  kMediaCodecAdpcmSwf = 0x1100d,
  kMediaCodecAdpcmYamaha = 0x1100e,

  kMediaCodecAmrNb = 0x12000,
  kMediaCodecAmrWb = 0x12001,

  kMediaCodecMp2 = 0x15000,
  kMediaCodecMp3 = 0x15001,
  kMediaCodecAac = 0x15002,
  kMediaCodecAc3 = 0x15003,
  kMediaCodecDts = 0x15004,
  kMediaCodecVorbis = 0x15005,
  kMediaCodecWmaV1 = 0x15007,
  kMediaCodecWmaV2 = 0x15008,
  kMediaCodecSonic = 0x1500c,
  kMediaCodecSonicLs = 0x1500d,
  kMediaCodecFlac = 0x1500e,
  kMediaCodecTrueSpeech = 0x15017,
  kMediaCodecImc = 0x1501d,
  kMediaCodecMlp = 0x1501f,
  kMediaCodecGsmMs = 0x15020,
  kMediaCodecAtrac3 = 0x15021,
  kMediaCodecVoxware = 0x15022,
  kMediaCodecNellymoser = 0x15024,
  kMediaCodecSpeex = 0x15026,
  kMediaCodecWmaVoice = 0x15027,
  kMediaCodecWmaPro = 0x15028,
  kMediaCodecWmaLossless = 0x15029,
  kMediaCodecSipr = 0x1502c,
  kMediaCodecMp1 = 0x1502d,
};

// One row of a tag table. A table ends with a row whose id is kMediaCodecNone.
struct MediaCodecTag {
  uint32_t id;
  uint32_t tag;
};

// A FOURCC as it lies in a little-endian file: the first character lowest.
constexpr uint32_t mediaFourcc(char a, char b, char c, char d) {
  return static_cast<uint32_t>(static_cast<uint8_t>(a)) |
         static_cast<uint32_t>(static_cast<uint8_t>(b)) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(c)) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(d)) << 24;
}

// Video FOURCCs of RIFF/BMP headers, also used for MP4 and ASF video tags.
extern const MediaCodecTag media_codec_bmp_tags[];
// WAVE format tags. Some tags appear more than once; only the first row is
// ever found, the later ones document what media_wav_codec_get_id corrects to.
extern const MediaCodecTag media_codec_wav_tags[];

// The id of the first row whose tag equals `tag`; failing that, of the first
// row whose tag equals it with every byte upper-cased (ASCII) on both sides;
// else 0. A null table gives 0.
uint32_t media_codec_get_id(const MediaCodecTag* table, uint32_t tag);

// A WAVE format tag and the stream's bits per sample to a codec id: the tag's
// row, refined by the sample width for PCM, float and IMA ADPCM. 0 if unknown.
uint32_t media_wav_codec_get_id(uint32_t format_tag, uint32_t bits_per_sample);
