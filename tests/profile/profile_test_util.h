// Helpers for the profile rule tests: a zeroed MediaInfo, file heads that
// select an MPEG packaging, and profile comparison.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "profile/audio.h"
#include "profile/profile.h"

namespace profile_test {

inline std::unique_ptr<MediaInfo> newInfo(const char* format = "") {
  auto info = std::make_unique<MediaInfo>();
  strncpy(info->format, format, sizeof(info->format) - 1);
  return info;
}

// A folder of this process for the test files, made on first use and removed
// when the process exits (each ctest run is a process of its own).
inline const std::string& testDir() {
  struct Dir {
    std::string path =
        (std::filesystem::temp_directory_path() / ("dmsd_profile_" + std::to_string(getpid())))
            .string();
    Dir() { std::filesystem::create_directories(path); }
    ~Dir() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static const Dir dir;
  return dir.path;
}

inline std::string writeFile(const std::string& name, const std::vector<uint8_t>& bytes) {
  std::string path = testDir() + "/" + name;
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  return path;
}

// Sets the format and a file head whose sync bytes select the container
// number `container` (13..17).
inline void setMpegContainer(MediaInfo* info, uint32_t container, const char* format = "mpegts") {
  uint8_t* bytes = info->head;
  memset(bytes, 0xAA, sizeof info->head);
  switch (container) {
    case kContainerMpegTs188:
      bytes[5] = bytes[5 + 188] = 0x47;
      break;
    case kContainerMpegTs192:
    case kContainerMpegTs192Z:
      bytes[4] = bytes[4 + 192] = 0x47;
      for (int i = 0; i < 4; ++i) bytes[4 + 188 + i] = container == kContainerMpegTs192 ? 1 : 0;
      break;
    default:
      bytes[0] = bytes[1] = 0;
      bytes[2] = 1;
      bytes[3] = container == kContainerMpegPs ? 0xBA : 0xB3;
      break;
  }
  info->head_size = sizeof info->head;
  strncpy(info->format, format, sizeof(info->format) - 1);
}

// Expected profile: name and MIME, or none.
struct Want {
  const char* name;
  const char* mime;
};

inline void expectProfile(const DlnaProfile* got, const Want& want, const std::string& what) {
  if (!want.name) {
    EXPECT_EQ(got, nullptr) << what << ": got " << (got ? got->name : "");
    return;
  }
  ASSERT_NE(got, nullptr) << what;
  EXPECT_STREQ(got->name, want.name) << what;
  EXPECT_STREQ(got->mime, want.mime) << what;
}

}  // namespace profile_test
