// Subscriptions live in one table under a mutex. The sender thread takes the
// queued events out of it and delivers them with non-blocking sockets, many at
// once but one at a time per subscription (so SEQ stays in order), each with a
// deadline: a callback that never answers costs its own subscription a slot,
// not the others their events.
#include "stack/gena.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "platform/log.h"
#include "stack/xml_text.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kLogSource[] = "gena";
constexpr size_t kMaxSubscriptions = 128;  // a home network has a handful of control points
constexpr size_t kMaxPerClient = 16;
constexpr int kMinTimeout = 300;  // seconds
constexpr int kMaxTimeout = 1800;
constexpr size_t kMaxQueued = 8;     // events waiting per subscription; the oldest go first
constexpr size_t kMaxInFlight = 32;  // deliveries under way at once
constexpr int kMaxFailures = 3;      // deliveries failed in a row before a subscription is dropped
constexpr auto kDeliveryDeadline = std::chrono::seconds(3);
// Some control points take a NOTIFY that overtakes their reading of the
// SUBSCRIBE answer for an unknown subscription and drop it: the initial event
// waits this long after the answer has gone out.
constexpr auto kInitialEventDelay = std::chrono::milliseconds(50);

struct Subscription {
  std::string serviceId;
  in_addr_t client = 0;
  sockaddr_in callback = {};
  std::string host;  // "a.b.c.d:port" for the Host header
  std::string path;
  Clock::time_point expires;
  bool accepted = false;
  bool held = true;  // until the SUBSCRIBE answer has gone out
  Clock::time_point notBefore;
  bool inFlight = false;
  uint32_t seq = 0;
  int failures = 0;
  std::deque<std::string> queued;  // event bodies
};

struct Delivery {
  std::string sid;
  int fd = -1;
  std::string request;
  size_t sent = 0;
  std::string reply;
  bool connected = false;
  Clock::time_point deadline;
};

struct State {
  std::mutex mutex;
  std::map<std::string, Subscription> subscriptions;  // by SID
  std::mt19937_64 random{std::random_device{}()};
  std::thread sender;
  int wake = -1;  // eventfd
  bool running = false;
  bool stopping = false;
};

State g_state;

void wakeSender() {
  if (g_state.wake < 0) return;
  uint64_t one = 1;
  ssize_t n = write(g_state.wake, &one, sizeof one);
  (void)n;  // a full counter already wakes the sender
}

std::string newSid() {
  uint64_t a = g_state.random();
  uint64_t b = g_state.random();
  unsigned char u[16];
  memcpy(u, &a, 8);
  memcpy(u + 8, &b, 8);
  u[6] = (u[6] & 0x0F) | 0x40;
  u[8] = (u[8] & 0x3F) | 0x80;
  char text[48];
  snprintf(text, sizeof text,
           "uuid:%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", u[0], u[1],
           u[2], u[3], u[4], u[5], u[6], u[7], u[8], u[9], u[10], u[11], u[12], u[13], u[14],
           u[15]);
  return text;
}

// "Second-N" bounded to what we grant; anything else (infinite, absent) the most.
int grantedTimeout(const char* value) {
  if (!value) return kMaxTimeout;
  while (*value == ' ') ++value;
  if (strncasecmp(value, "Second-", 7) != 0) return kMaxTimeout;
  const char* digits = value + 7;
  size_t n = strspn(digits, "0123456789");
  if (n == 0) return kMaxTimeout;
  if (n > 6) return kMaxTimeout;
  int seconds = atoi(digits);
  return std::clamp(seconds, kMinTimeout, kMaxTimeout);
}

