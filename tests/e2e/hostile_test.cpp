// A hostile client on the LAN against the one web server: oversized and deeply
// nested bodies, huge headers, subscriptions that point elsewhere or flood,
// foreign Host names, held and bursting connections, and libupnp's own
// listener. Each is answered with a clear status, the daemon stays small and
// keeps answering other clients promptly. Other clients come from other
// loopback addresses, as they would from other hosts.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <poll.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "e2e/daemon.h"
#include "e2e/upnp_client.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::string_literals;

namespace {

using e2e::kBase;
using e2e::kCdsType;

std::string soapPost(const std::string& body, const std::string& extraHeaders = "") {
  return "POST /web/cds_control HTTP/1.1\r\nHost: 127.0.0.1:49152\r\nSOAPACTION: \"" +
         std::string(kCdsType) + "#Browse\"\r\nContent-Type: text/xml\r\n" + extraHeaders +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string nested(int depth) {
  std::string xml;
  xml.reserve(depth * 7);
  for (int i = 0; i < depth; ++i) xml += "<a>";
  for (int i = 0; i < depth; ++i) xml += "</a>";
  return xml;
}

// The request with its body sent as chunks of at most 64 KiB.
std::string chunked(const std::string& head, const std::string& body) {
  std::string out = head + "Transfer-Encoding: chunked\r\n\r\n";
  for (size_t at = 0; at < body.size(); at += 65536) {
    size_t n = std::min<size_t>(65536, body.size() - at);
    char size[16];
    snprintf(size, sizeof size, "%zx\r\n", n);
    out += size;
    out.append(body, at, n);
    out += "\r\n";
  }
  return out + "0\r\n\r\n";
}

// A listening socket on `address` and a port the system picks; its URL is
// "http://address:port/e".
int listenOn(const char* address, std::string* url) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in at{};
  at.sin_family = AF_INET;
  inet_pton(AF_INET, address, &at.sin_addr);
  socklen_t size = sizeof at;
  if (bind(fd, reinterpret_cast<sockaddr*>(&at), sizeof at) != 0 || listen(fd, 512) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&at), &size) != 0) {
    close(fd);
    return -1;
  }
  *url = "http://" + std::string(address) + ":" + std::to_string(ntohs(at.sin_port)) + "/e";
  return fd;
}

long rssKiB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0) return atol(line.c_str() + 6);
  return -1;
}

class Hostile : public testing::Test {
 protected:
  void SetUp() override {
    dmsd_.copyFixture("share/song.mp3", "mp3_apic.mp3");
    ASSERT_TRUE(dmsd_.serve(dmsd_.dir() + "/share", "music:1")) << dmsd_.log();
    auto songs = e2e::childObjects("0$1$10");
    ASSERT_EQ(songs.size(), 1u);
    const e2e::Xml* res = songs[0].child("res");
    ASSERT_TRUE(res);
    songUrl_ = res->text;
  }
  void TearDown() override { dmsd_.stop(); }

  // A Browse and a media GET from another client answer, each within a second.
  void expectOthersServedPromptly(const char* what) {
    auto start = Clock::now();
    EXPECT_EQ(e2e::childObjects("0$1$10").size(), 1u) << what;
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1)) << what << ": Browse";
    start = Clock::now();
    EXPECT_EQ(e2e::httpRequest(songUrl_, "GET", {{"Host", "127.0.0.1:49152"}}).status, 200) << what;
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(1)) << what << ": media GET";
  }

  DmsdProcess dmsd_;
  std::string songUrl_;
};

TEST_F(Hostile, BodiesAndHeadersAreBoundedAndMemoryReturns) {
  const long baseline = rssKiB(dmsd_.pid());
  const std::string head =
      "POST /web/cds_control HTTP/1.1\r\nHost: 127.0.0.1:49152\r\nSOAPACTION: \"" +
      std::string(kCdsType) + "#Browse\"\r\n";
  const std::string deep = nested(100000);
  const struct {
    const char* what;
    std::string request;
    int status;
  } cases[] = {
      {"100,000 levels, Content-Length", soapPost(deep), 413},
      {"100,000 levels, chunked", chunked(head, deep), 413},
      {"34,000 levels under the body limit", soapPost(nested(34000)), 400},
      {"120 MB chunked", chunked(head, std::string(120 << 20, 'x')), 413},
      {"not XML", soapPost("<s:Envelope"), 400},
  };
  for (const auto& c : cases)
    EXPECT_EQ(e2e::requestFrom("127.0.0.2", c.request), c.status) << c.what;
  // 30 MB of headers: refused (431) or cut off, never taken in.
  std::string headers = "GET /description.xml HTTP/1.1\r\nHost: 127.0.0.1\r\n";
  for (int i = 0; headers.size() < (30u << 20); ++i)
    headers += "X-" + std::to_string(i) + ": " + std::string(1000, 'h') + "\r\n";
  int status = e2e::requestFrom("127.0.0.2", headers + "\r\n");
  EXPECT_TRUE(status == 431 || status == 413 || status == 0) << status;

  EXPECT_LT(rssKiB(dmsd_.pid()), baseline + 8 * 1024) << "baseline " << baseline << " KiB";
  expectOthersServedPromptly("after the oversized requests");
}

