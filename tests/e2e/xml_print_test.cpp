// The daemon's own XML printers are the ones libupnp calls: the dynamic
// linker's trace of the running daemon shows where libupnp's imports went.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "e2e/daemon.h"

namespace {

TEST(DaemonXmlPrint, LibupnpBindsToTheDaemonsPrinters) {
  DmsdProcess dmsd;
  const std::string trace = dmsd.dir() + "/ld";
  setenv("LD_DEBUG", "bindings", 1);
  setenv("LD_DEBUG_OUTPUT", trace.c_str(), 1);
  dmsd.startWithConfig("Enable = 0\n");
  unsetenv("LD_DEBUG");
  unsetenv("LD_DEBUG_OUTPUT");
  ASSERT_TRUE(dmsd.waitForLog("while(1)")) << dmsd.log();

  std::stringstream bindings;
  bindings << std::ifstream(trace + "." + std::to_string(dmsd.pid())).rdbuf();
  for (const char* name : {"ixmlPrintNode", "ixmlPrintDocument"}) {
    const std::string ours =
        std::string(" to ") + DMSD_BINARY + " [0]: normal symbol `" + name + "'";
    bool found = false;
    for (std::string line; std::getline(bindings, line);)
      found = found || (line.find("libupnp") != std::string::npos && line.size() >= ours.size() &&
                        line.compare(line.size() - ours.size(), ours.size(), ours) == 0);
    EXPECT_TRUE(found) << name;
    bindings.clear();
    bindings.seekg(0);
  }
  EXPECT_EQ(dmsd.stop(), 0);
}

}  // namespace
