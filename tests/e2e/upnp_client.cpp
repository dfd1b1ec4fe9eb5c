#include "e2e/upnp_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <upnp/ixml.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

namespace e2e {

namespace {

using Clock = std::chrono::steady_clock;

// Owns a descriptor.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

char lowerChar(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return lowerChar(x) == lowerChar(y);
         });
}

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
    s.remove_suffix(1);
  return s;
}

int millisLeft(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(std::min<int64_t>(left.count(), INT32_MAX));
}

// Waits until `fd` is ready for `events`; false on timeout or error.
bool waitReady(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    pollfd p{fd, events, 0};
    int n = poll(&p, 1, millisLeft(deadline));
    if (n > 0) return true;
    if (n == 0 || errno != EINTR) return false;
  }
}

std::string errnoText(const char* what) {
  return std::string(what) + ": " + strerror(errno);
}

std::optional<sockaddr_in> resolve(const std::string& host, uint16_t port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  if (inet_pton(AF_INET, host.c_str(), &addr.sin_addr) == 1) return addr;
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || !found) return std::nullopt;
  addr.sin_addr = reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr;
  freeaddrinfo(found);
  return addr;
}

int connectTo(const Url& url, Clock::time_point deadline, std::string& error) {
  auto addr = resolve(url.host, url.port);
  if (!addr) {
    error = "cannot resolve " + url.host;
    return -1;
  }
  Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (fd.get() < 0) {
    error = errnoText("socket");
    return -1;
  }
  if (connect(fd.get(), reinterpret_cast<sockaddr*>(&*addr), sizeof *addr) != 0) {
    if (errno != EINPROGRESS) {
      error = errnoText("connect");
      return -1;
    }
    if (!waitReady(fd.get(), POLLOUT, deadline)) {
      error = "connect timed out";
      return -1;
    }
    int soError = 0;
    socklen_t len = sizeof soError;
    getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &soError, &len);
    if (soError != 0) {
      error = std::string("connect: ") + strerror(soError);
      return -1;
    }
  }
  return fd.release();
}