TEST_F(Hostile, SubscriptionsNameTheirOwnAddressAndAreCapped) {
  // A listener on a second address that must never hear from the daemon.
  std::string bystanderUrl;
  int bystander = listenOn("127.0.0.2", &bystanderUrl);
  ASSERT_GE(bystander, 0);
  const std::string elsewhere = "<" + bystanderUrl + ">";

  auto subscribe = [](const std::string& headers) {
    return "SUBSCRIBE /web/cds_event HTTP/1.1\r\nHost: 127.0.0.1:49152\r\n" + headers + "\r\n";
  };
  const struct {
    const char* what;
    std::string headers;
    int status;
  } cases[] = {
      {"no CALLBACK", "NT: upnp:event\r\n", 412},
      {"no NT", "CALLBACK: <http://127.0.0.1:9/>\r\n", 412},
      {"another host", "NT: upnp:event\r\nCALLBACK: " + elsewhere + "\r\n", 412},
      {"ftp", "NT: upnp:event\r\nCALLBACK: <ftp://127.0.0.1:21/>\r\n", 412},
      {"SID with NT", "SID: uuid:x\r\nNT: upnp:event\r\n", 400},
      {"unknown SID", "SID: uuid:x\r\n", 412},
  };
  for (const auto& c : cases)
    EXPECT_EQ(e2e::requestFrom("127.0.0.1", subscribe(c.headers)), c.status) << c.what;

  // A flood from one address whose callbacks accept but never answer.
  std::string silentUrl;
  int silent = listenOn("127.0.0.3", &silentUrl);
  ASSERT_GE(silent, 0);
  const std::string flood = subscribe(
      "NT: upnp:event\r\nTIMEOUT: Second-99999999999\r\nCALLBACK: <" + silentUrl + ">\r\n");
  int granted = 0;
  for (int i = 0; i < 3000; ++i) granted += e2e::requestFrom("127.0.0.3", flood) == 200;
  EXPECT_GT(granted, 0);
  EXPECT_LE(granted, 64) << "subscriptions from one address are capped";

  // A legitimate subscriber still gets its initial event at once, and the
  // granted timeout is bounded.
  e2e::EventListener listener;
  auto start = Clock::now();
  e2e::HttpResponse r = e2e::httpRequest(std::string(kBase) + "/web/cds_event", "SUBSCRIBE",
                                         {{"CALLBACK", "<" + listener.callbackUrl() + ">"},
                                          {"NT", "upnp:event"},
                                          {"TIMEOUT", "Second-99999999999"}});
  ASSERT_EQ(r.status, 200) << r.raw;
  EXPECT_EQ(r.header("TIMEOUT").value_or(""), "Second-1800");
  EXPECT_EQ(r.header("SID").value_or("").rfind("uuid:", 0), 0u);
  std::optional<e2e::GenaEvent> initial = listener.next(1s);
  ASSERT_TRUE(initial);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(initial->seq, "0");

  pollfd p{bystander, POLLIN, 0};
  EXPECT_EQ(poll(&p, 1, 500), 0) << "a callback at another address was contacted";
  close(bystander);
  close(silent);

  // Too short a timeout is raised to the floor.
  r = e2e::httpRequest(std::string(kBase) + "/web/cms_event", "SUBSCRIBE",
                       {{"CALLBACK", "<" + listener.callbackUrl() + ">"},
                        {"NT", "upnp:event"},
                        {"TIMEOUT", "Second-5"}});
  EXPECT_EQ(r.header("TIMEOUT").value_or(""), "Second-300") << r.raw;
}