// The first "<http://a.b.c.d[:port][/path]>" of a CALLBACK value whose address
// is the subscriber's own.
bool pickCallback(const char* value, in_addr_t client, Subscription* sub) {
  const char* p = value;
  for (int urls = 0; p && urls < 8; ++urls) {
    const char* open = strchr(p, '<');
    if (!open) return false;
    const char* close = strchr(open, '>');
    if (!close) return false;
    std::string url(open + 1, close);
    p = close + 1;
    if (url.compare(0, 7, "http://") != 0) continue;
    size_t slash = url.find('/', 7);
    std::string hostPort =
        url.substr(7, slash == std::string::npos ? std::string::npos : slash - 7);
    std::string path = slash == std::string::npos ? "/" : url.substr(slash);
    size_t colon = hostPort.find(':');
    std::string host = hostPort.substr(0, colon);
    long port = 80;
    if (colon != std::string::npos) {
      std::string digits = hostPort.substr(colon + 1);
      if (digits.empty() || digits.size() > 5 ||
          digits.find_first_not_of("0123456789") != std::string::npos)
        continue;
      port = strtol(digits.c_str(), nullptr, 10);
    }
    in_addr address;
    if (port < 1 || port > 65535 || inet_pton(AF_INET, host.c_str(), &address) != 1) continue;
    if (address.s_addr != client) continue;
    if (path.find_first_of("\r\n ") != std::string::npos) continue;
    sub->callback.sin_family = AF_INET;
    sub->callback.sin_addr = address;
    sub->callback.sin_port = htons(static_cast<uint16_t>(port));
    sub->host = host + ":" + std::to_string(port);
    sub->path = path;
    return true;
  }
  return false;
}

// Drops what has expired. Holds the mutex.
void purgeExpired(Clock::time_point now) {
  auto& subs = g_state.subscriptions;
  for (auto it = subs.begin(); it != subs.end();)
    it = it->second.expires <= now && !it->second.inFlight ? subs.erase(it) : std::next(it);
}

std::string propertySet(const char** names, const char** values, int count) {
  std::string body =
      "<?xml version=\"1.0\"?>\r\n"
      "<e:propertyset xmlns:e=\"urn:schemas-upnp-org:event-1-0\">";
  for (int i = 0; i < count; ++i) {
    if (!names[i]) continue;
    body += "<e:property><";
    body += names[i];
    body += '>';
    AppendXmlText(body, values[i] ? values[i] : "");
    body += "</";
    body += names[i];
    body += "></e:property>";
  }
  body += "</e:propertyset>\r\n";
  return body;
}

void enqueue(Subscription& sub, std::string body) {
  if (sub.queued.size() >= kMaxQueued) sub.queued.pop_front();
  sub.queued.push_back(std::move(body));
}

// Starts the next delivery of each subscription that has one ready. Holds the mutex.
void startDeliveries(std::vector<Delivery>& deliveries, Clock::time_point now) {
  for (auto& [sid, sub] : g_state.subscriptions) {
    if (deliveries.size() >= kMaxInFlight) return;
    if (!sub.accepted || sub.held || sub.inFlight || sub.queued.empty() || now < sub.notBefore)
      continue;
    std::string body = std::move(sub.queued.front());
    sub.queued.pop_front();
    Delivery d;
    d.sid = sid;
    d.deadline = now + kDeliveryDeadline;
    d.request = "NOTIFY " + sub.path + " HTTP/1.1\r\nHOST: " + sub.host +
                "\r\nCONTENT-TYPE: text/xml; charset=\"utf-8\"\r\nCONTENT-LENGTH: " +
                std::to_string(body.size()) +
                "\r\nNT: upnp:event\r\nNTS: upnp:propchange\r\nSID: " + sid +
                "\r\nSEQ: " + std::to_string(sub.seq) + "\r\nConnection: close\r\n\r\n" + body;
    // The sequence wraps to 1: 0 belongs to the initial event alone.
    sub.seq = sub.seq == UINT32_MAX ? 1 : sub.seq + 1;
    d.fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (d.fd >= 0 &&
        connect(d.fd, reinterpret_cast<const sockaddr*>(&sub.callback), sizeof sub.callback) != 0 &&
        errno != EINPROGRESS) {
      close(d.fd);
      d.fd = -1;
    }
    sub.inFlight = true;
    deliveries.push_back(std::move(d));
  }
}

