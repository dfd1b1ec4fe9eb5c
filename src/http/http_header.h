// The DLNA transport headers: which request headers the server accepts
// (getcontentFeatures.dlna.org, transferMode.dlna.org, Range) and the lines it
// answers them with. The stack calls the check before it answers and the
// response step while it builds the response headers; the byte range itself is
// the stack's to serve. Both steps are thread-safe (read-only tables).
#pragma once

#include <cstddef>
#include <cstdint>

#include "http/http.h"
#include "stack/web_callbacks.h"

using DlnaHeaderCheck = int (*)(DlnaHttpRequest* request, const DlnaReqFileInfo* file,
                                const DlnaHttpHeader* header, int* status);
using DlnaHeaderResp = int (*)(DlnaHttpRequest* request, const DlnaReqFileInfo* file,
                               const DlnaHttpHeader* header, DlnaHttpResponseHeaders* response);

struct DlnaHeaderDesc {
  const char* name;
  int32_t id;
  uint8_t caseSensitive;
  DlnaHeaderCheck check;  // 0 accepts; -1 refuses with *status set
  DlnaHeaderResp resp;    // 0 goes on, 200 ends the response step, -1 fails; may be null
};

inline constexpr size_t kDlnaHeaderCount = 7;
inline constexpr size_t kDlnaHeaderPriCount = 7;

// Sorted by name without regard to case: map_DLNA_Header_to_int searches it.
extern const DlnaHeaderDesc HTTP_DLNA_Header_Names[kDlnaHeaderCount];
// The header ids checked and answered, in this order (0: empty slot).
extern const int32_t DLNA_HEADER_PRI[kDlnaHeaderPriCount];

// A parsed "bytes=first-last[/length]" value; only the parse's success is used.
struct DlnaBytesRange {
  int64_t first;
  char firstText[32];
  int64_t last;
  char lastText[32];
  int64_t instanceLength;
  char instanceText[32];
};

int _dlnaHttpHeaderCheck(DlnaHttpRequest* request, const char* url, int* status);
int _dlnaHttpHeaderResp(DlnaHttpRequest* request, const char* url,
                        DlnaHttpResponseHeaders* response, const DlnaHttpResponseState* state);

// The row with header id `id`, or null.
const DlnaHeaderDesc* findDLNAHeaderEntry(int32_t id);
// Row index 0..6 of the header named by the counted text, or -1.
int map_DLNA_Header_to_int(const char* name, size_t length);
// 0, or -1 with *status 400.
int parseDlnaBytesRange(const char* value, DlnaBytesRange* range, int* status);
// How many of the first `length` characters of `text` are not decimal digits.
size_t findNotNum(const char* text, size_t length);
