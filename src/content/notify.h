// Change notification: inotify watches on the folders of the content tree, and
// the changes they report applied to the tree on each periodic rescan.
//
// Events are not read as they come: they queue in the kernel and dlnaGetNotify
// drains them without waiting. A queue overflow rebuilds the whole library.
//
// Threading: these calls run on one thread at a time (the daemon's signal loop)
// and must be called without info->lock; they take it themselves, briefly,
// around each change of the tree. The watch tree belongs to the record and is
// touched only by these calls.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "content/dlna_info.h"

// Watch descriptor -> id of the folder container it watches. Owned by the
// record (info->watches) from dlnaRegNotify to dlnaUnregNotify.
struct DlnaWatchTree {
  std::map<int32_t, int32_t> nodes;
};

// Mask bits, as the kernel numbers them.
inline constexpr uint32_t kDlnaInCloseWrite = 0x8;
inline constexpr uint32_t kDlnaInMovedFrom = 0x40;
inline constexpr uint32_t kDlnaInMovedTo = 0x80;
inline constexpr uint32_t kDlnaInCreate = 0x100;
inline constexpr uint32_t kDlnaInDelete = 0x200;
inline constexpr uint32_t kDlnaInDeleteSelf = 0x400;
inline constexpr uint32_t kDlnaInMoveSelf = 0x800;
inline constexpr uint32_t kDlnaInQOverflow = 0x4000;
inline constexpr uint32_t kDlnaInIgnored = 0x8000;
inline constexpr uint32_t kDlnaInIsDir = 0x40000000;

// What every folder is watched for: close-write, moves, create, delete, and
// the folder's own deletion or move.
inline constexpr uint32_t kDlnaWatchMask = 0xFC8;

// Bytes read from the descriptor per drain.
inline constexpr size_t kDlnaNotifyReadSize = 32768;

// One record as read from the descriptor: four 32-bit words, then a NUL-padded
// name of the length the fourth word gives. The mask is taken from the third
// word on purpose (where the kernel writes its rename cookie, not the mask), so
// most real events read as mask 0 and change nothing.
inline constexpr size_t kDlnaNotifyHeaderSize = 16;

struct DlnaNotifyEvent {
  int32_t wd = -1;
  uint32_t mask = 0;
  std::string name;
};

// Opens the inotify descriptor and an empty watch tree; 0 (also when already
// open), -1 for a null record or when the descriptor cannot be opened.
int dlnaRegNotify(DlnaInfo* info);

// Removes every watch, frees the watch tree and closes the descriptor.
void dlnaUnregNotify(DlnaInfo* info);

// Watches the folder at `path` for container `containerId`, replacing any
// node of the same watch descriptor. -1 for missing arguments, a closed
// descriptor or the path "/mnt"; a watch the kernel refuses is skipped (0).
int dlnaAddNotify(DlnaInfo* info, const char* path, int32_t containerId);

// Forgets the node of `wd` (the kernel has already dropped the watch); 0, or -1.
int dlnaDelNotify(DlnaInfo* info, int32_t wd);

// Reads what is pending (no waiting) and applies each record, publishing one
// SystemUpdateID for the batch; an overflow record rebuilds the whole library
// instead. Returns the last record's result (0 or -1), -1 without a descriptor.
int dlnaGetNotify(DlnaInfo* info);

// Applies one event to the folder its watch descriptor stands for: 0, or -1
// when the descriptor, the folder or a file it names is unknown.
int dlnaHdlNotify(const DlnaNotifyEvent* event, DlnaInfo* info);
