// The object store: ids, lookup, linking, and what freeing leaves behind.
#include "content/metadata.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "content/test_tree.h"

namespace {

constexpr int32_t kDefaultContainers = 15;  // the root and the fourteen fixed ones

class ObjectStore : public testing::Test {
 protected:
  DlnaInfo info;
  TestTree tree{info};
};

TEST_F(ObjectStore, RootIsFoundByZeroButIsNotIndexed) {
  ASSERT_NE(info.root, nullptr);
  EXPECT_EQ(dlnaGetEntry(&info, kDlnaIdRoot), info.root);
  EXPECT_EQ(info.index->count(kDlnaIdRoot), 0u);
  EXPECT_EQ(info.index->size(), 14u);
  EXPECT_EQ(info.root->childCount, 4);
}

TEST_F(ObjectStore, UnknownIdsAreNotFound) {
  for (int32_t id : {5, 199, 200, 215, -1, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(id);
    EXPECT_EQ(dlnaGetEntry(&info, id), nullptr);
  }
  EXPECT_EQ(dlnaGetEntry(nullptr, kDlnaIdRoot), nullptr);
}

TEST_F(ObjectStore, DefaultContainersAreIndexedAndRecordedInTableOrder) {
  int row = 0;
  for (const TestDefCont& expected : kTestDefaultTree) {
    SCOPED_TRACE(expected.id);
    DlnaEntry* entry = dlnaGetEntry(&info, expected.id);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->title, expected.title);
    EXPECT_EQ(entry->urlName, std::to_string(expected.id));
    ASSERT_NE(entry->parent, nullptr);
    EXPECT_EQ(entry->parent->id, expected.parentId);
    ASSERT_NE(entry->children, nullptr);
    EXPECT_EQ(entry->children->type, expected.type);
    EXPECT_EQ(g_szDefCont[row].id, expected.id);
    EXPECT_EQ(_dlnaFindIndex(expected.id), row);
    EXPECT_EQ(_dlnaGetDefCont(expected.id), entry);
    ++row;
  }
  EXPECT_EQ(g_szDefCont[row].id, -1);
  for (int32_t id : {kDlnaIdRoot, -1, 5, 215}) EXPECT_EQ(_dlnaFindIndex(id), -1) << id;
}

TEST_F(ObjectStore, IdCounterCountsEveryCreatedObjectFromTwoHundred) {
  DlnaInfo fresh;
  _dlnaInit(&fresh);
  EXPECT_EQ(fresh.nextId, 200);

  EXPECT_EQ(info.nextId, 215);
  EXPECT_EQ(info.containerCount, kDefaultContainers);
  DlnaEntry* share = tree.addShare("/media");
  EXPECT_EQ(share->id, 215);
  DlnaEntry* item = tree.addItem(share, kDlnaClassVideo, "clip", {.year = 2010});
  EXPECT_EQ(item->id, 216);
  EXPECT_EQ(item->urlName, "216.ext");
  EXPECT_EQ(tree.group(kDlnaIdVideoYear, "2010")->id, 217);
  EXPECT_EQ(info.nextId, 218);

  // A fixed id still uses up a counter value; a failed creation does not.
  DlnaEntry* fixed = dlnaNewContainer(&info, "fixed", nullptr, 7, kDlnaContPlain);
  EXPECT_EQ(info.nextId, 219);
  EXPECT_EQ(dlnaNewContainer(&info, nullptr, nullptr, info.nextId, kDlnaContPlain), nullptr);
  EXPECT_EQ(info.nextId, 219);
  EXPECT_EQ(info.containerCount, kDefaultContainers + 3);
  delete fixed;
}

TEST_F(ObjectStore, IdsAreNeverReusedAfterDeletion) {
  DlnaEntry* share = tree.addShare("/media");
  DlnaEntry* first = tree.addItem(share, kDlnaClassAudio, "song");
  const int32_t oldId = first->id;
  dlnaFreeEntry(&info, first);
  EXPECT_EQ(dlnaGetEntry(&info, oldId), nullptr);

  DlnaEntry* again = tree.addItem(share, kDlnaClassAudio, "song");
  EXPECT_GT(again->id, oldId);
  EXPECT_EQ(dlnaGetEntry(&info, again->id), again);
  EXPECT_EQ(dlnaGetEntry(&info, oldId), nullptr);

  DlnaEntry* sub = tree.addFolder(share, "sub");
  const int32_t subId = sub->id;
  dlnaFreeEntry(&info, sub);
  EXPECT_GT(tree.addFolder(share, "sub")->id, subId);
}

TEST_F(ObjectStore, FreeingSharedDirectoryEmptiesItInPlace) {
  DlnaEntry* folder = tree.get(kDlnaIdFolder);
  DlnaEntry* share = tree.addShare("/mnt/usb");
  DlnaEntry* other = tree.addShare("/mnt/disk");
  DlnaEntry* sub = tree.addFolder(share, "Albums");
  std::vector<int32_t> gone = {sub->id, tree.addItem(share, kDlnaClassAudio, "a")->id,
                               tree.addItem(share, kDlnaClassImage, "b")->id,
                               tree.addItem(sub, kDlnaClassVideo, "c")->id};
  DlnaEntry* kept = tree.addItem(other, kDlnaClassAudio, "d");
  const int32_t shareId = share->id;

  dlnaFreeEntry(&info, share);

  EXPECT_EQ(dlnaGetEntry(&info, shareId), share);
  EXPECT_EQ(share->parent, folder);
  EXPECT_EQ(share->title, "/mnt/usb");
  EXPECT_EQ(share->childCount, 0);
  ASSERT_NE(share->children, nullptr);
  EXPECT_TRUE(share->children->nodes.empty());
  EXPECT_EQ(share->children->type, kDlnaContFolder);
  EXPECT_EQ(folder->childCount, 2);
  for (int32_t id : gone) EXPECT_EQ(dlnaGetEntry(&info, id), nullptr) << id;
  EXPECT_EQ(dlnaGetEntry(&info, kept->id), kept);
  EXPECT_EQ(info.musicCount, 1);
  EXPECT_EQ(info.photoCount, 0);
  EXPECT_EQ(info.videoCount, 0);
  // The shares, "d"'s four music groups; "Albums" and the photo and video groups went.
  EXPECT_EQ(info.containerCount, kDefaultContainers + 2 + 4);

  // An emptied share takes new content.
  DlnaEntry* back = tree.addItem(share, kDlnaClassAudio, "a");
  EXPECT_EQ(share->childCount, 1);
  EXPECT_EQ(dlnaGetEntry(&info, back->id), back);
}

TEST_F(ObjectStore, FreeingSubFolderRemovesItsWholeSubtree) {
  const TestTags tags{.genre = "Rock", .artist = "Band", .album = "Live", .year = 1999};
  DlnaEntry* share = tree.addShare("/media");
  DlnaEntry* stays = tree.addItem(share, kDlnaClassAudio, "stays", tags);
  DlnaEntry* sub = tree.addFolder(share, "sub");
  DlnaEntry* nested = tree.addFolder(sub, "nested");
  std::vector<int32_t> gone = {sub->id, nested->id,
                               tree.addItem(sub, kDlnaClassAudio, "x", tags)->id,
                               tree.addItem(sub, kDlnaClassAudio, "y", tags)->id,
                               tree.addItem(nested, kDlnaClassAudio, "z", tags)->id};
  const int32_t containers = info.containerCount;
  ASSERT_EQ(tree.group(kDlnaIdMusicGenre, "Rock")->childCount, 4);

  dlnaFreeEntry(&info, sub);

  for (int32_t id : gone) EXPECT_EQ(dlnaGetEntry(&info, id), nullptr) << id;
  EXPECT_EQ(share->childCount, 1);
  EXPECT_EQ(share->children->nodes.count(stays->id), 1u);
  EXPECT_EQ(info.containerCount, containers - 2);
  EXPECT_EQ(info.musicCount, 1);
  EXPECT_EQ(tree.get(kDlnaIdAllMusic)->childCount, 1);
  for (int32_t view : {kDlnaIdMusicGenre, kDlnaIdMusicArtist, kDlnaIdMusicAlbum, kDlnaIdMusicYear})
    EXPECT_EQ(tree.group(view, testGroupKey(tags, view))->childCount, 1) << view;
}

// Per media class: its "All" container, its count in the record, and its views.
struct ClassViews {
  const char* name;
  uint32_t mediaClass;
  int32_t allId;
  int32_t DlnaInfo::*count;
  std::vector<int32_t> views;
};

void PrintTo(const ClassViews& c, std::ostream* os) {
  *os << c.name;
}

class GroupRelease : public testing::TestWithParam<ClassViews> {
 protected:
  DlnaInfo info;
  TestTree tree{info};
};

// Groups live exactly as long as their items; views and "All" containers stay.
TEST_P(GroupRelease, GroupGoesWithItsLastItemAndViewsStay) {
  const ClassViews& c = GetParam();
  const TestTags shared{.genre = "Rock", .artist = "Band", .album = "Trip", .year = 2001};
  const TestTags alone{.genre = "Jazz", .artist = "Solo", .album = "Home", .year = 0};
  DlnaEntry* first = tree.addItem(tree.addShare("/a"), c.mediaClass, "first", shared);
  DlnaEntry* second = tree.addItem(tree.addShare("/b"), c.mediaClass, "second", shared);
  DlnaEntry* third = tree.addItem(first->parent, c.mediaClass, "third", alone);
  DlnaEntry* all = tree.get(c.allId);
  ASSERT_EQ(all->childCount, 3);
  ASSERT_EQ(info.*c.count, 3);
  std::vector<int32_t> sharedGroups;
  for (int32_t view : c.views) {
    DlnaEntry* group = tree.group(view, testGroupKey(shared, view));
    ASSERT_NE(group, nullptr) << view;
    ASSERT_EQ(group->childCount, 2) << view;
    sharedGroups.push_back(group->id);
  }

  dlnaFreeEntry(&info, first);
  EXPECT_EQ(all->childCount, 2);
  EXPECT_EQ(info.*c.count, 2);
  for (int32_t id : sharedGroups) {
    ASSERT_NE(dlnaGetEntry(&info, id), nullptr) << id;
    EXPECT_EQ(dlnaGetEntry(&info, id)->childCount, 1) << id;
  }

  dlnaFreeEntry(&info, second);
  EXPECT_EQ(all->childCount, 1);
  for (size_t i = 0; i < c.views.size(); ++i) {
    EXPECT_EQ(dlnaGetEntry(&info, sharedGroups[i]), nullptr) << c.views[i];
    EXPECT_EQ(tree.get(c.views[i])->childCount, 1) << c.views[i];
    EXPECT_EQ(tree.get(c.views[i])->children->nodes.count(sharedGroups[i]), 0u) << c.views[i];
  }

  // The last item takes its groups (the year 0 one included) but no view.
  dlnaFreeEntry(&info, third);
  EXPECT_EQ(tree.get(c.allId), all);
  EXPECT_EQ(all->childCount, 0);
  EXPECT_EQ(info.*c.count, 0);
  for (int32_t view : c.views) {
    ASSERT_NE(tree.get(view), nullptr) << view;
    EXPECT_EQ(tree.get(view)->childCount, 0) << view;
    EXPECT_TRUE(tree.get(view)->children->nodes.empty()) << view;
  }
  EXPECT_EQ(info.containerCount, kDefaultContainers + 2);  // the two shares
}

INSTANTIATE_TEST_SUITE_P(
    Classes, GroupRelease,
    testing::Values(
        ClassViews{"Music",
                   kDlnaClassAudio,
                   kDlnaIdAllMusic,
                   &DlnaInfo::musicCount,
                   {kDlnaIdMusicGenre, kDlnaIdMusicArtist, kDlnaIdMusicAlbum, kDlnaIdMusicYear}},
        ClassViews{"Photo",
                   kDlnaClassImage,
                   kDlnaIdAllPhoto,
                   &DlnaInfo::photoCount,
                   {kDlnaIdPhotoAlbum, kDlnaIdPhotoYear}},
        ClassViews{
            "Video", kDlnaClassVideo, kDlnaIdAllVideo, &DlnaInfo::videoCount, {kDlnaIdVideoYear}}),
    [](const testing::TestParamInfo<ClassViews>& p) { return std::string(p.param.name); });

TEST_F(ObjectStore, UnfiledGenreIdZeroMatchesNoGroup) {
  // Only the counter makes group ids, so none is 0; a group numbered 0 shows
  // that an unfiled item (kept id 0) is not taken for one of its members.
  DlnaEntry* genres = tree.get(kDlnaIdMusicGenre);
  DlnaEntry* zero = dlnaNewContainer(&info, "zero", genres, 0, kDlnaContMusicGenre);
  dlnaAdd2Parents(&info, genres, zero);
  zero->childCount = 1;
  DlnaEntry* item = tree.addItem(tree.addShare("/m"), kDlnaClassAudio, "unfiled", {.year = 1984});
  item->media->genreId = 0;

  dlnaFreeEntry(&info, item);

  EXPECT_EQ(zero->childCount, 1);
  EXPECT_EQ(genres->children->nodes.count(0), 1u);
  EXPECT_EQ(tree.group(kDlnaIdMusicYear, "1984"), nullptr);
}

TEST_F(ObjectStore, YearGroupIsMatchedByItsWholeTitle) {
  DlnaEntry* share = tree.addShare("/m");
  tree.addItem(share, kDlnaClassImage, "later", {.year = 2020});
  DlnaEntry* early = tree.addItem(share, kDlnaClassImage, "early", {.year = 202});
  DlnaEntry* group2020 = tree.group(kDlnaIdPhotoYear, "2020");
  ASSERT_LT(group2020->id, tree.group(kDlnaIdPhotoYear, "202")->id);

  dlnaFreeEntry(&info, early);

  EXPECT_EQ(tree.group(kDlnaIdPhotoYear, "202"), nullptr);
  EXPECT_EQ(tree.group(kDlnaIdPhotoYear, "2020"), group2020);
  EXPECT_EQ(group2020->childCount, 1);
}

TEST_F(ObjectStore, LinkingTwiceDoesNotDoubleCount) {
  DlnaEntry* share = tree.addShare("/m");
  DlnaEntry* item = tree.addItem(share, kDlnaClassAudio, "song");
  const size_t indexed = info.index->size();

  dlnaAdd2Parents(&info, share, item);
  EXPECT_EQ(share->childCount, 1);
  EXPECT_EQ(share->children->nodes.size(), 1u);
  EXPECT_EQ(info.index->size(), indexed);

  // Another object under a taken id is refused and the first one stays.
  DlnaEntry impostor;
  impostor.id = item->id;
  impostor.childCount = -1;
  dlnaAdd2Parents(&info, share, &impostor);
  EXPECT_EQ(share->childCount, 1);
  EXPECT_EQ(dlnaGetEntry(&info, item->id), item);
  EXPECT_EQ(share->children->nodes.at(item->id), item);

  dlnaAdd2Parents(&info, nullptr, item);
  dlnaAdd2Parents(&info, share, nullptr);
  EXPECT_EQ(share->childCount, 1);
  EXPECT_EQ(info.index->size(), indexed);
}

TEST_F(ObjectStore, FreeMetaLstResetsTheStore) {
  DlnaEntry* share = tree.addShare("/m");
  tree.addItem(share, kDlnaClassAudio, "a");
  tree.addItem(share, kDlnaClassImage, "b");
  tree.addItem(share, kDlnaClassVideo, "c");
  info.built = 1;

  dlnaFreeMetaLst(&info);

  EXPECT_EQ(info.built, 0);
  EXPECT_EQ(info.root, nullptr);
  EXPECT_EQ(info.index, nullptr);
  EXPECT_EQ(info.nextId, kDlnaFirstId);
  EXPECT_EQ(info.musicCount, 0);
  EXPECT_EQ(info.photoCount, 0);
  EXPECT_EQ(info.videoCount, 0);
  EXPECT_EQ(info.containerCount, 0);
  for (int row = 0; g_szDefCont[row].id != -1; ++row)
    EXPECT_EQ(g_szDefCont[row].container, nullptr) << g_szDefCont[row].id;
  EXPECT_EQ(dlnaGetEntry(&info, kDlnaIdRoot), nullptr);
  EXPECT_EQ(dlnaGetEntry(&info, kDlnaIdFolder), nullptr);
}

TEST_F(ObjectStore, FreeingRootForgetsOnlyThatTreesDefaultContainers) {
  DlnaEntry* share = tree.addShare("/m");
  tree.addItem(share, kDlnaClassAudio, "a", {.genre = "Pop"});
  tree.addItem(tree.addFolder(share, "sub"), kDlnaClassImage, "b");

  // A second tree, as a rebuild makes before the swap, owns the "Folder" row.
  DlnaInfo next;
  _dlnaInit(&next);
  next.root = dlnaNewContainer(&next, "root", nullptr, kDlnaIdRoot, kDlnaContPlain);
  DlnaEntry* nextFolder = dlnaNewContainer(&next, "Folder", next.root, kDlnaIdFolder, 0);
  _dlnaHdlDefCont(&next, next.root, nextFolder, kDlnaIdFolder);

  dlnaFreeEntry(&info, info.root);
  info.root = nullptr;

  EXPECT_EQ(info.index, nullptr);
  EXPECT_EQ(info.containerCount, 0);
  EXPECT_EQ(info.musicCount, 0);
  EXPECT_EQ(info.photoCount, 0);
  for (const TestDefCont& row : kTestDefaultTree) {
    if (row.id == kDlnaIdFolder) continue;
    EXPECT_EQ(_dlnaGetDefCont(row.id), nullptr) << row.id;
  }
  EXPECT_EQ(_dlnaGetDefCont(kDlnaIdFolder), nextFolder);

  dlnaFreeMetaLst(&next);
  EXPECT_EQ(_dlnaGetDefCont(kDlnaIdFolder), nullptr);
}

}  // namespace
