// Audio rules over MediaInfo values built here: container identification, the
// guessers' limits, and the MP3, LPCM, WMA, AAC and AMR probes.
#include "profile/audio.h"

#include <gtest/gtest.h>

#include <thread>

#include "profile_test_util.h"

namespace {

using profile_test::expectProfile;
using profile_test::newInfo;
using profile_test::Want;

TEST(ProfileAudio, ContainerFromFormatNameAndFirstBytes) {
  // clang-format off
  const struct { const char* format; const char* path; uint32_t sniffed; uint32_t want; } cases[] = {
      {"asf", nullptr, 0, kContainerAsf},
      {"mp3", nullptr, 0, kContainerMp3},
      {"aac", nullptr, 0, kContainerAac},
      {"mp4", "/a/song.m4a", 0, kContainerMp4},
      {"mov", "/a/clip.3GP", 0, kContainer3gpp},
      {"3gp", nullptr, 0, kContainerMp4},
      {"matroska", nullptr, 0, kContainerUnknown},
      {"mpeg", nullptr, 0, kContainerUnknown},  // no head read
      {"mpeg", nullptr, kContainerMpegPs, kContainerMpegPs},
      {"mpeg", nullptr, kContainerMpegEs, kContainerMpegEs},
      {"mpegts", nullptr, kContainerMpegTs188, kContainerMpegTs188},
      {"mpegts", nullptr, kContainerMpegTs192, kContainerMpegTs192},
      {"mpegts", nullptr, kContainerMpegTs192Z, kContainerMpegTs192Z},
  };
  // clang-format on
  for (const auto& c : cases) {
    auto info = newInfo(c.format);
    info->path = c.path;
    if (c.sniffed) profile_test::setMpegContainer(info.get(), c.sniffed, c.format);
    EXPECT_EQ(dlnaMediaStreamGetContainer(info.get()), c.want) << c.format;
  }
  // Too short for any sync pair, and no start code.
  auto tiny = newInfo("mpegts");
  const uint8_t shortHead[] = {0x47, 0, 0, 1};
  memcpy(tiny->head, shortHead, sizeof shortHead);
  tiny->head_size = sizeof shortHead;
  EXPECT_EQ(dlnaMediaStreamGetContainer(tiny.get()), 0u);
}

constexpr uint32_t kMp3 = kMediaCodecMp3, kS16 = kMediaCodecPcmS16Le, kWma2 = kMediaCodecWmaV2,
                   kAac = kMediaCodecAac;
constexpr Want kMp3Non = {"NON-DLNA", "audio/mpeg"}, kWmaNon = {"NON-DLNA", "audio/x-ms-wma"},
               kNone = {nullptr, nullptr};

TEST(ProfileAudio, Probes) {
  const struct {
    const DlnaProfile* (*probe)(MediaInfo*);
    const char* format;
    uint32_t codec, rate, channels, bitRate;
    Want want;
    uint8_t hasVideo = 0;
    uint8_t objectType = 0;  // AAC: first config byte >> 3
  } cases[] = {
      // clang-format off
      {probe_mp3, "mp3", kMp3, 44100, 2, 128000, {"MP3", "audio/mpeg"}},
      {probe_mp3, "mp3", kMp3, 22050, 2, 64000, {"MP3X", "audio/mpeg"}},
      {probe_mp3, "mp3", kMp3, 32000, 1, 8000, {"MP3X", "audio/mpeg"}},
      {probe_mp3, "mp3", kMp3, 44100, 2, 150000, kMp3Non},
      {probe_mp3, "mp3", kMp3, 44100, 3, 128000, kMp3Non},
      {probe_mp3, "wav", kMp3, 44100, 2, 128000, kNone},
      {probe_lpcm, "wav", kS16, 16000, 1, 256000, {"LPCM_low", "audio/L16;rate=16000;channels=1"}},
      {probe_lpcm, "wav", kMediaCodecPcmS16Be, 48000, 2, 1536000, {"LPCM", "audio/L16;rate=48000;channels=2"}},
      {probe_lpcm, "wav", kS16, 47999, 2, 1536000, {"LPCM_MPS", "audio/L16;rate=47999;channels=2"}},
      {probe_lpcm, "wav", kS16, 47999, 2, 1536001, {"NON-DLNA", "audio/L16;rate=47999;channels=2"}},
      {probe_lpcm, "wav", kS16, 96000, 2, 3072000, {"NON-DLNA", "audio/L16;rate=96000;channels=2"}},
      {probe_lpcm, "wav", kS16, 48000, 6, 1536000, {"LPCM_MPS", "audio/L16;rate=48000;channels=6"}},
      {probe_lpcm, "wav", kS16, 8000, 8, 1024000, {"NON-DLNA", "audio/L16;rate=8000;channels=8"}},
      {probe_lpcm, "wav", kMediaCodecPcmS24Le, 48000, 2, 2304000, kNone},
      {probe_media_wma, "asf", kWma2, 44100, 2, 192000, {"WMABASE", "audio/x-ms-wma"}},
      {probe_media_wma, "asf", kWma2, 44100, 2, 320000, {"WMAFULL", "audio/x-ms-wma"}},
      {probe_media_wma, "asf", kMediaCodecWmaV1, 44100, 2, 193001, {"WMAFULL", "audio/x-ms-wma"}},
      {probe_media_wma, "asf", kWma2, 44100, 2, 385001, kWmaNon},
      {probe_media_wma, "asf", kWma2, 44100, 6, 384000, {"WMAPRO", "audio/x-ms-wma"}},
      {probe_media_wma, "asf", kMediaCodecWmaPro, 44100, 2, 128000, {"WMAPRO", "audio/x-ms-wma"}},
      {probe_media_wma, "asf", kWma2, 96000, 2, 128000, {"WMAPRO", "audio/x-ms-wma"}},
      {probe_media_wma, "asf", kWma2, 96001, 2, 128000, kWmaNon},
      {probe_media_wma, "asf", kWma2, 44100, 2, 192000, kNone, 1},
      {probe_media_wma, "mp3", kWma2, 44100, 2, 192000, kNone},
      {probe_media_mpeg4, "mp4", kAac, 44100, 2, 128000, {"AAC_ISO_320", "audio/mp4"}, 0, 2},
      {probe_media_mpeg4, "mp4", kAac, 44100, 2, 400000, {"AAC_ISO", "audio/mp4"}, 0, 2},
      {probe_media_mpeg4, "mp4", kAac, 48000, 6, 384000, {"AAC_MULT5_ISO", "audio/mp4"}, 0, 2},
      {probe_media_mpeg4, "mp4", kAac, 48000, 7, 384000, kNone, 0, 2},
      {probe_media_mpeg4, "mp4", kAac, 44100, 2, 128000, kNone, 1, 2},
      {probe_media_mpeg4, "mp4", kAac, 44100, 2, 128000, kNone},
      {probe_media_mpeg4, "mp4", kAac, 24000, 2, 64000, {"HEAAC_L2_ISO_320", "audio/mp4"}, 0, 5},
      {probe_media_mpeg4, "mp4", kAac, 48000, 6, 1440000, {"HEAAC_MULT5_ISO", "audio/mp4"}, 0, 5},
      {probe_media_mpeg4, "mp4", kAac, 48000, 6, 2880000, {"HEAACv2_MULT5", "audio/mp4"}, 0, 27},
      {probe_media_mpeg4, "mp4", kAac, 96000, 8, 4032000, {"AAC_LTP_MULT7_ISO", "audio/mp4"}, 0, 4},
      {probe_media_mpeg4, "mp4", kAac, 48000, 2, 128000, {"BSAC_ISO", "audio/mp4"}, 0, 22},
      {probe_media_mpeg4, "mp4", kAac, 48000, 2, 128001, kNone, 0, 22},
      {probe_media_amr, "3gp", kMediaCodecAmrNb, 8000, 1, 12200, {"AMR_3GPP", "audio/mp4"}},
      {probe_media_amr, "mp4", kMediaCodecAmrWb, 16000, 1, 23850, {"AMR_WBplus", "audio/3gpp"}},
      {probe_media_amr, "mp4", kMediaCodecAmrNb, 8000, 1, 12000, kNone},
      // clang-format on
  };
  for (const auto& c : cases) {
    auto info = newInfo(c.format);
    info->has_audio = 1;
    info->has_video = c.hasVideo;
    info->audio_codec = c.codec;
    info->sample_rate = c.rate;
    info->channels = static_cast<uint16_t>(c.channels);
    info->audio_bit_rate = c.bitRate;
    info->audio_config_size = c.objectType ? 2 : 0;
    info->audio_config[0] = static_cast<uint8_t>(c.objectType << 3);
    expectProfile(c.probe(info.get()), c.want,
                  std::string(c.format) + " " + std::to_string(c.codec) + " " +
                      std::to_string(c.rate) + "/" + std::to_string(c.bitRate));
  }
}

// Raw AAC: the two-bit ADTS profile field is taken as the object type itself.
TEST(ProfileAudio, RawAacFiles) {
  const struct {
    std::vector<uint8_t> head;
    Want want;
  } cases[] = {
      {{0xFF, 0xF1, 0x50}, kNone},  // ADTS LC
      {{0xFF, 0xF9, 0x90}, {"AAC_ADTS_320", "audio/vnd.dlna.adts"}},
      {{0x41, 0x44, 0x49}, {"AAC_ISO_320", "audio/mp4"}},  // not ADTS
  };
  for (const auto& c : cases) {
    auto info = newInfo("aac");
    memcpy(info->head, c.head.data(), c.head.size());
    info->head_size = static_cast<uint32_t>(c.head.size());
    info->has_audio = 1;
    info->audio_codec = kAac;
    info->sample_rate = 44100;
    info->channels = 2;
    info->audio_bit_rate = 128000;
    info->audio_config_size = 2;
    info->audio_config[0] = 2 << 3;
    expectProfile(probe_media_mpeg4(info.get()), c.want, std::to_string(c.head[2]));
  }
}

TEST(ProfileAudio, GuesserLimitsAndChainOrder) {
  const struct {
    uint32_t (*guess)(const MediaInfo*);
    uint32_t codec, rate, channels, bitRate, want;
  } cases[] = {
      // clang-format off
      {media_audio_profile_guess_ac3, kMediaCodecAc3, 48000, 2, 448000, kAudioAc3},
      {media_audio_profile_guess_ac3, kMediaCodecAc3, 48000, 2, 448001, kAudioAc3Extended},
      {media_audio_profile_guess_ac3, kMediaCodecAc3, 48000, 2, 640001, 0},
      {media_audio_profile_guess_ac3, kMediaCodecAc3, 48000, 2, 63999, 0},
      {media_audio_profile_guess_ac3, kMediaCodecAc3, 22050, 2, 384000, 0},
      {media_audio_profile_guess_mp2, kMediaCodecMp2, 48000, 8, 448000, kAudioMp2},
      {media_audio_profile_guess_mp2, kMediaCodecMp2, 48000, 2, 31999, 0},
      {media_audio_profile_guess_g726, kMediaCodecAdpcmG726, 8000, 1, 32000, kAudioG726},
      {media_audio_profile_guess_lpcm, kS16, 49000, 2, 0, 0},
      {media_audio_profile_guess_aac, kAac, 96001, 2, 128000, 0},
      {media_audio_profile_guess, kWma2, 44100, 2, 128000, kAudioWmaBase},
      {media_audio_profile_guess, kMediaCodecPcmS16Be, 48000, 2, 0, kAudioLpcm},
      {media_audio_profile_guess, kMediaCodecAmrWb, 16000, 2, 5200, kAudioAmrWb},
      {media_audio_profile_guess, kMp3, 48000, 2, 320000, kAudioMp3},
      {media_audio_profile_guess, kMediaCodecMp1, 48000, 2, 128000, 0},  // layer 1 not chained
      {media_audio_profile_guess, kAac, 96000, 8, 4032000, kAudioAacLtpMult7},
      // clang-format on
  };
  for (const auto& c : cases) {
    auto info = newInfo();
    info->audio_codec = c.codec;
    info->sample_rate = c.rate;
    info->channels = static_cast<uint16_t>(c.channels);
    info->audio_bit_rate = c.bitRate;
    info->audio_config_size = 1;
    info->audio_config[0] = 4 << 3;  // AAC LTP
    EXPECT_EQ(c.guess(info.get()), c.want) << c.codec << " " << c.rate << " " << c.bitRate;
  }
}

// The MIME texts handed out stay valid and are shared by equal requests, also
// when several threads ask at once.
TEST(ProfileAudio, LpcmProfilesAreKeptPerRateAndChannels) {
  auto request = [](uint32_t rate, uint16_t channels) {
    auto info = newInfo("wav");
    info->has_audio = 1;
    info->audio_codec = kS16;
    info->sample_rate = rate;
    info->channels = channels;
    return probe_lpcm(info.get());
  };
  const DlnaProfile* first = request(22050, 1);
  std::vector<std::thread> threads;
  std::vector<const DlnaProfile*> seen(4);
  for (size_t t = 0; t < seen.size(); ++t) {
    threads.emplace_back([&, t] {
      for (uint32_t rate = 8000; rate < 8100; ++rate) request(rate, 2);
      seen[t] = request(22050, 1);
    });
  }
  for (auto& thread : threads) thread.join();
  for (const DlnaProfile* p : seen) EXPECT_EQ(p, first);
  EXPECT_STREQ(first->mime, "audio/L16;rate=22050;channels=1");
  EXPECT_STREQ(request(8050, 2)->mime, "audio/L16;rate=8050;channels=2");
}

}  // namespace
