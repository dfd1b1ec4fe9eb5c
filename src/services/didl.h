// DIDL-Lite writing for Browse and Search: the document frame, one element per
// container or item with the Filter honoured, and the res elements that carry
// the media URLs. Callers hold the tree's read lock while writing entries.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

struct DlnaEntry;

// A growable text; appends that fail leave it as it was. A Browse page is
// written in a few thousand pieces, so the plain appends avoid formatting.
class TextBuffer {
 public:
  // Appends printf-style; false when formatting or memory fails.
  bool appendf(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
  bool append(const char* text);
  bool append(std::string_view text);
  // The decimal text of `value`, zero-padded to at least `width` digits.
  bool appendNumber(long long value, int width = 1);
  const std::string& str() const { return text_; }
  const char* c_str() const { return text_.c_str(); }
  size_t size() const { return text_.size(); }

 private:
  std::string text_;
};

void _dlnaDidlAddHeader(TextBuffer* buffer);
void _dlnaDidlAddFooter(TextBuffer* buffer);
// ` name="value"`, raw; nothing for a null value.
void _dlnaDidlAddParam(TextBuffer* buffer, const char* name, const char* value);
// `<name>value</name>` with the value escaped; nothing for a null value.
void _dlnaDidlAddTag(TextBuffer* buffer, const char* name, const char* value);

// 1 when the comma-separated filter has a token that begins with `name`; for a
// name starting with '@' the tokens are compared from their first '@' on.
int _dlnaFilterHasVal(const char* filter, const char* name);

// The text of `id` up to its last '$' into `parent` (not terminated: zero it
// first), or "-1" without a '$'. 0, or -1 for a null argument.
int _dlnaGetPid(char* parent, const char* id);

void _dlnaDidlAddContainer(TextBuffer* buffer, DlnaEntry* entry, const char* id,
                           const char* filter);
void _dlnaDidlAddItem(TextBuffer* buffer, DlnaEntry* entry, const char* id, const char* filter);
