// Charset conversion: UTF-8 checks and ISO-8859-1 by hand (they are the common
// case for file names and cost no iconv descriptor), everything else by iconv.
#include "platform/ctype.h"

#include <iconv.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "platform/alloc.h"

namespace {

std::atomic<bool> g_bEnabled{false};

const char* iconvName(int code) {
  switch (code) {
    case kCtypeUtf32Be:
      return "UTF-32BE";
    case kCtypeUtf32Le:
      return "UTF-32LE";
    case kCtypeUtf16Be:
      return "UTF-16BE";
    case kCtypeUtf16Le:
      return "UTF-16LE";
    case kCtypeUtf8:
      return "UTF-8";
    case kCtypeLatin1:
      return "ISO-8859-1";
    default:
      return nullptr;
  }
}

void latin1ToUtf8(std::string_view in, std::string& out) {
  out.clear();
  out.reserve(in.size() * 2);
  for (unsigned char c : in) {
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
}

bool iconvConvert(int from, int to, std::string_view in, std::string& out) {
  const char* fromName = iconvName(from);
  const char* toName = iconvName(to);
  if (!fromName || !toName) return false;
  iconv_t cd = iconv_open(toName, fromName);
  if (cd == reinterpret_cast<iconv_t>(-1)) return false;
  out.clear();
  char* src = const_cast<char*>(in.data());
  size_t srcLeft = in.size();
  char chunk[256];
  bool ok = true;
  while (srcLeft > 0) {
    char* dst = chunk;
    size_t dstLeft = sizeof chunk;
    size_t r = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
    out.append(chunk, sizeof chunk - dstLeft);
    if (r == static_cast<size_t>(-1) && errno != E2BIG) {
      ok = false;
      break;
    }
  }
  if (ok) {
    char* dst = chunk;
    size_t dstLeft = sizeof chunk;
    iconv(cd, nullptr, nullptr, &dst, &dstLeft);
    out.append(chunk, sizeof chunk - dstLeft);
  }
  iconv_close(cd);
  return ok;
}

}  // namespace

int ctypeInit(int enable, int /*fsCode: names are always detected*/) {
  g_bEnabled = enable != 0;
  return 0;
}

bool ctypeIsUtf8(std::string_view text) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  size_t n = text.size();
  for (size_t i = 0; i < n;) {
    unsigned char c = s[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t extra;
    uint32_t cp;
    if (c >= 0xC2 && c <= 0xDF) {
      extra = 1;
      cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      extra = 2;
      cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      extra = 3;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (n - i <= extra) return false;
    for (size_t k = 1; k <= extra; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (s[i + k] & 0x3F);
    }
    if ((extra == 2 && cp < 0x800) || (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF))) return false;
    if (cp >= 0xD800 && cp <= 0xDFFF) return false;
    i += extra + 1;
  }
  return true;
}

bool ctypeConvertStr(int from, int to, std::string_view in, std::string& out) {
  if (!g_bEnabled || to == kCtypeDetect) return false;
  if (from == kCtypeDetect) from = ctypeIsUtf8(in) ? kCtypeUtf8 : kCtypeLatin1;
  if (from == to) {
    if (from == kCtypeUtf8 && !ctypeIsUtf8(in)) return false;
    out.assign(in);
    return true;
  }
  if (from == kCtypeLatin1 && to == kCtypeUtf8) {
    latin1ToUtf8(in, out);
    return true;
  }
  return iconvConvert(from, to, in, out);
}

int ctypeConvertTo(const CtypeIn* in, CtypeOut* out) {
  if (!out) return -1;
  out->text = nullptr;
  out->len = 0;
  if (!in || (!in->text && in->len)) return -1;
  std::string converted;
  if (!ctypeConvertStr(in->code, out->code, std::string_view(in->text ? in->text : "", in->len),
                       converted))
    return -1;
  auto* block = static_cast<char*>(GetUB(converted.size() + 1));
  if (!block) return -1;
  memcpy(block, converted.data(), converted.size());
  out->text = block;
  out->len = converted.size();
  return 0;
}
