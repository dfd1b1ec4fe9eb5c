// Image profile rules: the DLNA image profile from a picture's width and
// height alone. TIFF and BMP are always published without a DLNA profile.
// Pure functions over the MediaInfo; thread-safe.
#pragma once

#include "profile/profile.h"

// Null only for a null info.
const DlnaProfile* probe_jpeg(MediaInfo* info);
const DlnaProfile* probe_png(MediaInfo* info);
const DlnaProfile* probe_gif(MediaInfo* info);
const DlnaProfile* probe_tif(MediaInfo* info);
const DlnaProfile* probe_bmp(MediaInfo* info);

const DlnaProfile* parse_jpeg(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_png(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_gif(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_tif(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_bmp(DlnaMediaResult* result, const char* path);
