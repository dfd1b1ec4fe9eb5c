// The profile registry and the parser walk over one file, the copy of a
// MediaInfo into the per-file result and protocolInfo texts; see profile.h.
#include "profile/profile.h"

#include <strings.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>

#include "platform/alloc.h"
#include "platform/decimal.h"
#include "platform/log.h"
#include "profile/audio.h"
#include "profile/avc.h"
#include "profile/image.h"
#include "profile/mpeg2.h"
#include "profile/video.h"

namespace {

constexpr char kLogSource[] = "profile";

// clang-format off
constexpr DlnaMediaParser dlna_profile_image_jpeg = {0, kDlnaClassImage, "jpg,jpe,jpeg", parse_jpeg};
constexpr DlnaMediaParser dlna_profile_image_png = {1, kDlnaClassImage, "png", parse_png};
constexpr DlnaMediaParser dlna_profile_image_gif = {2, kDlnaClassImage, "gif", parse_gif};
constexpr DlnaMediaParser dlna_profile_image_tif = {3, kDlnaClassImage, "tif,tiff", parse_tif};
constexpr DlnaMediaParser dlna_profile_image_bmp = {4, kDlnaClassImage, "bmp,dib", parse_bmp};
constexpr DlnaMediaParser dlna_profile_audio_mp3 = {9, kDlnaClassAudio, "mp3", parse_mp3};
constexpr DlnaMediaParser dlna_profile_audio_lpcm = {8, kDlnaClassAudio, "pcm,lpcm,wav,aiff,l16,au", parse_lpcm};
constexpr DlnaMediaParser dlna_profile_audio_mpeg4 = {10, kDlnaClassAudio, "mp4,mov,qt,3gp,3gpp,m4a", parse_mpeg4};
constexpr DlnaMediaParser dlna_profile_audio_wma = {11, kDlnaClassAudio, "wma,asf", parse_wma};
constexpr DlnaMediaParser dlna_profile_av_mpeg2 = {13, kDlnaClassVideo, "mpg,mpeg,mpe,m2v,mp2p,mp2t,ts,tts,ps,pes,vob", parse_mpeg2};
constexpr DlnaMediaParser dlna_profile_av_wmv9 = {16, kDlnaClassVideo, "asf,wmv", parse_wmv9};
constexpr DlnaMediaParser dlna_profile_av_mpeg4_part2 = {14, kDlnaClassVideo, "mov,hdmov,mp4,3gp,3gpp,asf,mpg,mpeg,mpe,mp2t,ts", parse_mpeg4_part2};
constexpr DlnaMediaParser dlna_profile_av_mpeg4_part10 = {15, kDlnaClassVideo, "mov,hdmov,mp4,3gp,3gpp,mpg,mpeg,mpe,mp2t,ts,tts", parse_avc};
constexpr DlnaMediaParser dlna_profile_av_mpeg1 = {12, kDlnaClassVideo, "mpg,mpeg,mpe,m1v,vob", parse_mpeg1};
constexpr DlnaMediaParser dlna_profile_av_vc1 = {18, kDlnaClassVideo, "mpg,mpeg,mpe,ts,ps,tts,evo,vob,m2ts,asf,wmv,avi", parse_vc1};
constexpr DlnaMediaParser dlna_profile_av_avi = {17, kDlnaClassVideo, "avi", parse_avi};
constexpr DlnaMediaParser dlna_profile_av_flv = {19, kDlnaClassVideo, "flv", parse_flv};
constexpr DlnaMediaParser dlna_profile_av_mkv = {20, kDlnaClassVideo, "mkv", parse_mkv};
// clang-format on

std::atomic<DlnaProfileSink> g_profileSink{nullptr};

std::atomic<const MediaReaderTable*> g_mediaReaders{nullptr};

constexpr char kUnknown[] = "Unknown";
constexpr size_t kExtTokenMax = 31;

// A parser that does not claim the file leaves no texts behind.
void clearTexts(DlnaMediaResult* result) {
  result->duration.clear();
  result->title.clear();
  result->artist.clear();
  result->genre.clear();
  result->album.clear();
}

// "HH:MM:SS.mmm"; formatted by hand as every profiled file needs one.
std::string durationText(int64_t duration) {
  // The minimum value is the readers' "unknown"; other negative values are no
  // better and would print as negative times.
  if (duration < 0) return "00:00:00.000";
  int64_t s = duration / 1000000;
  int64_t m = s / 60;
  std::string text;
  text.reserve(15);
  appendDecimal(text, m / 60, 2);
  text.push_back(':');
  appendDecimal(text, m % 60, 2);
  text.push_back(':');
  appendDecimal(text, s % 60, 2);
  text.push_back('.');
  appendDecimal(text, (duration % 1000000) / 1000, 3);
  return text;
}

const char* textOr(const char* text, const char* fallback) {
  return text[0] ? text : fallback;
}

// Walks the registered parsers until one claims the file.
void walkParsers(const DlnaProfileRegistry* registry, DlnaMediaResult* result, const char* path) {
  if (!registry->initialised) return;
  for (const DlnaMediaParser* parser : registry->parsers) {
    if (registry->extCheck && parser->extensions && !_dlnaMatchFileExt(path, parser->extensions)) {
      continue;
    }
    if (!parser->parse) continue;
    // The copy of the tags inside the parse goes by this parser's class: an
    // untagged song is filed under "Unknown", a video under its folder.
    result->mediaClass = parser->mediaClass;
    const DlnaProfile* profile = parser->parse(result, path);
    if (profile) {
      result->profileName = profile->name;
      result->mime = profile->mime;
      return;
    }
    result->mediaClass = 0;
    clearTexts(result);
  }
}

}  // namespace

