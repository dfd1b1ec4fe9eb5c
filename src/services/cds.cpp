// ContentDirectory actions: the capabilities, the SystemUpdateID, Browse and
// Search.
#include "services/cds.h"

#include <optional>
#include <string>

#include "upnp/state_var.h"

int _cdsGetSrchCap(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  dlnaUpnpAddRes(ctx, "SearchCaps", "dc:title,upnp:class,res@protocolInfo");
  return ctx->ok;
}

int _cdsGetSortCap(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  // No sorting is offered; SortCriteria is ignored.
  dlnaUpnpAddRes(ctx, "SortCaps", "");
  return ctx->ok;
}

int _cdsGetSysUpdateId(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  std::optional<std::string> id = dlnaGetVarValue(kCdsServiceId, "SystemUpdateID");
  dlnaUpnpAddRes(ctx, "Id", id ? id->c_str() : nullptr);
  return ctx->ok;
}

// Until the tree is browsable, Browse fails as it does for a missing object.
int _cdsBrowse(DlnaActionCtx* ctx) {
  if (ctx) ctx->ok = 0;
  return 0;
}

// Until the tree is searchable, Search fails the way Browse does.
int _cdsSearch(DlnaActionCtx* ctx) {
  if (ctx) ctx->ok = 0;
  return 0;
}
