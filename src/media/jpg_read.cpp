// JPEG readers: the baseline frame size for profiling, and the embedded EXIF
// thumbnail for the thumbnail service. Only SOF0 is understood: other frame
// types leave the marker walk in entropy-coded data, where it fails.
#include "media/jpg_read.h"

#include <sys/types.h>

#include <cstdio>

#include "media/media_parse.h"
#include "platform/alloc.h"
#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "jpg_read";

constexpr int kMaxFillBytes = 254;  // 0xFF fill bytes tolerated before a marker
constexpr int kMaxMarkers = 1024;
constexpr int32_t kMaxThumbSide = 160;
constexpr size_t kScanChunk = 4096;

bool isScanMarker(uint8_t code) {
  return code == kJpgSoi || code == kJpgSof0 || code == kJpgEoi;
}

int32_t restoreAnd(MediaIo* io, int32_t result) {
  media_set_bookmark(io);
  return result;
}

void fillMarker(JpgMarker* tag, const uint8_t bytes[4], bool has_length) {
  tag->marker[0] = bytes[0];
  tag->marker[1] = bytes[1];
  tag->has_length = has_length ? 1 : 0;
  tag->length_bytes[0] = has_length ? bytes[2] : 0;
  tag->length_bytes[1] = has_length ? bytes[3] : 0;
  tag->length = has_length ? static_cast<uint32_t>(media_Get_BigEndianValue(bytes + 2, 2)) : 0;
}

// The frame header of SOF0: the stream stands after the segment; height and
// width follow the precision byte at its start.
int32_t readFrameSize(MediaIo* io, const JpgMarker& tag, MediaInfo* info) {
  const int32_t back = 1 - (static_cast<int32_t>(tag.length) - 2);
  uint8_t size[4];
  if (!media_skip_data(io, back)) return -2;
  if (!media_read_data(io, size, sizeof size)) return -2;
  info->height = static_cast<int32_t>(media_Get_BigEndianValue(size, 2));
  info->width = static_cast<int32_t>(media_Get_BigEndianValue(size + 2, 2));
  return 0;
}

off_t position(MediaIo* io) {
  return ftello(io->stream);
}

// Scans on to the next EOI and gives the position after it, or 0.
off_t scanToEoi(MediaIo* io) {
  JpgMarker tag{};
  for (int n = 0; n < kMaxMarkers; ++n) {
    if (jpg_tn_read_tag(io, &tag) != 0) return 0;
    if (tag.marker[1] == kJpgEoi) return position(io);
  }
  return 0;
}

struct TnSpan {
  off_t start = 0;  // the file's own SOI unless an inner one is found
  off_t end = 0;    // 0 until an EOI ends the scan
};

// Reads the size of an inner frame; true when it is small enough to be the
// thumbnail.
bool isThumbFrame(MediaIo* io, MediaThumbnail* thumb) {
  media_skip_data(io, 3);  // length and precision
  thumb->height = static_cast<int32_t>(media_get_2BigEndianValue(io));
  thumb->width = static_cast<int32_t>(media_get_2BigEndianValue(io));
  return thumb->height <= kMaxThumbSide && thumb->width <= kMaxThumbSide;
}

TnSpan findThumbSpan(MediaIo* io, MediaThumbnail* thumb) {
  TnSpan span;
  JpgMarker tag{};
  if (jpg_tn_read_tag(io, &tag) != 0 || tag.marker[1] != kJpgSoi) return span;
  bool inside = false;
  for (int n = 0; n < kMaxMarkers; ++n) {
    if (jpg_tn_read_tag(io, &tag) != 0) break;
    const uint8_t code = tag.marker[1];
    if (code == kJpgSoi) {
      span.start = position(io) - 2;
      inside = true;
    } else if (code == kJpgEoi) {
      if (!inside) {
        span.end = position(io);
        break;
      }
      inside = false;
    } else if (code == kJpgSof0 && inside && isThumbFrame(io, thumb)) {
      span.end = scanToEoi(io);
      break;
    }
  }
  return span;
}

