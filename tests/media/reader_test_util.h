// Byte builders and a file-backed run of one reader, shared by the reader tests
// that lay out their structures by hand.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <vector>

#include "media/media_parse.h"

namespace reader_test {

using Bytes = std::vector<uint8_t>;

// `value` in `width` bytes, most significant first.
inline Bytes be(uint64_t value, int width) {
  Bytes out;
  for (int i = width - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
  return out;
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

inline Bytes text(const char* s) {
  return Bytes(s, s + strlen(s));
}

// Runs `reader` as kind `kind` over `bytes` stored in a temporary file, so
// seeks past the end behave as on disk.
inline int32_t readBytes(MediaReaderFn reader, uint32_t kind, const Bytes& bytes, MediaInfo* info) {
  std::unique_ptr<FILE, int (*)(FILE*)> f(tmpfile(), fclose);
  if (!bytes.empty()) fwrite(bytes.data(), 1, bytes.size(), f.get());
  rewind(f.get());
  MediaIo io{};
  media_init_io(&io, f.get(), kind);
  return reader(&io, info);
}

}  // namespace reader_test
