// Just enough of a UPnP control point for the end-to-end tests, over plain
// sockets: HTTP requests, SOAP actions and variable queries, an event
// listener, and SSDP search and announcements on loopback. Every wait is
// bounded; network trouble shows in the results, nothing throws. The listeners
// own a socket and are not copyable.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace e2e {

using namespace std::chrono_literals;

// Header, argument or attribute pairs in wire order.
using Fields = std::vector<std::pair<std::string, std::string>>;

// The value of the first field named `name`, in any case.
std::optional<std::string> findField(const Fields& fields, std::string_view name);

struct HttpResponse {
  int status = 0;  // 0: no answer
  Fields headers;
  std::string body;
  std::string raw;  // all that came, or why nothing did: for failure messages
  std::optional<std::string> header(std::string_view name) const {
    return findField(headers, name);
  }
};

// One request to "http://host:port/path" on a connection of its own, read up
// to the server's close.
HttpResponse httpRequest(const std::string& url, const std::string& method,
                         const Fields& headers = {}, const std::string& body = {});

// Raw requests, for what a well-behaved client never sends. A socket from
// `source` (any loopback address, as another host) to 127.0.0.1:`port` with
// 5 s timeouts, or -1.
int connectFrom(const char* source, uint16_t port = 49152);
// Sends `request` (as far as the server reads it) and returns the status code
// of the answer; 0 when none came.
int statusOf(int fd, const std::string& request);
// Both, on a connection of its own; -1 when it cannot connect.
int requestFrom(const char* source, const std::string& request, uint16_t port = 49152);

// An element with its local name, namespace, attributes, the text of its own
// text children (entities decoded) and its element children.
struct Xml {
  std::string name, ns, text;
  Fields attributes;
  std::vector<Xml> children;
  const Xml* child(std::string_view name) const;  // the first of that name, or null
};

// Parsed by the stack's own XML parser; nothing when it does not parse.
std::optional<Xml> parseXml(const std::string& text);

struct SoapResult {
  HttpResponse http;
  std::string answer;  // local name of the Body's element ("Fault" for a fault)
  std::string ns;      // its namespace
  Fields out;          // its children: the output arguments
  int errorCode = 0;   // a fault's UPnPError
  std::string errorDescription;
  bool ok() const { return http.status == 200 && !answer.empty() && answer != "Fault"; }
};

SoapResult soapAction(const std::string& controlUrl, const std::string& serviceType,
                      const std::string& action, const Fields& args = {});

// Where the daemons of the tests serve.
inline constexpr char kBase[] = "http://127.0.0.1:49152";
inline constexpr char kCdsType[] = "urn:schemas-upnp-org:service:ContentDirectory:1";

// BrowseDirectChildren of `objectId` on the tests' daemon, `count` children
// (0: all) with all properties.
SoapResult browseChildren(const std::string& objectId, const std::string& count = "0");
// The objects of that Browse's Result; none when it fails or does not parse.
std::vector<Xml> childObjects(const std::string& objectId);
SoapResult queryStateVariable(const std::string& controlUrl, const std::string& varName);

struct GenaEvent {
  std::string sid, seq;
  Fields properties;  // variable and value, in document order
  std::string raw;
};

// Takes event notifications on 127.0.0.1, one at a time when asked.
class EventListener {
 public:
  EventListener();
  ~EventListener();
  EventListener(const EventListener&) = delete;
  EventListener& operator=(const EventListener&) = delete;

  std::string callbackUrl() const;  // empty when there is no socket
  // Accepts the next notification and answers it with 200.
  std::optional<GenaEvent> next(std::chrono::milliseconds timeout = 5s);

 private:
  int fd_ = -1;
  uint16_t port_ = 0;
};

struct SsdpMessage {
  std::string startLine;
  Fields headers;
  std::optional<std::string> header(std::string_view name) const {
    return findField(headers, name);
  }
};

// Multicasts an M-SEARCH for `target` out of loopback; the first answer.
std::optional<SsdpMessage> ssdpSearch(const std::string& target,
                                      std::chrono::milliseconds timeout = 5s);

// Joined to the SSDP group on loopback from construction on, so it keeps the
// announcements of a daemon started later until they are asked for.
class SsdpListener {
 public:
  SsdpListener();
  ~SsdpListener();
  SsdpListener(const SsdpListener&) = delete;
  SsdpListener& operator=(const SsdpListener&) = delete;

  bool listening() const { return fd_ >= 0; }
  // The first NOTIFY heard so far or within `timeout` that `match` accepts.
  std::optional<SsdpMessage> waitFor(const std::function<bool(const SsdpMessage&)>& match,
                                     std::chrono::milliseconds timeout = 5s);
  std::string heard() const;  // the start lines and NT/NTS heard, for failure messages

 private:
  int fd_ = -1;
  std::vector<SsdpMessage> heard_;
};

}  // namespace e2e
