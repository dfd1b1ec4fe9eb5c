// The files the web server serves under "/web": the service descriptions and
// the presentation page from memory (media files and thumbnails come later).
// The callbacks run on the web server's threads, several at once; a handle
// belongs to one request.
#pragma once

#include <cstddef>
#include <cstdint>

#include "stack/web_callbacks.h"

// Open-file handle: a disk file (kind 0) or a memory buffer (kind 1).
struct DlnaHttpFile {
  char* name;
  int64_t position;
  int32_t kind;
  int fd;      // kind 0
  char* data;  // kind 1, owned
  int64_t size;
};

extern const DlnaVirtualDirCallbacks virtual_dir_callbacks;

int _dlnaHttpGetInfo(const char* path, DlnaFileInfo* info);
DlnaWebFileHandle _dlnaHttpOpen(const char* path, int mode);
int _dlnaHttpRead(DlnaWebFileHandle file, char* buf, size_t length);
int _dlnaHttpWrite(DlnaWebFileHandle file, char* buf, size_t length);
int _dlnaHttpSeek(DlnaWebFileHandle file, int64_t offset, int origin);
int _dlnaHttpClose(DlnaWebFileHandle file);
int _dlnaHttpSendfile(DlnaWebFileHandle file, int* fd);

// A memory handle on a copy of `text` (`length` bytes), or null.
DlnaHttpFile* _dlnaGetFileMem(const char* name, const char* text, int64_t length);
