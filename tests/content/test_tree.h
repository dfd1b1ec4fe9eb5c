// Builds a content tree by hand the way the library scan does: the root and the
// default containers, shared folders under "Folder", items filed into their
// class's views. Takes no lock; the destructor frees the whole tree.
#pragma once

#include <cstdint>
#include <string>

#include "content/metadata.h"
#include "core/dlna_dms.h"

// The default containers in creation order, each with its parent.
inline constexpr int32_t kTestDefaultTree[][2] = {
    {kDlnaIdMusic, kDlnaIdRoot},       {kDlnaIdAllMusic, kDlnaIdMusic},
    {kDlnaIdMusicGenre, kDlnaIdMusic}, {kDlnaIdMusicArtist, kDlnaIdMusic},
    {kDlnaIdMusicAlbum, kDlnaIdMusic}, {kDlnaIdMusicYear, kDlnaIdMusic},
    {kDlnaIdVideo, kDlnaIdRoot},       {kDlnaIdAllVideo, kDlnaIdVideo},
    {kDlnaIdVideoYear, kDlnaIdVideo},  {kDlnaIdPhoto, kDlnaIdRoot},
    {kDlnaIdAllPhoto, kDlnaIdPhoto},   {kDlnaIdPhotoAlbum, kDlnaIdPhoto},
    {kDlnaIdPhotoYear, kDlnaIdPhoto},  {kDlnaIdFolder, kDlnaIdRoot},
};

struct TestTags {
  std::string genre = "Unknown", artist = "Unknown", album = "Unknown";
  int32_t year = 0;
};

// The title of the group `tags` are filed into under view `viewId`.
inline std::string testGroupKey(const TestTags& tags, int32_t viewId) {
  const std::string keys[] = {"", tags.genre, tags.artist, tags.album, std::to_string(tags.year)};
  return keys[viewId % 10];
}

class TestTree {
 public:
  explicit TestTree(DlnaInfo& info) : info_(info) {
    _dlnaInit(&info_);
    info_.root = dlnaNewContainer(&info_, "root", nullptr, kDlnaIdRoot, kDlnaContPlain);
    for (auto [id, parentId] : kTestDefaultTree) {
      DlnaEntry* parent = get(parentId);
      _dlnaHdlDefCont(&info_, parent, dlnaNewContainer(&info_, "c", parent, id, kDlnaContPlain),
                      id);
    }
  }
  ~TestTree() { dlnaFreeMetaLst(&info_); }

  DlnaEntry* get(int32_t id) { return dlnaGetEntry(&info_, id); }
  DlnaEntry* addShare(const char* path) { return addFolder(get(kDlnaIdFolder), path); }
  DlnaEntry* addFolder(DlnaEntry* parent, const char* name) {
    DlnaEntry* folder = dlnaNewContainer(&info_, name, parent, info_.nextId, kDlnaContFolder);
    dlnaAdd2Parents(&info_, parent, folder);
    return folder;
  }

  // An item in `folder`, counted and filed into its class's views.
  DlnaEntry* addItem(DlnaEntry* folder, uint32_t mediaClass, const std::string& name,
                     const TestTags& tags = {}) {
    auto* item = new DlnaEntry;
    item->id = info_.nextId++;
    item->title = name;
    item->urlName = std::to_string(item->id) + ".ext";
    item->parent = folder;
    item->childCount = -1;
    item->media = std::make_unique<DlnaItemMedia>();
    item->media->mediaClass = mediaClass;
    item->media->year = tags.year;
    const DlnaClassViews* row = dlnaGetClassViews(mediaClass);
    ++(info_.*row->count);
    ++get(row->allId)->childCount;
    uint16_t DlnaItemMedia::*groupIds[] = {nullptr, &DlnaItemMedia::genreId,
                                           &DlnaItemMedia::artistId, &DlnaItemMedia::albumId};
    for (int32_t view : row->views) {
      if (view == 0) continue;
      uint16_t id = file(view, testGroupKey(tags, view));
      if (view % 10 < 4) (*item->media).*groupIds[view % 10] = id;
    }
    dlnaAdd2Parents(&info_, folder, item);
    return item;
  }

  // The group titled `title` under view `viewId`, or null.
  DlnaEntry* group(int32_t viewId, const std::string& title) {
    for (auto& [id, child] : get(viewId)->children->nodes)
      if (child->title == title) return child;
    return nullptr;
  }

  // The item count of the view's group for `tags`; -1 when there is no such group.
  int32_t filed(int32_t viewId, const TestTags& tags) {
    DlnaEntry* found = group(viewId, testGroupKey(tags, viewId));
    return found ? found->childCount : -1;
  }

 private:
  // The id of the view's group for `key`, made when needed, counting one more item.
  uint16_t file(int32_t viewId, const std::string& key) {
    DlnaEntry* found = group(viewId, key);
    if (!found) {
      found = dlnaNewContainer(&info_, key.c_str(), get(viewId), info_.nextId, kDlnaContPlain);
      dlnaAdd2Parents(&info_, get(viewId), found);
    }
    ++found->childCount;
    return static_cast<uint16_t>(found->id);
  }

  DlnaInfo& info_;
};
