// MPEG program/transport/elementary stream reader: finds the first video and
// audio stream, parses their sequence and frame headers, and takes the play
// time from the presentation time stamps at the head and the tail of the file.
//
// Only a head window and a tail window are read, so a multi-gigabyte recording
// on a slow stick costs the same as a short clip. Everything after the two
// reads works on memory with explicit bounds; see media_mpeg.h.
#include "media/media_mpeg.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <vector>

#include "media/media_codec.h"
#include "media/media_io.h"
#include "media/media_parse.h"
#include "media/mpeg_bytes.h"
#include "platform/log.h"

using namespace mpeg;

namespace {

constexpr char kLogSource[] = "media_mpeg";

constexpr size_t kHeadSize = 256 * 1024;
constexpr size_t kTailSize = 128 * 1024;
// Sequence headers come first in a stream; these windows of payload hold
// them and, for audio, enough frames to average an ADTS bit rate.
constexpr size_t kVideoEsCap = 64 * 1024;
constexpr size_t kAudioEsCap = 16 * 1024;
constexpr size_t kTsPacket = 188;
constexpr uint64_t kPtsWrap = uint64_t{1} << 33;
constexpr int kSyncRun = 8;  // packets that must line up to call it a transport stream

// ---- Streams being followed ----

enum class Kind : uint8_t { kNone, kVideo, kAudio };

struct Track {
  Kind kind = Kind::kNone;
  uint32_t id = 0;       // transport PID, or program stream id
  uint8_t sub_id = 0;    // private stream 1 sub-stream
  uint32_t codec = 0;    // from the stream type or the sub-stream; 0 = look at the data
  bool started = false;  // a PES start was seen: payload goes to `es`
  std::vector<uint8_t> es;
  size_t cap = 0;
  bool has_pts = false;
  uint64_t first_pts = 0;
  int64_t min_rel = 0;  // earliest and latest time stamp, in ticks after the first
  int64_t max_rel = 0;
  bool tail_pts = false;  // a time stamp came from the tail window
  bool has_lpcm = false;
  uint8_t lpcm[3] = {};
};

// 33-bit time stamps wrap about every 26.5 hours; a difference of more than
// half the range is read as going backwards.
int64_t ptsAfter(uint64_t from, uint64_t to) {
  uint64_t d = (to - from) & (kPtsWrap - 1);
  return d >= kPtsWrap / 2 ? static_cast<int64_t>(d) - static_cast<int64_t>(kPtsWrap)
                           : static_cast<int64_t>(d);
}

// The head pass finds the streams and collects their first payload; the tail
// pass only looks for time stamps of streams already found.
enum class Pass { kHead, kTail };

void notePts(Track* t, uint64_t pts, Pass pass) {
  if (pass == Pass::kTail) t->tail_pts = true;
  if (!t->has_pts) {
    t->has_pts = true;
    t->first_pts = pts;
    return;
  }
  int64_t rel = ptsAfter(t->first_pts, pts);
  t->min_rel = std::min(t->min_rel, rel);
  t->max_rel = std::max(t->max_rel, rel);
}

void appendEs(Track* t, const uint8_t* p, size_t n) {
  size_t room = t->cap - std::min(t->cap, t->es.size());
  t->es.insert(t->es.end(), p, p + std::min(n, room));
}

struct Scan {
  Track video;
  Track audio;
  uint32_t psm_codec[256] = {};  // program stream map: stream id to codec
};

void openTrack(Track* t, Kind kind, uint32_t id, uint32_t codec) {
  t->kind = kind;
  t->id = id;
  t->codec = codec;
  t->cap = kind == Kind::kVideo ? kVideoEsCap : kAudioEsCap;
}

// ---- Transport streams ----

struct StreamTypeRow {
  uint8_t type;
  Kind kind;
  uint32_t codec;
};
// clang-format off
constexpr StreamTypeRow kStreamTypes[] = {
    {0x01, Kind::kVideo, kMediaCodecMpeg1Video},
    {0x02, Kind::kVideo, kMediaCodecMpeg2Video},
    {0x03, Kind::kAudio, kMediaCodecMp2},
    {0x04, Kind::kAudio, kMediaCodecMp2},
    {0x0F, Kind::kAudio, kMediaCodecAac},
    {0x10, Kind::kVideo, kMediaCodecMpeg4},
    {0x11, Kind::kAudio, kMediaCodecAac},
    {0x1B, Kind::kVideo, kMediaCodecH264},
    {0x81, Kind::kAudio, kMediaCodecAc3},
    {0x82, Kind::kAudio, kMediaCodecDts},
    {0x85, Kind::kAudio, kMediaCodecDts},
    {0x86, Kind::kAudio, kMediaCodecDts},
    {0x8A, Kind::kAudio, kMediaCodecDts},
    {0xEA, Kind::kVideo, kMediaCodecVc1},
};
// clang-format on

struct Classified {
  Kind kind = Kind::kNone;
  uint32_t codec = 0;
};

// Private data (type 6) and unknown types say what they carry in descriptors.
Classified classifyByDescriptors(const uint8_t* d, size_t size) {
  for (size_t i = 0; i + 2 <= size; i += 2 + size_t{d[i + 1]}) {
    uint8_t tag = d[i];
    size_t len = d[i + 1];
    if (i + 2 + len > size) break;
    const uint8_t* body = d + i + 2;
    if (tag == 0x6A || tag == 0x81) return {Kind::kAudio, kMediaCodecAc3};
    if (tag == 0x7B) return {Kind::kAudio, kMediaCodecDts};
    if (tag == 0x05 && len >= 4) {
      if (!std::memcmp(body, "AC-3", 4)) return {Kind::kAudio, kMediaCodecAc3};
      if (!std::memcmp(body, "DTS", 3) && body[3] >= '1' && body[3] <= '3')
        return {Kind::kAudio, kMediaCodecDts};
      if (!std::memcmp(body, "VC-1", 4)) return {Kind::kVideo, kMediaCodecVc1};
    }
  }
  return {};
}

Classified classifyStream(uint8_t type, const uint8_t* desc, size_t desc_size) {
  for (const auto& row : kStreamTypes)
    if (row.type == type) return {row.kind, row.codec};
  return classifyByDescriptors(desc, desc_size);
}

// The section a payload starts, after its pointer field; null if it does not fit.
const uint8_t* sectionStart(const uint8_t* payload, size_t size, uint8_t table_id,
                            size_t* section_end) {
  if (size < 1 || size_t{payload[0]} + 4 > size) return nullptr;
  const uint8_t* s = payload + 1 + payload[0];
  size_t left = size - 1 - payload[0];
  if (s[0] != table_id) return nullptr;
  size_t len = (s[1] & 0x0F) << 8 | s[2];
  // Sections longer than one packet keep what the packet holds; the CRC goes.
  *section_end = std::min(left, 3 + len);
  if (3 + len <= left && len >= 4) *section_end -= 4;
  return s;
}

struct TsPacket {
  uint32_t pid = 0;
  bool pusi = false;
  const uint8_t* payload = nullptr;
  size_t size = 0;
};

// `p` holds 188 bytes starting at the sync byte.
bool readTsPacket(const uint8_t* p, TsPacket* pk) {
  if (p[0] != 0x47 || (p[1] & 0x80)) return false;  // transport error flag
  pk->pid = (p[1] & 0x1F) << 8 | p[2];
  pk->pusi = p[1] & 0x40;
  uint32_t afc = p[3] >> 4 & 3;
  size_t off = 4;
  if (afc & 2) off += 1 + size_t{p[4]};
  if (!(afc & 1) || off >= kTsPacket) return false;
  pk->payload = p + off;
  pk->size = kTsPacket - off;
  return true;
}

// First position from `from` on where the sync byte repeats every packet for
// up to kSyncRun packets (or to the end of the buffer).
size_t findTsSync(const uint8_t* d, size_t size, size_t from, uint32_t packet_size) {
  for (size_t i = from; i + kTsPacket <= size; ++i) {
    int run = 0;
    for (size_t j = i; j < size && run < kSyncRun && d[j] == 0x47; j += packet_size) ++run;
    if (run >= kSyncRun || (run >= 2 && i + run * size_t{packet_size} >= size) ||
        (run == 1 && i + packet_size >= size))
      return i;
  }
  return size;
}

template <typename Fn>
void forEachTsPacket(const uint8_t* d, size_t size, uint32_t packet_size, Fn&& fn) {
  size_t pos = findTsSync(d, size, 0, packet_size);
  while (pos + kTsPacket <= size) {
    if (d[pos] != 0x47) {
      pos = findTsSync(d, size, pos + 1, packet_size);
      continue;
    }
    TsPacket pk;
    if (readTsPacket(d + pos, &pk)) fn(pk);
    pos += packet_size;
  }
}

void parsePat(const TsPacket& pk, std::vector<uint32_t>* pmt_pids) {
  size_t end = 0;
  const uint8_t* s = sectionStart(pk.payload, pk.size, 0x00, &end);
  if (!s) return;
  for (size_t i = 8; i + 4 <= end; i += 4) {
    uint32_t program = be16(s + i);
    uint32_t pid = (s[i + 2] & 0x1F) << 8 | s[i + 3];
    if (program != 0 && pmt_pids->size() < 32 &&
        std::find(pmt_pids->begin(), pmt_pids->end(), pid) == pmt_pids->end())
      pmt_pids->push_back(pid);
  }
}

// Streams of a type the table does not know go to `others`.
bool parsePmt(const TsPacket& pk, Scan* scan, std::vector<uint32_t>* others) {
  size_t end = 0;
  const uint8_t* s = sectionStart(pk.payload, pk.size, 0x02, &end);
  if (!s || end < 12) return false;
  size_t i = 12 + ((s[10] & 0x0F) << 8 | s[11]);
  for (; i + 5 <= end; i += 5 + ((s[i + 3] & 0x0F) << 8 | s[i + 4])) {
    uint32_t pid = (s[i + 1] & 0x1F) << 8 | s[i + 2];
    size_t desc_len = (s[i + 3] & 0x0F) << 8 | s[i + 4];
    size_t desc_end = std::min(end, i + 5 + desc_len);
    Classified c = classifyStream(s[i], s + i + 5, desc_end - (i + 5));
    Track* t = c.kind == Kind::kVideo   ? &scan->video
               : c.kind == Kind::kAudio ? &scan->audio
                                        : nullptr;
    if (t && t->kind == Kind::kNone) openTrack(t, c.kind, pid, c.codec);
    if (!t && others->size() < 32) others->push_back(pid);
  }
  return true;
}

// Where the program map says nothing useful, PES stream ids tell video from
// audio: among the map's unknown streams (`allowed`), or among all streams when
// there is no map (null). Private stream 1 also carries subtitles and
// teletext, so it counts as audio only without a map.
void tracksFromStreamIds(const uint8_t* d, size_t size, uint32_t packet_size,
                         const std::vector<uint32_t>* allowed, Scan* scan) {
  forEachTsPacket(d, size, packet_size, [&](const TsPacket& pk) {
    if (!pk.pusi || pk.pid < 0x10 || pk.pid == 0x1FFF || !isStartCode(pk.payload, pk.size)) return;
    if (allowed && std::find(allowed->begin(), allowed->end(), pk.pid) == allowed->end()) return;
    uint8_t sid = pk.payload[3];
    bool audio = (sid >= 0xC0 && sid <= 0xDF) || (sid == 0xBD && !allowed);
    if (sid >= 0xE0 && sid <= 0xEF && scan->video.kind == Kind::kNone)
      openTrack(&scan->video, Kind::kVideo, pk.pid, 0);
    else if (audio && scan->audio.kind == Kind::kNone)
      openTrack(&scan->audio, Kind::kAudio, pk.pid, 0);
  });
}

void tsFeed(Track* t, const TsPacket& pk, Pass pass) {
  bool collect = pass == Pass::kHead;
  if (pk.pusi) {
    PesHeader h;
    if (!parsePes(pk.payload, pk.size, &h)) return;
    if (h.has_pts) notePts(t, h.pts, pass);
    t->started = true;
    if (collect) appendEs(t, pk.payload + h.payload, h.end - h.payload);
  } else if (t->started && collect) {
    appendEs(t, pk.payload, pk.size);
  }
}

void tsWalkPes(const uint8_t* d, size_t size, uint32_t packet_size, Scan* scan, Pass pass) {
  forEachTsPacket(d, size, packet_size, [&](const TsPacket& pk) {
    if (scan->video.kind != Kind::kNone && pk.pid == scan->video.id)
      tsFeed(&scan->video, pk, pass);
    else if (scan->audio.kind != Kind::kNone && pk.pid == scan->audio.id)
      tsFeed(&scan->audio, pk, pass);
  });
}

void tsScanHead(const uint8_t* d, size_t size, uint32_t packet_size, Scan* scan) {
  std::vector<uint32_t> pmt_pids;
  forEachTsPacket(d, size, packet_size, [&](const TsPacket& pk) {
    if (pk.pid == 0 && pk.pusi) parsePat(pk, &pmt_pids);
  });
  bool have_pmt = false;
  std::vector<uint32_t> others;
  forEachTsPacket(d, size, packet_size, [&](const TsPacket& pk) {
    if (pk.pusi && std::find(pmt_pids.begin(), pmt_pids.end(), pk.pid) != pmt_pids.end())
      have_pmt |= parsePmt(pk, scan, &others);
  });
  if (scan->video.kind == Kind::kNone || scan->audio.kind == Kind::kNone)
    tracksFromStreamIds(d, size, packet_size, have_pmt ? &others : nullptr, scan);
  tsWalkPes(d, size, packet_size, scan, Pass::kHead);
}

// ---- Program streams ----

// Private stream 1 sub-streams: the id range, the codec, and the bytes before
// the audio frames (the id, a frame count, a first-access-unit pointer and,
// for LPCM, its own 3-byte header).
struct SubStreamRow {
  uint8_t first, last;
  uint32_t codec;
  uint8_t prefix;
};
// clang-format off
constexpr SubStreamRow kSubStreams[] = {
    {0x80, 0x87, kMediaCodecAc3, 4},
    {0x88, 0x8F, kMediaCodecDts, 4},
    {0xA0, 0xA7, kMediaCodecPcmDvd, 7},
};
// clang-format on

const SubStreamRow* subStream(uint8_t id) {
  for (const auto& row : kSubStreams)
    if (id >= row.first && id <= row.last) return &row;
  return nullptr;
}

// Pack header length: MPEG-2 packs carry stuffing, MPEG-1 packs are 12 bytes.
size_t packHeader(const uint8_t* p, size_t avail) {
  if (avail >= 14 && (p[4] & 0xC0) == 0x40) return 14 + (p[13] & 7);
  if (avail >= 12 && (p[4] & 0xF0) == 0x20) return 12;
  return 4;
}

void parsePsm(const uint8_t* p, size_t end, Scan* scan) {
  if (end < 12) return;
  size_t i = 10 + be16(p + 8);
  if (i + 2 > end) return;
  size_t map_end = std::min(end, i + 2 + be16(p + i));
  for (i += 2; i + 4 <= map_end; i += 4 + be16(p + i + 2)) {
    Classified c = classifyStream(p[i], nullptr, 0);
    scan->psm_codec[p[i + 1]] = c.codec;
  }
}

void psFeed(Track* t, const uint8_t* p, const PesHeader& h, size_t skip, Pass pass) {
  if (h.has_pts) notePts(t, h.pts, pass);
  t->started = true;
  if (pass == Pass::kHead && h.payload + skip <= h.end)
    appendEs(t, p + h.payload + skip, h.end - h.payload - skip);
}

void psPrivateStream1(const uint8_t* p, const PesHeader& h, Scan* scan, Pass pass) {
  if (h.payload >= h.end) return;
  uint8_t sub = p[h.payload];
  const SubStreamRow* row = subStream(sub);
  if (!row) return;  // subtitles and the like
  Track* t = &scan->audio;
  if (t->kind == Kind::kNone && pass == Pass::kHead) {
    openTrack(t, Kind::kAudio, 0xBD, row->codec);
    t->sub_id = sub;
  }
  if (t->id != 0xBD || t->sub_id != sub) return;
  if (row->codec == kMediaCodecPcmDvd && !t->has_lpcm && h.payload + 7 <= h.end) {
    std::memcpy(t->lpcm, p + h.payload + 4, 3);
    t->has_lpcm = true;
  }
  psFeed(t, p, h, row->prefix, pass);
}

void psPes(const uint8_t* p, size_t avail, Scan* scan, Pass pass) {
  uint8_t sid = p[3];
  bool media = sid == 0xBD || (sid >= 0xC0 && sid <= 0xEF);
  PesHeader h;
  if ((sid != 0xBC && !media) || !parsePes(p, avail, &h)) return;
  if (sid == 0xBC) {
    parsePsm(p, h.end, scan);
  } else if (sid == 0xBD) {
    psPrivateStream1(p, h, scan, pass);
  } else {
    Kind kind = sid >= 0xE0 ? Kind::kVideo : Kind::kAudio;
    Track* t = kind == Kind::kVideo ? &scan->video : &scan->audio;
    if (t->kind == Kind::kNone && pass == Pass::kHead)
      openTrack(t, kind, sid, scan->psm_codec[sid]);
    if (t->kind != Kind::kNone && t->id == sid) psFeed(t, p, h, 0, pass);
  }
}

// Walks packs and PES packets; anything else is skipped up to the next start
// code, so a cut or damaged stream resynchronises.
void psWalk(const uint8_t* d, size_t size, Scan* scan, Pass pass) {
  size_t pos = findStartCode(d, size, 0);
  while (pos + 4 <= size) {
    if (!isStartCode(d + pos, size - pos)) {
      pos = findStartCode(d, size, pos + 1);
      continue;
    }
    uint8_t sid = d[pos + 3];
    if (sid == 0xBA) {
      pos += packHeader(d + pos, size - pos);
    } else if (sid >= 0xBB && pos + 6 <= size) {
      psPes(d + pos, size - pos, scan, pass);
      pos += 6 + size_t{be16(d + pos + 4)};
    } else {
      pos += 4;
    }
  }
}

// ---- Whole file ----

enum class Container { kNone, kTransport, kProgram, kElementary };

// A program stream starts with a pack or a PES packet, an elementary video
// stream with any other start code; a few zero bytes may come first.
Container detect(const uint8_t* d, size_t size, uint32_t* packet_size) {
  size_t lead = 0;
  while (lead < size && lead < 64 && d[lead] == 0) ++lead;
  bool start = lead >= 2 && lead + 2 <= size && d[lead] == 1;
  if (start && d[lead + 1] == 0xBA) return Container::kProgram;
  *packet_size = mpeg_ts_packet_size(d, size);
  if (*packet_size) return Container::kTransport;
  if (!start) return Container::kNone;
  return d[lead + 1] >= 0xBB ? Container::kProgram : Container::kElementary;
}

int64_t fileSize(MediaIo* io) {
  if (!media_goto_end(io)) return -1;
  return ftello(io->stream);
}

bool readWindow(MediaIo* io, int64_t pos, size_t n, std::vector<uint8_t>* buf) {
  buf->assign(n, 0);
  return n > 0 && media_orient_data(io, pos) &&
         media_read_data(io, buf->data(), static_cast<uint32_t>(n));
}

void parseTracks(Scan* scan, MpegVideoParams* v, MpegAudioParams* a) {
  Track& vt = scan->video;
  if (vt.kind != Kind::kNone) {
    v->codec = vt.codec;
    mpeg_parse_video_es(vt.es.data(), vt.es.size(), vt.codec, v);
  }
  Track& at = scan->audio;
  if (at.kind != Kind::kNone) {
    a->codec = at.codec;
    if (at.codec == kMediaCodecPcmDvd) {
      if (at.has_lpcm) mpeg_parse_lpcm_header(at.lpcm, a);
    } else {
      mpeg_parse_audio_es(at.es.data(), at.es.size(), at.codec, a);
    }
  }
}

// Microseconds from the first to the last time stamp of the main stream, plus
// one frame for video whose rate is known. The main stream is the video, or
// the audio when only the audio reaches into the tail window (muxers may end
// a file with a run of audio packets).
int64_t durationUs(const Scan& scan, const MpegVideoParams& v, bool has_tail) {
  auto usable = [&](const Track& t) { return t.has_pts && (!has_tail || t.tail_pts); };
  // The head alone covers a fraction of a long file: no answer beats a wrong one.
  const Track* main = usable(scan.video) ? &scan.video : usable(scan.audio) ? &scan.audio : nullptr;
  if (!main) return 0;
  int64_t ticks = main->max_rel - main->min_rel;
  if (ticks <= 0) return 0;
  int64_t us = ticks * 100 / 9;
  if (main == &scan.video && v.frame_rate_num)
    us += 1000000LL * v.frame_rate_den / v.frame_rate_num;
  return us;
}

void fillVideo(const Track& t, const MpegVideoParams& v, MediaInfo* info) {
  if (t.kind == Kind::kNone) return;
  info->has_video = 1;
  if (v.codec) info->video_codec = v.codec;
  if (v.width) info->video_width = v.width;
  if (v.height) info->video_height = v.height;
  if (v.frame_rate_num) {
    info->frame_rate_num = v.frame_rate_num;
    info->frame_rate_den = v.frame_rate_den;
    info->frame_rate = v.frame_rate_num / v.frame_rate_den;
  }
  if (v.bit_rate) {
    info->video_bit_rate = v.bit_rate;
    info->video_max_bit_rate = v.bit_rate;
  }
  if (v.codec == kMediaCodecVc1) info->vc1_profile = v.vc1_profile;
}

void fillAudio(const Track& t, const MpegAudioParams& a, MediaInfo* info) {
  if (t.kind == Kind::kNone) return;
  info->has_audio = 1;
  info->audio_streams = 1;
  if (a.codec) info->audio_codec = a.codec;
  if (a.channels) info->channels = a.channels;
  if (a.sample_rate) info->sample_rate = a.sample_rate;
  if (a.bit_rate) {
    info->audio_bit_rate = a.bit_rate;
    info->audio_max_bit_rate = a.bit_rate;
  }
  if (a.config_size) {
    media_memcpy(info->audio_config, a.config, kMediaConfigSize, a.config_size);
    info->audio_config_size = a.config_size;
  }
}

}  // namespace

