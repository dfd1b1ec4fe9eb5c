// The web server's callbacks on several threads while the library is freed and
// built again, as renderers fetch during a rescan: every lookup must see a
// whole object or none. Bounded by round counts for ThreadSanitizer.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "content/test_library.h"
#include "http/http_header.h"

namespace fs = std::filesystem;

namespace {

constexpr int kRenderers = 3;
constexpr int kRebuilds = 8;
constexpr int32_t kFirstId = 200, kLastId = 240;

// One renderer's requests for every id in turn; counts the answers found.
void fetchAll(int* found) {
  for (int32_t id = kFirstId; id <= kLastId; ++id) {
    const std::string url = "/web/" + std::to_string(id) + ".mp3";
    DlnaHttpHeader headers[] = {{"Host", 4, 7, "127.0.0.1"},
                                {"getcontentFeatures.dlna.org", 27, -1, "1"}};
    DlnaHttpRequest request = {"GET", headers, 2};
    int status = 0;
    _dlnaHttpHeaderCheck(&request, url.c_str(), &status);
    DlnaHttpResponseHeaders response;
    _dlnaHttpHeaderResp(&request, url.c_str(), &response, nullptr);
    DlnaFileInfo info = {};
    if (_dlnaHttpGetInfo(url.c_str(), &info) == 0) ++*found;
    free(info.content_type);
    if (DlnaWebFileHandle file = _dlnaHttpOpen(url.c_str(), 0)) _dlnaHttpClose(file);
  }
}

TEST(ConcurrencyHttp, CallbacksDuringRebuildsSeeWholeObjects) {
  testLibraryStart();
  char tmpl[] = "/tmp/dmsd-http-race-XXXXXX";
  const std::string root = mkdtemp(tmpl);
  for (int i = 0; i < 8; ++i)
    fs::copy_file(fs::path(DMSD_TEST_MEDIA) / "mp3_apic.mp3",
                  root + "/" + std::to_string(i) + ".mp3");
  testLibraryBuild(root);

  std::atomic<bool> done{false};
  std::vector<int> found(kRenderers, 0);
  std::vector<std::thread> renderers;
  for (int r = 0; r < kRenderers; ++r)
    renderers.emplace_back([&, r] {
      while (!done) fetchAll(&found[r]);
      fetchAll(&found[r]);  // at least one pass over a whole library
    });
  for (int round = 0; round < kRebuilds; ++round) {
    dlnaFreeMetaLst(&g_tDlnaInfo);
    {
      // The free drops the id index with the tree; a rebuild starts a new one.
      std::unique_lock lock(g_tDlnaInfo.lock);
      g_tDlnaInfo.index = std::make_unique<DlnaIndex>();
    }
    dlnaBuildMetaLst(&g_tDlnaInfo);
  }
  done = true;
  for (std::thread& t : renderers) t.join();
  for (int n : found) EXPECT_GE(n, 8);

  testLibraryStop();
  fs::remove_all(root);
}

}  // namespace
