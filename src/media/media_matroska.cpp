// The Matroska reader; see media_matroska.h. The parse tables say, level by
// level, which elements to descend into, which values to keep and where; one
// generic loop walks them. Elements no table lists are skipped, so newer muxers'
// additions (Colour, CodecDelay, ...) do not stop the read.
#include "media/media_matroska.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "platform/alloc.h"
#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "media_matroska";

// ---- Parse tables ----

enum EbmlType : uint32_t {
  kEbmlSkip = 0,
  kEbmlMaster = 1,
  kEbmlUint = 2,
  kEbmlString = 4,
  kEbmlBinary = 6,
  kEbmlFloat = 7,
};

// Where a value goes in the working record.
enum MkvField : uint32_t {
  kMkvNoField,
  kMkvEbmlVersion,
  kMkvMaxIdLength,
  kMkvMaxSizeLength,
  kMkvDocType,
  kMkvDocTypeVersion,
  kMkvSeekId,
  kMkvSeekPosition,
  kMkvTimecodeScale,
  kMkvDuration,
  kMkvTrackEntry,
  kMkvTrackType,
  kMkvFlagEnabled,
  kMkvCodecId,
  kMkvCodecPrivate,
  kMkvDefaultDuration,
  kMkvPixelWidth,
  kMkvPixelHeight,
  kMkvSamplingFrequency,
  kMkvChannels,
};

struct EbmlTableRow {
  uint32_t id;  // with its length-marker bits
  uint32_t level;
  uint32_t type;              // EbmlType
  uint32_t dest;              // MkvField
  const EbmlTableRow* child;  // for masters
};

// Tables nest only this deep; a deeper row is skipped rather than descended.
constexpr uint32_t kMaxLevel = 8;

