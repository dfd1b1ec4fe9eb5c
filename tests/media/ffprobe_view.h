// Test support: the reference values for the fixture media. Each fixture
// tests/data/media/<name> has ffprobe's JSON view beside it (<name>.json);
// this loads the few fields the reader tests compare against.
//
// Numbers that ffprobe writes as strings ("duration": "1.000000") come back
// converted; a field absent from the view keeps its zero or empty default.
// Plain values, no shared state: safe to use from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct FfprobeStream {
  std::string codec_type, codec_name, profile;
  std::string r_frame_rate;  // as written, e.g. "25/1"
  int width = 0, height = 0, channels = 0, sample_rate = 0;
  int level = 0;  // H.264: level_idc, 41 for 4.1
  int64_t bit_rate = 0;
  double duration = 0;  // seconds
};

struct FfprobeView {
  std::string format_name;  // e.g. "mov,mp4,m4a,3gp,3g2,mj2"
  double duration = 0;      // seconds
  int64_t bit_rate = 0, size = 0;
  std::vector<FfprobeStream> streams;  // in ffprobe's order

  // The first stream of that type ("audio", "video", ...), or null. The
  // pointer lives as long as this view is neither changed nor destroyed.
  const FfprobeStream* first(std::string_view codec_type) const;
};

// Reads and parses the view; nullopt when the file cannot be read, is not
// JSON of the shape ffprobe writes, or has no top-level object.
std::optional<FfprobeView> loadFfprobeView(const std::string& json_path);

// The reader's codec id for the stream's ffprobe codec name: kMediaCodecNone
// for no stream, kUnknownFfprobeCodec for a name the tests have not mapped.
inline constexpr uint32_t kUnknownFfprobeCodec = 0xBAD;
uint32_t codecOf(const FfprobeStream* stream);

// r_frame_rate's "num/den" as a number; 0 for "0/0" or anything else.
double frameRate(const std::string& fraction);
