// Reading the configuration file.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "core/dms_main.h"

namespace {

class ConfigFile : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/dmsd-config-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    g_tDmsPaths.config = dir_ + "/dms.conf";
    memset(&gtDmsCfg, 0, sizeof gtDmsCfg);
  }
  void TearDown() override {
    unlink(g_tDmsPaths.config.c_str());
    rmdir(dir_.c_str());
    g_tDmsPaths = DmsPaths();
    memset(&gtDmsCfg, 0, sizeof gtDmsCfg);
  }
  int read(const std::string& text) {
    std::ofstream(g_tDmsPaths.config, std::ios::binary) << text;
    return _InitDmsConf();
  }
  std::string dir_;
};

TEST_F(ConfigFile, EveryKeyFillsItsField) {
  ASSERT_EQ(read("Enable = 1\nPort = 8200\nRescanTime = 30\nIPAddress = 192.168.1.1\n"
                 "Interface = br0\nIfLLA = fe80::1\nDmsName = Home\nContentList = /a|/b\n"
                 "ModelName = GW\nManuFacturer = Acme\nManuFacturerURL = http://acme\n"
                 "DeviceURL = http://gw\nSerialNumber = 42\nLocale = 3\n"),
            0);
  EXPECT_EQ(gtDmsCfg.bEnable, 1);
  EXPECT_EQ(gtDmsCfg.iPort, 8200);
  EXPECT_EQ(gtDmsCfg.dwTime, 30u);
  EXPECT_STREQ(gtDmsCfg.szIp, "192.168.1.1");
  EXPECT_STREQ(gtDmsCfg.szIf, "br0");
  EXPECT_STREQ(gtDmsCfg.szIfLLA, "fe80::1");
  EXPECT_STREQ(gtDmsCfg.szDmsName, "Home");
  EXPECT_STREQ(gtDmsCfg.szContentLst, "/a|/b");
  EXPECT_STREQ(gtDmsCfg.szModelName, "GW");
  EXPECT_STREQ(gtDmsCfg.szManuFacturer, "Acme");
  EXPECT_STREQ(gtDmsCfg.szManuFacturerURL, "http://acme");
  EXPECT_STREQ(gtDmsCfg.szDeviceURL, "http://gw");
  EXPECT_STREQ(gtDmsCfg.szSerialNumber, "42");
  EXPECT_EQ(gtDmsCfg.iLocale, 3);
}

TEST_F(ConfigFile, EnableAloneLeavesEverythingElseEmpty) {
  ASSERT_EQ(read("Enable = 1\n"), 0);
  EXPECT_EQ(gtDmsCfg.bEnable, 1);
  EXPECT_EQ(gtDmsCfg.iPort, 0);
  EXPECT_EQ(gtDmsCfg.dwTime, 0u);
  EXPECT_STREQ(gtDmsCfg.szIp, "");
  EXPECT_STREQ(gtDmsCfg.szDmsName, "");
  EXPECT_STREQ(gtDmsCfg.szContentLst, "");
}

struct LineCase {
  const char* name;
  const char* text;
  int enable;
  int port;
  const char* dmsName;
};

class ConfigLines : public ConfigFile, public testing::WithParamInterface<LineCase> {};

TEST_P(ConfigLines, ReadAsTheDaemonReadsThem) {
  const LineCase& c = GetParam();
  ASSERT_EQ(read(c.text), 0);
  EXPECT_EQ(gtDmsCfg.bEnable, c.enable);
  EXPECT_EQ(gtDmsCfg.iPort, c.port);
  EXPECT_STREQ(gtDmsCfg.szDmsName, c.dmsName);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ConfigLines,
    testing::Values(LineCase{"KeyBehindOtherText", "# Enable = 1\n", 1, 0, ""},
                    LineCase{"OnlyLowEightBitsOfEnable", "Enable = 257\n", 1, 0, ""},
                    LineCase{"EnableOf256Disables", "Enable = 256\n", 0, 0, ""},
                    LineCase{"KeysAreCaseSensitive", "enable = 1\nPort=5\n", 0, 0, ""},
                    LineCase{"FirstKeyInOrderWinsOnALine", "DmsName = Port = 5\n", 0, 5, ""},
                    LineCase{"LastLineWithoutNewlineLosesItsLastCharacter", "DmsName = Server", 0,
                             0, "Serve"},
                    LineCase{"ShorterSecondValueKeepsTheFirstOnesTail",
                             "DmsName = LongName\nDmsName = A\n", 0, 0, "AongName"},
                    LineCase{"KeyAtEndOfFileWithNoValue", "DmsName = ", 0, 0, ""},
                    LineCase{"UnknownLinesSkipped", "Hello\n\nPort = 12\n", 0, 12, ""},
                    LineCase{"CarriageReturnStaysInTheText", "DmsName = Box\r\n", 0, 0, "Box\r"}),
    [](const auto& info) { return std::string(info.param.name); });

