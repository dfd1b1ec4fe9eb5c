// The daemon as a MediaServer seen by a control point on loopback: discovery,
// the documents it serves, its actions and variables, its events, and its
// identity across restarts. What the documents contain is the business of the
// unit tests; here they are compared with what the daemon's modules produce.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "content/state_var.h"
#include "e2e/daemon.h"
#include "e2e/upnp_client.h"
#include "platform/alloc.h"
#include "services/scpd.h"
#include "services/xml_escape.h"
#include "upnp/upnp_dms.h"

namespace {

using e2e::Fields;
using e2e::SoapResult;
using e2e::SsdpMessage;

constexpr char kDeviceType[] = "urn:schemas-upnp-org:device:MediaServer:1";

struct Service {
  std::string name;  // in its URLs
  std::string type;
};
const Service kCds{"cds", "urn:schemas-upnp-org:service:ContentDirectory:1"};
const Service kCms{"cms", "urn:schemas-upnp-org:service:ConnectionManager:1"};
const Service kMsr{"msr", "urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1"};

// "<" and "&" in the server name break the description unless the daemon
// escapes them. The manufacturer goes in as configured, and the device must
// come up with the "&" in it all the same.
constexpr char kConfig[] =
    "Enable = 1\nPort = 49152\nRescanTime = 0\nIPAddress = 127.0.0.1\nInterface = lo\n"
    "DmsName = A<&B\nModelName = M\nManuFacturer = A&B\n"
    "ManuFacturerURL = http://maker.example/\nDeviceURL = http://model.example/\n"
    "SerialNumber = SN-1\nLocale = 0\n";

std::string url(const std::string& path) {
  return "http://127.0.0.1:49152" + path;
}

e2e::HttpResponse get(const std::string& path) {
  return e2e::httpRequest(url(path), "GET");
}

SoapResult call(const Service& s, const std::string& action, const Fields& args = {}) {
  return e2e::soapAction(url("/web/" + s.name + "_control"), s.type, action, args);
}

e2e::HttpResponse subscribe(const Service& s, const std::string& callback) {
  return e2e::httpRequest(url("/web/" + s.name + "_event"), "SUBSCRIBE",
                          {{"CALLBACK", "<" + callback + ">"}, {"NT", "upnp:event"}});
}

// Hex digits in groups of 8-4-4-4-12.
bool isUuid(const std::string& text) {
  return std::regex_match(text, std::regex("[0-9a-fA-F]{8}(-[0-9a-fA-F]{4}){3}-[0-9a-fA-F]{12}"));
}

// One element per line with namespace, attributes and trimmed text, so that
// documents compare whatever their layout.
std::string treeOf(const e2e::Xml& e, int depth = 0) {
  std::string out = std::string(2 * depth, ' ') + e.name + " {" + e.ns + "}";
  for (const auto& [name, value] : e.attributes) out += " " + name + "=\"" + value + "\"";
  size_t begin = e.text.find_first_not_of(" \t\r\n");
  if (begin != std::string::npos) {
    out += " \"" + e.text.substr(begin, e.text.find_last_not_of(" \t\r\n") + 1 - begin) + "\"";
  }
  out += "\n";
  for (const e2e::Xml& c : e.children) out += treeOf(c, depth + 1);
  return out;
}

// Until the daemon says it serves; false at once when it exits instead.
bool waitStarted(DmsdProcess& dmsd) {
  auto deadline = std::chrono::steady_clock::now() + 10s;
  while (std::chrono::steady_clock::now() < deadline) {
    if (dmsd.waitForLog("DMS started successful!", 100ms)) return true;
    if (!dmsd.running()) return false;
  }
  return false;
}

// One daemon per test on a fixed port (each test runs in a network namespace
// of its own). The SSDP listener comes first to hear the first announcements.
class Device : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(ssdp_.listening());
    dmsd_.startWithConfig(kConfig);
    ASSERT_TRUE(waitStarted(dmsd_)) << dmsd_.log();
  }

  // Also a test of the run: the daemon must not have died, and a clean exit
  // is what the leak checker of the sanitizer build reports through.
  void TearDown() override { EXPECT_EQ(dmsd_.stop(), 0) << dmsd_.log(); }

  // The UUID in the served description, or empty.
  static std::string uuid() {
    std::string body = get("/description.xml").body;
    size_t begin = body.find("<UDN>uuid:"), end = body.find("</UDN>");
    return begin == std::string::npos || end == std::string::npos || end < begin
               ? ""
               : body.substr(begin + 10, end - begin - 10);
  }

  e2e::SsdpListener ssdp_;
  DmsdProcess dmsd_;
};

