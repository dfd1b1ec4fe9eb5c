// Byte builders, runs of one reader over built bytes or a fixture file, and a
// log capture, shared by the reader tests.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/media_parse.h"
#include "platform/log.h"

namespace reader_test {

using Bytes = std::vector<uint8_t>;

// `value` in `width` bytes, most significant first.
inline Bytes be(uint64_t value, int width) {
  Bytes out;
  for (int i = width - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
  return out;
}

// `value` in `width` bytes, least significant first; bytes past 8 are zero.
inline Bytes le(uint64_t value, int width) {
  Bytes out;
  for (int i = 0; i < width; ++i) out.push_back(i < 8 ? static_cast<uint8_t>(value >> (8 * i)) : 0);
  return out;
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

inline Bytes text(const std::string& s) {
  return Bytes(s.begin(), s.end());
}

inline Bytes prefix(const Bytes& b, size_t n) {
  return Bytes(b.begin(), b.begin() + static_cast<long>(n));
}

// Runs `reader` as kind `kind` over `bytes` stored in a temporary file, so
// seeks past the end behave as on disk. `info` is read on top of, not reset.
inline int32_t readBytes(MediaReaderFn reader, uint32_t kind, const Bytes& bytes, MediaInfo* info) {
  std::unique_ptr<FILE, int (*)(FILE*)> f(tmpfile(), fclose);
  if (!bytes.empty()) fwrite(bytes.data(), 1, bytes.size(), f.get());
  rewind(f.get());
  MediaIo io{};
  media_init_io(&io, f.get(), kind);
  return reader(&io, info);
}

inline std::string fixture(const std::string& name) {
  return std::string(DMSD_TEST_MEDIA) + "/" + name;
}

inline Bytes fixtureBytes(const std::string& name) {
  std::unique_ptr<FILE, int (*)(FILE*)> f(fopen(fixture(name).c_str(), "rb"), fclose);
  Bytes out;
  for (int c; f && (c = fgetc(f.get())) != EOF;) out.push_back(static_cast<uint8_t>(c));
  return out;
}

// Reads fixture `name` as the dispatcher would (file size, parsed flag), with
// `reader` as the only reader.
inline int32_t readFixture(MediaReaderFn reader, uint32_t kind, const std::string& name,
                           MediaInfo* info) {
  MediaReaderTable readers{};
  readers.readers[kind] = reader;
  return mediaReadInfoWith(readers, fixture(name).c_str(), kind, info);
}

// What `run` logs at `level`; the level is restored after.
template <typename Fn>
std::string logOf(int level, Fn run) {
  const int saved = g_iDmsLogLevel.exchange(level);
  testing::internal::CaptureStderr();
  run();
  g_iDmsLogLevel = saved;
  return testing::internal::GetCapturedStderr();
}

}  // namespace reader_test
