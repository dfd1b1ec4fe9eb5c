// ContentDirectory actions.
#pragma once

#include "services/action.h"

int _cdsGetSrchCap(DlnaActionCtx* ctx);
int _cdsGetSortCap(DlnaActionCtx* ctx);
int _cdsGetSysUpdateId(DlnaActionCtx* ctx);
int _cdsBrowse(DlnaActionCtx* ctx);
int _cdsSearch(DlnaActionCtx* ctx);

#include <cstdint>
#include <string>

class TextBuffer;
struct DlnaEntry;

// The tree id of an object ID text, or -1. Well-known numeric ids are replaced
// in `text` by the ID text they stand for.
int _dlnaGetIdFromStr(std::string* text);

// Writes the direct children of `container` as a DIDL-Lite Result with
// NumberReturned and TotalMatches; the number written, or -1.
int _cdsBrowseChild(DlnaActionCtx* ctx, TextBuffer* buffer, uint32_t start, uint32_t count,
                    DlnaEntry* container, const char* filter, const std::string& idText);

// 1 when the object matches the search criteria, else 0.
int _dlnaMatchSearch(const char* criteria, DlnaEntry* entry);

// Writes the matching objects below `container` (descendants before their
// container); the number written, or -1 without a child list.
int _cdsSrchChildRec(TextBuffer* buffer, uint32_t start, uint32_t count, DlnaEntry* container,
                     const char* filter, const char* criteria, const std::string& idText);
