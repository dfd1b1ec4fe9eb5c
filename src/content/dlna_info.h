// The server-state record: one live instance, g_tDlnaInfo, owned by the daemon
// core. The content tree's fields (index, root, counts) are guarded by `lock`;
// the object store documents which calls take it.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <shared_mutex>

struct DlnaEntry;
struct DlnaProfileRegistry;
struct DlnaWatchTree;

// Id index and child lists: nodes (id, entry) ordered by id. The map owns its
// nodes, never the entries.
using DlnaIndex = std::map<int32_t, DlnaEntry*>;

inline constexpr int32_t kDlnaFirstId = 200;

// Server states.
inline constexpr int32_t kDmsIdle = 0;
inline constexpr int32_t kDmsRunning = 1;
inline constexpr int32_t kDmsStarting = 2;
inline constexpr int32_t kDmsStopping = 3;

struct DlnaInfo {
  std::atomic<int32_t> built{0};  // read by Browse and Search without the lock
  int32_t state = kDmsIdle;
  int32_t nextId = kDlnaFirstId;
  uint32_t systemUpdateId = 0;
  int32_t musicCount = 0;
  int32_t photoCount = 0;
  int32_t videoCount = 0;
  int32_t containerCount = 0;
  int32_t notifyFd = -1;
  int32_t deviceHandle = -1;
  char ip[32] = {};
  int32_t port = 0;
  std::unique_ptr<DlnaIndex> index;
  DlnaIndex items;  // every media item, by id: the all-items and group views walk it
  DlnaEntry* root = nullptr;
  DlnaProfileRegistry* registry = nullptr;
  DlnaWatchTree* watches = nullptr;
  std::shared_mutex lock;  // not recursive: a writer must not take it again

  DlnaInfo() = default;
  DlnaInfo(const DlnaInfo&) = delete;
  DlnaInfo& operator=(const DlnaInfo&) = delete;
};

extern DlnaInfo g_tDlnaInfo;

// Sets every field of a server-state record to its initial value, with a new
// empty id index; the lock is left alone. Null is ignored.
void _dlnaInit(DlnaInfo* info);
