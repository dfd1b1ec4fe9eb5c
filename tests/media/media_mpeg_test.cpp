// MPEG stream reader over streams built byte by byte for what encoders rarely
// make (wrapping time stamps, 192-byte packets, every stream type, DVD
// private-stream audio), and a sparse 2 GiB file read in bounded bytes.
#include "media/media_mpeg.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "media/reader_test_util.h"

namespace {

using reader_test::Bytes;

struct ReadResult {
  int32_t rc = 0;
  std::unique_ptr<MediaInfo> info = std::make_unique<MediaInfo>();
};

ReadResult readBytes(const Bytes& bytes) {
  ReadResult r;
  r.rc = reader_test::readBytes(mpeg_read_info, kMediaFileMpeg2, bytes, r.info.get());
  return r;
}

Bytes pesPacket(uint8_t sid, uint64_t pts, const Bytes& payload, bool bounded = true) {
  Bytes p = {0, 0, 1, sid, 0, 0, 0x80, 0x80, 5};
  p.push_back(static_cast<uint8_t>(0x21 | (pts >> 29 & 0x0E)));
  p.push_back(static_cast<uint8_t>(pts >> 22));
  p.push_back(static_cast<uint8_t>((pts >> 14 & 0xFE) | 1));
  p.push_back(static_cast<uint8_t>(pts >> 7));
  p.push_back(static_cast<uint8_t>((pts << 1 & 0xFE) | 1));
  p.insert(p.end(), payload.begin(), payload.end());
  size_t len = bounded ? p.size() - 6 : 0;
  p[4] = static_cast<uint8_t>(len >> 8);
  p[5] = static_cast<uint8_t>(len);
  return p;
}

constexpr uint16_t kEsPid = 0x101;

// Transport stream writer; 192-byte packets get a non-zero time stamp prefix.
struct TsWriter {
  size_t packet_size = 188;
  Bytes out;
  void packet(uint16_t pid, bool pusi, const uint8_t* data, size_t n) {
    if (packet_size == 192) out.insert(out.end(), {0x12, 0x34, 0x56, 0x78});
    out.insert(out.end(), {0x47, static_cast<uint8_t>((pusi ? 0x40 : 0) | pid >> 8),
                           static_cast<uint8_t>(pid), static_cast<uint8_t>(n < 184 ? 0x30 : 0x10)});
    if (n < 184) {  // stuffing in the adaptation field
      out.push_back(static_cast<uint8_t>(183 - n));
      if (n < 183) out.push_back(0), out.insert(out.end(), 182 - n, 0xFF);
    }
    out.insert(out.end(), data, data + n);
  }
  void psi(uint16_t pid, uint8_t table, Bytes body) {
    Bytes s = {0, table, 0xB0, 0};
    s.insert(s.end(), {0, 1, 0xC1, 0, 0});
    s.insert(s.end(), body.begin(), body.end());
    s.insert(s.end(), 4, 0);  // CRC, not checked
    s[3] = static_cast<uint8_t>(s.size() - 4);
    packet(pid, true, s.data(), s.size());
  }
  // One program: its map on PID 0x100, its one stream on kEsPid.
  void tables(uint8_t type, const Bytes& desc = {}) {
    psi(0, 0, {0, 1, 0xE1, 0x00});
    Bytes b = {0xE1, 0x01, 0xF0, 0x00, type, 0xE1, 0x01, 0xF0, static_cast<uint8_t>(desc.size())};
    b.insert(b.end(), desc.begin(), desc.end());
    psi(0x100, 2, b);
  }
  void pes(uint16_t pid, const Bytes& pes) {
    for (size_t i = 0; i < pes.size(); i += 184)
      packet(pid, i == 0, pes.data() + i, std::min<size_t>(184, pes.size() - i));
  }
  void nulls(size_t count) {
    for (size_t i = 0; i < count; ++i) packet(0x1FFF, false, nullptr, 0);
  }
};

Bytes mp2Frame() {  // MPEG-1 layer 2, 48 kHz, 128 kbit/s, stereo: 384 bytes
  Bytes f(384, 0);
  f[0] = 0xFF, f[1] = 0xFD, f[2] = 0x84, f[3] = 0x00;
  return f;
}

// ---- Built streams ----

struct DurationCase {
  const char* what;
  std::vector<uint64_t> pts;  // audio PES time stamps in file order
  size_t gap_packets;         // null packets before the last PES
  int64_t us;
};

TEST(MpegReader, DurationFromFirstAndLastTimeStamps) {
  const DurationCase cases[] = {
      {"in order", {90000, 135000, 180000}, 0, 1000000},
      {"first is not the earliest", {93600, 90000, 97200}, 0, 80000},
      {"wraps at 2^33", {(uint64_t{1} << 33) - 45000, 0, 45000}, 0, 1000000},
      {"last only in the tail window", {90000, 99000, 360000}, 2000, 3000000},
      {"single time stamp", {90000}, 0, 0},
  };
  for (size_t packet_size : {188, 192}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(std::string(c.what) + " / " + std::to_string(packet_size));
      TsWriter ts;
      ts.packet_size = packet_size;
      ts.tables(0x03);
      for (size_t i = 0; i < c.pts.size(); ++i) {
        if (i + 1 == c.pts.size()) ts.nulls(c.gap_packets);
        ts.pes(kEsPid, pesPacket(0xC0, c.pts[i], mp2Frame()));
      }
      ReadResult r = readBytes(ts.out);
      ASSERT_EQ(r.rc, 0);
      EXPECT_STREQ(r.info->format, "mpegts");
      EXPECT_EQ(r.info->duration, c.us);
      EXPECT_EQ(r.info->audio_codec, kMediaCodecMp2);
      EXPECT_EQ(r.info->sample_rate, 48000u);
      EXPECT_EQ(r.info->audio_bit_rate, 128000u);
      if (c.us) {
        EXPECT_NEAR(r.info->bit_rate, ts.out.size() * 8e6 / c.us, 1);
      }
    }
  }
}

