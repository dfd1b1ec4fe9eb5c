// Video rules over MediaInfo values built here: MPEG-2 program, elementary and
// transport streams, MPEG-1, WMV9 levels and mapping, Matroska H.264, FLV and
// AVI, and the container profiles of MPEG-4 part 2 and VC-1.
#include "profile/mpeg2.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "profile/video.h"
#include "profile_test_util.h"

namespace {

using profile_test::Want;

struct VideoCase {
  const DlnaProfile* (*probe)(MediaInfo*);
  Want want;
  const char* format;
  uint32_t sniffed;  // MPEG packaging the file's first bytes show; 0 none
  uint32_t vcodec, w, h, num, den, vrate;
  uint32_t acodec, rate, ch, abr;
  uint8_t hasAudio = 1;
  uint32_t configSize = 0;
  uint8_t avcProfile = 0, avcLevel = 0;
  uint32_t avcKept = 4;  // bytes of the decoder configuration the reader kept
  const char* path = nullptr;
};

void run(const VideoCase* cases, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const VideoCase& c = cases[i];
    auto info = profile_test::newInfo(c.format);
    info->path = c.path;
    if (c.sniffed) profile_test::setMpegContainer(info.get(), c.sniffed, c.format);
    info->has_video = 1;
    info->video_codec = c.vcodec;
    info->video_width = static_cast<uint16_t>(c.w);
    info->video_height = static_cast<uint16_t>(c.h);
    info->frame_rate_num = c.num;
    info->frame_rate_den = c.den;
    info->frame_rate = c.den ? c.num / c.den : 0;
    info->video_bit_rate = c.vrate;
    info->has_audio = c.hasAudio;
    info->audio_codec = c.acodec;
    info->sample_rate = c.rate;
    info->channels = static_cast<uint16_t>(c.ch);
    info->audio_bit_rate = c.abr;
    info->audio_config_size = c.configSize;
    if (c.avcProfile) {
      // The record's head: version, profile, compatibility, level.
      const uint8_t config[] = {1, c.avcProfile, 0x40, c.avcLevel, 0xFF, 0xE1};
      info->video_config_size = c.avcKept;
      memcpy(info->video_config, config, std::min<size_t>(c.avcKept, sizeof(config)));
    }
    profile_test::expectProfile(c.probe(info.get()), c.want, "row " + std::to_string(i));
  }
}

constexpr char kMpeg[] = "video/mpeg", kTts[] = "video/vnd.dlna.mpeg-tts",
               kWmv[] = "video/x-ms-wmv", kMkv[] = "video/x-matroska";
constexpr Want kNone = {nullptr, nullptr}, kMpegNon = {"NON-DLNA", kMpeg},
               kWmvNon = {"NON-DLNA", kWmv}, kMkvNon = {"NON-DLNA", kMkv};
constexpr uint32_t kM1v = kMediaCodecMpeg1Video, kM2v = kMediaCodecMpeg2Video,
                   kAc3 = kMediaCodecAc3, kMp2 = kMediaCodecMp2, kAac = kMediaCodecAac,
                   kS16 = kMediaCodecPcmS16Le, kWma2 = kMediaCodecWmaV2, kH264 = kMediaCodecH264,
                   kPs = kContainerMpegPs, kEs = kContainerMpegEs, k188 = kContainerMpegTs188,
                   k192 = kContainerMpegTs192, k192Z = kContainerMpegTs192Z;
constexpr auto m2 = probe_media_mpeg2;

