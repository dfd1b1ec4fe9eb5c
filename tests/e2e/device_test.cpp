// The daemon as a UPnP MediaServer seen from a control point on loopback:
// discovery, the device and service descriptions, SOAP actions, variable
// queries and event subscriptions.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "e2e/daemon.h"
#include "e2e/upnp_client.h"

namespace {

using e2e::Fields;
using e2e::SoapResult;
using e2e::SsdpMessage;
using e2e::Url;

constexpr uint16_t kPort = 49152;
constexpr char kHost[] = "127.0.0.1";

// The server name has a character the description must escape. The
// manufacturer goes in unescaped: with ">" the document stays well-formed,
// with "&" (a test of its own) it does not.
constexpr char kManufacturer[] = "A>B";

std::string configWith(const std::string& manufacturer) {
  return "Enable = 1\n"
         "Port = 49152\n"
         "RescanTime = 0\n"
         "IPAddress = 127.0.0.1\n"
         "Interface = lo\n"
         "DmsName = A&B\n"
         "ModelName = M\n"
         "ManuFacturer = " +
         manufacturer +
         "\n"
         "ManuFacturerURL = http://maker.example/\n"
         "DeviceURL = http://model.example/\n"
         "SerialNumber = SN-1\n"
         "Locale = 0\n";
}

constexpr char kStarted[] = "DMS started successful!";

constexpr char kDeviceType[] = "urn:schemas-upnp-org:device:MediaServer:1";
constexpr char kCdsType[] = "urn:schemas-upnp-org:service:ContentDirectory:1";
constexpr char kCmsType[] = "urn:schemas-upnp-org:service:ConnectionManager:1";
constexpr char kMsrType[] = "urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1";
constexpr char kCdsId[] = "urn:upnp-org:serviceId:ContentDirectory";
constexpr char kCmsId[] = "urn:upnp-org:serviceId:ConnectionManager";
constexpr char kMsrId[] = "urn:microsoft.com:serviceId:X_MS_MediaReceiverRegistrar";

Url at(const std::string& path) {
  return Url{kHost, kPort, path};
}

// The device description the configuration above must produce, without the
// URLBase that the stack adds.
std::string expectedDescription(const std::string& udn, const std::string& manufacturer) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
         "<root xmlns=\"urn:schemas-upnp-org:device-1-0\">  <specVersion>    <major>1</major>"
         "    <minor>0</minor>  </specVersion>  <device>"
         "  <dlna:X_DLNADOC xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\">DMS-1.50"
         "</dlna:X_DLNADOC>"
         "  <dlna:X_DLNACAP xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\"/>"
         "    <deviceType>urn:schemas-upnp-org:device:MediaServer:1</deviceType>"
         "    <friendlyName>M: A&amp;B:</friendlyName>    <manufacturer>" +
         manufacturer +
         "</manufacturer>"
         "    <manufacturerURL>http://maker.example/</manufacturerURL>"
         "    <modelDescription>Norvik MediaServer</modelDescription>"
         "    <modelName>Windows Media Connect</modelName>    <modelNumber>2.0</modelNumber>"
         "    <modelURL>http://model.example/</modelURL>    <serialNumber>SN-1</serialNumber>"
         "    <UPC/>"
         "    <UDN>uuid:" +
         udn +
         "</UDN>    <presentationURL>/web/index.html</presentationURL>    <serviceList>"
         "      <service>"
         "        <serviceType>urn:schemas-upnp-org:service:ConnectionManager:1</serviceType>"
         "        <serviceId>urn:upnp-org:serviceId:ConnectionManager</serviceId>"
         "        <SCPDURL>/web/cms.xml</SCPDURL>        <controlURL>/web/cms_control</controlURL>"
         "        <eventSubURL>/web/cms_event</eventSubURL>      </service>      <service>"
         "        <serviceType>urn:schemas-upnp-org:service:ContentDirectory:1</serviceType>"
         "        <serviceId>urn:upnp-org:serviceId:ContentDirectory</serviceId>"
         "        <SCPDURL>/web/cds.xml</SCPDURL>        <controlURL>/web/cds_control</controlURL>"
         "        <eventSubURL>/web/cds_event</eventSubURL>      </service>      <service>"
         "        <serviceType>urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1"
         "</serviceType>\n"
         "        <serviceId>urn:microsoft.com:serviceId:X_MS_MediaReceiverRegistrar</serviceId>\n"
         "        <SCPDURL>/web/msr.xml</SCPDURL>"
         "        <controlURL>/web/msr_control</controlURL>"
         "        <eventSubURL>/web/msr_event</eventSubURL>      </service>\n"
         "    </serviceList>  </device></root>";
}

// ---- service descriptions as data ----

struct Argument {
  std::string name, direction, variable;
  bool operator==(const Argument&) const = default;
};

struct Action {
  std::string name;
  std::vector<Argument> arguments;
  bool operator==(const Action&) const = default;
};

struct Variable {
  std::string name, dataType, sendEvents;
  std::vector<std::string> allowed;
  bool operator==(const Variable&) const = default;
};

