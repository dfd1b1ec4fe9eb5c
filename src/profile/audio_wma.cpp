// WMA rules: the WMA guesser and the probe and parse operation of the WMA
// audio parser, which leaves ASF files with video to the video parsers.
#include <cstdint>

#include "platform/log.h"
#include "profile/audio.h"

namespace {

constexpr char kLogSource[] = "audio_wma";

constexpr char kWma[] = "audio/x-ms-wma";

constexpr DlnaProfile wma_ex = {kDlnaNonDlna, kWma, kDlnaClassAudio};
constexpr DlnaProfile wmabase = {"WMABASE", kWma, kDlnaClassAudio};
constexpr DlnaProfile wmafull = {"WMAFULL", kWma, kDlnaClassAudio};
constexpr DlnaProfile wmapro = {"WMAPRO", kWma, kDlnaClassAudio};

}  // namespace

uint32_t media_audio_profile_guess_wma(const MediaInfo* info) {
  if (!info) return kAudioNone;
  uint32_t codec = info->audio_codec;
  if (codec != kMediaCodecWmaV1 && codec != kMediaCodecWmaV2 && codec != kMediaCodecWmaPro) {
    return kAudioNone;
  }
  uint32_t r = info->sample_rate;
  uint32_t c = info->channels;
  uint32_t b = info->audio_bit_rate;
  if (r > 96000) return kAudioNone;
  if (r > 48000) return c <= 8 ? kAudioWmaPro : kAudioNone;
  if (c <= 2 && codec != kMediaCodecWmaPro) {
    if (b <= 193000) return kAudioWmaBase;
    return b <= 385000 ? kAudioWmaFull : kAudioNone;
  }
  return c <= 8 ? kAudioWmaPro : kAudioNone;
}

const DlnaProfile* probe_media_wma(MediaInfo* info) {
  if (!info || !info->has_audio) return nullptr;
  if (info->has_video) {
    DMS_LOG(kLogEvent, "wma is vedio return NULL");
    return nullptr;
  }
  if (dlnaMediaStreamGetContainer(info) != kContainerAsf) return nullptr;
  switch (media_audio_profile_guess_wma(info)) {
    case kAudioWmaBase:
      return &wmabase;
    case kAudioWmaFull:
      return &wmafull;
    case kAudioWmaPro:
      return &wmapro;
    default:
      return &wma_ex;
  }
}

const DlnaProfile* parse_wma(DlnaMediaResult* result, const char* path) {
  return dlnaParseMediaProfile(probe_media_wma, result, path, kMediaFileWma);
}
