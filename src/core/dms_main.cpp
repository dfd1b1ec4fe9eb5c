// The daemon's process: options, the configuration file, start-up, and a
// signal loop on the main thread that does the work the signals ask for.
#include "core/dms_main.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/dlna_dms.h"
#include "platform/alloc.h"
#include "platform/log.h"
#include "upnp/upnp_dms.h"

namespace {

constexpr char kLogSource[] = "dms_main";
constexpr char kVersion[] = "0.1.0";

struct DmsCfgKey {
  const char* key;
  const char* logFormat;
  char* text;                   // a text field, or null for a number
  size_t bound;                 // size of the text field
  int (*setNumber)(int value);  // stores a number; returns what to log
};

#define CFG_TEXT(key, field) \
  { key, "gtDmsCfg." #field " is %s", gtDmsCfg.field, sizeof gtDmsCfg.field, nullptr }

// Tried in this order on every line; the first key found anywhere in it wins.
constexpr DmsCfgKey kCfgKeys[] = {
    {"Enable = ", "gtDmsCfg.bEnable is %d", nullptr, 0,
     [](int v) { return static_cast<int>(gtDmsCfg.bEnable = static_cast<uint8_t>(v)); }},
    {"Port = ", "gtDmsCfg.iPort is %d", nullptr, 0, [](int v) { return gtDmsCfg.iPort = v; }},
    {"RescanTime = ", "gtDmsCfg.dwTime is %d", nullptr, 0,
     [](int v) { return static_cast<int>(gtDmsCfg.dwTime = static_cast<uint32_t>(v)); }},
    CFG_TEXT("IPAddress = ", szIp),
    CFG_TEXT("Interface = ", szIf),
    CFG_TEXT("IfLLA = ", szIfLLA),
    CFG_TEXT("DmsName = ", szDmsName),
    CFG_TEXT("ContentList = ", szContentLst),
    CFG_TEXT("ModelName = ", szModelName),
    CFG_TEXT("ManuFacturer = ", szManuFacturer),
    CFG_TEXT("ManuFacturerURL = ", szManuFacturerURL),
    CFG_TEXT("DeviceURL = ", szDeviceURL),
    CFG_TEXT("SerialNumber = ", szSerialNumber),
    {"Locale = ", "gtDmsCfg.iLocale is %d", nullptr, 0, [](int v) { return gtDmsCfg.iLocale = v; }},
};

#undef CFG_TEXT

void usage(FILE* out) {
  fprintf(out,
          "usage: dmsd [options]\n"
          "  --config FILE          configuration file (default /var/tmp/dms.conf)\n"
          "  --folder-request FILE  folder request file read on SIGUSR1\n"
          "                         (default /var/tmp/dms_folderfile.conf)\n"
          "  --data-dir DIR         default thumbnails (default /etc/dms)\n"
          "  --log-level N          log messages of level N and below (default 6; 8 traces)\n"
          "  --help                 this text\n"
          "  --version              the version\n");
}

// 0 to go on, else the exit status (+1) for dmsMain.
int parseOptions(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (strcmp(arg, "--help") == 0) {
      usage(stdout);
      return 1;
    }
    if (strcmp(arg, "--version") == 0) {
      printf("dmsd %s\n", kVersion);
      return 1;
    }
    const char* names[] = {"--config", "--folder-request", "--data-dir", "--log-level"};
    int which = -1;
    const char* value = nullptr;
    for (int k = 0; k < 4; ++k) {
      size_t len = strlen(names[k]);
      if (strncmp(arg, names[k], len) != 0) continue;
      if (arg[len] == '=') {
        value = arg + len + 1;
      } else if (arg[len] == '\0' && i + 1 < argc) {
        value = argv[++i];
      } else if (arg[len] != '\0') {
        continue;
      }
      which = k;
      break;
    }
    if (which < 0 || !value) {
      fprintf(stderr, "dmsd: %s '%s'\n", which < 0 ? "unknown option" : "missing value for", arg);
      usage(stderr);
      return 3;
    }
    switch (which) {
      case 0:
        g_tDmsPaths.config = value;
        break;
      case 1:
        g_tDmsPaths.folderRequest = value;
        break;
      case 2:
        g_tDmsPaths.dataDir = value;
        break;
      case 3: {
        char* end = nullptr;
        long level = strtol(value, &end, 10);
        if (*value == '\0' || *end != '\0' || level < 0 || level > 9) {
          fprintf(stderr, "dmsd: bad log level '%s'\n", value);
          usage(stderr);
          return 3;
        }
        g_iDmsLogLevel = static_cast<int>(level);
        break;
      }
    }
  }
  return 0;
}

// Waits for signals and runs their work here, one at a time. Returns on
// SIGTERM or SIGINT after a clean stop.
int signalLoop(const sigset_t& waited) {
  for (;;) {
    int sig = 0;
    if (sigwait(&waited, &sig) != 0) continue;
    switch (sig) {
      case SIGTERM:
      case SIGINT:
        DMS_LOG(kLogEvent, "signal %d, stopping", sig);
        _dlnaDmsStop();
        return 0;
      case SIGUSR1:
        if (g_tDmsSubsystems.folderRequest) g_tDmsSubsystems.folderRequest();
        break;
      case SIGALRM:
        // The rescan arms the next one itself; only a running server with a
        // rescan interval has one.
        if (g_tDmsSubsystems.rescan && gtDmsCfg.dwTime != 0 && g_tDlnaInfo.state == kDmsRunning)
          g_tDmsSubsystems.rescan();
        break;
      default:
        break;
    }
    // Tree changes leave their nodes among the holes of freed Browse texts;
    // hand whole free pages back after each job.
    dmsHeapTrim();
  }
}

}  // namespace