TEST(ProfileVideo, Mpeg2Streams) {
  const VideoCase cases[] = {
      // clang-format off
      {m2, {"MPEG_PS_PAL", kMpeg}, "mpeg", kPs, kM2v, 720, 576, 25, 1, 5000000, kAc3, 48000, 2, 384000},
      {m2, {"MPEG_PS_PAL_XAC3", kMpeg}, "mpeg", kPs, kM2v, 720, 576, 25, 1, 5000000, kAc3, 48000, 2, 512000},
      {m2, kMpegNon, "mpeg", kPs, kM2v, 720, 576, 25, 1, 5000000, kAc3, 48000, 6, 384000},
      {m2, kMpegNon, "mpeg", kPs, kM2v, 720, 576, 24000, 1001, 5000000, kAc3, 48000, 2, 384000},
      {m2, kMpegNon, "mpeg", kPs, kM2v, 720, 576, 30000, 1001, 5000000, kAc3, 48000, 2, 384000},
      {m2, {"MPEG_PS_NTSC", kMpeg}, "mpeg", kPs, kM2v, 720, 480, 30000, 1001, 5000000, kS16, 48000, 2, 1536000},
      {m2, kMpegNon, "mpeg", kPs, kM2v, 720, 576, 25, 1, 5000000, kS16, 48000, 2, 1536001},
      {m2, {"MPEG_PS_PAL", kMpeg}, "mpeg", kPs, kM2v, 720, 576, 25, 1, 5000000, kS16, 48000, 1, 768000},
      {m2, {"MPEG_ES_PAL", kMpeg}, "mpeg", kEs, kM2v, 352, 288, 25, 1, 5000000, kMp2, 48000, 2, 384000},
      {m2, kMpegNon, "mpeg", kEs, kM2v, 352, 288, 25, 1, 5000000, kMp2, 48000, 1, 256000},
      {m2, {"MPEG_PS_PAL", kMpeg}, "mpeg", kPs, kM2v, 720, 576, 25, 1, 5000000, kMediaCodecMp1, 48000, 5, 448000},
      {m2, kNone, "mpeg", kPs, kM1v, 352, 288, 25, 1, 1000000, kMp2, 44100, 2, 224000},
      {m2, kNone, "mpeg", kPs, kM2v, 720, 576, 25, 1, 5000000, 0, 0, 0, 0, 0},
      {m2, kMpegNon, "mp4", 0, kM2v, 720, 576, 25, 1, 5000000, kAc3, 48000, 2, 384000},
      {m2, {"MPEG_TS_HD_NA", kTts}, "mpegts", k192Z, kM2v, 1920, 1080, 30000, 1001, 15000000, kAc3, 48000, 2, 448000},
      {m2, {"MPEG_TS_HD_NA_ISO", kMpeg}, "mpegts", k188, kM2v, 1920, 1080, 30000, 1001, 15000000, kAc3, 48000, 2, 384000},
      {m2, {"MPEG_TS_HD_NA_XAC3_T", kTts}, "mpegts", k192, kM2v, 1920, 1080, 30000, 1001, 15000000, kAc3, 48000, 2, 640000},
      {m2, kMpegNon, "mpegts", k192, kM2v, 1920, 1080, 30000, 1001, 15000000, kAc3, 48000, 2, 640001},
      {m2, kMpegNon, "mpegts", k192, kM2v, 1920, 1080, 30000, 1001, 15000000, kAc3, 44100, 2, 384000},
      {m2, {"MPEG_TS_SD_NA", kTts}, "mpegts", k192Z, kM2v, 704, 480, 24, 1, 5000000, kAc3, 48000, 2, 384000},
      {m2, {"MPEG_TS_SD_NA_XAC3_ISO", kMpeg}, "mpegts", k188, kM2v, 720, 480, 30000, 1001, 5000000, kAc3, 48000, 2, 448001},
      {m2, kMpegNon, "mpegts", k188, kM2v, 1000, 480, 30000, 1001, 5000000, kAc3, 48000, 2, 384000},
      {m2, {"MPEG_TS_SD_EU_ISO", kMpeg}, "mpegts", k188, kM2v, 720, 576, 25, 1, 5000000, kMp2, 48000, 2, 256000},
      {m2, kMpegNon, "mpegts", k188, kM2v, 1280, 720, 25, 1, 5000000, kMp2, 48000, 2, 256000},
      {m2, {"MPEG_TS_JP_T", kTts}, "mpegts", k188, kM2v, 1280, 720, 60, 1, 5000000, kAac, 48000, 2, 256000},
      {m2, {"MPEG_TS_MP_LL_AAC_T", kTts}, "mpegts", k192, kM2v, 352, 288, 30, 1, 4000000, kAac, 48000, 2, 256000},
      {m2, kMpegNon, "mpegts", k192, kM2v, 352, 288, 25, 1, 4000000, kAac, 48000, 2, 256000},
      // clang-format on
  };
  run(cases, std::size(cases));
}

