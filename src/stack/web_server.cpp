// The device's web server over libmicrohttpd. A request is answered once its
// headers (and for SOAP its bounded body) are in: bodies of disk files go out
// by sendfile from a duplicate of the handle's descriptor, everything else
// through the read callback or from memory. The handle is closed, and a new
// subscription's initial event released, when libmicrohttpd reports the
// request done, which it also does for a client that went away.
#include "stack/web_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <unistd.h>
#include <upnp/ixml.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/log.h"
#include "stack/gena.h"
#include "stack/soap.h"

namespace {

constexpr char kLogSource[] = "web_server";
constexpr unsigned kThreads = 4;           // more than the cores: a slow USB disk blocks a sendfile
constexpr unsigned kMaxConnections = 256;  // a gateway's worth of control points and renderers
constexpr unsigned kMaxPerClient = 64;     // one client cannot take every slot
constexpr unsigned kRequestTimeout = 15;   // seconds an idle connection may wait for its request
constexpr unsigned kStreamTimeout = 300;   // seconds; paused renderers sit idle for a while
constexpr size_t kConnectionMemory =
    10 * 1024;  // holds the request line and headers, and the answer's
constexpr size_t kReadBlock = 32 * 1024;
constexpr char kServerHeader[] = "Linux UPnP/1.0 DLNA/1.50 dmsd/0.1";

// Header names the stack's request parser knows, with their ids.
struct KnownHeader {
  const char* name;
  int32_t id;
};

constexpr KnownHeader kKnownHeaders[] = {
    {"Host", kHttpHeaderHost},
    {"Range", kHttpHeaderRange},
};

// The description and what was read from it; replaced whole.
struct Published {
  std::string description;
  std::string udn;
  std::vector<WebService> services;
};

struct Server {
  MHD_Daemon* daemon = nullptr;
  const DlnaVirtualDirCallbacks* callbacks = nullptr;
  WebDevice device;
  std::string ip;
  uint16_t port = 0;
  std::mutex publishedMutex;
  std::shared_ptr<const Published> published;
};

Server g_server;  // changed on the main thread only, while no request runs
std::atomic<size_t> g_maxBody{16000};

// One request, from its headers to the completion report: a file handle open
// from open until then, a SOAP body, a subscription whose initial event waits
// for the answer.
struct Transfer {
  const DlnaVirtualDirCallbacks* callbacks = nullptr;
  DlnaWebFileHandle file = nullptr;
  std::string body;
  bool bodyTooLarge = false;
  std::string releaseSid;
};

std::shared_ptr<const Published> published() {
  std::lock_guard lock(g_server.publishedMutex);
  return g_server.published;
}

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
  MHD_add_response_header(response, "SERVER", kServerHeader);
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

const char* header(MHD_Connection* connection, const char* name) {
  return MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
}

sockaddr_in clientOf(MHD_Connection* connection) {
  sockaddr_in client = {};
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  if (info && info->client_addr && info->client_addr->sa_family == AF_INET)
    memcpy(&client, info->client_addr, sizeof client);
  return client;
}

// A Host naming anything but this server (a DNS-rebinding page's name) is
// refused; an absent one is left to the request's own rules.
bool hostAllowed(const char* host) {
  if (!host) return true;
  std::string text(host);
  const std::string& ip = g_server.ip;
  if (strncasecmp(text.c_str(), ip.c_str(), ip.size()) != 0) return false;
  std::string rest = text.substr(ip.size());
  return rest.empty() || rest == ":" + std::to_string(g_server.port);
}

MHD_Response* textResponse(const std::string& text, const char* type) {
  MHD_Response* response = MHD_create_response_from_buffer(
      text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY);
  if (response && type) MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
  return response;
}

const WebService* serviceBy(const Published& pub, const char* url, bool control) {
  for (const WebService& service : pub.services)
    if ((control ? service.controlUrl : service.eventUrl) == url) return &service;
  return nullptr;
}

MHD_Result serveSoap(MHD_Connection* connection, const Published& pub, const WebService& service,
                     Transfer* transfer) {
  if (transfer->bodyTooLarge) return answerEmpty(connection, MHD_HTTP_CONTENT_TOO_LARGE);
  SoapTarget target = {service.serviceId.c_str(), pub.udn.c_str(), g_server.device.callback,
                       g_server.device.cookie, clientOf(connection)};
  auto* soap = new SoapAnswer(SoapHandle(transfer->body, header(connection, "SOAPACTION"), target));
  transfer->body.clear();
  transfer->body.shrink_to_fit();
  const unsigned status = soap->status;
  if (soap->size() == 0) {
    delete soap;
    return answerEmpty(connection, status);
  }
  // The parts go out as they are and are freed with the response.
  const MHD_IoVec parts[] = {
      {soap->head.data(), soap->head.size()},
      {soap->printed ? soap->printed : "", soap->printed ? strlen(soap->printed) : 0},
      {soap->tail.data(), soap->tail.size()},
  };
  MHD_Response* response = MHD_create_response_from_iovec(
      parts, 3, [](void* cls) { delete static_cast<SoapAnswer*>(cls); }, soap);
  if (!response) {
    delete soap;
    return MHD_NO;
  }
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/xml; charset=\"utf-8\"");
  MHD_add_response_header(response, "EXT", "");
  return answer(connection, status, response);
}

