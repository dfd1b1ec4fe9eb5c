// AVC (H.264) video rules: the profile class of a stream, the mapping of
// (container, class, audio) to a DLNA profile, the NON-DLNA fallbacks by
// container, and the AVC parse operation.
#include "profile/avc.h"

#include <iterator>

#include "profile/audio.h"

namespace {

constexpr char kMp4[] = "video/mp4";
constexpr char kTts[] = "video/vnd.dlna.mpeg-tts";
constexpr char kMpeg[] = "video/mpeg";
constexpr char k3gpp[] = "video/3gpp";

struct Resolution {
  uint16_t width;
  uint16_t height;
};

// clang-format off
constexpr Resolution profile_cif_res[] = {
    {352, 288}, {352, 240}, {320, 240}, {320, 180}, {240, 180}, {240, 135}, {208, 160},
    {176, 144}, {176, 120}, {160, 120}, {160, 112}, {160, 90},  {128, 96},
};

constexpr Resolution profile_mp_l3_sd_res[] = {
    {720, 576}, {720, 480}, {640, 480}, {640, 360},
};

constexpr Resolution profile_mp_sd_res[] = {
    {720, 576}, {720, 480}, {704, 576}, {704, 480}, {640, 480}, {640, 360}, {544, 576},
    {544, 480}, {480, 576}, {480, 480}, {480, 360}, {480, 270}, {352, 576}, {352, 480},
    {352, 288}, {352, 240}, {320, 240}, {320, 180}, {240, 180}, {208, 160}, {176, 144},
    {176, 120}, {160, 120}, {160, 112}, {160, 90},  {128, 96},
};

constexpr Resolution profile_mp_hd_res[] = {
    {1920, 1080}, {1920, 1152}, {1920, 540}, {1280, 720},
};
// clang-format on

// Profile classes the decision produces (10 never is; its rows are kept).
enum AvcClass : uint32_t {
  kAvcNone = 0,
  kAvcQcif15 = 1,
  kAvcL1bQcif15 = 2,
  kAvcL12Cif15 = 3,
  kAvcCif15 = 4,
  kAvcCif15_520 = 5,
  kAvcCif15_540 = 6,
  kAvcL2Cif30 = 7,
  kAvcCif30 = 8,
  kAvcCif30_940 = 9,
  kAvcL3SdLow = 10,
  kAvcL3Sd = 11,
  kAvcMpSd = 12,
  kAvcMpHd = 13,
};

struct AvcMapping {
  DlnaProfile profile;
  uint32_t container;
  uint32_t avcClass;
  uint32_t audio;
};

// clang-format off
constexpr AvcMapping avc_profiles_mapping[] = {
    {{"AVC_MP4_MP_SD_AAC_MULT5", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 3},
    {{"AVC_MP4_MP_SD_HEAAC_L2", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 6},
    {{"AVC_MP4_MP_SD_MPEG1_L3", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 26},
    {{"AVC_MP4_MP_SD_AC3", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 17},
    {{"AVC_MP4_MP_SD_AAC_LTP", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 14},
    {{"AVC_MP4_MP_SD_AAC_LTP_MULT5", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 15},
    {{"AVC_MP4_MP_SD_AAC_LTP_MULT7", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 16},
    {{"AVC_MP4_MP_SD_ATRAC3plus", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 21},
    {{"AVC_MP4_MP_SD_BSAC", kMp4, kDlnaClassVideo}, kContainerMp4, 12, 4},
    {{"AVC_MP4_BL_L3L_SD_AAC", kMp4, kDlnaClassVideo}, kContainerMp4, 10, 1},
    {{"AVC_MP4_BL_L3L_SD_HEAAC", kMp4, kDlnaClassVideo}, kContainerMp4, 10, 6},
    {{"AVC_MP4_BL_L3_SD_AAC", kMp4, kDlnaClassVideo}, kContainerMp4, 11, 1},
    {{"AVC_MP4_BL_CIF30_AAC_MULT5", kMp4, kDlnaClassVideo}, kContainerMp4, 8, 3},
    {{"AVC_MP4_BL_CIF30_HEAAC_L2", kMp4, kDlnaClassVideo}, kContainerMp4, 8, 6},
    {{"AVC_MP4_BL_CIF30_MPEG1_L3", kMp4, kDlnaClassVideo}, kContainerMp4, 8, 26},
    {{"AVC_MP4_BL_CIF30_AC3", kMp4, kDlnaClassVideo}, kContainerMp4, 8, 17},
    {{"AVC_MP4_BL_CIF30_AAC_LTP", kMp4, kDlnaClassVideo}, kContainerMp4, 8, 14},
    {{"AVC_MP4_BL_CIF30_AAC_LTP_MULT5", kMp4, kDlnaClassVideo}, kContainerMp4, 8, 15},
    {{"AVC_MP4_BL_CIF30_BSAC", kMp4, kDlnaClassVideo}, kContainerMp4, 8, 4},
    {{"AVC_MP4_BL_CIF30_BSAC_MULT5", kMp4, kDlnaClassVideo}, kContainerMp4, 8, 5},
    {{"AVC_MP4_BL_L2_CIF30_AAC", kMp4, kDlnaClassVideo}, kContainerMp4, 7, 1},
    {{"AVC_MP4_BL_CIF15_HEAAC", kMp4, kDlnaClassVideo}, kContainerMp4, 4, 6},
    {{"AVC_MP4_BL_CIF15_AMR", kMp4, kDlnaClassVideo}, kContainerMp4, 4, 19},
    {{"AVC_MP4_BL_CIF15_AAC", kMp4, kDlnaClassVideo}, kContainerMp4, 4, 1},
    {{"AVC_MP4_BL_CIF15_AAC_LTP", kMp4, kDlnaClassVideo}, kContainerMp4, 4, 14},
    {{"AVC_MP4_BL_CIF15_BSAC", kMp4, kDlnaClassVideo}, kContainerMp4, 4, 4},
    {{"AVC_MP4_BL_CIF15_AAC_520", kMp4, kDlnaClassVideo}, kContainerMp4, 5, 1},
    {{"AVC_MP4_BL_CIF15_AAC_LTP_520", kMp4, kDlnaClassVideo}, kContainerMp4, 5, 14},
    {{"AVC_MP4_BL_L12_CIF15_HEAAC", kMp4, kDlnaClassVideo}, kContainerMp4, 3, 6},
    {{"AVC_MP4_BL_L1B_QCIF15_HEAAC", kMp4, kDlnaClassVideo}, kContainerMp4, 2, 6},
    {{"AVC_TS_MP_SD_AAC_MULT5", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 12, 3},
    {{"AVC_TS_MP_SD_HEAAC_L2", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 12, 6},
    {{"AVC_TS_MP_SD_MPEG1_L3", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 12, 26},
    {{"AVC_TS_MP_SD_AC3", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 12, 17},
    {{"AVC_TS_MP_SD_AAC_LTP", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 12, 14},
    {{"AVC_TS_MP_SD_AAC_LTP_MULT5", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 12, 15},
    {{"AVC_TS_MP_SD_AAC_LTP_MULT7", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 12, 16},
    {{"AVC_TS_MP_SD_BSAC", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 12, 4},
    {{"AVC_TS_MP_SD_AAC_MULT5_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 12, 3},
    {{"AVC_TS_MP_SD_HEAAC_L2_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 12, 6},
    {{"AVC_TS_MP_SD_MPEG1_L3_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 12, 26},
    {{"AVC_TS_MP_SD_AC3_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 12, 17},
    {{"AVC_TS_MP_SD_AAC_LTP_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 12, 14},
    {{"AVC_TS_MP_SD_AAC_LTP_MULT5_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 12, 15},
    {{"AVC_TS_MP_SD_AAC_LTP_MULT7_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 12, 16},
    {{"AVC_TS_MP_SD_BSAC_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 12, 4},
    {{"AVC_TS_MP_SD_AAC_MULT5_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 12, 3},
    {{"AVC_TS_MP_SD_HEAAC_L2_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 12, 6},
    {{"AVC_TS_MP_SD_MPEG1_L3_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 12, 26},
    {{"AVC_TS_MP_SD_AC3_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 12, 17},
    {{"AVC_TS_MP_SD_AAC_LTP_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 12, 14},
    {{"AVC_TS_MP_SD_AAC_LTP_MULT5_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 12, 15},
    {{"AVC_TS_MP_SD_AAC_LTP_MULT7_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 12, 16},
    {{"AVC_TS_MP_SD_BSAC_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 12, 4},
    {{"AVC_TS_BL_CIF30_AAC_MULT5", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 8, 3},
    {{"AVC_TS_BL_CIF30_HEAAC_L2", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 8, 6},
    {{"AVC_TS_BL_CIF30_MPEG1_L3", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 8, 26},
    {{"AVC_TS_BL_CIF30_AC3", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 8, 17},
    {{"AVC_TS_BL_CIF30_AAC_LTP", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 8, 14},
    {{"AVC_TS_BL_CIF30_AAC_LTP_MULT5", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 8, 15},
    {{"AVC_TS_BL_CIF30_AAC_MULT5_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 8, 3},
    {{"AVC_TS_BL_CIF30_HEAAC_L2_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 8, 6},
    {{"AVC_TS_BL_CIF30_MPEG1_L3_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 8, 26},
    {{"AVC_TS_BL_CIF30_AC3_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 8, 17},
    {{"AVC_TS_BL_CIF30_AAC_LTP_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 8, 14},
    {{"AVC_TS_BL_CIF30_AAC_LTP_MULT5_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 8, 15},
    {{"AVC_TS_BL_CIF30_AAC_MULT5_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 8, 3},
    {{"AVC_TS_BL_CIF30_HEAAC_L2_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 8, 6},
    {{"AVC_TS_BL_CIF30_MPEG1_L3_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 8, 26},
    {{"AVC_TS_BL_CIF30_AC3_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 8, 17},
    {{"AVC_TS_BL_CIF30_AAC_LTP_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 8, 14},
    {{"AVC_TS_BL_CIF30_AAC_LTP_MULT5_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 8, 15},
    {{"AVC_TS_BL_CIF30_AAC_940", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 9, 1},
    {{"AVC_TS_BL_CIF30_AAC_940_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 9, 1},
    {{"AVC_TS_BL_CIF30_AAC_940_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 9, 1},
    {{"AVC_TS_MP_HD_AAC_MULT5", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 13, 3},
    {{"AVC_TS_MP_HD_HEAAC_L2", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 13, 6},
    {{"AVC_TS_MP_HD_MPEG1_L3", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 13, 26},
    {{"AVC_TS_MP_HD_AC3", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 13, 17},
    {{"AVC_TS_MP_HD_AAC", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 13, 1},
    {{"AVC_TS_MP_HD_AAC_LTP", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 13, 14},
    {{"AVC_TS_MP_HD_AAC_LTP_MULT5", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 13, 15},
    {{"AVC_TS_MP_HD_AAC_LTP_MULT7", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 13, 16},
    {{"AVC_TS_MP_HD_AAC_MULT5_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 13, 3},
    {{"AVC_TS_MP_HD_HEAAC_L2_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 13, 6},
    {{"AVC_TS_MP_HD_MPEG1_L3_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 13, 26},
    {{"AVC_TS_MP_HD_AC3_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 13, 17},
    {{"AVC_TS_MP_HD_AAC_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 13, 1},
    {{"AVC_TS_MP_HD_AAC_LTP_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 13, 14},
    {{"AVC_TS_MP_HD_AAC_LTP_MULT5_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 13, 15},
    {{"AVC_TS_MP_HD_AAC_LTP_MULT7_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 13, 16},
    {{"AVC_TS_MP_HD_AAC_MULT5_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 13, 3},
    {{"AVC_TS_MP_HD_HEAAC_L2_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 13, 6},
    {{"AVC_TS_MP_HD_MPEG1_L3_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 13, 26},
    {{"AVC_TS_MP_HD_AC3_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 13, 17},
    {{"AVC_TS_MP_HD_AAC_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 13, 1},
    {{"AVC_TS_MP_HD_AAC_LTP_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 13, 14},
    {{"AVC_TS_MP_HD_AAC_LTP_MULT5_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 13, 15},
    {{"AVC_TS_MP_HD_AAC_LTP_MULT7_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 13, 16},
    {{"AVC_TS_BL_CIF15_AAC", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 4, 1},
    {{"AVC_TS_BL_CIF15_AAC_LTP", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 4, 14},
    {{"AVC_TS_BL_CIF15_BSAC", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 4, 4},
    {{"AVC_TS_BL_CIF15_AAC_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 4, 1},
    {{"AVC_TS_BL_CIF15_AAC_LTP_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 4, 14},
    {{"AVC_TS_BL_CIF15_BSAC_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 4, 4},
    {{"AVC_TS_BL_CIF15_AAC_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 4, 1},
    {{"AVC_TS_BL_CIF15_AAC_LTP_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 4, 14},
    {{"AVC_TS_BL_CIF15_BSAC_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 4, 4},
    {{"AVC_TS_BL_CIF15_AAC_540", kTts, kDlnaClassVideo}, kContainerMpegTs192Z, 6, 1},
    {{"AVC_TS_BL_CIF15_AAC_540_T", kTts, kDlnaClassVideo}, kContainerMpegTs192, 6, 1},
    {{"AVC_TS_BL_CIF15_AAC_540_ISO", kMpeg, kDlnaClassVideo}, kContainerMpegTs188, 6, 1},
    {{"AVC_3GPP_BL_CIF30_AMR_WBplus", k3gpp, kDlnaClassVideo}, kContainer3gpp, 8, 20},
    {{"AVC_3GPP_BL_CIF15_AMR_WBplus", k3gpp, kDlnaClassVideo}, kContainer3gpp, 4, 20},
    {{"AVC_3GPP_BL_QCIF15_AAC", k3gpp, kDlnaClassVideo}, kContainer3gpp, 1, 1},
    {{"AVC_3GPP_BL_QCIF15_AAC_LTP", k3gpp, kDlnaClassVideo}, kContainer3gpp, 1, 14},
    {{"AVC_3GPP_BL_QCIF15_HEAAC", k3gpp, kDlnaClassVideo}, kContainer3gpp, 1, 6},
    {{"AVC_3GPP_BL_QCIF15_AMR_WBplus", k3gpp, kDlnaClassVideo}, kContainer3gpp, 1, 20},
    {{"AVC_3GPP_BL_QCIF15_AMR", k3gpp, kDlnaClassVideo}, kContainer3gpp, 1, 19},
};
// clang-format on

constexpr DlnaProfile avc_3gp_common = {kDlnaNonDlna, k3gpp, kDlnaClassVideo};
constexpr DlnaProfile avc_mp4_common = {kDlnaNonDlna, kMp4, kDlnaClassVideo};
constexpr DlnaProfile avc_ps_common = {kDlnaNonDlna, kMpeg, kDlnaClassVideo};
constexpr DlnaProfile avc_ts_common = {kDlnaNonDlna, kTts, kDlnaClassVideo};

template <size_t N>
bool is_media_valid_video_profile(const Resolution (&list)[N], const MediaInfo* info) {
  for (const Resolution& r : list) {
    if (r.width == info->video_width && r.height == info->video_height) return true;
  }
  return false;
}

bool isHdPicture(const MediaInfo* info) {
  uint32_t w = info->video_width;
  uint32_t h = info->video_height;
  return is_media_valid_video_profile(profile_mp_hd_res, info) || w == 1920 || w == 1280 ||
         w == 720 || h == 1080 || h == 720 || h == 480;
}

// SD test, then HD test.
uint32_t sdOrHdClass(const MediaInfo* info) {
  if (is_media_valid_video_profile(profile_mp_sd_res, info)) return kAvcMpSd;
  return isHdPicture(info) ? kAvcMpHd : kAvcNone;
}

// Level 3 SD test and what follows it, by the video bit rate.
uint32_t levelThreeClass(const MediaInfo* info, uint32_t v) {
  if (v <= 4000000) {
    return is_media_valid_video_profile(profile_mp_l3_sd_res, info) ? kAvcL3Sd : sdOrHdClass(info);
  }
  if (v <= 10000000) return sdOrHdClass(info);
  if (v <= 20000000) return isHdPicture(info) ? kAvcMpHd : kAvcNone;
  return kAvcNone;
}

// The CIF classes; kAvcNone sends the stream on to the level 3 SD test.
uint32_t cifClass(const MediaInfo* info, uint32_t v, uint32_t b) {
  // A bit rate compared with 12: the rule as it stands.
  if (v <= 12 && b <= 256000) return info->frame_rate == 15 ? kAvcQcif15 : kAvcL1bQcif15;
  if (b <= 520000) return kAvcCif15_520;
  if (b <= 540000) return kAvcCif15_540;
  if (v <= 384000 && b <= 600000) return kAvcCif15;
  if (b <= 940000) return kAvcCif30_940;
  if (b <= 1300000) return kAvcL2Cif30;
  if (v <= 2000000 && b <= 3000000) return kAvcCif30;
  return kAvcNone;
}

const DlnaProfile* fallback(uint32_t container) {
  switch (container) {
    case kContainer3gpp:
      return &avc_3gp_common;
    case kContainerMp4:
      return &avc_mp4_common;
    case kContainerMpegPs:
      return &avc_ps_common;
    case kContainerMpegTs188:
    case kContainerMpegTs192:
    case kContainerMpegTs192Z:
      return &avc_ts_common;
    default:
      return nullptr;
  }
}

bool acceptedContainer(uint32_t container) {
  return container == kContainer3gpp || container == kContainerMp4 ||
         container == kContainerMpegPs || container == kContainerMpegTs188 ||
         container == kContainerMpegTs192 || container == kContainerMpegTs192Z;
}

}  // namespace

uint32_t dlnaAvcProfileClass(MediaInfo* info) {
  if (!info) return kAvcNone;
  if (info->video_max_bit_rate == 0) {
    info->video_max_bit_rate = info->bit_rate - info->audio_max_bit_rate;
  }
  uint32_t v = info->video_max_bit_rate;
  uint32_t b = info->bit_rate;
  if (v <= 384000 && b <= 600000 && info->video_width == 320 && info->video_height == 240) {
    return kAvcL12Cif15;
  }
  if (is_media_valid_video_profile(profile_cif_res, info)) {
    if (uint32_t cls = cifClass(info, v, b)) return cls;
  }
  return levelThreeClass(info, v);
}

const DlnaProfile* probe_media_avc(MediaInfo* info) {
  if (!info || !info->has_video || info->video_codec != kMediaCodecH264) return nullptr;
  uint32_t container = dlnaMediaStreamGetContainer(info);
  if (!acceptedContainer(container)) return nullptr;
  uint32_t cls = dlnaAvcProfileClass(info);
  if (!cls) return fallback(container);
  uint32_t audio = media_audio_profile_guess(info);
  if (audio == kAudioAac320) audio = kAudioAac;
  if (audio == kAudioHeaacL2_320) audio = kAudioHeaacL2;
  if (!audio) return fallback(container);
  for (const AvcMapping& row : avc_profiles_mapping) {
    if (row.container == container && row.avcClass == cls && row.audio == audio) {
      return &row.profile;
    }
  }
  return fallback(container);
}

const DlnaProfile* parse_avc(DlnaMediaResult* result, const char* path) {
  uint32_t kind;
  if (_dlnaMatchFileExt(path, "mp4,mov,3gp,3gpp,hdmov")) {
    kind = kMediaFileMp4;
  } else if (_dlnaMatchFileExt(path, "mpg,mpeg,mpe,ts,ps,tts")) {
    kind = kMediaFileMpeg2;
  } else {
    return nullptr;
  }
  return dlnaParseMediaProfile(probe_media_avc, result, path, kind);
}
