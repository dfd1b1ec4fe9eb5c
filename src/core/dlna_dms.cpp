// The server's start and stop sequences; see dlna_dms.h.
#include "core/dlna_dms.h"

#include <signal.h>
#include <unistd.h>

#include <cstring>

#include "content/library.h"
#include "content/metadata.h"
#include "content/notify.h"
#include "content/state_var.h"
#include "core/dms_signal.h"
#include "platform/ctype.h"
#include "platform/log.h"
#include "profile/profile.h"
#include "upnp/upnp_dms.h"

namespace {
constexpr char kLogSource[] = "dlna_dms";

void startProfiles(DlnaInfo* info) {
  info->registry = dlnaMMInit();
  dlnaSetExtCheck(info->registry, 1);
  dlnaRegMediaProfile(info->registry);
}

void stopProfiles(DlnaInfo* info) {
  dlnaMMUninit(info->registry);
}
}  // namespace

DmsSubsystems g_tDmsSubsystems = {
    .startProfiles = startProfiles,
    .stopProfiles = stopProfiles,
    .openNotify = [](DlnaInfo* info) { dlnaRegNotify(info); },
    .closeNotify = dlnaUnregNotify,
    .startDevice = dlnaInitUpnp,
    .stopDevice = dlnaFinishUpnp,
    .buildLibrary = dlnaBuildMetaLst,
    .folderRequest = [] { UsbSigHandler(SIGUSR1); },
    .rescan = _dlnaExeRebuild,
};

void _dlnaDmsInit() {
  _dlnaInit(&g_tDlnaInfo);
  // The lower layers report through hooks: variable changes go out as events,
  // and every profiled file grows SourceProtocolInfo.
  dlnaSetVarNotifier(dlnaNotifyVarChange);
  dlnaSetProfileSink(dlnaAddSourceProtocolInfo);
  ctypeInit(1, kCtypeDetect);
}

int _dlnaDmsStart() {
  DlnaInfo* info = &g_tDlnaInfo;
  if (info->state != kDmsIdle) return -1;
  if (gtDmsCfg.bEnable == 0) return 0;
  // The tree lock is a member of the record and lives as long as it does.
  info->state = kDmsStarting;
  dlnaInitVarValue();
  if (g_tDmsSubsystems.startProfiles) g_tDmsSubsystems.startProfiles(info);
  DMS_LOG(kLogTrace, "DMS started with notify!");
  if (gtDmsCfg.dwTime != 0) {
    DMS_LOG(kLogTrace, "DMS started with notify, rescantime interval is %ds", gtDmsCfg.dwTime);
    if (g_tDmsSubsystems.openNotify) g_tDmsSubsystems.openNotify(info);
    // SIGALRM is blocked; the main thread's signal loop runs the rescan.
    alarm(gtDmsCfg.dwTime);
  }
  info->port = gtDmsCfg.iPort;
  static_assert(sizeof info->ip == sizeof gtDmsCfg.szIp);
  memcpy(info->ip, gtDmsCfg.szIp, sizeof info->ip);
  if (g_tDmsSubsystems.startDevice && g_tDmsSubsystems.startDevice(info, &gtDmsCfg) < 0) {
    DMS_LOG(kLogFailure, "dlnaInitUpnp fail");
    _dlnaDmsStop();
    return -1;
  }
  info->state = kDmsRunning;
  info->built = 1;
  if (g_tDmsSubsystems.buildLibrary) g_tDmsSubsystems.buildLibrary(info);
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", static_cast<int32_t>(++info->systemUpdateId));
  DMS_LOG(kLogEvent, "DMS started successful!");
  return 0;
}

void _dlnaDmsStop() {
  DlnaInfo* info = &g_tDlnaInfo;
  if (info->state != kDmsRunning && info->state != kDmsStarting) return;
  info->state = kDmsStopping;
  if (g_tDmsSubsystems.stopDevice) g_tDmsSubsystems.stopDevice(info);
  dlnaFreeMetaLst(info);
  if (g_tDmsSubsystems.closeNotify) g_tDmsSubsystems.closeNotify(info);
  alarm(0);  // a rescan must not fire into a stopped server
  dlnaFreeVarValue();
  _dlnaReinit(info);
  info->state = kDmsIdle;
}

void _dlnaReinit(DlnaInfo* info) {
  if (!info) return;
  if (info->root) {
    dlnaFreeEntry(info, info->root);
    info->root = nullptr;
  }
  if (info->registry) {
    if (g_tDmsSubsystems.stopProfiles) g_tDmsSubsystems.stopProfiles(info);
    info->registry = nullptr;
  }
  _dlnaInit(info);
}