MHD_Result serveGena(MHD_Connection* connection, const char* method, const Published& pub,
                     const WebService& service, Transfer* transfer) {
  const char* sid = header(connection, "SID");
  const char* nt = header(connection, "NT");
  const char* callback = header(connection, "CALLBACK");
  if (sid && (nt || callback)) return answerEmpty(connection, MHD_HTTP_BAD_REQUEST);
  const char* serviceId = service.serviceId.c_str();
  if (strcmp(method, "UNSUBSCRIBE") == 0)
    return answerEmpty(connection, sid ? GenaUnsubscribe(serviceId, sid) : 412);

  const char* timeout = header(connection, "TIMEOUT");
  GenaReply reply = sid ? GenaRenew(serviceId, sid, timeout)
                        : GenaSubscribe(serviceId, clientOf(connection), callback, nt, timeout);
  if (reply.status != MHD_HTTP_OK) return answerEmpty(connection, reply.status);
  if (!sid && g_server.device.callback) {
    // The device accepts it with its evented values: the initial event.
    UpnpSubscriptionRequest* request = UpnpSubscriptionRequest_new();
    if (request) {
      UpnpSubscriptionRequest_strcpy_ServiceId(request, serviceId);
      UpnpSubscriptionRequest_strcpy_UDN(request, pub.udn.c_str());
      UpnpSubscriptionRequest_strcpy_SID(request, reply.sid.c_str());
      g_server.device.callback(UPNP_EVENT_SUBSCRIPTION_REQUEST, request,
                               const_cast<void*>(g_server.device.cookie));
      UpnpSubscriptionRequest_delete(request);
    }
    transfer->releaseSid = reply.sid;
  }
  MHD_Response* response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
  if (!response) return MHD_NO;
  MHD_add_response_header(response, "SID", reply.sid.c_str());
  MHD_add_response_header(response, "TIMEOUT", ("Second-" + std::to_string(reply.timeout)).c_str());
  return answer(connection, MHD_HTTP_OK, response);
}

MHD_Result serveFiles(MHD_Connection* connection, const char* url, const char* method,
                      Transfer* transfer) {
  const DlnaVirtualDirCallbacks* cb = transfer->callbacks;
  if (!cb) return answerEmpty(connection, MHD_HTTP_NOT_FOUND);
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
  if (info.is_directory) {
    result = answerEmpty(connection, MHD_HTTP_NOT_FOUND);
  } else if (!info.is_readable) {
    result = answerEmpty(connection, MHD_HTTP_FORBIDDEN);
  } else {
    // A renderer that pauses keeps its connection quiet for a long time.
    MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT, kStreamTimeout);
    result = serveFile(connection, request, url, info, transfer);
  }
  free(info.content_type);
  return result;
}