// Ends a delivery: a 2xx answer clears the failure count, anything else adds one.
void finish(Delivery& d, bool ok) {
  if (d.fd >= 0) close(d.fd);
  d.fd = -1;
  std::lock_guard lock(g_state.mutex);
  auto it = g_state.subscriptions.find(d.sid);
  if (it == g_state.subscriptions.end()) return;
  it->second.inFlight = false;
  if (ok) {
    it->second.failures = 0;
  } else if (++it->second.failures >= kMaxFailures) {
    DMS_LOG(kLogEvent, "dropping subscription %s: its callback keeps failing", d.sid.c_str());
    g_state.subscriptions.erase(it);
  }
}

// One step of a delivery whose socket is ready; true when it has ended.
bool step(Delivery& d, short revents) {
  if (d.fd < 0 || (revents & (POLLERR | POLLNVAL))) {
    finish(d, false);
    return true;
  }
  if (d.sent < d.request.size()) {
    if (!(revents & POLLOUT)) return false;
    ssize_t n = send(d.fd, d.request.data() + d.sent, d.request.size() - d.sent, MSG_NOSIGNAL);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return false;
    if (n <= 0) {
      finish(d, false);
      return true;
    }
    d.sent += static_cast<size_t>(n);
    return false;
  }
  if (!(revents & (POLLIN | POLLHUP))) return false;
  char buf[256];
  ssize_t n = recv(d.fd, buf, sizeof buf, 0);
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (n > 0 && d.reply.size() < 1024) d.reply.append(buf, static_cast<size_t>(n));
  size_t eol = d.reply.find("\r\n");
  if (eol == std::string::npos && n > 0) return false;
  // "HTTP/1.1 200 OK": the status is the second word.
  size_t space = d.reply.find(' ');
  bool ok = space != std::string::npos && space + 1 < d.reply.size() && d.reply[space + 1] == '2';
  finish(d, ok);
  return true;
}

void senderLoop() {
  std::vector<Delivery> deliveries;
  std::vector<pollfd> fds;
  for (;;) {
    Clock::time_point now = Clock::now();
    int timeoutMs = 60'000;  // expiry is checked at least this often
    {
      std::lock_guard lock(g_state.mutex);
      if (g_state.stopping) break;
      purgeExpired(now);
      startDeliveries(deliveries, now);
      for (const auto& entry : g_state.subscriptions) {
        const Subscription& sub = entry.second;
        if (sub.held || sub.queued.empty() || sub.notBefore <= now) continue;
        auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(sub.notBefore - now);
        timeoutMs = std::min<int>(timeoutMs, static_cast<int>(wait.count()) + 1);
      }
    }
    fds.clear();
    fds.push_back({g_state.wake, POLLIN, 0});
    for (const Delivery& d : deliveries) {
      short events = d.sent < d.request.size() ? POLLOUT : POLLIN;
      fds.push_back({d.fd, events, 0});
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(d.deadline - now).count();
      timeoutMs = std::min<int>(timeoutMs, std::max<int>(0, static_cast<int>(left)));
    }
    int ready = poll(fds.data(), fds.size(), timeoutMs);
    if (ready < 0 && errno != EINTR) break;
    if (fds[0].revents & POLLIN) {
      uint64_t count;
      ssize_t n = read(g_state.wake, &count, sizeof count);
      (void)n;
    }
    now = Clock::now();
    std::vector<Delivery> open;
    for (size_t i = 0; i < deliveries.size(); ++i) {
      Delivery& d = deliveries[i];
      bool ended = fds[i + 1].revents != 0 && step(d, fds[i + 1].revents);
      if (!ended && d.deadline <= now) {
        finish(d, false);
        ended = true;
      }
      if (!ended) open.push_back(std::move(d));
    }
    deliveries.swap(open);
  }
  for (Delivery& d : deliveries)
    if (d.fd >= 0) close(d.fd);
}

size_t countFrom(in_addr_t client) {
  size_t n = 0;
  for (const auto& entry : g_state.subscriptions)
    if (entry.second.client == client) ++n;
  return n;
}

}  // namespace

int GenaStart() {
  std::lock_guard lock(g_state.mutex);
  if (g_state.running) return -1;
  g_state.wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (g_state.wake < 0) return -1;
  g_state.stopping = false;
  g_state.running = true;
  g_state.sender = std::thread(senderLoop);
  return 0;
}

