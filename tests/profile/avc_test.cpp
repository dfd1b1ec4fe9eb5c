// AVC rules over MediaInfo values built here: the profile classes at their
// thresholds, then the mapping by container, class and audio, and the
// fallbacks by container.
#include "profile/avc.h"

#include <gtest/gtest.h>

#include "profile_test_util.h"

namespace {

using profile_test::Want;

TEST(ProfileAvc, ClassesAtTheirThresholds) {
  // clang-format off
  const struct { const char* what; uint16_t w, h; uint32_t v, b, fps; uint32_t want; } cases[] = {
      {"320x240 low rate", 320, 240, 384000, 600000, 30, 3},
      {"qcif, v 12", 176, 144, 12, 256000, 15, 1},
      {"qcif, v 12, 30 fps", 176, 144, 12, 256000, 30, 2},
      {"qcif, v 13", 176, 144, 13, 256000, 15, 5},
      {"cif 540k", 352, 288, 500000, 540000, 15, 6},
      {"cif 600k", 352, 288, 384000, 600000, 15, 4},
      {"cif 600k, v 384001", 352, 288, 384001, 600000, 15, 9},
      {"cif 1.3M", 352, 288, 500000, 1300000, 30, 7},
      {"cif 3M", 352, 288, 2000000, 3000000, 30, 8},
      {"cif 3M+1 goes on to sd", 352, 288, 2000000, 3000001, 30, 12},
      {"cif v 2M+1 goes on to sd", 352, 288, 2000001, 2500000, 30, 12},
      {"l3 sd", 720, 576, 4000000, 4500000, 25, 11},
      {"sd not l3", 704, 576, 3000000, 3500000, 25, 12},
      {"sd above 4M", 720, 576, 4000001, 4500000, 25, 12},
      {"sd above 10M is hd size only", 720, 576, 10000001, 12000000, 25, 13},
      {"hd", 1280, 720, 15000000, 16000000, 30, 13},
      {"hd by height", 1000, 480, 3000000, 3500000, 30, 13},
      {"no size rule", 1000, 500, 3000000, 3500000, 30, 0},
      {"above 20M", 1920, 1080, 20000001, 22000000, 30, 0},
  };
  // clang-format on
  for (const auto& c : cases) {
    auto info = profile_test::newInfo();
    info->video_width = c.w;
    info->video_height = c.h;
    info->video_max_bit_rate = c.v;
    info->bit_rate = c.b;
    info->frame_rate = c.fps;
    EXPECT_EQ(dlnaAvcProfileClass(info.get()), c.want) << c.what;
  }

  // An unknown video rate is the whole-file rate less the audio, kept in the record.
  auto info = profile_test::newInfo();
  info->video_width = 320;
  info->video_height = 240;
  info->bit_rate = 580000;
  info->audio_max_bit_rate = 200000;
  EXPECT_EQ(dlnaAvcProfileClass(info.get()), 3u);
  EXPECT_EQ(info->video_max_bit_rate, 380000u);
}

// Audio settings that give the named audio profile numbers.
struct Audio {
  uint32_t codec;
  uint32_t rate;
  uint16_t channels;
  uint32_t bitRate;
  uint8_t objectType;
};
constexpr Audio kAac = {kMediaCodecAac, 44100, 2, 400000, 2};       // 1
constexpr Audio kAac320 = {kMediaCodecAac, 44100, 2, 128000, 2};    // 2
constexpr Audio kAacMult5 = {kMediaCodecAac, 48000, 6, 384000, 2};  // 3
constexpr Audio kHeaac320 = {kMediaCodecAac, 24000, 2, 64000, 5};   // 7
constexpr Audio kAc3 = {kMediaCodecAc3, 48000, 2, 384000, 0};       // 17
constexpr Audio kAmr = {kMediaCodecAmrNb, 8000, 1, 12200, 0};       // 19
constexpr Audio kDts = {kMediaCodecDts, 48000, 6, 768000, 0};       // none

TEST(ProfileAvc, MappingAndFallbacks) {
  constexpr char kTts[] = "video/vnd.dlna.mpeg-tts";
  // clang-format off
  // container: the MPEG packaging the file's first bytes show; 0 for others.
  const struct { const char* what; const char* format; uint32_t container; const char* path;
                 uint16_t w, h; uint32_t v, b; Audio audio; Want want;
                 uint32_t vcodec = kMediaCodecH264; } cases[] = {
      {"class 3 has no aac row", "mp4", 0, "/v/a.mp4", 320, 240, 300000, 500000, kAac, {"NON-DLNA", "video/mp4"}},
      {"l3 sd 5ch aac", "mp4", 0, "/v/a.mp4", 720, 576, 3000000, 3500000, kAacMult5, {"NON-DLNA", "video/mp4"}},
      {"l3 sd aac", "mp4", 0, "/v/a.mp4", 720, 576, 3000000, 3500000, kAac, {"AVC_MP4_BL_L3_SD_AAC", "video/mp4"}},
      {"l3 sd aac 320 as aac", "mp4", 0, "/v/a.mp4", 720, 576, 3000000, 3500000, kAac320, {"AVC_MP4_BL_L3_SD_AAC", "video/mp4"}},
      {"mp sd he-aac 320 as he-aac", "mp4", 0, "/v/a.mp4", 720, 576, 5000000, 5500000, kHeaac320, {"AVC_MP4_MP_SD_HEAAC_L2", "video/mp4"}},
      {"hd ac3 timed", "mpegts", kContainerMpegTs192, nullptr, 1280, 720, 15000000, 16000000, kAc3, {"AVC_TS_MP_HD_AC3_T", kTts}},
      {"hd ac3 iso", "mpegts", kContainerMpegTs188, nullptr, 1280, 720, 15000000, 16000000, kAc3, {"AVC_TS_MP_HD_AC3_ISO", "video/mpeg"}},
      {"hd aac zero stamps", "mpegts", kContainerMpegTs192Z, nullptr, 1920, 1080, 12000000, 12400000, kAac320, {"AVC_TS_MP_HD_AAC", kTts}},
      {"cif 540 aac", "mpegts", kContainerMpegTs188, nullptr, 352, 288, 400000, 530000, kAac, {"AVC_TS_BL_CIF15_AAC_540_ISO", "video/mpeg"}},
      {"program stream", "mpeg", kContainerMpegPs, nullptr, 720, 576, 3000000, 3500000, kAc3, {"NON-DLNA", "video/mpeg"}},
      {"no audio rule", "mpegts", kContainerMpegTs192Z, nullptr, 1280, 720, 15000000, 16000000, kDts, {"NON-DLNA", kTts}},
      {"too fast", "mp4", 0, "/v/a.mp4", 1920, 1080, 25000000, 26000000, kAac, {"NON-DLNA", "video/mp4"}},
      {"3gpp qcif amr", "3gp", 0, "/v/a.3gp", 176, 144, 12, 200000, kAmr, {"AVC_3GPP_BL_QCIF15_AMR", "video/3gpp"}},
      {"elementary stream", "mpeg", kContainerMpegEs, nullptr, 720, 576, 3000000, 3500000, kAac, {nullptr, nullptr}},
      {"matroska", "matroska", 0, nullptr, 720, 576, 3000000, 3500000, kAac, {nullptr, nullptr}},
      {"mpeg-4 video", "mp4", 0, "/v/a.mp4", 720, 576, 3000000, 3500000, kAac, {nullptr, nullptr}, kMediaCodecMpeg4},
  };
  // clang-format on
  for (const auto& c : cases) {
    auto info = profile_test::newInfo(c.format);
    info->path = c.path;
    if (c.container) profile_test::setMpegContainer(info.get(), c.container, c.format);
    info->has_video = 1;
    info->video_codec = c.vcodec;
    info->video_width = c.w;
    info->video_height = c.h;
    info->video_max_bit_rate = c.v;
    info->bit_rate = c.b;
    info->frame_rate = 15;
    info->has_audio = 1;
    info->audio_codec = c.audio.codec;
    info->sample_rate = c.audio.rate;
    info->channels = c.audio.channels;
    info->audio_bit_rate = c.audio.bitRate;
    info->audio_config_size = c.audio.objectType ? 2 : 0;
    info->audio_config[0] = static_cast<uint8_t>(c.audio.objectType << 3);
    profile_test::expectProfile(probe_media_avc(info.get()), c.want, c.what);
  }
  EXPECT_EQ(probe_media_avc(nullptr), nullptr);
}

}  // namespace