MHD_Result onRequest(void*, MHD_Connection* connection, const char* url, const char* method,
                     const char*, const char* upload, size_t* uploadSize, void** context) {
  // Answering before the body is read would make libmicrohttpd close the
  // connection, so the first call only notes the request: clients keep their
  // connection for the next one.
  if (!*context) {
    auto* transfer = new Transfer;
    transfer->callbacks = g_server.callbacks;
    *context = transfer;
    return MHD_YES;
  }
  auto* transfer = static_cast<Transfer*>(*context);
  if (*uploadSize != 0) {
    // Only control bodies are kept, and only up to the limit.
    if (strcmp(method, MHD_HTTP_METHOD_POST) == 0 && !transfer->bodyTooLarge) {
      if (transfer->body.size() + *uploadSize > g_maxBody.load(std::memory_order_relaxed)) {
        transfer->bodyTooLarge = true;
        transfer->body.clear();
        transfer->body.shrink_to_fit();
      } else {
        transfer->body.append(upload, *uploadSize);
      }
    }
    *uploadSize = 0;
    return MHD_YES;
  }
  if (!hostAllowed(header(connection, MHD_HTTP_HEADER_HOST)))
    return answerEmpty(connection, MHD_HTTP_FORBIDDEN);

  std::shared_ptr<const Published> pub = published();
  const bool head = strcmp(method, MHD_HTTP_METHOD_HEAD) == 0;
  const bool get = strcmp(method, MHD_HTTP_METHOD_GET) == 0;
  if (strcmp(method, MHD_HTTP_METHOD_POST) == 0) {
    const WebService* service = pub ? serviceBy(*pub, url, true) : nullptr;
    if (!service) return answerEmpty(connection, MHD_HTTP_NOT_FOUND);
    return serveSoap(connection, *pub, *service, transfer);
  }
  if (strcmp(method, "SUBSCRIBE") == 0 || strcmp(method, "UNSUBSCRIBE") == 0) {
    const WebService* service = pub ? serviceBy(*pub, url, false) : nullptr;
    if (!service) return answerEmpty(connection, MHD_HTTP_NOT_FOUND);
    return serveGena(connection, method, *pub, *service, transfer);
  }
  if (!get && !head)
    return answerEmpty(connection, MHD_HTTP_METHOD_NOT_ALLOWED, MHD_HTTP_HEADER_ALLOW,
                       "GET, HEAD, POST, SUBSCRIBE, UNSUBSCRIBE");
  if (strcmp(url, kWebDescriptionPath) == 0) {
    if (!pub) return answerEmpty(connection, MHD_HTTP_NOT_FOUND);
    MHD_Response* response =
        textResponse(head ? std::string() : pub->description, "text/xml; charset=\"utf-8\"");
    return response ? answer(connection, MHD_HTTP_OK, response) : MHD_NO;
  }
  return serveFiles(connection, url, method, transfer);
}

void onCompleted(void*, MHD_Connection*, void** context, MHD_RequestTerminationCode) {
  auto* transfer = static_cast<Transfer*>(*context);
  if (!transfer) return;
  if (transfer->file) transfer->callbacks->close(transfer->file);
  if (!transfer->releaseSid.empty()) GenaRelease(transfer->releaseSid);
  delete transfer;
  *context = nullptr;
}

MHD_Daemon* startDaemon(const sockaddr_in& address) {
  const unsigned flags =
      MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_EPOLL | MHD_USE_ITC | MHD_USE_ERROR_LOG;
  return MHD_start_daemon(
      flags, ntohs(address.sin_port), nullptr, nullptr, onRequest, nullptr,
      MHD_OPTION_EXTERNAL_LOGGER, logFromLibrary, nullptr, MHD_OPTION_SOCK_ADDR, &address,
      MHD_OPTION_THREAD_POOL_SIZE, kThreads, MHD_OPTION_CONNECTION_LIMIT, kMaxConnections,
      MHD_OPTION_PER_IP_CONNECTION_LIMIT, kMaxPerClient, MHD_OPTION_CONNECTION_TIMEOUT,
      kRequestTimeout, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,
      MHD_OPTION_NOTIFY_COMPLETED, onCompleted, nullptr, MHD_OPTION_END);
}

