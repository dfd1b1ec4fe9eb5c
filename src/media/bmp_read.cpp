// BMP reader: the picture size from the info header that follows the 14-byte
// file header. Top-down bitmaps store a negative height.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "media/media_parse.h"

namespace {

constexpr uint32_t kBmpMagic = 0x4D42;  // "BM" read little-endian
constexpr int32_t kToWidth = 16;        // rest of the file header and the info header size

}  // namespace

int32_t bmp_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  uint8_t magic[2];
  if (!media_read_data(io, magic, sizeof magic)) return -1;
  if (media_Get_LittleEndianValue(magic, 2) != kBmpMagic || !media_skip_data(io, kToWidth))
    return -1;
  uint8_t size[8];
  if (!media_read_data(io, size, sizeof size)) return -1;
  const auto width = static_cast<int32_t>(media_Get_LittleEndianValue(size, 4));
  const auto height = static_cast<int32_t>(media_Get_LittleEndianValue(size + 4, 4));
  info->width = width;
  // INT32_MIN has no positive counterpart; it is no real height anyway.
  info->height = static_cast<int32_t>(std::min<int64_t>(std::llabs(height), INT32_MAX));
  return 0;
}
