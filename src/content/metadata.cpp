// The object store; see metadata.h.
#include "content/metadata.h"
#include "content/views.h"

#include <cstdio>
#include <mutex>
#include <new>
#include <vector>

#include "platform/log.h"
#include "profile/profile.h"

namespace {

constexpr char kLogSource[] = "metadata";

// Removes `entry`'s node from its parent's child list; true when one was there.
bool unlinkFromParent(DlnaEntry* entry) {
  DlnaEntry* parent = entry->parent;
  if (!parent || !parent->children) return false;
  if (parent->children->nodes.erase(entry->id) == 0) return false;
  --parent->childCount;
  return true;
}

// The view's group that `item` was filed into, or null.
DlnaEntry* findGroup(DlnaEntry* view, const DlnaItemMedia& media, int32_t viewId) {
  int32_t groupId = 0;
  char year[32] = {};
  switch (dlnaViewKind(viewId)) {
    case DlnaViewKind::kGenre:
      groupId = media.genreId;
      break;
    case DlnaViewKind::kArtist:
      groupId = media.artistId;
      break;
    case DlnaViewKind::kAlbum:
      groupId = media.albumId;
      break;
    case DlnaViewKind::kYear:
      snprintf(year, sizeof year, "%d", media.year);
      break;
    default:
      return nullptr;
  }
  int32_t left = view->childCount;
  for (auto& [id, child] : view->children->nodes) {
    if (left-- <= 0) break;
    if (year[0] ? child->title == year : (groupId != 0 && id == groupId)) return child;
  }
  return nullptr;
}

void deleteEntry(DlnaEntry* entry) {
  delete entry;
}

}  // namespace

const DlnaDefCont g_szDefCont[15] = {
    {kDlnaIdMusic},       {kDlnaIdAllMusic},   {kDlnaIdMusicGenre},
    {kDlnaIdMusicArtist}, {kDlnaIdMusicAlbum}, {kDlnaIdMusicYear},
    {kDlnaIdVideo},       {kDlnaIdAllVideo},   {kDlnaIdVideoYear},
    {kDlnaIdPhoto},       {kDlnaIdAllPhoto},   {kDlnaIdPhotoAlbum},
    {kDlnaIdPhotoYear},   {kDlnaIdFolder},     {-1},
};

int _dlnaFindIndex(int32_t id) {
  for (int row = 0; g_szDefCont[row].id != -1; ++row)
    if (g_szDefCont[row].id == id) return row;
  return -1;
}

DlnaEntry* _dlnaGetDefCont(DlnaInfo* info, int32_t id) {
  if (!info || !info->index || _dlnaFindIndex(id) < 0) return nullptr;
  auto found = info->index->find(id);
  return found == info->index->end() ? nullptr : found->second;
}

