// The device on the network: the device description made from the
// configuration, the three service descriptions (the ContentDirectory one
// generated from tables, the other two fixed), and registration with the stack.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "core/dlna_info.h"
#include "core/dms_main.h"

struct XmlConvEntry {
  int32_t ch;
  const char* entity;
};

// Characters escaped in description texts, closed by {0, nullptr}.
extern const XmlConvEntry g_tXmlConv[];

// An escaped copy of `text` (GetUB; free with RetUB), or null when the text has
// nothing to escape (use it as it is) or memory runs out.
char* dlnaConvXml(const char* text);

// The device description with the 17 texts in template order (GetUB; free with
// RetUB), or null when a text is null or memory runs out.
char* dlnaGetDmsDesc(const char* modelName, const char* dmsName, const char* manufacturer,
                     const char* manufacturerUrl, const char* modelDescription,
                     const char* modelNameText, const char* modelNumber, const char* modelUrl,
                     const char* serialNumber, const char* uuid, const char* presentationUrl,
                     const char* cmsScpdUrl, const char* cmsControlUrl, const char* cmsEventUrl,
                     const char* cdsScpdUrl, const char* cdsControlUrl, const char* cdsEventUrl);

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

// Registers the device described by `config` with the stack and advertises
// it; info->deviceHandle receives the handle. 0 or -1.
int dlnaInitUpnp(DlnaInfo* info, DmsCfg* config);

// Stops and unregisters the device; -1 for a null info, else 0.
int dlnaFinishUpnp(DlnaInfo* info);
