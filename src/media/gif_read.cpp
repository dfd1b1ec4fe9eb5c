// GIF reader: the logical screen size from the header. Only GIF89a is a
// DLNA image format, so an older version is marked for the profile rules to
// refuse.
#include <cstring>

#include "media/media_parse.h"

namespace {

constexpr char gif_SIGN[] = "GIF";
constexpr char gif_VERS[] = "89a";
constexpr size_t kSignSize = 3;
constexpr size_t kVersionSize = 3;

}  // namespace

int32_t gif_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  uint8_t sign[kSignSize];
  if (!media_read_data(io, sign, sizeof sign) || memcmp(sign, gif_SIGN, kSignSize) != 0) return -1;
  // Version and screen size together, so a cut-off header writes nothing.
  uint8_t header[kVersionSize + 4];
  if (!media_read_data(io, header, sizeof header)) return -1;
  if (memcmp(header, gif_VERS, kVersionSize) != 0)
    media_strncpy(info->format, "NON-DLNA", sizeof info->format);
  info->width = static_cast<int32_t>(media_Get_LittleEndianValue(header + kVersionSize, 2));
  info->height = static_cast<int32_t>(media_Get_LittleEndianValue(header + kVersionSize + 2, 2));
  return 0;
}
