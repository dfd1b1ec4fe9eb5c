// A small JSON reader for ffprobe's output: objects, arrays, strings with the
// one-character escapes, and bare numbers and literals kept as their text.
// Kept here rather than pulling in a JSON library for the tests' sake alone;
// anything else (a \u escape, say) is refused, so a new view fails loudly.
#include "ffprobe_view.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <utility>

#include "media/media_codec.h"

namespace {

struct Json {
  bool object = false;
  std::string text;  // a string's value, or a number's or literal's spelling
  std::vector<std::pair<std::string, Json>> members;
  std::vector<Json> items;

  const Json* get(std::string_view key) const {
    for (const auto& [name, value] : members) {
      if (name == key) return &value;
    }
    return nullptr;
  }
};

class Parser {
 public:
  explicit Parser(std::string_view in) : in_(in) {}

  bool document(Json* out) { return value(out, 0) && (skip(), pos_ == in_.size()); }

 private:
  static constexpr int kMaxDepth = 64;  // guards the recursion on bad input

  void skip() {
    while (pos_ < in_.size() &&
           std::string_view(" \t\r\n").find(in_[pos_]) != std::string_view::npos)
      ++pos_;
  }
  bool eat(char c) {
    skip();
    if (pos_ >= in_.size() || in_[pos_] != c) return false;
    ++pos_;
    return true;
  }

  bool string(std::string* out) {
    if (!eat('"')) return false;
    while (pos_ < in_.size()) {
      char c = in_[pos_++];
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20 || (c == '\\' && pos_ == in_.size())) return false;
      if (c == '\\') {
        const size_t at = std::string_view("\"\\/bfnrt").find(in_[pos_++]);
        if (at == std::string_view::npos) return false;
        c = "\"\\/\b\f\n\r\t"[at];
      }
      out->push_back(c);
    }
    return false;
  }

  // Members of an object or items of an array, up to `close`.
  template <typename Each>
  bool list(char close, Each each) {
    if (eat(close)) return true;
    do {
      if (!each()) return false;
    } while (eat(','));
    return eat(close);
  }

  bool value(Json* out, int depth) {
    if (depth > kMaxDepth) return false;
    if (eat('{')) {
      out->object = true;
      return list('}', [&] {
        std::string key;
        Json v;
        if (!string(&key) || !eat(':') || !value(&v, depth + 1)) return false;
        out->members.emplace_back(std::move(key), std::move(v));
        return true;
      });
    }
    if (eat('[')) {
      return list(']', [&] { return value(&out->items.emplace_back(), depth + 1); });
    }
    skip();
    if (pos_ < in_.size() && in_[pos_] == '"') return string(&out->text);
    const size_t start = pos_;
    while (pos_ < in_.size() &&
           std::string_view(",]} \t\r\n").find(in_[pos_]) == std::string_view::npos)
      ++pos_;
    out->text = in_.substr(start, pos_ - start);
    double d = 0;
    const char* end = out->text.data() + out->text.size();
    return out->text == "true" || out->text == "false" || out->text == "null" ||
           (!out->text.empty() && std::from_chars(out->text.data(), end, d).ptr == end);
  }

  std::string_view in_;
  size_t pos_ = 0;
};

// Numbers and numeric strings both count; anything else reads as 0.
template <typename T>
T number(const Json* v) {
  T n{};
  if (v == nullptr) return n;
  const char* end = v->text.data() + v->text.size();
  if (std::from_chars(v->text.data(), end, n).ptr == end) return n;
  double d = 0;  // "1.5" style texts for an integer truncate
  return std::from_chars(v->text.data(), end, d).ptr == end ? static_cast<T>(d) : T{};
}

std::string textOf(const Json* v) {
  return v ? v->text : std::string();
}

struct CodecName {
  const char* name;
  uint32_t id;
};
constexpr CodecName kCodecNames[] = {
    {"mpeg1video", kMediaCodecMpeg1Video},
    {"mpeg2video", kMediaCodecMpeg2Video},
    {"mpeg4", kMediaCodecMpeg4},
    {"h264", kMediaCodecH264},
    {"flv1", kMediaCodecFlv1},
    {"wmv2", kMediaCodecWmv2},
    {"mp2", kMediaCodecMp2},
    {"mp3", kMediaCodecMp3},
    {"aac", kMediaCodecAac},
    {"ac3", kMediaCodecAc3},
    {"wmav2", kMediaCodecWmaV2},
    {"pcm_u8", kMediaCodecPcmU8},
    {"pcm_dvd", kMediaCodecPcmDvd},
};

FfprobeStream pickStream(const Json& s) {
  FfprobeStream out;
  for (auto [key, field] : {std::pair{"codec_type", &FfprobeStream::codec_type},
                            {"codec_name", &FfprobeStream::codec_name},
                            {"profile", &FfprobeStream::profile},
                            {"r_frame_rate", &FfprobeStream::r_frame_rate}}) {
    out.*field = textOf(s.get(key));
  }
  for (auto [key, field] : {std::pair{"width", &FfprobeStream::width},
                            {"height", &FfprobeStream::height},
                            {"channels", &FfprobeStream::channels},
                            {"sample_rate", &FfprobeStream::sample_rate},
                            {"level", &FfprobeStream::level}}) {
    out.*field = number<int>(s.get(key));
  }
  out.bit_rate = number<int64_t>(s.get("bit_rate"));
  out.duration = number<double>(s.get("duration"));
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
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  Json root;
  if (!file || text.empty() || !Parser(text).document(&root) || !root.object) return std::nullopt;

  FfprobeView view;
  if (const Json* format = root.get("format")) {
    view.format_name = textOf(format->get("format_name"));
    view.duration = number<double>(format->get("duration"));
    view.bit_rate = number<int64_t>(format->get("bit_rate"));
    view.size = number<int64_t>(format->get("size"));
  }
  if (const Json* streams = root.get("streams")) {
    for (const Json& s : streams->items) {
      if (s.object) view.streams.push_back(pickStream(s));
    }
  }
  return view;
}

uint32_t codecOf(const FfprobeStream* stream) {
  if (stream == nullptr) return kMediaCodecNone;
  for (const CodecName& row : kCodecNames) {
    if (stream->codec_name == row.name) return row.id;
  }
  return kUnknownFfprobeCodec;
}

double frameRate(const std::string& fraction) {
  unsigned num = 0, den = 0;
  return sscanf(fraction.c_str(), "%u/%u", &num, &den) == 2 && den ? 1.0 * num / den : 0;
}
