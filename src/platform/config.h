// The daemon's configuration record and the paths it reads its files from.
//
// gtDmsCfg is filled once before any thread starts and only read afterwards. Its
// texts are fixed-width and rely on the record's zeroed storage for
// termination: the reading rules may leave a stale tail, on purpose.
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
