// A renderer's view of the media web server: the daemon publishes a folder of
// real media, and a plain HTTP client fetches what Browse points at, with byte ranges, HEAD,
// the DLNA transport headers and thumbnails; raw sockets cover a request
// without Host and a client that leaves mid-stream.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "e2e/daemon.h"
#include "e2e/upnp_client.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kBigPadding = 16 << 20;  // more than loopback buffers hold
// Past 4 GiB, so sizes and offsets need 64 bits; sparse, so it costs no disk.
constexpr uintmax_t kHugeSize = (uintmax_t{4} << 30) + (64 << 10);

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

e2e::HttpResponse fetch(const std::string& url, const e2e::Fields& headers = {},
                        const char* method = "GET") {
  return e2e::httpRequest(url, method, headers);
}

size_t openDescriptors(pid_t pid) {
  size_t n = 0;
  for ([[maybe_unused]] auto& entry :
       fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd"))
    ++n;
  return n;
}

struct Item {
  std::string url, protocolInfo;  // the first res
};

class Stream : public testing::Test {
 protected:
  void SetUp() override {
    share_ = dmsd_.dir() + "/share";
    for (auto [name, fixture] : {std::pair{"song.mp3", "mp3_apic.mp3"},
                                 {"plain.mp3", "mp3_cbr_44k_128k_stereo.mp3"},
                                 {"photo.jpg", "jpeg_exif_thumb.jpg"},
                                 {"picture.png", "png_plain.png"},
                                 {"clip.avi", "avi_mpeg4_mp3.avi"},
                                 {"huge.mp3", "mp3_cbr_44k_128k_stereo.mp3"}})
      dmsd_.copyFixture(std::string("share/") + name, fixture);
    std::ofstream(share_ + "/clip.avi", std::ios::app) << std::string(kBigPadding, '\0');
    fs::resize_file(share_ + "/huge.mp3", kHugeSize);
    ASSERT_TRUE(dmsd_.serve(share_, "music:3; photo:2; video:1")) << dmsd_.log();
    // Items are told apart by their sizes: titles come from tags.
    std::map<std::string, Item> bySize;
    for (const char* view : {"0$1$10", "0$2$20", "0$3$30"}) {
      for (const e2e::Xml& item : e2e::childObjects(view)) {
        const e2e::Xml* res = item.child("res");
        ASSERT_TRUE(res);
        bySize[e2e::findField(res->attributes, "size").value_or("")] = {
            res->text, e2e::findField(res->attributes, "protocolInfo").value_or("")};
      }
    }
    for (const auto& entry : fs::directory_iterator(share_))
      items_[entry.path().stem()] = bySize[std::to_string(entry.file_size())];
  }
  void TearDown() override { dmsd_.stop(); }

  // "/<id>" of an item.
  std::string idPath(const std::string& title) {
    const std::string& url = items_[title].url;
    std::string last = url.substr(url.rfind('/'));
    return last.substr(0, last.find('.'));
  }

  DmsdProcess dmsd_;
  std::string share_;
  std::map<std::string, Item> items_;  // by file name without extension
};

TEST_F(Stream, RangesAndTransportHeaders) {
  const std::string clip = readAll(share_ + "/clip.avi");
  const std::string size = std::to_string(clip.size());
  const std::string video = items_["clip"].url, jpeg = items_["photo"].url;
  const std::string mp3 = items_["song"].url;
  struct Case {
    std::string url, name, value;
    int status;
    int64_t first = 0, count = 0;  // of the clip, for a 206
  } cases[] = {
      // Which values are taken is the header module's matter; here, what the
      // answer carries for each outcome.
      {video, "Range", "bytes=100-199/1000", 206, 100, 100},
      {video, "Range", "bytes=-10", 206, static_cast<int64_t>(clip.size()) - 10, 10},
      {video, "Range", "bytes=a-5", 400},
      {jpeg, "Range", "bytes=0-99", 406},
      {video, "Range", "bytes=" + size + "-", 416},
      {video, "transferMode.dlna.org", "Streaming", 200},
      {jpeg, "transferMode.dlna.org", "Interactive", 200},
      {mp3, "transferMode.dlna.org", "Interactive", 406},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name + ": " + c.value + " on " + c.url);
    e2e::HttpResponse r = fetch(c.url, {{c.name, c.value}});
    EXPECT_EQ(r.status, c.status);
    if (c.status >= 400) {
      EXPECT_TRUE(r.body.empty());
    }
    if (c.status == 416) {
      EXPECT_EQ(r.header("Content-Range").value_or(""), "bytes */" + size);
    }
    if (c.status == 206) {
      EXPECT_TRUE(r.body ==
                  clip.substr(static_cast<size_t>(c.first), static_cast<size_t>(c.count)));
      EXPECT_EQ(r.header("Content-Range").value_or(""), "bytes " + std::to_string(c.first) + "-" +
                                                            std::to_string(c.first + c.count - 1) +
                                                            "/" + size);
    }
    if (c.status == 200 && c.name == "transferMode.dlna.org") {
      EXPECT_EQ(r.header("transferMode.dlna.org").value_or(""), c.value);
    }
  }
  e2e::HttpResponse features = fetch(mp3, {{"getcontentFeatures.dlna.org", "1"}});
  EXPECT_EQ(features.status, 200);
  const std::string& protocol = items_["song"].protocolInfo;
  EXPECT_EQ(features.header("contentFeatures.dlna.org").value_or(""),
            protocol.substr(protocol.rfind(':') + 1));
}

