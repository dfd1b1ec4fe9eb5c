// The files the web server serves under "/web": the service descriptions and
// the presentation page from memory, media files by object id from disk, the
// logos, and thumbnails (in memory, or a default picture on disk).
//
// The callbacks run on the web server's threads, several at once; a handle
// belongs to one request. Object lookups take the tree lock briefly (shared);
// no lock is held across file I/O.
#pragma once

#include <cstddef>
#include <cstdint>

#include "stack/web_callbacks.h"

struct DlnaEntry;
struct MediaThumbnail;

// Open-file handle: a disk file (kind 0) or a memory buffer (kind 1). Made by
// open, released by close.
struct DlnaHttpFile {
  char* name;  // owned: the disk path or the virtual URL
  int64_t position;
  int32_t kind;
  int fd;                   // kind 0
  char* data;               // kind 1, owned
  const DlnaEntry* object;  // the media object; never used after open (the tree may change)
  int64_t size;             // kind 1
};

// What a media URL names, for the DLNA header steps: made by parseFileInfo,
// the path released by the caller with RetUB.
struct DlnaReqFileInfo {
  int32_t valid;  // 1 when the object has a media record
  char* path;     // owned disk path, or null
  uint8_t isImage;
  int32_t objectId;
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

// The disk path of an object (GetUB text the caller releases), or null. The
// caller holds the tree lock.
char* dlnaGetFullPath(const DlnaEntry* entry, const char* url);

// Fills `out` for the object whose id ends `url`: 0, or -1 for an unknown
// object or one without name. Takes the tree lock.
int parseFileInfo(const char* url, DlnaReqFileInfo* out);

// The thumbnail of the media file at `path`: its embedded picture in memory,
// or the default picture of `kind` (1 music, 2 video, 3 image) on disk. 0 or -1.
int mediaGetTn(const char* path, int32_t kind, MediaThumbnail* thumb);
