// Video rules for MPEG-1, WMV9, Matroska, FLV and AVI, and the MPEG-4 part 2
// and VC-1 rules, which publish such files under their container's MIME type
// (the VC-1 parser also judges the other MPEG streams it alone is given); and
// their parse operations.
#include "profile/video.h"

#include <cstring>
#include <iterator>

#include "profile/audio.h"
#include "profile/avc.h"
#include "profile/mpeg2.h"

namespace {

constexpr char kMpeg[] = "video/mpeg";
constexpr char kWmv[] = "video/x-ms-wmv";
constexpr char kMkv[] = "video/x-matroska";
constexpr char kAvi[] = "video/x-msvideo";

// clang-format off
constexpr DlnaProfile g_tMpeg1 = {"MPEG1", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile g_tExMmpeg1 = {kDlnaNonDlna, kMpeg, kDlnaClassVideo};
constexpr DlnaProfile wmvspll_base = {"WMVSPLL_BASE", kWmv, kDlnaClassVideo};
constexpr DlnaProfile wmvspml_base = {"WMVSPML_BASE", kWmv, kDlnaClassVideo};
constexpr DlnaProfile wmvspml_mp3 = {"WMVSPML_MP3", kWmv, kDlnaClassVideo};
constexpr DlnaProfile wmvmed_base = {"WMVMED_BASE", kWmv, kDlnaClassVideo};
constexpr DlnaProfile wmvmed_full = {"WMVMED_FULL", kWmv, kDlnaClassVideo};
constexpr DlnaProfile wmvmed_pro = {"WMVMED_PRO", kWmv, kDlnaClassVideo};
constexpr DlnaProfile wmvhigh_full = {"WMVHIGH_FULL", kWmv, kDlnaClassVideo};
constexpr DlnaProfile wmvhigh_pro = {"WMVHIGH_PRO", kWmv, kDlnaClassVideo};
constexpr DlnaProfile wmv_ex = {kDlnaNonDlna, kWmv, kDlnaClassVideo};
constexpr DlnaProfile T_AVC_MKV_MP_HD_AAC_MULT5 = {"AVC_MKV_MP_HD_AAC_MULT5", kMkv, kDlnaClassVideo};
constexpr DlnaProfile T_AVC_MKV_MP_HD_HEAAC_L4 = {"AVC_MKV_MP_HD_HEAAC_L4", kMkv, kDlnaClassVideo};
constexpr DlnaProfile T_AVC_MKV_HP_HD_AAC_MULT5 = {"AVC_MKV_HP_HD_AAC_MULT5", kMkv, kDlnaClassVideo};
constexpr DlnaProfile T_AVC_MKV_HP_HD_HEAAC_L4 = {"AVC_MKV_HP_HD_HEAAC_L4", kMkv, kDlnaClassVideo};
constexpr DlnaProfile T_AVC_MKV_MP_HD_AC3 = {"AVC_MKV_MP_HD_AC3", kMkv, kDlnaClassVideo};
constexpr DlnaProfile T_AVC_MKV_HP_HD_AC3 = {"AVC_MKV_HP_HD_AC3", kMkv, kDlnaClassVideo};
constexpr DlnaProfile T_AVC_MKV_MP_HD_MPEG1_L3 = {"AVC_MKV_MP_HD_MPEG1_L3", kMkv, kDlnaClassVideo};
constexpr DlnaProfile T_AVC_MKV_HP_HD_MPEG1_L3 = {"AVC_MKV_HP_HD_MPEG1_L3", kMkv, kDlnaClassVideo};
constexpr DlnaProfile T_MKV_NORMAL = {kDlnaNonDlna, kMkv, kDlnaClassVideo};
constexpr DlnaProfile flv = {kDlnaNonDlna, "video/x-flv", kDlnaClassVideo};
constexpr DlnaProfile avi = {kDlnaNonDlna, kAvi, kDlnaClassVideo};

// Profiles without a DLNA name for the video codecs that have no rules of their own.
constexpr DlnaProfile video_mp4_common = {kDlnaNonDlna, "video/mp4", kDlnaClassVideo};
constexpr DlnaProfile video_3gp_common = {kDlnaNonDlna, "video/3gpp", kDlnaClassVideo};
constexpr DlnaProfile video_ps_common = {kDlnaNonDlna, kMpeg, kDlnaClassVideo};
constexpr DlnaProfile video_ts_common = {kDlnaNonDlna, "video/vnd.dlna.mpeg-tts", kDlnaClassVideo};
constexpr DlnaProfile video_asf_common = {kDlnaNonDlna, kWmv, kDlnaClassVideo};
constexpr DlnaProfile video_avi_common = {kDlnaNonDlna, kAvi, kDlnaClassVideo};

// The frame-rate numerator and denominator are carried but not compared.
struct Wmv9Row {
  uint32_t maxWidth;
  uint32_t maxHeight;
  uint32_t num;
  uint32_t den;
  uint32_t fps;
  uint32_t maxBitRate;
};

constexpr Wmv9Row wmv9_profile_simple_low[] = {
    {176, 144, 15, 1, 15, 96000},
};
constexpr Wmv9Row wmv9_profile_simple_medium[] = {
    {240, 176, 30, 1, 30, 384000},
    {240, 176, 30000, 1001, 30, 384000},
    {352, 288, 15, 1, 15, 384000},
};
constexpr Wmv9Row wmv9_profile_main_medium[] = {
    {720, 480, 30, 1, 30, 10000000},
    {720, 480, 30000, 1001, 30, 10000000},
    {720, 576, 25, 1, 25, 10000000},
};
constexpr Wmv9Row wmv9_profile_main_high[] = {
    {1920, 1080, 30, 1, 30, 135000000},
    {1920, 1080, 30000, 1001, 30, 135000000},
    {1920, 1080, 24000, 1001, 24, 135000000},
    {1920, 1080, 24, 1, 24, 135000000},
};

struct WmvMapping {
  const DlnaProfile* profile;
  uint32_t level;
  uint32_t audio;
};

constexpr WmvMapping wmv_profiles_mapping[] = {
    {&wmvmed_base, 3, kAudioWmaBase},
    {&wmvmed_full, 3, kAudioWmaFull},
    {&wmvmed_pro, 3, kAudioWmaPro},
    {&wmvhigh_full, 4, kAudioWmaFull},
    {&wmvhigh_pro, 4, kAudioWmaPro},
    {&wmvspll_base, 1, kAudioWmaBase},
    {&wmvspml_base, 2, kAudioWmaBase},
    {&wmvspml_mp3, 2, kAudioMp3},
    {nullptr, 0, 0},
};
// clang-format on

struct Wmv9Level {
  const Wmv9Row* rows;
  size_t count;
};

constexpr Wmv9Level kWmv9Levels[] = {
    {wmv9_profile_simple_low, std::size(wmv9_profile_simple_low)},
    {wmv9_profile_simple_medium, std::size(wmv9_profile_simple_medium)},
    {wmv9_profile_main_medium, std::size(wmv9_profile_main_medium)},
    {wmv9_profile_main_high, std::size(wmv9_profile_main_high)},
};

bool fitsWmv9Row(const Wmv9Row& row, const MediaInfo* info) {
  uint32_t fps = info->frame_rate;
  uint32_t fpsGap = fps > row.fps ? fps - row.fps : row.fps - fps;
  return info->video_width <= row.maxWidth && info->video_height <= row.maxHeight && fpsGap < 3 &&
         info->video_bit_rate <= row.maxBitRate;
}

bool isMpeg1Picture(const MediaInfo* info) {
  uint32_t num = info->frame_rate_num;
  uint32_t den = info->frame_rate_den;
  if (info->video_width != 352) return false;
  if (info->video_height == 288) return num == 25 && den == 1;
  if (info->video_height == 240) {
    return (num == 24000 && den == 1001) || (num == 30000 && den == 1001);
  }
  return false;
}

// The H.264 profile byte of the kept decoder configuration, or 0. The
// Matroska reader keeps the first four bytes of the record (version, profile,
// compatibility, level) and no other length; no level outside 3.0 to 4.1 fits
// an HD profile.
uint32_t mkvAvcProfile(const MediaInfo* info) {
  constexpr uint32_t kKeptRecord = 4;
  if (info->video_config_size != kKeptRecord) return 0;
  const uint8_t* config = info->video_config;
  uint32_t level = config[3];
  if (level < 30 || level > 41) return 0;
  return config[1];
}

// A NON-DLNA profile of the file's container, or null for a container such
// files do not come in.
const DlnaProfile* commonByContainer(const MediaInfo* info) {
  switch (dlnaMediaStreamGetContainer(info)) {
    case kContainerMp4:
      return &video_mp4_common;
    case kContainer3gpp:
      return &video_3gp_common;
    case kContainerMpegEs:
    case kContainerMpegPs:
      return &video_ps_common;
    case kContainerMpegTs188:
    case kContainerMpegTs192:
    case kContainerMpegTs192Z:
      return &video_ts_common;
    case kContainerAsf:
      return &video_asf_common;
    default:
      break;
  }
  if (strncmp(info->format, "avi", sizeof(info->format)) == 0) return &video_avi_common;
  return nullptr;
}

bool isMpegStream(uint32_t container) {
  return container == kContainerMpegEs || container == kContainerMpegPs ||
         container == kContainerMpegTs188 || container == kContainerMpegTs192 ||
         container == kContainerMpegTs192Z;
}

// The rules an MPEG stream's video codec has of its own.
struct StreamRule {
  uint32_t codec;
  DlnaDecideFn decide;
};

constexpr StreamRule kMpegStreamRules[] = {
    {kMediaCodecMpeg2Video, probe_media_mpeg2},
    {kMediaCodecH264, probe_media_avc},
};

}  // namespace

uint32_t dlnaWmv9Level(const MediaInfo* info) {
  if (!info) return 0;
  for (size_t level = 0; level < std::size(kWmv9Levels); ++level) {
    const Wmv9Level& table = kWmv9Levels[level];
    for (size_t i = 0; i < table.count; ++i) {
      if (fitsWmv9Row(table.rows[i], info)) return static_cast<uint32_t>(level + 1);
    }
  }
  return 0;
}

const DlnaProfile* probe_media_mpeg1(MediaInfo* info) {
  if (!info || !info->has_video || info->video_codec != kMediaCodecMpeg1Video) return nullptr;
  if (info->video_bit_rate > 1152000 || !isMpeg1Picture(info)) return &g_tExMmpeg1;
  bool vcdAudio = info->audio_codec == kMediaCodecMp2 && info->channels == 2 &&
                  info->sample_rate == 44100 && info->audio_bit_rate == 224000;
  return vcdAudio ? &g_tMpeg1 : &g_tExMmpeg1;
}

const DlnaProfile* probe_media_wmv(MediaInfo* info) {
  if (!info || !info->has_audio || !info->has_video) return nullptr;
  if (dlnaMediaStreamGetContainer(info) != kContainerAsf) return nullptr;
  if (info->video_codec == kMediaCodecWmv1 || info->video_codec == kMediaCodecWmv2) {
    return &wmv_ex;
  }
  if (info->video_codec != kMediaCodecWmv3) return nullptr;
  uint32_t level = dlnaWmv9Level(info);
  if (!level) return &wmv_ex;
  uint32_t audio = media_audio_profile_guess(info);
  if (!audio) return &wmv_ex;
  for (const WmvMapping* row = wmv_profiles_mapping; row->profile; ++row) {
    if (row->level == level && row->audio == audio) return row->profile;
  }
  return &wmv_ex;
}

const DlnaProfile* probe_mkv(MediaInfo* info) {
  if (!info) return nullptr;
  if (info->video_codec != kMediaCodecH264) return &T_MKV_NORMAL;
  uint32_t profile = mkvAvcProfile(info);
  if (profile != 100 && profile != 77) return &T_MKV_NORMAL;
  bool high = profile == 100;
  uint32_t r = info->sample_rate;
  uint32_t c = info->channels;
  switch (info->audio_codec) {
    case kMediaCodecAac:
      if (r < 8000 || r > 48000 || c > 6) return &T_MKV_NORMAL;
      if (info->audio_config_size < 4) {
        return high ? &T_AVC_MKV_HP_HD_AAC_MULT5 : &T_AVC_MKV_MP_HD_AAC_MULT5;
      }
      return high ? &T_AVC_MKV_HP_HD_HEAAC_L4 : &T_AVC_MKV_MP_HD_HEAAC_L4;
    case kMediaCodecAc3:
      if (r < 32000 || r > 48000 || c > 5) return &T_MKV_NORMAL;
      return high ? &T_AVC_MKV_HP_HD_AC3 : &T_AVC_MKV_MP_HD_AC3;
    case kMediaCodecMp3:
      if (r < 16000 || r > 48000 || c > 2) return &T_MKV_NORMAL;
      return high ? &T_AVC_MKV_HP_HD_MPEG1_L3 : &T_AVC_MKV_MP_HD_MPEG1_L3;
    default:
      return &T_MKV_NORMAL;
  }
}

const DlnaProfile* probe_flv(MediaInfo* info) {
  return info ? &flv : nullptr;
}

const DlnaProfile* probe_avi(MediaInfo* info) {
  return info ? &avi : nullptr;
}

const DlnaProfile* probe_media_mpeg4_part2(MediaInfo* info) {
  if (!info || !info->has_video || info->video_codec != kMediaCodecMpeg4) return nullptr;
  return commonByContainer(info);
}

const DlnaProfile* probe_media_vc1(MediaInfo* info) {
  if (!info || !info->has_video) return nullptr;
  // WMV3 is VC-1's simple and main profiles: an ASF file the WMV9 rules did
  // not take (no audio, say) is still published.
  if (info->video_codec == kMediaCodecVc1 || info->video_codec == kMediaCodecWmv3) {
    return commonByContainer(info);
  }
  // Camcorders and disc rips name their MPEG-2 and H.264 streams ".m2ts",
  // which only this parser takes: judge them as the same stream named ".ts".
  if (!isMpegStream(dlnaMediaStreamGetContainer(info))) return nullptr;
  for (const StreamRule& rule : kMpegStreamRules) {
    if (rule.codec != info->video_codec) continue;
    if (const DlnaProfile* profile = rule.decide(info)) return profile;
  }
  return commonByContainer(info);
}

const DlnaProfile* parse_mpeg1(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_media_mpeg1, result, path, kMediaFileMpeg1);
}

