// Argument and answer access for the service handlers; see action.h.
#include "services/action.h"

#include <cstdlib>
#include <cstring>

#include "platform/alloc.h"

char* dlnaActionGetStr(const DlnaActionCtx* ctx, const char* name) {
  if (!ctx || !ctx->io || !ctx->request || !name) return nullptr;
  return ctx->io->getStr(ctx->request, name);
}

uint32_t dlnaActionGetUi4(const DlnaActionCtx* ctx, const char* name) {
  if (!name) return 0;
  char* text = dlnaActionGetStr(ctx, name);
  if (!text && strcmp(name, "ObjectID") == 0) text = dlnaActionGetStr(ctx, "ContainerID");
  if (!text) return 0;
  auto value = static_cast<uint32_t>(atoi(text));
  RetUB(text);
  return value;
}

int dlnaUpnpAddRes(DlnaActionCtx* ctx, const char* name, const char* value) {
  if (!ctx || !ctx->ok || !ctx->io || !ctx->request || !ctx->service || !name || !value) return 0;
  return ctx->io->addRes(ctx->request, ctx->service->serviceType, name, value);
}
