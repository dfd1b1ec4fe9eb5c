// Run-time changes of the library: a shared folder added or removed on
// request, the full rebuild swapped in after an event overflow, and the
// renewal of one rewritten file.
//
// Threading: these calls run on one thread at a time (the daemon's signal
// loop), the only thread that changes the tree while it is served. They take
// info->lock themselves, exclusively and briefly around each change; scans and
// profiling run outside it. Call them without the lock.
#pragma once

#include <cstddef>
#include <cstdint>

#include "content/dlna_info.h"

struct DlnaEntry;

// Adds the folder at `path` to the live tree: an existing shared directory is
// emptied and rescanned under its id; a missing level below a shared directory
// is created, titled with the whole remaining path; any other path becomes a
// new shared directory.
void dlnaAddFolder(const char* path);

// The matching step of dlnaAddFolder: `path` from `skip` on, against the
// children of `folder` (null: "Folder").
void _dlnaAddFolder(const char* path, size_t skip, DlnaEntry* folder);

// Removes the folder at `path` from the live tree; a shared directory is
// emptied but stays. Its watches are left in place.
void dlnaDelFolder(const char* path);

// The matching step of dlnaDelFolder, under the write lock. After a matching
// title the path is advanced past one more character, whatever it is.
void _dlnaDelFolder(const char* path, DlnaEntry* folder);

// Builds a whole new tree (with a new inotify descriptor when `info` has one)
// into a private record while `info` keeps serving, swaps it in under the
// write lock and frees the old one. Not built yet: builds in place.
void dlnaRenewMetaLst(DlnaInfo* info);

// Frees `item` and creates it again from the file at `path`, with a new id:
// 0, or -1 for a missing item or path, a container, or a file gone.
int dlnaRenewItem(DlnaInfo* info, DlnaEntry* item, const char* path);