TEST(ProfileVideo, Mpeg1AndWmv9) {
  constexpr auto m1 = probe_media_mpeg1;
  constexpr auto wmv = probe_media_wmv;
  constexpr uint32_t kWmv3 = kMediaCodecWmv3;
  const VideoCase cases[] = {
      // clang-format off
      {m1, {"MPEG1", kMpeg}, "mpeg", 0, kM1v, 352, 288, 25, 1, 1150000, kMp2, 44100, 2, 224000},
      {m1, kMpegNon, "mpeg", 0, kM1v, 352, 288, 25, 1, 1150000, kMp2, 44100, 2, 192000},
      {m1, {"MPEG1", kMpeg}, "mpeg", 0, kM1v, 352, 240, 30000, 1001, 1150000, kMp2, 44100, 2, 224000},
      {m1, kMpegNon, "mpeg", 0, kM1v, 352, 240, 25, 1, 1150000, kMp2, 44100, 2, 224000},
      {m1, kMpegNon, "mpeg", 0, kM1v, 352, 288, 25, 1, 1152001, kMp2, 44100, 2, 224000},
      {m1, kNone, "mpeg", 0, kM2v, 352, 288, 25, 1, 1150000, kMp2, 44100, 2, 224000},
      {wmv, {"WMVMED_BASE", kWmv}, "asf", 0, kWmv3, 720, 576, 25, 1, 5000000, kWma2, 44100, 2, 128000},
      {wmv, {"WMVMED_BASE", kWmv}, "asf", 0, kWmv3, 720, 480, 29, 1, 5000000, kWma2, 44100, 2, 128000},
      {wmv, kWmvNon, "asf", 0, kWmv3, 720, 576, 29, 1, 5000000, kWma2, 44100, 2, 128000},
      {wmv, {"WMVHIGH_PRO", kWmv}, "asf", 0, kWmv3, 1920, 1080, 24, 1, 5000000, kMediaCodecWmaPro, 44100, 2, 128000},
      {wmv, {"WMVSPLL_BASE", kWmv}, "asf", 0, kWmv3, 176, 144, 15, 1, 96000, kWma2, 44100, 2, 128000},
      {wmv, kWmvNon, "asf", 0, kWmv3, 176, 144, 15, 1, 96000, kWma2, 44100, 2, 256000},
      {wmv, {"WMVSPML_MP3", kWmv}, "asf", 0, kWmv3, 320, 240, 15, 1, 384000, kMediaCodecMp3, 44100, 2, 128000},
      {wmv, kWmvNon, "asf", 0, kWmv3, 2000, 576, 25, 1, 5000000, kWma2, 44100, 2, 128000},
      {wmv, kWmvNon, "asf", 0, kWmv3, 720, 576, 25, 1, 5000000, kMediaCodecDts, 48000, 2, 128000},
      {wmv, kWmvNon, "asf", 0, kMediaCodecWmv2, 720, 576, 25, 1, 5000000, kWma2, 44100, 2, 128000},
      {wmv, kNone, "asf", 0, kH264, 720, 576, 25, 1, 5000000, kWma2, 44100, 2, 128000},
      {wmv, kNone, "asf", 0, kWmv3, 720, 576, 25, 1, 5000000, kWma2, 44100, 2, 128000, 0},
      {wmv, kNone, "avi", 0, kWmv3, 720, 576, 25, 1, 5000000, kWma2, 44100, 2, 128000},
      // clang-format on
  };
  run(cases, std::size(cases));
}