bool sendAll(int fd, std::string_view data, Clock::time_point deadline, std::string& error) {
  while (!data.empty()) {
    ssize_t n = send(fd, data.data(), data.size(), MSG_NOSIGNAL);
    if (n > 0) {
      data.remove_prefix(static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      if (waitReady(fd, POLLOUT, deadline)) continue;
      error = "send timed out";
      return false;
    }
    error = errnoText("send");
    return false;
  }
  return true;
}

// A request or response as it came off the wire.
struct Message {
  std::string startLine;
  Fields headers;
  std::string body;
  bool chunked = false;
};

// Splits a header block (without the empty line) into start line and fields.
void parseHead(std::string_view head, Message& msg) {
  bool first = true;
  while (!head.empty()) {
    size_t end = head.find('\n');
    std::string_view line = head.substr(0, end);
    head.remove_prefix(end == std::string_view::npos ? head.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (first) {
      msg.startLine = line;
      first = false;
      continue;
    }
    if (line.empty()) continue;
    if ((line.front() == ' ' || line.front() == '\t') && !msg.headers.empty()) {
      msg.headers.back().second += " " + std::string(trim(line));  // folded line
      continue;
    }
    size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
      msg.headers.emplace_back(std::string(trim(line)), "");
    } else {
      msg.headers.emplace_back(std::string(trim(line.substr(0, colon))),
                               std::string(trim(line.substr(colon + 1))));
    }
  }
}

enum class Chunks { kIncomplete, kDone, kMalformed };

// Decodes a chunked body at the start of `data` once it is complete.
Chunks decodeChunked(std::string_view data, std::string& body) {
  body.clear();
  for (;;) {
    size_t lineEnd = data.find("\r\n");
    if (lineEnd == std::string_view::npos) return Chunks::kIncomplete;
    std::string_view sizeText = trim(data.substr(0, data.find_first_of(";\r")));
    size_t size = 0;
    auto [ptr, ec] = std::from_chars(sizeText.data(), sizeText.data() + sizeText.size(), size, 16);
    if (ec != std::errc() || ptr != sizeText.data() + sizeText.size() || sizeText.empty()) {
      return Chunks::kMalformed;
    }
    data.remove_prefix(lineEnd + 2);
    if (size == 0) {
      // Trailers, then the empty line.
      for (;;) {
        size_t end = data.find("\r\n");
        if (end == std::string_view::npos) return Chunks::kIncomplete;
        if (end == 0) return Chunks::kDone;
        data.remove_prefix(end + 2);
      }
    }
    if (data.size() < size + 2) return Chunks::kIncomplete;
    if (data.substr(size, 2) != "\r\n") return Chunks::kMalformed;
    body.append(data.substr(0, size));
    data.remove_prefix(size + 2);
  }
}

// Reads one message. A message that has neither a length nor chunks has no
// body when `toCloseWithoutLength` is false (requests), else it ends at the
// close (responses).
bool readMessage(int fd, Clock::time_point deadline, bool bodyAllowed, bool toCloseWithoutLength,
                 Message& msg, std::string& error) {
  std::string data;
  size_t headEnd = std::string::npos;
  std::optional<size_t> length;
  char buffer[16384];
  for (;;) {
    if (headEnd == std::string::npos) {
      size_t at = data.find("\r\n\r\n");
      if (at != std::string::npos) {
        headEnd = at + 4;
        parseHead(std::string_view(data).substr(0, at), msg);
        if (!bodyAllowed) return true;
        auto encoding = findField(msg.headers, "Transfer-Encoding");
        msg.chunked = encoding && equalsIgnoreCase(trim(*encoding), "chunked");
        auto lengthText = findField(msg.headers, "Content-Length");
        if (!msg.chunked && lengthText) {
          size_t n = 0;
          auto [ptr, ec] =
              std::from_chars(lengthText->data(), lengthText->data() + lengthText->size(), n);
          if (ec != std::errc() || ptr != lengthText->data() + lengthText->size()) {
            error = "bad Content-Length: " + *lengthText;
            return false;
          }
          length = n;
        } else if (!msg.chunked && !toCloseWithoutLength) {
          return true;
        }
      }
    }
    if (headEnd != std::string::npos) {
      std::string_view rest = std::string_view(data).substr(headEnd);
      if (msg.chunked) {
        Chunks state = decodeChunked(rest, msg.body);
        if (state == Chunks::kDone) return true;
        if (state == Chunks::kMalformed) {
          error = "malformed chunked body";
          return false;
        }
      } else if (length && rest.size() >= *length) {
        msg.body = rest.substr(0, *length);
        return true;
      }
    }
    if (!waitReady(fd, POLLIN, deadline)) {
      error = "read timed out after " + std::to_string(data.size()) + " bytes";
      return false;
    }
    ssize_t n = recv(fd, buffer, sizeof buffer, 0);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
      error = errnoText("recv");
      return false;
    }
    if (n == 0) {
      if (headEnd == std::string::npos) {
        error = "connection closed before the end of the header (" + std::to_string(data.size()) +
                " bytes)";
        return false;
      }
      if (!msg.chunked && !length) {
        msg.body = data.substr(headEnd);
        return true;
      }
      error =
          "connection closed inside the body (" + std::to_string(data.size() - headEnd) + " bytes)";
      return false;
    }
    data.append(buffer, static_cast<size_t>(n));
  }
}

