// The server-state record and its reset; see dlna_info.h.
#include "content/dlna_info.h"

#include <cstring>

DlnaInfo g_tDlnaInfo;

void _dlnaInit(DlnaInfo* info) {
  if (!info) return;
  info->built = 0;
  info->state = kDmsIdle;
  info->nextId = kDlnaFirstId;
  info->systemUpdateId = 0;
  info->musicCount = 0;
  info->photoCount = 0;
  info->videoCount = 0;
  info->containerCount = 0;
  info->notifyFd = -1;
  info->deviceHandle = -1;
  memset(info->ip, 0, sizeof info->ip);
  info->port = 0;
  info->index = std::make_unique<DlnaIndex>();
  info->root = nullptr;
  info->registry = nullptr;
  info->watches = nullptr;
}