TEST(ProfileVideo, MatroskaFlvAviAndContainerProfiles) {
  constexpr auto mkv = probe_mkv;
  constexpr auto p2 = probe_media_mpeg4_part2;
  constexpr auto vc1 = probe_media_vc1;
  constexpr uint32_t kM4v = kMediaCodecMpeg4;
  const VideoCase cases[] = {
      // clang-format off
      {mkv, {"AVC_MKV_HP_HD_AC3", kMkv}, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000, 1, 0, 100, 41},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 6, 384000, 1, 0, 100, 41},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000, 1, 0, 100, 42},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000, 1, 0, 100, 29},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kMediaCodecDts, 48000, 2, 384000, 1, 0, 100, 41},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000, 1, 0, 100, 41, 3},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000, 1, 0, 100, 41, 6},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000, 1, 0, 66, 41},
      {mkv, kMkvNon, "matroska", 0, kM4v, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000, 1, 0, 100, 41},
      {mkv, {"AVC_MKV_MP_HD_AAC_MULT5", kMkv}, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAac, 48000, 6, 384000, 1, 2, 77, 40},
      {mkv, {"AVC_MKV_MP_HD_HEAAC_L4", kMkv}, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAac, 48000, 2, 384000, 1, 4, 77, 40},
      {mkv, {"AVC_MKV_MP_HD_AAC_MULT5", kMkv}, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAac, 48000, 2, 384000, 1, 3, 77, 31},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kAac, 48000, 7, 384000, 1, 2, 77, 40},
      {mkv, {"AVC_MKV_HP_HD_MPEG1_L3", kMkv}, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kMediaCodecMp3, 16000, 2, 128000, 1, 0, 100, 30},
      {mkv, kMkvNon, "matroska", 0, kH264, 1920, 1080, 25, 1, 0, kMediaCodecMp3, 8000, 2, 32000, 1, 0, 100, 30},
      {probe_flv, {"NON-DLNA", "video/x-flv"}, "flv", 0, kH264, 640, 480, 25, 1, 0, kAac, 44100, 2, 128000},
      {probe_avi, {"NON-DLNA", "video/x-msvideo"}, "avi", 0, kM4v, 640, 480, 25, 1, 0, 0, 0, 0, 0},
      {p2, {"NON-DLNA", "video/mp4"}, "mp4", 0, kM4v, 640, 480, 25, 1, 0, kAac, 44100, 2, 128000},
      {p2, {"NON-DLNA", "video/3gpp"}, "mp4", 0, kM4v, 176, 144, 15, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, "/v/a.3gpp"},
      {p2, kMpegNon, "mpeg", kPs, kM4v, 640, 480, 25, 1, 0, kMp2, 48000, 2, 128000},
      {p2, {"NON-DLNA", kTts}, "mpegts", k192, kM4v, 640, 480, 25, 1, 0, kMp2, 48000, 2, 128000},
      {p2, {"NON-DLNA", "video/x-msvideo"}, "avi", 0, kM4v, 640, 480, 25, 1, 0, kMp2, 48000, 2, 128000},
      {p2, kNone, "matroska", 0, kM4v, 640, 480, 25, 1, 0, kMp2, 48000, 2, 128000},
      {p2, kNone, "mp4", 0, kH264, 640, 480, 25, 1, 0, kAac, 44100, 2, 128000},
      {vc1, {"NON-DLNA", kTts}, "mpegts", k188, kMediaCodecVc1, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000},
      {vc1, kWmvNon, "asf", 0, kMediaCodecWmv3, 640, 480, 25, 1, 0, 0, 0, 0, 0, 0},
      // Other video in an MPEG stream: the MPEG-2 and AVC rules, else the stream's NON-DLNA.
      {vc1, {"MPEG_TS_SD_EU_T", kTts}, "mpegts", k192, kM2v, 720, 576, 25, 1, 5000000, kMp2, 48000, 2, 256000},
      {vc1, kMpegNon, "mpegts", k188, kM2v, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000},
      {vc1, {"NON-DLNA", kTts}, "mpegts", k192Z, kM2v, 720, 576, 25, 1, 5000000, 0, 0, 0, 0, 0},
      {vc1, {"AVC_TS_MP_HD_AC3_T", kTts}, "mpegts", k192, kH264, 1280, 720, 25, 1, 0, kAc3, 48000, 2, 384000},
      {vc1, {"AVC_TS_MP_HD_AC3", kTts}, "mpegts", k192Z, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000},
      {vc1, kMpegNon, "mpeg", kPs, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000},
      {vc1, kMpegNon, "mpeg", kEs, kH264, 1920, 1080, 25, 1, 0, 0, 0, 0, 0, 0},
      {vc1, {"NON-DLNA", kTts}, "mpegts", k192, kM4v, 640, 480, 25, 1, 0, kMp2, 48000, 2, 128000},
      {vc1, kNone, "mpegts", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000, 1, 0, 0, 0, 0, "/v/a.m2ts"},
      {vc1, kNone, "asf", 0, kH264, 1920, 1080, 25, 1, 0, kAc3, 48000, 2, 384000},
      {vc1, kNone, "avi", 0, kM4v, 640, 480, 25, 1, 0, kMp2, 48000, 2, 128000},
      // clang-format on
  };
  run(cases, std::size(cases));
}

}  // namespace
