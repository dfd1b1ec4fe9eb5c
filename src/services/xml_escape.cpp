// Escaping of texts for XML documents; see xml_escape.h.
#include "services/xml_escape.h"

#include <cstring>

#include "platform/alloc.h"

// clang-format off
const XmlConvEntry g_tXmlConv[] = {
    {'"', "&quot;"},
    {'&', "&amp;"},
    {'\'', "&apos;"},
    {'<', "&lt;"},
    {'>', "&gt;"},
    {'\n', "&#xA;"},
    {'\r', "&#xD;"},
    {'\t', "&#x9;"},
    {0, nullptr},
};
// clang-format on
// The characters of g_tXmlConv, for a quick scan.
constexpr char kXmlConvChars[] = "\"&'<>\n\r\t";

namespace {

const XmlConvEntry* findConv(unsigned char c) {
  for (const XmlConvEntry* row = g_tXmlConv; row->entity; ++row)
    if (row->ch == c) return row;
  return nullptr;
}

}  // namespace

char* dlnaConvXml(const char* text) {
  if (!text) return nullptr;
  // Most titles need nothing: find that out with one scan for the table's characters.
  if (text[strcspn(text, kXmlConvChars)] == '\0') return nullptr;
  size_t extra = 0;
  size_t length = 0;
  for (; text[length]; ++length)
    if (const XmlConvEntry* row = findConv(text[length])) extra += strlen(row->entity) - 1;
  if (extra == 0) return nullptr;
  char* escaped = static_cast<char*>(GetUB(length + extra + 1));
  if (!escaped) return nullptr;
  char* out = escaped;
  for (const char* p = text; *p; ++p) {
    if (const XmlConvEntry* row = findConv(*p)) {
      size_t n = strlen(row->entity);
      memcpy(out, row->entity, n);
      out += n;
    } else {
      *out++ = *p;
    }
  }
  *out = '\0';
  return escaped;
}
