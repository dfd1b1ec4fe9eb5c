// Change notification; see notify.h.
#include "content/notify.h"

#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <shared_mutex>

#include "content/folders.h"
#include "content/library.h"
#include "content/metadata.h"
#include "content/state_var.h"
#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "notify";
constexpr size_t kPathMax = 1024;
constexpr int kCloseOnExec = 02000000;

// Direct system calls: a small C library may lack the wrappers.
int inotify_init() {
  return static_cast<int>(syscall(SYS_inotify_init1, kCloseOnExec));
}

int inotify_add_watch(int fd, const char* path, uint32_t mask) {
  return static_cast<int>(syscall(SYS_inotify_add_watch, fd, path, mask));
}

int inotify_rm_watch(int fd, int wd) {
  return static_cast<int>(syscall(SYS_inotify_rm_watch, fd, wd));
}

void publishUpdate(DlnaInfo* info) {
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", static_cast<int32_t>(++info->systemUpdateId));
}

// A path of at most kPathMax - 1 characters, as a fixed buffer would cut it.
std::string boundedPath(std::string path) {
  if (path.size() >= kPathMax) path.resize(kPathMax - 1);
  return path;
}

// The disk path of a folder container: the titles up to its shared directory,
// whose title is an absolute path. Caller holds the lock.
std::string folderDiskPath(const DlnaEntry* folder) {
  std::string path = folder->title;
  for (const DlnaEntry* up = folder->parent; up && up->id >= kDlnaFirstId; up = up->parent)
    path = up->title + "/" + path;
  return path;
}

// The first child of `folder` that `name` stands for: by title for a folder,
// by title plus its url name's extension for a file. Caller holds the lock.
DlnaEntry* findChild(const DlnaEntry* folder, const std::string& name, bool isDir) {
  for (auto& [id, child] : folder->children->nodes) {
    if (isDir) {
      if (child->title == name) return child;
      continue;
    }
    size_t dot = child->urlName.find('.');
    if (dot == std::string::npos) continue;
    if (boundedPath(child->title + child->urlName.substr(dot)) == name) return child;
  }
  return nullptr;
}

// Something appeared in `folder`: a new folder is scanned and watched, a new
// file profiled.
int onAppeared(DlnaInfo* info, DlnaEntry* folder, const std::string& name, bool isDir) {
  std::string path;
  {
    std::shared_lock lock(info->lock);
    path = boundedPath(folderDiskPath(folder) + "/" + name);
  }
  if (isDir) {
    DlnaEntry* sub;
    {
      std::unique_lock lock(info->lock);
      sub = dlnaNewContainer(info, name.c_str(), folder, info->nextId, kDlnaContFolder);
      if (sub) dlnaAdd2Parents(info, folder, sub);
    }
    if (sub) {
      dlnaAdd2Container(info, sub, path.c_str());
      dlnaAddNotify(info, path.c_str(), sub->id);
    }
    return 0;
  }
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return -1;
  dlnaMetaAddFile(info, folder, path.c_str(), name.c_str(), &st);
  return 0;
}

int onLeft(DlnaInfo* info, DlnaEntry* folder, const std::string& name, bool isDir) {
  std::unique_lock lock(info->lock);
  if (DlnaEntry* child = findChild(folder, name, isDir)) dlnaFreeEntry(info, child);
  return 0;
}

// A file was written: its item is profiled again, or made when it is new.
int onWritten(DlnaInfo* info, DlnaEntry* folder, const std::string& name) {
  DlnaEntry* item;
  std::string path;
  {
    std::shared_lock lock(info->lock);
    item = findChild(folder, name, false);
    if (item) path = boundedPath(folderDiskPath(folder) + "/" + name);
  }
  if (!item) return onAppeared(info, folder, name, false);
  dlnaRenewItem(info, item, path.c_str());
  return 0;
}

// The watched folder itself is gone.
int onIgnored(DlnaInfo* info, DlnaEntry* folder, int32_t wd) {
  dlnaDelNotify(info, wd);
  std::unique_lock lock(info->lock);
  dlnaFreeEntry(info, folder);
  return 0;
}

// Decodes the record at `at` into `event`; its size, or 0 when the bytes left
// do not hold a whole record.
size_t readRecord(const char* at, size_t left, DlnaNotifyEvent& event) {
  if (left < kDlnaNotifyHeaderSize) return 0;
  uint32_t words[4];
  memcpy(words, at, sizeof words);
  if (words[3] > left - kDlnaNotifyHeaderSize) return 0;
  const char* name = at + kDlnaNotifyHeaderSize;
  event.wd = static_cast<int32_t>(words[0]);
  event.mask = words[2];
  event.name.assign(name, strnlen(name, words[3]));
  return kDlnaNotifyHeaderSize + words[3];
}

}  // namespace

