// A live library for tests of run-time changes: the global server record with
// the real profile registry, a temporary folder of real media, the build, and
// a pipe standing in for the inotify descriptor so tests can write event
// records in the layout the drain reads. TearDown frees everything.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "content/library.h"
#include "content/metadata.h"
#include "content/notify.h"
#include "core/dlna_dms.h"
#include "fakes/fake_upnp_device.h"
#include "platform/ctype.h"
#include "profile/profile.h"
#include "upnp/state_var.h"

inline constexpr char kTestSong[] = "mp3_id3v23_genre_date.mp3";
inline constexpr char kTestPhoto[] = "jpeg_plain.jpg";

class LiveLibrary : public testing::Test {
 protected:
  void SetUp() override {
    ctypeInit(1, kCtypeDetect);
    dlnaInitVarValue();
    fakeClearNotifications();
    _dlnaInit(&g_tDlnaInfo);
    g_tDlnaInfo.registry = dlnaMMInit();
    dlnaSetExtCheck(g_tDlnaInfo.registry, 1);
    dlnaRegMediaProfile(g_tDlnaInfo.registry);
    char tmpl[] = "/tmp/dmsd-live-XXXXXX";
    root_ = mkdtemp(tmpl);
  }
  void TearDown() override {
    dlnaFreeMetaLst(&g_tDlnaInfo);
    dlnaUnregNotify(&g_tDlnaInfo);
    if (writeEnd_ >= 0) close(writeEnd_);
    dlnaMMUninit(g_tDlnaInfo.registry);
    g_tDlnaInfo.registry = nullptr;
    dlnaFreeVarValue();
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
    snprintf(gtDmsCfg.szContentLst, sizeof gtDmsCfg.szContentLst, "%s", list.c_str());
    dlnaBuildMetaLst(&g_tDlnaInfo);
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
