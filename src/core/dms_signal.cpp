// Folder requests and the periodic rescan; see dms_signal.h.
#include "core/dms_signal.h"

#include <signal.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "content/folders.h"
#include "content/notify.h"
#include "content/state_var.h"
#include "core/dlna_dms.h"
#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "dms_main";
constexpr char kEnableKey[] = "Enable = ";
constexpr char kFolderKey[] = "FolderPath = ";

}  // namespace

void UsbSigHandler(int signal) {
  if (signal != SIGUSR1) return;
  DMS_LOG(kLogEvent, "UsbSigHandler!!!");
  FILE* file = fopen(g_tDmsPaths.folderRequest.c_str(), "r+");
  if (!file) return;
  uint8_t enable = 0;
  char folderPath[128] = {};
  char line[2048];
  while (fgets(line, sizeof line, file)) {
    if (const char* at = strstr(line, kEnableKey)) {
      enable = static_cast<uint8_t>(atoi(at + strlen(kEnableKey)));
      DMS_LOG(kLogTrace, "bEnable is %d", enable);
    } else if (const char* at = strstr(line, kFolderKey)) {
      const char* value = at + strlen(kFolderKey);
      const size_t len = strlen(value);
      if (len > sizeof folderPath) {
        fclose(file);
        return;
      }
      // The last character is taken to be the line end.
      const size_t kept = len > 0 ? len - 1 : 0;
      memcpy(folderPath, value, kept);
      folderPath[kept] = '\0';
      DMS_LOG(kLogTrace, "szFolderPath is %s", folderPath);
    }
  }
  if (enable != 0)
    dlnaAddFolder(folderPath);
  else
    dlnaDelFolder(folderPath);
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID",
                     static_cast<int32_t>(++g_tDlnaInfo.systemUpdateId));
  fclose(file);
}

void _dlnaExeRebuild() {
  DMS_LOG(kLogTrace, "_dlnaExeRebuild");
  dlnaGetNotify(&g_tDlnaInfo);
  alarm(gtDmsCfg.dwTime);
}
