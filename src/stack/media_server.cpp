// The media web server over libmicrohttpd: requests are answered once their
// headers are in, bodies of disk files go out by sendfile from a
// duplicate of the handle's descriptor, everything else through the read
// callback. The handle is closed when libmicrohttpd reports the request done,
// which it also does for a client that went away mid-stream.
#include "stack/media_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "media_server";
constexpr unsigned kThreads = 4;          // more than the cores: a slow USB disk blocks a sendfile
constexpr unsigned kMaxConnections = 64;  // a gateway's worth of renderers
constexpr unsigned kMaxPerClient = 32;    // one client cannot take every slot
constexpr unsigned kIdleTimeout = 300;    // seconds; paused renderers sit idle for a while
constexpr size_t kReadBlock = 32 * 1024;

// Header names the stack's request parser knows, with their ids.
struct KnownHeader {
  const char* name;
  int32_t id;
};

constexpr KnownHeader kKnownHeaders[] = {
    {"Host", kHttpHeaderHost},
    {"Range", kHttpHeaderRange},
};

struct Server {
  MHD_Daemon* daemon = nullptr;
  const DlnaVirtualDirCallbacks* callbacks = nullptr;
  uint16_t port = 0;
};

Server g_server;  // changed on the main thread only, while no request runs

// One request, from its headers to the completion report; the handle is open
// from open until then.
struct Transfer {
  const DlnaVirtualDirCallbacks* callbacks;
  DlnaWebFileHandle file;
};

void logFromLibrary(void*, const char* format, va_list args) {
  char text[512];
  vsnprintf(text, sizeof text, format, args);
  size_t n = strlen(text);
  if (n > 0 && text[n - 1] == '\n') text[n - 1] = '\0';
  DMS_LOG(kLogEvent, "%s", text);
}

MHD_Result collectHeader(void* cls, MHD_ValueKind, const char* key, size_t keySize,
                         const char* value, size_t) {
  auto* headers = static_cast<std::vector<DlnaHttpHeader>*>(cls);
  int32_t id = -1;
  for (const KnownHeader& known : kKnownHeaders)
    if (strlen(known.name) == keySize && strncasecmp(key, known.name, keySize) == 0) id = known.id;
  headers->push_back({key, keySize, id, value ? value : ""});
  return MHD_YES;
}

MHD_Result answer(MHD_Connection* connection, unsigned status, MHD_Response* response) {
  MHD_Result result = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return result;
}

// A status with an empty body (and optionally one header).
MHD_Result answerEmpty(MHD_Connection* connection, unsigned status, const char* header = nullptr,
                       const char* value = nullptr) {
  MHD_Response* response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
  if (!response) return MHD_NO;
  if (header) MHD_add_response_header(response, header, value);
  return answer(connection, status, response);
}

ssize_t readBody(void* cls, uint64_t, char* buf, size_t max) {
  auto* transfer = static_cast<Transfer*>(cls);
  int n = transfer->callbacks->read(transfer->file, buf, max);
  return n > 0 ? n : MHD_CONTENT_READER_END_WITH_ERROR;  // short of the promised length
}

ssize_t noBody(void*, uint64_t, char*, size_t) {
  return MHD_CONTENT_READER_END_WITH_ERROR;
}

// The body of `count` bytes from `first`: by sendfile when the callbacks give a
// descriptor, else by seek and read. Null on failure.
MHD_Response* bodyResponse(Transfer* transfer, int64_t first, int64_t count) {
  const DlnaVirtualDirCallbacks* cb = transfer->callbacks;
  int fd = -1;
  if (cb->sendfile && cb->sendfile(transfer->file, &fd) == 1 && fd >= 0) {
    // libmicrohttpd closes the descriptor it is given; the handle keeps its own.
    int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return nullptr;
    MHD_Response* response = MHD_create_response_from_fd_at_offset64(
        static_cast<uint64_t>(count), copy, static_cast<uint64_t>(first));
    if (!response) close(copy);
    return response;
  }
  if (first != 0 && (!cb->seek || cb->seek(transfer->file, first, SEEK_SET) != 0)) return nullptr;
  return MHD_create_response_from_callback(static_cast<uint64_t>(count), kReadBlock, readBody,
                                           transfer, nullptr);
}

// Adds "Name: value" lines (CRLF-separated) to the response.
void addHeaderLines(MHD_Response* response, const std::string& lines) {
  size_t start = 0;
  while (start < lines.size()) {
    size_t end = lines.find("\r\n", start);
    if (end == std::string::npos) end = lines.size();
    std::string line = lines.substr(start, end - start);
    start = end + 2;
    size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0) continue;
    size_t value = line.find_first_not_of(' ', colon + 1);
    MHD_add_response_header(response, line.substr(0, colon).c_str(),
                            value == std::string::npos ? "" : line.c_str() + value);
  }
}

