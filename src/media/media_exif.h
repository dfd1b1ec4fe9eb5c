// EXIF metadata of JPEG files through libexif: picture size, date and the
// Windows XP title/author/subject texts.
//
// mediaParseExifProfile (declared in media_parse.h) loads the file itself and
// keeps nothing after it returns; each call has its own ExifData, so calls may
// run on any threads at once.
#pragma once

#include <libexif/exif-data.h>

#include <cstdint>

#include "media/media_parse.h"

// Renders the entry `tag` of IFD `ifd` (libexif numbering: 0 = IFD0, 2 = EXIF)
// into buf (kMediaTextSize bytes) with trailing blanks cut. 1 when the entry
// exists and its text is not empty, else 0 (buf then holds an empty or
// unusable text).
int32_t getExifTagValue(ExifData* exif, int ifd, uint32_t tag, char* buf);
