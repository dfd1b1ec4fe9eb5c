// The server's start and stop sequences, with recording subsystems.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "content/metadata.h"
#include "content/state_var.h"
#include "core/dlna_dms.h"
#include "fakes/fake_upnp_device.h"

namespace {

using Strings = std::vector<std::string>;

Strings g_calls;
int g_deviceResult = 0;

DmsSubsystems recordingSubsystems() {
  DmsSubsystems s = {};
  s.startProfiles = [](DlnaInfo* info) {
    g_calls.push_back("startProfiles");
    info->registry = reinterpret_cast<DlnaProfileRegistry*>(&g_calls);
  };
  s.stopProfiles = [](DlnaInfo*) { g_calls.push_back("stopProfiles"); };
  s.openNotify = [](DlnaInfo*) { g_calls.push_back("openNotify"); };
  s.closeNotify = [](DlnaInfo*) { g_calls.push_back("closeNotify"); };
  s.startDevice = [](DlnaInfo* info, DmsCfg* cfg) {
    g_calls.push_back("startDevice " + std::to_string(info->port) + " " + info->ip + " " +
                      cfg->szDmsName);
    return g_deviceResult;
  };
  s.stopDevice = [](DlnaInfo*) {
    g_calls.push_back("stopDevice");
    return 0;
  };
  s.buildLibrary = [](DlnaInfo* info) {
    g_calls.push_back("buildLibrary " + std::to_string(info->state) + " " +
                      std::to_string(info->built));
  };
  return s;
}

const Strings kStopSteps = {"stopDevice", "closeNotify", "stopProfiles"};

class ServerStart : public testing::Test {
 protected:
  void SetUp() override {
    gtDmsCfg = {};
    gtDmsCfg.bEnable = 1;
    gtDmsCfg.iPort = 8200;
    strcpy(gtDmsCfg.szIp, "10.0.0.2");
    strcpy(gtDmsCfg.szDmsName, "Box");
    g_calls.clear();
    g_deviceResult = 0;
    saved_ = g_tDmsSubsystems;
    g_tDmsSubsystems = recordingSubsystems();
    fakeClearNotifications();
    _dlnaDmsInit();
  }
  void TearDown() override {
    _dlnaDmsStop();
    g_tDmsSubsystems = saved_;
    gtDmsCfg = {};
  }
  DmsSubsystems saved_;
};

TEST_F(ServerStart, RunsTheStepsInOrderPublishesAnUpdateAndStartsOnlyOnceWhenEnabled) {
  gtDmsCfg.bEnable = 0;
  EXPECT_EQ(_dlnaDmsStart(), 0);
  EXPECT_EQ(g_tDlnaInfo.state, kDmsIdle);
  EXPECT_TRUE(g_calls.empty());
  EXPECT_FALSE(dlnaGetVarValue(kCdsServiceId, "SystemUpdateID"));

  gtDmsCfg.bEnable = 1;
  ASSERT_EQ(_dlnaDmsStart(), 0);
  EXPECT_EQ(g_tDlnaInfo.state, kDmsRunning);
  EXPECT_EQ(g_tDlnaInfo.systemUpdateId, 1u);
  EXPECT_EQ(g_calls,
            (Strings{"startProfiles", "startDevice 8200 10.0.0.2 Box", "buildLibrary 1 1"}));
  auto events = fakeNotifications();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].vars, (decltype(events[0].vars){{"SystemUpdateID", "1"}}));
  EXPECT_EQ(dlnaGetVarValue(kCmsServiceId, "CurrentConnectionIDs"), "0");

  g_calls.clear();
  EXPECT_EQ(_dlnaDmsStart(), -1);
  EXPECT_TRUE(g_calls.empty());
  EXPECT_EQ(g_tDlnaInfo.state, kDmsRunning);
}

TEST_F(ServerStart, FailedDeviceRollsBackToIdle) {
  g_deviceResult = -1;
  EXPECT_EQ(_dlnaDmsStart(), -1);
  EXPECT_EQ(g_tDlnaInfo.state, kDmsIdle);
  EXPECT_EQ(g_tDlnaInfo.built, 0);
  EXPECT_EQ(g_tDlnaInfo.registry, nullptr);
  EXPECT_EQ(g_tDlnaInfo.port, 0);
  Strings expected = {"startProfiles", "startDevice 8200 10.0.0.2 Box"};
  expected.insert(expected.end(), kStopSteps.begin(), kStopSteps.end());
  EXPECT_EQ(g_calls, expected);
  EXPECT_FALSE(dlnaGetVarValue(kCdsServiceId, "SystemUpdateID"));
  EXPECT_TRUE(fakeNotifications().empty());
  // Idle again: a second start is allowed.
  g_deviceResult = 0;
  EXPECT_EQ(_dlnaDmsStart(), 0);
}

// A rescan time opens change notification and arms the alarm; stopping must
// disarm it, or a rescan fires into a stopped server.
TEST_F(ServerStart, StopUndoesTheStartFreesTheTreeAndDisarmsTheRescan) {
  sigset_t alrm, old;
  sigemptyset(&alrm);
  sigaddset(&alrm, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &alrm, &old);
  gtDmsCfg.dwTime = 100;
  ASSERT_EQ(_dlnaDmsStart(), 0);
  EXPECT_GT(alarm(100), 90u);
  EXPECT_EQ(g_calls[1], "openNotify");
  DlnaInfo* info = &g_tDlnaInfo;
  info->deviceHandle = 3;
  info->root = dlnaNewContainer(info, "root", nullptr, 0, kDlnaContPlain);
  DlnaEntry* music = dlnaNewContainer(info, "Music", info->root, kDlnaIdMusic, kDlnaContPlain);
  _dlnaHdlDefCont(info, info->root, music, kDlnaIdMusic);
  g_calls.clear();
  _dlnaDmsStop();
  EXPECT_EQ(alarm(0), 0u);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  EXPECT_EQ(g_calls, kStopSteps);
  EXPECT_EQ(info->state, kDmsIdle);
  EXPECT_EQ(info->root, nullptr);
  EXPECT_EQ(info->nextId, kDlnaFirstId);
  EXPECT_EQ(info->deviceHandle, -1);
  EXPECT_EQ(_dlnaGetDefCont(info, kDlnaIdMusic), nullptr);
  ASSERT_NE(info->index, nullptr);
  EXPECT_TRUE(info->index->empty());
  EXPECT_FALSE(dlnaGetVarValue(kCdsServiceId, "SystemUpdateID"));
  g_calls.clear();
  _dlnaDmsStop();  // idle: nothing happens
  EXPECT_TRUE(g_calls.empty());
}

}  // namespace