const DlnaMediaParser* const g_tDlnaMediaParsers[18] = {
    &dlna_profile_image_jpeg,      &dlna_profile_image_png,   &dlna_profile_image_gif,
    &dlna_profile_image_tif,       &dlna_profile_image_bmp,   &dlna_profile_audio_mp3,
    &dlna_profile_audio_lpcm,      &dlna_profile_audio_mpeg4, &dlna_profile_audio_wma,
    &dlna_profile_av_mpeg2,        &dlna_profile_av_wmv9,     &dlna_profile_av_mpeg4_part2,
    &dlna_profile_av_mpeg4_part10, &dlna_profile_av_mpeg1,    &dlna_profile_av_vc1,
    &dlna_profile_av_avi,          &dlna_profile_av_flv,      &dlna_profile_av_mkv,
};

// AMR files are deliberately never profiled: this record is not registered.
const DlnaMediaParser dlna_profile_audio_amr = {6, kDlnaClassAudio, "mp4,3gp,3gpp", parse_amr};

DlnaProfileRegistry* dlnaMMInit() {
  auto* registry = new (std::nothrow) DlnaProfileRegistry{};
  if (registry) registry->initialised = 1;
  return registry;
}

void dlnaMMUninit(DlnaProfileRegistry* registry) {
  if (!registry) return;
  registry->initialised = 0;
  registry->parsers.clear();
  delete registry;
}

void dlnaSetExtCheck(DlnaProfileRegistry* registry, int32_t on) {
  if (registry) registry->extCheck = on;
}

void dlnaRegMediaProfile(DlnaProfileRegistry* registry) {
  // A registry that was never initialised is left alone: registering into a
  // fresh one the caller cannot see would change nothing either.
  if (!registry || !registry->initialised) return;
  for (const DlnaMediaParser* record : g_tDlnaMediaParsers) _dlnaRegProfile(registry, record);
}

void _dlnaRegProfile(DlnaProfileRegistry* registry, const DlnaMediaParser* record) {
  if (!registry || !record || !registry->initialised) return;
  for (const DlnaMediaParser* known : registry->parsers) {
    if (known->id == record->id) return;
  }
  registry->parsers.push_back(record);
}

DlnaMediaResult* dlnaGetMediaProfile(DlnaProfileRegistry* registry, const char* path) {
  if (!registry || !path) return nullptr;
  auto* result = new (std::nothrow) DlnaMediaResult{};
  if (!result) return nullptr;
  result->mediaInfo = static_cast<MediaInfo*>(media_mallocz(sizeof(MediaInfo)));
  if (!result->mediaInfo) {
    delete result;
    return nullptr;
  }

  if (const DlnaProfile* tone = fake_lpcm(result, path)) {
    result->profileName = tone->name;
    result->mime = tone->mime;
    result->mediaClass = kDlnaClassAudio;
  } else {
    walkParsers(registry, result, path);
  }
  RetUB(result->mediaInfo);
  result->mediaInfo = nullptr;

  if (!result->profileName || !result->mime || !result->mediaClass) {
    DMS_LOG(kLogTrace, "Parse file %s Error", path);
    dlnaFreeItemTmp(result);
    return nullptr;
  }
  DlnaProfileSink sink = g_profileSink.load();
  if (sink && sink(result->profileName, result->mime) != 0) {
    dlnaFreeItemTmp(result);
    return nullptr;
  }
  return result;
}

void dlnaSetProfileSink(DlnaProfileSink sink) {
  g_profileSink.store(sink);
}

void dlnaFreeItemTmp(DlnaMediaResult* result) {
  if (!result) return;
  RetUB(result->mediaInfo);
  delete result;
}

