// Builds a content tree by hand the way the library scan does: the root and the
// default containers, shared folders under "Folder", items filed into the
// views' groups. For tests of the store and of code that reads the tree.
//
// Nothing here takes info.lock; callers that share the tree across threads
// hold it around every call. The destructor frees the whole tree.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "content/metadata.h"
#include "core/dlna_dms.h"
#include "core/dlna_info.h"
#include "core/dlna_types.h"

// One row per default container, in creation order.
struct TestDefCont {
  int32_t id;
  const char* title;
  int32_t parentId;
  int32_t type;
};

inline constexpr TestDefCont kTestDefaultTree[] = {
    {kDlnaIdMusic, "Music", kDlnaIdRoot, kDlnaContPlain},
    {kDlnaIdAllMusic, "All Music", kDlnaIdMusic, kDlnaContMusic},
    {kDlnaIdMusicGenre, "Genre", kDlnaIdMusic, kDlnaContMusicGenre},
    {kDlnaIdMusicArtist, "Artist", kDlnaIdMusic, kDlnaContMusic},
    {kDlnaIdMusicAlbum, "Album", kDlnaIdMusic, kDlnaContMusicAlbum},
    {kDlnaIdMusicYear, "Year", kDlnaIdMusic, kDlnaContMusic},
    {kDlnaIdVideo, "Video", kDlnaIdRoot, kDlnaContVideo},
    {kDlnaIdAllVideo, "All Video", kDlnaIdVideo, kDlnaContVideo},
    {kDlnaIdVideoYear, "Year", kDlnaIdVideo, kDlnaContVideo},
    {kDlnaIdPhoto, "Photo", kDlnaIdRoot, kDlnaContPhoto},
    {kDlnaIdAllPhoto, "All Photo", kDlnaIdPhoto, kDlnaContPhoto},
    {kDlnaIdPhotoAlbum, "Album", kDlnaIdPhoto, kDlnaContPhotoAlbum},
    {kDlnaIdPhotoYear, "Year", kDlnaIdPhoto, kDlnaContPhoto},
    {kDlnaIdFolder, "Folder", kDlnaIdRoot, kDlnaContPlain},
};

// The tag texts an item is grouped by.
struct TestTags {
  std::string genre = "Unknown";
  std::string artist = "Unknown";
  std::string album = "Unknown";
  int32_t year = 0;
};

// The grouping key of `tags` in view `viewId`, or "" for a view without groups.
inline std::string testGroupKey(const TestTags& tags, int32_t viewId) {
  switch (viewId % 10) {
    case 1:
      return tags.genre;
    case 2:
      return tags.artist;
    case 3:
      return tags.album;
    case 4:
      return std::to_string(tags.year);
    default:
      return "";
  }
}

class TestTree {
 public:
  explicit TestTree(DlnaInfo& info) : info_(info) {
    _dlnaInit(&info_);
    info_.root = dlnaNewContainer(&info_, "root", nullptr, kDlnaIdRoot, kDlnaContPlain);
    for (const TestDefCont& row : kTestDefaultTree) {
      DlnaEntry* parent = dlnaGetEntry(&info_, row.parentId);
      DlnaEntry* container = dlnaNewContainer(&info_, row.title, parent, row.id, row.type);
      _dlnaHdlDefCont(&info_, parent, container, row.id);
    }
  }
  ~TestTree() { dlnaFreeMetaLst(&info_); }
  TestTree(const TestTree&) = delete;
  TestTree& operator=(const TestTree&) = delete;

  DlnaEntry* get(int32_t id) { return dlnaGetEntry(&info_, id); }

  // A shared directory: a folder directly under "Folder".
  DlnaEntry* addShare(const char* path) { return addFolder(get(kDlnaIdFolder), path); }

  DlnaEntry* addFolder(DlnaEntry* parent, const char* name) {
    DlnaEntry* folder = dlnaNewContainer(&info_, name, parent, info_.nextId, kDlnaContFolder);
    dlnaAdd2Parents(&info_, parent, folder);
    return folder;
  }

  // An item of `mediaClass` in `folder`, counted and filed into its class's views.
  DlnaEntry* addItem(DlnaEntry* folder, uint32_t mediaClass, const std::string& name,
                     const TestTags& tags = {}) {
    auto item = std::make_unique<DlnaEntry>();
    item->id = info_.nextId++;
    item->title = name;
    item->urlName = std::to_string(item->id) + ".ext";
    item->parent = folder;
    item->childCount = -1;
    item->media = std::make_unique<DlnaItemMedia>();
    DlnaItemMedia& media = *item->media;
    media.mediaClass = mediaClass;
    media.year = tags.year;
    media.title = name;
    switch (mediaClass) {
      case kDlnaClassVideo:
        ++info_.videoCount;
        ++get(kDlnaIdAllVideo)->childCount;
        file(tags, kDlnaIdVideoYear, kDlnaContVideo);
        break;
      case kDlnaClassImage:
        ++info_.photoCount;
        ++get(kDlnaIdAllPhoto)->childCount;
        media.albumId = file(tags, kDlnaIdPhotoAlbum, kDlnaContPhotoAlbum);
        file(tags, kDlnaIdPhotoYear, kDlnaContPhoto);
        break;
      case kDlnaClassAudio:
        ++info_.musicCount;
        ++get(kDlnaIdAllMusic)->childCount;
        media.genreId = file(tags, kDlnaIdMusicGenre, kDlnaContMusicGenre);
        media.artistId = file(tags, kDlnaIdMusicArtist, kDlnaContMusicArtist);
        media.albumId = file(tags, kDlnaIdMusicAlbum, kDlnaContMusicAlbum);
        file(tags, kDlnaIdMusicYear, kDlnaContMusic);
        break;
    }
    dlnaAdd2Parents(&info_, folder, item.get());
    return item.release();
  }

  // The group titled `title` under view `viewId`, or null.
  DlnaEntry* group(int32_t viewId, const std::string& title) {
    DlnaEntry* view = get(viewId);
    if (!view || !view->children) return nullptr;
    for (auto& [id, child] : view->children->nodes)
      if (child->title == title) return child;
    return nullptr;
  }

 private:
  // Files into the view's group for the item's key, creating the group when
  // needed; the group's id.
  uint16_t file(const TestTags& tags, int32_t viewId, int32_t type) {
    std::string key = testGroupKey(tags, viewId);
    if (DlnaEntry* existing = group(viewId, key)) {
      ++existing->childCount;
      return static_cast<uint16_t>(existing->id);
    }
    DlnaEntry* view = get(viewId);
    DlnaEntry* created = dlnaNewContainer(&info_, key.c_str(), view, info_.nextId, type);
    dlnaAdd2Parents(&info_, view, created);
    created->childCount = 1;
    return static_cast<uint16_t>(created->id);
  }

  DlnaInfo& info_;
};
