// Audio profile rules: container identification, the audio guessers, the
// AAC/MP3/LPCM/AMR probes, the LPCM test-tone shortcut and the audio parse
// operations; see audio.h. The WMA rules live in audio_wma.cpp.
#include "profile/audio.h"

#include <strings.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <tuple>

namespace {

constexpr char kAdts[] = "audio/vnd.dlna.adts";
constexpr char kMp4[] = "audio/mp4";
constexpr char kL16[] = "audio/L16";
constexpr char kMpeg[] = "audio/mpeg";

// clang-format off
constexpr DlnaProfile aac_adts = {"AAC_ADTS", kAdts, kDlnaClassAudio};
constexpr DlnaProfile aac_adts_320 = {"AAC_ADTS_320", kAdts, kDlnaClassAudio};
constexpr DlnaProfile aac_iso = {"AAC_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile aac_iso_320 = {"AAC_ISO_320", kMp4, kDlnaClassAudio};
constexpr DlnaProfile aac_ltp_iso = {"AAC_LTP_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile aac_ltp_mult5_iso = {"AAC_LTP_MULT5_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile aac_ltp_mult7_iso = {"AAC_LTP_MULT7_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile aac_mult5_adts = {"AAC_MULT5_ADTS", kAdts, kDlnaClassAudio};
constexpr DlnaProfile aac_mult5_iso = {"AAC_MULT5_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile heaac_l2_adts = {"HEAAC_L2_ADTS", kAdts, kDlnaClassAudio};
constexpr DlnaProfile heaac_l2_iso = {"HEAAC_L2_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile heaac_l3_adts = {"HEAAC_L3_ADTS", kAdts, kDlnaClassAudio};
constexpr DlnaProfile heaac_l3_iso = {"HEAAC_L3_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile heaac_mult5_adts = {"HEAAC_MULT5_ADTS", kAdts, kDlnaClassAudio};
constexpr DlnaProfile heaac_mult5_iso = {"HEAAC_MULT5_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile heaac_l2_adts_320 = {"HEAAC_L2_ADTS_320", kAdts, kDlnaClassAudio};
constexpr DlnaProfile heaac_l2_iso_320 = {"HEAAC_L2_ISO_320", kMp4, kDlnaClassAudio};
// The v2 ADTS records share the ISO names and differ only in MIME.
constexpr DlnaProfile heaac_v2_l2 = {"HEAACv2_L2", kMp4, kDlnaClassAudio};
constexpr DlnaProfile heaac_v2_l2_adts = {"HEAACv2_L2", kAdts, kDlnaClassAudio};
constexpr DlnaProfile heaac_v2_l2_320 = {"HEAACv2_L2_320", kMp4, kDlnaClassAudio};
constexpr DlnaProfile heaac_v2_l2_320_adts = {"HEAACv2_L2_320", kAdts, kDlnaClassAudio};
constexpr DlnaProfile heaac_v2_l3 = {"HEAACv2_L3", kMp4, kDlnaClassAudio};
constexpr DlnaProfile heaac_v2_l3_adts = {"HEAACv2_L3", kAdts, kDlnaClassAudio};
constexpr DlnaProfile heaac_v2_mult5 = {"HEAACv2_MULT5", kMp4, kDlnaClassAudio};
constexpr DlnaProfile heaac_v2_mult5_adts = {"HEAACv2_MULT5", kAdts, kDlnaClassAudio};
constexpr DlnaProfile bsac_iso = {"BSAC_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile bsac_mult5_iso = {"BSAC_MULT5_ISO", kMp4, kDlnaClassAudio};
constexpr DlnaProfile amr_wbplus = {"AMR_WBplus", "audio/3gpp", kDlnaClassAudio};
constexpr DlnaProfile amr = {"AMR_3GPP", "audio/mp4", kDlnaClassAudio};
constexpr DlnaProfile three_gpp = {"AMR_3GPP", "audio/3gpp", kDlnaClassAudio};
constexpr DlnaProfile lpcm_low = {"LPCM_low", kL16, kDlnaClassAudio};
constexpr DlnaProfile lpcm = {"LPCM", kL16, kDlnaClassAudio};
constexpr DlnaProfile lpcm_mps = {"LPCM_MPS", kL16, kDlnaClassAudio};
constexpr DlnaProfile lpcm_ex = {kDlnaNonDlna, kL16, kDlnaClassAudio};
constexpr DlnaProfile mp3 = {"MP3", kMpeg, kDlnaClassAudio};
constexpr DlnaProfile mp3x = {"MP3X", kMpeg, kDlnaClassAudio};
constexpr DlnaProfile mp3_ex = {kDlnaNonDlna, kMpeg, kDlnaClassAudio};

struct AacMapping {
  const DlnaProfile* profile;
  uint32_t adts;
  uint32_t number;
};

constexpr AacMapping aac_profiles_mapping[] = {
    {&aac_adts, 1, kAudioAac},
    {&aac_adts_320, 1, kAudioAac320},
    {&aac_iso, 0, kAudioAac},
    {&aac_iso_320, 0, kAudioAac320},
    {&aac_ltp_iso, 0, kAudioAacLtp},
    {&aac_ltp_mult5_iso, 0, kAudioAacLtpMult5},
    {&aac_ltp_mult7_iso, 0, kAudioAacLtpMult7},
    {&aac_mult5_adts, 1, kAudioAacMult5},
    {&aac_mult5_iso, 0, kAudioAacMult5},
    {&heaac_l2_adts, 1, kAudioHeaacL2},
    {&heaac_l2_iso, 0, kAudioHeaacL2},
    {&heaac_l3_adts, 1, kAudioHeaacL3},
    {&heaac_l3_iso, 0, kAudioHeaacL3},
    {&heaac_mult5_adts, 1, kAudioHeaacMult5},
    {&heaac_mult5_iso, 0, kAudioHeaacMult5},
    {&heaac_l2_adts_320, 1, kAudioHeaacL2_320},
    {&heaac_l2_iso_320, 0, kAudioHeaacL2_320},
    {&heaac_v2_l2, 0, kAudioHeaacV2L2},
    {&heaac_v2_l2_adts, 1, kAudioHeaacV2L2},
    {&heaac_v2_l2_320, 0, kAudioHeaacV2L2_320},
    {&heaac_v2_l2_320_adts, 1, kAudioHeaacV2L2_320},
    {&heaac_v2_l3, 0, kAudioHeaacV2L3},
    {&heaac_v2_l3_adts, 1, kAudioHeaacV2L3},
    {&heaac_v2_mult5, 0, kAudioHeaacV2Mult5},
    {&heaac_v2_mult5_adts, 1, kAudioHeaacV2Mult5},
    {&bsac_iso, 0, kAudioBsac},
    {&bsac_mult5_iso, 0, kAudioBsacMult5},
    {nullptr, 0, 0},
};

struct FormatMapping {
  const char* formats;
  uint32_t container;
};

constexpr FormatMapping g_tAvfFormatMapping[] = {
    {"image2", kContainerImage},
    {"asf", kContainerAsf},
    {"amr", kContainerAmr},
    {"aac", kContainerAac},
    {"ac3", kContainerAc3},
    {"mp3", kContainerMp3},
    {"wav", kContainerWav},
    {"mov,mp4,m4a,3gp,3gp4,3g2,mj2", kContainerMp4Family},
    {"mpeg", kContainerMpeg},
    {"mpegts", kContainerMpegTs},
    {nullptr, 0},
};
// clang-format on

constexpr uint32_t kAmrNbRates[] = {4750, 5150, 5900, 6700, 7400, 7950, 10200, 12200};
constexpr uint32_t kAmrWbSampleRates[] = {8000, 16000, 24000, 32000, 48000};
constexpr uint32_t kMpegSampleRates[] = {32000, 44100, 48000};
constexpr uint32_t kMp3Kbps[] = {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
constexpr uint32_t kMp3xSampleRates[] = {16000, 22050, 24000, 32000, 44100, 48000};
constexpr uint32_t kMp3xKbps[] = {8,  16,  24,  32,  40,  48,  56,  64, 80,
                                  96, 112, 128, 160, 192, 224, 256, 320};
constexpr uint32_t kLpcmLowRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000};

template <size_t N>
bool oneOf(uint32_t value, const uint32_t (&set)[N], uint32_t scale = 1) {
  for (uint32_t item : set) {
    if (value == item * scale) return true;
  }
  return false;
}

bool isPcm16(const MediaInfo* info) {
  return info->audio_codec == kMediaCodecPcmS16Le || info->audio_codec == kMediaCodecPcmS16Be;
}

const DlnaProfile* aacMapping(uint32_t adts, uint32_t number) {
  for (const AacMapping* row = aac_profiles_mapping; row->profile; ++row) {
    if (row->adts == adts && row->number == number) return row->profile;
  }
  return nullptr;
}

bool amrNbValid(const MediaInfo* info) {
  return info->audio_codec == kMediaCodecAmrNb && info->channels == 1 &&
         info->sample_rate == 8000 && oneOf(info->audio_bit_rate, kAmrNbRates);
}

bool amrWbValid(const MediaInfo* info) {
  return info->audio_codec == kMediaCodecAmrWb && oneOf(info->sample_rate, kAmrWbSampleRates) &&
         info->audio_bit_rate >= 5200 && info->audio_bit_rate <= 48000 && info->channels <= 2;
}

uint32_t guessMpegLayer(const MediaInfo* info, uint32_t codec, uint32_t answer) {
  if (info->audio_codec != codec || info->channels > 8) return 0;
  if (!oneOf(info->sample_rate, kMpegSampleRates)) return 0;
  return info->audio_bit_rate >= 32000 && info->audio_bit_rate <= 448000 ? answer : 0;
}

// HE-AAC (v1 or v2) levels share one shape with different answers.
struct HeaacAnswers {
  uint32_t low320, low, l3, mult5;
  uint32_t mult5MaxRate;
};

uint32_t guessHeaac(uint32_t r, uint32_t c, uint32_t b, const HeaacAnswers& a) {
  if (r < 8000 || r > 48000) return 0;
  if (r <= 24000) {
    if (c > 2) return 0;
    if (b <= 320000) return a.low320;
    return b <= 576000 ? a.low : 0;
  }
  if (c <= 2 && b <= 576000) return a.l3;
  if (c <= 6 && b <= a.mult5MaxRate) return a.mult5;
  return 0;
}

// The packaging told by the first kMediaHeadSize bytes.
uint32_t mpegContainerOf(const uint8_t* head) {
  for (size_t i = 0; i < 188; ++i) {
    if (head[i] == 0x47 && head[i + 188] == 0x47) return kContainerMpegTs188;
  }
  for (size_t i = 0; i < 192; ++i) {
    if (head[i] == 0x47 && head[i + 192] == 0x47) {
      const uint8_t* stamp = head + i + 188;
      bool zero = !stamp[0] && !stamp[1] && !stamp[2] && !stamp[3];
      return zero ? kContainerMpegTs192Z : kContainerMpegTs192;
    }
  }
  if (head[0] == 0 && head[1] == 0 && head[2] == 1) {
    return head[3] == 0xBA ? kContainerMpegPs : kContainerMpegEs;
  }
  return kContainerUnknown;
}

}  // namespace

uint32_t dlnaMediaStreamGetContainer(const MediaInfo* info) {
  if (!info) return kContainerUnknown;
  // The reader's name is a fixed buffer; never trust it to be terminated.
  const std::string format(info->format, strnlen(info->format, sizeof(info->format)));
  uint32_t container = kContainerUnknown;
  for (const FormatMapping* row = g_tAvfFormatMapping; row->formats; ++row) {
    if (strstr(row->formats, format.c_str())) {
      container = row->container;
      break;
    }
  }
  if (container == kContainerMp4Family) {
    const char* ext = dlnaGetFileExt(info->path);
    bool threeGpp = ext && (strcasecmp(ext, "3gp") == 0 || strcasecmp(ext, "3gpp") == 0 ||
                            strcasecmp(ext, "3g2") == 0);
    return threeGpp ? kContainer3gpp : kContainerMp4;
  }
  if (container == kContainerMpeg || container == kContainerMpegTs) {
    // A short file leaves zeros behind its end, which never look like sync bytes.
    return mpegContainerOf(info->head);
  }
  return container;
}

uint32_t audio_media_profile_guess_aac_priv(const MediaInfo* info, uint32_t objectType) {
  if (!info) return kAudioNone;
  uint32_t r = info->sample_rate;
  uint32_t c = info->channels;
  uint32_t b = info->audio_bit_rate;
  switch (objectType) {
    case 2:
    case 17:
      if (r < 8000 || r > 48000) return kAudioNone;
      if (c <= 2) {
        if (b <= 320000) return kAudioAac320;
        return b <= 576000 ? kAudioAac : kAudioNone;
      }
      if (c <= 6) return b <= 1440000 ? kAudioAacMult5 : kAudioNone;
      return kAudioNone;
    case 4:
    case 19:
      if (r < 8000 || r > 96000) return kAudioNone;
      if (r <= 48000) return c <= 2 && b <= 576000 ? kAudioAacLtp : kAudioNone;
      if (c <= 6 && b <= 2880000) return kAudioAacLtpMult5;
      if (c <= 8 && b <= 4032000) return kAudioAacLtpMult7;
      return kAudioNone;
    case 5:
    case 31:
      return guessHeaac(
          r, c, b, {kAudioHeaacL2_320, kAudioHeaacL2, kAudioHeaacL3, kAudioHeaacMult5, 1440000});
    case 22:
      if (r < 16000 || r > 48000 || b > 128000) return kAudioNone;
      if (c <= 2) return kAudioBsac;
      return c <= 6 ? kAudioBsacMult5 : kAudioNone;
    case 27:
      return guessHeaac(
          r, c, b,
          {kAudioHeaacV2L2_320, kAudioHeaacV2L2, kAudioHeaacV2L3, kAudioHeaacV2Mult5, 2880000});
    default:
      return kAudioNone;
  }
}

uint32_t media_audio_profile_guess_aac(const MediaInfo* info) {
  if (!info || info->audio_codec != kMediaCodecAac) return kAudioNone;
  uint32_t objectType = info->audio_config_size > 0 ? info->audio_config[0] >> 3 : 0;
  return audio_media_profile_guess_aac_priv(info, objectType);
}

uint32_t media_audio_profile_guess_ac3(const MediaInfo* info) {
  if (!info || info->audio_codec != kMediaCodecAc3 || info->channels > 5) return kAudioNone;
  if (!oneOf(info->sample_rate, kMpegSampleRates)) return kAudioNone;
  uint32_t b = info->audio_bit_rate;
  if (b < 64000) return kAudioNone;
  if (b <= 448000) return kAudioAc3;
  return b <= 640000 ? kAudioAc3Extended : kAudioNone;
}

uint32_t media_audio_profile_guess_amr(const MediaInfo* info) {
  if (!info) return kAudioNone;
  if (amrNbValid(info)) return kAudioAmr;
  return amrWbValid(info) ? kAudioAmrWb : kAudioNone;
}

uint32_t media_audio_profile_guess_atrac(const MediaInfo* /*info*/) {
  return kAudioNone;
}

uint32_t media_audio_profile_guess_g726(const MediaInfo* info) {
  if (!info) return kAudioNone;
  bool valid = info->audio_codec == kMediaCodecAdpcmG726 && info->channels == 1 &&
               info->sample_rate == 8000 && info->audio_bit_rate == 32000;
  return valid ? kAudioG726 : kAudioNone;
}

uint32_t media_audio_profile_guess_lpcm(const MediaInfo* info) {
  if (!info || !isPcm16(info) || info->channels > 2) return kAudioNone;
  return info->sample_rate >= 8000 && info->sample_rate <= 48000 ? kAudioLpcm : kAudioNone;
}

uint32_t media_audio_profile_guess_mp1(const MediaInfo* info) {
  return info ? guessMpegLayer(info, kMediaCodecMp1, kAudioMp1) : kAudioNone;
}

uint32_t media_audio_profile_guess_mp2(const MediaInfo* info) {
  return info ? guessMpegLayer(info, kMediaCodecMp2, kAudioMp2) : kAudioNone;
}

uint32_t media_audio_profile_guess_mp3(const MediaInfo* info) {
  if (!info || info->audio_codec != kMediaCodecMp3 || info->channels > 2) return kAudioNone;
  uint32_t r = info->sample_rate;
  uint32_t b = info->audio_bit_rate;
  if (oneOf(r, kMpegSampleRates) && oneOf(b, kMp3Kbps, 1000)) return kAudioMp3;
  if (oneOf(r, kMp3xSampleRates) && oneOf(b, kMp3xKbps, 1000)) return kAudioMp3x;
  return kAudioNone;
}

uint32_t media_audio_profile_guess(const MediaInfo* info) {
  if (!info) return kAudioNone;
  using Guesser = uint32_t (*)(const MediaInfo*);
  static constexpr Guesser kChain[] = {
      media_audio_profile_guess_aac,  media_audio_profile_guess_ac3,
      media_audio_profile_guess_amr,  media_audio_profile_guess_atrac,
      media_audio_profile_guess_g726, media_audio_profile_guess_lpcm,
      media_audio_profile_guess_mp2,  media_audio_profile_guess_mp3,
      media_audio_profile_guess_wma,
  };
  for (Guesser guess : kChain) {
    if (uint32_t number = guess(info)) return number;
  }
  return kAudioNone;
}

const DlnaProfile* probe_mp3(MediaInfo* info) {
  if (!info || !info->has_audio) return nullptr;
  if (dlnaMediaStreamGetContainer(info) != kContainerMp3) return nullptr;
  switch (media_audio_profile_guess_mp3(info)) {
    case kAudioMp3:
      return &mp3;
    case kAudioMp3x:
      return &mp3x;
    default:
      return &mp3_ex;
  }
}

const DlnaProfile* dlnaLpcmProfile(const DlnaProfile* base, uint32_t rate, uint32_t channels) {
  if (!base) return nullptr;
  // Entries are never erased: the pointers handed out must outlive every item.
  // The maps are allocated once and never destroyed for the same reason.
  static std::mutex mutex;
  static auto* mimes = new std::map<std::pair<uint32_t, uint32_t>, std::string>;
  static auto* profiles =
      new std::map<std::tuple<const DlnaProfile*, uint32_t, uint32_t>, DlnaProfile>;
  std::lock_guard<std::mutex> guard(mutex);
  auto key = std::make_tuple(base, rate, channels);
  auto found = profiles->find(key);
  if (found != profiles->end()) return &found->second;
  auto mime = mimes->try_emplace({rate, channels}).first;
  if (mime->second.empty()) {
    char text[64];
    snprintf(text, sizeof(text), "%s;rate=%d;channels=%d", kL16, static_cast<int>(rate),
             static_cast<int>(channels));
    mime->second = text;
  }
  DlnaProfile profile = {base->name, mime->second.c_str(), base->mediaClass};
  return &profiles->emplace(key, profile).first->second;
}

const DlnaProfile* probe_lpcm(MediaInfo* info) {
  if (!info || !info->has_audio || !isPcm16(info)) return nullptr;
  uint32_t r = info->sample_rate;
  uint32_t c = info->channels;
  bool mpsRate = info->audio_bit_rate <= 1536000;
  const DlnaProfile* chosen = &lpcm_ex;
  if (c <= 2) {
    if (oneOf(r, kLpcmLowRates)) {
      chosen = &lpcm_low;
    } else if (r == 44100 || r == 48000) {
      chosen = &lpcm;
    } else if (r <= 48000) {
      chosen = mpsRate ? &lpcm_mps : &lpcm_ex;
    }
  } else if (c <= 7) {
    chosen = r <= 48000 && mpsRate ? &lpcm_mps : &lpcm_ex;
  }
  return dlnaLpcmProfile(chosen, r, c);
}

const DlnaProfile* probe_media_mpeg4(MediaInfo* info) {
  if (!info || !info->has_audio || info->has_video) return nullptr;
  uint32_t adts = 0;
  uint32_t number = kAudioNone;
  const uint8_t* head = info->head;
  if (dlnaMediaStreamGetContainer(info) == kContainerAac && info->head_size >= 3 &&
      head[0] == 0xFF && (head[1] & 0xF6) == 0xF0) {
    adts = 1;
    // The two-bit profile field is taken as the object type as it stands (not
    // plus one), so an ADTS LC stream matches no rule: kept deliberately.
    if (info->audio_codec == kMediaCodecAac) {
      number = audio_media_profile_guess_aac_priv(info, head[2] >> 6);
    }
  } else {
    number = media_audio_profile_guess_aac(info);
  }
  return number ? aacMapping(adts, number) : nullptr;
}

const DlnaProfile* probe_media_amr(MediaInfo* info) {
  if (!info || !info->has_audio || info->has_video) return nullptr;
  uint32_t container = dlnaMediaStreamGetContainer(info);
  if (container != kContainerAmr && container != kContainer3gpp && container != kContainerMp4) {
    return nullptr;
  }
  if (amrNbValid(info)) return container == kContainer3gpp ? &three_gpp : &amr;
  return amrWbValid(info) ? &amr_wbplus : nullptr;
}

const DlnaProfile* fake_lpcm(DlnaMediaResult* result, const char* path) {
  if (!result || !path) return nullptr;
  const char* slash = strrchr(path, '/');
  if (!slash) return nullptr;
  const char* name = slash + 1;
  struct Tone {
    const char* name;
    uint32_t rate;
    uint32_t channels;
  };
  static constexpr Tone kTones[] = {
      {"B-LPCM-1.pcm", 44100, 1},
      {"B-LPCM-2.pcm", 44100, 2},
      {"B-LPCM-3.pcm", 48000, 1},
      {"B-LPCM-4.pcm", 48000, 2},
  };
  uint32_t rate = 44100;
  uint32_t channels = 2;
  bool tone = false;
  for (const Tone& t : kTones) {
    if (strcmp(name, t.name) == 0) {
      rate = t.rate;
      channels = t.channels;
      tone = true;
      break;
    }
  }
  if (!tone && !strstr(name, ".pcm")) return nullptr;

  result->fileSize = 0;
  result->duration = "0:01:00";
  result->year = result->month = result->day = result->track = 0;
  result->artist = "Unknown";
  result->album = "Unknown";
  result->genre = "Unknown";
  result->title = name;
  return dlnaLpcmProfile(&lpcm, rate, channels);
}

const DlnaProfile* parse_mp3(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_mp3, result, path, kMediaFileMp3);
}

const DlnaProfile* parse_lpcm(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_lpcm, result, path, kMediaFileWav);
}

const DlnaProfile* parse_mpeg4(DlnaMediaResult* result, const char* path) {
  if (!_dlnaMatchFileExt(path, "mp4,mov,qt,3gp,3gpp,m4a")) return nullptr;
  return dlnaParseMediaProfile(probe_media_mpeg4, result, path, kMediaFileMp4);
}

const DlnaProfile* parse_amr(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_media_amr, result, path, kMediaFileMp4);
}
