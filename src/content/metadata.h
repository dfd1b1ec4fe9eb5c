// The object store: containers and items of the content tree, the id index,
// the default-container table, and linking, lookup, unlinking and freeing.
//
// The store owns every entry reachable from info->root (through the index);
// child lists and the index own only their nodes. None of these calls takes the
// tree lock except dlnaFreeMetaLst: callers hold info->lock (shared to read,
// exclusive to change). DlnaEntry is not copyable.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "content/dlna_info.h"
#include "profile/dlna_types.h"
#include "profile/profile.h"

// The media record an item keeps: the profiling result without its tag texts
// (its MIME never null), and the ids of the groups the item was filed into
// (0: none) instead.
struct DlnaItemMedia : DlnaMedia {
  uint16_t artistId = 0;
  uint16_t genreId = 0;
  uint16_t albumId = 0;
};

struct DlnaChildList {
  int32_t type = kDlnaContPlain;
  DlnaIndex nodes;
};

struct DlnaEntry {
  int32_t id = 0;
  std::string title;
  std::string urlName;  // "%d" for containers, "%d.%s" for items
  DlnaEntry* parent = nullptr;
  int32_t childCount = 0;                   // -1 marks an item
  std::unique_ptr<DlnaItemMedia> media;     // items only
  std::unique_ptr<DlnaChildList> children;  // containers only

  DlnaEntry() = default;
  DlnaEntry(const DlnaEntry&) = delete;
  DlnaEntry& operator=(const DlnaEntry&) = delete;

  bool isItem() const { return childCount < 0; }
};

// Fixed ids of the root's containers and views.
inline constexpr int32_t kDlnaIdRoot = 0;
inline constexpr int32_t kDlnaIdMusic = 1;
inline constexpr int32_t kDlnaIdAllMusic = 10;
inline constexpr int32_t kDlnaIdMusicGenre = 11;
inline constexpr int32_t kDlnaIdMusicArtist = 12;
inline constexpr int32_t kDlnaIdMusicAlbum = 13;
inline constexpr int32_t kDlnaIdMusicYear = 14;
inline constexpr int32_t kDlnaIdVideo = 2;
inline constexpr int32_t kDlnaIdAllVideo = 20;
inline constexpr int32_t kDlnaIdVideoYear = 24;
inline constexpr int32_t kDlnaIdPhoto = 3;
inline constexpr int32_t kDlnaIdAllPhoto = 30;
inline constexpr int32_t kDlnaIdPhotoAlbum = 33;
inline constexpr int32_t kDlnaIdPhotoYear = 34;
inline constexpr int32_t kDlnaIdFolder = 4;

// Per media class: the "All" container that counts its items, the server
// count, and the views its items are filed into (0 ends the list).
struct DlnaClassViews {
  uint32_t mediaClass;
  int32_t allId;
  int32_t DlnaInfo::*count;
  int32_t views[4];
};

extern const DlnaClassViews kDlnaClassViews[3];

// The row of a media class, or null.
const DlnaClassViews* dlnaGetClassViews(uint32_t mediaClass);

struct DlnaDefCont {
  int32_t id;
};

// The ids of the default containers in creation order, closed by id -1.
extern const DlnaDefCont g_szDefCont[15];

// Row of `id` in g_szDefCont, or -1.
int _dlnaFindIndex(int32_t id);

// The default container with `id` in the tree of `info`, or null: each tree,
// the live one or one being built beside it, answers for its own. The caller
// holds the tree's lock.
DlnaEntry* _dlnaGetDefCont(DlnaInfo* info, int32_t id);

// A new unlinked container (copy of name, url name = id in decimal, empty child
// list of `type`); bumps the id counter and the container count. Null when name
// is null or memory runs out.
DlnaEntry* dlnaNewContainer(DlnaInfo* info, const char* name, DlnaEntry* parent, int32_t id,
                            int32_t type);

// Links child under parent and into the id index.
void dlnaAdd2Parents(DlnaInfo* info, DlnaEntry* parent, DlnaEntry* child);

// Links a default container; the tree's index finds it again by its id.
void _dlnaHdlDefCont(DlnaInfo* info, DlnaEntry* parent, DlnaEntry* container, int32_t id);

// The object with `id` (0: the root), or null.
DlnaEntry* dlnaGetEntry(DlnaInfo* info, int32_t id);

// Unlinks an item from its folder and releases it from its class's views.
void dlnaRmvFrmParent(DlnaInfo* info, DlnaEntry* item);

// Releases an item from the group it was filed into under view `viewId`; an
// emptied group is freed.
void _dlnaRmvFrmParent(DlnaInfo* info, DlnaEntry* item, int32_t viewId);

// Frees an object and its subtree; the root takes a fast path that frees the
// whole tree and the id index without unlinking. A shared folder (a child of
// "Folder") is emptied, never removed.
void dlnaFreeEntry(DlnaInfo* info, DlnaEntry* entry);
void _dlnaFreeEntry(DlnaInfo* info, DlnaEntry* entry);

// Frees the whole tree under the write lock and resets the id counter and counts.
void dlnaFreeMetaLst(DlnaInfo* info);

// protocolInfo of an item: mode 1 gives the full "http-get:*:MIME:..." text,
// any other mode only "MIME:...". Empty for an entry without media.
std::string dlnaWriteProtocolInfo(int32_t mode, int32_t ignored, const DlnaEntry* entry);

// The UPnP class of an item, or null.
const char* dlnaGetItemClassStr(const DlnaEntry* entry);
