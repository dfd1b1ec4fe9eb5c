// Folder requests against a live library: how a requested path is matched to
// the tree, what adding and removing leave behind, and the request file.
#include "content/folders.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <filesystem>

#include <fstream>

#include "content/test_library.h"
#include "core/dms_signal.h"

namespace {

class Folders : public LiveLibrary {
 protected:
  void SetUp() override {
    LiveLibrary::SetUp();
    put("share/song.mp3", kTestSong);
    put("share/a/photo.jpg", kTestPhoto);
    put("share/a/b/song.mp3", kTestSong);
    put("share/c/d/photo.jpg", kTestPhoto);
    put("other/song.mp3", kTestSong);
    std::filesystem::create_directories(at("share/c/d"));
    build({"share"});
    // Only "a" stays in the tree; "c" and "a/b" are missing from it.
    dlnaFreeEntry(&g_tDlnaInfo, child(child(share("share"), "a"), "b"));
    dlnaFreeEntry(&g_tDlnaInfo, child(share("share"), "c"));
    g_tDmsPaths.folderRequest = at("request.conf");
  }
  void TearDown() override {
    g_tDmsPaths = DmsPaths{};
    LiveLibrary::TearDown();
  }
  // Writes the request file and handles SIGUSR1 as the signal loop does.
  void request(const std::string& text) {
    std::ofstream(at("request.conf")) << text;
    UsbSigHandler(SIGUSR1);
  }
};

TEST_F(Folders, AddingASharedDirectoryAgainRescansItUnderItsId) {
  DlnaEntry* folder = share("share");
  const int32_t songId = child(folder, "song")->id;
  put("share/late.jpg", kTestPhoto);
  request("Enable = 1\nFolderPath = " + at("share") + "\n");
  EXPECT_EQ(share("share"), folder);
  EXPECT_EQ(titles(folder), (std::vector<std::string>{"a", "c", "late", "song"}));
  EXPECT_GT(child(folder, "song")->id, songId);
  EXPECT_EQ(entry(songId), nullptr);
  EXPECT_EQ(updateEvents(), 2u);  // the build's and the request's
}

TEST_F(Folders, AddingBelowASharedDirectoryCreatesOnlyTheMissingLevel) {
  DlnaEntry* folder = share("share");
  DlnaEntry* a = child(folder, "a");
  const int32_t oldA = a->id;
  dlnaAddFolder(at("share/a/b").c_str());
  dlnaAddFolder(at("share/c/d").c_str());
  ASSERT_NE(child(a, "b"), nullptr);
  EXPECT_EQ(titles(child(a, "b")), std::vector<std::string>{"song"});
  // Two missing levels make one container titled with both.
  ASSERT_NE(child(folder, "c/d"), nullptr);
  EXPECT_EQ(titles(child(folder, "c/d")), std::vector<std::string>{"photo"});

  // A known sub-folder is made anew, with a new id.
  dlnaAddFolder(at("share/a").c_str());
  DlnaEntry* again = child(folder, "a");
  ASSERT_NE(again, nullptr);
  EXPECT_GT(again->id, oldA);
  EXPECT_EQ(titles(again), (std::vector<std::string>{"b", "photo"}));
  EXPECT_EQ(g_tDlnaInfo.musicCount, 2);
  EXPECT_EQ(g_tDlnaInfo.photoCount, 2);

  // A name that only begins like a known sub-folder's is a folder of its own.
  std::filesystem::create_directories(at("share/ab"));
  dlnaAddFolder(at("share/ab").c_str());
  EXPECT_NE(child(folder, "ab"), nullptr);
}

TEST_F(Folders, APathUnderNoSharedDirectoryBecomesOne) {
  dlnaAddFolder(at("other").c_str());
  ASSERT_NE(share("other"), nullptr);
  EXPECT_EQ(titles(share("other")), std::vector<std::string>{"song"});
  EXPECT_EQ(entry(kDlnaIdFolder)->childCount, 2);
}

TEST_F(Folders, RemovingEmptiesASharedDirectoryAndDropsASubFolder) {
  put("share/a/b/song.mp3", kTestSong);
  dlnaAddFolder(at("share/a/b").c_str());
  DlnaEntry* folder = share("share");
  request("Enable = 0\nFolderPath = " + at("share/a/b") + "\n");
  EXPECT_EQ(titles(child(folder, "a")), std::vector<std::string>{"photo"});

  // A title that is only a prefix still leads the walk: one character after it
  // is skipped whatever it is.
  dlnaDelFolder((at("share") + "Xa").c_str());
  EXPECT_EQ(child(folder, "a"), nullptr);

  request("FolderPath = " + at("share") + "\n");
  EXPECT_EQ(share("share"), folder);
  EXPECT_EQ(folder->childCount, 0);
  EXPECT_EQ(g_tDlnaInfo.musicCount + g_tDlnaInfo.photoCount, 0);
  EXPECT_EQ(updateEvents(), 3u);
}

TEST_F(Folders, RequestsThatAreDroppedSendNoEvent) {
  const int32_t nextId = g_tDlnaInfo.nextId;
  request("Enable = 1\nFolderPath = /" + std::string(127, 'x') + "\n");  // 129 with the line end
  g_tDmsPaths.folderRequest = at("missing.conf");
  UsbSigHandler(SIGUSR1);
  UsbSigHandler(SIGUSR2);
  EXPECT_EQ(updateEvents(), 1u);
  EXPECT_EQ(g_tDlnaInfo.nextId, nextId);

  // The longest path accepted: 127 characters and the line end.
  g_tDmsPaths.folderRequest = at("request.conf");
  request("Enable = 1\nFolderPath = /" + std::string(126, 'x') + "\n");
  EXPECT_EQ(updateEvents(), 2u);
  EXPECT_NE(child(entry(kDlnaIdFolder), "/" + std::string(126, 'x')), nullptr);
  // Without a path an add makes an empty-titled shared directory.
  request("Enable = 1\n");
  EXPECT_NE(child(entry(kDlnaIdFolder), ""), nullptr);
  EXPECT_EQ(updateEvents(), 3u);
}

TEST_F(Folders, RenewingAnItemNeedsAnItemAndItsFile) {
  DlnaEntry* folder = share("share");
  EXPECT_EQ(dlnaRenewItem(&g_tDlnaInfo, nullptr, "/x"), -1);
  EXPECT_EQ(dlnaRenewItem(&g_tDlnaInfo, folder, at("share").c_str()), -1);
  EXPECT_EQ(share("share"), folder);
  DlnaEntry* song = child(folder, "song");
  std::filesystem::remove(at("share/song.mp3"));
  EXPECT_EQ(dlnaRenewItem(&g_tDlnaInfo, song, at("share/song.mp3").c_str()), -1);
  EXPECT_EQ(child(folder, "song"), nullptr);
  EXPECT_EQ(g_tDlnaInfo.musicCount, 0);
}

}  // namespace
