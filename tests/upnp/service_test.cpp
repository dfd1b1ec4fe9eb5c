// The device callback against real request records of the stack: routing and
// its errors, the actions' answers, argument reading, variable queries and
// subscriptions.
#include "upnp/service.h"

#include <gtest/gtest.h>
#include <upnp/ixml.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "content/dlna_info.h"
#include "content/state_var.h"
#include "fakes/action_request.h"
#include "fakes/fake_upnp_device.h"
#include "platform/alloc.h"

namespace {

const std::map<std::string, std::string> kServiceTypes = {
    {kCdsServiceId, "urn:schemas-upnp-org:service:ContentDirectory:1"},
    {kCmsServiceId, "urn:schemas-upnp-org:service:ConnectionManager:1"},
    {kMsrServiceId, "urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1"}};

// Runs the request through the device callback: "<code> <text>" for an error,
// "-" when no response is left (a failed action, or one not for this device),
// else the response's arguments as "Name=value|...".
std::string dispatch(UpnpActionRequest* request) {
  _dlnaDevCallbackEvHdl(UPNP_CONTROL_ACTION_REQUEST, request, nullptr);
  IXML_Document* result = UpnpActionRequest_get_ActionResult(request);
  if (int code = UpnpActionRequest_get_ErrCode(request)) {
    EXPECT_EQ(result, nullptr);
    return std::to_string(code) + " " + UpnpActionRequest_get_ErrStr_cstr(request);
  }
  IXML_Node* response = ixmlNode_getFirstChild(reinterpret_cast<IXML_Node*>(result));
  if (!response) return "-";
  EXPECT_EQ(ixmlNode_getNodeName(response),
            std::string("u:") + UpnpActionRequest_get_ActionName_cstr(request) + "Response");
  const char* type = ixmlElement_getAttribute(reinterpret_cast<IXML_Element*>(response), "xmlns:u");
  EXPECT_EQ(type ? type : "", kServiceTypes.at(UpnpActionRequest_get_ServiceID_cstr(request)));
  std::string outputs;
  for (IXML_Node* arg = ixmlNode_getFirstChild(response); arg; arg = ixmlNode_getNextSibling(arg)) {
    IXML_Node* text = ixmlNode_getFirstChild(arg);
    outputs += std::string(outputs.empty() ? "" : "|") + ixmlNode_getNodeName(arg) + "=" +
               (text ? ixmlNode_getNodeValue(text) : "");
  }
  return outputs;
}

class Service : public testing::Test {
 protected:
  void SetUp() override { dlnaInitVarValue(); }
  void TearDown() override {
    dlnaFreeVarValue();
    fakeClearNotifications();
  }
};

TEST_F(Service, RoutesOnlyRequestsForThisDevice) {
  struct Case {
    std::string udn;
    const char* serviceId;
    const char* action;
    const char* outcome;
  };
  for (const Case& c : {
           Case{"uuid:someone-else", kMsrServiceId, "IsAuthorized", "-"},
           Case{kOurUdn + "0", kMsrServiceId, "IsAuthorized", "-"},
           Case{"urn:" + std::string(kFakeUuid), kMsrServiceId, "IsAuthorized", "-"},
           Case{"", kMsrServiceId, "IsAuthorized", "-"},
           Case{kOurUdn, "urn:upnp-org:serviceId:AVTransport", "Play", "401 Unknown Service ID"},
           Case{kOurUdn, kCdsServiceId, "GetProtocolInfo", "401 Unknown Service Action"},
           Case{kOurUdn, kMsrServiceId, "isauthorized", "401 Unknown Service Action"},
       }) {
    EXPECT_EQ(dispatch(makeRequest(c.serviceId, c.action, "", c.udn).get()), c.outcome)
        << c.udn << " " << c.serviceId << " " << c.action;
  }
  Request failed = makeRequest(kMsrServiceId, "IsAuthorized", "");
  UpnpActionRequest_set_ErrCode(failed.get(), 402);
  EXPECT_EQ(dispatch(failed.get()), "402 ");
}

TEST_F(Service, ActionsAnswerTheirOutputsInOrder) {
  const std::string protocols = "http-get:*:audio/mpeg:DLNA.ORG_PN=MP3,http-get:*:image/jpeg:*";
  dlnaSetVarValue(kCmsServiceId, "SourceProtocolInfo", protocols.c_str());
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", 42);
  struct Case {
    const char* serviceId;
    const char* action;
    const char* args;
    std::string outputs;
  };
  for (const Case& c : {
           Case{kCdsServiceId, "GetSearchCapabilities", "",
                "SearchCaps=dc:title,upnp:class,res@protocolInfo"},
           Case{kCdsServiceId, "GetSortCapabilities", "", "SortCaps="},
           Case{kCdsServiceId, "GetSystemUpdateID", "", "Id=42"},
           Case{kCdsServiceId, "Browse", "<ObjectID>0</ObjectID>", "-"},
           Case{kCdsServiceId, "Search", "<ContainerID>0</ContainerID>", "-"},
           Case{kCmsServiceId, "GetProtocolInfo", "", "Source=" + protocols + "|Sink="},
           Case{kCmsServiceId, "GetCurrentConnectionIDs", "", "ConnectionIDs=0"},
           Case{kCmsServiceId, "GetCurrentConnectionInfo", "<ConnectionID>5</ConnectionID>",
                "RcsID=-1|AVTransportID=-1|ProtocolInfo=|PeerConnectionManager=|"
                "PeerConnectionID=-1|Direction=Output|Status=OK"},
           Case{kMsrServiceId, "IsAuthorized", "<DeviceID>x</DeviceID>", "Result=1"},
           Case{kMsrServiceId, "IsValidated", "<DeviceID>x</DeviceID>", "Result=0"},
           Case{kMsrServiceId, "RegisterDevice", "<RegistrationReqMsg>a</RegistrationReqMsg>", ""},
       }) {
    EXPECT_EQ(dispatch(makeRequest(c.serviceId, c.action, c.args).get()), c.outputs) << c.action;
  }
}

TEST_F(Service, ReadsArguments) {
  struct Case {
    const char* args;
    const char* name;
    const char* text;  // nullptr: no argument
    uint32_t number;
  };
  for (const Case& c : {
           Case{"<Filter>x</Filter><ObjectID>a&amp;b</ObjectID>", "ObjectID", "a&b", 0},
           Case{"<ObjectID/>", "ObjectID", "", 0},
           Case{"<ContainerID>9</ContainerID>", "ObjectID", nullptr, 9},
           Case{"<ObjectID>3</ObjectID><ContainerID>9</ContainerID>", "ObjectID", "3", 3},
           Case{"<ContainerID>9</ContainerID>", "Index", nullptr, 0},
           Case{"<Index>1</Index><Index>2</Index>", "Index", "1", 1},
           Case{"<Index>-1abc</Index>", "Index", "-1abc", 4294967295u},
       }) {
    Request request = makeRequest(kCdsServiceId, "Search", c.args);
    char* text = dlnaUpnpGetStr(request.get(), c.name);
    EXPECT_STREQ(text, c.text) << c.args;
    RetUB(text);
    EXPECT_EQ(dlnaUpnpGetUi4(request.get(), c.name), c.number) << c.args;
  }
  EXPECT_EQ(dlnaUpnpGetStr(nullptr, "ObjectID"), nullptr);
  EXPECT_EQ(dlnaUpnpGetUi4(nullptr, "ObjectID"), 0u);
}

}  // namespace