struct Scpd {
  std::vector<Action> actions;
  std::vector<Variable> variables;
  bool operator==(const Scpd&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Scpd& scpd) {
  for (const Action& a : scpd.actions) {
    out << "\n  action " << a.name << "(";
    for (const Argument& g : a.arguments) {
      out << " " << g.name << " " << g.direction << " " << g.variable << ";";
    }
    out << " )";
  }
  for (const Variable& v : scpd.variables) {
    out << "\n  variable " << v.name << " " << v.dataType << " events=" << v.sendEvents;
    for (const std::string& value : v.allowed) out << " [" << value << "]";
  }
  return out;
}

Argument in(std::string name, std::string variable) {
  return {std::move(name), "in", std::move(variable)};
}
Argument out(std::string name, std::string variable) {
  return {std::move(name), "out", std::move(variable)};
}

const Scpd kCdsScpd = {
    {
        {"Browse",
         {in("ObjectID", "A_ARG_TYPE_ObjectID"), in("BrowseFlag", "A_ARG_TYPE_BrowseFlag"),
          in("Filter", "A_ARG_TYPE_Filter"), in("StartingIndex", "A_ARG_TYPE_Index"),
          in("RequestedCount", "A_ARG_TYPE_Count"), in("SortCriteria", "A_ARG_TYPE_SortCriteria"),
          out("Result", "A_ARG_TYPE_Result"), out("NumberReturned", "A_ARG_TYPE_Count"),
          out("TotalMatches", "A_ARG_TYPE_Count"), out("UpdateID", "A_ARG_TYPE_UpdateID")}},
        {"GetSystemUpdateID", {out("Id", "SystemUpdateID")}},
        {"GetSearchCapabilities", {out("SearchCaps", "SearchCapabilities")}},
        {"GetSortCapabilities", {out("SortCaps", "SortCapabilities")}},
        {"Search",
         {in("ContainerID", "A_ARG_TYPE_ObjectID"),
          in("SearchCriteria", "A_ARG_TYPE_SearchCriteria"), in("Filter", "A_ARG_TYPE_Filter"),
          in("StartingIndex", "A_ARG_TYPE_Index"), in("RequestedCount", "A_ARG_TYPE_Count"),
          in("SortCriteria", "A_ARG_TYPE_SortCriteria"), out("Result", "A_ARG_TYPE_Result"),
          out("NumberReturned", "A_ARG_TYPE_Count"), out("TotalMatches", "A_ARG_TYPE_Count"),
          out("UpdateID", "A_ARG_TYPE_UpdateID")}},
    },
    {
        {"A_ARG_TYPE_BrowseFlag", "string", "no", {"BrowseMetadata", "BrowseDirectChildren"}},
        {"SystemUpdateID", "ui4", "yes", {}},
        {"A_ARG_TYPE_Count", "ui4", "no", {}},
        {"A_ARG_TYPE_SortCriteria", "string", "no", {}},
        {"SortCapabilities", "string", "no", {}},
        {"A_ARG_TYPE_Index", "ui4", "no", {}},
        {"A_ARG_TYPE_ObjectID", "string", "no", {}},
        {"A_ARG_TYPE_UpdateID", "ui4", "no", {}},
        {"A_ARG_TYPE_Result", "string", "no", {}},
        {"SearchCapabilities", "string", "no", {}},
        {"A_ARG_TYPE_Filter", "string", "no", {}},
        {"A_ARG_TYPE_SearchCriteria", "string", "no", {}},
    },
};

const Scpd kCmsScpd = {
    {
        {"GetCurrentConnectionInfo",
         {in("ConnectionID", "A_ARG_TYPE_ConnectionID"), out("RcsID", "A_ARG_TYPE_RcsID"),
          out("AVTransportID", "A_ARG_TYPE_AVTransportID"),
          out("ProtocolInfo", "A_ARG_TYPE_ProtocolInfo"),
          out("PeerConnectionManager", "A_ARG_TYPE_ConnectionManager"),
          out("PeerConnectionID", "A_ARG_TYPE_ConnectionID"),
          out("Direction", "A_ARG_TYPE_Direction"), out("Status", "A_ARG_TYPE_ConnectionStatus")}},
        {"GetProtocolInfo", {out("Source", "SourceProtocolInfo"), out("Sink", "SinkProtocolInfo")}},
        {"GetCurrentConnectionIDs", {out("ConnectionIDs", "CurrentConnectionIDs")}},
    },
    {
        {"A_ARG_TYPE_ProtocolInfo", "string", "no", {}},
        {"A_ARG_TYPE_ConnectionStatus",
         "string",
         "no",
         {"OK", "ContentFormatMismatch", "InsufficientBandwidth", "UnreliableChannel", "Unknown"}},
        {"A_ARG_TYPE_AVTransportID", "i4", "no", {}},
        {"A_ARG_TYPE_RcsID", "i4", "no", {}},
        {"A_ARG_TYPE_ConnectionID", "i4", "no", {}},
        {"A_ARG_TYPE_ConnectionManager", "string", "no", {}},
        {"SourceProtocolInfo", "string", "yes", {}},
        {"SinkProtocolInfo", "string", "yes", {}},
        {"A_ARG_TYPE_Direction", "string", "no", {"Input", "Output"}},
        {"CurrentConnectionIDs", "string", "yes", {}},
    },
};

const Scpd kMsrScpd = {
    {
        {"IsAuthorized",
         {in("DeviceID", "A_ARG_TYPE_DeviceID"), out("Result", "A_ARG_TYPE_Result")}},
        {"RegisterDevice",
         {in("RegistrationReqMsg", "A_ARG_TYPE_RegistrationReqMsg"),
          out("RegistrationRespMsg", "A_ARG_TYPE_RegistrationRespMsg")}},
        {"IsValidated",
         {in("DeviceID", "A_ARG_TYPE_DeviceID"), out("Result", "A_ARG_TYPE_Result")}},
    },
    {
        {"A_ARG_TYPE_DeviceID", "string", "no", {}},
        {"A_ARG_TYPE_Result", "int", "no", {}},
        {"A_ARG_TYPE_RegistrationReqMsg", "bin.base64", "no", {}},
        {"A_ARG_TYPE_RegistrationRespMsg", "bin.base64", "no", {}},
        {"AuthorizationGrantedUpdateID", "ui4", "no", {}},
        {"AuthorizationDeniedUpdateID", "ui4", "no", {}},
        {"ValidationSucceededUpdateID", "ui4", "no", {}},
        {"ValidationRevokedUpdateID", "ui4", "no", {}},
    },
};

constexpr char kScpdHead[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><scpd xmlns=\"urn:schemas-upnp-org:service-1-0\">";

std::string trimmed(const std::string& text) {
  size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t\r\n") + 1 - begin);
}

std::string textOf(const e2e::XmlElement* e) {
  return e ? trimmed(e->text) : "<missing>";
}

// The actions and variables that a served service description declares.
Scpd readScpd(const e2e::XmlElement& root) {
  Scpd scpd;
  if (const e2e::XmlElement* list = root.child("actionList")) {
    for (const e2e::XmlElement* a : list->all("action")) {
      Action action{textOf(a->child("name")), {}};
      if (const e2e::XmlElement* args = a->child("argumentList")) {
        for (const e2e::XmlElement* g : args->all("argument")) {
          action.arguments.push_back({textOf(g->child("name")), textOf(g->child("direction")),
                                      textOf(g->child("relatedStateVariable"))});
        }
      }
      scpd.actions.push_back(std::move(action));
    }
  }
  if (const e2e::XmlElement* table = root.child("serviceStateTable")) {
    for (const e2e::XmlElement* v : table->all("stateVariable")) {
      Variable variable{textOf(v->child("name")),
                        textOf(v->child("dataType")),
                        e2e::findField(v->attributes, "sendEvents").value_or("<missing>"),
                        {}};
      if (const e2e::XmlElement* allowed = v->child("allowedValueList")) {
        for (const e2e::XmlElement* value : allowed->all("allowedValue")) {
          variable.allowed.push_back(textOf(value));
        }
      }
      scpd.variables.push_back(std::move(variable));
    }
  }
  return scpd;
}

// The generated ContentDirectory description: a fixed head, then one element
// per line indented by two blanks per level.
std::string expectedCdsDescription() {
  std::string doc = std::string(kScpdHead) +
                    "  <specVersion>    <major>1</major>    <minor>0</minor>  </specVersion>";
  auto line = [&doc](int level, const std::string& text) {
    doc += std::string(level > 1 ? 2 * (level - 1) : 0, ' ') + text + "\n";
  };
  auto element = [&line](int level, const std::string& name, const std::string& value) {
    line(level, "<" + name + ">" + value + "</" + name + ">");
  };
  line(2, "<actionList>");
  for (const Action& a : kCdsScpd.actions) {
    line(3, "<action>");
    element(4, "name", a.name);
    line(4, "<argumentList>");
    for (const Argument& g : a.arguments) {
      line(5, "<argument>");
      element(6, "name", g.name);
      element(6, "direction", g.direction);
      element(6, "relatedStateVariable", g.variable);
      line(5, "</argument>");
    }
    line(4, "</argumentList>");
    line(3, "</action>");
  }
  line(2, "</actionList>");
  line(2, "<serviceStateTable>");
  for (const Variable& v : kCdsScpd.variables) {
    line(3, "<stateVariable sendEvents=\"" + v.sendEvents + "\">");
    element(4, "name", v.name);
    element(4, "dataType", v.dataType);
    if (!v.allowed.empty()) {
      line(4, "<allowedValueList>");
      for (const std::string& value : v.allowed) element(5, "allowedValue", value);
      line(4, "</allowedValueList>");
    }
    line(3, "</stateVariable>");
  }
  line(2, "</serviceStateTable>");
  line(0, "</scpd>");
  return doc;
}

std::string describe(const e2e::HttpResponse& r) {
  std::ostringstream text;
  text << "HTTP " << r.status << " " << r.reason;
  if (!r.error.empty()) text << " (" << r.error << ")";
  for (const auto& [name, value] : r.headers) text << "\n  " << name << ": " << value;
  text << "\n  body (" << r.body.size() << " bytes): " << r.body.substr(0, 2000);
  return text.str();
}

std::string describe(const std::vector<SsdpMessage>& messages) {
  std::ostringstream text;
  for (const SsdpMessage& m : messages) {
    text << "\n" << m.startLine << " from " << m.from;
    for (const auto& [name, value] : m.headers) text << "\n  " << name << ": " << value;
  }
  return text.str();
}

std::string describe(const Fields& fields) {
  std::string text = "{";
  for (const auto& [name, value] : fields) text += " " + name + "=\"" + value + "\"";
  return text + " }";
}

// The UUID of the device in a description, without "uuid:".
std::string udnOf(const std::string& description) {
  static const std::regex udn("<UDN>uuid:([^<]*)</UDN>");
  std::smatch match;
  return std::regex_search(description, match, udn) ? match[1].str() : "";
}

bool isUuid(const std::string& text) {
  static const std::regex uuid(
      "[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}");
  return std::regex_match(text, uuid);
}

// ---- fixture ----

// Until the daemon says it serves; false at once when it exits instead.
bool waitStarted(DmsdProcess& dmsd, std::chrono::milliseconds timeout = 10s) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  while (std::chrono::steady_clock::now() < deadline) {
    if (dmsd.waitForLog(kStarted, 100ms)) return true;
    if (!dmsd.running()) return dmsd.log().find(kStarted) != std::string::npos;
  }
  return false;
}

// One daemon per test on a fixed port, with an SSDP listener that exists
// before the daemon so that it hears the first announcements.
class DeviceTest : public testing::Test {
 protected:
  virtual std::string manufacturer() const { return kManufacturer; }

