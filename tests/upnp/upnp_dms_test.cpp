// Device and service descriptions, and registration with the stack.
#include "upnp/upnp_dms.h"

#include <gtest/gtest.h>
#include <upnp/ixml.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "core/dlna_info.h"
#include "core/dms_main.h"
#include "fakes/fake_upnp_device.h"
#include "platform/alloc.h"

namespace {

struct UbFree {
  void operator()(char* p) const { RetUB(p); }
};
using UbText = std::unique_ptr<char, UbFree>;

using Strings = std::vector<std::string>;

// ---- Escaping -------------------------------------------------------------

struct ConvCase {
  const char* in;
  const char* out;  // null: nothing to escape
};

// clang-format off
constexpr ConvCase kConvCases[] = {
    {"\"", "&quot;"}, {"&", "&amp;"}, {"'", "&apos;"}, {"<", "&lt;"},
    {">", "&gt;"}, {"\n", "&#xA;"}, {"\r", "&#xD;"}, {"\t", "&#x9;"},
    {"Tom & Jerry's <Den>", "Tom &amp; Jerry&apos;s &lt;Den&gt;"},
    {"M\xc3\xbcller \xe2\x98\x83 & co", "M\xc3\xbcller \xe2\x98\x83 &amp; co"},
    {"M\xc3\xbcller \xe2\x98\x83", nullptr},
    {"Plain name", nullptr},
    {"", nullptr},
    {nullptr, nullptr},
};
// clang-format on

TEST(UpnpDmsEscape, ReplacesOnlyTableCharacters) {
  for (const ConvCase& c : kConvCases) {
    SCOPED_TRACE(c.in ? c.in : "(null)");
    EXPECT_STREQ(UbText(dlnaConvXml(c.in)).get(), c.out);
  }
}

// ---- Indented appends -----------------------------------------------------

TEST(UpnpDmsTag, IndentsTwoBlanksPerLevelAboveOne) {
  struct Case {
    int level, newline;
    std::string appended;
  };
  const Case cases[] = {
      {0, 0, "<a>"}, {1, 1, "<a>\n"}, {3, 0, "    <a>"}, {100, 1, std::string(198, ' ') + "<a>\n"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.level);
    char buffer[512] = "x";
    EXPECT_EQ(_WriteTag2XML(buffer, sizeof buffer, "<a>", c.level, c.newline), 0);
    EXPECT_EQ(buffer, "x" + c.appended);
  }
  char buffer[512] = "x";
  EXPECT_EQ(_WriteTag2XML(buffer, sizeof buffer, "<a>", 101, 1), -1);
  EXPECT_STREQ(buffer, "x");
}

TEST(UpnpDmsTag, NeverWritesPastSize) {
  char buffer[16];
  memset(buffer, '#', sizeof buffer);
  strcpy(buffer, "abc");
  EXPECT_EQ(_WriteTag2XML(buffer, 8, "defghij", 2, 1), 0);
  EXPECT_STREQ(buffer, "abc  de");
  EXPECT_EQ(_WriteTag2XML(buffer, 8, "k", 0, 1), 0);
  EXPECT_STREQ(buffer, "abc  de");
  EXPECT_EQ(std::string(buffer + 8, 8), std::string(8, '#'));
}

// ---- Service descriptions -------------------------------------------------

struct Arg {
  std::string name, direction, related;
  bool operator==(const Arg&) const = default;
};

struct Scpd {
  Strings actions;
  std::vector<std::vector<Arg>> args;  // per action
  Strings vars;
  Strings evented;
  Strings withAllowedList;
  Strings allowed;  // all allowedValue texts, in order
};

std::vector<IXML_Element*> elements(IXML_Element* parent, const char* tag) {
  std::vector<IXML_Element*> found;
  IXML_NodeList* list = ixmlElement_getElementsByTagName(parent, tag);
  for (unsigned long i = 0; i < ixmlNodeList_length(list); ++i)
    found.push_back(reinterpret_cast<IXML_Element*>(ixmlNodeList_item(list, i)));
  ixmlNodeList_free(list);
  return found;
}

std::string ownText(IXML_Element* element) {
  IXML_Node* child = ixmlNode_getFirstChild(reinterpret_cast<IXML_Node*>(element));
  const char* value = child ? ixmlNode_getNodeValue(child) : nullptr;
  return value ? value : "";
}

// Text of the first `tag` below `parent`, or "".
std::string text(IXML_Element* parent, const char* tag) {
  std::vector<IXML_Element*> found = elements(parent, tag);
  return found.empty() ? "" : ownText(found[0]);
}

// Parses a service description; false when it is not well-formed XML.
bool parseScpd(const char* xml, Scpd& scpd) {
  IXML_Document* doc = ixmlParseBuffer(xml);
  if (!doc) return false;
  auto* root = reinterpret_cast<IXML_Element*>(ixmlNode_getFirstChild(&doc->n));
  for (IXML_Element* action : elements(root, "action")) {
    scpd.actions.push_back(text(action, "name"));
    std::vector<Arg>& args = scpd.args.emplace_back();
    for (IXML_Element* arg : elements(action, "argument"))
      args.push_back(
          {text(arg, "name"), text(arg, "direction"), text(arg, "relatedStateVariable")});
  }
  for (IXML_Element* var : elements(root, "stateVariable")) {
    std::string name = text(var, "name");
    scpd.vars.push_back(name);
    const char* events = ixmlElement_getAttribute(var, "sendEvents");
    if (events && strcmp(events, "yes") == 0) scpd.evented.push_back(name);
    if (!elements(var, "allowedValueList").empty()) scpd.withAllowedList.push_back(name);
    for (IXML_Element* value : elements(var, "allowedValue"))
      scpd.allowed.push_back(ownText(value));
  }
  ixmlDocument_free(doc);
  return true;
}

struct ScpdCase {
  const char* what;
  Strings actions;
  Strings vars;
  Strings evented;
  Strings withAllowedList;
};

const ScpdCase kCds = {
    "cds",
    {"Browse", "GetSystemUpdateID", "GetSearchCapabilities", "GetSortCapabilities", "Search"},
    {"A_ARG_TYPE_BrowseFlag", "SystemUpdateID", "A_ARG_TYPE_Count", "A_ARG_TYPE_SortCriteria",
     "SortCapabilities", "A_ARG_TYPE_Index", "A_ARG_TYPE_ObjectID", "A_ARG_TYPE_UpdateID",
     "A_ARG_TYPE_Result", "SearchCapabilities", "A_ARG_TYPE_Filter", "A_ARG_TYPE_SearchCriteria"},
    {"SystemUpdateID"},
    {"A_ARG_TYPE_BrowseFlag"},
};

const ScpdCase kCms = {
    "cms",
    {"GetCurrentConnectionInfo", "GetProtocolInfo", "GetCurrentConnectionIDs"},
    {"A_ARG_TYPE_ProtocolInfo", "A_ARG_TYPE_ConnectionStatus", "A_ARG_TYPE_AVTransportID",
     "A_ARG_TYPE_RcsID", "A_ARG_TYPE_ConnectionID", "A_ARG_TYPE_ConnectionManager",
     "SourceProtocolInfo", "SinkProtocolInfo", "A_ARG_TYPE_Direction", "CurrentConnectionIDs"},
    {"SourceProtocolInfo", "SinkProtocolInfo", "CurrentConnectionIDs"},
    {"A_ARG_TYPE_ConnectionStatus", "A_ARG_TYPE_Direction"},
};

const ScpdCase kMsr = {
    "msr",
    {"IsAuthorized", "RegisterDevice", "IsValidated"},
    {"A_ARG_TYPE_DeviceID", "A_ARG_TYPE_Result", "A_ARG_TYPE_RegistrationReqMsg",
     "A_ARG_TYPE_RegistrationRespMsg", "AuthorizationGrantedUpdateID",
     "AuthorizationDeniedUpdateID", "ValidationSucceededUpdateID", "ValidationRevokedUpdateID"},
    {},
    {},
};

// What a control point relies on: the lists in order, and every argument tied
// to a declared variable with a valid direction.
void expectScpd(const char* xml, const ScpdCase& expected, Scpd& scpd) {
  SCOPED_TRACE(expected.what);
  ASSERT_TRUE(parseScpd(xml, scpd));
  EXPECT_EQ(scpd.actions, expected.actions);
  EXPECT_EQ(scpd.vars, expected.vars);
  EXPECT_EQ(scpd.evented, expected.evented);
  EXPECT_EQ(scpd.withAllowedList, expected.withAllowedList);
  for (const std::vector<Arg>& args : scpd.args) {
    EXPECT_FALSE(args.empty());
    for (const Arg& arg : args) {
      EXPECT_TRUE(arg.direction == "in" || arg.direction == "out") << arg.name;
      EXPECT_NE(std::find(scpd.vars.begin(), scpd.vars.end(), arg.related), scpd.vars.end())
          << arg.name;
    }
  }
}

TEST(UpnpDmsScpd, FixedTextsListTheirActionsAndVariables) {
  Scpd cms, msr;
  expectScpd(g_szCmsDesc, kCms, cms);
  expectScpd(g_szMsrDesc, kMsr, msr);
  EXPECT_EQ(cms.allowed, (Strings{"OK", "ContentFormatMismatch", "InsufficientBandwidth",
                                  "UnreliableChannel", "Unknown", "Input", "Output"}));
  EXPECT_EQ(strchr(g_szCmsDesc, '\n'), nullptr);
  EXPECT_EQ(strchr(g_szMsrDesc, '\n'), nullptr);
}

TEST(UpnpDmsScpd, GeneratedContentDirectory) {
  std::vector<char> buffer(kCdsDescSize, '#');
  dlnaGenCdsDesc(buffer.data());
  const std::string doc = buffer.data();
  EXPECT_EQ(g_CdsDesLen.load(), doc.size());
  EXPECT_EQ(buffer.back(), '\0');

  Scpd cds;
  expectScpd(doc.c_str(), kCds, cds);
  ASSERT_EQ(cds.args.size(), 5u);
  EXPECT_EQ(cds.args[1], (std::vector<Arg>{{"Id", "out", "SystemUpdateID"}}));
  EXPECT_EQ(cds.allowed, (Strings{"BrowseMetadata", "BrowseDirectChildren"}));
}

constexpr int kNotALayoutLine = 2;

// +1 for an opening tag, -1 for a closing tag, 0 for an element with its text
// ("<a>text</a>"), else kNotALayoutLine.
int depthChange(const std::string& line) {
  size_t end = line.find('>');
  if (line.size() < 3 || line[0] != '<' || end == std::string::npos) return kNotALayoutLine;
  if (end + 1 == line.size()) return line[1] == '/' ? -1 : 1;
  std::string name = line.substr(1, end - 1);
  size_t close = line.find('<', end);
  bool element = name.find(' ') == std::string::npos && close != std::string::npos &&
                 line.compare(close, std::string::npos, "</" + name + ">") == 0;
  return element ? 0 : kNotALayoutLine;
}

// After the unbroken header: one tag or one element with its text per line,
// indented two blanks per depth.
TEST(UpnpDmsScpd, GeneratedContentDirectoryLayout) {
  std::vector<char> buffer(kCdsDescSize);
  dlnaGenCdsDesc(buffer.data());
  const std::string doc = buffer.data();
  ASSERT_EQ(doc.back(), '\n');
  std::vector<std::string> lines;
  for (size_t start = 0, end; (end = doc.find('\n', start)) != std::string::npos; start = end + 1)
    lines.push_back(doc.substr(start, end - start));
  ASSERT_GT(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            "<?xml version=\"1.0\" encoding=\"utf-8\"?><scpd "
            "xmlns=\"urn:schemas-upnp-org:service-1-0\">  <specVersion>    <major>1</major>    "
            "<minor>0</minor>  </specVersion>  <actionList>");
  EXPECT_EQ(lines.back(), "</scpd>");
  int depth = 2;  // scpd and actionList are open after the first line
  for (size_t i = 1; i < lines.size(); ++i) {
    SCOPED_TRACE(lines[i]);
    size_t indent = lines[i].find_first_not_of(' ');
    ASSERT_NE(indent, std::string::npos);
    int change = depthChange(lines[i].substr(indent));
    ASSERT_NE(change, kNotALayoutLine);
    if (change < 0) --depth;
    EXPECT_EQ(indent, 2u * depth);
    if (change > 0) ++depth;
  }
  EXPECT_EQ(depth, 0);
}

// ---- Device description and registration ---------------------------------

// The document for the configuration that UpnpDmsDevice uses.
const std::string kExpectedDesc =
    // clang-format off
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><root xmlns=\"urn:schemas-upnp-org:device-1-0\">"
    "  <specVersion>    <major>1</major>    <minor>0</minor>  </specVersion>  <device>"
    "  <dlna:X_DLNADOC xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\">DMS-1.50</dlna:X_DLNADOC>"
    "  <dlna:X_DLNACAP xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\"/>    <deviceType>"
    "urn:schemas-upnp-org:device:MediaServer:1</deviceType>    <friendlyName>"
    "Gateway: A&amp;B:</friendlyName>    <manufacturer>A&B</manufacturer>    <manufacturerURL>"
    "http://maker.example/</manufacturerURL>    <modelDescription>"
    "Norvik MediaServer</modelDescription>    <modelName>Windows Media Connect</modelName>"
    "    <modelNumber>2.0</modelNumber>    <modelURL>http://maker.example/gw</modelURL>"
    "    <serialNumber>SN-1</serialNumber>    <UPC/>    <UDN>"
    "uuid:00000000-1111-2222-3333-444444444444</UDN>    <presentationURL>"
    "/web/index.html</presentationURL>    <serviceList>      <service>        <serviceType>"
    "urn:schemas-upnp-org:service:ConnectionManager:1</serviceType>        <serviceId>"
    "urn:upnp-org:serviceId:ConnectionManager</serviceId>        <SCPDURL>/web/cms.xml</SCPDURL>"
    "        <controlURL>/web/cms_control</controlURL>        <eventSubURL>"
    "/web/cms_event</eventSubURL>      </service>      <service>        <serviceType>"
    "urn:schemas-upnp-org:service:ContentDirectory:1</serviceType>        <serviceId>"
    "urn:upnp-org:serviceId:ContentDirectory</serviceId>        <SCPDURL>/web/cds.xml</SCPDURL>"
    "        <controlURL>/web/cds_control</controlURL>        <eventSubURL>"
    "/web/cds_event</eventSubURL>      </service>      <service>        <serviceType>"
    "urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1</serviceType>\n        <serviceId>"
    "urn:microsoft.com:serviceId:X_MS_MediaReceiverRegistrar</serviceId>\n        <SCPDURL>"
    "/web/msr.xml</SCPDURL>        <controlURL>/web/msr_control</controlURL>        <eventSubURL>"
    "/web/msr_event</eventSubURL>      </service>\n    </serviceList>  </device></root>";
// clang-format on

// clang-format off
constexpr const char* kDescTexts[17] = {
    "Gateway", "A&amp;B", "A&B", "http://maker.example/",
    "Norvik MediaServer", "Windows Media Connect", "2.0", "http://maker.example/gw", "SN-1",
    kFakeUuid, "/web/index.html",
    "/web/cms.xml", "/web/cms_control", "/web/cms_event",
    "/web/cds.xml", "/web/cds_control", "/web/cds_event",
};
// clang-format on

char* descOf(const char* const (&t)[17]) {
  return dlnaGetDmsDesc(t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], t[8], t[9], t[10], t[11],
                        t[12], t[13], t[14], t[15], t[16]);
}

