// The media web server of the stack: libmicrohttpd on its own port, serving
// every GET and HEAD through the virtual directory's callbacks (header check,
// get-info, open, sendfile or read/seek, header response, close), with single
// byte ranges, a connection limit and idle timeouts.
//
// Start and stop run on the main thread while the UPnP stack is up; requests
// are served by a small pool of threads that also carry the sendfile calls.
// The callback table must outlive the server.
#pragma once

#include <cstdint>

#include "stack/web_callbacks.h"

// Serves on `ip` (IPv4 text; empty: every address) and `port`, or on a port
// the system picks when `port` is 0 or taken. 0, or -1 (logged).
int MediaServerStart(const char* ip, uint16_t port, const DlnaVirtualDirCallbacks* callbacks);

// Stops serving; open requests are ended and their handles closed.
void MediaServerStop();

// The port served on, or 0 when stopped.
uint16_t MediaServerPort();

// A single byte range of a resource of `length` bytes, from a Range value.
struct MediaByteRange {
  enum Kind { kWhole, kPart, kUnsatisfiable } kind;
  int64_t first;
  int64_t count;
};

// "bytes=first-last", "bytes=first-" and "bytes=-suffix" (a "/length" tail is
// ignored). Anything else, several ranges among them, gives the whole resource.
MediaByteRange MediaParseByteRange(const char* value, int64_t length);