  void SetUp() override {
    ASSERT_TRUE(ssdp_.listening()) << ssdp_.error();
    dmsd_.startWithConfig(configWith(manufacturer()));
    ASSERT_TRUE(waitStarted(dmsd_)) << dmsd_.log();
  }

  void TearDown() override {
    if (stopped_) return;
    EXPECT_TRUE(dmsd_.running()) << "the daemon is gone\n" << dmsd_.log();
    EXPECT_EQ(dmsd_.stop(), 0) << dmsd_.log();
  }

  // Stops the daemon within the test; true when it exited cleanly.
  bool stopDaemon() {
    stopped_ = true;
    return dmsd_.stop() == 0;
  }

  // The UUID the daemon describes itself with, or empty.
  std::string udn() {
    e2e::HttpResponse r = e2e::httpGet(at("/description.xml"));
    return r.status == 200 ? udnOf(r.body) : "";
  }

  SoapResult call(const char* control, const char* type, const char* action,
                  const Fields& args = {}) {
    return e2e::soapAction(at(control), type, action, args);
  }

  e2e::SsdpListener ssdp_;
  DmsdProcess dmsd_;
  bool stopped_ = false;
};

class DeviceDiscovery : public DeviceTest {};
class DeviceDescription : public DeviceTest {};
class DeviceControl : public DeviceTest {};
class DeviceEvents : public DeviceTest {};

// ---- discovery ----

TEST_F(DeviceDiscovery, SearchesForTheDeviceAndItsServicesAreAnswered) {
  std::string uuid = udn();
  ASSERT_TRUE(isUuid(uuid)) << "UDN \"" << uuid << "\"";
  const std::string location = at("/description.xml").text();

  struct Target {
    std::string st, usn;
  };
  const std::vector<Target> targets = {
      {kDeviceType, "uuid:" + uuid + "::" + kDeviceType},
      {"upnp:rootdevice", "uuid:" + uuid + "::upnp:rootdevice"},
      {"uuid:" + uuid, "uuid:" + uuid},
      {kCdsType, "uuid:" + uuid + "::" + kCdsType},
      {kCmsType, "uuid:" + uuid + "::" + kCmsType},
      {kMsrType, "uuid:" + uuid + "::" + kMsrType},
  };
  for (const Target& t : targets) {
    SCOPED_TRACE(t.st);
    std::vector<SsdpMessage> answers = e2e::ssdpSearch(t.st, 1, 5s, 1);
    ASSERT_FALSE(answers.empty()) << "no answer to M-SEARCH";
    const SsdpMessage& a = answers.front();
    EXPECT_EQ(a.startLine, "HTTP/1.1 200 OK") << describe(answers);
    EXPECT_EQ(a.header("ST"), t.st) << describe(answers);
    EXPECT_EQ(a.header("USN"), t.usn) << describe(answers);
    EXPECT_EQ(a.header("LOCATION"), location) << describe(answers);
    EXPECT_EQ(a.header("CACHE-CONTROL"), "max-age=1860") << describe(answers);
    EXPECT_TRUE(a.header("EXT")) << describe(answers);
  }

  // Another device type is not this device.
  EXPECT_TRUE(e2e::ssdpSearch("urn:schemas-upnp-org:device:MediaRenderer:1", 1, 2s).empty());
}

TEST_F(DeviceDiscovery, LocationServesTheDescription) {
  std::vector<SsdpMessage> answers = e2e::ssdpSearch(kDeviceType, 1, 5s, 1);
  ASSERT_FALSE(answers.empty()) << "no answer to M-SEARCH";
  auto location = e2e::parseUrl(answers.front().header("LOCATION").value_or(""));
  ASSERT_TRUE(location) << describe(answers);
  e2e::HttpResponse r = e2e::httpGet(*location);
  ASSERT_EQ(r.status, 200) << describe(r);
  std::string usn = answers.front().header("USN").value_or("");
  EXPECT_EQ(usn, "uuid:" + udnOf(r.body) + "::" + kDeviceType) << describe(r);
  std::string error;
  auto root = e2e::parseXml(r.body, &error);
  ASSERT_TRUE(root) << error << "\n" << describe(r);
  EXPECT_EQ(textOf(root->find({"device", "deviceType"})), kDeviceType);
}

TEST_F(DeviceDiscovery, AnnouncesAliveAndSaysByebyeOnStop) {
  std::string uuid = udn();
  ASSERT_TRUE(isUuid(uuid)) << "UDN \"" << uuid << "\"";
  auto alive = ssdp_.waitFor([](const SsdpMessage& m) {
    return m.header("NTS") == "ssdp:alive" && m.header("NT") == kDeviceType;
  });
  ASSERT_TRUE(alive) << "heard:" << describe(ssdp_.messages());
  EXPECT_EQ(alive->startLine, "NOTIFY * HTTP/1.1");
  EXPECT_EQ(alive->header("USN"), "uuid:" + uuid + "::" + kDeviceType);
  EXPECT_EQ(alive->header("LOCATION"), at("/description.xml").text());
  EXPECT_EQ(alive->header("CACHE-CONTROL"), "max-age=1860");
  EXPECT_EQ(alive->header("HOST"), "239.255.255.250:1900");
  for (const char* nt : {"upnp:rootdevice", kCdsType, kCmsType, kMsrType}) {
    EXPECT_TRUE(ssdp_.waitFor([nt](const SsdpMessage& m) {
      return m.header("NTS") == "ssdp:alive" && m.header("NT") == nt;
    })) << nt;
  }

  ASSERT_TRUE(stopDaemon()) << dmsd_.log();
  auto byebye = ssdp_.waitFor([](const SsdpMessage& m) {
    return m.header("NTS") == "ssdp:byebye" && m.header("NT") == kDeviceType;
  });
  ASSERT_TRUE(byebye) << "heard:" << describe(ssdp_.messages());
  EXPECT_EQ(byebye->header("USN"), "uuid:" + uuid + "::" + kDeviceType);
}

// ---- descriptions ----

// An element tree as indented text, one element per line with its namespace,
// attributes and trimmed text, for comparing documents whatever their layout.
void dumpTree(const e2e::XmlElement& e, int depth, std::string& out) {
  out += std::string(2 * depth, ' ') + e.name + " {" + e.ns + "}";
  for (const auto& [name, value] : e.attributes) out += " " + name + "=\"" + value + "\"";
  if (std::string text = trimmed(e.text); !text.empty()) out += " \"" + text + "\"";
  out += "\n";
  for (const e2e::XmlElement& c : e.children) dumpTree(c, depth + 1, out);
}

std::string treeOf(const e2e::XmlElement& e) {
  std::string out;
  dumpTree(e, 0, out);
  return out;
}

// The stack parses the description it is given, adds a URLBase element to the
// root and serves its own printing of the result, so the served bytes have the
// stack's layout. The comparison is therefore of element trees: the served
// one, URLBase taken out (and checked on its own), must be the configured
// template's.
void expectConfiguredDescription(const std::string& manufacturer) {
  e2e::HttpResponse r = e2e::httpGet(at("/description.xml"));
  ASSERT_EQ(r.status, 200) << describe(r);
  EXPECT_EQ(r.header("Content-Type").value_or("").rfind("text/xml", 0), 0u) << describe(r);
  if (auto length = r.header("Content-Length")) {
    EXPECT_EQ(*length, std::to_string(r.body.size()));
  }
  std::string error;
  auto served = e2e::parseXml(r.body, &error);
  ASSERT_TRUE(served) << error << "\n" << describe(r);

  std::vector<e2e::XmlElement>& top = served->children;
  auto urlBase =
      std::find_if(top.begin(), top.end(), [](const auto& e) { return e.name == "URLBase"; });
  ASSERT_NE(urlBase, top.end()) << describe(r);
  EXPECT_EQ(trimmed(urlBase->text), "http://127.0.0.1:49152/");
  top.erase(urlBase);

  std::string uuid = textOf(served->find({"device", "UDN"}));
  ASSERT_EQ(uuid.rfind("uuid:", 0), 0u) << uuid;
  uuid.erase(0, 5);
  EXPECT_TRUE(isUuid(uuid)) << "UDN \"" << uuid << "\"";
  // The server name reaches the wire escaped.
  EXPECT_NE(r.body.find("<friendlyName>M: A&amp;B:</friendlyName>"), std::string::npos);

  auto expected = e2e::parseXml(expectedDescription(uuid, manufacturer), &error);
  ASSERT_TRUE(expected) << "the configured template does not parse: " << error;
  EXPECT_EQ(treeOf(*served), treeOf(*expected)) << describe(r);
}

TEST_F(DeviceDescription, IsTheConfiguredTemplatePlusTheStacksUrlBase) {
  expectConfiguredDescription(kManufacturer);
}

class DeviceManufacturerWithAmpersand : public DeviceTest {
 protected:
  std::string manufacturer() const override { return "A&B"; }
};

// The manufacturer is not escaped, so an ampersand in it leaves the template
// not well-formed; the device must still come up and name its manufacturer.
TEST_F(DeviceManufacturerWithAmpersand, StillServesItsDescription) {
  e2e::HttpResponse r = e2e::httpGet(at("/description.xml"));
  ASSERT_EQ(r.status, 200) << describe(r);
  std::string error;
  auto served = e2e::parseXml(r.body, &error);
  ASSERT_TRUE(served) << error << "\n" << describe(r);
  EXPECT_EQ(textOf(served->find({"device", "manufacturer"})), "A&B") << describe(r);
  EXPECT_EQ(textOf(served->find({"device", "friendlyName"})), "M: A&B:") << describe(r);
}

// The ContentDirectory description is generated when a document is opened,
// after its length was taken from the previous generation: the very first
// request of a fresh daemon is announced with length 0.
TEST_F(DeviceDescription, ContentDirectoryDescriptionIsAnnouncedWithThePreviousLength) {
  const std::string expected = expectedCdsDescription();

  e2e::HttpResponse first = e2e::httpGet(at("/web/cds.xml"));
  EXPECT_EQ(first.status, 200) << describe(first);
  EXPECT_EQ(first.header("Content-Length"), "0") << describe(first);
  EXPECT_EQ(first.body, "") << describe(first);

  for (int i = 0; i < 2; ++i) {
    SCOPED_TRACE(i + 2);
    e2e::HttpResponse r = e2e::httpGet(at("/web/cds.xml"));
    ASSERT_EQ(r.status, 200) << describe(r);
    EXPECT_EQ(r.header("Content-Type"), "text/xml");
    EXPECT_EQ(r.header("Content-Length"), std::to_string(expected.size()));
    EXPECT_EQ(r.body, expected);
  }
}

TEST_F(DeviceDescription, ServiceDescriptionsDeclareTheirActionsAndVariables) {
  struct Document {
    const char* path;
    const Scpd* scpd;
    size_t length;  // 0: generated, with line ends
  };
  const Document documents[] = {
      {"/web/cms.xml", &kCmsScpd, 4278},
      {"/web/msr.xml", &kMsrScpd, 2507},
      {"/web/cds.xml", &kCdsScpd, 0},
  };
  // Once, so that the generated one is announced with its length below.
  e2e::httpGet(at("/web/cds.xml"));
  for (const Document& d : documents) {
    SCOPED_TRACE(d.path);
    e2e::HttpResponse r = e2e::httpGet(at(d.path));
    ASSERT_EQ(r.status, 200) << describe(r);
    EXPECT_EQ(r.header("Content-Type"), "text/xml");
    EXPECT_EQ(r.header("Content-Length"), std::to_string(r.body.size()));
    EXPECT_EQ(r.body.rfind(kScpdHead, 0), 0u) << r.body.substr(0, 200);
    if (d.length != 0) {
      EXPECT_EQ(r.body.size(), d.length);
      EXPECT_EQ(r.body.find_first_of("\r\n"), std::string::npos) << "a line break";
    }
    std::string error;
    auto root = e2e::parseXml(r.body, &error);
    ASSERT_TRUE(root) << error << "\n" << describe(r);
    EXPECT_EQ(root->name, "scpd");
    EXPECT_EQ(root->ns, "urn:schemas-upnp-org:service-1-0");
    EXPECT_EQ(textOf(root->find({"specVersion", "major"})), "1");
    EXPECT_EQ(textOf(root->find({"specVersion", "minor"})), "0");
    EXPECT_EQ(readScpd(*root), *d.scpd);
  }
}

TEST_F(DeviceDescription, PresentationPageIsTwoBlanks) {
  e2e::HttpResponse r = e2e::httpGet(at("/web/index.html"));
  ASSERT_EQ(r.status, 200) << describe(r);
  EXPECT_EQ(r.header("Content-Type"), "text/html");
  EXPECT_EQ(r.header("Content-Length"), "2");
  EXPECT_EQ(r.body, "  ");
}

// ---- control ----

TEST_F(DeviceControl, ActionsAnswerTheirFixedOutputsInOrder) {
  struct Case {
    const char* control;
    const char* type;
    const char* action;
    Fields in;
    Fields out;
  };
  const Fields kNoConnection = {{"RcsID", "-1"},
                                {"AVTransportID", "-1"},
                                {"ProtocolInfo", ""},
                                {"PeerConnectionManager", ""},
                                {"PeerConnectionID", "-1"},
                                {"Direction", "Output"},
                                {"Status", "OK"}};
  const Case cases[] = {
      {"/web/cds_control",
       kCdsType,
       "GetSearchCapabilities",
       {},
       {{"SearchCaps", "dc:title,upnp:class,res@protocolInfo"}}},
      {"/web/cds_control", kCdsType, "GetSortCapabilities", {}, {{"SortCaps", ""}}},
      // No media was profiled, so no protocol is offered yet.
      {"/web/cms_control", kCmsType, "GetProtocolInfo", {}, {{"Source", ""}, {"Sink", ""}}},
      {"/web/cms_control", kCmsType, "GetCurrentConnectionIDs", {}, {{"ConnectionIDs", "0"}}},
      {"/web/cms_control",
       kCmsType,
       "GetCurrentConnectionInfo",
       {{"ConnectionID", "0"}},
       kNoConnection},
      {"/web/cms_control",
       kCmsType,
       "GetCurrentConnectionInfo",
       {{"ConnectionID", "5"}},
       kNoConnection},
      {"/web/msr_control", kMsrType, "IsAuthorized", {{"DeviceID", ""}}, {{"Result", "1"}}},
      {"/web/msr_control",
       kMsrType,
       "IsAuthorized",
       {{"DeviceID", "renderer-7"}},
       {{"Result", "1"}}},
      {"/web/msr_control",
       kMsrType,
       "IsValidated",
       {{"DeviceID", "renderer-7"}},
       {{"Result", "0"}}},
      {"/web/msr_control", kMsrType, "RegisterDevice", {{"RegistrationReqMsg", "AAEC"}}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.action) + " " + describe(c.in));
    SoapResult r = call(c.control, c.type, c.action, c.in);
    ASSERT_TRUE(r.ok()) << e2e::describe(r);
    EXPECT_EQ(r.responseName, std::string(c.action) + "Response");
    EXPECT_EQ(r.responseNamespace, c.type);
    EXPECT_EQ(r.out, c.out) << describe(r.out);
  }
}