TEST(MpegReader, StreamTypesAndDescriptors) {
  const struct {
    uint8_t type;
    Bytes desc;
    bool video;
    uint32_t codec;
  } cases[] = {
      {0x01, {}, true, kMediaCodecMpeg1Video},
      {0x02, {}, true, kMediaCodecMpeg2Video},
      {0x10, {}, true, kMediaCodecMpeg4},
      {0x1B, {}, true, kMediaCodecH264},
      {0xEA, {}, true, kMediaCodecVc1},
      {0x06, {0x05, 4, 'V', 'C', '-', '1'}, true, kMediaCodecVc1},
      {0x03, {}, false, kMediaCodecMp2},
      {0x0F, {}, false, kMediaCodecAac},
      {0x81, {}, false, kMediaCodecAc3},
      {0x82, {}, false, kMediaCodecDts},
      {0x86, {}, false, kMediaCodecDts},
      {0x06, {0x0A, 4, 'e', 'n', 'g', 0, 0x6A, 1, 0}, false, kMediaCodecAc3},
      {0x06, {0x05, 4, 'D', 'T', 'S', '2'}, false, kMediaCodecDts},
      {0x06, {0x05, 4, 'A', 'C', '-', '3'}, false, kMediaCodecAc3},
      {0x06, {0x7B, 0}, false, kMediaCodecDts},  // DVB's DTS descriptor
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << int{c.type} << " " << c.codec);
    TsWriter ts;
    ts.tables(c.type, c.desc);
    ts.pes(kEsPid, pesPacket(c.video ? 0xE0 : 0xBD, 90000, Bytes(16, 0)));
    ReadResult r = readBytes(ts.out);
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.info->has_video, c.video);
    EXPECT_EQ(r.info->has_audio, !c.video);
    EXPECT_EQ(c.video ? r.info->video_codec : r.info->audio_codec, c.codec);
    if (!c.video) {
      EXPECT_EQ(r.info->video_codec, kMediaCodecMpeg2Video);  // the default
    }
  }
  // Private data without a telling descriptor: MPEG audio by its PES stream id;
  // private stream 1 there may be subtitles, so it is not taken for audio.
  for (uint8_t sid : {0xC0, 0xBD}) {
    TsWriter ts;
    ts.tables(0x06);
    ts.pes(kEsPid, pesPacket(sid, 90000, mp2Frame()));
    ReadResult r = readBytes(ts.out);
    EXPECT_EQ(r.info->has_audio, sid == 0xC0);
    EXPECT_EQ(r.info->audio_codec, sid == 0xC0 ? kMediaCodecMp2 : 0u);
  }
}

