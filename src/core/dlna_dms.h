// Start and stop of the media server, and the server-state record.
//
// Start and stop run on the main thread only. The subsystems the sequences call
// are reached through g_tDmsSubsystems; a null entry is a subsystem this build
// does not have, and its step is skipped as if it had succeeded.
#pragma once

#include "content/dlna_info.h"
#include "platform/config.h"

struct DmsSubsystems {
  // Creates the profile registry into info->registry and registers the profiles.
  void (*startProfiles)(DlnaInfo* info);
  // Releases info->registry.
  void (*stopProfiles)(DlnaInfo* info);
  // Opens and closes change notification (info->notifyFd, info->watches).
  void (*openNotify)(DlnaInfo* info);
  void (*closeNotify)(DlnaInfo* info);
  // Registers and advertises the device; negative on failure.
  int (*startDevice)(DlnaInfo* info, DmsCfg* cfg);
  int (*stopDevice)(DlnaInfo* info);
  // Builds the content tree from the shared folders.
  void (*buildLibrary)(DlnaInfo* info);
  // Signal work, run on the main thread: a folder request (SIGUSR1) and the
  // periodic rescan (SIGALRM, re-armed by the caller).
  void (*folderRequest)();
  void (*rescan)();
};

extern DmsSubsystems g_tDmsSubsystems;

// _dlnaInit(&g_tDlnaInfo), the hooks of the lower layers and the charset converter.
void _dlnaDmsInit();

// Starts the server when gtDmsCfg enables it: 0 (also when disabled), -1 when
// the server is not idle or the device cannot be started (then rolled back).
int _dlnaDmsStart();

// Stops a starting or running server and returns it to idle.
void _dlnaDmsStop();

// Frees the tree and the profile registry of `info`, then _dlnaInit.
void _dlnaReinit(DlnaInfo* info);
