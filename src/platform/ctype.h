// The charset converter. Character-set codes:
//   -1 detect (valid UTF-8 is taken as UTF-8, anything else as ISO-8859-1),
//    2 UTF-32BE, 3 UTF-32LE, 4 UTF-16BE, 5 UTF-16LE, 6 UTF-8, 7 ISO-8859-1.
// Thread-safe once ctypeInit has run; every call converts independently.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

inline constexpr int kCtypeDetect = -1;
inline constexpr int kCtypeUtf32Be = 2;
inline constexpr int kCtypeUtf32Le = 3;
inline constexpr int kCtypeUtf16Be = 4;
inline constexpr int kCtypeUtf16Le = 5;
inline constexpr int kCtypeUtf8 = 6;
inline constexpr int kCtypeLatin1 = 7;

struct CtypeIn {
  int32_t code;
  const char* text;
  size_t len;
};

struct CtypeOut {
  int32_t code;  // wanted character set; not -1
  char* text;    // set by ctypeConvertTo: a GetUB block, NUL-terminated; caller frees with RetUB
  size_t len;    // bytes in text, without the terminator
};

// Turns the converter on (enable non-zero). File-system names are always
// detected, so `fsCode` is not used. Returns 0.
int ctypeInit(int enable, int fsCode);

// Converts in->text to out->code. 0 with out->text set, or -1 (converter off,
// unknown code, malformed input) with out->text null.
int ctypeConvertTo(const CtypeIn* in, CtypeOut* out);

// The same for C++ callers: true and `out` filled, or false.
bool ctypeConvertStr(int from, int to, std::string_view in, std::string& out);

// True when the bytes are well-formed UTF-8 (no overlongs, no surrogates).
bool ctypeIsUtf8(std::string_view text);
