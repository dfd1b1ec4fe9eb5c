// The object store: ids, lookup, linking, and what freeing leaves behind.
#include "content/metadata.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "content/test_library.h"

namespace {

constexpr int32_t kDefaultContainers = 15;  // the root and the fourteen fixed ones
const std::vector<int32_t> kMusicViews = {kDlnaIdMusicGenre, kDlnaIdMusicArtist, kDlnaIdMusicAlbum,
                                          kDlnaIdMusicYear};

class ObjectStore : public testing::Test {
 protected:
  DlnaInfo info;
  TestTree tree{info};
};

TEST_F(ObjectStore, IdCounterCountsEveryCreatedObjectFromTwoHundredAndNeverGoesBack) {
  EXPECT_EQ(info.nextId, kDlnaFirstId + kDefaultContainers);
  EXPECT_EQ(info.containerCount, kDefaultContainers);
  DlnaEntry* share = tree.addShare("/media");
  DlnaEntry* item = tree.addItem(share, kDlnaClassVideo, "clip", {.year = 2010});
  EXPECT_EQ(share->id, 215);
  EXPECT_EQ(share->urlName, "215");
  EXPECT_EQ(item->id, 216);
  EXPECT_EQ(tree.group(kDlnaIdVideoYear, "2010")->id, 217);
  dlnaFreeEntry(&info, item);
  EXPECT_EQ(info.nextId, 218);

  // A fixed id still uses up a counter value; a failed creation does not.
  DlnaEntry* fixed = dlnaNewContainer(&info, "fixed", nullptr, 7, kDlnaContPlain);
  EXPECT_EQ(info.nextId, 219);
  EXPECT_EQ(dlnaNewContainer(&info, nullptr, nullptr, info.nextId, kDlnaContPlain), nullptr);
  EXPECT_EQ(info.nextId, 219);
  EXPECT_EQ(info.containerCount, kDefaultContainers + 2);  // the share and "fixed"
  delete fixed;
}

// A folder goes with its whole subtree; a shared folder is emptied but stays.
TEST_F(ObjectStore, FreeingFoldersRemovesSubtreesButOnlyEmptiesShares) {
  const TestTags tags{.genre = "Rock", .artist = "Band", .album = "Live", .year = 1999};
  DlnaEntry* folder = tree.get(kDlnaIdFolder);
  DlnaEntry* share = tree.addShare("/mnt/usb");
  DlnaEntry* kept = tree.addItem(tree.addShare("/mnt/disk"), kDlnaClassAudio, "kept", tags);
  const int32_t photo = tree.addItem(share, kDlnaClassImage, "photo")->id;
  DlnaEntry* sub = tree.addFolder(share, "sub");
  DlnaEntry* nested = tree.addFolder(sub, "nested");
  std::vector<int32_t> gone = {sub->id, nested->id,
                               tree.addItem(sub, kDlnaClassAudio, "x", tags)->id,
                               tree.addItem(nested, kDlnaClassVideo, "y", tags)->id};
  const int32_t containers = info.containerCount;

  dlnaFreeEntry(&info, sub);
  for (int32_t id : gone) EXPECT_EQ(dlnaGetEntry(&info, id), nullptr) << id;
  EXPECT_EQ(share->childCount, 1);
  EXPECT_EQ(share->children->nodes.count(photo), 1u);
  EXPECT_EQ(info.containerCount, containers - 3);  // with the video's year group
  EXPECT_EQ(info.musicCount, 1);
  EXPECT_EQ(info.videoCount, 0);
  EXPECT_EQ(tree.get(kDlnaIdAllMusic)->childCount, 1);
  for (int32_t view : kMusicViews) EXPECT_EQ(tree.filed(view, tags), 1) << view;

  dlnaFreeEntry(&info, share);
  EXPECT_EQ(dlnaGetEntry(&info, share->id), share);
  EXPECT_EQ(share->parent, folder);
  EXPECT_EQ(share->childCount, 0);
  EXPECT_TRUE(share->children->nodes.empty());
  EXPECT_EQ(share->children->type, kDlnaContFolder);
  EXPECT_EQ(folder->childCount, 2);
  EXPECT_EQ(dlnaGetEntry(&info, photo), nullptr);
  EXPECT_EQ(dlnaGetEntry(&info, kept->id), kept);
  EXPECT_EQ(info.photoCount, 0);
  EXPECT_EQ(info.containerCount, kDefaultContainers + 2 + 4);  // the shares, "kept"'s groups
  tree.addItem(share, kDlnaClassAudio, "again");
  EXPECT_EQ(share->childCount, 1);
}

struct ClassViews {
  uint32_t mediaClass;
  int32_t allId;
  int32_t DlnaInfo::*count;
  std::vector<int32_t> views;
};

const std::vector<int32_t> kPhotoViews = {kDlnaIdPhotoAlbum, kDlnaIdPhotoYear};
const ClassViews kClasses[] = {
    {kDlnaClassAudio, kDlnaIdAllMusic, &DlnaInfo::musicCount, kMusicViews},
    {kDlnaClassImage, kDlnaIdAllPhoto, &DlnaInfo::photoCount, kPhotoViews},
    {kDlnaClassVideo, kDlnaIdAllVideo, &DlnaInfo::videoCount, {kDlnaIdVideoYear}}};

// Groups live exactly as long as their items; views and "All" containers stay.
TEST(GroupRelease, GroupGoesWithItsLastItemAndViewsStay) {
  const TestTags shared{.genre = "Rock", .artist = "Band", .album = "Trip", .year = 2001};
  const TestTags alone{.genre = "Jazz", .artist = "Solo", .album = "Home", .year = 0};
  for (const ClassViews& c : kClasses) {
    SCOPED_TRACE(c.mediaClass);
    DlnaInfo info;
    TestTree tree(info);
    DlnaEntry* first = tree.addItem(tree.addShare("/a"), c.mediaClass, "first", shared);
    DlnaEntry* second = tree.addItem(tree.addShare("/b"), c.mediaClass, "second", shared);
    DlnaEntry* third = tree.addItem(first->parent, c.mediaClass, "third", alone);
    DlnaEntry* all = tree.get(c.allId);
    for (int32_t view : c.views) ASSERT_EQ(tree.filed(view, shared), 2) << view;

    dlnaFreeEntry(&info, first);
    EXPECT_EQ(all->childCount, 2);
    EXPECT_EQ(info.*c.count, 2);
    for (int32_t view : c.views) EXPECT_EQ(tree.filed(view, shared), 1) << view;

    dlnaFreeEntry(&info, second);
    for (int32_t view : c.views) {
      EXPECT_EQ(tree.filed(view, shared), -1) << view;
      EXPECT_EQ(tree.get(view)->childCount, 1) << view;
    }

    // The last item takes its groups (the year 0 one included) but no view.
    dlnaFreeEntry(&info, third);
    EXPECT_EQ(tree.get(c.allId), all);
    EXPECT_EQ(all->childCount, 0);
    EXPECT_EQ(info.*c.count, 0);
    for (int32_t view : c.views) EXPECT_TRUE(tree.get(view)->children->nodes.empty()) << view;
    EXPECT_EQ(info.containerCount, kDefaultContainers + 2);  // the two shares
  }
}

TEST_F(ObjectStore, GroupsAreMatchedByIdOrWholeYearTitle) {
  // Only the counter makes group ids, so none is 0; a group numbered 0 shows
  // that an unfiled item (kept id 0) is not taken for one of its members.
  DlnaEntry* genres = tree.get(kDlnaIdMusicGenre);
  DlnaEntry* zero = dlnaNewContainer(&info, "zero", genres, 0, kDlnaContMusicGenre);
  dlnaAdd2Parents(&info, genres, zero);
  zero->childCount = 1;
  DlnaEntry* share = tree.addShare("/m");
  DlnaEntry* unfiled = tree.addItem(share, kDlnaClassAudio, "unfiled", {.year = 1984});
  unfiled->media->genreId = 0;
  dlnaFreeEntry(&info, unfiled);
  EXPECT_EQ(zero->childCount, 1);
  EXPECT_EQ(tree.filed(kDlnaIdMusicYear, {.year = 1984}), -1);

  tree.addItem(share, kDlnaClassImage, "later", {.year = 2020});
  DlnaEntry* early = tree.addItem(share, kDlnaClassImage, "early", {.year = 202});
  ASSERT_LT(tree.group(kDlnaIdPhotoYear, "2020")->id, tree.group(kDlnaIdPhotoYear, "202")->id);
  dlnaFreeEntry(&info, early);
  EXPECT_EQ(tree.filed(kDlnaIdPhotoYear, {.year = 202}), -1);
  EXPECT_EQ(tree.filed(kDlnaIdPhotoYear, {.year = 2020}), 1);
}

// A rebuild makes a second tree before the swap; freeing the old one must not
// forget the new one's default containers.
TEST_F(ObjectStore, FreeingTheRootResetsTheStoreAndForgetsOnlyItsOwnContainers) {
  DlnaEntry* share = tree.addShare("/m");
  tree.addItem(share, kDlnaClassAudio, "a", {.genre = "Pop"});
  tree.addItem(tree.addFolder(share, "sub"), kDlnaClassImage, "b");
  tree.addItem(share, kDlnaClassVideo, "c");
  info.built = 1;
  DlnaInfo next;
  _dlnaInit(&next);
  next.root = dlnaNewContainer(&next, "root", nullptr, kDlnaIdRoot, kDlnaContPlain);
  DlnaEntry* nextFolder = dlnaNewContainer(&next, "Folder", next.root, kDlnaIdFolder, 0);
  _dlnaHdlDefCont(&next, next.root, nextFolder, kDlnaIdFolder);

  dlnaFreeEntry(&info, info.root);
  info.root = nullptr;
  EXPECT_EQ(info.index, nullptr);
  EXPECT_EQ(info.musicCount + info.photoCount + info.videoCount + info.containerCount, 0);
  for (auto [id, parentId] : kTestDefaultTree)
    EXPECT_EQ(_dlnaGetDefCont(&next, id), id == kDlnaIdFolder ? nextFolder : nullptr) << id;
  dlnaFreeMetaLst(&info);
  EXPECT_EQ(info.built, 0);
  EXPECT_EQ(info.nextId, kDlnaFirstId);
  EXPECT_EQ(dlnaGetEntry(&info, kDlnaIdFolder), nullptr);
  EXPECT_EQ(_dlnaGetDefCont(&info, kDlnaIdFolder), nullptr);
  dlnaFreeMetaLst(&next);
  EXPECT_EQ(_dlnaGetDefCont(&next, kDlnaIdFolder), nullptr);
}

}  // namespace
