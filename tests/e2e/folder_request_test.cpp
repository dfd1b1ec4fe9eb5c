// Folder requests and rescans against the running daemon: a request file,
// real signals, a GENA subscriber counting SystemUpdateID events, and Browse
// over SOAP to see what the tree became.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "e2e/daemon.h"
#include "e2e/upnp_client.h"

namespace fs = std::filesystem;

namespace {

// The title the song fixture carries in its tags, which Browse shows.
constexpr char kSong[] = "Fixture Title";

// True when the daemon's main thread sleeps waiting for signals with none
// pending: whatever the last signal asked for is done. A thread woken by the
// signal but not yet run still shows the wait, but is runnable, not asleep.
bool waitIdle(pid_t pid, std::chrono::milliseconds timeout = 60s) {
  const std::string proc = "/proc/" + std::to_string(pid);
  const std::string waiting = std::to_string(SYS_rt_sigtimedwait) + " ";
  for (auto end = std::chrono::steady_clock::now() + timeout;
       std::chrono::steady_clock::now() < end; std::this_thread::yield()) {
    std::string syscallLine, wchan, line;
    std::getline(std::ifstream(proc + "/syscall"), syscallLine);
    // An emulated daemon waits in the host's call, under the host's number.
    std::getline(std::ifstream(proc + "/wchan"), wchan);
    if (syscallLine.rfind(waiting, 0) != 0 && wchan.rfind("do_sigtimedwait", 0) != 0) continue;
    bool pending = false, asleep = false;
    for (std::ifstream status(proc + "/status"); std::getline(status, line);) {
      if ((line.rfind("SigPnd:", 0) == 0 || line.rfind("ShdPnd:", 0) == 0) &&
          line.find_first_not_of("0", line.find_first_not_of(" \t", 7)) != std::string::npos)
        pending = true;
      if (line.rfind("State:", 0) == 0) asleep = line.find('S', 6) != std::string::npos;
    }
    if (asleep && !pending) return true;
  }
  return false;
}

class FolderRequests : public testing::Test {
 protected:
  void SetUp() override {
    dmsd_.copyFixture("media/share/song.mp3", "mp3_id3v23_genre_date.mp3");
    dmsd_.copyFixture("media/share/sub/photo.jpg", "jpeg_plain.jpg");
    dmsd_.copyFixture("media/share/x/y/clip.avi", "avi_mpeg4_mp3.avi");
    dmsd_.copyFixture("media/other/photo.jpg", "jpeg_plain.jpg");
    requestFile_ = at("request.conf");
  }
  void TearDown() override { dmsd_.stop(); }

  std::string at(const std::string& rel) const { return dmsd_.dir() + "/media/" + rel; }

  void start(const std::string& shares, const std::string& rescan = "0") {
    dmsd_.startWithConfig(serverConfig(shares, rescan), {"--folder-request", requestFile_});
    ASSERT_TRUE(dmsd_.waitForLog("while(1)", 60s)) << dmsd_.log();
  }
  // Subscribes to the ContentDirectory; the initial SystemUpdateID.
  int subscribe() {
    e2e::HttpResponse r =
        e2e::httpRequest(std::string(e2e::kBase) + "/web/cds_event", "SUBSCRIBE",
                         {{"CALLBACK", "<" + events_.callbackUrl() + ">"}, {"NT", "upnp:event"}});
    EXPECT_EQ(r.status, 200) << r.raw;
    return nextUpdate();
  }
  int nextUpdate() {
    std::optional<e2e::GenaEvent> event = events_.next();
    if (!event || event->properties.empty()) return -1;
    return std::stoi(event->properties[0].second);
  }

  // Writes the request file (nothing: removes it), signals, waits until handled.
  void request(const std::optional<std::string>& text) {
    fs::remove(requestFile_);
    if (text) std::ofstream(requestFile_) << *text;
    dmsd_.signal(SIGUSR1);
    ASSERT_TRUE(waitIdle(dmsd_.pid()));
  }

  // The titles of the children of `id`.
  static std::vector<std::string> titles(const std::string& id) {
    std::vector<std::string> out;
    for (const e2e::Xml& o : e2e::childObjects(id))
      out.push_back(o.child("title") ? o.child("title")->text : "");
    return out;
  }
  // The id of the child titled `title` of `id`; empty when none.
  static std::string find(const std::string& id, const std::string& title) {
    for (const e2e::Xml& o : e2e::childObjects(id))
      if (o.child("title") && o.child("title")->text == title)
        return e2e::findField(o.attributes, "id").value_or("");
    return "";
  }

  DmsdProcess dmsd_;
  std::string requestFile_;
  e2e::EventListener events_;
};

// How a request changes the tree is the unit tests' matter; here, that a real
// signal reads the file, the change shows over Browse, and each request that
// changes something sends one event.
TEST_F(FolderRequests, EachRequestChangesTheTreeAndSendsOneEvent) {
  start(at("share"));
  int update = subscribe();
  ASSERT_GT(update, 0);
  const std::string share = find("0$4", at("share"));
  ASSERT_FALSE(share.empty());

  request("Enable = 1\nFolderPath = " + at("other") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  EXPECT_EQ(titles("0$4"), (std::vector<std::string>{at("share"), at("other")}));

  request("Enable = 0\nFolderPath = " + at("share/sub") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  EXPECT_EQ(titles(share), (std::vector<std::string>{kSong, "x"}));

  // Dropped requests send nothing: the next event is the next valid request's.
  request("Enable = 1\nFolderPath = /" + std::string(128, 'x') + "\n");
  request(std::nullopt);
  request("Enable = 1\nFolderPath = " + at("share") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  EXPECT_EQ(find("0$4", at("share")), share);
  EXPECT_EQ(titles(share), (std::vector<std::string>{kSong, "sub", "x"}));
  EXPECT_TRUE(dmsd_.running());
}

// Real file-system events reach the drain; it publishes once per batch while
// the tree stays as it was (the event word it reads as the mask is zero).
TEST_F(FolderRequests, RescanDrainsRealEventsAndPublishesOncePerBatch) {
  start(at("share"), "1");
  int update = subscribe();
  const std::string share = find("0$4", at("share"));
  dmsd_.copyFixture("media/share/new.jpg", "jpeg_plain.jpg");
  EXPECT_EQ(nextUpdate(), update + 1);
  EXPECT_EQ(titles(share), (std::vector<std::string>{kSong, "sub", "x"}));
  EXPECT_TRUE(dmsd_.running());
}

}  // namespace
