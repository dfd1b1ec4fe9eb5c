// The device callback: routing and its errors, argument reading, variable
// queries and subscriptions, against real request records of the stack.
#include "upnp/service.h"

#include <gtest/gtest.h>
#include <upnp/ixml.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/dlna_info.h"
#include "fakes/fake_upnp_device.h"
#include "platform/alloc.h"
#include "upnp/state_var.h"

namespace {

const std::string kOurUdn = std::string("uuid:") + kFakeUuid;

struct FreeRequest {
  void operator()(UpnpActionRequest* request) const {
    ixmlDocument_free(UpnpActionRequest_get_ActionRequest(request));
    ixmlDocument_free(UpnpActionRequest_get_ActionResult(request));
    UpnpActionRequest_delete(request);
  }
};
using Request = std::unique_ptr<UpnpActionRequest, FreeRequest>;

// An action request as the stack hands it over, with `args` in its body.
Request makeRequest(const char* serviceId, const char* name, const std::string& args,
                    const std::string& udn = kOurUdn) {
  Request request(UpnpActionRequest_new());
  UpnpActionRequest_strcpy_ServiceID(request.get(), serviceId);
  UpnpActionRequest_strcpy_ActionName(request.get(), name);
  UpnpActionRequest_strcpy_DevUDN(request.get(), udn.c_str());
  std::string body = "<u:A xmlns:u=\"urn:x\">" + args + "</u:A>";
  UpnpActionRequest_set_ActionRequest(request.get(), ixmlParseBuffer(body.c_str()));
  return request;
}

// "<code> <text>", plus " +result" when the action left a result.
std::string dispatch(UpnpActionRequest* request) {
  _dlnaDevCallbackEvHdl(UPNP_CONTROL_ACTION_REQUEST, request, nullptr);
  return std::to_string(UpnpActionRequest_get_ErrCode(request)) + " " +
         UpnpActionRequest_get_ErrStr_cstr(request) +
         (UpnpActionRequest_get_ActionResult(request) ? " +result" : "");
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
    const char* udn;
    const char* serviceId;
    const char* action;
    const char* outcome;
  };
  for (const Case& c : {
           Case{"uuid:someone-else", "urn:nowhere", "Browse", "0 "},
           Case{"", "urn:nowhere", "Browse", "0 "},
           Case{kOurUdn.c_str(), "urn:upnp-org:serviceId:AVTransport", "Play",
                "401 Unknown Service ID"},
           Case{kOurUdn.c_str(), kCdsServiceId, "GetProtocolInfo", "401 Unknown Service Action"},
           Case{kOurUdn.c_str(), kMsrServiceId, "isauthorized", "401 Unknown Service Action"},
           Case{kOurUdn.c_str(), kMsrServiceId, "IsAuthorized", "0  +result"},
       }) {
    EXPECT_EQ(dispatch(makeRequest(c.serviceId, c.action, "", c.udn).get()), c.outcome)
        << c.udn << " " << c.serviceId << " " << c.action;
  }
  Request failed = makeRequest(kCdsServiceId, "Browse", "");
  UpnpActionRequest_set_ErrCode(failed.get(), 402);
  EXPECT_EQ(dispatch(failed.get()), "402 ");
}

TEST_F(Service, ReadsArguments) {
  struct Case {
    const char* args;
    const char* name;
    const char* text;  // nullptr: no argument
    uint32_t number;
  };
  for (const Case& c : {
           Case{"<ObjectID>0$1$10</ObjectID>", "ObjectID", "0$1$10", 0},
           Case{"<Filter>x</Filter><ObjectID>a&amp;b</ObjectID>", "ObjectID", "a&b", 0},
           Case{"<ObjectID/>", "ObjectID", "", 0},
           Case{"<objectid>1</objectid>", "ObjectID", nullptr, 0},
           Case{"<ContainerID>9</ContainerID>", "ObjectID", nullptr, 9},
           Case{"<ObjectID>3</ObjectID><ContainerID>9</ContainerID>", "ObjectID", "3", 3},
           Case{"<Index>1</Index><Index>2</Index>", "Index", "1", 1},
           Case{"<Index>12abc</Index>", "Index", "12abc", 12},
           Case{"<Index>abc</Index>", "Index", "abc", 0},
           Case{"<Index>-1</Index>", "Index", "-1", 4294967295u},
           Case{"<ContainerID>9</ContainerID>", "Index", nullptr, 0},
       }) {
    Request request = makeRequest(kCdsServiceId, "Search", c.args);
    char* text = dlnaUpnpGetStr(request.get(), c.name);
    EXPECT_EQ(text ? text : "(null)", std::string(c.text ? c.text : "(null)")) << c.args;
    RetUB(text);
    EXPECT_EQ(dlnaUpnpGetUi4(request.get(), c.name), c.number) << c.args;
  }
  EXPECT_EQ(dlnaUpnpGetStr(nullptr, "ObjectID"), nullptr);
  EXPECT_EQ(dlnaUpnpGetUi4(nullptr, "ObjectID"), 0u);
  Request request = makeRequest(kCdsServiceId, "Search", "");
  ixmlDocument_free(UpnpActionRequest_get_ActionRequest(request.get()));
  UpnpActionRequest_set_ActionRequest(request.get(), ixmlDocument_createDocument());
  EXPECT_EQ(dlnaUpnpGetStr(request.get(), "ObjectID"), nullptr);
}

