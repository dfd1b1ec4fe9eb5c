// JPEG marker walking: the picture size from the baseline frame header, and
// the embedded thumbnail cut out of a camera JPEG for the thumbnail service.
//
// The marker readers work on a caller's MediaIo and keep no state of their
// own, so reads of different files may run on any threads at once.
#pragma once

#include <cstdint>

#include "media/media_io.h"
#include "media/media_thumbnail.h"

// One marker as jpg_read_tag / jpg_tn_read_tag found it.
struct JpgMarker {
  uint8_t marker[2];        // 0xFF and the marker code
  uint8_t has_length;       // 1 when a length field follows the marker
  uint8_t length_bytes[2];  // as read
  uint32_t length;          // segment length, big-endian value of length_bytes
};

inline constexpr uint8_t kJpgSoi = 0xD8;
inline constexpr uint8_t kJpgEoi = 0xD9;
inline constexpr uint8_t kJpgSof0 = 0xC0;

// Reads the marker at the stream position and leaves the stream at the next
// one (just after SOI/EOI, after the segment otherwise). 0; -1 for a marker
// code of 0x00/0xFF, too much 0xFF fill or a failed skip (position restored);
// -2 for a short read or a first byte that is not 0xFF.
int32_t jpg_read_tag(MediaIo* io, JpgMarker* tag);

// Scans byte by byte for the next SOI, SOF0 or EOI and leaves the stream just
// after its two bytes. 0; -2 at the end of the file; -1 when a seek fails.
int32_t jpg_tn_read_tag(MediaIo* io, JpgMarker* tag);

// Cuts the embedded thumbnail (SOI to EOI of an inner image of at most
// 160 x 160) out of the JPEG at `path`; without one the span runs from the
// first inner SOI, or the start of the file, to the EOI that ends the scan.
// 0 with thumb's mime, size, kind 1 and data filled (data is a GetUB block
// the caller releases with RetUB); -1 for a null argument, a file that cannot
// be opened or no usable span; -2 when the span cannot be read.
int32_t jpgGetTn(const char* path, MediaThumbnail* thumb);
