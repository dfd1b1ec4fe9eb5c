// The device's one web server, libmicrohttpd on the configured port: the
// device description, SOAP control, GENA subscriptions, and every GET or HEAD
// through the virtual directory's callbacks (header check, get-info, open,
// sendfile or read/seek, header response, close) with single byte ranges.
// A Host that names another server is refused, request headers and bodies are
// bounded, connections are capped in all and per client address, and an
// idle connection is closed soon unless it streams media.
//
// Start and stop run on the main thread; requests are served by a small pool
// of threads that also carry the sendfile calls. The callback table must
// outlive the server.
#pragma once

#include <upnp/upnp.h>

#include <cstdint>
#include <string>

#include "stack/web_callbacks.h"

// One service of the device, as its description lists it.
struct WebService {
  std::string serviceId;
  std::string serviceType;
  std::string controlUrl;
  std::string eventUrl;
};

// What the server answers besides files: the device callback that takes
// actions, variable queries and subscriptions, and its cookie.
struct WebDevice {
  Upnp_FunPtr callback = nullptr;
  const void* cookie = nullptr;
};

// Serves on `ip` (IPv4 text) and `port`, or on a port the system picks when
// `port` is 0 or taken. 0, or -1 (logged).
int WebServerStart(const char* ip, uint16_t port, const DlnaVirtualDirCallbacks* callbacks,
                   const WebDevice& device);

// Publishes the description (served at kWebDescriptionPath) and the services
// and UDN read from it. 0, or -1 when it does not parse.
int WebServerSetDescription(const std::string& description);

// Stops serving; open requests are ended and their handles closed.
void WebServerStop();

// The port served on, or 0 when stopped.
uint16_t WebServerPort();

// The largest request body taken (SOAP control); larger ones get 413.
void WebServerSetMaxBody(size_t bytes);

inline constexpr char kWebDescriptionPath[] = "/description.xml";

// A single byte range of a resource of `length` bytes, from a Range value.
struct MediaByteRange {
  enum Kind { kWhole, kPart, kUnsatisfiable } kind;
  int64_t first;
  int64_t count;
};

// "bytes=first-last", "bytes=first-" and "bytes=-suffix" (a "/length" tail is
// ignored). Anything else, several ranges among them, gives the whole resource.
MediaByteRange MediaParseByteRange(const char* value, int64_t length);
