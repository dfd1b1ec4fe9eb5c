// Run-time changes of the library; see folders.h.
#include "content/folders.h"

#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>

#include "content/dlna_info.h"
#include "content/library.h"
#include "content/metadata.h"
#include "content/notify.h"

namespace {

// How a child's title relates to the rest of a requested path.
enum class Match { kNone, kWhole, kPrefix };

// Shared directories are titled with their whole path, sub-folders with their
// name: `rest` either is a child's title, or continues below one after a
// slash. Caller holds the lock.
std::pair<DlnaEntry*, Match> matchChild(const DlnaEntry* folder, const char* rest) {
  const size_t restLen = strlen(rest);
  for (auto& [id, child] : folder->children->nodes) {
    const size_t n = child->title.size();
    if (n > restLen) continue;
    if (n == restLen && child->title == rest) return {child, Match::kWhole};
    if (n < restLen && strncmp(rest, child->title.c_str(), n) == 0 && rest[n] == '/')
      return {child, Match::kPrefix};
  }
  return {nullptr, Match::kNone};
}

bool isSharedDirectory(const DlnaEntry* entry) {
  return entry->parent && entry->parent->id == kDlnaIdFolder;
}

// The parts of the record a rebuild replaces. Both records are built by then,
// so the built flag is left as it is.
void swapTree(DlnaInfo& a, DlnaInfo& b) {
  std::swap(a.root, b.root);
  std::swap(a.index, b.index);
  std::swap(a.items, b.items);
  std::swap(a.nextId, b.nextId);
  std::swap(a.musicCount, b.musicCount);
  std::swap(a.photoCount, b.photoCount);
  std::swap(a.videoCount, b.videoCount);
  std::swap(a.containerCount, b.containerCount);
  std::swap(a.notifyFd, b.notifyFd);
  std::swap(a.watches, b.watches);
}

}  // namespace

void dlnaAddFolder(const char* path) {
  _dlnaAddFolder(path, 0, nullptr);
}

void _dlnaAddFolder(const char* path, size_t skip, DlnaEntry* folder) {
  DlnaInfo* info = &g_tDlnaInfo;
  if (!path) return;
  DlnaEntry* child;
  Match match;
  {
    std::shared_lock lock(info->lock);
    if (!folder) folder = _dlnaGetDefCont(info, kDlnaIdFolder);
    if (!folder || !folder->children || strlen(path) < skip) return;
    std::tie(child, match) = matchChild(folder, path + skip);
  }
  if (match == Match::kPrefix) {
    _dlnaAddFolder(path, skip + child->title.size() + 1, child);
    return;
  }
  if (match == Match::kWhole) {
    const bool shared = isSharedDirectory(child);
    {
      std::unique_lock lock(info->lock);
      dlnaFreeEntry(info, child);
    }
    // A shared directory stays, emptied, under its id; a sub-folder is gone
    // and is made anew below.
    if (shared) {
      dlnaAddNotify(info, path, child->id);
      dlnaAdd2Container(info, child, path);
      return;
    }
  }
  _dlnaAddWatchedFolder(info, folder, path + skip, path);
}

void dlnaDelFolder(const char* path) {
  std::unique_lock lock(g_tDlnaInfo.lock);
  _dlnaDelFolder(path, nullptr);
}

void _dlnaDelFolder(const char* path, DlnaEntry* folder) {
  DlnaInfo* info = &g_tDlnaInfo;
  if (!path) return;
  if (!folder) folder = _dlnaGetDefCont(info, kDlnaIdFolder);
  if (!folder || !folder->children) return;
  const size_t pathLen = strlen(path);
  for (auto& [id, child] : folder->children->nodes) {
    const size_t n = child->title.size();
    if (n > pathLen) continue;
    if (n == pathLen && child->title == path) {
      dlnaFreeEntry(info, child);
      return;
    }
    if (n < pathLen && strncmp(path, child->title.c_str(), n) == 0) {
      _dlnaDelFolder(path + n + 1, child);
      return;
    }
  }
}

void dlnaRenewMetaLst(DlnaInfo* info) {
  if (!info) return;
  if (!info->built) {
    dlnaBuildMetaLst(info);
    return;
  }
  auto next = std::make_unique<DlnaInfo>();
  _dlnaInit(next.get());
  next->state = info->state;
  next->systemUpdateId = info->systemUpdateId;
  next->deviceHandle = info->deviceHandle;
  memcpy(next->ip, info->ip, sizeof next->ip);
  next->port = info->port;
  next->registry = info->registry;
  if (info->notifyFd >= 0) dlnaRegNotify(next.get());
  // The live tree keeps serving while the new one is built.
  dlnaBuildMetaLst(next.get());
  {
    std::unique_lock lock(info->lock);
    swapTree(*info, *next);
  }
  dlnaFreeMetaLst(next.get());
  dlnaUnregNotify(next.get());
}

int dlnaRenewItem(DlnaInfo* info, DlnaEntry* item, const char* path) {
  if (!info || !item || !path) return -1;
  DlnaEntry* folder;
  {
    std::unique_lock lock(info->lock);
    if (!item->media) return -1;
    folder = item->parent;
    dlnaFreeEntry(info, item);
  }
  struct stat st;
  if (stat(path, &st) != 0) return -1;
  const char* slash = strrchr(path, '/');
  if (!slash) return -1;
  dlnaMetaAddFile(info, folder, path, slash + 1, &st);
  return 0;
}