TEST(MpegReader, Ac3RateFromItsFrameHeader) {
  for (auto [fscod, rate] : {std::pair{0, 48000u}, {1, 44100u}, {2, 32000u}}) {
    TsWriter ts;
    ts.tables(0x81);
    // 128 kbit/s, bsid 8, two channels.
    Bytes frame = {0x0B, 0x77, 0, 0, static_cast<uint8_t>(fscod << 6 | 16), 8 << 3, 0x40};
    frame.resize(16);
    ts.pes(kEsPid, pesPacket(0xBD, 90000, frame));
    ReadResult r = readBytes(ts.out);
    EXPECT_EQ(r.info->sample_rate, rate) << fscod;
    EXPECT_EQ(r.info->audio_bit_rate, 128000u) << fscod;
  }
}

// All ones in the 18-bit rate says "variable"; one less is a real rate.
TEST(MpegReader, SequenceHeaderRateMarker) {
  for (auto [rate, want] : {std::pair{0x3FFFFu, 0u}, {0x3FFFEu, 0x3FFFEu * 400}}) {
    const uint8_t header[16] = {0,
                                0,
                                1,
                                0xB3,
                                0x16,
                                0x01,
                                0x20,
                                0x13,
                                uint8_t(rate >> 10),
                                uint8_t(rate >> 2),
                                uint8_t(rate << 6 | 0x20)};
    MpegVideoParams v{};
    ASSERT_TRUE(mpeg_parse_video_es(header, sizeof header, 0, &v));
    EXPECT_EQ(v.width, 352);
    EXPECT_EQ(v.bit_rate, want);
  }
}

TEST(MpegReader, RejectsOtherData) {
  const Bytes others[] = {
      Bytes(4096, 0), Bytes(1000, 0x47), {'R', 'I', 'F', 'F', 0, 0, 0, 0}, {0, 0, 1, 0xB3, 0xFF}};
  for (const auto& bytes : others) EXPECT_EQ(readBytes(bytes).rc, -1);
}

// ---- Bounded reads ----

struct CountingFile {
  FILE* f;
  size_t bytes = 0;
};

FILE* countingStream(CountingFile* c) {
  cookie_io_functions_t io{};
  io.read = [](void* p, char* buf, size_t n) -> ssize_t {
    auto* c = static_cast<CountingFile*>(p);
    size_t got = fread(buf, 1, n, c->f);
    c->bytes += got;
    return static_cast<ssize_t>(got);
  };
  io.seek = [](void* p, off64_t* pos, int whence) -> int {
    auto* c = static_cast<CountingFile*>(p);
    if (fseeko(c->f, *pos, whence) != 0) return -1;
    *pos = ftello(c->f);
    return 0;
  };
  io.close = [](void* p) { return fclose(static_cast<CountingFile*>(p)->f); };
  return fopencookie(c, "rb", io);
}

TEST(MpegReader, HugeSparseFileReadsBoundedBytes) {
  char tmpl[] = "/tmp/mpeg_sparse_XXXXXX";
  ASSERT_TRUE(mkdtemp(tmpl));
  std::filesystem::path dir = tmpl, file = dir / "big.ts";
  std::filesystem::copy_file(reader_test::fixture("h264_aac.ts"), file);
  ASSERT_EQ(truncate(file.c_str(), off_t{2} << 30), 0);

  CountingFile counter{fopen(file.c_str(), "rb")};
  ASSERT_TRUE(counter.f);
  ReadResult r;
  std::unique_ptr<FILE, int (*)(FILE*)> stream(countingStream(&counter), fclose);
  MediaIo io{};
  media_init_io(&io, stream.get(), kMediaFileMpeg2);
  r.rc = mpeg_read_info(&io, r.info.get());
  std::filesystem::remove_all(dir);

  ASSERT_EQ(r.rc, 0);
  EXPECT_LT(counter.bytes, size_t{1} << 20);
  EXPECT_EQ(r.info->video_codec, kMediaCodecH264);
  EXPECT_EQ(r.info->video_width, 320);
  EXPECT_EQ(r.info->audio_codec, kMediaCodecAac);
  // The zero tail holds no time stamps, and the head alone would understate.
  EXPECT_EQ(r.info->duration, 0);
}

}  // namespace
