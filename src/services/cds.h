// ContentDirectory actions.
#pragma once

#include "upnp/service.h"

int _cdsGetSrchCap(DlnaActionCtx* ctx);
int _cdsGetSortCap(DlnaActionCtx* ctx);
int _cdsGetSysUpdateId(DlnaActionCtx* ctx);
int _cdsBrowse(DlnaActionCtx* ctx);
int _cdsSearch(DlnaActionCtx* ctx);