std::string xmlEscape(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string localName(IXML_Node* node) {
  if (const char* local = ixmlNode_getLocalName(node)) return local;
  std::string name = ixmlNode_getNodeName(node) ? ixmlNode_getNodeName(node) : "";
  size_t colon = name.find(':');
  return colon == std::string::npos ? name : name.substr(colon + 1);
}

XmlElement convert(IXML_Node* node) {
  XmlElement element;
  element.name = localName(node);
  if (const char* ns = ixmlNode_getNamespaceURI(node)) element.ns = ns;
  if (IXML_NamedNodeMap* attributes = ixmlNode_getAttributes(node)) {
    for (unsigned long i = 0; i < ixmlNamedNodeMap_getLength(attributes); ++i) {
      IXML_Node* a = ixmlNamedNodeMap_item(attributes, i);
      const char* value = ixmlNode_getNodeValue(a);
      element.attributes.emplace_back(ixmlNode_getNodeName(a), value ? value : "");
    }
    ixmlNamedNodeMap_free(attributes);
  }
  for (IXML_Node* c = ixmlNode_getFirstChild(node); c; c = ixmlNode_getNextSibling(c)) {
    switch (ixmlNode_getNodeType(c)) {
      case eELEMENT_NODE:
        element.children.push_back(convert(c));
        break;
      case eTEXT_NODE:
      case eCDATA_SECTION_NODE:
        if (const char* value = ixmlNode_getNodeValue(c)) element.text += value;
        break;
      default:
        break;
    }
  }
  return element;
}

std::optional<uint32_t> parseUint(std::string_view text) {
  uint32_t n = 0;
  text = trim(text);
  auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
  if (ec != std::errc() || ptr != text.data() + text.size() || text.empty()) return std::nullopt;
  return n;
}

// Reads the SOAP body of an answer into `result`.
void readSoapBody(SoapResult& result) {
  std::string error;
  auto envelope = parseXml(result.http.body, &error);
  if (!envelope) {
    result.parseError = "body does not parse: " + error;
    return;
  }
  const XmlElement* body = envelope->name == "Envelope" ? envelope->child("Body") : nullptr;
  if (!body || body->children.empty()) {
    result.parseError = "no SOAP Body element with content";
    return;
  }
  const XmlElement& answer = body->children.front();
  result.responseName = answer.name;
  result.responseNamespace = answer.ns;
  if (answer.name == "Fault") {
    result.fault = true;
    const XmlElement* upnpError = answer.find({"detail", "UPnPError"});
    if (!upnpError) {
      result.parseError = "fault without detail/UPnPError";
      return;
    }
    if (const XmlElement* code = upnpError->child("errorCode")) {
      result.errorCode = static_cast<int>(parseUint(code->text).value_or(0));
    }
    if (const XmlElement* description = upnpError->child("errorDescription")) {
      result.errorDescription = description->text;
    }
    return;
  }
  for (const XmlElement& argument : answer.children) {
    result.out.emplace_back(argument.name, argument.text);
  }
}

SoapResult postSoap(const Url& control, std::string_view soapAction, std::string_view inner,
                    std::chrono::milliseconds timeout) {
  std::string envelope =
      "<?xml version=\"1.0\" encoding=\"utf-8\"?>"
      "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
      "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>" +
      std::string(inner) + "</s:Body></s:Envelope>";
  SoapResult result;
  result.http = httpRequest(control, "POST",
                            {{"Content-Type", "text/xml; charset=\"utf-8\""},
                             {"SOAPACTION", "\"" + std::string(soapAction) + "\""}},
                            envelope, timeout);
  if (result.http.status == 0) {
    result.parseError = "no answer: " + result.http.error;
    return result;
  }
  readSoapBody(result);
  return result;
}

// An eventfd that wakes a thread's poll for shutdown.
int makeStopFd() {
  return eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void wake(int stopFd) {
  uint64_t one = 1;
  if (write(stopFd, &one, sizeof one) < 0) {
    // The reader stops at its next poll timeout anyway.
  }
}

}  // namespace

std::optional<std::string> findField(const Fields& fields, std::string_view name) {
  for (const auto& [key, value] : fields) {
    if (equalsIgnoreCase(key, name)) return value;
  }
  return std::nullopt;
}

// ---- HTTP ----

std::string Url::text() const {
  return "http://" + host + ":" + std::to_string(port) + path;
}

std::optional<Url> parseUrl(std::string_view url) {
  constexpr std::string_view scheme = "http://";
  if (url.size() < scheme.size() || !equalsIgnoreCase(url.substr(0, scheme.size()), scheme)) {
    return std::nullopt;
  }
  url.remove_prefix(scheme.size());
  size_t slash = url.find('/');
  std::string_view authority = url.substr(0, slash);
  Url result;
  result.path = slash == std::string_view::npos ? "/" : std::string(url.substr(slash));
  size_t colon = authority.rfind(':');
  if (colon != std::string_view::npos) {
    auto port = parseUint(authority.substr(colon + 1));
    if (!port || *port == 0 || *port > 65535) return std::nullopt;
    result.port = static_cast<uint16_t>(*port);
    authority = authority.substr(0, colon);
  }
  if (authority.empty()) return std::nullopt;
  result.host = authority;
  return result;
}

HttpResponse httpRequest(const Url& url, std::string_view method, const Fields& headers,
                         std::string_view body, std::chrono::milliseconds timeout) {
  HttpResponse response;
  auto deadline = Clock::now() + timeout;
  Fd fd(connectTo(url, deadline, response.error));
  if (fd.get() < 0) return response;

  std::string request = std::string(method) + " " + url.path + " HTTP/1.1\r\n";
  if (!findField(headers, "Host")) {
    request += "HOST: " + url.host + ":" + std::to_string(url.port) + "\r\n";
  }
  for (const auto& [name, value] : headers) request += name + ": " + value + "\r\n";
  if (!body.empty() && !findField(headers, "Content-Length")) {
    request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }
  if (!findField(headers, "Connection")) request += "Connection: close\r\n";
  request += "\r\n";
  request += body;
  if (!sendAll(fd.get(), request, deadline, response.error)) return response;

  Message msg;
  if (!readMessage(fd.get(), deadline, method != "HEAD", true, msg, response.error)) {
    return response;
  }
  // "HTTP/1.1 200 OK"
  std::string_view line = msg.startLine;
  size_t space = line.find(' ');
  if (line.substr(0, 5) != "HTTP/" || space == std::string_view::npos) {
    response.error = "bad status line: " + msg.startLine;
    return response;
  }
  std::string_view rest = line.substr(space + 1);
  size_t codeEnd = rest.find(' ');
  auto code = parseUint(rest.substr(0, codeEnd));
  if (!code) {
    response.error = "bad status line: " + msg.startLine;
    return response;
  }
  response.reason = codeEnd == std::string_view::npos ? "" : std::string(rest.substr(codeEnd + 1));
  response.headers = std::move(msg.headers);
  response.body = std::move(msg.body);
  response.chunked = msg.chunked;
  response.status = static_cast<int>(*code);
  return response;
}

HttpResponse httpGet(const Url& url, std::chrono::milliseconds timeout) {
  return httpRequest(url, "GET", {}, {}, timeout);
}

// ---- XML ----

const XmlElement* XmlElement::child(std::string_view childName) const {
  for (const XmlElement& c : children) {
    if (c.name == childName) return &c;
  }
  return nullptr;
}

std::vector<const XmlElement*> XmlElement::all(std::string_view childName) const {
  std::vector<const XmlElement*> found;
  for (const XmlElement& c : children) {
    if (c.name == childName) found.push_back(&c);
  }
  return found;
}

const XmlElement* XmlElement::find(std::initializer_list<std::string_view> path) const {
  const XmlElement* at = this;
  for (std::string_view step : path) {
    at = at->child(step);
    if (!at) return nullptr;
  }
  return at;
}

std::optional<XmlElement> parseXml(std::string_view text, std::string* error) {
  std::string copy(text);  // the parser wants a terminated text
  IXML_Document* doc = nullptr;
  int rc = ixmlParseBufferEx(copy.c_str(), &doc);
  if (rc != IXML_SUCCESS || !doc) {
    if (error) *error = "ixml error " + std::to_string(rc);
    if (doc) ixmlDocument_free(doc);
    return std::nullopt;
  }
  std::optional<XmlElement> root;
  for (IXML_Node* c = ixmlNode_getFirstChild(reinterpret_cast<IXML_Node*>(doc)); c;
       c = ixmlNode_getNextSibling(c)) {
    if (ixmlNode_getNodeType(c) == eELEMENT_NODE) {
      root = convert(c);
      break;
    }
  }
  ixmlDocument_free(doc);
  if (!root && error) *error = "no document element";
  return root;
}

// ---- SOAP ----

SoapResult soapAction(const Url& control, std::string_view serviceType, std::string_view action,
                      const Fields& args, std::chrono::milliseconds timeout) {
  std::string inner =
      "<u:" + std::string(action) + " xmlns:u=\"" + std::string(serviceType) + "\">";
  for (const auto& [name, value] : args) {
    inner += "<" + name + ">" + xmlEscape(value) + "</" + name + ">";
  }
  inner += "</u:" + std::string(action) + ">";
  return postSoap(control, std::string(serviceType) + "#" + std::string(action), inner, timeout);
}

SoapResult queryStateVariable(const Url& control, std::string_view varName,
                              std::chrono::milliseconds timeout) {
  constexpr std::string_view kControl = "urn:schemas-upnp-org:control-1-0";
  std::string inner = "<u:QueryStateVariable xmlns:u=\"" + std::string(kControl) +
                      "\"><u:varName>" + xmlEscape(varName) + "</u:varName></u:QueryStateVariable>";
  return postSoap(control, std::string(kControl) + "#QueryStateVariable", inner, timeout);
}

std::string describe(const SoapResult& result) {
  std::string text = "HTTP " + std::to_string(result.http.status) + " " + result.http.reason;
  if (!result.http.error.empty()) text += " (" + result.http.error + ")";
  if (!result.parseError.empty()) text += "; " + result.parseError;
  if (result.fault) {
    text += "; fault " + std::to_string(result.errorCode) + " \"" + result.errorDescription + "\"";
  }
  text += "; body: " + result.http.body;
  return text;
}

// ---- GENA ----

EventListener::EventListener() {
  Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (fd.get() < 0) return;
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  if (bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      listen(fd.get(), 16) != 0 ||
      getsockname(fd.get(), reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
    return;
  }
  stopFd_ = makeStopFd();
  if (stopFd_ < 0) return;
  port_ = ntohs(addr.sin_port);
  fd_ = fd.release();
  thread_ = std::thread([this] { serve(); });
}

EventListener::~EventListener() {
  if (thread_.joinable()) {
    wake(stopFd_);
    thread_.join();
  }
  if (fd_ >= 0) close(fd_);
  if (stopFd_ >= 0) close(stopFd_);
}

std::string EventListener::callbackUrl(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

void EventListener::serve() {
  for (;;) {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
    int n = poll(fds, 2, -1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 || (fds[1].revents & POLLIN)) return;
    if (fds[0].revents & POLLIN) {
      int client = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (client >= 0) handle(client);
    }
  }
}

void EventListener::handle(int client) {
  Fd fd(client);
  auto deadline = Clock::now() + 5s;
  Message msg;
  std::string error;
  bool complete = readMessage(fd.get(), deadline, true, false, msg, error);
  std::string answer = complete ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 400 Bad Request\r\n";
  answer += "Content-Length: 0\r\nConnection: close\r\n\r\n";
  sendAll(fd.get(), answer, deadline, error);
  if (!complete) return;

  GenaEvent event;
  std::string_view line = msg.startLine;
  event.method = line.substr(0, line.find(' '));
  if (size_t space = line.find(' '); space != std::string_view::npos) {
    std::string_view target = line.substr(space + 1);
    event.path = target.substr(0, target.find(' '));
  }
  event.headers = std::move(msg.headers);
  event.sid = findField(event.headers, "SID").value_or("");
  if (auto seq = findField(event.headers, "SEQ")) event.seq = parseUint(*seq);
  event.body = std::move(msg.body);
  std::string parseError;
  if (auto set = parseXml(event.body, &parseError)) {
    if (set->name != "propertyset") event.parseError = "root is " + set->name;
    for (const XmlElement* property : set->all("property")) {
      for (const XmlElement& variable : property->children) {
        event.properties.emplace_back(variable.name, variable.text);
      }
    }
  } else {
    event.parseError = parseError;
  }
  {
    std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
  }
  arrived_.notify_all();
}

std::vector<GenaEvent> EventListener::events() const {
  std::lock_guard lock(mutex_);
  return events_;
}

std::vector<GenaEvent> EventListener::eventsFor(std::string_view sid) const {
  std::lock_guard lock(mutex_);
  std::vector<GenaEvent> found;
  for (const GenaEvent& e : events_) {
    if (e.sid == sid) found.push_back(e);
  }
  return found;
}

bool EventListener::waitForEvents(std::string_view sid, size_t count,
                                  std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return arrived_.wait_for(lock, timeout, [&] {
    return static_cast<size_t>(std::count_if(events_.begin(), events_.end(),
                                             [&](const auto& e) { return e.sid == sid; })) >= count;
  });
}

Subscription subscribe(const Url& eventUrl, const std::string& callback,
                       std::string_view timeoutHeader, std::chrono::milliseconds timeout) {
  Subscription s;
  s.http = httpRequest(eventUrl, "SUBSCRIBE",
                       {{"CALLBACK", "<" + callback + ">"},
                        {"NT", "upnp:event"},
                        {"TIMEOUT", std::string(timeoutHeader)}},
                       {}, timeout);
  if (s.http.status == 200) {
    s.sid = s.http.header("SID").value_or("");
    s.timeout = s.http.header("TIMEOUT").value_or("");
  }
  return s;
}

HttpResponse unsubscribe(const Url& eventUrl, const std::string& sid,
                         std::chrono::milliseconds timeout) {
  return httpRequest(eventUrl, "UNSUBSCRIBE", {{"SID", sid}}, {}, timeout);
}

// ---- SSDP ----

namespace {

sockaddr_in groupAddress() {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(kSsdpPort);
  inet_pton(AF_INET, kSsdpGroup, &addr.sin_addr);
  return addr;
}

std::string senderText(const sockaddr_in& from) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &from.sin_addr, text, sizeof text);
  return std::string(text) + ":" + std::to_string(ntohs(from.sin_port));
}

SsdpMessage parseDatagram(std::string_view data, const sockaddr_in& from) {
  size_t end = data.find("\r\n\r\n");
  Message msg;
  parseHead(data.substr(0, end), msg);
  return SsdpMessage{std::move(msg.startLine), std::move(msg.headers), senderText(from)};
}

}  // namespace

std::vector<SsdpMessage> ssdpSearch(std::string_view target, int mx, std::chrono::milliseconds wait,
                                    size_t enough) {
  std::vector<SsdpMessage> answers;
  Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (fd.get() < 0) return answers;
  in_addr loopback{};
  loopback.s_addr = htonl(INADDR_LOOPBACK);
  unsigned char on = 1, ttl = 2;
  setsockopt(fd.get(), IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback);
  setsockopt(fd.get(), IPPROTO_IP, IP_MULTICAST_LOOP, &on, sizeof on);
  setsockopt(fd.get(), IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof ttl);
  std::string request =
      "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\n"
      "MAN: \"ssdp:discover\"\r\nMX: " +
      std::to_string(mx) + "\r\nST: " + std::string(target) + "\r\n\r\n";
  sockaddr_in group = groupAddress();
  if (sendto(fd.get(), request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&group),
             sizeof group) < 0) {
    return answers;
  }
  auto deadline = Clock::now() + wait;
  char buffer[4096];
  while (answers.size() < enough && waitReady(fd.get(), POLLIN, deadline)) {
    sockaddr_in from{};
    socklen_t len = sizeof from;
    ssize_t n =
        recvfrom(fd.get(), buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &len);
    if (n <= 0) continue;
    answers.push_back(parseDatagram(std::string_view(buffer, static_cast<size_t>(n)), from));
  }
  return answers;
}

