// Change events applied to a live library: records written into a pipe in the
// layout the drain reads, and real watches on real folders.
#include "content/notify.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "content/test_library.h"

namespace {

constexpr int32_t kShareWd = 7;

class Notify : public LiveLibrary {
 protected:
  void SetUp() override {
    LiveLibrary::SetUp();
    put("share/song.mp3", kTestSong);
    put("share/a.b.mp3", kTestSong);
    put("share/sub/photo.jpg", kTestPhoto);
    build({"share"});
    usePipe();
    watch(kShareWd, share("share"));
    before_ = updateEvents();
  }
  // Drains what was sent; expects exactly one SystemUpdateID for the batch.
  int drain() {
    int result = dlnaGetNotify(&g_tDlnaInfo);
    EXPECT_EQ(updateEvents(), before_ + 1);
    return result;
  }
  size_t before_ = 0;
};

TEST_F(Notify, AppearingFilesAndFoldersAreAddedAndWhatLeavesIsRemoved) {
  put("share/new.mp3", kTestSong);
  put("share/moved/in.jpg", kTestPhoto);
  sendEvent(kShareWd, kDlnaInCreate, "new.mp3");
  sendEvent(kShareWd, kDlnaInMovedTo | kDlnaInIsDir, "moved");
  // A title with a dot is found through the url name's extension.
  sendEvent(kShareWd, kDlnaInDelete, "a.b.mp3");
  sendEvent(kShareWd, kDlnaInMovedFrom | kDlnaInIsDir, "sub");
  EXPECT_EQ(drain(), 0);

  DlnaEntry* folder = share("share");
  EXPECT_EQ(titles(folder), (std::vector<std::string>{"song", "new", "moved"}));
  ASSERT_NE(child(folder, "moved"), nullptr);
  EXPECT_EQ(titles(child(folder, "moved")), std::vector<std::string>{"in"});
  EXPECT_EQ(g_tDlnaInfo.musicCount, 2);
  EXPECT_EQ(g_tDlnaInfo.photoCount, 1);
  EXPECT_EQ(entry(kDlnaIdAllMusic)->childCount, 2);
}

TEST_F(Notify, CloseWriteRenewsAnItemWithANewIdOrAddsAnUnknownFile) {
  const int32_t oldId = child(share("share"), "song")->id;
  put("share/late.jpg", kTestPhoto);
  sendEvent(kShareWd, kDlnaInCloseWrite, "song.mp3");
  sendEvent(kShareWd, kDlnaInCloseWrite, "late.jpg");
  EXPECT_EQ(drain(), 0);

  DlnaEntry* renewed = child(share("share"), "song");
  ASSERT_NE(renewed, nullptr);
  EXPECT_GT(renewed->id, oldId);
  EXPECT_EQ(entry(oldId), nullptr);
  EXPECT_NE(child(share("share"), "late"), nullptr);
  EXPECT_EQ(g_tDlnaInfo.musicCount, 2);
}

TEST_F(Notify, IgnoredEmptiesTheSharedDirectoryAndForgetsItsWatch) {
  DlnaEntry* folder = share("share");
  sendEvent(kShareWd, kDlnaInIgnored);
  EXPECT_EQ(drain(), 0);
  EXPECT_EQ(share("share"), folder);
  EXPECT_EQ(folder->childCount, 0);
  EXPECT_EQ(g_tDlnaInfo.musicCount + g_tDlnaInfo.photoCount, 0);
  EXPECT_EQ(g_tDlnaInfo.watches->nodes.count(kShareWd), 0u);
}

// Events that change nothing: the batch still publishes exactly one update.
TEST_F(Notify, BatchMatchingNothingStillPublishesOnce) {
  const int32_t nextId = g_tDlnaInfo.nextId;
  const size_t objects = g_tDlnaInfo.index->size();
  sendEvent(kShareWd, 0, "song.mp3");                 // what real events read as
  sendEvent(kShareWd, kDlnaInDelete, "nothing.mp3");  // no such item
  sendEvent(kShareWd, kDlnaInDeleteSelf);             // ignored
  sendEvent(kShareWd, kDlnaInCreate, "missing.mp3");  // not on disk: -1
  EXPECT_EQ(drain(), -1);
  sendEvent(99, kDlnaInDelete, "song.mp3");  // unknown watch descriptor
  EXPECT_EQ(dlnaGetNotify(&g_tDlnaInfo), -1);
  EXPECT_EQ(g_tDlnaInfo.nextId, nextId);
  EXPECT_EQ(g_tDlnaInfo.index->size(), objects);
  EXPECT_EQ(updateEvents(), before_ + 2);

  // Nothing pending: no read and no event.
  EXPECT_EQ(dlnaGetNotify(&g_tDlnaInfo), 0);
  EXPECT_EQ(updateEvents(), before_ + 2);
}

TEST_F(Notify, OverflowRebuildsTheWholeTreeAndSwapsItIn) {
  put("share/added.mp3", kTestSong);
  const int32_t oldShareId = share("share")->id;
  const int pipeFd = g_tDlnaInfo.notifyFd;
  sendEvent(kShareWd, kDlnaInCreate, "added.mp3");
  sendEvent(kShareWd, kDlnaInQOverflow);
  sendEvent(kShareWd, kDlnaInDelete, "song.mp3");  // after the overflow: not applied
  dlnaGetNotify(&g_tDlnaInfo);

  EXPECT_EQ(updateEvents(), before_ + 2);  // the build's and the drain's
  DlnaEntry* rebuilt = share("share");
  ASSERT_NE(rebuilt, nullptr);
  // Ids start again from the counter's first value, in scan order.
  EXPECT_EQ(rebuilt->id, oldShareId);
  EXPECT_EQ(entry(kDlnaIdFolder)->childCount, 1);
  EXPECT_EQ(titles(rebuilt), (std::vector<std::string>{"a.b", "added", "song", "sub"}));
  EXPECT_LT(child(rebuilt, "added")->id, child(rebuilt, "song")->id);
  EXPECT_EQ(g_tDlnaInfo.musicCount, 3);
  EXPECT_EQ(g_tDlnaInfo.photoCount, 1);
  EXPECT_EQ(_dlnaGetDefCont(&g_tDlnaInfo, kDlnaIdFolder), entry(kDlnaIdFolder));
  // The copy got a descriptor of its own; the pipe went with the old tree.
  EXPECT_GE(g_tDlnaInfo.notifyFd, 0);
  EXPECT_NE(g_tDlnaInfo.notifyFd, pipeFd);
  EXPECT_NE(g_tDlnaInfo.watches->nodes.size(), 0u);
}

}  // namespace
