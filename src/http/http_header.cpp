// The DLNA transport headers: the table of request headers the server knows,
// the checks that refuse a request with 400 or 406, and the response lines
// that echo the transfer mode and announce the content features.
#include "http/http_header.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "content/dlna_info.h"
#include "content/metadata.h"
#include "platform/alloc.h"
#include "platform/log.h"
#include "profile/profile.h"

namespace {

constexpr char kLogSource[] = "http";
constexpr int kStatusOk = 200;
constexpr int kStatusBadRequest = 400;
constexpr int kStatusNotAcceptable = 406;
constexpr int kRespComplete = 200;

int checkNotSupportDlnaHeader(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                              int* status);
int checkDlnaHeaderGetContFeatus(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                                 int* status);
int checkDlnaHeaderRange(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                         int* status);
int checkNotSupportDlnaHeaderRealTimeInfo(DlnaHttpRequest*, const DlnaReqFileInfo*,
                                          const DlnaHttpHeader*, int* status);
int checkDlnaHeaderTransferMode(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                                int* status);
int respDlnaHeaderGetContFeatus(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                                DlnaHttpResponseHeaders*);
int respDlnaHeaderRange(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                        DlnaHttpResponseHeaders*);
int respDlnaHeaderTransferMode(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                               DlnaHttpResponseHeaders*);

// The three headers that are never supported share one refusing check.
constexpr DlnaHeaderCheck checkNotSupportDlnaHeaderAvaiSeekRange = checkNotSupportDlnaHeader;
constexpr DlnaHeaderCheck checkNotSupportDlnaHeaderPlaySpeed = checkNotSupportDlnaHeader;
constexpr DlnaHeaderCheck checkNotSupportDlnaHeaderTimeSeekRange = checkNotSupportDlnaHeader;

}  // namespace

const DlnaHeaderDesc HTTP_DLNA_Header_Names[kDlnaHeaderCount] = {
    {"availableSeekRange.dlna.org", 101, 0, checkNotSupportDlnaHeaderAvaiSeekRange, nullptr},
    {"getcontentFeatures.dlna.org", 103, 0, checkDlnaHeaderGetContFeatus,
     respDlnaHeaderGetContFeatus},
    {"PlaySpeed.dlna.org", 104, 0, checkNotSupportDlnaHeaderPlaySpeed, nullptr},
    {"Range", kHttpHeaderRange, 0, checkDlnaHeaderRange, respDlnaHeaderRange},
    {"realTimeInfo.dlna.org", 107, 0, checkNotSupportDlnaHeaderRealTimeInfo, nullptr},
    {"TimeSeekRange.dlna.org", 105, 0, checkNotSupportDlnaHeaderTimeSeekRange, nullptr},
    {"transferMode.dlna.org", 106, 0, checkDlnaHeaderTransferMode, respDlnaHeaderTransferMode},
};

// Only these three are ever checked or answered; the other rows stay unreached.
const int32_t DLNA_HEADER_PRI[kDlnaHeaderPriCount] = {103, 106, kHttpHeaderRange, 0, 0, 0, 0};

