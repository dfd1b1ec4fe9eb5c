// Daemon configuration and the process's main flow.
//
// gtDmsCfg is read once by _InitDmsConf before any thread starts and only read
// afterwards. Its texts are fixed-width and rely on the record's zeroed storage
// for termination: the reading rules below may leave a stale tail, on purpose.
#pragma once

#include <cstdint>
#include <string>

struct DmsCfg {
  uint8_t bEnable;
  int32_t iPort;
  uint32_t dwTime;
  char szIp[32];
  char szIf[16];
  char szIfLLA[46];
  char szDmsName[129];
  char szContentLst[1025];
  char szModelName[64];
  char szManuFacturer[64];
  char szManuFacturerURL[256];
  char szDeviceURL[256];
  char szSerialNumber[64];
  int32_t iLocale;
};

extern DmsCfg gtDmsCfg;

// Where the daemon finds its files; options override the defaults.
struct DmsPaths {
  std::string config = "/var/tmp/dms.conf";
  std::string folderRequest = "/var/tmp/dms_folderfile.conf";
  std::string dataDir = "/etc/dms";
};

extern DmsPaths g_tDmsPaths;

// Reads g_tDmsPaths.config into gtDmsCfg: 0, or -1 when the file cannot be
// opened for reading and writing or a text value is too long for its field.
int _InitDmsConf();

// The process: options, configuration, start, then the signal loop. Returns the
// exit status.
int dmsMain(int argc, char** argv);
