#include "e2e/upnp_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <upnp/ixml.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace e2e {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kSsdpGroup[] = "239.255.255.250";
constexpr uint16_t kSsdpPort = 1900;

struct Fd {
  explicit Fd(int f) : fd(f) {}
  ~Fd() {
    if (fd >= 0) close(fd);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int release() { return std::exchange(fd, -1); }
  int fd;
};

// Bounds the socket's next blocking calls (connect, accept, send, recv) by
// what is left until `deadline`; false when nothing is.
bool bound(int fd, Clock::time_point deadline) {
  auto left =
      std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
  if (left <= 0) return false;
  timeval tv{static_cast<time_t>(left / 1000000), static_cast<suseconds_t>(left % 1000000)};
  return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) == 0 &&
         setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv) == 0;
}

sockaddr_in address(const std::string& host, uint16_t port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  inet_pton(AF_INET, host.c_str(), &addr.sin_addr);
  return addr;
}

std::string trim(std::string_view s) {
  size_t begin = s.find_first_not_of(" \t");
  return begin == std::string_view::npos
             ? ""
             : std::string(s.substr(begin, s.find_last_not_of(" \t") + 1 - begin));
}

// Splits a message at its empty line into start line, fields and body.
bool parseMessage(std::string_view data, std::string& startLine, Fields& fields,
                  std::string* body = nullptr) {
  size_t headEnd = data.find("\r\n\r\n");
  if (headEnd == std::string_view::npos) return false;
  if (body) *body = data.substr(headEnd + 4);
  std::string_view head = data.substr(0, headEnd + 2);
  size_t end = head.find("\r\n");
  startLine = head.substr(0, end);
  for (head.remove_prefix(end + 2); !head.empty(); head.remove_prefix(end + 2)) {
    end = head.find("\r\n");
    std::string_view line = head.substr(0, end);
    if (size_t colon = line.find(':'); colon != std::string_view::npos) {
      fields.emplace_back(trim(line.substr(0, colon)), trim(line.substr(colon + 1)));
    }
  }
  return true;
}

// Reads until `complete` accepts the data, or without one up to the peer's
// close; false on error or timeout.
bool receive(int fd, Clock::time_point deadline, std::string& data,
             const std::function<bool(const std::string&)>& complete = nullptr) {
  char buffer[8192];
  for (;;) {
    if (complete && complete(data)) return true;
    if (!bound(fd, deadline)) return false;
    ssize_t n = recv(fd, buffer, sizeof buffer, 0);
    if (n == 0) return !complete;
    if (n < 0 && errno != EINTR) return false;
    if (n > 0) data.append(buffer, static_cast<size_t>(n));
  }
}

Xml convert(IXML_Node* node) {
  Xml e;
  if (const char* local = ixmlNode_getLocalName(node)) {
    e.name = local;
  } else {
    e.name = ixmlNode_getNodeName(node);
    e.name.erase(0, e.name.find(':') + 1);
  }
  if (const char* ns = ixmlNode_getNamespaceURI(node)) e.ns = ns;
  if (IXML_NamedNodeMap* attributes = ixmlNode_getAttributes(node)) {
    for (unsigned long i = 0; i < ixmlNamedNodeMap_getLength(attributes); ++i) {
      IXML_Node* a = ixmlNamedNodeMap_item(attributes, i);
      const char* value = ixmlNode_getNodeValue(a);
      e.attributes.emplace_back(ixmlNode_getNodeName(a), value ? value : "");
    }
    ixmlNamedNodeMap_free(attributes);
  }
  for (IXML_Node* c = ixmlNode_getFirstChild(node); c; c = ixmlNode_getNextSibling(c)) {
    if (ixmlNode_getNodeType(c) == eELEMENT_NODE) {
      e.children.push_back(convert(c));
    } else if (const char* value = ixmlNode_getNodeValue(c)) {
      e.text += value;
    }
  }
  return e;
}

SoapResult postSoap(const std::string& controlUrl, const std::string& soapAction,
                    const std::string& inner) {
  SoapResult r;
  r.http = httpRequest(
      controlUrl, "POST",
      {{"Content-Type", "text/xml; charset=\"utf-8\""}, {"SOAPACTION", "\"" + soapAction + "\""}},
      "<?xml version=\"1.0\"?><s:Envelope "
      "xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
      "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>" +
          inner + "</s:Body></s:Envelope>");
  auto envelope = parseXml(r.http.body);
  const Xml* body = envelope ? envelope->child("Body") : nullptr;
  if (!body || body->children.empty()) return r;
  const Xml& answer = body->children.front();
  r.answer = answer.name;
  r.ns = answer.ns;
  for (const Xml& c : answer.children) r.out.emplace_back(c.name, c.text);
  const Xml* detail = answer.child("detail");
  if (const Xml* error = detail ? detail->child("UPnPError") : nullptr) {
    if (const Xml* code = error->child("errorCode")) r.errorCode = atoi(code->text.c_str());
    if (const Xml* text = error->child("errorDescription")) r.errorDescription = text->text;
  }
  return r;
}