namespace {

// A counted name against a row's name: <0, 0, >0; a name that is a prefix of
// the row's sorts first.
int compareCounted(const char* name, size_t length, const char* rowName, bool caseSensitive) {
  size_t rowLength = strlen(rowName);
  size_t n = length < rowLength ? length : rowLength;
  int c = caseSensitive ? strncmp(name, rowName, n) : strncasecmp(name, rowName, n);
  if (c != 0) return c;
  return length < rowLength ? -1 : (length > rowLength ? 1 : 0);
}

std::string headerName(const DlnaHttpHeader& header) {
  return header.name ? std::string(header.name, header.nameLength) : std::string();
}

// Gives the DLNA headers the stack did not know their ids; true when a Host
// header is present.
bool identifyHeaders(DlnaHttpRequest* request) {
  bool host = false;
  for (size_t i = 0; i < request->headerCount; ++i) {
    DlnaHttpHeader& header = request->headers[i];
    if (header.id < 0) {
      int row = map_DLNA_Header_to_int(header.name, header.nameLength);
      if (row >= 0) header.id = HTTP_DLNA_Header_Names[row].id;
      DMS_LOG(kLogTrace, "header name:%s get id %d", headerName(header).c_str(), header.id);
    }
    if (header.id == kHttpHeaderHost) host = true;
  }
  return host;
}

// Visits the request's headers in DLNA_HEADER_PRI order (request order within
// one id) with their rows, until `visit` returns false.
template <typename Visit>
void walkInPriority(DlnaHttpRequest* request, Visit visit) {
  for (int32_t id : DLNA_HEADER_PRI) {
    if (id == 0) continue;
    for (size_t i = 0; i < request->headerCount; ++i) {
      const DlnaHttpHeader& header = request->headers[i];
      if (header.id != id) continue;
      const DlnaHeaderDesc* row = findDLNAHeaderEntry(id);
      if (row && !visit(header, *row)) return;
    }
  }
}

// Runs the checks in priority order; false (status set) at the first refusal.
bool checkHeaders(DlnaHttpRequest* request, const DlnaReqFileInfo* file, int* status) {
  bool passed = true;
  walkInPriority(request, [&](const DlnaHttpHeader& header, const DlnaHeaderDesc& row) {
    if (!row.check || row.check(request, file, &header, status) == 0) return true;
    DMS_LOG(kLogTrace, "Header Id %d check fail", header.id);
    passed = false;
    return false;
  });
  return passed;
}

int checkNotSupportDlnaHeader(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                              int* status) {
  *status = kStatusNotAcceptable;
  return -1;
}

int checkDlnaHeaderGetContFeatus(DlnaHttpRequest*, const DlnaReqFileInfo*,
                                 const DlnaHttpHeader* header, int* status) {
  if (header->value && strcmp(header->value, "1") == 0) return 0;
  DMS_LOG(kLogTrace, "check get ContentFeatures error!");
  *status = kStatusBadRequest;
  return -1;
}

int refuseTransferMode(int* status) {
  DMS_LOG(kLogTrace, "set piErrorCode 406");
  *status = kStatusNotAcceptable;
  return -1;
}

int checkDlnaHeaderTransferMode(DlnaHttpRequest*, const DlnaReqFileInfo* file,
                                const DlnaHttpHeader* header, int* status) {
  const char* value = header->value ? header->value : "";
  if (strcmp(value, "Streaming") == 0) return file->isImage ? refuseTransferMode(status) : 0;
  if (strcmp(value, "Interactive") == 0) return file->isImage ? 0 : refuseTransferMode(status);
  if (value[0] == '\0') return refuseTransferMode(status);
  return 0;  // Background and anything else
}

int checkDlnaHeaderRange(DlnaHttpRequest*, const DlnaReqFileInfo* file,
                         const DlnaHttpHeader* header, int* status) {
  if (header->id != kHttpHeaderRange) return -1;
  if (file->isImage) {
    *status = kStatusNotAcceptable;
    return -1;
  }
  DlnaBytesRange range;
  return parseDlnaBytesRange(header->value ? header->value : "", &range, status);
}

int checkNotSupportDlnaHeaderRealTimeInfo(DlnaHttpRequest* request, const DlnaReqFileInfo*,
                                          const DlnaHttpHeader*, int* status) {
  identifyHeaders(request);
  for (size_t i = 0; i < request->headerCount; ++i) {
    const DlnaHttpHeader& header = request->headers[i];
    if (header.id == 106 && header.value && strcmp(header.value, "Interactive") == 0) {
      *status = kStatusBadRequest;
      return -1;
    }
  }
  return 0;
}

int respDlnaHeaderGetContFeatus(DlnaHttpRequest*, const DlnaReqFileInfo* file,
                                const DlnaHttpHeader*, DlnaHttpResponseHeaders* response) {
  std::string protocol;
  {
    std::shared_lock lock(g_tDlnaInfo.lock);
    const DlnaEntry* entry = dlnaGetEntry(&g_tDlnaInfo, file->objectId);
    if (!entry || !entry->isItem()) return 0;
    protocol = dlnaWriteProtocolInfo(1, 0, entry);
  }
  size_t colon = protocol.rfind(':');
  const char* features = colon == std::string::npos ? protocol.c_str() : &protocol[colon + 1];
  char line[512];
  snprintf(line, sizeof line, "contentFeatures.dlna.org: %s\r\n", features);
  response->insert(line);
  return 0;
}

int respDlnaHeaderRange(DlnaHttpRequest*, const DlnaReqFileInfo*, const DlnaHttpHeader*,
                        DlnaHttpResponseHeaders*) {
  return kRespComplete;  // the stack writes Content-Range itself
}

int respDlnaHeaderTransferMode(DlnaHttpRequest*, const DlnaReqFileInfo*,
                               const DlnaHttpHeader* header, DlnaHttpResponseHeaders* response) {
  if (!header->value) return 0;
  char line[128];
  snprintf(line, sizeof line, "transferMode.dlna.org: %s\r\n", header->value);
  response->insert(line);
  return 0;
}

// Copies at most 31 characters of a counted text into a range field.
void storeText(char (&field)[32], const char* text, size_t length) {
  size_t n = length < sizeof field - 1 ? length : sizeof field - 1;
  memcpy(field, text, n);
  field[n] = '\0';
}

int refuseRange(int* status) {
  *status = kStatusBadRequest;
  return -1;
}

}  // namespace