// The answer to a variable query: the value, or "<code> <text>".
std::string queryVar(const char* serviceId, const char* name) {
  UpnpStateVarRequest* request = UpnpStateVarRequest_new();
  UpnpStateVarRequest_strcpy_ServiceID(request, serviceId);
  UpnpStateVarRequest_strcpy_StateVarName(request, name);
  _dlnaDevCallbackEvHdl(UPNP_CONTROL_GET_VAR_REQUEST, request, nullptr);
  std::string answer;
  if (int code = UpnpStateVarRequest_get_ErrCode(request))
    answer = std::to_string(code) + " " + UpnpStateVarRequest_get_ErrStr_cstr(request);
  else if (const char* value = UpnpStateVarRequest_get_CurrentVal_cstr(request))
    answer = value;
  UpnpStateVarRequest_delete(request);
  return answer;
}

TEST_F(Service, AnswersVariableQueries) {
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", 12);
  EXPECT_EQ(queryVar(kCdsServiceId, "SystemUpdateID"), "12");
  EXPECT_EQ(queryVar(kCmsServiceId, "CurrentConnectionIDs"), "0");
  EXPECT_EQ(queryVar(kMsrServiceId, "AuthorizationGrantedUpdateID"), "404 Invalid Variable");
  EXPECT_EQ(queryVar(kCdsServiceId, "SourceProtocolInfo"), "404 Invalid Variable");
  dlnaFreeVarValue();
  EXPECT_EQ(queryVar(kCdsServiceId, "SystemUpdateID"), "404 Invalid Variable");
}

TEST_F(Service, AcceptsSubscriptionsWithTheEventedValues) {
  const int savedHandle = g_tDlnaInfo.deviceHandle;
  g_tDlnaInfo.deviceHandle = 7;
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", 3);
  fakeClearNotifications();
  for (const char* serviceId : {kCdsServiceId, kCmsServiceId, kMsrServiceId, "urn:nowhere"}) {
    UpnpSubscriptionRequest* request = UpnpSubscriptionRequest_new();
    UpnpSubscriptionRequest_strcpy_ServiceId(request, serviceId);
    UpnpSubscriptionRequest_strcpy_UDN(request, kOurUdn.c_str());
    UpnpSubscriptionRequest_strcpy_SID(request, (std::string("uuid:sid-") + serviceId).c_str());
    _dlnaDevCallbackEvHdl(UPNP_EVENT_SUBSCRIPTION_REQUEST, request, nullptr);
    UpnpSubscriptionRequest_delete(request);
  }
  g_tDlnaInfo.deviceHandle = savedHandle;

  using Vars = std::vector<std::pair<std::string, std::string>>;
  const std::pair<const char*, Vars> expected[] = {
      {kCdsServiceId, {{"SystemUpdateID", "3"}}},
      {kCmsServiceId,
       {{"SourceProtocolInfo", ""}, {"SinkProtocolInfo", ""}, {"CurrentConnectionIDs", "0"}}},
      {kMsrServiceId, {}},
  };
  auto accepted = fakeSubscriptions();
  ASSERT_EQ(accepted.size(), std::size(expected));
  for (size_t i = 0; i < accepted.size(); ++i) {
    EXPECT_EQ(accepted[i].deviceHandle, 7);
    EXPECT_EQ(accepted[i].udn, kOurUdn);
    EXPECT_EQ(accepted[i].serviceId, expected[i].first);
    EXPECT_EQ(accepted[i].sid, std::string("uuid:sid-") + expected[i].first);
    EXPECT_EQ(accepted[i].vars, expected[i].second);
  }
}

}  // namespace
