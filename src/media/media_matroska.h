// The Matroska reader: a table-driven EBML parser that checks the EBML header,
// follows the SeekHead at the start of the Segment to the Segment Information
// and Tracks elements, and fills a MediaInfo with the duration, the codecs and
// their first codec-private bytes, default durations, picture size, channels
// and sampling frequency. WebM and files whose Segment does not open with a
// SeekHead are refused.
//
// mkv_read_info is declared with the other readers in media_parse.h. Its
// working record is allocated per call and released before it returns, so
// reads of different files may run at once.
#pragma once

#include <cstdint>

#include "media/media_parse.h"  // mkv_read_info

// mkv_read_info's failures.
inline constexpr int32_t kMkvErrFormat = -1;    // signature, doc type, version, seek structure
inline constexpr int32_t kMkvErrRead = -2;      // the file ends early or cannot be read
inline constexpr int32_t kMkvErrResource = -3;  // no memory, or no doc type
