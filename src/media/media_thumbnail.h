// The thumbnail record that picture extractors fill for the web server.
#pragma once

#include <cstdint>

inline constexpr uint32_t kMediaThumbMimeSize = 16;

// A picture to send as a thumbnail: bytes in memory or a JPEG file on disk.
// Zeroed by its owner before it is filled; the owner frees `data` with RetUB.
struct MediaThumbnail {
  char mime[kMediaThumbMimeSize];  // MIME text of an in-memory picture; "" for a file
  uint32_t size;                   // bytes at data (kind 1); 0 for a file
  int32_t width;                   // pixels, when known
  int32_t height;
  uint32_t kind;  // 1 the picture is in memory, 0 a file on disk
  void* data;     // owned: the picture bytes (kind 1) or the path of a JPEG file (kind 0)
};
