// Device and service descriptions, and registration with the stack.
#include "upnp/upnp_dms.h"
#include "services/scpd.h"
#include "services/xml_escape.h"

#include <gtest/gtest.h>
#include <upnp/ixml.h>

#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "content/dlna_info.h"
#include "core/dms_main.h"
#include "fakes/fake_upnp_device.h"
#include "platform/alloc.h"

namespace {

struct UbFree {
  void operator()(char* p) const { RetUB(p); }
};
using UbText = std::unique_ptr<char, UbFree>;

using Strings = std::vector<std::string>;

// The table's characters are checked in the device description below.
TEST(UpnpDmsEscape, TextWithNothingToEscapeIsUsedAsItIs) {
  EXPECT_STREQ(UbText(dlnaConvXml("M\xc3\xbcller \xe2\x98\x83 & co")).get(),
               "M\xc3\xbcller \xe2\x98\x83 &amp; co");
  for (const char* text : {"M\xc3\xbcller \xe2\x98\x83", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(dlnaConvXml(text), nullptr);
  for (const XmlConvEntry* row = g_tXmlConv; row->entity; ++row) {
    const char text[] = {'a', static_cast<char>(row->ch), '\0'};
    EXPECT_STREQ(UbText(dlnaConvXml(text)).get(), (std::string("a") + row->entity).c_str());
  }
}

// The document for the configuration UpnpDmsDevice uses.
// clang-format off
const std::string kExpectedDesc =
    // clang-format off
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><root xmlns=\"urn:schemas-upnp-org:device-1-0\">"
    "  <specVersion>    <major>1</major>    <minor>0</minor>  </specVersion>  <device>"
    "  <dlna:X_DLNADOC xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\">DMS-1.50</dlna:X_DLNADOC>"
    "  <dlna:X_DLNACAP xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\"/>    <deviceType>"
    "urn:schemas-upnp-org:device:MediaServer:1</deviceType>    <friendlyName>"
    "Gateway: A&amp;B&apos;s &lt;&quot;Den&quot;&gt;&#xD;&#xA;&#x9;:</friendlyName>"
    "    <manufacturer>A&B</manufacturer>    <manufacturerURL>"
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

const Strings kStartSteps = {"UpnpDeviceReg", "UpnpDeviceSetServerSocketInfo",
                             "UpnpDeviceSetAdPara", "UpnpDeviceSetVDirAndCallbacks",
                             "UpnpDeviceStart2"};

class UpnpDmsDevice : public testing::Test {
 protected:
  void SetUp() override {
    fakeFailCall("");
    strcpy(cfg_.szModelName, "Gateway");
    strcpy(cfg_.szDmsName, "A&B's <\"Den\">\r\n\t");
    strcpy(cfg_.szManuFacturer, "A&B");
    strcpy(cfg_.szManuFacturerURL, "http://maker.example/");
    strcpy(cfg_.szDeviceURL, "http://maker.example/gw");
    strcpy(cfg_.szSerialNumber, "SN-1");
  }
  void TearDown() override { fakeFailCall(""); }

  DmsCfg cfg_{};
  DlnaInfo info_;
};

// Only the server name is escaped; the line feeds belong to the published text.
TEST_F(UpnpDmsDevice, InitRegistersAndStartsWithTheFilledTemplate) {
  ASSERT_EQ(dlnaInitUpnp(&info_, &cfg_), 0);
  EXPECT_EQ(fakeDeviceCalls(), kStartSteps);
  EXPECT_EQ(info_.deviceHandle, 1);
  EXPECT_STREQ(info_.ip, "127.0.0.1");
  EXPECT_EQ(info_.port, 49152);  // the web server's port
  EXPECT_EQ(fakeStartedDescription(), kExpectedDesc);
}

TEST_F(UpnpDmsDevice, InitStopsAtTheFirstFailingStep) {
  for (size_t i = 0; i < kStartSteps.size(); ++i) {
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
  fakeFailCall("UpnpDeviceStop");
  EXPECT_EQ(dlnaFinishUpnp(&info_), 0);
  EXPECT_EQ(fakeDeviceCalls(), (Strings{"UpnpDeviceStop", "UpnpDeviceUnReg"}));
}

}  // namespace