int dlnaRegNotify(DlnaInfo* info) {
  if (!info) return -1;
  if (info->notifyFd >= 0) return 0;
  info->notifyFd = inotify_init();
  DMS_LOG(kLogTrace, "begin inotify fd = %d", info->notifyFd);
  if (info->notifyFd < 0) return -1;
  if (!info->watches) info->watches = new DlnaWatchTree;
  return 0;
}

void dlnaUnregNotify(DlnaInfo* info) {
  if (!info) return;
  if (info->watches) {
    for (auto& [wd, id] : info->watches->nodes) inotify_rm_watch(info->notifyFd, wd);
    delete info->watches;
    info->watches = nullptr;
  }
  DMS_LOG(kLogEvent, "close the inotify [%d]", info->notifyFd);
  if (info->notifyFd >= 0) close(info->notifyFd);
  info->notifyFd = -1;
}

int dlnaAddNotify(DlnaInfo* info, const char* path, int32_t containerId) {
  if (!info || !path || info->notifyFd < 0 || strcmp(path, "/mnt") == 0) return -1;
  int wd = inotify_add_watch(info->notifyFd, path, kDlnaWatchMask);
  if (wd < 0) return 0;
  bool inserted = false;
  if (info->watches) {
    info->watches->nodes.erase(wd);
    inserted = info->watches->nodes.emplace(wd, containerId).second;
  }
  if (!inserted) DMS_LOG(kLogEvent, "Failed to add the RB inotify tree.\n");
  return 0;
}

int dlnaDelNotify(DlnaInfo* info, int32_t wd) {
  if (!info || wd < 0 || info->notifyFd < 0 || !info->watches) return -1;
  info->watches->nodes.erase(wd);
  return 0;
}

int dlnaGetNotify(DlnaInfo* info) {
  if (!info || info->notifyFd < 0) return -1;
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(info->notifyFd, &readable);
  timeval now = {0, 0};
  int ready = select(info->notifyFd + 1, &readable, nullptr, nullptr, &now);
  if (ready < 0) {
    DMS_LOG(kLogEvent, "select fail,errno=%d", errno);
    return ready;
  }
  if (ready == 0) return 0;

  static char buffer[kDlnaNotifyReadSize];  // one drain at a time
  ssize_t got;
  do {
    got = read(info->notifyFd, buffer, sizeof buffer);
  } while (got < 0 && errno == EINTR);

  int result = got < 0 ? -1 : 0;
  size_t total = got < 0 ? 0 : static_cast<size_t>(got);
  DlnaNotifyEvent event;
  for (size_t at = 0, size; (size = readRecord(buffer + at, total - at, event)) != 0; at += size) {
    DMS_LOG(kLogTrace, "ptEvent->name=%s,ptEvent->wd=%d,ptEvent->mask=%0x", event.name.c_str(),
            event.wd, event.mask);
    if (event.mask & kDlnaInQOverflow) {
      dlnaRenewMetaLst(info);
      publishUpdate(info);
      return result;
    }
    result = dlnaHdlNotify(&event, info);
  }
  publishUpdate(info);
  return result;
}

int dlnaHdlNotify(const DlnaNotifyEvent* event, DlnaInfo* info) {
  if (!event || !info || !info->watches) return -1;
  auto node = info->watches->nodes.find(event->wd);
  if (node == info->watches->nodes.end()) return -1;
  DlnaEntry* folder;
  {
    std::shared_lock lock(info->lock);
    folder = dlnaGetEntry(info, node->second);
    if (!folder || !folder->children) return -1;
  }
  const uint32_t mask = event->mask;
  const bool isDir = (mask & kDlnaInIsDir) != 0;
  if (mask & (kDlnaInMovedTo | kDlnaInCreate)) return onAppeared(info, folder, event->name, isDir);
  if (mask & (kDlnaInMovedFrom | kDlnaInDelete)) return onLeft(info, folder, event->name, isDir);
  if (mask & (kDlnaInDeleteSelf | kDlnaInMoveSelf)) return 0;
  if (mask & kDlnaInCloseWrite) return onWritten(info, folder, event->name);
  if (mask & kDlnaInIgnored) return onIgnored(info, folder, event->wd);
  return 0;
}
