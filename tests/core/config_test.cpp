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

TEST_F(ConfigFile, LinesAreReadAsTheDaemonReadsThem) {
  const struct {
    std::string text;
    int enable, port;
    const char* dmsName;
  } cases[] = {
      {"# Enable = 1\n", 1, 0, ""},  // a key behind other text
      {"Enable = 257\n", 1, 0, ""},  // the low eight bits only
      {"Enable = 256\n", 0, 0, ""},
      {"enable = 1\nPort=5\n", 0, 0, ""},   // keys are case-sensitive
      {"DmsName = Port = 5\n", 0, 5, ""},   // the first key in table order wins
      {"DmsName = Server", 0, 0, "Serve"},  // no line end: the last character goes
      {"DmsName = LongName\nDmsName = A\n", 0, 0, "AongName"},
      {"DmsName = ", 0, 0, ""},
      {"Hello\n\nPort = 12\n", 0, 12, ""},
      {"DmsName = Box\r\n", 0, 0, "Box\r"},
      // The buffer holds 2,047 characters; the key lies in the second piece.
      {std::string(2500, '#') + "Port = 9\n", 0, 9, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    memset(&gtDmsCfg, 0, sizeof gtDmsCfg);
    ASSERT_EQ(read(c.text), 0);
    EXPECT_EQ(gtDmsCfg.bEnable, c.enable);
    EXPECT_EQ(gtDmsCfg.iPort, c.port);
    EXPECT_STREQ(gtDmsCfg.szDmsName, c.dmsName);
  }
}

// A field of N bytes takes N-1 characters plus the line end; one more aborts.
TEST_F(ConfigFile, LongestValueFitsAndOneMoreFails) {
#define FIELD(key, field) \
  { key, gtDmsCfg.field, sizeof gtDmsCfg.field }
  const struct {
    const char* key;
    char* field;
    size_t size;
  } fields[] = {FIELD("IPAddress = ", szIp),
                FIELD("Interface = ", szIf),
                FIELD("IfLLA = ", szIfLLA),
                FIELD("DmsName = ", szDmsName),
                FIELD("ContentList = ", szContentLst),
                FIELD("ModelName = ", szModelName),
                FIELD("ManuFacturer = ", szManuFacturer),
                FIELD("ManuFacturerURL = ", szManuFacturerURL),
                FIELD("DeviceURL = ", szDeviceURL),
                FIELD("SerialNumber = ", szSerialNumber)};
#undef FIELD
  for (const auto& f : fields) {
    SCOPED_TRACE(f.key);
    std::string longest(f.size - 1, 'x');
    memset(&gtDmsCfg, 0, sizeof gtDmsCfg);
    ASSERT_EQ(read(std::string(f.key) + longest + "\n"), 0);
    EXPECT_EQ(std::string(f.field), longest);
    EXPECT_EQ(read(std::string(f.key) + longest + "y\n"), -1);
  }
}

TEST_F(ConfigFile, TooLongValueStopsReadingAtItsLine) {
  EXPECT_EQ(read("DmsName = A\nIPAddress = " + std::string(40, '1') + "\nModelName = M\n"), -1);
  EXPECT_STREQ(gtDmsCfg.szDmsName, "A");
  EXPECT_STREQ(gtDmsCfg.szModelName, "");
}

TEST_F(ConfigFile, FileThatCannotBeOpenedForWritingFails) {
  EXPECT_EQ(_InitDmsConf(), -1);            // nothing written yet
  g_tDmsPaths.config = testing::TempDir();  // a directory opens for reading only
  EXPECT_EQ(_InitDmsConf(), -1);
}

}  // namespace
