// EXIF reader for JPEG files. When it finds EXIF data at all, the JPEG
// markers are not walked: a block without size tags leaves the size at 0.
#include "media/media_exif.h"

#include <libexif/exif-content.h>
#include <libexif/exif-entry.h>
#include <libexif/exif-ifd.h>

#include <cstdlib>
#include <cstring>

namespace {

struct ExifCandidate {
  ExifIfd ifd;
  uint32_t tag;
};

constexpr ExifCandidate kWidthTags[] = {
    {EXIF_IFD_EXIF, 0xA002},  // PixelXDimension
    {EXIF_IFD_0, 0x0100},     // ImageWidth
    {EXIF_IFD_0, 0x1001},     // RelatedImageWidth
};
constexpr ExifCandidate kHeightTags[] = {
    {EXIF_IFD_EXIF, 0xA003},  // PixelYDimension
    {EXIF_IFD_0, 0x0101},     // ImageLength
    {EXIF_IFD_0, 0x1002},     // RelatedImageLength
};
constexpr ExifCandidate kDateTags[] = {
    {EXIF_IFD_0, 0x0132},     // DateTime
    {EXIF_IFD_EXIF, 0x9003},  // DateTimeOriginal
    {EXIF_IFD_EXIF, 0x9004},  // DateTimeDigitized
};
constexpr ExifCandidate kTitleTags[] = {{EXIF_IFD_0, 0x9C9B}};   // XPTitle
constexpr ExifCandidate kArtistTags[] = {{EXIF_IFD_0, 0x9C9D}};  // XPAuthor
constexpr ExifCandidate kAlbumTags[] = {{EXIF_IFD_0, 0x9C9F}};   // XPSubject

// The first candidate with a non-empty text, rendered into buf.
template <size_t n>
bool firstValue(ExifData* exif, const ExifCandidate (&candidates)[n], char* buf) {
  for (const ExifCandidate& c : candidates)
    if (getExifTagValue(exif, c.ifd, c.tag, buf)) return true;
  return false;
}

// "YYYY:MM:DD hh:mm:ss": the first three ':'-separated pieces, each through
// atoi, so the day piece "DD hh" gives DD.
void splitDate(const char* text, MediaInfo* info) {
  int32_t* const fields[] = {&info->year, &info->month, &info->day};
  const char* piece = text;
  for (int32_t* field : fields) {
    *field = atoi(piece);
    piece = strchr(piece, ':');
    if (!piece) return;
    ++piece;
  }
}

void copyText(ExifData* exif, const ExifCandidate (&candidates)[1], char* field, char* buf) {
  if (firstValue(exif, candidates, buf)) media_strncpy(field, buf, kMediaTextSize);
}

}  // namespace

int32_t getExifTagValue(ExifData* exif, int ifd, uint32_t tag, char* buf) {
  if (!exif || !buf || ifd < 0 || ifd >= EXIF_IFD_COUNT) return 0;
  buf[0] = '\0';
  ExifEntry* entry = exif_content_get_entry(exif->ifd[ifd], static_cast<ExifTag>(tag));
  if (!entry) return 0;
  if (!exif_entry_get_value(entry, buf, kMediaTextSize)) return 0;
  buf[kMediaTextSize - 1] = '\0';
  size_t len = strlen(buf);
  while (len > 0 && buf[len - 1] == ' ') buf[--len] = '\0';
  return len > 0 ? 1 : 0;
}

int32_t mediaParseExifProfile(MediaInfo* info, const char* path) {
  if (!info || !path) return -1;
  ExifData* exif = exif_data_new_from_file(path);
  if (!exif) return -1;
  char buf[kMediaTextSize];
  if (firstValue(exif, kWidthTags, buf)) info->width = atoi(buf);
  if (firstValue(exif, kHeightTags, buf)) info->height = atoi(buf);
  if (firstValue(exif, kDateTags, buf)) splitDate(buf, info);
  copyText(exif, kTitleTags, info->title, buf);
  copyText(exif, kArtistTags, info->artist, buf);
  copyText(exif, kAlbumTags, info->album, buf);
  exif_data_unref(exif);
  return 0;
}
