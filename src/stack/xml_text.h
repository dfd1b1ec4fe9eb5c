// Text put between XML tags by the stack's own writers (SOAP answers, event
// bodies): the three characters that would end or open markup are escaped.
#pragma once

#include <string>

inline void AppendXmlText(std::string& out, const char* text) {
  for (const char* c = text; *c; ++c) {
    switch (*c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        out += *c;
    }
  }
}