TEST(UpnpDmsDesc, FillsTheTemplateInOrder) {
  UbText desc(descOf(kDescTexts));
  ASSERT_NE(desc, nullptr);
  EXPECT_EQ(desc.get(), kExpectedDesc);

  const char* empty[17];
  std::fill(std::begin(empty), std::end(empty), "");
  UbText bare(descOf(empty));
  ASSERT_NE(bare, nullptr);
  size_t filled = 0;
  for (const char* t : kDescTexts) filled += strlen(t);
  EXPECT_EQ(strlen(bare.get()) + filled, kExpectedDesc.size());
  IXML_Document* doc = ixmlParseBuffer(bare.get());
  EXPECT_NE(doc, nullptr);
  ixmlDocument_free(doc);

  for (int i = 0; i < 17; ++i) {
    const char* texts[17];
    std::copy(std::begin(kDescTexts), std::end(kDescTexts), texts);
    texts[i] = nullptr;
    EXPECT_EQ(UbText(descOf(texts)), nullptr) << i;
  }
}

const Strings kStartSteps = {"UpnpDeviceReg", "UpnpDeviceSetServerSocketInfo",
                             "UpnpDeviceSetAdPara", "UpnpDeviceSetVDirAndCallbacks",
                             "UpnpDeviceStart2"};

