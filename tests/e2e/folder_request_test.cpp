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

constexpr char kCdsType[] = "urn:schemas-upnp-org:service:ContentDirectory:1";
constexpr char kBase[] = "http://127.0.0.1:49152";
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

struct Object {
  std::string id, title;
};

class FolderRequests : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/dmsd-folders-XXXXXX";
    media_ = mkdtemp(tmpl);
    put("share/song.mp3", "mp3_id3v23_genre_date.mp3");
    put("share/sub/photo.jpg", "jpeg_plain.jpg");
    put("share/x/y/clip.avi", "avi_mpeg4_mp3.avi");
    put("other/photo.jpg", "jpeg_plain.jpg");
    requestFile_ = media_ + "/request.conf";
  }
  void TearDown() override {
    dmsd_.stop();
    fs::remove_all(media_);
  }

  void put(const std::string& rel, const char* fixture) {
    fs::create_directories((fs::path(media_) / rel).parent_path());
    fs::copy_file(fs::path(DMSD_TEST_MEDIA) / fixture, fs::path(media_) / rel);
  }
  std::string at(const std::string& rel) const { return media_ + "/" + rel; }

  void start(const std::string& shares, const std::string& rescan = "0", bool wait = true) {
    dmsd_.startWithConfig("Enable = 1\nPort = 49152\nRescanTime = " + rescan +
                              "\nIPAddress = 127.0.0.1\nInterface = lo\nDmsName = T\n"
                              "ContentList = " +
                              shares + "\n",
                          {"--folder-request", requestFile_});
    if (wait) {
      ASSERT_TRUE(dmsd_.waitForLog("while(1)", 60s)) << dmsd_.log();
    }
  }
  // Subscribes to the ContentDirectory; the initial SystemUpdateID.
  int subscribe() {
    e2e::HttpResponse r =
        e2e::httpRequest(std::string(kBase) + "/web/cds_event", "SUBSCRIBE",
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

  static e2e::SoapResult browse(const std::string& id, const std::string& count = "0") {
    return e2e::soapAction(std::string(kBase) + "/web/cds_control", kCdsType, "Browse",
                           {{"ObjectID", id},
                            {"BrowseFlag", "BrowseDirectChildren"},
                            {"Filter", "*"},
                            {"StartingIndex", "0"},
                            {"RequestedCount", count},
                            {"SortCriteria", ""}});
  }
  // The number of children of `id`, or -1 when Browse fails.
  static int totalMatches(const std::string& id) {
    e2e::SoapResult r = browse(id, "1");
    return r.ok() ? std::stoi(e2e::findField(r.out, "TotalMatches").value_or("-1")) : -1;
  }
  std::vector<Object> children(const std::string& id) {
    e2e::SoapResult r = browse(id);
    std::vector<Object> objects;
    EXPECT_TRUE(r.ok()) << r.http.raw;
    std::optional<e2e::Xml> didl = e2e::parseXml(e2e::findField(r.out, "Result").value_or(""));
    if (!didl) return objects;
    for (const e2e::Xml& o : didl->children) {
      const e2e::Xml* title = o.child("title");
      objects.push_back(
          {e2e::findField(o.attributes, "id").value_or(""), title ? title->text : ""});
    }
    return objects;
  }
  // The object titled `title` among the children of `id`; empty when none.
  Object find(const std::string& id, const std::string& title) {
    for (const Object& o : children(id))
      if (o.title == title) return o;
    return {};
  }
  static std::vector<std::string> titles(const std::vector<Object>& objects) {
    std::vector<std::string> out;
    for (const Object& o : objects) out.push_back(o.title);
    return out;
  }

  std::string media_, requestFile_;
  DmsdProcess dmsd_;
  e2e::EventListener events_;
};

TEST_F(FolderRequests, EachRequestChangesTheTreeAndSendsOneEvent) {
  start(at("share"));
  int update = subscribe();
  ASSERT_GT(update, 0);
  const Object share = find("0$4", at("share"));
  ASSERT_FALSE(share.id.empty());
  const Object song = find(share.id, kSong);

  request("Enable = 1\nFolderPath = " + at("other") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  EXPECT_EQ(titles(children("0$4")), (std::vector<std::string>{at("share"), at("other")}));

  // The same shared directory again: same container, its items renewed.
  request("Enable = 1\nFolderPath = " + at("share") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  EXPECT_EQ(find("0$4", at("share")).id, share.id);
  const Object renewed = find(share.id, kSong);
  EXPECT_FALSE(renewed.id.empty());
  EXPECT_NE(renewed.id, song.id);

  // Two levels missing below a shared directory: one container titled "x/y".
  request("Enable = 0\nFolderPath = " + at("share/x") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  request("Enable = 1\nFolderPath = " + at("share/x/y") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  const Object xy = find(share.id, "x/y");
  ASSERT_FALSE(xy.id.empty()) << testing::PrintToString(titles(children(share.id)));
  EXPECT_EQ(titles(children(xy.id)), std::vector<std::string>{"clip"});

  request("Enable = 0\nFolderPath = " + at("share/sub") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  EXPECT_EQ(titles(children(share.id)), (std::vector<std::string>{kSong, "x/y"}));

  // A shared directory removed stays, empty.
  request("Enable = 0\nFolderPath = " + at("share") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  EXPECT_EQ(find("0$4", at("share")).id, share.id);
  EXPECT_TRUE(children(share.id).empty());

  // Dropped requests send nothing: the next event is the next valid request's.
  request("Enable = 1\nFolderPath = /" + std::string(128, 'x') + "\n");
  request(std::nullopt);
  request("Enable = 1\nFolderPath = " + at("share") + "\n");
  EXPECT_EQ(nextUpdate(), ++update);
  EXPECT_EQ(titles(children(share.id)), (std::vector<std::string>{kSong, "sub", "x"}));
  EXPECT_EQ(children("0$4").size(), 2u);
  EXPECT_TRUE(dmsd_.running());
}

// Real file-system events reach the drain; it publishes once per batch while
// the tree stays as it was (the event word it reads as the mask is zero).
TEST_F(FolderRequests, RescanDrainsRealEventsAndPublishesOncePerBatch) {
  start(at("share"), "1");
  int update = subscribe();
  const Object share = find("0$4", at("share"));
  put("share/new.jpg", "jpeg_plain.jpg");
  EXPECT_EQ(nextUpdate(), update + 1);
  EXPECT_EQ(titles(children(share.id)), (std::vector<std::string>{kSong, "sub", "x"}));
  EXPECT_TRUE(dmsd_.running());
}

}  // namespace