void GenaStop() {
  {
    std::lock_guard lock(g_state.mutex);
    if (!g_state.running) return;
    g_state.stopping = true;
  }
  wakeSender();
  g_state.sender.join();
  std::lock_guard lock(g_state.mutex);
  close(g_state.wake);
  g_state.wake = -1;
  g_state.subscriptions.clear();
  g_state.running = false;
}

GenaReply GenaSubscribe(const char* serviceId, const sockaddr_in& client, const char* callback,
                        const char* nt, const char* timeout) {
  if (!serviceId || !callback || !nt || strcmp(nt, "upnp:event") != 0) return {412, "", 0};
  Subscription sub;
  sub.serviceId = serviceId;
  sub.client = client.sin_addr.s_addr;
  if (!pickCallback(callback, sub.client, &sub)) {
    char ip[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &client.sin_addr, ip, sizeof ip);
    DMS_LOG(kLogEvent, "subscription from %s refused: no callback at its own address", ip);
    return {412, "", 0};
  }
  int seconds = grantedTimeout(timeout);
  std::lock_guard lock(g_state.mutex);
  if (!g_state.running) return {503, "", 0};
  Clock::time_point now = Clock::now();
  purgeExpired(now);
  if (g_state.subscriptions.size() >= kMaxSubscriptions || countFrom(sub.client) >= kMaxPerClient)
    return {503, "", 0};
  sub.expires = now + std::chrono::seconds(seconds);
  std::string sid = newSid();
  g_state.subscriptions.emplace(sid, std::move(sub));
  return {200, sid, seconds};
}

GenaReply GenaRenew(const char* serviceId, const char* sid, const char* timeout) {
  if (!serviceId || !sid) return {412, "", 0};
  int seconds = grantedTimeout(timeout);
  std::lock_guard lock(g_state.mutex);
  auto it = g_state.subscriptions.find(sid);
  if (it == g_state.subscriptions.end() || it->second.serviceId != serviceId ||
      it->second.expires <= Clock::now())
    return {412, "", 0};
  it->second.expires = Clock::now() + std::chrono::seconds(seconds);
  return {200, sid, seconds};
}

unsigned GenaUnsubscribe(const char* serviceId, const char* sid) {
  if (!serviceId || !sid) return 412;
  std::lock_guard lock(g_state.mutex);
  auto it = g_state.subscriptions.find(sid);
  if (it == g_state.subscriptions.end() || it->second.serviceId != serviceId) return 412;
  if (it->second.inFlight) {
    // The sender finishes its delivery first; nothing more is sent.
    it->second.queued.clear();
    it->second.expires = Clock::now();
  } else {
    g_state.subscriptions.erase(it);
  }
  return 200;
}

int GenaAccept(const char* serviceId, const char* sid, const char** names, const char** values,
               int count) {
  if (!serviceId || !sid || count < 0 || (count > 0 && (!names || !values))) return -1;
  std::string body = propertySet(names, values, count);
  std::lock_guard lock(g_state.mutex);
  auto it = g_state.subscriptions.find(sid);
  if (it == g_state.subscriptions.end() || it->second.serviceId != serviceId) return -1;
  it->second.accepted = true;
  it->second.seq = 0;
  enqueue(it->second, std::move(body));
  return 0;
}

void GenaRelease(const std::string& sid) {
  {
    std::lock_guard lock(g_state.mutex);
    auto it = g_state.subscriptions.find(sid);
    if (it == g_state.subscriptions.end()) return;
    it->second.held = false;
    it->second.notBefore = Clock::now() + kInitialEventDelay;
  }
  wakeSender();
}

int GenaNotify(const char* serviceId, const char** names, const char** values, int count) {
  if (!serviceId || count <= 0 || !names || !values) return -1;
  std::string body = propertySet(names, values, count);
  {
    std::lock_guard lock(g_state.mutex);
    if (!g_state.running) return -1;
    for (auto& [sid, sub] : g_state.subscriptions)
      if (sub.accepted && sub.serviceId == serviceId) enqueue(sub, body);
  }
  wakeSender();
  return 0;
}

size_t GenaSubscriptionCount() {
  std::lock_guard lock(g_state.mutex);
  return g_state.subscriptions.size();
}
