// MPEG-2 video rules: elementary and program streams for PAL and NTSC, and
// transport streams for Europe, North America (SD, HD) and Japan in their three
// packagings. The packaging comes from the file's first bytes (info->path);
// everything else from the MediaInfo. Thread-safe.
#pragma once

#include "profile/profile.h"

// Null for a file without audio or video or with other than MPEG-2 video, so
// that the next parser is tried; NON-DLNA for an MPEG-2 file outside the rules.
const DlnaProfile* probe_media_mpeg2(MediaInfo* info);
// One of the four records, or null when the stream fits none.
const DlnaProfile* probe_media_mpeg_ps_es(const MediaInfo* info, const DlnaProfile* pal,
                                          const DlnaProfile* palXac3, const DlnaProfile* ntsc,
                                          const DlnaProfile* ntscXac3);
int32_t is_media_mpeg_ps_es_audio_stream_lpcm(const MediaInfo* info);
int32_t is_media_mpeg_ps_es_audio_stream_mp2(const MediaInfo* info);

const DlnaProfile* parse_mpeg2(DlnaMediaResult* result, const char* path);
