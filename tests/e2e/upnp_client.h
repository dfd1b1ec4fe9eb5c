// A small UPnP control point for the end-to-end tests, over plain sockets:
// HTTP/1.1 requests, SOAP actions and variable queries, GENA subscriptions
// with an event listener on loopback, and SSDP search and announcements.
// Every call that waits has a bounded timeout; none of them throws on network
// trouble, they report it in the result instead. Classes that own a socket or
// a thread are not copyable; their readers are safe to call from the test
// thread while their own thread collects.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace e2e {

using namespace std::chrono_literals;

// Header or argument pairs in wire order.
using Fields = std::vector<std::pair<std::string, std::string>>;

// The value of the first field named `name`, compared case-insensitively.
std::optional<std::string> findField(const Fields& fields, std::string_view name);

// ---- HTTP ----

struct Url {
  std::string host;
  uint16_t port = 80;
  std::string path = "/";  // with the query, if any
  std::string text() const;
};

// Parses "http://host[:port][/path]"; nothing for anything else.
std::optional<Url> parseUrl(std::string_view url);

struct HttpResponse {
  int status = 0;        // 0: no complete response, see `error`
  std::string reason;    // the status line's text
  Fields headers;        // as received
  std::string body;      // chunked bodies already decoded
  bool chunked = false;  // the body came chunked
  std::string error;     // why there is no response
  std::optional<std::string> header(std::string_view name) const {
    return findField(headers, name);
  }
};

// One request on a connection of its own ("Connection: close" is added). A
// body gets a Content-Length. The body of the answer is read by its
// Content-Length, chunked, or up to the close.
HttpResponse httpRequest(const Url& url, std::string_view method, const Fields& headers = {},
                         std::string_view body = {}, std::chrono::milliseconds timeout = 5s);
HttpResponse httpGet(const Url& url, std::chrono::milliseconds timeout = 5s);

// ---- XML ----

// An element of a parsed document: local name, namespace, attributes, the
// concatenated text of its own text children (entities decoded), and its
// element children in order. Whitespace-only text between elements is kept in
// `text`, so compare it trimmed where layout does not matter.
struct XmlElement {
  std::string name;
  std::string ns;
  Fields attributes;
  std::string text;
  std::vector<XmlElement> children;

  // The first child element named `name`, or null.
  const XmlElement* child(std::string_view name) const;
  // The children named `name`, in order.
  std::vector<const XmlElement*> all(std::string_view name) const;
  // Follows a path of child names; null when one is missing.
  const XmlElement* find(std::initializer_list<std::string_view> path) const;
};

// The document element of `text`, parsed by the stack's own XML parser;
// nothing (and a reason in `error`) when it does not parse.
std::optional<XmlElement> parseXml(std::string_view text, std::string* error = nullptr);

// ---- SOAP ----

struct SoapResult {
  HttpResponse http;
  bool fault = false;             // the body holds a SOAP Fault
  std::string responseName;       // local name of the Body's element
  std::string responseNamespace;  // its namespace
  Fields out;                     // output arguments in order
  int errorCode = 0;              // a fault's UPnPError errorCode
  std::string errorDescription;   // and its errorDescription
  std::string parseError;         // why the body could not be read

  std::optional<std::string> value(std::string_view name) const { return findField(out, name); }
  // An HTTP 200 answer that parsed and is not a fault.
  bool ok() const { return http.status == 200 && !fault && parseError.empty(); }
};

// POSTs the action with its input arguments (values are escaped) and a
// SOAPACTION of "serviceType#action".
SoapResult soapAction(const Url& control, std::string_view serviceType, std::string_view action,
                      const Fields& args = {}, std::chrono::milliseconds timeout = 5s);

// QueryStateVariable on a control URL; the value comes back as output "return".
SoapResult queryStateVariable(const Url& control, std::string_view varName,
                              std::chrono::milliseconds timeout = 5s);

// Renders a result for a failure message.
std::string describe(const SoapResult& result);

// ---- GENA ----

struct GenaEvent {
  std::string method;  // NOTIFY, unless the device sent something else
  std::string path;
  Fields headers;
  std::string sid;
  std::optional<uint32_t> seq;  // nothing when SEQ is missing or not a number
  Fields properties;            // variable name and value, in document order
  std::string body;
  std::string parseError;
};

// Accepts event notifications on 127.0.0.1 (an ephemeral port) on a thread of
// its own, answers each with 200 and records it.
class EventListener {
 public:
  EventListener();
  ~EventListener();
  EventListener(const EventListener&) = delete;
  EventListener& operator=(const EventListener&) = delete;

  bool listening() const { return fd_ >= 0; }
  // "http://127.0.0.1:PORT/path", the CALLBACK to subscribe with.
  std::string callbackUrl(std::string_view path = "/") const;

  std::vector<GenaEvent> events() const;
  std::vector<GenaEvent> eventsFor(std::string_view sid) const;
  // Until at least `count` events for `sid` arrived; false on timeout.
  bool waitForEvents(std::string_view sid, size_t count, std::chrono::milliseconds timeout = 5s);

 private:
  void serve();
  void handle(int client);

  int fd_ = -1;
  int stopFd_ = -1;
  uint16_t port_ = 0;
  mutable std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<GenaEvent> events_;
  std::thread thread_;
};

struct Subscription {
  HttpResponse http;
  std::string sid;      // empty unless the device granted one
  std::string timeout;  // the TIMEOUT header granted
};

Subscription subscribe(const Url& eventUrl, const std::string& callback,
                       std::string_view timeoutHeader = "Second-1800",
                       std::chrono::milliseconds timeout = 5s);
HttpResponse unsubscribe(const Url& eventUrl, const std::string& sid,
                         std::chrono::milliseconds timeout = 5s);

// ---- SSDP ----

inline constexpr char kSsdpGroup[] = "239.255.255.250";
inline constexpr uint16_t kSsdpPort = 1900;

struct SsdpMessage {
  std::string startLine;  // "HTTP/1.1 200 OK", "NOTIFY * HTTP/1.1", ...
  Fields headers;
  std::string from;  // sender "address:port"
  std::optional<std::string> header(std::string_view name) const {
    return findField(headers, name);
  }
};

// Multicasts an M-SEARCH for `target` out of loopback and collects the
// unicast answers until `wait` has passed or `enough` have arrived.
std::vector<SsdpMessage> ssdpSearch(std::string_view target, int mx = 1,
                                    std::chrono::milliseconds wait = 5s, size_t enough = SIZE_MAX);

// Listens on the SSDP port, joined to the group on loopback, and records
// every NOTIFY it hears (searches by others are ignored).
class SsdpListener {
 public:
  SsdpListener();
  ~SsdpListener();
  SsdpListener(const SsdpListener&) = delete;
  SsdpListener& operator=(const SsdpListener&) = delete;

  bool listening() const { return fd_ >= 0; }
  std::string error() const { return error_; }
  std::vector<SsdpMessage> messages() const;
  // The first announcement (heard so far or within `timeout`) that `match`
  // accepts.
  std::optional<SsdpMessage> waitFor(const std::function<bool(const SsdpMessage&)>& match,
                                     std::chrono::milliseconds timeout = 5s);

 private:
  void receive();

  int fd_ = -1;
  int stopFd_ = -1;
  std::string error_;
  mutable std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<SsdpMessage> messages_;
  std::thread thread_;
};

}  // namespace e2e
