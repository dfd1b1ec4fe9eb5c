// The service descriptions (SCPD documents) the device publishes: the
// ContentDirectory's generated from tables, the ConnectionManager's and the
// MediaReceiverRegistrar's fixed.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// Appends 2*(level-1) blanks, `text` and, when `newline`, a line feed to the
// text in `buffer` (capacity `size`), cutting what does not fit. -1 (nothing
// appended) when level > 100 or `buffer` is null, else 0.
int _WriteTag2XML(char* buffer, size_t size, const char* text, int level, int newline);

inline constexpr size_t kCdsDescSize = 10240;

// Length of the ContentDirectory description last generated; 0 before the first.
extern std::atomic<uint32_t> g_CdsDesLen;

// Writes the ContentDirectory description into `buffer` (kCdsDescSize bytes)
// and records its length in g_CdsDesLen. Runs on the web server's threads:
// every run writes the same text and length, so concurrent runs are harmless.
void dlnaGenCdsDesc(char* buffer);

// The fixed ConnectionManager and MediaReceiverRegistrar descriptions.
extern const char g_szCmsDesc[];
extern const char g_szMsrDesc[];