std::string httpDate(time_t when) {
  char text[64];
  struct tm tm;
  gmtime_r(&when, &tm);
  strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &tm);
  return text;
}

const char* rangeValue(const DlnaHttpRequest& request) {
  for (size_t i = 0; i < request.headerCount; ++i)
    if (request.headers[i].id == kHttpHeaderRange) return request.headers[i].value;
  return nullptr;
}

// Everything but the header check and get-info: range, open, body, headers.
MHD_Result serveFile(MHD_Connection* connection, DlnaHttpRequest& request, const char* url,
                     const DlnaFileInfo& info, Transfer* transfer) {
  const DlnaVirtualDirCallbacks* cb = transfer->callbacks;
  const int64_t length = info.file_length;
  MediaByteRange range = MediaParseByteRange(rangeValue(request), length);
  if (range.kind == MediaByteRange::kUnsatisfiable) {
    std::string all = "bytes */" + std::to_string(length);
    return answerEmpty(connection, MHD_HTTP_RANGE_NOT_SATISFIABLE, MHD_HTTP_HEADER_CONTENT_RANGE,
                       all.c_str());
  }
  const bool part = range.kind == MediaByteRange::kPart;
  const int64_t first = part ? range.first : 0;
  const int64_t count = part ? range.count : length;

  MHD_Response* response;
  if (strcmp(request.method, MHD_HTTP_METHOD_HEAD) == 0) {
    response = MHD_create_response_from_callback(static_cast<uint64_t>(count), kReadBlock, noBody,
                                                 nullptr, nullptr);
  } else {
    transfer->file = cb->open(url, 0);  // closed when the request is reported done
    if (!transfer->file) return answerEmpty(connection, MHD_HTTP_NOT_FOUND);
    response = bodyResponse(transfer, first, count);
  }
  if (!response) return answerEmpty(connection, MHD_HTTP_INTERNAL_SERVER_ERROR);

  std::string contentRange;
  if (part) {
    contentRange = "bytes " + std::to_string(first) + "-" + std::to_string(first + count - 1) +
                   "/" + std::to_string(length);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_RANGE, contentRange.c_str());
  }
  const char* type =
      info.content_type && info.content_type[0] ? info.content_type : "application/octet-stream";
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
  MHD_add_response_header(response, MHD_HTTP_HEADER_ACCEPT_RANGES, "bytes");
  if (info.last_modified > 0)
    MHD_add_response_header(response, MHD_HTTP_HEADER_LAST_MODIFIED,
                            httpDate(info.last_modified).c_str());
  if (cb->header_resp) {
    DlnaHttpResponseState state = {0, part ? 1 : 0, 0, 1, contentRange.c_str(), first, count, 0};
    DlnaHttpResponseHeaders lines;
    if (cb->header_resp(&request, url, &lines, &state) < 0)
      DMS_LOG(kLogEvent, "header response failed for %s", url);
    addHeaderLines(response, lines.lines);
  }
  return answer(connection, part ? MHD_HTTP_PARTIAL_CONTENT : MHD_HTTP_OK, response);
}