TEST_F(Hostile, ForeignHostNamesAreRefused) {
  const std::string path = songUrl_.substr(songUrl_.find("/web/"));
  for (const std::string& request :
       {"GET /description.xml HTTP/1.1\r\nHost: evil.example\r\n\r\n"s,
        "GET /web/cds.xml HTTP/1.1\r\nHost: evil.example:49152\r\n\r\n"s,
        "GET " + path + " HTTP/1.1\r\nHost: evil.example\r\n\r\n",
        "POST /web/cds_control HTTP/1.1\r\nHost: 127.0.0.1.evil.example\r\n"
        "Content-Length: 0\r\n\r\n"s})
    EXPECT_EQ(e2e::requestFrom("127.0.0.1", request), 403) << request;
  EXPECT_EQ(e2e::requestFrom("127.0.0.1",
                             "GET /description.xml HTTP/1.1\r\nHost: 127.0.0.1:49152\r\n\r\n"),
            200);
  // An id beyond 32 bits does not wrap onto a real object.
  const std::string last = path.substr(path.rfind('/') + 1);
  const std::string id = last.substr(0, last.find('.'));
  EXPECT_EQ(
      e2e::httpRequest(std::string(kBase) + "/web/" + std::to_string(4294967296LL + stoll(id)),
                       "GET", {{"Host", "127.0.0.1:49152"}})
          .status,
      404);
}

TEST_F(Hostile, HeldConnectionsNeitherStallOthersNorDelayTheStop) {
  for (int held : {20, 64, 200}) {
    std::vector<int> fds;
    for (int i = 0; i < held; ++i) {
      int fd = e2e::connectFrom("127.0.0.2");
      if (fd < 0) continue;
      // Half stay silent, half trickle the start of a request.
      if (i % 2) send(fd, "GET /desc", 9, MSG_NOSIGNAL);
      fds.push_back(fd);
    }
    expectOthersServedPromptly(("with " + std::to_string(held) + " held").c_str());
    for (int fd : fds) close(fd);
  }
  // A burst that connects and leaves at once: the port serves right after.
  for (int i = 0; i < 200; ++i) {
    int fd = e2e::connectFrom("127.0.0.2");
    if (fd >= 0) close(fd);
  }
  expectOthersServedPromptly("after a burst");

  std::vector<int> fds;
  for (int i = 0; i < 20; ++i) fds.push_back(e2e::connectFrom("127.0.0.2"));
  auto start = Clock::now();
  EXPECT_EQ(dmsd_.stop(2s), 0);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
  for (int fd : fds)
    if (fd >= 0) close(fd);
}

// libupnp opens a listener of its own whatever we do: it serves nothing.
TEST_F(Hostile, StackListenerGivesNothingAway) {
  uint16_t port = 0;
  std::ifstream tcp("/proc/" + std::to_string(dmsd_.pid()) + "/net/tcp");
  std::string line;
  while (std::getline(tcp, line)) {
    unsigned local = 0, localPort = 0, state = 0;
    if (sscanf(line.c_str(), " %*d: %8X:%4X %*8X:%*4X %2X", &local, &localPort, &state) == 3 &&
        state == 0x0A && localPort != 49152)
      port = static_cast<uint16_t>(localPort);
  }
  ASSERT_NE(port, 0) << "no second listener found";
  const std::string host = "Host: 127.0.0.1:" + std::to_string(port) + "\r\n";
  EXPECT_NE(
      e2e::requestFrom("127.0.0.1", "GET /description.xml HTTP/1.1\r\n" + host + "\r\n", port),
      200);
  EXPECT_NE(e2e::requestFrom("127.0.0.1", "GET /web/cds.xml HTTP/1.1\r\n" + host + "\r\n", port),
            200);
  const std::string browse =
      "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\">"
      "<s:Body><u:Browse xmlns:u=\"" +
      std::string(kCdsType) +
      "\"><ObjectID>0</ObjectID><BrowseFlag>BrowseDirectChildren</BrowseFlag></u:Browse>"
      "</s:Body></s:Envelope>";
  EXPECT_NE(e2e::requestFrom("127.0.0.1",
                             "POST /web/cds_control HTTP/1.1\r\n" + host + "SOAPACTION: \"" +
                                 kCdsType + "#Browse\"\r\nContent-Length: " +
                                 std::to_string(browse.size()) + "\r\n\r\n" + browse,
                             port),
            200);
  e2e::EventListener listener;
  EXPECT_NE(e2e::requestFrom("127.0.0.1",
                             "SUBSCRIBE /web/cds_event HTTP/1.1\r\n" + host + "NT: upnp:event\r\n" +
                                 "CALLBACK: <" + listener.callbackUrl() + ">\r\n\r\n",
                             port),
            200);
  EXPECT_FALSE(listener.next(500ms)) << "libupnp's listener sent an event";
}

}  // namespace