DlnaEntry* dlnaNewContainer(DlnaInfo* info, const char* name, DlnaEntry* parent, int32_t id,
                            int32_t type) {
  if (!info || !name) return nullptr;
  try {
    auto entry = std::make_unique<DlnaEntry>();
    entry->id = id;
    entry->parent = parent;
    entry->title = name;
    char url[32];
    if (snprintf(url, sizeof url, "%d", id) > 31)
      DMS_LOG(kLogTrace, "URL string too long for id %d, truncated!!", id);
    entry->urlName = url;
    entry->children = std::make_unique<DlnaChildList>();
    entry->children->type = type;
    ++info->nextId;
    ++info->containerCount;
    return entry.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void dlnaAdd2Parents(DlnaInfo* info, DlnaEntry* parent, DlnaEntry* child) {
  if (!info || !parent || !child) return;
  bool linked = false;
  try {
    linked = parent->children && parent->children->nodes.emplace(child->id, child).second;
  } catch (const std::bad_alloc&) {
  }
  if (linked)
    ++parent->childCount;
  else
    DMS_LOG(kLogEvent, "Failed to add the RB lookup tree\n");
  bool indexed = false;
  try {
    indexed = info->index && info->index->emplace(child->id, child).second;
  } catch (const std::bad_alloc&) {
  }
  if (!indexed) DMS_LOG(kLogEvent, "Failed to add the RB lookup tree\n");
  if (child->isItem()) {
    try {
      info->items.emplace(child->id, child);
    } catch (const std::bad_alloc&) {
      DMS_LOG(kLogEvent, "Failed to add the RB lookup tree\n");
    }
  }
}

void _dlnaHdlDefCont(DlnaInfo* info, DlnaEntry* parent, DlnaEntry* container, int32_t id) {
  (void)id;  // the tree's index finds it by its own id
  dlnaAdd2Parents(info, parent, container);
}

DlnaEntry* dlnaGetEntry(DlnaInfo* info, int32_t id) {
  DMS_LOG(kLogTrace, "Looking for entry id %d\n", id);
  if (!info) return nullptr;
  if (id == kDlnaIdRoot) return info->root;
  if (info->index) {
    auto it = info->index->find(id);
    if (it != info->index->end()) return it->second;
  }
  DMS_LOG(kLogTrace, "Not Found\n");
  return nullptr;
}

const DlnaClassViews kDlnaClassViews[3] = {
    {kDlnaClassVideo, kDlnaIdAllVideo, &DlnaInfo::videoCount, {kDlnaIdVideoYear}},
    {kDlnaClassImage,
     kDlnaIdAllPhoto,
     &DlnaInfo::photoCount,
     {kDlnaIdPhotoAlbum, kDlnaIdPhotoYear}},
    {kDlnaClassAudio,
     kDlnaIdAllMusic,
     &DlnaInfo::musicCount,
     {kDlnaIdMusicGenre, kDlnaIdMusicArtist, kDlnaIdMusicAlbum, kDlnaIdMusicYear}},
};

const DlnaClassViews* dlnaGetClassViews(uint32_t mediaClass) {
  for (const DlnaClassViews& row : kDlnaClassViews)
    if (row.mediaClass == mediaClass) return &row;
  return nullptr;
}

void dlnaRmvFrmParent(DlnaInfo* info, DlnaEntry* item) {
  if (!info || !item || !item->media) return;
  unlinkFromParent(item);
  const DlnaClassViews* views = dlnaGetClassViews(item->media->mediaClass);
  if (!views) return;
  DlnaEntry* all = _dlnaGetDefCont(info, views->allId);
  if (!all) return;
  --all->childCount;
  --(info->*views->count);
  for (int32_t view : views->views)
    if (view != 0) _dlnaRmvFrmParent(info, item, view);
}

void _dlnaRmvFrmParent(DlnaInfo* info, DlnaEntry* item, int32_t viewId) {
  if (!info || !item || !item->media) return;
  DlnaEntry* view = _dlnaGetDefCont(info, viewId);
  if (!view || !view->children) return;
  DlnaEntry* group = findGroup(view, *item->media, viewId);
  if (group && --group->childCount == 0) _dlnaFreeEntry(info, group);
}

void _dlnaFreeEntry(DlnaInfo* info, DlnaEntry* entry) {
  if (!info || !entry) return;
  if (!entry->isItem()) {
    if (entry->children) {
      // Freeing a child unlinks it from this list, and an emptied shared folder
      // stays: walk a snapshot of the ids and free what is still there.
      std::vector<int32_t> ids;
      ids.reserve(entry->children->nodes.size());
      for (auto& node : entry->children->nodes) ids.push_back(node.first);
      for (int32_t id : ids) {
        auto it = entry->children->nodes.find(id);
        if (it != entry->children->nodes.end()) _dlnaFreeEntry(info, it->second);
      }
    }
    if (entry->parent && entry->parent->id == kDlnaIdFolder) {
      entry->children = std::make_unique<DlnaChildList>();
      entry->children->type = kDlnaContFolder;
      entry->childCount = 0;
      return;
    }
    entry->children.reset();
    unlinkFromParent(entry);
    --info->containerCount;
  } else {
    dlnaRmvFrmParent(info, entry);
    entry->media.reset();
    info->items.erase(entry->id);
  }
  if (info->index) info->index->erase(entry->id);
  deleteEntry(entry);
}

void dlnaFreeEntry(DlnaInfo* info, DlnaEntry* entry) {
  if (!info || !entry) return;
  if (entry != info->root) {
    _dlnaFreeEntry(info, entry);
    return;
  }
  if (info->index) {
    for (auto& node : *info->index) deleteEntry(node.second);
    info->index.reset();
  }
  deleteEntry(entry);
  info->items.clear();
  info->containerCount = 0;
  info->musicCount = 0;
  info->photoCount = 0;
  info->videoCount = 0;
}

void dlnaFreeMetaLst(DlnaInfo* info) {
  if (!info) return;
  std::unique_lock lock(info->lock);
  info->built = 0;
  if (info->root) dlnaFreeEntry(info, info->root);
  info->root = nullptr;
  info->nextId = kDlnaFirstId;
  info->musicCount = 0;
  info->photoCount = 0;
  info->videoCount = 0;
  info->containerCount = 0;
  info->index.reset();
  info->items.clear();
}

std::string dlnaWriteProtocolInfo(int32_t mode, int32_t /*ignored*/, const DlnaEntry* entry) {
  if (!entry || !entry->media) return {};
  const DlnaItemMedia& media = *entry->media;
  return dlnaProtocolInfoText(mode, media.profileName, media.mime, media.mediaClass);
}

const char* dlnaGetItemClassStr(const DlnaEntry* entry) {
  if (!entry || !entry->media) return nullptr;
  const DlnaItemClassRow* row = dlnaItemClass(entry->media->mediaClass);
  return row ? row->didlClass : nullptr;
}
