// Evented state variables: stored values and the events their sets send.
#include "upnp/state_var.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "core/dlna_info.h"
#include "fakes/fake_upnp_device.h"

namespace {

using Vars = std::vector<std::pair<std::string, std::string>>;

struct Var {
  const char* serviceId;
  const char* name;
  const char* initial;
};

constexpr Var kVars[] = {
    {kCdsServiceId, "SystemUpdateID", "0"},
    {kCmsServiceId, "SourceProtocolInfo", ""},
    {kCmsServiceId, "SinkProtocolInfo", ""},
    {kCmsServiceId, "CurrentConnectionIDs", "0"},
};

class StateVar : public testing::Test {
 protected:
  void SetUp() override {
    savedHandle_ = g_tDlnaInfo.deviceHandle;
    dlnaInitVarValue();
    fakeClearNotifications();
  }
  void TearDown() override {
    // Leave the table as a fresh process has it: nothing set.
    dlnaFreeVarValue();
    fakeClearNotifications();
    g_tDlnaInfo.deviceHandle = savedHandle_;
  }

  static void expectInitialValues() {
    for (const Var& var : kVars) EXPECT_EQ(dlnaGetVarValue(var.serviceId, var.name), var.initial);
  }

 private:
  int savedHandle_ = -1;
};

TEST_F(StateVar, StartsWithInitialValuesInTableOrder) {
  expectInitialValues();
  EXPECT_EQ(dlnaGetServiceVars(kCdsServiceId), (Vars{{"SystemUpdateID", "0"}}));
  EXPECT_EQ(
      dlnaGetServiceVars(kCmsServiceId),
      (Vars{{"SourceProtocolInfo", ""}, {"SinkProtocolInfo", ""}, {"CurrentConnectionIDs", "0"}}));
  EXPECT_TRUE(dlnaGetServiceVars(kMsrServiceId).empty());
  EXPECT_TRUE(dlnaGetServiceVars("urn:upnp-org:serviceId:Other").empty());
  EXPECT_TRUE(dlnaGetServiceVars(nullptr).empty());
  EXPECT_TRUE(fakeNotifications().empty());
}

struct IgnoredSet {
  const char* what;
  const char* serviceId;
  const char* name;
  const char* value;
};

void PrintTo(const IgnoredSet& s, std::ostream* os) {
  *os << s.what;
}

class IgnoredSets : public StateVar, public testing::WithParamInterface<IgnoredSet> {};

TEST_P(IgnoredSets, StoreNothingAndSendNothing) {
  const IgnoredSet& set = GetParam();
  dlnaSetVarValue(set.serviceId, set.name, set.value);
  EXPECT_TRUE(fakeNotifications().empty());
  expectInitialValues();
  EXPECT_FALSE(dlnaGetVarValue(set.serviceId, set.name));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, IgnoredSets,
    testing::Values(
        IgnoredSet{"RegistrarHasNoVariables", kMsrServiceId, "AuthorizationGrantedUpdateID", "1"},
        IgnoredSet{"RegistrarWithAnotherServicesName", kMsrServiceId, "SystemUpdateID", "1"},
        IgnoredSet{"UnknownVariable", kCdsServiceId, "ContainerUpdateIDs", "1"},
        IgnoredSet{"VariableOfAnotherService", kCmsServiceId, "SystemUpdateID", "1"},
        IgnoredSet{"UnknownService", "urn:upnp-org:serviceId:Other", "SystemUpdateID", "1"},
        IgnoredSet{"NullService", nullptr, "SystemUpdateID", "1"},
        IgnoredSet{"NullName", kCdsServiceId, nullptr, "1"}),
    [](const testing::TestParamInfo<IgnoredSet>& p) { return std::string(p.param.what); });

TEST_F(StateVar, NumericSetStoresDecimalTextAndSendsOneEvent) {
  g_tDlnaInfo.deviceHandle = 42;
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", 7);

  EXPECT_EQ(dlnaGetVarValue(kCdsServiceId, "SystemUpdateID"), "7");
  auto events = fakeNotifications();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].deviceHandle, 42);
  EXPECT_EQ(events[0].udn, std::string("uuid:") + kFakeUuid);
  EXPECT_EQ(events[0].serviceId, kCdsServiceId);
  EXPECT_EQ(events[0].vars, (Vars{{"SystemUpdateID", "7"}}));
}

TEST_F(StateVar, EverySetSendsItsOwnEventInOrderEvenWhenUnchanged) {
  for (int32_t n : {3, 3, 4}) dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", n);
  auto events = fakeNotifications();
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[0].vars, (Vars{{"SystemUpdateID", "3"}}));
  EXPECT_EQ(events[1].vars, (Vars{{"SystemUpdateID", "3"}}));
  EXPECT_EQ(events[2].vars, (Vars{{"SystemUpdateID", "4"}}));
}

TEST_F(StateVar, SetOfOneVariableLeavesItsNeighboursAlone) {
  const char* protocols = "http-get:*:audio/mpeg:*,http-get:*:image/jpeg:*";
  dlnaSetVarValue(kCmsServiceId, "SourceProtocolInfo", protocols);

  EXPECT_EQ(dlnaGetServiceVars(kCmsServiceId), (Vars{{"SourceProtocolInfo", protocols},
                                                     {"SinkProtocolInfo", ""},
                                                     {"CurrentConnectionIDs", "0"}}));
  EXPECT_EQ(dlnaGetVarValue(kCdsServiceId, "SystemUpdateID"), "0");
  auto events = fakeNotifications();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].serviceId, kCmsServiceId);
  EXPECT_EQ(events[0].vars, (Vars{{"SourceProtocolInfo", protocols}}));
}

TEST_F(StateVar, FreedValuesAreGoneUntilInitialisedAgain) {
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", 9);
  dlnaFreeVarValue();
  for (const Var& var : kVars) EXPECT_FALSE(dlnaGetVarValue(var.serviceId, var.name)) << var.name;
  EXPECT_TRUE(dlnaGetServiceVars(kCdsServiceId).empty());
  EXPECT_TRUE(dlnaGetServiceVars(kCmsServiceId).empty());

  dlnaInitVarValue();
  expectInitialValues();
}

}  // namespace
