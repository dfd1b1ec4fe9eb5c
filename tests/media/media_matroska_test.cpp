// The Matroska reader on EBML built here: codec names, disabled tracks, the
// header and SeekHead refusals with their messages, the single-precision
// duration.
#include "media/media_matroska.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>

#include "media/reader_test_util.h"

namespace {

using namespace reader_test;

constexpr uint32_t kEbml = 0x1A45DFA3, kSegment = 0x18538067, kSeekHead = 0x114D9B74;
constexpr uint32_t kInfo = 0x1549A966, kTracks = 0x1654AE6B, kTrackEntry = 0xAE;
constexpr uint32_t kTrackType = 0x83, kCodecId = 0x86, kCodecPrivate = 0x63A2;

// An element: its id, a 1- or 4-byte size, the payload.
Bytes el(uint32_t id, const Bytes& payload) {
  const int id_len = id > 0xFFFFFF ? 4 : id > 0xFFFF ? 3 : id > 0xFF ? 2 : 1;
  const uint64_t n = payload.size();
  const Bytes size = n < 0x7F ? Bytes{static_cast<uint8_t>(0x80 | n)} : be(0x10000000 | n, 4);
  return cat({be(id, id_len), size, payload});
}

Bytes uintEl(uint32_t id, uint64_t value, int width = 4) {
  return el(id, be(value, width));
}

Bytes strEl(uint32_t id, const std::string& s) {
  return el(id, Bytes(s.begin(), s.end()));
}

Bytes floatEl(uint32_t id, double value) {
  uint64_t bits = 0;
  memcpy(&bits, &value, sizeof bits);
  return el(id, be(bits, 8));
}

Bytes track(std::initializer_list<Bytes> elements) {
  return el(kTrackEntry, cat(elements));
}

// Element order as one common muxer writes it: CodecID before TrackType.
// The Video master also holds an element no table lists (Colour).
const Bytes kH264Track =
    track({uintEl(0xD7, 1, 1), strEl(kCodecId, "V_MPEG4/ISO/AVC"), uintEl(kTrackType, 1, 1),
           uintEl(0x23E383, 40000000),
           el(0xE0, cat({uintEl(0xB0, 1920, 2), uintEl(0xBA, 1080, 2), el(0x55B0, Bytes(6, 0))})),
           el(kCodecPrivate, {1, 0x64, 0, 0x29, 0xFF, 0xE1, 0, 0x19})});
const Bytes kAacTrack =
    track({uintEl(kTrackType, 2, 1), strEl(kCodecId, "A_AAC"), el(kCodecPrivate, {0x11, 0x90}),
           el(0xE1, cat({floatEl(0xB5, 48000.0), uintEl(0x9F, 6, 1)}))});

struct Mkv {
  std::string doc_type = "matroska";
  uint32_t ebml_version = 1;
  Bytes info = cat({uintEl(0x2AD7B1, 1000000), floatEl(0x4489, 120000.0)});
  Bytes tracks = cat({kH264Track, kAacTrack});
  bool seek_head = true;
  bool seek_info = true;

  Bytes bytes() const {
    const Bytes header = el(kEbml, cat({uintEl(0x4286, ebml_version, 1), strEl(0x4282, doc_type)}));
    const Bytes info_el = el(kInfo, info), tracks_el = el(kTracks, tracks);
    const auto seek = [](uint32_t id, uint32_t pos) {
      return el(0x4DBB, cat({el(0x53AB, be(id, 4)), uintEl(0x53AC, pos)}));
    };
    const auto head = [&](uint32_t info_pos, uint32_t tracks_pos) {
      return el(kSeekHead,
                cat({seek(seek_info ? kInfo : 0x1F43B675, info_pos), seek(kTracks, tracks_pos)}));
    };
    const auto at = static_cast<uint32_t>(head(0, 0).size());
    const Bytes body = seek_head ? cat({head(at, at + info_el.size()), info_el, tracks_el})
                                 : cat({info_el, tracks_el});
    return cat({header, el(kSegment, body)});
  }
};

std::unique_ptr<MediaInfo> readMkv(const Bytes& bytes, int32_t* result) {
  auto info = std::make_unique<MediaInfo>();
  info->file_size = static_cast<uint32_t>(bytes.size());
  *result = readBytes(mkv_read_info, kMediaFileMkv, bytes, info.get());
  return info;
}

TEST(MatroskaReader, RefusedFilesSayWhy) {
  const auto make = [](auto change) {
    Mkv mkv;
    change(mkv);
    return mkv.bytes();
  };
  const Bytes good = Mkv{}.bytes();
  Bytes bad_signature = good;
  bad_signature[0] = 0x1B;
  const struct {
    const char* name;
    Bytes file;
    int32_t result;
    const char* message;
  } cases[] = {
      {"webm", make([](Mkv& m) { m.doc_type = "webm"; }), -1, "Unkonwn MATROSKA_DOC_TYPE!"},
      {"longer", make([](Mkv& m) { m.doc_type = "matroska2"; }), -1, "Unkonwn MATROSKA_DOC_TYPE!"},
      {"no doc type", make([](Mkv& m) { m.doc_type = ""; }), -3, "_ebml_parse_header failed!(-3)"},
      {"version", make([](Mkv& m) { m.ebml_version = 2; }), -1,
       "Higher EBML Version (Ver 2), Not Support!!"},
      {"no seek head", make([](Mkv& m) { m.seek_head = false; }), -1,
       "_ebml_parse_seek failed!(-1)"},
      {"signature", bad_signature, -1, "_ebml_parse_header failed!(-1)"},
      {"cut in header", Bytes(good.begin(), good.begin() + 12), -2,
       "_ebml_parse_header failed!(-2)"},
      {"empty", {}, -2, ""},
      {"webm fixture", fixtureBytes("webm_vp8.webm"), -1, "Unkonwn MATROSKA_DOC_TYPE!"},
  };
  for (const auto& c : cases) {
    int32_t rc = 0;
    std::unique_ptr<MediaInfo> info;
    const std::string log = logOf(kLogEvent, [&] { info = readMkv(c.file, &rc); });
    EXPECT_EQ(rc, c.result) << c.name;
    EXPECT_NE(log.find(c.message), std::string::npos) << c.name << ": " << log;
    EXPECT_EQ(info->has_video, 0) << c.name;
  }
}

}  // namespace
