// Audio profile rules: the audio guessers (one small profile number per codec
// family, shared with the video rules for their audio tracks), the probes of
// the audio parsers, and the container identification every probe uses.
//
// Guessers and probes are pure over the MediaInfo, except that the container
// identification of MPEG streams and the raw-AAC probe read the first bytes of
// info->path. Returned profiles live for the process. All calls are thread-safe.
#pragma once

#include <cstdint>

#include "profile/profile.h"

// Audio profile numbers answered by the guessers; 0 is none.
enum DlnaAudioProfile : uint32_t {
  kAudioNone = 0,
  kAudioAac = 1,
  kAudioAac320 = 2,
  kAudioAacMult5 = 3,
  kAudioBsac = 4,
  kAudioBsacMult5 = 5,
  kAudioHeaacL2 = 6,
  kAudioHeaacL2_320 = 7,
  kAudioHeaacL3 = 8,
  kAudioHeaacMult5 = 9,
  kAudioHeaacV2L2 = 10,
  kAudioHeaacV2L2_320 = 11,
  kAudioHeaacV2L3 = 12,
  kAudioHeaacV2Mult5 = 13,
  kAudioAacLtp = 14,
  kAudioAacLtpMult5 = 15,
  kAudioAacLtpMult7 = 16,
  kAudioAc3 = 17,
  kAudioAc3Extended = 18,
  kAudioAmr = 19,
  kAudioAmrWb = 20,
  kAudioAtrac = 21,
  kAudioG726 = 22,
  kAudioLpcm = 23,
  kAudioMp1 = 24,
  kAudioMp2 = 25,
  kAudioMp3 = 26,
  kAudioMp3x = 27,
  kAudioWmaBase = 28,
  kAudioWmaFull = 29,
  kAudioWmaPro = 30,
};

// Container numbers of dlnaMediaStreamGetContainer; 0 is unknown.
enum DlnaContainer : uint32_t {
  kContainerUnknown = 0,
  kContainerImage = 1,
  kContainerAsf = 2,
  kContainerAmr = 3,
  kContainerAac = 4,
  kContainerAc3 = 5,
  kContainerMp3 = 6,
  kContainerWav = 7,
  kContainerMp4Family = 8,  // refined to 3GPP or MP4
  kContainer3gpp = 9,
  kContainerMp4 = 10,
  kContainerMpeg = 11,    // refined by the file's first bytes
  kContainerMpegTs = 12,  // refined by the file's first bytes
  kContainerMpegEs = 13,
  kContainerMpegPs = 14,
  kContainerMpegTs188 = 15,   // plain 188-byte packets
  kContainerMpegTs192 = 16,   // 192-byte packets with time stamps
  kContainerMpegTs192Z = 17,  // 192-byte packets, all-zero time stamps
};

uint32_t dlnaMediaStreamGetContainer(const MediaInfo* info);

uint32_t audio_media_profile_guess_aac_priv(const MediaInfo* info, uint32_t objectType);
uint32_t media_audio_profile_guess_aac(const MediaInfo* info);
uint32_t media_audio_profile_guess_ac3(const MediaInfo* info);
uint32_t media_audio_profile_guess_amr(const MediaInfo* info);
uint32_t media_audio_profile_guess_atrac(const MediaInfo* info);
uint32_t media_audio_profile_guess_g726(const MediaInfo* info);
uint32_t media_audio_profile_guess_lpcm(const MediaInfo* info);
uint32_t media_audio_profile_guess_mp1(const MediaInfo* info);
uint32_t media_audio_profile_guess_mp2(const MediaInfo* info);
uint32_t media_audio_profile_guess_mp3(const MediaInfo* info);
uint32_t media_audio_profile_guess_wma(const MediaInfo* info);
// The first answer of the guessers AAC, AC-3, AMR, ATRAC, G.726, LPCM, layer 2,
// MP3, WMA; 0 for none or a null info.
uint32_t media_audio_profile_guess(const MediaInfo* info);

const DlnaProfile* probe_mp3(MediaInfo* info);
const DlnaProfile* probe_lpcm(MediaInfo* info);
const DlnaProfile* probe_media_mpeg4(MediaInfo* info);
const DlnaProfile* probe_media_wma(MediaInfo* info);
const DlnaProfile* probe_media_amr(MediaInfo* info);

// The test-tone shortcut: a file named like the LPCM test tones is LPCM
// without being read; fills result's fields. Null for other names.
const DlnaProfile* fake_lpcm(DlnaMediaResult* result, const char* path);

// An LPCM profile with the MIME "audio/L16;rate=R;channels=C" for `base`'s name.
// One entry per distinct (base, rate, channels) is kept for the process.
const DlnaProfile* dlnaLpcmProfile(const DlnaProfile* base, uint32_t rate, uint32_t channels);

const DlnaProfile* parse_mp3(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_lpcm(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_mpeg4(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_wma(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_amr(DlnaMediaResult* result, const char* path);
