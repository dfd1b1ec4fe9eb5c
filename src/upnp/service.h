// Dispatch of what reaches the device from the stack's threads: SOAP actions by
// service and action name, state-variable queries and event subscriptions.
// Thread-safe: any number of stack threads may be inside at once.
#pragma once

#include <upnp/upnp.h>

#include <cstdint>

#include "services/action.h"

// ContentDirectory, ConnectionManager, MediaReceiverRegistrar; closed by a null row.
extern const DlnaService g_tServices[];

// The stack's callback for the device: event types 0 (action), 2 (variable
// query) and 8 (subscription); everything else is ignored. Always 0.
int _dlnaDevCallbackEvHdl(Upnp_EventType type, const void* event, void* cookie);

// 1 when the request's service and action are both known, else 0; *service is
// set when the service matched even if the action did not.
int dlnaFindServiceAction(const UpnpActionRequest* request, const DlnaService** service,
                          const DlnaServiceAction** action);

// A copy (free with RetUB) of the text of the action's argument `name`, or null.
char* dlnaUpnpGetStr(const UpnpActionRequest* request, const char* name);

// dlnaActionGetUi4 on a request of the stack.
uint32_t dlnaUpnpGetUi4(const UpnpActionRequest* request, const char* name);

// The handlers' access to requests of the stack.
extern const DlnaActionIo g_tUpnpActionIo;