TEST_F(Device, AnnouncesAnswersSearchesAndSaysByebye) {
  const std::string uuid = Device::uuid();
  ASSERT_TRUE(isUuid(uuid)) << "UDN \"" << uuid << "\"";
  for (std::string nt : {"uuid:" + uuid, std::string(kDeviceType), std::string("upnp:rootdevice"),
                         kCds.type, kCms.type, kMsr.type}) {
    SCOPED_TRACE(nt);
    const std::string usn = nt.rfind("uuid:", 0) == 0 ? nt : "uuid:" + uuid + "::" + nt;
    auto alive = ssdp_.waitFor([&](const SsdpMessage& m) {
      return m.header("NT") == nt && m.header("NTS") == "ssdp:alive";
    });
    auto found = e2e::ssdpSearch(nt);
    ASSERT_TRUE(alive) << "heard:" << ssdp_.heard();
    ASSERT_TRUE(found) << "no answer to M-SEARCH";
    EXPECT_EQ(found->header("ST"), nt);
    for (const SsdpMessage* m : {&*alive, &*found}) {
      EXPECT_EQ(m->header("USN"), usn);
      EXPECT_EQ(m->header("LOCATION"), url("/description.xml"));
      EXPECT_EQ(m->header("CACHE-CONTROL"), "max-age=1860");
    }
  }

  ASSERT_EQ(dmsd_.stop(), 0) << dmsd_.log();
  auto byebye = ssdp_.waitFor([](const SsdpMessage& m) {
    return m.header("NT") == kDeviceType && m.header("NTS") == "ssdp:byebye";
  });
  ASSERT_TRUE(byebye) << "heard:" << ssdp_.heard();
  EXPECT_EQ(byebye->header("USN"), "uuid:" + uuid + "::" + kDeviceType);
}

TEST_F(Device, ServesItsDescriptionsAndPresentationPage) {
  // The stack re-prints the description it was given, with a URLBase added:
  // compare trees, not bytes.
  e2e::HttpResponse r = get("/description.xml");
  ASSERT_EQ(r.status, 200) << r.raw;
  EXPECT_EQ(r.header("Content-Type").value_or("").rfind("text/xml", 0), 0u) << r.raw;
  EXPECT_EQ(r.header("Content-Length"), std::to_string(r.body.size()));
  auto served = e2e::parseXml(r.body);
  ASSERT_TRUE(served) << r.raw;
  auto urlBase = std::find_if(served->children.begin(), served->children.end(),
                              [](const e2e::Xml& e) { return e.name == "URLBase"; });
  ASSERT_NE(urlBase, served->children.end()) << r.raw;
  EXPECT_EQ(urlBase->text, "http://127.0.0.1:49152/");
  served->children.erase(urlBase);

  const std::string uuid = Device::uuid();
  EXPECT_TRUE(isUuid(uuid)) << "UDN \"" << uuid << "\"";
  // The daemon escapes the server name; the stack, the bare "&" left in the
  // manufacturer.
  char* text =
      dlnaGetDmsDesc("M", "A&lt;&amp;B", "A&amp;B", "http://maker.example/", "Norvik MediaServer",
                     "Windows Media Connect", "2.0", "http://model.example/", "SN-1", uuid.c_str(),
                     "/web/index.html", "/web/cms.xml", "/web/cms_control", "/web/cms_event",
                     "/web/cds.xml", "/web/cds_control", "/web/cds_event");
  ASSERT_TRUE(text);
  auto expected = e2e::parseXml(text);
  RetUB(text);
  ASSERT_TRUE(expected);
  EXPECT_EQ(treeOf(*served), treeOf(*expected));

  // The ContentDirectory description is generated on open, after its length
  // was taken from the one before: the very first answer is empty.
  r = get("/web/cds.xml");
  EXPECT_EQ(r.status, 200) << r.raw;
  EXPECT_EQ(r.header("Content-Length"), "0") << r.raw;
  EXPECT_EQ(r.body, "");

  char cds[kCdsDescSize];
  dlnaGenCdsDesc(cds);
  const struct {
    const char* path;
    const char* type;
    std::string body;
  } documents[] = {
      {"/web/cds.xml", "text/xml", cds},
      {"/web/cms.xml", "text/xml", g_szCmsDesc},
      {"/web/msr.xml", "text/xml", g_szMsrDesc},
      {"/web/index.html", "text/html", "  "},
  };
  for (const auto& d : documents) {
    SCOPED_TRACE(d.path);
    r = get(d.path);
    ASSERT_EQ(r.status, 200) << r.raw;
    EXPECT_EQ(r.header("Content-Type"), d.type);
    EXPECT_EQ(r.header("Content-Length"), std::to_string(r.body.size()));
    EXPECT_EQ(r.body, d.body);
  }
}