TEST_F(DeviceControl, SystemUpdateIdIsTheSameByActionAndByQuery) {
  SoapResult action = call("/web/cds_control", kCdsType, "GetSystemUpdateID");
  ASSERT_TRUE(action.ok()) << e2e::describe(action);
  ASSERT_EQ(action.out.size(), 1u) << describe(action.out);
  EXPECT_EQ(action.out[0].first, "Id");
  std::string id = action.out[0].second;
  EXPECT_TRUE(std::regex_match(id, std::regex("[0-9]+"))) << id;

  SoapResult query = e2e::queryStateVariable(at("/web/cds_control"), "SystemUpdateID");
  ASSERT_TRUE(query.ok()) << e2e::describe(query);
  EXPECT_EQ(query.responseName, "QueryStateVariableResponse");
  EXPECT_EQ(query.value("return"), id) << describe(query.out);
}

TEST_F(DeviceControl, VariableQueriesAnswerKnownVariablesOnly) {
  struct Case {
    const char* control;
    const char* variable;
    std::optional<std::string> value;  // nothing: error 404 expected
  };
  const Case cases[] = {
      {"/web/cms_control", "SourceProtocolInfo", ""},
      {"/web/cms_control", "SinkProtocolInfo", ""},
      {"/web/cms_control", "CurrentConnectionIDs", "0"},
      {"/web/cds_control", "NoSuchVariable", std::nullopt},
      // The registrar publishes no variables at all.
      {"/web/msr_control", "AuthorizationGrantedUpdateID", std::nullopt},
      {"/web/msr_control", "ValidationSucceededUpdateID", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.control) + " " + c.variable);
    SoapResult r = e2e::queryStateVariable(at(c.control), c.variable);
    if (c.value) {
      ASSERT_TRUE(r.ok()) << e2e::describe(r);
      EXPECT_EQ(r.out, (Fields{{"return", *c.value}})) << describe(r.out);
    } else {
      EXPECT_EQ(r.http.status, 500) << e2e::describe(r);
      EXPECT_TRUE(r.fault) << e2e::describe(r);
      // The stack words the description of this error itself.
      EXPECT_EQ(r.errorCode, 404) << e2e::describe(r);
      EXPECT_NE(r.errorDescription, "") << e2e::describe(r);
    }
  }
}

