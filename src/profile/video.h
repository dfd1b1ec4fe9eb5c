// Video rules for MPEG-1, WMV9, Matroska, FLV and AVI, and the MPEG-4 part 2
// and VC-1 rules, which publish such files under their container's MIME type
// without a DLNA profile. Pure over the MediaInfo except for the MPEG packaging
// test, which reads info->path. Thread-safe.
#pragma once

#include "profile/profile.h"

// WMV9 levels: 1 simple-low, 2 simple-medium, 3 main-medium, 4 main-high; 0 none.
uint32_t dlnaWmv9Level(const MediaInfo* info);

const DlnaProfile* probe_media_mpeg1(MediaInfo* info);
const DlnaProfile* probe_media_wmv(MediaInfo* info);
const DlnaProfile* probe_mkv(MediaInfo* info);
const DlnaProfile* probe_flv(MediaInfo* info);
const DlnaProfile* probe_avi(MediaInfo* info);
const DlnaProfile* probe_media_mpeg4_part2(MediaInfo* info);
// VC-1 in any container the parser reads; and for an MPEG program,
// elementary or transport stream with other video, what the MPEG-2 or AVC
// rules say of it, else the stream's NON-DLNA profile.
const DlnaProfile* probe_media_vc1(MediaInfo* info);

const DlnaProfile* parse_mpeg1(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_wmv9(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_mkv(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_flv(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_avi(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_mpeg4_part2(DlnaMediaResult* result, const char* path);
const DlnaProfile* parse_vc1(DlnaMediaResult* result, const char* path);
