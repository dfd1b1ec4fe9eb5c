// AVC (H.264) video rules: the profile class of a stream from its bit rates,
// picture size and frame rate, then the DLNA profile by container, class and
// audio, or a NON-DLNA profile of the container. Reads info->path only for the
// MPEG packaging test. Thread-safe.
#pragma once

#include "profile/profile.h"

// The profile class (1..13) of an H.264 stream, 0 when it fits none. Sets
// info->video_max_bit_rate from the whole-file rate when it is 0.
uint32_t dlnaAvcProfileClass(MediaInfo* info);
// Null for a file without H.264 video or in an unsupported container.
const DlnaProfile* probe_media_avc(MediaInfo* info);

const DlnaProfile* parse_avc(DlnaMediaResult* result, const char* path);