TEST_F(DeviceControl, UnknownActionOfAKnownServiceIsRefused) {
  const std::pair<const char*, const char*> services[] = {
      {"/web/cds_control", kCdsType},
      {"/web/cms_control", kCmsType},
      {"/web/msr_control", kMsrType},
  };
  for (const auto& [control, type] : services) {
    SCOPED_TRACE(control);
    // An action of another service is unknown here as well.
    for (const char* action : {"Frobnicate", "IsAuthorizedX", "GetProtocolInfo"}) {
      if (std::string(type) == kCmsType && std::string(action) == "GetProtocolInfo") continue;
      SCOPED_TRACE(action);
      SoapResult r = call(control, type, action);
      EXPECT_EQ(r.http.status, 500) << e2e::describe(r);
      EXPECT_TRUE(r.fault) << e2e::describe(r);
      EXPECT_EQ(r.errorCode, 401) << e2e::describe(r);
      EXPECT_EQ(r.errorDescription, "Unknown Service Action") << e2e::describe(r);
    }
  }
  // The device keeps answering afterwards.
  EXPECT_TRUE(call("/web/cds_control", kCdsType, "GetSortCapabilities").ok());
}

// The service of a request is the one its control URL belongs to, so a
// request naming another service, or sent to a control URL the description
// does not list, is refused before any action runs: by the stack with a client
// error, or as an invalid action.
TEST_F(DeviceControl, RequestsForOtherServicesAreRefused) {
  struct Case {
    const char* name;
    const char* control;
    const char* type;
    const char* action;
  };
  const Case cases[] = {
      {"service of another device", "/web/cds_control",
       "urn:schemas-upnp-org:service:AVTransport:1", "GetSortCapabilities"},
      {"service at another control URL", "/web/cds_control", kCmsType, "GetProtocolInfo"},
      {"control URL not described", "/web/xyz_control", kCdsType, "GetSortCapabilities"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SoapResult r = call(c.control, c.type, c.action);
    bool clientError = r.http.status >= 400 && r.http.status < 500;
    bool invalidAction = r.http.status == 500 && r.fault && r.errorCode == 401;
    EXPECT_TRUE(clientError || invalidAction) << e2e::describe(r);
    EXPECT_TRUE(r.out.empty()) << describe(r.out);
  }
  EXPECT_TRUE(call("/web/cds_control", kCdsType, "GetSortCapabilities").ok());
}

TEST_F(DeviceControl, BrowseIsNotAnsweredYet) {
  SoapResult r = call("/web/cds_control", kCdsType, "Browse",
                      {{"ObjectID", "0"},
                       {"BrowseFlag", "BrowseMetadata"},
                       {"Filter", "*"},
                       {"StartingIndex", "0"},
                       {"RequestedCount", "0"},
                       {"SortCriteria", ""}});
  EXPECT_NE(r.http.status, 0) << e2e::describe(r);
  EXPECT_FALSE(r.ok()) << e2e::describe(r);
}

// ---- events ----

TEST_F(DeviceEvents, SubscribersGetTheCurrentValuesAtOnce) {
  SoapResult idResult = call("/web/cds_control", kCdsType, "GetSystemUpdateID");
  ASSERT_TRUE(idResult.ok()) << e2e::describe(idResult);
  const std::string id = idResult.value("Id").value_or("?");

  struct Case {
    const char* eventPath;
    Fields properties;
  };
  const Case cases[] = {
      {"/web/cds_event", {{"SystemUpdateID", id}}},
      {"/web/cms_event",
       {{"SourceProtocolInfo", ""}, {"SinkProtocolInfo", ""}, {"CurrentConnectionIDs", "0"}}},
  };
  e2e::EventListener listener;
  ASSERT_TRUE(listener.listening());
  std::vector<std::string> sids;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.eventPath);
    std::string callback = listener.callbackUrl(std::string("/events") + c.eventPath);
    e2e::Subscription s = e2e::subscribe(at(c.eventPath), callback);
    ASSERT_EQ(s.http.status, 200) << describe(s.http);
    ASSERT_EQ(s.sid.rfind("uuid:", 0), 0u) << describe(s.http);
    sids.push_back(s.sid);
    EXPECT_EQ(s.timeout.rfind("Second-", 0), 0u) << describe(s.http);

    ASSERT_TRUE(listener.waitForEvents(s.sid, 1)) << "no initial event\n" << dmsd_.log();
    e2e::GenaEvent e = listener.eventsFor(s.sid).front();
    EXPECT_EQ(e.method, "NOTIFY");
    EXPECT_EQ(e.path, std::string("/events") + c.eventPath);
    EXPECT_EQ(e.seq, 0u);
    EXPECT_EQ(e2e::findField(e.headers, "NT"), "upnp:event");
    EXPECT_EQ(e2e::findField(e.headers, "NTS"), "upnp:propchange");
    EXPECT_EQ(e.parseError, "") << e.body;
    EXPECT_EQ(e.properties, c.properties) << e.body;
  }
  // Every subscription has a SID of its own.
  std::sort(sids.begin(), sids.end());
  EXPECT_EQ(std::adjacent_find(sids.begin(), sids.end()), sids.end());
}

