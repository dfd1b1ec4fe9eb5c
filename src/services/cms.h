// ConnectionManager and X_MS_MediaReceiverRegistrar actions.
#pragma once

#include "services/action.h"

int cmsGetProtocolInfo(DlnaActionCtx* ctx);
int cmsGetCurrentConnectionIds(DlnaActionCtx* ctx);
int cmsGetCurrentConnectionInfo(DlnaActionCtx* ctx);

int msr_is_authorized(DlnaActionCtx* ctx);
int msr_register_device(DlnaActionCtx* ctx);
int msr_is_validated(DlnaActionCtx* ctx);