MHD_Result onRequest(void*, MHD_Connection* connection, const char* url, const char* method,
                     const char*, const char*, size_t* uploadSize, void** context) {
  // Answering before the (empty) body is read would make libmicrohttpd close
  // the connection, so the first call only notes the request: renderers keep
  // their connection for the next range.
  if (!*context) {
    *context = new Transfer{g_server.callbacks, nullptr};
    return MHD_YES;
  }
  if (*uploadSize != 0) {  // uploads are not taken
    *uploadSize = 0;
    return MHD_YES;
  }
  const bool head = strcmp(method, MHD_HTTP_METHOD_HEAD) == 0;
  if (!head && strcmp(method, MHD_HTTP_METHOD_GET) != 0)
    return answerEmpty(connection, MHD_HTTP_METHOD_NOT_ALLOWED, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");

  auto* transfer = static_cast<Transfer*>(*context);
  const DlnaVirtualDirCallbacks* cb = transfer->callbacks;
  std::vector<DlnaHttpHeader> headers;
  MHD_get_connection_values_n(connection, MHD_HEADER_KIND, collectHeader, &headers);
  DlnaHttpRequest request = {method, headers.data(), headers.size()};
  int status = MHD_HTTP_OK;
  if (cb->header_check) cb->header_check(&request, url, &status);
  if (status != MHD_HTTP_OK) return answerEmpty(connection, static_cast<unsigned>(status));

  DlnaFileInfo info = {};
  if (!cb->get_info || cb->get_info(url, &info) != 0) {
    free(info.content_type);
    return answerEmpty(connection, MHD_HTTP_NOT_FOUND);
  }
  MHD_Result result;
  if (info.is_directory)
    result = answerEmpty(connection, MHD_HTTP_NOT_FOUND);
  else if (!info.is_readable)
    result = answerEmpty(connection, MHD_HTTP_FORBIDDEN);
  else
    result = serveFile(connection, request, url, info, transfer);
  free(info.content_type);
  return result;
}

void onCompleted(void*, MHD_Connection*, void** context, MHD_RequestTerminationCode) {
  auto* transfer = static_cast<Transfer*>(*context);
  if (!transfer) return;
  if (transfer->file) transfer->callbacks->close(transfer->file);
  delete transfer;
  *context = nullptr;
}

MHD_Daemon* startDaemon(const sockaddr_in& address) {
  const unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL | MHD_USE_ERROR_LOG;
  return MHD_start_daemon(
      flags, ntohs(address.sin_port), nullptr, nullptr, onRequest, nullptr,
      MHD_OPTION_EXTERNAL_LOGGER, logFromLibrary, nullptr, MHD_OPTION_SOCK_ADDR, &address,
      MHD_OPTION_THREAD_POOL_SIZE, kThreads, MHD_OPTION_CONNECTION_LIMIT, kMaxConnections,
      MHD_OPTION_PER_IP_CONNECTION_LIMIT, kMaxPerClient, MHD_OPTION_CONNECTION_TIMEOUT,
      kIdleTimeout, MHD_OPTION_NOTIFY_COMPLETED, onCompleted, nullptr, MHD_OPTION_END);
}

// Digits at *p as a number; false when there are none or too many.
bool readNumber(const char*& p, int64_t* value) {
  const char* start = p;
  while (*p >= '0' && *p <= '9') ++p;
  if (p == start || p - start > 18) return false;
  *value = strtoll(start, nullptr, 10);
  return true;
}

const char* skipBlanks(const char* p) {
  while (*p == ' ' || *p == '\t') ++p;
  return p;
}

}  // namespace

MediaByteRange MediaParseByteRange(const char* value, int64_t length) {
  const MediaByteRange whole = {MediaByteRange::kWhole, 0, length};
  const MediaByteRange unsatisfiable = {MediaByteRange::kUnsatisfiable, 0, 0};
  if (!value) return whole;
  const char* p = skipBlanks(value);
  if (strncasecmp(p, "bytes", 5) != 0) return whole;
  p = skipBlanks(p + 5);
  if (*p != '=' || strchr(p, ',')) return whole;
  p = skipBlanks(p + 1);
  int64_t first = 0;
  int64_t last = -1;
  const bool suffix = *p == '-';
  if (!suffix && !readNumber(p, &first)) return whole;
  if (*p++ != '-') return whole;
  if ((*p >= '0' && *p <= '9') && !readNumber(p, &last)) return whole;
  p = skipBlanks(p);
  if (*p != '\0' && *p != '/') return whole;
  if (suffix) {
    if (last < 0) return whole;
    if (last == 0 || length == 0) return unsatisfiable;
    first = last >= length ? 0 : length - last;
    return {MediaByteRange::kPart, first, length - first};
  }
  if (last >= 0 && last < first) return whole;
  if (first >= length) return unsatisfiable;
  if (last < 0 || last >= length) last = length - 1;
  return {MediaByteRange::kPart, first, last - first + 1};
}

int MediaServerStart(const char* ip, uint16_t port, const DlnaVirtualDirCallbacks* callbacks) {
  if (g_server.daemon || !callbacks) return -1;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (ip && ip[0] && inet_pton(AF_INET, ip, &address.sin_addr) != 1) {
    DMS_LOG(kLogFailure, "media server: bad address %s", ip);
    return -1;
  }
  g_server.callbacks = callbacks;
  g_server.daemon = startDaemon(address);
  if (!g_server.daemon && port != 0) {
    DMS_LOG(kLogEvent, "media server: port %u is not free, letting the system choose", port);
    address.sin_port = 0;
    g_server.daemon = startDaemon(address);
  }
  if (!g_server.daemon) {
    DMS_LOG(kLogFailure, "media server: cannot listen on %s", ip && ip[0] ? ip : "any address");
    g_server.callbacks = nullptr;
    return -1;
  }
  const MHD_DaemonInfo* bound = MHD_get_daemon_info(g_server.daemon, MHD_DAEMON_INFO_BIND_PORT);
  g_server.port = bound ? bound->port : port;
  DMS_LOG(kLogEvent, "media at http://%s:%u/web", ip && ip[0] ? ip : "*", g_server.port);
  return 0;
}

void MediaServerStop() {
  if (!g_server.daemon) return;
  MHD_stop_daemon(g_server.daemon);
  g_server = Server();
}

uint16_t MediaServerPort() {
  return g_server.port;
}