std::optional<SsdpMessage> readDatagram(int fd, Clock::time_point deadline) {
  char buffer[4096];
  if (!bound(fd, deadline)) return std::nullopt;
  ssize_t n = recv(fd, buffer, sizeof buffer, 0);
  SsdpMessage m;
  if (n <= 0 ||
      !parseMessage(std::string_view(buffer, static_cast<size_t>(n)), m.startLine, m.headers)) {
    return std::nullopt;
  }
  return m;
}

}  // namespace

std::optional<std::string> findField(const Fields& fields, std::string_view name) {
  for (const auto& [key, value] : fields) {
    if (strcasecmp(key.c_str(), std::string(name).c_str()) == 0) return value;
  }
  return std::nullopt;
}

HttpResponse httpRequest(const std::string& url, const std::string& method, const Fields& headers,
                         const std::string& body) {
  HttpResponse r;
  auto deadline = Clock::now() + 5s;
  // "http://host:port/path"
  size_t colon = url.find(':', 7), slash = url.find('/', 7);
  if (url.rfind("http://", 0) != 0 || colon > slash || slash == std::string::npos) {
    r.raw = "not an http://host:port/path URL: " + url;
    return r;
  }
  std::string host = url.substr(7, colon - 7);
  sockaddr_in addr = address(host, static_cast<uint16_t>(atoi(url.c_str() + colon + 1)));
  Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!bound(fd.fd, deadline) ||
      connect(fd.fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    r.raw = std::string("connect: ") + strerror(errno);
    return r;
  }
  std::string request = method + " " + url.substr(slash) +
                        " HTTP/1.1\r\nHOST: " + url.substr(7, slash - 7) +
                        "\r\nConnection: close\r\n";
  for (const auto& [name, value] : headers) request += name + ": " + value + "\r\n";
  if (!body.empty()) request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  request += "\r\n" + body;
  if (send(fd.fd, request.data(), request.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(request.size())) {
    r.raw = std::string("send: ") + strerror(errno);
    return r;
  }
  if (!receive(fd.fd, deadline, r.raw)) {
    r.raw += "\n(no close within 5 s)";
    return r;
  }
  std::string statusLine;
  if (parseMessage(r.raw, statusLine, r.headers, &r.body)) {
    sscanf(statusLine.c_str(), "HTTP/%*s %d", &r.status);
  }
  return r;
}

// A socket from `source` to 127.0.0.1:`port`, or -1.
int connectFrom(const char* source, uint16_t port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  timeval tv{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
  sockaddr_in from{};
  from.sin_family = AF_INET;
  inet_pton(AF_INET, source, &from.sin_addr);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<sockaddr*>(&from), sizeof from) != 0 ||
      connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

// Sends `request` (as far as the server reads it) and returns the status code
// of the answer; 0 when none came.
int statusOf(int fd, const std::string& request) {
  for (size_t sent = 0; sent < request.size();) {
    ssize_t n = send(fd, request.data() + sent, std::min<size_t>(request.size() - sent, 1 << 20),
                     MSG_NOSIGNAL);
    if (n <= 0) break;  // the server may answer and close before reading it all
    sent += static_cast<size_t>(n);
  }
  char buf[64] = {};
  ssize_t n = recv(fd, buf, sizeof buf - 1, 0);
  return n > 12 && strncmp(buf, "HTTP/1.", 7) == 0 ? atoi(buf + 9) : 0;
}

int requestFrom(const char* source, const std::string& request, uint16_t port) {
  int fd = connectFrom(source, port);
  if (fd < 0) return -1;
  int status = statusOf(fd, request);
  close(fd);
  return status;
}

const Xml* Xml::child(std::string_view childName) const {
  for (const Xml& c : children) {
    if (c.name == childName) return &c;
  }
  return nullptr;
}

std::optional<Xml> parseXml(const std::string& text) {
  IXML_Document* doc = nullptr;
  if (ixmlParseBufferEx(text.c_str(), &doc) != IXML_SUCCESS) return std::nullopt;
  std::optional<Xml> root;
  for (IXML_Node* c = ixmlNode_getFirstChild(reinterpret_cast<IXML_Node*>(doc)); c && !root;
       c = ixmlNode_getNextSibling(c)) {
    if (ixmlNode_getNodeType(c) == eELEMENT_NODE) root = convert(c);
  }
  ixmlDocument_free(doc);
  return root;
}

SoapResult soapAction(const std::string& controlUrl, const std::string& serviceType,
                      const std::string& action, const Fields& args) {
  std::string inner = "<u:" + action + " xmlns:u=\"" + serviceType + "\">";
  for (const auto& [name, value] : args) inner += "<" + name + ">" + value + "</" + name + ">";
  return postSoap(controlUrl, serviceType + "#" + action, inner + "</u:" + action + ">");
}

SoapResult queryStateVariable(const std::string& controlUrl, const std::string& varName) {
  const std::string control = "urn:schemas-upnp-org:control-1-0";
  return postSoap(controlUrl, control + "#QueryStateVariable",
                  "<u:QueryStateVariable xmlns:u=\"" + control + "\"><u:varName>" + varName +
                      "</u:varName></u:QueryStateVariable>");
}

EventListener::EventListener() {
  Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in addr = address("127.0.0.1", 0);
  socklen_t len = sizeof addr;
  if (bind(fd.fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 && listen(fd.fd, 8) == 0 &&
      getsockname(fd.fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
    port_ = ntohs(addr.sin_port);
    fd_ = fd.release();
  }
}

EventListener::~EventListener() {
  if (fd_ >= 0) close(fd_);
}

std::string EventListener::callbackUrl() const {
  return fd_ < 0 ? "" : "http://127.0.0.1:" + std::to_string(port_) + "/";
}

std::optional<GenaEvent> EventListener::next(std::chrono::milliseconds timeout) {
  auto deadline = Clock::now() + timeout;
  if (fd_ < 0 || !bound(fd_, deadline)) return std::nullopt;
  Fd client(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
  if (client.fd < 0) return std::nullopt;
  // The sender waits for our answer before it closes: read by its length.
  GenaEvent event;
  std::string startLine, body;
  Fields headers;
  bool complete = receive(client.fd, deadline, event.raw, [&](const std::string& data) {
    headers.clear();
    if (!parseMessage(data, startLine, headers, &body)) return false;
    return body.size() >=
           std::strtoul(findField(headers, "Content-Length").value_or("0").c_str(), nullptr, 10);
  });
  const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
  if (!complete || send(client.fd, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) {
    return std::nullopt;
  }
  event.sid = findField(headers, "SID").value_or("");
  event.seq = findField(headers, "SEQ").value_or("");
  if (auto set = parseXml(body)) {
    for (const Xml& property : set->children) {
      for (const Xml& variable : property.children) {
        event.properties.emplace_back(variable.name, variable.text);
      }
    }
  }
  return event;
}

std::optional<SsdpMessage> ssdpSearch(const std::string& target,
                                      std::chrono::milliseconds timeout) {
  Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  std::string request =
      "M-SEARCH * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nMAN: \"ssdp:discover\"\r\n"
      "MX: 1\r\nST: " +
      target + "\r\n\r\n";
  sockaddr_in group = address(kSsdpGroup, kSsdpPort);
  if (sendto(fd.fd, request.data(), request.size(), 0, reinterpret_cast<sockaddr*>(&group),
             sizeof group) < 0) {
    return std::nullopt;
  }
  return readDatagram(fd.fd, Clock::now() + timeout);
}

SsdpListener::SsdpListener() {
  Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  int on = 1;
  sockaddr_in addr = address("0.0.0.0", kSsdpPort);
  ip_mreq join{address(kSsdpGroup, 0).sin_addr, {htonl(INADDR_LOOPBACK)}};
  if (setsockopt(fd.fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
      bind(fd.fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      setsockopt(fd.fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &join, sizeof join) == 0) {
    fd_ = fd.release();
  }
}

SsdpListener::~SsdpListener() {
  if (fd_ >= 0) close(fd_);
}

std::optional<SsdpMessage> SsdpListener::waitFor(
    const std::function<bool(const SsdpMessage&)>& match, std::chrono::milliseconds timeout) {
  for (const SsdpMessage& m : heard_) {
    if (match(m)) return m;
  }
  auto deadline = Clock::now() + timeout;
  while (auto m = fd_ < 0 ? std::nullopt : readDatagram(fd_, deadline)) {
    if (m->startLine.rfind("NOTIFY ", 0) != 0) continue;  // searches
    heard_.push_back(*m);
    if (match(*m)) return m;
  }
  return std::nullopt;
}

std::string SsdpListener::heard() const {
  std::string text;
  for (const SsdpMessage& m : heard_) {
    // Appended piece by piece: g++ 12 -O2 warns falsely (-Wrestrict) on "\n" + string.
    text += '\n';
    text += m.header("NTS").value_or("?");
    text += ' ';
    text += m.header("NT").value_or("?");
  }
  return text;
}

SoapResult browseChildren(const std::string& objectId, const std::string& count) {
  return soapAction(std::string(kBase) + "/web/cds_control", kCdsType, "Browse",
                    {{"ObjectID", objectId},
                     {"BrowseFlag", "BrowseDirectChildren"},
                     {"Filter", "*"},
                     {"StartingIndex", "0"},
                     {"RequestedCount", count},
                     {"SortCriteria", ""}});
}

std::vector<Xml> childObjects(const std::string& objectId) {
  SoapResult r = browseChildren(objectId);
  auto didl = parseXml(findField(r.out, "Result").value_or(""));
  return r.ok() && didl ? didl->children : std::vector<Xml>{};
}

}  // namespace e2e
