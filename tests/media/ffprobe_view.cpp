// A small strict JSON parser (objects, arrays, strings with escapes, numbers,
// literals) into a value tree, and the picking of ffprobe's format and stream
// fields from it. Kept here rather than pulling in a JSON library for the
// tests' sake alone.
#include "ffprobe_view.h"

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

namespace {

struct JsonValue {
  enum class Kind { kNull, kBool, kNumber, kString, kArray, kObject };
  Kind kind = Kind::kNull;
  bool boolean = false;
  std::string text;  // a string's decoded value, or a number's literal
  std::vector<JsonValue> items;
  std::vector<std::pair<std::string, JsonValue>> members;

  const JsonValue* get(std::string_view key) const {
    for (const auto& [name, value] : members) {
      if (name == key) return &value;
    }
    return nullptr;
  }
};

class JsonParser {
 public:
  explicit JsonParser(std::string_view in) : in_(in) {}

  bool parseDocument(JsonValue* out) {
    skipSpace();
    if (!parseValue(out, 0)) return false;
    skipSpace();
    return pos_ == in_.size();
  }

 private:
  // Deep enough for any ffprobe output; guards the recursion on bad input.
  static constexpr int kMaxDepth = 64;

  bool atEnd() const { return pos_ >= in_.size(); }
  char peek() const { return atEnd() ? '\0' : in_[pos_]; }

  void skipSpace() {
    while (!atEnd() &&
           (in_[pos_] == ' ' || in_[pos_] == '\t' || in_[pos_] == '\n' || in_[pos_] == '\r')) {
      ++pos_;
    }
  }

  bool consume(char c) {
    if (atEnd() || in_[pos_] != c) return false;
    ++pos_;
    return true;
  }

  bool consumeWord(std::string_view word) {
    if (in_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }

  bool parseValue(JsonValue* out, int depth) {
    if (depth > kMaxDepth) return false;
    switch (peek()) {
      case '{':
        return parseObject(out, depth);
      case '[':
        return parseArray(out, depth);
      case '"':
        out->kind = JsonValue::Kind::kString;
        return parseString(&out->text);
      case 't':
        out->kind = JsonValue::Kind::kBool;
        out->boolean = true;
        return consumeWord("true");
      case 'f':
        out->kind = JsonValue::Kind::kBool;
        return consumeWord("false");
      case 'n':
        out->kind = JsonValue::Kind::kNull;
        return consumeWord("null");
      default:
        out->kind = JsonValue::Kind::kNumber;
        return parseNumber(&out->text);
    }
  }

  bool parseObject(JsonValue* out, int depth) {
    out->kind = JsonValue::Kind::kObject;
    ++pos_;  // '{'
    skipSpace();
    if (consume('}')) return true;
    while (true) {
      std::string key;
      skipSpace();
      if (!parseString(&key)) return false;
      skipSpace();
      if (!consume(':')) return false;
      skipSpace();
      JsonValue value;
      if (!parseValue(&value, depth + 1)) return false;
      out->members.emplace_back(std::move(key), std::move(value));
      skipSpace();
      if (consume('}')) return true;
      if (!consume(',')) return false;
    }
  }

  bool parseArray(JsonValue* out, int depth) {
    out->kind = JsonValue::Kind::kArray;
    ++pos_;  // '['
    skipSpace();
    if (consume(']')) return true;
    while (true) {
      skipSpace();
      JsonValue value;
      if (!parseValue(&value, depth + 1)) return false;
      out->items.push_back(std::move(value));
      skipSpace();
      if (consume(']')) return true;
      if (!consume(',')) return false;
    }
  }

  bool parseHex4(uint32_t* out) {
    if (in_.size() - pos_ < 4) return false;
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = in_[pos_++];
      v <<= 4;
      if (c >= '0' && c <= '9') {
        v |= static_cast<uint32_t>(c - '0');
      } else if (c >= 'a' && c <= 'f') {
        v |= static_cast<uint32_t>(c - 'a' + 10);
      } else if (c >= 'A' && c <= 'F') {
        v |= static_cast<uint32_t>(c - 'A' + 10);
      } else {
        return false;
      }
    }
    *out = v;
    return true;
  }

  static void appendUtf8(std::string* s, uint32_t cp) {
    if (cp < 0x80) {
      s->push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
      s->push_back(static_cast<char>(0xC0 | (cp >> 6)));
      s->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      s->push_back(static_cast<char>(0xE0 | (cp >> 12)));
      s->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      s->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
      s->push_back(static_cast<char>(0xF0 | (cp >> 18)));
      s->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
      s->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
      s->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
  }

  // \uXXXX, joining a surrogate pair; a lone surrogate is malformed.
  bool parseUnicodeEscape(std::string* out) {
    uint32_t cp = 0;
    if (!parseHex4(&cp)) return false;
    if (cp >= 0xDC00 && cp <= 0xDFFF) return false;
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      uint32_t low = 0;
      if (!consumeWord("\\u") || !parseHex4(&low) || low < 0xDC00 || low > 0xDFFF) return false;
      cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
    }
    appendUtf8(out, cp);
    return true;
  }

