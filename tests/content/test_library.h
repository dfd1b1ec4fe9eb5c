// Test harness for the content tree, on g_tDlnaInfo: the daemon's start steps
// a library build needs (charset converter, state variables, the tree record,
// the profile registry) and their undoing; TestTree, a tree built by hand the
// way the scan builds one; LiveLibrary, a fixture that scans real files in a
// temporary folder and feeds change notification through a pipe.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "content/library.h"
#include "content/metadata.h"
#include "content/notify.h"
#include "content/state_var.h"
#include "core/dlna_dms.h"
#include "core/dms_main.h"
#include "fakes/fake_upnp_device.h"
#include "platform/ctype.h"
#include "profile/profile.h"

inline void testLibraryStart() {
  ctypeInit(1, kCtypeDetect);
  dlnaInitVarValue();
  _dlnaInit(&g_tDlnaInfo);
  g_tDlnaInfo.registry = dlnaMMInit();
  dlnaSetExtCheck(g_tDlnaInfo.registry, 1);
  dlnaRegMediaProfile(g_tDlnaInfo.registry);
}

// Builds the library of the shared folders in `contentList` ('|'-separated).
inline void testLibraryBuild(const std::string& contentList) {
  snprintf(gtDmsCfg.szContentLst, sizeof gtDmsCfg.szContentLst, "%s", contentList.c_str());
  dlnaBuildMetaLst(&g_tDlnaInfo);
}

inline void testLibraryStop() {
  dlnaFreeMetaLst(&g_tDlnaInfo);
  dlnaMMUninit(g_tDlnaInfo.registry);
  g_tDlnaInfo.registry = nullptr;
  dlnaFreeVarValue();
}

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

inline constexpr char kTestSong[] = "mp3_id3v23_genre_date.mp3";
inline constexpr char kTestPhoto[] = "jpeg_plain.jpg";

class LiveLibrary : public testing::Test {
 protected:
  void SetUp() override {
    fakeClearNotifications();
    testLibraryStart();
    char tmpl[] = "/tmp/dmsd-live-XXXXXX";
    root_ = mkdtemp(tmpl);
  }
  void TearDown() override {
    dlnaUnregNotify(&g_tDlnaInfo);
    if (writeEnd_ >= 0) close(writeEnd_);
    testLibraryStop();
    fakeClearNotifications();
    gtDmsCfg.szContentLst[0] = '\0';
    std::filesystem::remove_all(root_);
  }

  // The absolute path of `rel` under the test's folder.
  std::string at(const std::string& rel) const { return root_ + "/" + rel; }

  // Copies a fixture to `rel` under the test's folder.
  void put(const std::string& rel, const char* fixture) const {
    std::filesystem::path to = at(rel);
    std::filesystem::create_directories(to.parent_path());
    std::filesystem::copy_file(std::filesystem::path(DMSD_TEST_MEDIA) / fixture, to,
                               std::filesystem::copy_options::overwrite_existing);
  }

  // Builds the tree from shares given relative to the test's folder.
  void build(const std::vector<std::string>& shares) {
    std::string list;
    for (const std::string& share : shares) list += at(share) + "|";
    testLibraryBuild(list);
  }

  DlnaEntry* entry(int32_t id) { return dlnaGetEntry(&g_tDlnaInfo, id); }

  // The child of `parent` titled `title`, or null.
  static DlnaEntry* child(const DlnaEntry* parent, const std::string& title) {
    if (!parent || !parent->children) return nullptr;
    for (auto& [id, c] : parent->children->nodes)
      if (c->title == title) return c;
    return nullptr;
  }
  DlnaEntry* share(const std::string& rel) { return child(entry(kDlnaIdFolder), at(rel)); }

  // Titles of a container's children in id order.
  static std::vector<std::string> titles(const DlnaEntry* parent) {
    std::vector<std::string> out;
    for (auto& [id, c] : parent->children->nodes) out.push_back(c->title);
    return out;
  }

  // SystemUpdateID events sent so far.
  static size_t updateEvents() {
    size_t n = 0;
    for (const FakeNotify& event : fakeNotifications())
      if (!event.vars.empty() && event.vars[0].first == "SystemUpdateID") ++n;
    return n;
  }

  // Replaces the inotify descriptor by a pipe with an empty watch tree; the
  // records written by sendEvent are what the next drain reads.
  void usePipe() {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    dlnaUnregNotify(&g_tDlnaInfo);
    if (writeEnd_ >= 0) close(writeEnd_);
    g_tDlnaInfo.notifyFd = fds[0];
    g_tDlnaInfo.watches = new DlnaWatchTree;
    writeEnd_ = fds[1];
  }
  void watch(int32_t wd, const DlnaEntry* folder) { g_tDlnaInfo.watches->nodes[wd] = folder->id; }

  // One record: watch descriptor, an unused word, the mask (third word), the
  // name length, and the name padded with NULs to a multiple of four.
  void sendEvent(int32_t wd, uint32_t mask, const std::string& name = "") const {
    const uint32_t len = name.empty() ? 0 : static_cast<uint32_t>((name.size() + 4) & ~3u);
    const uint32_t words[4] = {static_cast<uint32_t>(wd), 0, mask, len};
    std::string record(reinterpret_cast<const char*>(words), sizeof words);
    record += name;
    record.resize(sizeof words + len, '\0');
    ASSERT_EQ(write(writeEnd_, record.data(), record.size()), static_cast<ssize_t>(record.size()));
  }

  std::string root_;
  int writeEnd_ = -1;
};
