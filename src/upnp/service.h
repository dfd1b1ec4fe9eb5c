// Dispatch of what reaches the device from the stack's threads: SOAP actions by
// service and action name, state-variable queries and event subscriptions.
// Thread-safe: any number of stack threads may be inside at once.
#pragma once

#include <upnp/upnp.h>

#include <cstdint>

struct DlnaService;

// One action call: the request, whether the handler is still succeeding, and
// the service that matched.
struct DlnaActionCtx {
  UpnpActionRequest* request;
  uint8_t ok;
  const DlnaService* service;
};

// Returns non-zero for success (the context's ok flag).
using DlnaActionHandler = int (*)(DlnaActionCtx* ctx);

struct DlnaServiceAction {
  const char* name;
  DlnaActionHandler handler;
};

struct DlnaService {
  const char* serviceId;
  const char* serviceType;
  const DlnaServiceAction* actions;  // closed by {nullptr, nullptr}
};

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

// The argument as a number (atoi), 0 when missing; "ObjectID" falls back to
// "ContainerID".
uint32_t dlnaUpnpGetUi4(const UpnpActionRequest* request, const char* name);

// Adds an output argument to the response; 1 when added, else 0.
int dlnaUpnpAddRes(DlnaActionCtx* ctx, const char* name, const char* value);
