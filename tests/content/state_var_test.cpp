// Evented state variables: stored values and the events their sets send.
#include "content/state_var.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "content/dlna_info.h"
#include "fakes/fake_upnp_device.h"

namespace {

using Vars = std::vector<std::pair<std::string, std::string>>;

const Vars kInitialCms = {
    {"SourceProtocolInfo", ""}, {"SinkProtocolInfo", ""}, {"CurrentConnectionIDs", "0"}};

class StateVar : public testing::Test {
 protected:
  void SetUp() override {
    dlnaInitVarValue();
    fakeClearNotifications();
  }
  // Leave the table as a fresh process has it: nothing set.
  void TearDown() override {
    dlnaFreeVarValue();
    fakeClearNotifications();
  }
};

TEST_F(StateVar, SetsOfUnknownVariablesStoreAndSendNothing) {
  const char* const unknown[][2] = {{kMsrServiceId, "AuthorizationGrantedUpdateID"},
                                    {kMsrServiceId, "SystemUpdateID"},
                                    {kCdsServiceId, "ContainerUpdateIDs"},
                                    {kCmsServiceId, "SystemUpdateID"},
                                    {"urn:upnp-org:serviceId:Other", "SystemUpdateID"},
                                    {nullptr, "SystemUpdateID"},
                                    {kCdsServiceId, nullptr}};
  for (auto [serviceId, name] : unknown) {
    dlnaSetVarValue(serviceId, name, "1");
    EXPECT_FALSE(dlnaGetVarValue(serviceId, name)) << (serviceId ? serviceId : "") << " " << name;
  }
  dlnaSetVarValue(kCdsServiceId, "SystemUpdateID", nullptr);
  EXPECT_TRUE(fakeNotifications().empty());
  EXPECT_EQ(dlnaGetServiceVars(kCdsServiceId), (Vars{{"SystemUpdateID", "0"}}));
  EXPECT_EQ(dlnaGetServiceVars(kCmsServiceId), kInitialCms);
}

// Every set sends its own event, in order, unchanged values included.
TEST_F(StateVar, SetStoresItsValueAndSendsOneEventFromThisDevice) {
  const int savedHandle = g_tDlnaInfo.deviceHandle;
  g_tDlnaInfo.deviceHandle = 42;
  for (int32_t n : {3, 3, -4}) dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", n);
  dlnaSetVarValue(kCmsServiceId, "SinkProtocolInfo", "http-get:*:audio/mpeg:*");
  g_tDlnaInfo.deviceHandle = savedHandle;

  EXPECT_EQ(dlnaGetVarValue(kCdsServiceId, "SystemUpdateID"), "-4");
  EXPECT_EQ(dlnaGetServiceVars(kCmsServiceId),
            (Vars{{"SourceProtocolInfo", ""},
                  {"SinkProtocolInfo", "http-get:*:audio/mpeg:*"},
                  {"CurrentConnectionIDs", "0"}}));
  std::vector<std::string> sent;
  for (const FakeNotify& event : fakeNotifications()) {
    EXPECT_EQ(event.deviceHandle, 42);
    EXPECT_EQ(event.udn, std::string("uuid:") + kFakeUuid);
    ASSERT_EQ(event.vars.size(), 1u);
    sent.push_back(event.serviceId + " " + event.vars[0].first + "=" + event.vars[0].second);
  }
  EXPECT_EQ(sent, (std::vector<std::string>{
                      std::string(kCdsServiceId) + " SystemUpdateID=3",
                      std::string(kCdsServiceId) + " SystemUpdateID=3",
                      std::string(kCdsServiceId) + " SystemUpdateID=-4",
                      std::string(kCmsServiceId) + " SinkProtocolInfo=http-get:*:audio/mpeg:*"}));
}

}  // namespace