// What the service tables answer is the unit tests' matter; here, that faults
// and variable queries travel as SOAP does.
TEST_F(Device, AnswersActionsAndVariableQueries) {
  // Actions a service does not have (another service's, one that only starts
  // like one of ours), and Browse, which fails until there is a tree to browse:
  // a failed action must not answer as if it had succeeded.
  const struct {
    const Service& service;
    const char* action;
    Fields in;
    int code;
  } refused[] = {
      {kCms, "Browse", {}, 401},
      {kMsr, "IsAuthorizedX", {{"DeviceID", ""}}, 401},
      {kCds,
       "Browse",
       {{"ObjectID", "0"},
        {"BrowseFlag", "BrowseMetadata"},
        {"Filter", "*"},
        {"StartingIndex", "1"},
        {"RequestedCount", "0"},
        {"SortCriteria", ""}},
       501},
  };
  for (const auto& c : refused) {
    SCOPED_TRACE(c.service.name + " " + c.action);
    SoapResult r = call(c.service, c.action, c.in);
    EXPECT_EQ(r.http.status, 500) << r.http.raw;
    EXPECT_EQ(r.answer, "Fault") << r.http.raw;
    EXPECT_EQ(r.errorCode, c.code) << r.http.raw;
    if (c.code == 401) {
      EXPECT_EQ(r.errorDescription, "Unknown Service Action");
    }
  }

  const struct {
    const Service& service;
    const char* variable;
    std::optional<std::string> value;  // nothing: unknown here
  } queries[] = {
      {kCds, "SystemUpdateID", e2e::findField(call(kCds, "GetSystemUpdateID").out, "Id")},
      {kCms, "CurrentConnectionIDs", "0"},
      {kCds, "NoSuchVariable", std::nullopt},
      // The registrar publishes no variables at all.
      {kMsr, "AuthorizationGrantedUpdateID", std::nullopt},
  };
  for (const auto& q : queries) {
    SCOPED_TRACE(q.variable);
    SoapResult r = e2e::queryStateVariable(url("/web/" + q.service.name + "_control"), q.variable);
    if (q.value) {
      ASSERT_TRUE(r.ok()) << r.http.raw;
      EXPECT_EQ(r.out, (Fields{{"return", *q.value}})) << r.http.raw;
    } else {
      EXPECT_EQ(r.http.status, 500) << r.http.raw;
      EXPECT_EQ(r.errorCode, 404) << r.http.raw;
    }
  }
}

TEST_F(Device, SendsNewSubscribersTheCurrentValues) {
  SoapResult id = call(kCds, "GetSystemUpdateID");
  ASSERT_TRUE(id.ok()) << id.http.raw;
  e2e::EventListener listener;
  ASSERT_NE(listener.callbackUrl(), "");
  const struct {
    const Service& service;
    Fields properties;
  } cases[] = {
      {kCds, {{"SystemUpdateID", e2e::findField(id.out, "Id").value_or("?")}}},
      {kCms, {{"SourceProtocolInfo", ""}, {"SinkProtocolInfo", ""}, {"CurrentConnectionIDs", "0"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.service.name);
    e2e::HttpResponse s = subscribe(c.service, listener.callbackUrl());
    ASSERT_EQ(s.status, 200) << s.raw;
    auto event = listener.next();
    ASSERT_TRUE(event) << "no initial event\n" << dmsd_.log();
    EXPECT_EQ(event->sid, s.header("SID"));
    EXPECT_EQ(event->seq, "0");
    EXPECT_EQ(event->properties, c.properties) << event->raw;
  }

  // The registrar has nothing to send, yet takes subscribers.
  e2e::HttpResponse s = subscribe(kMsr, listener.callbackUrl());
  EXPECT_EQ(s.status, 200) << s.raw;
  EXPECT_TRUE(dmsd_.waitForLog(std::string("Var subscription:") + kMsrServiceId + "!"))
      << dmsd_.log();
}

TEST_F(Device, KeepsItsUuidAcrossRestartsInItsConfigurationFolder) {
  const std::string before = uuid();
  ASSERT_TRUE(isUuid(before)) << "UDN \"" << before << "\"";
  ASSERT_EQ(dmsd_.restart(), 0) << dmsd_.log();
  ASSERT_TRUE(waitStarted(dmsd_)) << dmsd_.log();
  EXPECT_EQ(uuid(), before);

  ASSERT_EQ(dmsd_.stop(), 0) << dmsd_.log();
  DmsdProcess other;
  other.startWithConfig(kConfig);
  ASSERT_TRUE(waitStarted(other)) << other.log();
  const std::string otherUuid = uuid();
  EXPECT_TRUE(isUuid(otherUuid)) << "UDN \"" << otherUuid << "\"";
  EXPECT_NE(otherUuid, before);
  EXPECT_EQ(other.stop(), 0) << other.log();
}

}  // namespace
