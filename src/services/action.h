// What a service handler sees of one action call: its arguments and its answer,
// behind two calls that the device layer provides. The handlers never see the
// stack's request record, so they run the same under any stack or test driver.
#pragma once

#include <cstdint>

// The device layer's access to one request, which stays opaque here.
struct DlnaActionIo {
  // A copy (free with RetUB) of the text of argument `name`, or null.
  char* (*getStr)(const void* request, const char* name);
  // Adds an output argument to the answer; 1 when added, else 0.
  int (*addRes)(void* request, const char* serviceType, const char* name, const char* value);
};

struct DlnaService;

// One action call: the request, whether the handler is still succeeding, and
// the service that matched.
struct DlnaActionCtx {
  void* request;
  const DlnaActionIo* io;
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

// A copy (free with RetUB) of the text of the action's argument `name`, or null.
char* dlnaActionGetStr(const DlnaActionCtx* ctx, const char* name);

// The argument as a number (atoi), 0 when missing; "ObjectID" falls back to
// "ContainerID", as Browse and Search name their container differently.
uint32_t dlnaActionGetUi4(const DlnaActionCtx* ctx, const char* name);

// Adds an output argument to the answer; 1 when added, else 0.
int dlnaUpnpAddRes(DlnaActionCtx* ctx, const char* name, const char* value);