// The registrar has no evented variables, yet its subscriptions are accepted.
TEST_F(DeviceEvents, RegistrarAcceptsSubscriptions) {
  e2e::EventListener listener;
  ASSERT_TRUE(listener.listening());
  e2e::Subscription s = e2e::subscribe(at("/web/msr_event"), listener.callbackUrl());
  ASSERT_EQ(s.http.status, 200) << describe(s.http);
  EXPECT_EQ(s.sid.rfind("uuid:", 0), 0u) << describe(s.http);
  EXPECT_TRUE(dmsd_.waitForLog(std::string("Var subscription:") + kMsrId + "!")) << dmsd_.log();

  e2e::HttpResponse renewal = e2e::httpRequest(at("/web/msr_event"), "SUBSCRIBE",
                                               {{"SID", s.sid}, {"TIMEOUT", "Second-300"}});
  EXPECT_EQ(renewal.status, 200) << describe(renewal);
  EXPECT_EQ(e2e::unsubscribe(at("/web/msr_event"), s.sid).status, 200);
}

TEST_F(DeviceEvents, SubscriptionsAreLoggedPerService) {
  e2e::EventListener listener;
  ASSERT_TRUE(listener.listening());
  for (const char* path : {"/web/cds_event", "/web/cms_event"}) {
    EXPECT_EQ(e2e::subscribe(at(path), listener.callbackUrl()).http.status, 200) << path;
  }
  EXPECT_TRUE(dmsd_.waitForLog(std::string("Var subscription:") + kCdsId + "!")) << dmsd_.log();
  EXPECT_TRUE(dmsd_.waitForLog(std::string("Var subscription:") + kCmsId + "!")) << dmsd_.log();
}