int32_t cutThumbnail(MediaIo* io, MediaThumbnail* thumb) {
  const TnSpan span = findThumbSpan(io, thumb);
  // An empty span is no picture: the caller falls back to its default one.
  if (span.start >= span.end || span.end - span.start >= UINT32_MAX) return -1;
  const auto size = static_cast<uint32_t>(span.end - span.start);
  if (!media_orient_data(io, span.start)) return -2;
  auto* data = static_cast<uint8_t*>(GetUB(size + 1));
  if (!data) return -2;
  if (!media_read_data(io, data, size)) {
    RetUB(data);
    thumb->data = nullptr;
    return -2;
  }
  media_strncpy(thumb->mime, "image/jpeg", sizeof thumb->mime);
  thumb->size = size;
  thumb->kind = 1;
  thumb->data = data;
  return 0;
}

}  // namespace

int32_t jpg_read_tag(MediaIo* io, JpgMarker* tag) {
  if (!io || !io->stream || !tag) return -1;
  if (!media_get_bookmark(io)) return -2;
  uint8_t bytes[4];
  if (!media_read_data(io, bytes, sizeof bytes)) return -2;
  if (bytes[0] != 0xFF) return restoreAnd(io, -2);
  for (int tries = 0; bytes[1] == 0xFF; ++tries) {
    if (tries == kMaxFillBytes) return -1;
    if (!media_skip_data(io, -3)) return restoreAnd(io, -1);
    if (!media_read_data(io, bytes, sizeof bytes)) return -2;
  }
  if (bytes[1] == 0x00) return -1;
  const bool standalone = bytes[1] == kJpgSoi || bytes[1] == kJpgEoi;
  fillMarker(tag, bytes, !standalone);
  const int32_t skip = standalone ? -2 : static_cast<int32_t>(tag->length) - 2;
  if (!media_skip_data(io, skip)) return restoreAnd(io, -1);
  return 0;
}

int32_t jpg_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  JpgMarker tag{};
  if (jpg_read_tag(io, &tag) != 0 || tag.marker[1] != kJpgSoi) return -1;
  for (int n = 0; n < kMaxMarkers; ++n) {
    if (jpg_read_tag(io, &tag) != 0) return -1;
    if (tag.marker[1] == kJpgSof0) return readFrameSize(io, tag, info);
  }
  return 0;
}

// Scans a chunk at a time rather than seeking per byte: a picture without an
// inner thumbnail is scanned to its end. The stepping is that of a 4-byte
// window, except that a marker in the last two bytes of the file still counts,
// so a main image's final EOI is found.
int32_t jpg_tn_read_tag(MediaIo* io, JpgMarker* tag) {
  if (!io || !io->stream || !tag) return -1;
  if (!media_get_bookmark(io)) return -1;
  off_t base = position(io);
  if (base < 0) return -1;
  uint8_t buf[kScanChunk];
  for (;;) {
    const size_t got = fread(buf, 1, sizeof buf, io->stream);
    size_t i = 0;
    while (i + 1 < got) {
      if (buf[i] == 0xFF && isScanMarker(buf[i + 1])) {
        const uint8_t bytes[4] = {buf[i], buf[i + 1], 0, 0};
        fillMarker(tag, bytes, false);
        if (!media_orient_data(io, base + static_cast<off_t>(i) + 2)) return restoreAnd(io, -1);
        return 0;
      }
      i += (buf[i] == 0xFF && buf[i + 1] != 0xFF) ? 2 : 1;
    }
    if (got < sizeof buf) return -2;
    base += static_cast<off_t>(i);
    if (!media_orient_data(io, base)) return restoreAnd(io, -1);
  }
}

int32_t jpgGetTn(const char* path, MediaThumbnail* thumb) {
  if (!path || !thumb) return -1;
  FILE* stream = fopen(path, "rbe");
  if (!stream) {
    DMS_LOG(kLogEvent, "open file \"%s\" fail", path);
    return -1;
  }
  MediaIo io{};
  media_init_io(&io, stream, kMediaFileJpeg);
  const int32_t result = cutThumbnail(&io, thumb);
  fclose(stream);
  return result;
}