// clang-format off
constexpr EbmlTableRow tEbmlHeaderTbl[] = {
    {0x4286, 1, kEbmlUint, kMkvEbmlVersion, nullptr},
    {0x42F7, 1, kEbmlSkip, kMkvNoField, nullptr},
    {0x42F2, 1, kEbmlUint, kMkvMaxIdLength, nullptr},
    {0x42F3, 1, kEbmlUint, kMkvMaxSizeLength, nullptr},
    {0x4282, 1, kEbmlString, kMkvDocType, nullptr},
    {0x4287, 1, kEbmlUint, kMkvDocTypeVersion, nullptr},
    {0x4285, 1, kEbmlSkip, kMkvNoField, nullptr},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tMetaSeekTbl[] = {
    {0x53AB, 3, kEbmlBinary, kMkvSeekId, nullptr},
    {0x53AC, 3, kEbmlUint, kMkvSeekPosition, nullptr},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tMetaSeekInfoTbl[] = {
    {0x4DBB, 2, kEbmlMaster, kMkvNoField, tMetaSeekTbl},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tSegmentInfoTbl[] = {
    {0x2AD7B1, 2, kEbmlUint, kMkvTimecodeScale, nullptr},
    {0x4489, 2, kEbmlFloat, kMkvDuration, nullptr},
    {0x73A4, 2, kEbmlSkip, kMkvNoField, nullptr},
    {0x4461, 2, kEbmlSkip, kMkvNoField, nullptr},
    {0x7BA9, 2, kEbmlSkip, kMkvNoField, nullptr},
    {0x4D80, 2, kEbmlSkip, kMkvNoField, nullptr},
    {0x5741, 2, kEbmlSkip, kMkvNoField, nullptr},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tTrackVideoTbl[] = {
    {0xB0, 4, kEbmlUint, kMkvPixelWidth, nullptr},
    {0xBA, 4, kEbmlUint, kMkvPixelHeight, nullptr},
    {0x9A, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x53B9, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x54AA, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x54BB, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x54CC, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x54DD, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x54B0, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x54BA, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x54B2, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x54B3, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x2EB524, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x2383E3, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tTrackAudioTbl[] = {
    {0xB5, 4, kEbmlFloat, kMkvSamplingFrequency, nullptr},
    {0x9F, 4, kEbmlUint, kMkvChannels, nullptr},
    {0x78B5, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0x6264, 4, kEbmlSkip, kMkvNoField, nullptr},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tTrackInfoTbl[] = {
    {0x83, 3, kEbmlUint, kMkvTrackType, nullptr},
    {0xB9, 3, kEbmlUint, kMkvFlagEnabled, nullptr},
    {0x86, 3, kEbmlString, kMkvCodecId, nullptr},
    {0x63A2, 3, kEbmlBinary, kMkvCodecPrivate, nullptr},
    {0x23E383, 3, kEbmlUint, kMkvDefaultDuration, nullptr},
    {0xE0, 3, kEbmlMaster, kMkvNoField, tTrackVideoTbl},
    {0xE1, 3, kEbmlMaster, kMkvNoField, tTrackAudioTbl},
    {0xD7, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x73C5, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x88, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x55AA, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x9C, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x6DE7, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x6DF8, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x23314F, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x55EE, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x536E, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x22B59C, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x258688, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x3B4040, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x26B240, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0xAA, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0x6D80, 3, kEbmlSkip, kMkvNoField, nullptr},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tTracksTbl[] = {
    {0xAE, 2, kEbmlMaster, kMkvTrackEntry, tTrackInfoTbl},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tEbmlSegmentTbl[] = {
    {0x114D9B74, 1, kEbmlMaster, kMkvNoField, tMetaSeekInfoTbl},
    {0x1549A966, 1, kEbmlMaster, kMkvNoField, tSegmentInfoTbl},
    {0x1654AE6B, 1, kEbmlMaster, kMkvNoField, tTracksTbl},
    {0, 0, 0, 0, nullptr},
};

constexpr EbmlTableRow tEbmlTbl[] = {
    {0x1A45DFA3, 0, kEbmlMaster, kMkvNoField, tEbmlHeaderTbl},
    {0x18538067, 0, kEbmlMaster, kMkvNoField, tEbmlSegmentTbl},
    {0, 0, 0, 0, nullptr},
};
// clang-format on

constexpr uint32_t kEbmlHeaderId = 0x1A45DFA3;
constexpr uint32_t kSegmentId = 0x18538067;
constexpr uint32_t kSeekHeadId = 0x114D9B74;
constexpr uint32_t kInfoId = 0x1549A966;
constexpr uint32_t kTracksId = 0x1654AE6B;

// ---- Codec names ----

// Codec numbers no other reader produces.
constexpr uint32_t kCodecRv10 = 6;
constexpr uint32_t kCodecRv20 = 7;
constexpr uint32_t kCodecRv30 = 71;
constexpr uint32_t kCodecRv40 = 72;
constexpr uint32_t kCodecPcmS32Be = 0x10009;
constexpr uint32_t kCodecRa144 = 0x13000;
constexpr uint32_t kCodecRa288 = 0x13001;
constexpr uint32_t kCodecQdm2 = 0x15015;
constexpr uint32_t kCodecCook = 0x15016;
constexpr uint32_t kCodecTta = 0x15018;
constexpr uint32_t kCodecWavPack = 0x1501b;
constexpr uint32_t kCodecEac3 = 0x1502b;
constexpr uint32_t kCodecDvdSubtitle = 0x17000;
constexpr uint32_t kCodecText = 0x17002;
constexpr uint32_t kCodecSsa = 0x17004;

struct MkvCodecRow {
  char text[20];
  uint32_t id;
};

// Matched by prefix, first row first: "A_AAC" takes every AAC variant, and the
// second row of each PCM text is never reached.
// clang-format off
constexpr MkvCodecRow kMkvCodecTags[] = {
    {"A_AAC", kMediaCodecAac},
    {"A_AAC/MPEG4/MAIN", kMediaCodecAac},
    {"A_AAC/MPEG4/LC", kMediaCodecAac},
    {"A_AAC/MPEG4/LC/SBR", kMediaCodecAac},
    {"A_AAC/MPEG4/SSR", kMediaCodecAac},
    {"A_AAC/MPEG4/LTP", kMediaCodecAac},
    {"A_AC3", kMediaCodecAc3},
    {"A_AC3/BSID9 ", kMediaCodecAc3},
    {"A_AC3/BSID10 ", kMediaCodecAc3},
    {"A_DTS", kMediaCodecDts},
    {"A_EAC3", kCodecEac3},
    {"A_FLAC", kMediaCodecFlac},
    {"A_MPEG/L2", kMediaCodecMp2},
    {"A_MPEG/L1", kMediaCodecMp2},
    {"A_MPEG/L3", kMediaCodecMp3},
    {"A_PCM/FLOAT/IEEE", kMediaCodecPcmF32Le},
    {"A_PCM/FLOAT/IEEE", kMediaCodecPcmF64Le},
    {"A_PCM/INT/BIG", kMediaCodecPcmS16Be},
    {"A_PCM/INT/BIG", kMediaCodecPcmS24Be},
    {"A_PCM/INT/BIG", kCodecPcmS32Be},
    {"A_PCM/INT/LIT", kMediaCodecPcmS16Le},
    {"A_PCM/INT/LIT", kMediaCodecPcmS24Le},
    {"A_PCM/INT/LIT", kMediaCodecPcmS32Le},
    {"A_PCM/INT/LIT", kMediaCodecPcmU8},
    {"A_QUICKTIME/QDM2", kCodecQdm2},
    {"A_REAL/14_4", kCodecRa144},
    {"A_REAL/28_8", kCodecRa288},
    {"A_REAL/ATRC", kMediaCodecAtrac3},
    {"A_REAL/COOK", kCodecCook},
    {"A_TTA1", kCodecTta},
    {"A_VORBIS", kMediaCodecVorbis},
    {"A_WAVPACK4", kCodecWavPack},
    {"S_TEXT/UTF8", kCodecText},
    {"S_TEXT/ASCII", kCodecText},
    {"S_TEXT/ASS", kCodecSsa},
    {"S_TEXT/SSA", kCodecSsa},
    {"S_ASS", kCodecSsa},
    {"S_SSA", kCodecSsa},
    {"S_VOBSUB", kCodecDvdSubtitle},
    {"V_DIRAC", kMediaCodecDirac},
    {"V_MJPEG", kMediaCodecMjpeg},
    {"V_MPEG1", kMediaCodecMpeg1Video},
    {"V_MPEG2", kMediaCodecMpeg2Video},
    {"V_MPEG4/ISO/ASP", kMediaCodecMpeg4},
    {"V_MPEG4/ISO/AP", kMediaCodecMpeg4},
    {"V_MPEG4/ISO/SP", kMediaCodecMpeg4},
    {"V_MPEG4/ISO/AVC", kMediaCodecH264},
    {"V_MPEG4/MS/V3", kMediaCodecMsMpeg4V3},
    {"V_REAL/RV10", kCodecRv10},
    {"V_REAL/RV20", kCodecRv20},
    {"V_REAL/RV30", kCodecRv30},
    {"V_REAL/RV40", kCodecRv40},
    {"V_SNOW", kMediaCodecSnow},
    {"V_THEORA", kMediaCodecTheora},
    {"V_UNCOMPRESSED", kMediaCodecRawVideo},
};
// clang-format on

uint32_t _matroska_codec_convert(const char* codec_text) {
  for (const MkvCodecRow& row : kMkvCodecTags) {
    if (strncmp(codec_text, row.text, strlen(row.text)) == 0) return row.id;
  }
  return kMediaCodecNone;
}

// ---- The working record ----

constexpr uint32_t kMaxSeekEntries = 12;
constexpr uint32_t kMaxSeekIdBytes = 4;
constexpr uint32_t kCodecPrivateKept = 4;
constexpr uint32_t kCodecIdSize = 32;  // longer ids only lose a tail no row looks at
constexpr uint32_t kDocTypeSize = 16;
constexpr char kMatroskaDocType[] = "matroska";

enum MkvTrackKind : uint32_t { kMkvKindNone = 0, kMkvKindVideo = 1, kMkvKindAudio = 2 };

struct MkvTrackFields {
  char codec_id[kCodecIdSize];
  uint32_t codec_private_len;
  uint8_t codec_private[kCodecPrivateKept];
  uint32_t default_duration;  // ns
};

struct MkvSeekEntry {
  uint32_t id;
  uint32_t position;  // from the start of the Segment's data
};

struct MkvInfo {
  uint32_t ebml_version;
  uint32_t max_id_length;
  uint32_t max_size_length;
  uint32_t doc_type_len;
  char doc_type[kDocTypeSize + 1];
  uint32_t doc_type_version;
  uint32_t seek_count;
  MkvSeekEntry seek[kMaxSeekEntries];
  uint32_t timecode_scale;
  float duration;
  MkvTrackFields video;
  MkvTrackFields audio;
  uint32_t pixel_width;
  uint32_t pixel_height;
  float sampling_frequency;
  uint32_t channels;

  // Parse state: a SeekID waiting for its SeekPosition, and the TrackEntry
  // being read. An entry's values are kept aside and filed under its kind when
  // the entry ends, since muxers write TrackType before or after CodecID.
  bool seek_id_pending;
  uint32_t pending_seek_id;
  MkvTrackFields entry;
  uint32_t entry_kind;
  bool entry_disabled;
};

struct ReleaseUB {
  void operator()(MkvInfo* mkv) const { RetUB(mkv); }
};
using MkvInfoPtr = std::unique_ptr<MkvInfo, ReleaseUB>;

// ---- Reading elements ----

int32_t readFailure(const MediaIo* io) {
  return io->status != 0 ? kMkvErrRead : kMkvErrFormat;
}

// n bytes big-endian, kept to their low 32 bits.
uint32_t _get_nBigEndianValue(MediaIo* io, uint32_t n) {
  uint32_t value = 0;
  for (uint32_t i = 0; i < n; ++i) value = (value << 8) | media_get_1BigEndianValue(io);
  return value;
}

// An EBML size: the first set bit of the first byte gives the length (1 to 8)
// and is dropped from the value. *length_out is 0 when there is no marker or
// the read falls short (io->status tells which).
uint64_t _get_EBMLDataLen(MediaIo* io, uint32_t* length_out) {
  *length_out = 0;
  uint8_t first = 0;
  if (!media_read_data(io, &first, 1) || first == 0) return 0;
  uint32_t length = 1;
  while (!(first & (0x80u >> (length - 1)))) ++length;
  uint64_t value = first & (0xFFu >> length);
  for (uint32_t i = 1; i < length; ++i) value = (value << 8) | media_get_1BigEndianValue(io);
  if (io->status != 0) return 0;
  *length_out = length;
  return value;
}

// An element id with its marker bits; ids are 1 to 4 bytes long.
int32_t readElementId(MediaIo* io, uint32_t* id, uint32_t* length) {
  uint8_t first = 0;
  if (!media_read_data(io, &first, 1)) return kMkvErrRead;
  if (first < 0x10) return kMkvErrFormat;
  *length = first >= 0x80 ? 1 : first >= 0x40 ? 2 : first >= 0x20 ? 3 : 4;
  *id = first;
  for (uint32_t i = 1; i < *length; ++i) *id = (*id << 8) | media_get_1BigEndianValue(io);
  return io->status != 0 ? kMkvErrRead : 0;
}

uint32_t idLength(uint32_t id) {
  return id > 0xFFFFFF ? 4 : id > 0xFFFF ? 3 : id > 0xFF ? 2 : 1;
}

// Skips n bytes of data; sizes run to 2^56, beyond what one relative seek takes.
int32_t skipData(MediaIo* io, uint64_t n) {
  if (n <= INT32_MAX) return media_skip_data(io, static_cast<int32_t>(n)) ? 0 : kMkvErrRead;
  const off_t here = ftello(io->stream);
  if (here < 0 || n > static_cast<uint64_t>(INT64_MAX - here)) return kMkvErrRead;
  return media_orient_data(io, here + static_cast<int64_t>(n)) ? 0 : kMkvErrRead;
}

// Reads up to `capacity` bytes of a value into dst and skips the rest.
int32_t _record_TLV_data(MediaIo* io, void* dst, uint32_t capacity, uint64_t size,
                         uint32_t* stored) {
  const uint32_t kept = size < capacity ? static_cast<uint32_t>(size) : capacity;
  if (!media_read_data(io, dst, kept)) return kMkvErrRead;
  if (stored) *stored = kept;
  return skipData(io, size - kept);
}

int32_t readUint(MediaIo* io, uint64_t size, uint32_t* value) {
  if (size > 8) return kMkvErrFormat;
  *value = _get_nBigEndianValue(io, static_cast<uint32_t>(size));
  return io->status != 0 ? kMkvErrRead : 0;
}

// A 4- or 8-byte IEEE float; other widths are skipped and leave the value.
int32_t readFloat(MediaIo* io, uint64_t size, float* value) {
  uint8_t bytes[8] = {};
  if (size != 4 && size != 8) return skipData(io, size);
  if (!media_read_data(io, bytes, static_cast<uint32_t>(size))) return kMkvErrRead;
  const uint64_t bits = media_Get_BigEndianValue(bytes, static_cast<uint32_t>(size));
  if (size == 4) {
    const auto narrow = static_cast<uint32_t>(bits);
    memcpy(value, &narrow, sizeof narrow);
  } else {
    double wide = 0;
    memcpy(&wide, &bits, sizeof wide);
    // Narrowing a double beyond float's range is undefined; such a value is infinite.
    if (std::fabs(wide) > FLT_MAX) wide = wide > 0 ? HUGE_VAL : -HUGE_VAL;
    *value = static_cast<float>(wide);
  }
  return 0;
}

// Reads a text into a fixed field, always terminated.
int32_t readText(MediaIo* io, uint64_t size, char* dst, uint32_t capacity) {
  memset(dst, 0, capacity);
  return _record_TLV_data(io, dst, capacity - 1, size, nullptr);
}

// ---- Storing values ----

MkvTrackFields* kindFields(MkvInfo* mkv, uint32_t kind) {
  if (kind == kMkvKindVideo) return &mkv->video;
  if (kind == kMkvKindAudio) return &mkv->audio;
  return nullptr;
}

void beginTrackEntry(MkvInfo* mkv) {
  mkv->entry = MkvTrackFields{};
  mkv->entry_kind = kMkvKindNone;
  mkv->entry_disabled = false;
}

void endTrackEntry(MkvInfo* mkv) {
  MkvTrackFields* fields = kindFields(mkv, mkv->entry_kind);
  if (fields && !mkv->entry_disabled) *fields = mkv->entry;
}

int32_t storeUint(MkvInfo* mkv, uint32_t dest, uint32_t value) {
  // clang-format off
  switch (dest) {
    case kMkvEbmlVersion:     mkv->ebml_version = value; break;
    case kMkvMaxIdLength:     mkv->max_id_length = value; break;
    case kMkvMaxSizeLength:   mkv->max_size_length = value; break;
    case kMkvDocTypeVersion:  mkv->doc_type_version = value; break;
    case kMkvTimecodeScale:   mkv->timecode_scale = value; break;
    case kMkvTrackType:       mkv->entry_kind = value; break;
    case kMkvFlagEnabled:     mkv->entry_disabled = value == 0; break;
    case kMkvDefaultDuration: mkv->entry.default_duration = value; break;
    case kMkvPixelWidth:      mkv->pixel_width = value; break;
    case kMkvPixelHeight:     mkv->pixel_height = value; break;
    case kMkvChannels:        mkv->channels = value; break;
    default: break;
  }
  // clang-format on
  if (dest == kMkvSeekPosition && mkv->seek_id_pending) {
    mkv->seek[mkv->seek_count++] = {mkv->pending_seek_id, value};
    mkv->seek_id_pending = false;
  }
  return 0;
}

// A SeekID is kept only when it fits an id and the table has room; its
// SeekPosition is filed with it.
int32_t readSeekId(MediaIo* io, MkvInfo* mkv, uint64_t size) {
  if (size > kMaxSeekIdBytes || mkv->seek_count >= kMaxSeekEntries) return skipData(io, size);
  mkv->pending_seek_id = _get_nBigEndianValue(io, static_cast<uint32_t>(size));
  if (io->status != 0) return kMkvErrRead;
  mkv->seek_id_pending = true;
  return 0;
}

int32_t readValue(MediaIo* io, MkvInfo* mkv, const EbmlTableRow& row, uint64_t size) {
  switch (row.dest) {
    case kMkvDocType: {
      const int32_t rc = readText(io, size, mkv->doc_type, sizeof mkv->doc_type);
      mkv->doc_type_len = static_cast<uint32_t>(strnlen(mkv->doc_type, kDocTypeSize));
      return rc;
    }
    case kMkvCodecId:
      return readText(io, size, mkv->entry.codec_id, sizeof mkv->entry.codec_id);
    case kMkvCodecPrivate:
      return _record_TLV_data(io, mkv->entry.codec_private, kCodecPrivateKept, size,
                              &mkv->entry.codec_private_len);
    case kMkvSeekId:
      return readSeekId(io, mkv, size);
    case kMkvDuration:
      return readFloat(io, size, &mkv->duration);
    case kMkvSamplingFrequency:
      return readFloat(io, size, &mkv->sampling_frequency);
    default: {
      if (row.type != kEbmlUint) return skipData(io, size);
      uint32_t value = 0;
      const int32_t rc = readUint(io, size, &value);
      return rc != 0 ? rc : storeUint(mkv, row.dest, value);
    }
  }
}

int32_t _ebml_parse(MediaIo* io, MkvInfo* mkv, const EbmlTableRow* table, uint64_t size);

int32_t parseMaster(MediaIo* io, MkvInfo* mkv, const EbmlTableRow& row, uint64_t size) {
  if (!row.child || row.level > kMaxLevel) return skipData(io, size);
  const bool track_entry = row.dest == kMkvTrackEntry;
  if (track_entry) beginTrackEntry(mkv);
  const int32_t rc = _ebml_parse(io, mkv, row.child, size);
  if (rc != 0) {
    DMS_LOG(kLogEvent, "_ebml_parse master tbl 0x%X failed!", row.id);
    return rc;
  }
  if (track_entry) endTrackEntry(mkv);
  return 0;
}

const EbmlTableRow* findRow(const EbmlTableRow* table, uint32_t id) {
  for (; table->id != 0; ++table) {
    if (table->id == id) return table;
  }
  return nullptr;
}

// Parses the elements of one level until `size` bytes are used. Every element
// costs at least two bytes of file and a short read ends the walk, so this
// ends on any input.
int32_t _ebml_parse(MediaIo* io, MkvInfo* mkv, const EbmlTableRow* table, uint64_t size) {
  uint64_t used = 0;
  while (used < size) {
    uint32_t id = 0, id_len = 0, size_len = 0;
    int32_t rc = readElementId(io, &id, &id_len);
    if (rc != 0) return rc;
    const uint64_t data = _get_EBMLDataLen(io, &size_len);
    if (size_len == 0) return readFailure(io);
    used += id_len + size_len + data;  // at most 2^56 each: no overflow
    const EbmlTableRow* row = findRow(table, id);
    if (!row || row->type == kEbmlSkip) {
      rc = skipData(io, data);
    } else if (row->type == kEbmlMaster) {
      rc = parseMaster(io, mkv, *row, data);
    } else {
      rc = readValue(io, mkv, *row, data);
    }
    if (rc != 0) return rc;
  }
  return 0;
}

const EbmlTableRow* childTable(const EbmlTableRow* table, uint32_t id) {
  const EbmlTableRow* row = findRow(table, id);
  return row ? row->child : nullptr;
}

// Reads the expected element id and its size.
int32_t expectElement(MediaIo* io, uint32_t id, uint64_t* size) {
  const uint32_t found = _get_nBigEndianValue(io, idLength(id));
  if (io->status != 0) return kMkvErrRead;
  if (found != id) return kMkvErrFormat;
  uint32_t size_len = 0;
  *size = _get_EBMLDataLen(io, &size_len);
  return size_len == 0 ? readFailure(io) : 0;
}

// ---- The steps of a read ----

int32_t _ebml_parse_header(MediaIo* io, MkvInfo* mkv) {
  uint64_t size = 0;
  const int32_t rc = expectElement(io, kEbmlHeaderId, &size);
  if (rc != 0) return rc;
  return _ebml_parse(io, mkv, childTable(tEbmlTbl, kEbmlHeaderId), size);
}

// Only "matroska" (NUL padding aside) at EBML version 1 or below is read.
int32_t _ebml_check_header(const MkvInfo* mkv) {
  if (mkv->doc_type_len == 0) {
    DMS_LOG(kLogEvent, "Unkonwn MATROSKA_DOC_TYPE!");
    return kMkvErrResource;
  }
  if (mkv->doc_type_len > strlen(kMatroskaDocType) ||
      strncmp(mkv->doc_type, kMatroskaDocType, strlen(kMatroskaDocType)) != 0) {
    DMS_LOG(kLogEvent, "Unkonwn MATROSKA_DOC_TYPE!");
    return kMkvErrFormat;
  }
  if (mkv->ebml_version > 1) {
    DMS_LOG(kLogEvent, "Higher EBML Version (Ver %d), Not Support!!",
            static_cast<int>(mkv->ebml_version));
    return kMkvErrFormat;
  }
  return 0;
}

// The Segment must open with a SeekHead; its entries lead to everything else.
// Leaves the bookmark at the start of the Segment's data.
int32_t _ebml_parse_seek(MediaIo* io, MkvInfo* mkv) {
  uint64_t size = 0;
  int32_t rc = expectElement(io, kSegmentId, &size);
  if (rc != 0) return rc;
  if (!media_get_bookmark(io)) return kMkvErrRead;
  rc = expectElement(io, kSeekHeadId, &size);
  if (rc != 0) return rc;
  const EbmlTableRow* segment = childTable(tEbmlTbl, kSegmentId);
  return _ebml_parse(io, mkv, childTable(segment, kSeekHeadId), size);
}

int32_t _ebml_get_matroskaInfo(MediaIo* io, MkvInfo* mkv, uint32_t element_id,
                               const EbmlTableRow* table) {
  const MkvSeekEntry* entry = nullptr;
  for (uint32_t i = 0; i < mkv->seek_count && !entry; ++i) {
    if (mkv->seek[i].id == element_id) entry = &mkv->seek[i];
  }
  if (!entry) return kMkvErrFormat;
  if (!media_set_bookmark(io)) return kMkvErrRead;
  int32_t rc = skipData(io, entry->position);
  if (rc != 0) return rc;
  uint64_t size = 0;
  rc = expectElement(io, element_id, &size);
  return rc != 0 ? rc : _ebml_parse(io, mkv, table, size);
}

// Failures here are only logged: what was found is still worth publishing.
void _ebml_parse_matroskaInfo(MediaIo* io, MkvInfo* mkv) {
  const EbmlTableRow* segment = childTable(tEbmlTbl, kSegmentId);
  int32_t rc = _ebml_get_matroskaInfo(io, mkv, kInfoId, childTable(segment, kInfoId));
  if (rc != 0) DMS_LOG(kLogEvent, "_ebml_get_matroskaInfo Segment Information failed!(%d)", rc);
  rc = _ebml_get_matroskaInfo(io, mkv, kTracksId, childTable(segment, kTracksId));
  if (rc != 0) DMS_LOG(kLogEvent, "_ebml_get_matroskaInfo tracks failed!(%d)", rc);
}

// Only a value a 64-bit count can hold converts; NaN and negatives give 0.
uint64_t toUnsigned(double value, double limit) {
  return value >= 0 && value < limit ? static_cast<uint64_t>(value) : 0;
}

uint32_t copyConfig(const MkvTrackFields& fields, uint8_t* dst, uint32_t current) {
  if (fields.codec_private_len == 0 || fields.codec_private_len > kMediaConfigSize) return current;
  memcpy(dst, fields.codec_private, fields.codec_private_len);
  return fields.codec_private_len;
}

void fillMediaInfo(const MkvInfo& mkv, MediaInfo* info) {
  // Both flags are set whatever the tracks are; the profile rules go by codec.
  info->has_video = 1;
  info->video_stream_type = 0;
  info->video_codec = _matroska_codec_convert(mkv.video.codec_id);
  info->video_config_size = copyConfig(mkv.video, info->video_config, info->video_config_size);
  if (mkv.video.default_duration != 0) {
    info->frame_rate_num = 1000000000;
    info->frame_rate_den = mkv.video.default_duration;
  }
  info->video_width = static_cast<uint16_t>(mkv.pixel_width);
  info->video_height = static_cast<uint16_t>(mkv.pixel_height);

  info->has_audio = 1;
  info->audio_streams = 1;
  info->audio_codec = _matroska_codec_convert(mkv.audio.codec_id);
  info->audio_config_size = copyConfig(mkv.audio, info->audio_config, info->audio_config_size);
  if (mkv.audio.default_duration != 0) {
    info->audio_frame_num = 1000000000;
    info->audio_frame_den = mkv.audio.default_duration;
  }
  info->channels = static_cast<uint16_t>(mkv.channels);
  info->sample_rate = static_cast<uint32_t>(toUnsigned(mkv.sampling_frequency, 4294967296.0));

  // The product is formed in single precision, as the stored duration is.
  const float ticks = static_cast<float>(mkv.timecode_scale) * mkv.duration;
  const uint64_t us = toUnsigned(ticks * 0.001, 9.2e18);
  info->duration = static_cast<int64_t>(us);
  const uint64_t seconds = us / 1000000;
  if (seconds > 0) info->bit_rate = static_cast<uint32_t>(uint64_t{info->file_size} * 8 / seconds);
}

int32_t readMatroska(MediaIo* io, MkvInfo* mkv, MediaInfo* info) {
  int32_t rc = _ebml_parse_header(io, mkv);
  if (rc == 0) rc = _ebml_check_header(mkv);
  if (rc != 0) {
    DMS_LOG(kLogEvent, "_ebml_parse_header failed!(%d)", rc);
    return rc;
  }
  rc = _ebml_parse_seek(io, mkv);
  if (rc != 0) {
    DMS_LOG(kLogEvent, "_ebml_parse_seek failed!(%d)", rc);
    return rc;
  }
  _ebml_parse_matroskaInfo(io, mkv);
  fillMediaInfo(*mkv, info);
  return 0;
}

}  // namespace

int32_t mkv_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) {
    DMS_LOG(kLogEvent, "Invalid Argument Input!");
    return kMkvErrFormat;
  }
  MkvInfoPtr mkv(static_cast<MkvInfo*>(GetUB(sizeof(MkvInfo))));
  if (!mkv) return kMkvErrResource;
  return readMatroska(io, mkv.get(), info);
}
