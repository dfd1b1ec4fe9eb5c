// The daemon as a process: options, configuration, start-up and signals.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "e2e/daemon.h"

namespace {

constexpr char kDisabledText[] = "Strange,dms disenabled but process dmsd started!";

TEST(DaemonStart, EnabledServerLogsConfigurationIdlesAndStopsCleanly) {
  DmsdProcess dmsd;
  dmsd.startWithConfig(
      "Enable = 1\nPort = 0\nRescanTime = 0\nIPAddress = 127.0.0.1\nInterface = lo\n"
      "DmsName = Test Server\nContentList = /nonexistent\n");
  ASSERT_TRUE(dmsd.waitForLog("main: while(1)")) << dmsd.log();
  std::string log = dmsd.log();
  EXPECT_NE(log.find("_InitDmsConf: gtDmsCfg.bEnable is 1"), std::string::npos);
  EXPECT_NE(log.find("gtDmsCfg.szDmsName is Test Server\n"), std::string::npos);
  EXPECT_NE(log.find("gtDmsCfg.szContentLst is /nonexistent\n"), std::string::npos);
  EXPECT_NE(log.find("DMS started successful!"), std::string::npos);
  EXPECT_EQ(log.find("rescantime interval"), std::string::npos);
  EXPECT_TRUE(dmsd.running());
  EXPECT_EQ(dmsd.stop(), 0);
  EXPECT_EQ(dmsd.output(), "");
}

TEST(DaemonStart, DisabledServerSaysSoAndIdles) {
  DmsdProcess dmsd;
  dmsd.startWithConfig("Enable = 0\n");
  ASSERT_TRUE(dmsd.waitForOutput(kDisabledText));
  ASSERT_TRUE(dmsd.waitForLog("while(1)"));
  EXPECT_EQ(dmsd.output(), kDisabledText);  // no line end
  EXPECT_EQ(dmsd.log().find("DMS started"), std::string::npos);
  EXPECT_TRUE(dmsd.running());
  EXPECT_EQ(dmsd.stop(), 0);
}

TEST(DaemonStart, InterruptStopsLikeTerminate) {
  DmsdProcess dmsd;
  dmsd.startWithConfig("Enable = 1\n");
  ASSERT_TRUE(dmsd.waitForLog("while(1)"));
  dmsd.signal(SIGINT);
  EXPECT_EQ(dmsd.waitExit(), 0);
}

TEST(DaemonStart, SurvivesFolderRequestAndRescanSignals) {
  DmsdProcess dmsd;
  dmsd.startWithConfig("Enable = 1\nRescanTime = 1\n");
  ASSERT_TRUE(dmsd.waitForLog("while(1)"));
  EXPECT_NE(dmsd.log().find("rescantime interval is 1s"), std::string::npos);
  dmsd.signal(SIGUSR1);
  // The alarm fires after a second and is re-armed: wait for two rescans.
  EXPECT_TRUE(dmsd.waitForLog("_dlnaExeRebuild", 5s, 2)) << dmsd.log();
  EXPECT_TRUE(dmsd.running());
  EXPECT_EQ(dmsd.stop(), 0);
}

TEST(DaemonConfigFile, MissingOrReadOnlyFileExitsWith255) {
  DmsdProcess missing;
  missing.start({"--config", missing.dir() + "/absent.conf"});
  EXPECT_EQ(missing.waitExit(), 255);

  DmsdProcess readOnly;
  std::string path = readOnly.writeFile("dms.conf", "Enable = 1\n");
  chmod(path.c_str(), 0444);
  // root opens read-only files for writing anyway; only check where that is refused.
  if (access(path.c_str(), W_OK) != 0) {
    readOnly.start({"--config", path});
    EXPECT_EQ(readOnly.waitExit(), 255);
  }
}

TEST(DaemonConfigFile, NoArgumentsReadsTheFixedPath) {
  // /var/tmp is a private tmpfs inside the test sandbox.
  const char* fixed = "/var/tmp/dms.conf";
  unlink(fixed);
  {
    DmsdProcess dmsd;
    dmsd.start({});
    EXPECT_EQ(dmsd.waitExit(), 255);
  }
  std::ofstream(fixed) << "Enable = 0\n";
  DmsdProcess dmsd;
  dmsd.start({});
  ASSERT_TRUE(dmsd.waitForOutput(kDisabledText));
  EXPECT_TRUE(dmsd.running());
  EXPECT_EQ(dmsd.stop(), 0);
  unlink(fixed);
}

TEST(DaemonOptions, ExitStatusAndText) {
  const struct {
    std::vector<std::string> args;
    int status;
    const char* stdoutHas;
    const char* stderrHas;
  } cases[] = {
      {{"--help"}, 0, "usage: dmsd", ""},
      {{"--version"}, 0, "dmsd ", ""},
      {{"--bogus"}, 2, "", "usage: dmsd"},
      {{"--config"}, 2, "", "usage: dmsd"},
      {{"--log-level", "x"}, 2, "", "usage: dmsd"},
      {{"--configx", "f"}, 2, "", "unknown option"},  // a prefix is no option
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args[0]);
    DmsdProcess dmsd;
    dmsd.start(c.args);
    EXPECT_EQ(dmsd.waitExit(), c.status);
    EXPECT_NE(dmsd.output().find(c.stdoutHas), std::string::npos) << dmsd.output();
    EXPECT_NE(dmsd.log().find(c.stderrHas), std::string::npos) << dmsd.log();
  }
}

}  // namespace
