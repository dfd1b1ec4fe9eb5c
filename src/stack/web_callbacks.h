// The web server's view of the daemon's files: a table of callbacks the stack
// calls for every GET or HEAD under a virtual directory, in the order header
// check, get-info, open, read/seek (or sendfile), header response, close. The
// types here are the stack's own, so the callbacks never see the HTTP
// libraries underneath.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

// Filled by get_info. content_type is a heap text (malloc/strdup or GetUB) that
// the stack frees; null means none.
struct DlnaFileInfo {
  int64_t file_length;
  time_t last_modified;
  int is_directory;
  int is_readable;
  char* content_type;
};

using DlnaWebFileHandle = void*;

// Ids the stack's request parser gives the headers it knows; any other header
// comes with a negative id.
inline constexpr int32_t kHttpHeaderHost = 7;
inline constexpr int32_t kHttpHeaderRange = 35;

// One request header as parsed: the name is a counted text (not terminated),
// the value is terminated. The header check may replace a negative id.
struct DlnaHttpHeader {
  const char* name;
  size_t nameLength;
  int32_t id;
  const char* value;
};

// A request as the callbacks see it; the headers live as long as the request.
struct DlnaHttpRequest {
  const char* method;
  DlnaHttpHeader* headers;
  size_t headerCount;
};

// What the stack is about to send, for the header response step's log.
struct DlnaHttpResponseState {
  int isChunkActive;
  int isRangeActive;
  int isTrailers;
  int isVirtualFile;
  const char* rangeHeader;  // the Content-Range value, or ""
  int64_t rangeOffset;
  int64_t readSendSize;
  int64_t recvWriteSize;
};

// Header lines the response step adds ("Name: value\r\n" each); the stack sends
// them with the response.
struct DlnaHttpResponseHeaders {
  std::string lines;
  void insert(const char* line) { lines += line; }
};

struct DlnaVirtualDirCallbacks {
  int (*get_info)(const char* filename, DlnaFileInfo* info);      // 0 or -1
  DlnaWebFileHandle (*open)(const char* filename, int mode);      // mode 0 reads; null on failure
  int (*read)(DlnaWebFileHandle file, char* buf, size_t length);  // bytes, 0 at end, < 0 error
  int (*write)(DlnaWebFileHandle file, char* buf, size_t length);
  int (*seek)(DlnaWebFileHandle file, int64_t offset, int origin);  // 0 or -1
  int (*close)(DlnaWebFileHandle file);                             // 0 or -1
  // Sets *status; any status but 200 ends the request with it. 0, or -1.
  int (*header_check)(DlnaHttpRequest* request, const char* filename, int* status);
  // Adds header lines to the response. 0 to go on, -1 on failure.
  int (*header_resp)(DlnaHttpRequest* request, const char* filename,
                     DlnaHttpResponseHeaders* headers, const DlnaHttpResponseState* state);
  // 1 and *fd set when the body may be sent from that descriptor, else 0.
  int (*sendfile)(DlnaWebFileHandle file, int* fd);
};
