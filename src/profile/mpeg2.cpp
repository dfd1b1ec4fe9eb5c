// MPEG-2 video rules: program and elementary streams for PAL and NTSC, and
// transport streams for Europe, North America and Japan in their three
// packagings; and the MPEG-2 parse operation.
#include "profile/mpeg2.h"

#include "profile/audio.h"

namespace {

constexpr char kMpeg[] = "video/mpeg";
constexpr char kTts[] = "video/vnd.dlna.mpeg-tts";

// clang-format off
constexpr DlnaProfile mpeg_es_pal = {"MPEG_ES_PAL", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_es_pal_xac3 = {"MPEG_ES_PAL_XAC3", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_es_ntsc = {"MPEG_ES_NTSC", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_es_ntsc_xac3 = {"MPEG_ES_NTSC_XAC3", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ps_pal = {"MPEG_PS_PAL", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ps_pal_xac3 = {"MPEG_PS_PAL_XAC3", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ps_ntsc = {"MPEG_PS_NTSC", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ps_ntsc_xac3 = {"MPEG_PS_NTSC_XAC3", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_eu = {"MPEG_TS_SD_EU", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_eu_t = {"MPEG_TS_SD_EU_T", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_eu_iso = {"MPEG_TS_SD_EU_ISO", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_na = {"MPEG_TS_SD_NA", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_na_t = {"MPEG_TS_SD_NA_T", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_na_iso = {"MPEG_TS_SD_NA_ISO", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_na_xac3 = {"MPEG_TS_SD_NA_XAC3", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_na_xac3_t = {"MPEG_TS_SD_NA_XAC3_T", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_sd_na_xac3_iso = {"MPEG_TS_SD_NA_XAC3_ISO", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_hd_na = {"MPEG_TS_HD_NA", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_hd_na_t = {"MPEG_TS_HD_NA_T", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_hd_na_iso = {"MPEG_TS_HD_NA_ISO", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_hd_na_xac3 = {"MPEG_TS_HD_NA_XAC3", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_hd_na_xac3_t = {"MPEG_TS_HD_NA_XAC3_T", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_hd_na_xac3_iso = {"MPEG_TS_HD_NA_XAC3_ISO", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_mp_ll_aac = {"MPEG_TS_MP_LL_AAC", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_mp_ll_aac_t = {"MPEG_TS_MP_LL_AAC_T", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_mp_ll_aac_iso = {"MPEG_TS_MP_LL_AAC_ISO", kMpeg, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ts_jp_t = {"MPEG_TS_JP_T", kTts, kDlnaClassVideo};
constexpr DlnaProfile mpeg_ex = {kDlnaNonDlna, kMpeg, kDlnaClassVideo};

struct Picture {
  uint16_t width;
  uint16_t height;
};

constexpr Picture mpeg_ps_es_valid_streams_ntsc[] = {
    {720, 480}, {704, 480}, {544, 480}, {480, 480}, {352, 480}, {352, 240},
};

constexpr Picture mpeg_ps_es_valid_streams_pal[] = {
    {720, 576}, {704, 576}, {544, 576}, {480, 576}, {352, 576}, {352, 288},
};

struct TsStream {
  uint16_t width;
  uint16_t height;
  uint32_t num;
  uint32_t den;
};

constexpr TsStream mpeg_ts_valid_streams_jp_t[] = {
    {1920, 1080, 30, 1}, {1920, 1080, 30000, 1001},
    {1440, 1080, 30, 1}, {1440, 1080, 30000, 1001},
    {1280, 720, 30, 1},  {1280, 720, 30000, 1001},
    {1280, 720, 60, 1},  {1280, 720, 60000, 1001},
    {720, 480, 30, 1},   {720, 480, 30000, 1001},
    {720, 480, 60, 1},   {720, 480, 60000, 1001},
    {544, 480, 30, 1},   {544, 480, 30000, 1001},
    {480, 480, 30, 1},   {480, 480, 30000, 1001},
};

constexpr TsStream mpeg_ts_valid_streams_eu_sd[] = {
    {720, 576, 25, 1},
    {544, 576, 25, 1},
    {480, 576, 25, 1},
    {352, 576, 25, 1},
    {352, 288, 25, 1},
};

constexpr TsStream mpeg_ts_valid_streams_na_sd[] = {
    {720, 480, 30000, 1001},
    {704, 480, 30000, 1001}, {704, 480, 30, 1}, {704, 480, 60000, 1001},
    {704, 480, 60, 1},       {704, 480, 24000, 1001}, {704, 480, 24, 1},
    {640, 480, 60000, 1001}, {640, 480, 60, 1}, {640, 480, 30000, 1001},
    {640, 480, 30, 1},       {640, 480, 24000, 1001}, {640, 480, 24, 1},
    {544, 480, 30000, 1001},
    {480, 480, 30000, 1001},
    {352, 480, 30000, 1001},
};

constexpr TsStream mpeg_ts_valid_streams_na_hd[] = {
    {1920, 1080, 30000, 1001}, {1920, 1080, 30, 1}, {1920, 1080, 24000, 1001}, {1920, 1080, 24, 1},
    {1440, 1080, 30000, 1001}, {1440, 1080, 30, 1}, {1440, 1080, 24000, 1001}, {1440, 1080, 24, 1},
    {1280, 1080, 30000, 1001}, {1280, 1080, 30, 1}, {1280, 1080, 24000, 1001}, {1280, 1080, 24, 1},
    {1280, 720, 60000, 1001},  {1280, 720, 60, 1},  {1280, 720, 30000, 1001},  {1280, 720, 30, 1},
    {1280, 720, 24000, 1001},  {1280, 720, 24, 1},
};

// One record per transport packaging: 188-byte, 192-byte with time stamps,
// 192-byte with zero time stamps.
struct TsRecords {
  const DlnaProfile* iso;
  const DlnaProfile* timed;
  const DlnaProfile* plain;
};

constexpr TsRecords kTsSdEu = {&mpeg_ts_sd_eu_iso, &mpeg_ts_sd_eu_t, &mpeg_ts_sd_eu};
constexpr TsRecords kTsSdNa = {&mpeg_ts_sd_na_iso, &mpeg_ts_sd_na_t, &mpeg_ts_sd_na};
constexpr TsRecords kTsSdNaXac3 = {&mpeg_ts_sd_na_xac3_iso, &mpeg_ts_sd_na_xac3_t, &mpeg_ts_sd_na_xac3};
constexpr TsRecords kTsHdNa = {&mpeg_ts_hd_na_iso, &mpeg_ts_hd_na_t, &mpeg_ts_hd_na};
constexpr TsRecords kTsHdNaXac3 = {&mpeg_ts_hd_na_xac3_iso, &mpeg_ts_hd_na_xac3_t, &mpeg_ts_hd_na_xac3};
constexpr TsRecords kTsMpLlAac = {&mpeg_ts_mp_ll_aac_iso, &mpeg_ts_mp_ll_aac_t, &mpeg_ts_mp_ll_aac};
// clang-format on

const DlnaProfile* packaged(const TsRecords& records, uint32_t container) {
  switch (container) {
    case kContainerMpegTs188:
      return records.iso;
    case kContainerMpegTs192:
      return records.timed;
    default:
      return records.plain;
  }
}

template <size_t N>
bool hasPicture(const Picture (&list)[N], const MediaInfo* info) {
  for (const Picture& p : list) {
    if (p.width == info->video_width && p.height == info->video_height) return true;
  }
  return false;
}

template <size_t N>
bool hasStream(const TsStream (&list)[N], const MediaInfo* info) {
  for (const TsStream& s : list) {
    if (s.width == info->video_width && s.height == info->video_height &&
        s.num == info->frame_rate_num && s.den == info->frame_rate_den) {
      return true;
    }
  }
  return false;
}

bool isRate(const MediaInfo* info, uint32_t num, uint32_t den) {
  return info->frame_rate_num == num && info->frame_rate_den == den;
}

const DlnaProfile* probeTsOther(const MediaInfo* info, uint32_t container) {
  if (isRate(info, 25, 1)) {
    bool audio = media_audio_profile_guess_ac3(info) == kAudioAc3 ||
                 media_audio_profile_guess_mp2(info) == kAudioMp2 ||
                 media_audio_profile_guess_mp1(info) == kAudioMp1;
    if (!hasStream(mpeg_ts_valid_streams_eu_sd, info) || !audio) return &mpeg_ex;
    return packaged(kTsSdEu, container);
  }
  bool ac3 = info->audio_codec == kMediaCodecAc3 && info->sample_rate == 48000 &&
             info->channels <= 5 && info->audio_bit_rate <= 640000;
  if (!ac3) return &mpeg_ex;
  bool xac3 = info->audio_bit_rate > 448000;
  if (hasStream(mpeg_ts_valid_streams_na_sd, info)) {
    return packaged(xac3 ? kTsSdNaXac3 : kTsSdNa, container);
  }
  if (hasStream(mpeg_ts_valid_streams_na_hd, info)) {
    return packaged(xac3 ? kTsHdNaXac3 : kTsHdNa, container);
  }
  return &mpeg_ex;
}

const DlnaProfile* probeTsAac(const MediaInfo* info, uint32_t container) {
  // 30 frames per second with the 288-line picture is the rule as it stands.
  if (info->video_width == 352 && info->video_height == 288 && isRate(info, 30, 1) &&
      info->video_bit_rate <= 4000000 && info->audio_bit_rate <= 256000) {
    return packaged(kTsMpLlAac, container);
  }
  // Whatever the packaging, and without looking at the audio any further.
  return hasStream(mpeg_ts_valid_streams_jp_t, info) ? &mpeg_ts_jp_t : &mpeg_ex;
}

}  // namespace

int32_t is_media_mpeg_ps_es_audio_stream_lpcm(const MediaInfo* info) {
  if (!info || media_audio_profile_guess_lpcm(info) != kAudioLpcm) return 0;
  if (info->channels == 2 && info->audio_bit_rate > 1536000) return 0;
  if (info->channels == 1 && info->audio_bit_rate > 768000) return 0;
  return 1;
}

int32_t is_media_mpeg_ps_es_audio_stream_mp2(const MediaInfo* info) {
  if (!info || media_audio_profile_guess_mp2(info) != kAudioMp2 || info->channels > 2) return 0;
  uint32_t b = info->audio_bit_rate;
  if (info->channels == 1 && (b < 64000 || b > 192000)) return 0;
  if (info->channels == 2 && (b < 64000 || b > 384000)) return 0;
  return 1;
}

const DlnaProfile* probe_media_mpeg_ps_es(const MediaInfo* info, const DlnaProfile* pal,
                                          const DlnaProfile* palXac3, const DlnaProfile* ntsc,
                                          const DlnaProfile* ntscXac3) {
  if (!info) return nullptr;
  const DlnaProfile* plain;
  const DlnaProfile* xac3;
  if (isRate(info, 30000, 1001)) {
    if (!hasPicture(mpeg_ps_es_valid_streams_ntsc, info)) return nullptr;
    plain = ntsc;
    xac3 = ntscXac3;
  } else if (isRate(info, 25, 1)) {
    if (!hasPicture(mpeg_ps_es_valid_streams_pal, info)) return nullptr;
    plain = pal;
    xac3 = palXac3;
  } else {
    return nullptr;
  }
  uint32_t ac3 = media_audio_profile_guess_ac3(info);
  if (ac3 == kAudioAc3Extended) return xac3;
  if (is_media_mpeg_ps_es_audio_stream_lpcm(info) || ac3 == kAudioAc3 ||
      is_media_mpeg_ps_es_audio_stream_mp2(info)) {
    return plain;
  }
  if (media_audio_profile_guess_mp1(info) == kAudioMp1 && info->channels <= 5) return plain;
  return nullptr;
}

const DlnaProfile* probe_media_mpeg2(MediaInfo* info) {
  if (!info || !info->has_audio || !info->has_video) return nullptr;
  if (info->video_codec != kMediaCodecMpeg2Video) return nullptr;
  uint32_t container = dlnaMediaStreamGetContainer(info);
  const DlnaProfile* profile = nullptr;
  switch (container) {
    case kContainerMpegEs:
      profile = probe_media_mpeg_ps_es(info, &mpeg_es_pal, &mpeg_es_pal_xac3, &mpeg_es_ntsc,
                                       &mpeg_es_ntsc_xac3);
      break;
    case kContainerMpegPs:
      profile = probe_media_mpeg_ps_es(info, &mpeg_ps_pal, &mpeg_ps_pal_xac3, &mpeg_ps_ntsc,
                                       &mpeg_ps_ntsc_xac3);
      break;
    case kContainerMpegTs188:
    case kContainerMpegTs192:
    case kContainerMpegTs192Z:
      profile = info->audio_codec == kMediaCodecAac ? probeTsAac(info, container)
                                                    : probeTsOther(info, container);
      break;
    default:
      break;
  }
  return profile ? profile : &mpeg_ex;
}

const DlnaProfile* parse_mpeg2(DlnaMediaResult* result, const char* path) {
  if (!_dlnaMatchFileExt(path, "mpg,mpeg,mpe,m2v,mp2p,mp2t,ts,tts,ps,pes,vob")) return nullptr;
  return dlnaParseMediaProfile(probe_media_mpeg2, result, path, kMediaFileMpeg2);
}
