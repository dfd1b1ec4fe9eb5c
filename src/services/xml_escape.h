// Escaping of texts for the device description and DIDL-Lite documents.
#pragma once

#include <cstdint>

struct XmlConvEntry {
  int32_t ch;
  const char* entity;
};

// Characters escaped in description texts, closed by {0, nullptr}.
extern const XmlConvEntry g_tXmlConv[];

// An escaped copy of `text` (GetUB; free with RetUB), or null when the text has
// nothing to escape (use it as it is) or memory runs out.
char* dlnaConvXml(const char* text);
