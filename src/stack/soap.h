// SOAP control of the device: one POSTed envelope in, one answer or fault out.
// The body's element nesting is checked before the XML parser sees it; the
// action goes to the device callback as the stack's action record, a
// QueryStateVariable as its variable record, and the answer comes back in the
// envelope control points expect. Thread-safe; the callback runs on the
// calling thread.
#pragma once

#include <netinet/in.h>
#include <upnp/upnp.h>

#include <cstddef>
#include <string>
#include <utility>

// The deepest element nesting a control body may have; an action is four
// levels (envelope, body, action, argument).
inline constexpr int kSoapMaxDepth = 32;

// True when no element of `text` is nested deeper than `maxDepth`.
bool SoapDepthWithin(const char* text, size_t length, int maxDepth);

// Who the request is for and where the device callback is.
struct SoapTarget {
  const char* serviceId;
  const char* udn;  // "uuid:..."
  Upnp_FunPtr callback;
  const void* cookie;
  sockaddr_in client;
};

// The answer in three parts, so a large printed action result goes out
// without being copied: head, then the printed result (malloc'd, owned, may
// be null), then tail. An empty answer has only a status.
struct SoapAnswer {
  unsigned status = 0;
  std::string head;
  char* printed = nullptr;
  std::string tail;

  SoapAnswer() = default;
  SoapAnswer(unsigned code, std::string text) : status(code), head(std::move(text)) {}
  SoapAnswer(SoapAnswer&& other) noexcept { *this = std::move(other); }
  SoapAnswer& operator=(SoapAnswer&& other) noexcept;
  SoapAnswer(const SoapAnswer&) = delete;
  SoapAnswer& operator=(const SoapAnswer&) = delete;
  ~SoapAnswer();

  size_t size() const;
};

// Runs the control request `body` with SOAPACTION `soapAction` (null when
// absent) against `target`.
SoapAnswer SoapHandle(const std::string& body, const char* soapAction, const SoapTarget& target);
