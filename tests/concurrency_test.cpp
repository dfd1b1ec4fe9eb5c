// Browse and variable queries on other threads while the signal work changes
// the live library: folder requests, change events, and full rebuilds swapped
// in. Bounded by iteration counts so that a ThreadSanitizer build stays quick.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <latch>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "content/folders.h"
#include "content/state_var.h"
#include "content/test_library.h"
#include "fakes/action_request.h"
#include "http/http_header.h"

namespace {

// Readers run until the writer is done; this only bounds a starved writer.
constexpr int kReaderRoundCap = 50000;

// Runs `readers` threads, each calling look(i) until it reports a fault (look
// returns what went wrong, or "") or has looked once after `write`, which runs
// on this thread once every reader is under way, returned. The rounds are
// capped so that a starved writer cannot hang the test. Faults per reader.
std::vector<std::string> whileWriting(int readers, const std::function<std::string(int)>& look,
                                      const std::function<void()>& write,
                                      std::vector<int>* rounds = nullptr) {
  std::latch started(readers);
  std::atomic<bool> done{false};
  std::vector<std::string> errors(readers);
  std::vector<int> counts(readers);
  std::vector<std::thread> threads;
  for (int r = 0; r < readers; ++r)
    threads.emplace_back([&, r] {
      started.count_down();
      for (bool last = false; !last && errors[r].empty() && counts[r] < kReaderRoundCap;
           ++counts[r]) {
        last = done.load();
        errors[r] = look(r);
      }
    });
  started.wait();
  write();
  done = true;
  for (std::thread& t : threads) t.join();
  if (rounds) *rounds = counts;
  return errors;
}

// Walks "Folder" and the music views as Browse would; the first broken
// invariant, or "". Caller holds info.lock.
std::string checkTree(DlnaInfo& info) {
  int32_t items = 0;
  std::vector<DlnaEntry*> pending{dlnaGetEntry(&info, kDlnaIdFolder)};
  while (!pending.empty()) {
    DlnaEntry* container = pending.back();
    pending.pop_back();
    if (container->childCount != static_cast<int32_t>(container->children->nodes.size()))
      return "child count of " + std::to_string(container->id);
    for (auto& [id, child] : container->children->nodes) {
      if (child->id != id || child->parent != container || dlnaGetEntry(&info, id) != child)
        return "links of " + std::to_string(id);
      if (child->isItem())
        ++items;
      else
        pending.push_back(child);
    }
  }
  if (dlnaGetEntry(&info, kDlnaIdAllMusic)->childCount != items || info.musicCount != items)
    return "music count";
  for (int32_t view :
       {kDlnaIdMusicGenre, kDlnaIdMusicArtist, kDlnaIdMusicAlbum, kDlnaIdMusicYear}) {
    int32_t filed = 0;
    for (auto& [id, group] : dlnaGetEntry(&info, view)->children->nodes) {
      if (group->childCount <= 0) return "empty group " + std::to_string(id);
      filed += group->childCount;
    }
    if (filed != items) return "items filed in view " + std::to_string(view);
  }
  return "";
}

constexpr int kBrowsers = 3;
constexpr int kChangeRounds = 12;

class Concurrency : public LiveLibrary {
 protected:
  // Reads the variables, then browses "Folder" and every shared directory;
  // the first failure, or "". `last` is the SystemUpdateID read (a rebuild
  // publishes its own count, which may be lower).
  static std::string browseAll(long& last) {
    auto value = dlnaGetVarValue(kCdsServiceId, "SystemUpdateID");
    if (!value) return "SystemUpdateID is gone";
    last = std::stol(*value);
    auto vars = dlnaGetServiceVars(kCmsServiceId);
    if (vars.size() != 3 || vars[2].first != "CurrentConnectionIDs" || vars[2].second != "0")
      return "ConnectionManager variables changed";
    std::vector<std::string> ids = {"0$4"};
    {
      std::shared_lock lock(g_tDlnaInfo.lock);
      if (std::string broken = checkTree(g_tDlnaInfo); !broken.empty()) return broken;
      for (auto& [id, share] : dlnaGetEntry(&g_tDlnaInfo, kDlnaIdFolder)->children->nodes)
        ids.push_back("0$4$" + std::to_string(id));
    }
    for (const std::string& id : ids) {
      std::string args = "<ObjectID>" + id +
                         "</ObjectID><BrowseFlag>BrowseDirectChildren</BrowseFlag>"
                         "<Filter>*</Filter><StartingIndex>0</StartingIndex>"
                         "<RequestedCount>0</RequestedCount>";
      auto out = runAction(makeRequest(kCdsServiceId, "Browse", args).get());
      // A share can vanish between the listing and its Browse; "Folder" cannot.
      if (id == "0$4" && out["NumberReturned"] != out["TotalMatches"]) return "Browse of " + id;
    }
    return "";
  }
};

TEST_F(Concurrency, BrowseStaysConsistentWhileFoldersChangeAndTheTreeIsRebuilt) {
  put("share/one.mp3", kTestSong);
  put("share/sub/two.mp3", kTestSong);
  put("extra/three.mp3", kTestSong);
  build({"share"});

  std::vector<int> rounds;
  std::vector<long> last(kBrowsers);
  auto errors = whileWriting(
      kBrowsers, [&](int b) { return browseAll(last[b]); },
      [&] {
        for (int round = 0; round < kChangeRounds; ++round) {
          usePipe();
          watch(1, share("share"));
          dlnaAddFolder(at("extra").c_str());
          sendEvent(1, kDlnaInDelete, "one.mp3");
          sendEvent(1, kDlnaInCreate, "one.mp3");
          sendEvent(1, kDlnaInMovedFrom | kDlnaInIsDir, "sub");
          dlnaGetNotify(&g_tDlnaInfo);
          dlnaDelFolder(at("share/sub").c_str());
          sendEvent(1, kDlnaInQOverflow);
          dlnaGetNotify(&g_tDlnaInfo);
        }
      },
      &rounds);

  for (int b = 0; b < kBrowsers; ++b) {
    EXPECT_EQ(errors[b], "");
    EXPECT_GT(rounds[b], 1);
  }
  std::shared_lock lock(g_tDlnaInfo.lock);
  EXPECT_EQ(checkTree(g_tDlnaInfo), "");
  EXPECT_EQ(g_tDlnaInfo.musicCount, 2);  // the last rebuild: "extra" is not configured
  // Each reader's last look came after the last change.
  const long final = std::stol(dlnaGetVarValue(kCdsServiceId, "SystemUpdateID").value_or("-1"));
  for (long seen : last) EXPECT_EQ(seen, final);
}

}  // namespace
