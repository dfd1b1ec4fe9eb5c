// ConnectionManager and X_MS_MediaReceiverRegistrar actions. The server keeps
// no connections (media goes by plain HTTP GET), so the answers are fixed but
// for the source protocol list; the registrar authorises every client and
// remembers nothing.
#include "services/cms.h"

#include <optional>
#include <string>

#include "content/state_var.h"

// The state-variable module hands out a copy under its own lock, so the list
// cannot change under us while it is added to the response.
int cmsGetProtocolInfo(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  std::optional<std::string> source = dlnaGetVarValue(kCmsServiceId, "SourceProtocolInfo");
  dlnaUpnpAddRes(ctx, "Source", source ? source->c_str() : nullptr);
  dlnaUpnpAddRes(ctx, "Sink", "");
  return ctx->ok;
}

int cmsGetCurrentConnectionIds(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  dlnaUpnpAddRes(ctx, "ConnectionIDs", "0");
  return ctx->ok;
}

// The same answer for any ConnectionID asked for.
int cmsGetCurrentConnectionInfo(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  dlnaUpnpAddRes(ctx, "RcsID", "-1");
  dlnaUpnpAddRes(ctx, "AVTransportID", "-1");
  dlnaUpnpAddRes(ctx, "ProtocolInfo", "");
  dlnaUpnpAddRes(ctx, "PeerConnectionManager", "");
  dlnaUpnpAddRes(ctx, "PeerConnectionID", "-1");
  dlnaUpnpAddRes(ctx, "Direction", "Output");
  dlnaUpnpAddRes(ctx, "Status", "OK");
  return ctx->ok;
}

int msr_is_authorized(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  dlnaUpnpAddRes(ctx, "Result", "1");
  return ctx->ok;
}

int msr_register_device(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  return ctx->ok;
}

// Deliberately "0" while IsAuthorized answers "1"; do not align the two.
int msr_is_validated(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  dlnaUpnpAddRes(ctx, "Result", "0");
  return ctx->ok;
}
