// TIFF reader: width and height from the first image directory. Later
// directories (pages, thumbnails) are not looked at.
#include <cstring>

#include "media/media_parse.h"
#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "tif_read";

// Bytes per field type 0..13 (BYTE ... DOUBLE; 0 and 13 unknown).
constexpr uint8_t tif_data_length[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 0};
constexpr int16_t kLastKnownType = 12;  // DOUBLE

constexpr uint32_t kTagImageWidth = 256;
constexpr uint32_t kTagImageLength = 257;
constexpr size_t kEntrySize = 12;

struct TifEntry {
  uint32_t tag;
  int16_t type;  // low byte of the type field
  uint32_t count;
  uint32_t value;
};

uint32_t fileOrder(const uint8_t* bytes, uint32_t n, bool little) {
  return static_cast<uint32_t>(little ? media_Get_LittleEndianValue(bytes, n)
                                      : media_Get_BigEndianValue(bytes, n));
}

void decodeEntry(const uint8_t raw[kEntrySize], bool little, TifEntry* entry) {
  entry->tag = fileOrder(raw, 2, little);
  entry->type = static_cast<int16_t>(fileOrder(raw + 2, 2, little) & 0xFF);
  entry->count = static_cast<uint32_t>(media_Get_BigEndianValue(raw + 4, 4));
  if (entry->type >= 1 && entry->type <= kLastKnownType) {
    const uint32_t width = tif_data_length[entry->type] < 4 ? tif_data_length[entry->type] : 4;
    entry->value = fileOrder(raw + 8, width, little);
  }
}

// Walks the directory at the stream position. A short entry read leaves the
// previous entry's values in place to be looked at again.
int32_t tif_read_IFD(MediaIo* io, MediaInfo* info, bool little) {
  uint8_t count_bytes[2];
  if (!media_read_data(io, count_bytes, sizeof count_bytes)) return -2;
  const uint32_t count = fileOrder(count_bytes, 2, little);
  TifEntry entry{};
  bool have_width = false;
  bool have_height = false;
  for (uint32_t i = 0; i < count; ++i) {
    uint8_t raw[kEntrySize];
    if (media_read_data(io, raw, sizeof raw)) decodeEntry(raw, little, &entry);
    if (entry.tag == kTagImageWidth) {
      info->width = static_cast<int32_t>(entry.value);
      have_width = true;
    } else if (entry.tag == kTagImageLength) {
      info->height = static_cast<int32_t>(entry.value);
      have_height = true;
    }
    if (have_width && have_height) {
      DMS_LOG(kLogTrace, "width %d,height %d", info->width, info->height);
      return 0;
    }
  }
  return -1;
}

}  // namespace

int32_t tif_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  uint8_t header[8];
  if (!media_read_data(io, header, sizeof header)) return -2;
  bool little;
  if (memcmp(header, "II", 2) == 0) {
    little = true;
  } else if (memcmp(header, "MM", 2) == 0) {
    little = false;
  } else {
    return -1;
  }
  if (!media_orient_data(io, fileOrder(header + 4, 4, little))) return -2;
  return tif_read_IFD(io, info, little);
}