const DlnaProfile* dlnaParseMediaProfile(DlnaDecideFn decide, DlnaMediaResult* result,
                                         const char* path, uint32_t kind) {
  if (!decide || !result || !path) return nullptr;
  if (!result->mediaInfo) {
    result->mediaInfo = static_cast<MediaInfo*>(media_mallocz(sizeof(MediaInfo)));
    if (!result->mediaInfo) return nullptr;
  }
  MediaInfo* info = result->mediaInfo;
  if (!info->parsed) {
    const MediaReaderTable* readers = g_mediaReaders.load(std::memory_order_acquire);
    int32_t rc =
        readers ? mediaReadInfoWith(*readers, path, kind, info) : media_read_info(path, kind, info);
    if (rc != 0) return nullptr;
  }
  dlnaTansferMediaInfo(result, info);
  return decide(info);
}

void dlnaTansferMediaInfo(DlnaMediaResult* result, const MediaInfo* info) {
  if (!result || !info) return;
  result->fileSize = info->file_size;
  result->bitrate = info->bit_rate;
  result->width = info->video_width ? info->video_width : static_cast<uint16_t>(info->width);
  result->height = info->video_height ? info->video_height : static_cast<uint16_t>(info->height);
  result->duration = durationText(info->duration);
  result->year =
      static_cast<int16_t>(static_cast<uint32_t>(info->year) - 1901u > 197u ? 0 : info->year);
  result->month = info->month;
  result->day = info->day;
  result->track = info->track;
  // The reader's texts are fixed buffers; strnlen keeps an unterminated one in bounds.
  auto text = [](const char* field) { return std::string(field, strnlen(field, kMediaTextSize)); };
  result->artist = text(textOr(info->artist, kUnknown));
  result->genre = text(textOr(info->genre, kUnknown));
  const char* albumFallback = result->mediaClass == kDlnaClassAudio ? kUnknown : "";
  result->album = text(textOr(info->album, albumFallback));
  result->title = text(info->title);
}

std::string dlnaProtocolInfoText(int32_t mode, const char* name, const char* mime,
                                 uint32_t mediaClass) {
  if (!mime) mime = "";
  char fourth[448];
  if (!name || strcmp(name, kDlnaNonDlna) == 0) {
    snprintf(fourth, sizeof(fourth), ":*");
  } else if (mediaClass == kDlnaClassImage) {
    snprintf(fourth, sizeof(fourth), ":%s=%s;%s=%.8x%.24x", "DLNA.ORG_PN", name, "DLNA.ORG_FLAGS",
             0xf00000u, 0u);
  } else {
    snprintf(fourth, sizeof(fourth), ":%s=%s;%s=%.2x;%s=%.8x%.24x", "DLNA.ORG_PN", name,
             "DLNA.ORG_OP", 1u, "DLNA.ORG_FLAGS", 0x1700000u, 0u);
  }
  char text[512];
  if (mode == 1) {
    snprintf(text, sizeof(text), "%s%s%s", "http-get:*:", mime, fourth);
  } else {
    snprintf(text, sizeof(text), "%s%s", mime, fourth);
  }
  return text;
}

namespace {

// atoi without its undefined overflow.
int32_t pieceValue(const char* piece) {
  long value = strtol(piece, nullptr, 10);
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

}  // namespace

uint64_t dlnaParseDuration(const char* text) {
  if (!text || !text[0]) return 0;
  char buffer[24] = {};
  strncpy(buffer, text, sizeof(buffer) - 1);
  uint64_t fraction = 0;
  if (char* dot = strrchr(buffer, '.')) {
    fraction = static_cast<uint64_t>(static_cast<int64_t>(pieceValue(dot + 1)));
    *dot = '\0';
  }
  // Pieces between colons, empty ones skipped as a tokenizer would.
  uint64_t total = 0;
  for (char* piece = buffer; *piece;) {
    size_t len = strcspn(piece, ":");
    if (len > 0) {
      char saved = piece[len];
      piece[len] = '\0';
      total = total * 60 + static_cast<uint64_t>(static_cast<int64_t>(pieceValue(piece)));
      piece[len] = saved;
    }
    piece += len;
    if (*piece == ':') ++piece;
  }
  return total * 1000 + fraction;
}

const char* dlnaGetFileExt(const char* path) {
  if (!path) return nullptr;
  const char* dot = strrchr(path, '.');
  return dot ? dot + 1 : nullptr;
}

int32_t _dlnaMatchFileExt(const char* path, const char* list) {
  const char* ext = dlnaGetFileExt(path);
  if (!ext || !list) return 0;
  const size_t extLen = strlen(ext);
  const char* token = list;
  while (true) {
    // A token is compared by its first kExtTokenMax characters only.
    size_t len = strcspn(token, ",");
    size_t cut = len < kExtTokenMax ? len : kExtTokenMax;
    if (cut == extLen && strncasecmp(token, ext, cut) == 0) return 1;
    if (token[len] == '\0') return 0;
    token += len + 1;
  }
}

void dlnaSetMediaReaders(const MediaReaderTable* readers) {
  g_mediaReaders.store(readers, std::memory_order_release);
}