// ---- identity across restarts ----

std::string readWhole(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST_F(DeviceDescription, RestartKeepsTheDeviceUuidInTheConfigurationFolder) {
  std::string before = udn();
  ASSERT_TRUE(isUuid(before)) << "UDN \"" << before << "\"";

  bool kept = false;
  for (const auto& entry : std::filesystem::directory_iterator(dmsd_.dir())) {
    std::string name = entry.path().filename();
    if (name == "dms.conf" || name == "stdout" || name == "stderr") continue;
    if (entry.is_regular_file() && readWhole(entry.path()).find(before) != std::string::npos) {
      kept = true;
    }
  }
  EXPECT_TRUE(kept) << "no file beside the configuration holds " << before;

  ASSERT_EQ(dmsd_.restart(), 0) << dmsd_.log();
  ASSERT_TRUE(waitStarted(dmsd_)) << dmsd_.log();
  EXPECT_EQ(udn(), before);
  std::vector<SsdpMessage> answers = e2e::ssdpSearch("uuid:" + before, 1, 5s, 1);
  EXPECT_FALSE(answers.empty()) << "the restarted device does not answer to its UUID";

  // A daemon with a configuration folder of its own is another device.
  ASSERT_TRUE(stopDaemon()) << dmsd_.log();
  DmsdProcess other;
  other.startWithConfig(configWith(kManufacturer));
  ASSERT_TRUE(waitStarted(other)) << other.log();
  std::string otherUuid = udn();
  EXPECT_TRUE(isUuid(otherUuid)) << "UDN \"" << otherUuid << "\"";
  EXPECT_NE(otherUuid, before);
  EXPECT_EQ(other.stop(), 0) << other.log();
}

}  // namespace