// The text of the first element child of `parent` named `name`, or "".
std::string childText(IXML_Node* parent, const char* name) {
  for (IXML_Node* n = ixmlNode_getFirstChild(parent); n; n = ixmlNode_getNextSibling(n)) {
    const char* nodeName = ixmlNode_getNodeName(n);
    if (ixmlNode_getNodeType(n) != eELEMENT_NODE || !nodeName || strcmp(nodeName, name) != 0)
      continue;
    IXML_Node* text = ixmlNode_getFirstChild(n);
    const char* value = text ? ixmlNode_getNodeValue(text) : nullptr;
    return value ? value : "";
  }
  return "";
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

int WebServerStart(const char* ip, uint16_t port, const DlnaVirtualDirCallbacks* callbacks,
                   const WebDevice& device) {
  if (g_server.daemon || !ip) return -1;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_pton(AF_INET, ip, &address.sin_addr) != 1) {
    DMS_LOG(kLogFailure, "web server: bad address %s", ip);
    return -1;
  }
  g_server.callbacks = callbacks;
  g_server.device = device;
  g_server.ip = ip;
  g_server.daemon = startDaemon(address);
  if (!g_server.daemon && port != 0) {
    DMS_LOG(kLogEvent, "web server: port %u is not free, letting the system choose", port);
    address.sin_port = 0;
    g_server.daemon = startDaemon(address);
  }
  if (!g_server.daemon) {
    DMS_LOG(kLogFailure, "web server: cannot listen on %s", ip);
    WebServerStop();
    return -1;
  }
  const MHD_DaemonInfo* bound = MHD_get_daemon_info(g_server.daemon, MHD_DAEMON_INFO_BIND_PORT);
  g_server.port = bound ? bound->port : port;
  if (GenaStart() != 0) {
    DMS_LOG(kLogFailure, "web server: cannot start the event sender");
    WebServerStop();
    return -1;
  }
  DMS_LOG(kLogEvent, "serving http://%s:%u/", ip, g_server.port);
  return 0;
}

int WebServerSetDescription(const std::string& description) {
  IXML_Document* doc = nullptr;
  if (ixmlParseBufferEx(description.c_str(), &doc) != IXML_SUCCESS || !doc) return -1;
  auto pub = std::make_shared<Published>();
  pub->description = description;
  IXML_NodeList* devices = ixmlDocument_getElementsByTagName(doc, "device");
  if (IXML_Node* device = devices ? ixmlNodeList_item(devices, 0) : nullptr)
    pub->udn = childText(device, "UDN");
  ixmlNodeList_free(devices);
  IXML_NodeList* services = ixmlDocument_getElementsByTagName(doc, "service");
  for (unsigned long i = 0; services && i < ixmlNodeList_length(services); ++i) {
    IXML_Node* service = ixmlNodeList_item(services, i);
    pub->services.push_back({childText(service, "serviceId"), childText(service, "serviceType"),
                             childText(service, "controlURL"), childText(service, "eventSubURL")});
  }
  ixmlNodeList_free(services);
  ixmlDocument_free(doc);
  std::lock_guard lock(g_server.publishedMutex);
  g_server.published = std::move(pub);
  return 0;
}

void WebServerStop() {
  if (g_server.daemon) MHD_stop_daemon(g_server.daemon);
  GenaStop();
  g_server.daemon = nullptr;
  g_server.callbacks = nullptr;
  g_server.device = WebDevice();
  g_server.ip.clear();
  g_server.port = 0;
  std::lock_guard lock(g_server.publishedMutex);
  g_server.published.reset();
}

uint16_t WebServerPort() {
  return g_server.port;
}

void WebServerSetMaxBody(size_t bytes) {
  g_maxBody.store(bytes, std::memory_order_relaxed);
}