int _InitDmsConf() {
  FILE* file = fopen(g_tDmsPaths.config.c_str(), "r+");
  if (!file) return -1;
  char line[2048];
  while (fgets(line, sizeof line, file)) {
    for (const DmsCfgKey& key : kCfgKeys) {
      const char* at = strstr(line, key.key);
      if (!at) continue;
      const char* value = at + strlen(key.key);
      if (key.setNumber) {
        int shown = key.setNumber(atoi(value));
        DMS_LOG(kLogTrace, key.logFormat, shown);
      } else {
        size_t len = strlen(value);
        if (len > key.bound) {
          fclose(file);
          return -1;
        }
        // The last character is taken to be the line end; the field's zeroed
        // storage terminates the text.
        if (len > 0) memcpy(key.text, value, len - 1);
        DMS_LOG(kLogTrace, key.logFormat, key.text);
      }
      break;
    }
  }
  fclose(file);
  return 0;
}

int dmsMain(int argc, char** argv) {
  if (int status = parseOptions(argc, argv); status != 0) return status - 1;
  dmsHeapInit();

  // Every thread inherits this mask, so the signals reach only sigwait below.
  sigset_t waited;
  sigemptyset(&waited);
  for (int sig : {SIGTERM, SIGINT, SIGUSR1, SIGALRM}) sigaddset(&waited, sig);
  pthread_sigmask(SIG_BLOCK, &waited, nullptr);
  signal(SIGPIPE, SIG_IGN);

  // The device's UUID is kept beside the configuration.
  std::string configDir = g_tDmsPaths.config;
  size_t slash = configDir.rfind('/');
  configDir = slash == std::string::npos ? "." : configDir.substr(0, slash ? slash : 1);
  dlnaSetDeviceUuidFile((configDir + (configDir == "/" ? "" : "/") + "dms.uuid").c_str());

  if (_InitDmsConf() != 0) {
    DMS_LOG(kLogFailure, "cannot read configuration %s", g_tDmsPaths.config.c_str());
    return -1;
  }
  _dlnaDmsInit();
  if (gtDmsCfg.bEnable != 0) {
    if (int ret = _dlnaDmsStart(); ret != 0) return ret;
  } else {
    printf("Strange,dms disenabled but process dmsd started!");
    fflush(stdout);
  }
  if (dmsLogOn(kLogTrace)) ProcUserLog(kLogSource, __LINE__, "main", kLogTrace, 0, "while(1)");
  return signalLoop(waited);
}
