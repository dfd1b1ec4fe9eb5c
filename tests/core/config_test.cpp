// Reading the configuration file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

#include "core/dms_main.h"

namespace {

class ConfigFile : public testing::Test {
 protected:
  void SetUp() override {
    g_tDmsPaths.config = testing::TempDir() + "dmsd-" + std::to_string(getpid()) + ".conf";
    memset(&gtDmsCfg, 0, sizeof gtDmsCfg);
  }
  void TearDown() override {
    unlink(g_tDmsPaths.config.c_str());
    g_tDmsPaths = DmsPaths();
    memset(&gtDmsCfg, 0, sizeof gtDmsCfg);
  }
  int read(const std::string& text) {
    std::ofstream(g_tDmsPaths.config, std::ios::binary) << text;
    return _InitDmsConf();
  }
};

TEST_F(ConfigFile, NumbersAndTextsFromSeveralLines) {
  ASSERT_EQ(read("Enable = 1\nPort = 8200\nRescanTime = 30\nDmsName = Home\nLocale = -3\n"), 0);
  EXPECT_EQ(gtDmsCfg.bEnable, 1);
  EXPECT_EQ(gtDmsCfg.iPort, 8200);
  EXPECT_EQ(gtDmsCfg.dwTime, 30u);
  EXPECT_STREQ(gtDmsCfg.szDmsName, "Home");
  EXPECT_EQ(gtDmsCfg.iLocale, -3);
}

struct LineCase {
  const char* name;
  const char* text;
  int enable;
  int port;
  const char* dmsName;
};

// ctest lists a case by its name, not its bytes.
void PrintTo(const LineCase& c, std::ostream* os) {
  *os << c.name;
}

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

void PrintTo(const TextField& c, std::ostream* os) {
  *os << c.key;
}

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

#define FIELD(key, field)                      \
  TextField {                                  \
    key, gtDmsCfg.field, sizeof gtDmsCfg.field \
  }
INSTANTIATE_TEST_SUITE_P(Fields, ConfigTextBounds,
                         testing::Values(FIELD("IPAddress = ", szIp), FIELD("Interface = ", szIf),
                                         FIELD("IfLLA = ", szIfLLA), FIELD("DmsName = ", szDmsName),
                                         FIELD("ContentList = ", szContentLst),
                                         FIELD("ModelName = ", szModelName),
                                         FIELD("ManuFacturer = ", szManuFacturer),
                                         FIELD("ManuFacturerURL = ", szManuFacturerURL),
                                         FIELD("DeviceURL = ", szDeviceURL),
                                         FIELD("SerialNumber = ", szSerialNumber)));
#undef FIELD

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

TEST_F(ConfigFile, FileThatCannotBeOpenedForWritingFails) {
  EXPECT_EQ(_InitDmsConf(), -1);            // nothing written yet
  g_tDmsPaths.config = testing::TempDir();  // a directory opens for reading only
  EXPECT_EQ(_InitDmsConf(), -1);
}

}  // namespace