const DlnaHeaderDesc* findDLNAHeaderEntry(int32_t id) {
  for (const DlnaHeaderDesc& row : HTTP_DLNA_Header_Names) {
    if (row.id == id) {
      DMS_LOG(kLogTrace, "found head Id %d", id);
      return &row;
    }
  }
  return nullptr;
}

int map_DLNA_Header_to_int(const char* name, size_t length) {
  if (!name) return -1;
  int low = 0;
  int high = static_cast<int>(kDlnaHeaderCount) - 1;
  while (low <= high) {
    int mid = (low + high) / 2;
    const DlnaHeaderDesc& row = HTTP_DLNA_Header_Names[mid];
    int c = compareCounted(name, length, row.name, row.caseSensitive != 0);
    if (c == 0) return mid;
    if (c < 0)
      high = mid - 1;
    else
      low = mid + 1;
  }
  return -1;
}

size_t findNotNum(const char* text, size_t length) {
  size_t count = 0;
  for (size_t i = 0; i < length && text[i]; ++i)
    if (!isdigit(static_cast<unsigned char>(text[i]))) ++count;
  return count;
}

int parseDlnaBytesRange(const char* value, DlnaBytesRange* range, int* status) {
  if (!value || !range || !status) return -1;
  *range = {};
  const char* bytes = strstr(value, "bytes");
  if (!bytes || bytes[5] != '=') return refuseRange(status);
  const char* first = bytes + 6;
  const char* dash = strchr(first, '-');
  if (!dash) return refuseRange(status);
  size_t firstLength = static_cast<size_t>(dash - first);
  if (findNotNum(first, firstLength) != 0) return refuseRange(status);
  storeText(range->firstText, first, firstLength);
  range->first = atoll(range->firstText);  // empty: a suffix range reads as 0

  const char* last = dash + 1;
  const char* slash = strchr(last, '/');
  if (!slash) {
    storeText(range->lastText, last, strnlen(last, 255));
    range->last = atoll(last);
    return 0;
  }
  size_t lastLength = static_cast<size_t>(slash - last);
  if (findNotNum(last, lastLength) != 0) return refuseRange(status);
  storeText(range->lastText, last, lastLength);
  range->last = atoll(range->lastText);

  const char* instance = slash + 1;
  if (strcmp(instance, "*") != 0 && findNotNum(instance, strlen(instance)) != 0)
    return refuseRange(status);
  storeText(range->instanceText, instance, strlen(instance));
  range->instanceLength = atoll(instance);
  return 0;
}

int _dlnaHttpHeaderCheck(DlnaHttpRequest* request, const char* url, int* status) {
  DMS_LOG(kLogTrace, "_dlnaHttpHeaderCheck\n");
  if (!request || !status) {
    DMS_LOG(kLogTrace, "http req is null.");
    return -1;
  }
  *status = kStatusOk;
  DlnaReqFileInfo file = {};
  parseFileInfo(url, &file);
  bool host = identifyHeaders(request);
  if (checkHeaders(request, &file, status) && !host) *status = kStatusBadRequest;
  RetUB(file.path);
  return 0;
}

int _dlnaHttpHeaderResp(DlnaHttpRequest* request, const char* url,
                        DlnaHttpResponseHeaders* response, const DlnaHttpResponseState* state) {
  if (!request || !response) return -1;
  if (state) {
    DMS_LOG(kLogTrace,
            "RespInst IsChunkActive %d, IsRangeActive %d, IsTrailers %d,  IsVirtualFile %d, "
            "RangeHeader %s, RangeOffset %d, ReadSendSize %d, RecvWriteSize %d",
            state->isChunkActive, state->isRangeActive, state->isTrailers, state->isVirtualFile,
            state->rangeHeader ? state->rangeHeader : "", static_cast<int>(state->rangeOffset),
            static_cast<int>(state->readSendSize), static_cast<int>(state->recvWriteSize));
  }
  DlnaReqFileInfo file = {};
  parseFileInfo(url, &file);
  int result = 0;
  walkInPriority(request, [&](const DlnaHttpHeader& header, const DlnaHeaderDesc& row) {
    if (!row.resp) return true;
    result = row.resp(request, &file, &header, response);
    if (result == -1) {
      DMS_LOG(kLogTrace, "Header Id %d response fail", header.id);
      return false;
    }
    if (result != kRespComplete) return true;
    DMS_LOG(kLogTrace, "Header Id %d response complete", header.id);
    result = 0;
    return false;
  });
  RetUB(file.path);
  return result;
}