TEST_F(Stream, FilesPast4GiBKeepTheirSizeAndOffsets) {
  // Found by its size at all means res@size had all 64 bits.
  const Item& huge = items_["huge"];
  ASSERT_FALSE(huge.url.empty()) << "no item of size " << kHugeSize;
  EXPECT_NE(huge.protocolInfo.find("DLNA.ORG_PN=MP3;"), std::string::npos) << huge.protocolInfo;
  const std::string size = std::to_string(kHugeSize);
  EXPECT_EQ(fetch(huge.url, {}, "HEAD").header("Content-Length").value_or(""), size);
  struct Case {
    std::string range;
    uintmax_t first, count;
  } cases[] = {
      {"bytes=4294967300-4294967309", 4294967300u, 10},
      {"bytes=4294967290-4294967305", 4294967290u, 16},  // across the 4 GiB line
      {"bytes=-5", kHugeSize - 5, 5},
      {"bytes=" + std::to_string(kHugeSize - 3) + "-", kHugeSize - 3, 3},
  };
  for (const Case& c : cases) {
    e2e::HttpResponse r = fetch(huge.url, {{"Range", c.range}});
    EXPECT_EQ(r.status, 206) << c.range;
    EXPECT_EQ(r.header("Content-Range").value_or(""), "bytes " + std::to_string(c.first) + "-" +
                                                          std::to_string(c.first + c.count - 1) +
                                                          "/" + size)
        << c.range;
    // Nothing was written past the MP3 at the start: a wrapped offset would
    // serve its frames instead of the hole's zeros.
    EXPECT_EQ(r.body, std::string(c.count, '\0')) << c.range;
  }
  EXPECT_EQ(fetch(huge.url, {{"Range", "bytes=" + size + "-"}}).status, 416);
}

TEST_F(Stream, ThumbnailsFromTheFileOrTheDefaults) {
  const std::string photo = readAll(share_ + "/photo.jpg");
  e2e::HttpResponse exif = fetch(std::string(e2e::kBase) + "/web/tn/image" + idPath("photo"));
  EXPECT_EQ(exif.status, 200);
  EXPECT_EQ(exif.header("Content-Type").value_or(""), "image/jpeg");
  // The EXIF thumbnail: a whole JPEG cut out of the picture.
  ASSERT_GT(exif.body.size(), 4u);
  EXPECT_LT(exif.body.size(), photo.size() / 2);
  EXPECT_EQ(exif.body.substr(0, 2), "\xFF\xD8");
  EXPECT_NE(photo.find(exif.body), std::string::npos);

  e2e::HttpResponse apic = fetch(std::string(e2e::kBase) + "/web/tn/music" + idPath("song"));
  EXPECT_EQ(apic.status, 200);
  ASSERT_GT(apic.body.size(), 8u);
  EXPECT_NE(readAll(share_ + "/song.mp3").find(apic.body), std::string::npos);

  const std::string data = DMSD_DATA_DIR;
  struct Case {
    std::string path, file;
  } defaults[] = {
      {"/web/tn/music" + idPath("plain"), "audio.jpg"},
      {"/web/tn/image" + idPath("picture"), "image.jpg"},
      {"/web/tn/video" + idPath("clip"), "video.jpg"},
  };
  for (const Case& c : defaults) {
    e2e::HttpResponse r = fetch(e2e::kBase + c.path);
    EXPECT_EQ(r.status, 200) << c.path;
    EXPECT_TRUE(r.body == readAll(data + "/" + c.file)) << c.path;
  }
}

TEST_F(Stream, RefusalsAndVanishedFiles) {
  EXPECT_EQ(e2e::requestFrom("127.0.0.1", "GET /web/index.html HTTP/1.0\r\n\r\n"), 400);
  EXPECT_EQ(
      e2e::requestFrom("127.0.0.1", "GET /web/index.html HTTP/1.1\r\nConnection: close\r\n\r\n"),
      400);
  EXPECT_EQ(
      e2e::requestFrom("127.0.0.1", "GET /web/index.html HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n"),
      200);
  fs::remove(share_ + "/plain.mp3");
  EXPECT_EQ(fetch(items_["plain"].url).status, 404);
  EXPECT_EQ(fetch(std::string(e2e::kBase) + "/web/99999.mp3").status, 404);
}

TEST_F(Stream, ClientLeavingMidStreamLeavesNoDescriptorOpen) {
  // Let the first request open its lazily made descriptors (epoll, logs).
  ASSERT_EQ(fetch(items_["song"].url).status, 200);
  // That client's socket closes on the server's side a moment later: count
  // once the number has held still for a while.
  size_t before = openDescriptors(dmsd_.pid());
  for (int i = 0, still = 0; i < 500 && still < 20; ++i) {
    usleep(10000);
    const size_t now = openDescriptors(dmsd_.pid());
    still = now == before ? still + 1 : 0;
    before = now;
  }
  int fd = e2e::connectFrom("127.0.0.1");
  ASSERT_GE(fd, 0);
  const std::string get = "GET " + items_["clip"].url.substr(strlen(e2e::kBase)) +
                          " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
  ASSERT_GT(send(fd, get.data(), get.size(), MSG_NOSIGNAL), 0);
  char buf[65536];
  ASSERT_GT(recv(fd, buf, sizeof buf, MSG_WAITALL), 0);
  EXPECT_GT(openDescriptors(dmsd_.pid()), before);  // the socket and the file
  close(fd);
  size_t after = 0;
  for (int i = 0; i < 500 && (after = openDescriptors(dmsd_.pid())) != before; ++i) usleep(10000);
  EXPECT_EQ(after, before);
}

}  // namespace