uint32_t mpeg_ts_packet_size(const uint8_t* data, size_t size) {
  if (!data) return 0;
  for (uint32_t ps : {uint32_t{188}, uint32_t{192}}) {
    size_t packets = size / ps;
    size_t need = std::min<size_t>(kSyncRun, std::max<size_t>(packets, 2));
    for (size_t i = 0; i < ps && i < size; ++i) {
      size_t run = 0;
      for (size_t j = i; j < size && run < need && data[j] == 0x47; j += ps) ++run;
      if (run >= need) return ps;
    }
  }
  return 0;
}

int32_t mpeg_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  int64_t size = fileSize(io);
  if (size <= 0) return -1;
  std::vector<uint8_t> head;
  size_t head_len = static_cast<size_t>(std::min<int64_t>(size, kHeadSize));
  if (!readWindow(io, 0, head_len, &head)) return -1;

  uint32_t packet_size = 0;
  Container kind = detect(head.data(), head.size(), &packet_size);
  if (kind == Container::kNone) {
    DMS_LOG(kLogEvent, "not an MPEG stream\n");
    return -1;
  }

  auto scan = std::make_unique<Scan>();
  if (kind == Container::kTransport) {
    tsScanHead(head.data(), head.size(), packet_size, scan.get());
  } else if (kind == Container::kProgram) {
    psWalk(head.data(), head.size(), scan.get(), Pass::kHead);
  } else {
    openTrack(&scan->video, Kind::kVideo, 0, 0);
    scan->video.es.assign(head.begin(), head.begin() + std::min(head.size(), kVideoEsCap));
  }

  if (scan->video.kind == Kind::kNone && scan->audio.kind == Kind::kNone) {
    DMS_LOG(kLogEvent, "no audio or video stream found\n");
    return -1;
  }

  // Time stamps near the end give the play time; the tail window never
  // overlaps the head.
  std::vector<uint8_t> tail;
  int64_t tail_pos =
      std::max<int64_t>(static_cast<int64_t>(head_len), size - static_cast<int64_t>(kTailSize));
  if (kind != Container::kElementary && tail_pos < size &&
      readWindow(io, tail_pos, static_cast<size_t>(size - tail_pos), &tail)) {
    if (kind == Container::kTransport)
      tsWalkPes(tail.data(), tail.size(), packet_size, scan.get(), Pass::kTail);
    else
      psWalk(tail.data(), tail.size(), scan.get(), Pass::kTail);
  }

  MpegVideoParams v{};
  MpegAudioParams a{};
  parseTracks(scan.get(), &v, &a);
  if (kind == Container::kElementary && v.codec == 0) {
    DMS_LOG(kLogEvent, "no video sequence header in elementary stream\n");
    return -1;
  }

  media_strncpy(info->format, kind == Container::kTransport ? "mpegts" : "mpeg", 64);
  info->video_codec = kMediaCodecMpeg2Video;
  fillVideo(scan->video, v, info);
  fillAudio(scan->audio, a, info);
  if (v.codec == kMediaCodecVc1 && a.codec == kMediaCodecDts) info->audio_sub_type = a.sub_type;

  int64_t us = durationUs(*scan, v, tail_pos < size);
  uint64_t bits = static_cast<uint64_t>(size) * 8;
  if (us == 0 && kind == Container::kElementary && v.bit_rate) {
    // No time stamps to go by: estimate from the declared rate.
    us = static_cast<int64_t>(static_cast<double>(bits) * 1e6 / v.bit_rate);
  }
  if (us > 0) {
    info->duration = us;
    double rate = static_cast<double>(bits) * 1e6 / static_cast<double>(us);
    info->bit_rate = static_cast<uint32_t>(std::min(rate, 4294967295.0));
  }
  DMS_LOG(kLogTrace, "%s: video %u %ux%u, audio %#x %u Hz %u ch, %lld us\n", info->format,
          info->video_codec, info->video_width, info->video_height, info->audio_codec,
          info->sample_rate, info->channels, static_cast<long long>(info->duration));
  return 0;
}