const DlnaProfile* parse_wmv9(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_media_wmv, result, path, kMediaFileWmv);
}

const DlnaProfile* parse_mkv(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_mkv, result, path, kMediaFileMkv);
}

const DlnaProfile* parse_flv(DlnaMediaResult* result, const char* path) {
  if (!_dlnaMatchFileExt(path, "flv")) return nullptr;
  return dlnaParseMediaProfile(probe_flv, result, path, kMediaFileFlv);
}

const DlnaProfile* parse_avi(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_avi, result, path, kMediaFileAvi);
}

const DlnaProfile* parse_mpeg4_part2(DlnaMediaResult* result, const char* path) {
  uint32_t kind;
  if (_dlnaMatchFileExt(path, "mp4,mov,3gp,3gpp")) {
    kind = kMediaFileMp4;
  } else if (_dlnaMatchFileExt(path, "mpg,mpeg,mpe,ts,ps,tts")) {
    kind = kMediaFileMpeg2;
  } else {
    return nullptr;
  }
  return dlnaParseMediaProfile(probe_media_mpeg4_part2, result, path, kind);
}

const DlnaProfile* parse_vc1(DlnaMediaResult* result, const char* path) {
  uint32_t kind;
  if (_dlnaMatchFileExt(path, "mpg,mpeg,mpe,ts,ps,tts,evo,vob,m2ts")) {
    kind = kMediaFileMpeg2;
  } else if (_dlnaMatchFileExt(path, "asf,wmv")) {
    kind = kMediaFileWmv;
  } else if (_dlnaMatchFileExt(path, "avi")) {
    kind = kMediaFileAvi;
  } else {
    return nullptr;
  }
  return dlnaParseMediaProfile(probe_media_vc1, result, path, kind);
}