SsdpListener::SsdpListener() {
  Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (fd.get() < 0) {
    error_ = errnoText("socket");
    return;
  }
  int on = 1;
  setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(kSsdpPort);
  addr.sin_addr.s_addr = htonl(INADDR_ANY);
  if (bind(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    error_ = errnoText("bind to the SSDP port");
    return;
  }
  ip_mreq join{};
  inet_pton(AF_INET, kSsdpGroup, &join.imr_multiaddr);
  join.imr_interface.s_addr = htonl(INADDR_LOOPBACK);
  if (setsockopt(fd.get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &join, sizeof join) != 0) {
    error_ = errnoText("join the SSDP group on loopback");
    return;
  }
  stopFd_ = makeStopFd();
  if (stopFd_ < 0) {
    error_ = errnoText("eventfd");
    return;
  }
  fd_ = fd.release();
  thread_ = std::thread([this] { receive(); });
}

SsdpListener::~SsdpListener() {
  if (thread_.joinable()) {
    wake(stopFd_);
    thread_.join();
  }
  if (fd_ >= 0) close(fd_);
  if (stopFd_ >= 0) close(stopFd_);
}

void SsdpListener::receive() {
  char buffer[4096];
  for (;;) {
    pollfd fds[2] = {{fd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
    int n = poll(fds, 2, -1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 || (fds[1].revents & POLLIN)) return;
    if (!(fds[0].revents & POLLIN)) continue;
    sockaddr_in from{};
    socklen_t len = sizeof from;
    ssize_t got = recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &len);
    if (got <= 0) continue;
    SsdpMessage msg = parseDatagram(std::string_view(buffer, static_cast<size_t>(got)), from);
    if (msg.startLine.rfind("NOTIFY ", 0) != 0) continue;
    {
      std::lock_guard lock(mutex_);
      messages_.push_back(std::move(msg));
    }
    arrived_.notify_all();
  }
}

std::vector<SsdpMessage> SsdpListener::messages() const {
  std::lock_guard lock(mutex_);
  return messages_;
}

std::optional<SsdpMessage> SsdpListener::waitFor(
    const std::function<bool(const SsdpMessage&)>& match, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  std::optional<SsdpMessage> found;
  arrived_.wait_for(lock, timeout, [&] {
    auto it = std::find_if(messages_.begin(), messages_.end(), match);
    if (it != messages_.end()) found = *it;
    return found.has_value();
  });
  return found;
}

}  // namespace e2e