class UpnpDmsDevice : public testing::Test {
 protected:
  void SetUp() override {
    fakeFailCall("");
    strcpy(cfg_.szModelName, "Gateway");
    strcpy(cfg_.szDmsName, "A&B");
    strcpy(cfg_.szManuFacturer, "A&B");
    strcpy(cfg_.szManuFacturerURL, "http://maker.example/");
    strcpy(cfg_.szDeviceURL, "http://maker.example/gw");
    strcpy(cfg_.szSerialNumber, "SN-1");
  }
  void TearDown() override { fakeFailCall(""); }

  DmsCfg cfg_{};
  DlnaInfo info_;
};

TEST_F(UpnpDmsDevice, InitRegistersConfiguresAndStarts) {
  ASSERT_EQ(dlnaInitUpnp(&info_, &cfg_), 0);
  EXPECT_EQ(fakeDeviceCalls(), kStartSteps);
  EXPECT_EQ(fakeStartedDescription(), kExpectedDesc);
  EXPECT_EQ(info_.deviceHandle, 1);
  EXPECT_STREQ(info_.ip, "127.0.0.1");
  EXPECT_EQ(info_.port, 49152);
}

TEST_F(UpnpDmsDevice, InitStopsAtTheFirstFailingStep) {
  for (size_t i = 0; i < kStartSteps.size(); ++i) {
    SCOPED_TRACE(kStartSteps[i]);
    fakeFailCall("");
    fakeFailCall(kStartSteps[i]);
    DlnaInfo info;
    EXPECT_EQ(dlnaInitUpnp(&info, &cfg_), -1);
    EXPECT_EQ(fakeDeviceCalls(), Strings(kStartSteps.begin(), kStartSteps.begin() + i + 1));
    EXPECT_EQ(info.port, 0);
  }
  fakeFailCall("");
  EXPECT_EQ(dlnaInitUpnp(nullptr, &cfg_), -1);
  EXPECT_EQ(dlnaInitUpnp(&info_, nullptr), -1);
  EXPECT_TRUE(fakeDeviceCalls().empty());
}

TEST_F(UpnpDmsDevice, FinishStopsAndUnregistersOnlyARegisteredDevice) {
  EXPECT_EQ(dlnaFinishUpnp(nullptr), -1);
  EXPECT_EQ(dlnaFinishUpnp(&info_), 0);
  EXPECT_TRUE(fakeDeviceCalls().empty());

  info_.deviceHandle = 1;
  EXPECT_EQ(dlnaFinishUpnp(&info_), 0);
  fakeFailCall("UpnpDeviceStop");
  EXPECT_EQ(dlnaFinishUpnp(&info_), 0);
  EXPECT_EQ(fakeDeviceCalls(),
            (Strings{"UpnpDeviceStop", "UpnpDeviceUnReg", "UpnpDeviceStop", "UpnpDeviceUnReg"}));
  EXPECT_EQ(info_.deviceHandle, 1);
}

}  // namespace