struct TextField {
  const char* key;
  char* field;
  size_t size;
};

class ConfigTextBounds : public ConfigFile, public testing::WithParamInterface<TextField> {};

// A field of N bytes takes N-1 characters plus the line end; one more aborts.
TEST_P(ConfigTextBounds, LongestValueFitsAndOneMoreFails) {
  const TextField& f = GetParam();
  std::string longest(f.size - 1, 'x');
  ASSERT_EQ(read(std::string(f.key) + longest + "\n"), 0);
  EXPECT_EQ(std::string(f.field), longest);
  memset(&gtDmsCfg, 0, sizeof gtDmsCfg);
  EXPECT_EQ(read(std::string(f.key) + longest + "y\n"), -1);
}

INSTANTIATE_TEST_SUITE_P(
    Fields, ConfigTextBounds,
    testing::Values(
        TextField{"IPAddress = ", gtDmsCfg.szIp, sizeof gtDmsCfg.szIp},
        TextField{"Interface = ", gtDmsCfg.szIf, sizeof gtDmsCfg.szIf},
        TextField{"IfLLA = ", gtDmsCfg.szIfLLA, sizeof gtDmsCfg.szIfLLA},
        TextField{"DmsName = ", gtDmsCfg.szDmsName, sizeof gtDmsCfg.szDmsName},
        TextField{"ContentList = ", gtDmsCfg.szContentLst, sizeof gtDmsCfg.szContentLst},
        TextField{"ModelName = ", gtDmsCfg.szModelName, sizeof gtDmsCfg.szModelName},
        TextField{"ManuFacturer = ", gtDmsCfg.szManuFacturer, sizeof gtDmsCfg.szManuFacturer},
        TextField{"ManuFacturerURL = ", gtDmsCfg.szManuFacturerURL,
                  sizeof gtDmsCfg.szManuFacturerURL},
        TextField{"DeviceURL = ", gtDmsCfg.szDeviceURL, sizeof gtDmsCfg.szDeviceURL},
        TextField{"SerialNumber = ", gtDmsCfg.szSerialNumber, sizeof gtDmsCfg.szSerialNumber}));

TEST_F(ConfigFile, TooLongValueStopsReadingAtItsLine) {
  EXPECT_EQ(read("DmsName = A\nIPAddress = " + std::string(40, '1') + "\nModelName = M\n"), -1);
  EXPECT_STREQ(gtDmsCfg.szDmsName, "A");
  EXPECT_STREQ(gtDmsCfg.szModelName, "");
}

TEST_F(ConfigFile, LongLineIsReadInPieces) {
  // The buffer holds 2,047 characters; the key lies in the second piece.
  ASSERT_EQ(read(std::string(2500, '#') + "Port = 9\n"), 0);
  EXPECT_EQ(gtDmsCfg.iPort, 9);
}

TEST_F(ConfigFile, MissingOrUnwritableFileFails) {
  EXPECT_EQ(_InitDmsConf(), -1);  // nothing written yet
  std::ofstream(g_tDmsPaths.config) << "Enable = 1\n";
  chmod(g_tDmsPaths.config.c_str(), 0444);
  if (access(g_tDmsPaths.config.c_str(), W_OK) != 0) {  // root writes anyway
    EXPECT_EQ(_InitDmsConf(), -1);
    EXPECT_EQ(gtDmsCfg.bEnable, 0);
  }
}

}  // namespace
