// The library build: the fixed tree of virtual containers, the scan of the
// shared directories, one item per recognised media file, and the filing of
// every item into the music, video and photo views.
//
// Threading: the scan reads directories and profiles files without the tree
// lock and takes the write lock only to link each new object, so Browse and
// Search running meanwhile see a consistent, growing tree. Only one scan may
// run at a time (the start-up and signal paths serialise it).
#pragma once

#include <sys/stat.h>

#include <cstdint>

#include "content/dlna_info.h"

struct DlnaEntry;
struct DlnaMediaResult;

// At most this many media items are ever added.
inline constexpr int32_t kDlnaMaxItems = 10000;

// Creates the default containers when the root is missing, scans every shared
// directory of the configured content list and publishes SystemUpdateID.
void dlnaBuildMetaLst(DlnaInfo* info);

// Adds one shared directory (title = the path as given) under "Folder" and scans it.
void dlnaAddSrc(DlnaInfo* info, const char* path, DlnaEntry* folderRoot);

// Creates a folder container titled `title` under `parent`, watches `path`
// for it, links it and scans `path` into it.
void _dlnaAddWatchedFolder(DlnaInfo* info, DlnaEntry* parent, const char* title, const char* path);

// Scans one directory into `folder`, depth first, in sorted name order.
void dlnaAdd2Container(DlnaInfo* info, DlnaEntry* folder, const char* dirPath);

// Profiles one file and, when it is media, links a new item under `folder`.
void dlnaMetaAddFile(DlnaInfo* info, DlnaEntry* folder, const char* fullPath, const char* fileName,
                     const struct stat* fileStat);

// Files an item, described by its profiling result, into the view `viewId`:
// the id of the group it joined or created, or -1. Caller holds the write lock.
int32_t _dlnaAddSub(DlnaInfo* info, const DlnaMediaResult* media, int32_t viewId,
                    uint32_t mediaClass);

// True when some registered parser may claim a file with this path's extension.
bool dlnaIsMediaFile(const DlnaInfo* info, const char* path);