  bool parseString(std::string* out) {
    if (!consume('"')) return false;
    while (!atEnd()) {
      const char c = in_[pos_++];
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20) return false;
      if (c != '\\') {
        out->push_back(c);
        continue;
      }
      if (atEnd()) return false;
      switch (in_[pos_++]) {
        case '"':
          out->push_back('"');
          break;
        case '\\':
          out->push_back('\\');
          break;
        case '/':
          out->push_back('/');
          break;
        case 'b':
          out->push_back('\b');
          break;
        case 'f':
          out->push_back('\f');
          break;
        case 'n':
          out->push_back('\n');
          break;
        case 'r':
          out->push_back('\r');
          break;
        case 't':
          out->push_back('\t');
          break;
        case 'u':
          if (!parseUnicodeEscape(out)) return false;
          break;
        default:
          return false;
      }
    }
    return false;  // unterminated
  }

  bool digits() {
    const size_t start = pos_;
    while (!atEnd() && in_[pos_] >= '0' && in_[pos_] <= '9') ++pos_;
    return pos_ > start;
  }

  // -?(0|[1-9][0-9]*)(.[0-9]+)?([eE][+-]?[0-9]+)?, kept as its literal.
  bool parseNumber(std::string* out) {
    const size_t start = pos_;
    consume('-');
    if (consume('0')) {
      if (peek() >= '0' && peek() <= '9') return false;
    } else if (!digits()) {
      return false;
    }
    if (consume('.') && !digits()) return false;
    if (peek() == 'e' || peek() == 'E') {
      ++pos_;
      if (!consume('+')) consume('-');
      if (!digits()) return false;
    }
    out->assign(in_.substr(start, pos_ - start));
    return true;
  }

  std::string_view in_;
  size_t pos_ = 0;
};

// Numbers and numeric strings both count; anything else reads as 0.
double toDouble(const JsonValue* v) {
  if (v == nullptr || (v->kind != JsonValue::Kind::kNumber && v->kind != JsonValue::Kind::kString))
    return 0;
  double d = 0;
  const char* begin = v->text.data();
  const auto [end, ec] = std::from_chars(begin, begin + v->text.size(), d);
  return ec == std::errc() && end == begin + v->text.size() ? d : 0;
}

// Exact for integers beyond double's 53 bits; "1.5" style texts truncate.
int64_t toInt64(const JsonValue* v) {
  if (v == nullptr || (v->kind != JsonValue::Kind::kNumber && v->kind != JsonValue::Kind::kString))
    return 0;
  int64_t n = 0;
  const char* begin = v->text.data();
  const auto [end, ec] = std::from_chars(begin, begin + v->text.size(), n);
  if (ec == std::errc() && end == begin + v->text.size()) return n;
  return static_cast<int64_t>(toDouble(v));
}

int toInt(const JsonValue* v) {
  return static_cast<int>(toInt64(v));
}

// Strings as they are; a number (ffprobe once wrote "profile" as one) as its literal.
std::string toText(const JsonValue* v) {
  if (v == nullptr) return {};
  if (v->kind == JsonValue::Kind::kString || v->kind == JsonValue::Kind::kNumber) return v->text;
  return {};
}

FfprobeStream pickStream(const JsonValue& s) {
  FfprobeStream out;
  out.codec_type = toText(s.get("codec_type"));
  out.codec_name = toText(s.get("codec_name"));
  out.codec_tag_string = toText(s.get("codec_tag_string"));
  out.profile = toText(s.get("profile"));
  out.pix_fmt = toText(s.get("pix_fmt"));
  out.width = toInt(s.get("width"));
  out.height = toInt(s.get("height"));
  out.channels = toInt(s.get("channels"));
  out.sample_rate = toInt(s.get("sample_rate"));
  out.bit_rate = toInt64(s.get("bit_rate"));
  out.r_frame_rate = toText(s.get("r_frame_rate"));
  out.avg_frame_rate = toText(s.get("avg_frame_rate"));
  out.duration = toDouble(s.get("duration"));
  return out;
}

}  // namespace

const FfprobeStream* FfprobeView::first(std::string_view codec_type) const {
  for (const auto& s : streams) {
    if (s.codec_type == codec_type) return &s;
  }
  return nullptr;
}

std::optional<FfprobeView> loadFfprobeView(const std::string& json_path) {
  std::ifstream file(json_path, std::ios::binary);
  if (!file) return std::nullopt;
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (file.bad()) return std::nullopt;

  JsonValue root;
  if (!JsonParser(text).parseDocument(&root) || root.kind != JsonValue::Kind::kObject) {
    return std::nullopt;
  }

  FfprobeView view;
  if (const JsonValue* format = root.get("format");
      format != nullptr && format->kind == JsonValue::Kind::kObject) {
    view.format_name = toText(format->get("format_name"));
    view.duration = toDouble(format->get("duration"));
    view.bit_rate = toInt64(format->get("bit_rate"));
    view.size = toInt64(format->get("size"));
  }
  if (const JsonValue* streams = root.get("streams");
      streams != nullptr && streams->kind == JsonValue::Kind::kArray) {
    for (const JsonValue& s : streams->items) {
      if (s.kind == JsonValue::Kind::kObject) view.streams.push_back(pickStream(s));
    }
  }
  return view;
}
