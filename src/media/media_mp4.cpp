// The MP4 box reader; see media_mp4.h. Every box reader leaves the stream at
// the end of its box whatever it found inside, so a container only has to add
// each child's size to its own count. Data from a stick may lie about sizes:
// loops stop at a short read, and nothing is allocated from a size unchecked.
#include "media/media_mp4.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/alloc.h"

namespace {

constexpr uint32_t kBoxHeaderSize = 8;
constexpr uint32_t kMaxTopLevelBoxes = 20;
// No real file has more; a forged moov of tiny traks must not eat the memory.
constexpr uint32_t kMaxTracks = 64;
// Decoder configurations are a few bytes; only the first 128 are ever used.
constexpr uint32_t kMaxDecoderInfo = 64 * 1024;
constexpr uint64_t kMacEpochOffset = 2082844800;  // seconds from 1904 to 1970
constexpr uint32_t kUsPerSecond = 1000000;

constexpr uint8_t kEsDescrTag = 3;
constexpr uint8_t kDecoderConfigDescrTag = 4;
constexpr uint8_t kDecoderSpecificDescrTag = 5;

struct HandlerName {
  char type[5];
  Mp4Handler handler;
};
constexpr HandlerName kHandlers[] = {
    {"soun", kMp4HandlerSound},
    {"vide", kMp4HandlerVideo},
    {"hint", kMp4HandlerHint},
    {"meta", kMp4HandlerMeta},
};

// A descriptor head inside "esds": a tag byte and a size of 1 to 4 7-bit bytes.
struct BaseDescriptor {
  uint8_t tag = 0;
  uint32_t size = 0;
  uint32_t head_bytes = 0;  // bytes of tag and size, to step back over
};

bool isType(const char (&type)[4], const char (&name)[5]) {
  return memcmp(type, name, 4) == 0;
}

uint32_t fourcc(const char (&type)[4]) {
  return mediaFourcc(type[0], type[1], type[2], type[3]);
}

bool shortRead(const MediaIo* io) {
  return io->status != 0;
}

// A zeroed record from the media allocator; released with RetUB (all records
// are trivially destructible).
template <typename T>
T* newRecord() {
  void* block = media_mallocz(sizeof(T));
  return block ? new (block) T{} : nullptr;
}

template <typename T>
void adoptHeader(T* record, const Mp4Box& header) {
  static_cast<Mp4Box&>(*record) = header;
}

int32_t mpeg_read_box(MediaIo* io, Mp4Box* box);

// Reads a child's header. A size below the header's own length (0 means "to
// the end of the file", which only the top level could mean) cannot be walked:
// the header is stepped back over so the parent's count stays true.
bool readChild(MediaIo* io, Mp4Box* child) {
  *child = Mp4Box{};
  if (mpeg_read_box(io, child) != 0) return false;
  if (child->size >= kBoxHeaderSize) return true;
  media_skip_data(io, -static_cast<int32_t>(kBoxHeaderSize));
  return false;
}

// Steps back over a child header the parent does not want to read.
void unreadChild(MediaIo* io) {
  media_skip_data(io, -static_cast<int32_t>(kBoxHeaderSize));
}

// ---- Box headers ----

int32_t mpeg_read_box(MediaIo* io, Mp4Box* box) {
  if (!io || !box) return -1;
  box->size = mpeg_get_4BigEndianValue(io, box);
  if (!mpeg_read_data(io, box->type, sizeof box->type, box)) return -2;
  return 0;
}

int32_t mpeg_read_full_box(MediaIo* io, Mp4Box* box) {
  if (!io || !box) return -1;
  box->version = static_cast<uint8_t>(mpeg_get_1BigEndianValue(io, box));
  if (!mpeg_read_data(io, box->flags, sizeof box->flags, box)) return -2;
  return 0;
}

int32_t mpeg_skip_box(MediaIo* io, Mp4Box* box) {
  if (!io || !box) return -1;
  segmentSkipSeg(io, box);
  box->consumed = 0;
  return 0;
}

// Version 1 boxes carry 64-bit times and durations.
uint64_t readVersionedValue(MediaIo* io, Mp4Box* box) {
  return box->version == 1 ? mpeg_get_8BigEndianValue(io, box) : mpeg_get_4BigEndianValue(io, box);
}

void skipVersionedValue(MediaIo* io, Mp4Box* box) {
  mpeg_skip_data(io, box->version == 1 ? 8 : 4, box);
}

// ---- Movie level ----

int32_t mpeg_read_FTYPBox(MediaIo* io, Mp4FtypBox* ftyp) {
  if (!io || !ftyp) return -1;
  mpeg_read_data(io, ftyp->major_brand, sizeof ftyp->major_brand, ftyp);
  return mpeg_skip_box(io, ftyp);
}

int32_t mpeg_read_PDINBox(MediaIo* io, Mp4PdinBox* pdin) {
  if (!io || !pdin) return -1;
  int32_t result = mpeg_read_full_box(io, pdin);
  pdin->rate = mpeg_get_4BigEndianValue(io, pdin);
  pdin->initial_delay = mpeg_get_4BigEndianValue(io, pdin);
  if (result == 0 && shortRead(io)) result = -2;
  mpeg_skip_box(io, pdin);
  return result;
}

// The creation time counts from 1904; gmtime_r, because reads run on many threads.
void setCreationTime(Mp4MvhdBox* mvhd, uint64_t seconds_since_1904) {
  const auto unix_seconds = static_cast<int64_t>(seconds_since_1904 - kMacEpochOffset);
  const auto t = static_cast<time_t>(unix_seconds);
  mvhd->has_creation_time = gmtime_r(&t, &mvhd->creation_time) != nullptr;
}

int32_t mpeg_read_MVHDBox(MediaIo* io, Mp4MvhdBox* mvhd) {
  if (!io || !mvhd) return -1;
  mpeg_read_full_box(io, mvhd);
  const uint64_t created = readVersionedValue(io, mvhd);
  if (!shortRead(io)) setCreationTime(mvhd, created);
  skipVersionedValue(io, mvhd);
  mvhd->timescale = mpeg_get_4BigEndianValue(io, mvhd);
  mvhd->duration = readVersionedValue(io, mvhd);
  return mpeg_skip_box(io, mvhd);
}

int32_t mpeg_read_TKHDBox(MediaIo* io, Mp4TkhdBox* tkhd) {
  if (!io || !tkhd) return -1;
  mpeg_read_full_box(io, tkhd);
  // Times, ids, layer, volume and matrix, up to the width field.
  mpeg_skip_data(io, tkhd->version == 1 ? 84 : 72, tkhd);
  tkhd->width_int = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, tkhd));
  tkhd->width_frac = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, tkhd));
  tkhd->height_int = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, tkhd));
  tkhd->height_frac = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, tkhd));
  return mpeg_skip_box(io, tkhd);
}

int32_t mpeg_read_MDHDBox(MediaIo* io, Mp4MdhdBox* mdhd) {
  if (!io || !mdhd) return -1;
  mpeg_read_full_box(io, mdhd);
  skipVersionedValue(io, mdhd);  // creation time
  skipVersionedValue(io, mdhd);  // modification time
  mdhd->timescale = mpeg_get_4BigEndianValue(io, mdhd);
  mdhd->duration = readVersionedValue(io, mdhd);
  mpeg_skip_data(io, 1, mdhd);
  for (uint8_t& byte : mdhd->language)
    byte = static_cast<uint8_t>(mpeg_get_1BigEndianValue(io, mdhd));
  return mpeg_skip_box(io, mdhd);
}

int32_t mpeg_read_HDLRBox(MediaIo* io, Mp4Box* hdlr, uint32_t* handler) {
  if (!io || !hdlr || !handler) return -1;
  mpeg_read_full_box(io, hdlr);
  mpeg_skip_data(io, 4, hdlr);  // pre-defined
  char type[4] = {};
  mpeg_read_data(io, type, sizeof type, hdlr);
  *handler = kMp4HandlerOther;
  for (const HandlerName& row : kHandlers) {
    if (memcmp(type, row.type, 4) == 0) *handler = row.handler;
  }
  return mpeg_skip_box(io, hdlr);
}

// vmhd and smhd hold nothing this reader needs.
int32_t mpeg_read_VMHDBox(MediaIo* io, Mp4Box* vmhd) {
  if (!io || !vmhd) return -1;
  mpeg_read_full_box(io, vmhd);
  return mpeg_skip_box(io, vmhd);
}

int32_t mpeg_read_SMHDBox(MediaIo* io, Mp4Box* smhd) {
  if (!io || !smhd) return -1;
  mpeg_read_full_box(io, smhd);
  return mpeg_skip_box(io, smhd);
}

int32_t mpeg_read_HMHDBox(MediaIo* io, Mp4HmhdBox* hmhd) {
  if (!io || !hmhd) return -1;
  mpeg_read_full_box(io, hmhd);
  mpeg_skip_data(io, 4, hmhd);  // PDU sizes
  hmhd->max_bit_rate = mpeg_get_4BigEndianValue(io, hmhd);
  hmhd->avg_bit_rate = mpeg_get_4BigEndianValue(io, hmhd);
  return mpeg_skip_box(io, hmhd);
}

int32_t mpeg_read_STTSBox(MediaIo* io, Mp4Box* stts, Mp4StblBox* stbl) {
  if (!io || !stts || !stbl) return -1;
  mpeg_read_full_box(io, stts);
  const uint32_t entries = mpeg_get_4BigEndianValue(io, stts);
  uint32_t total = 0;
  for (uint32_t i = 0; i < entries && stts->consumed < stts->size; ++i) {
    const uint32_t count = mpeg_get_4BigEndianValue(io, stts);
    const uint32_t delta = mpeg_get_4BigEndianValue(io, stts);
    if (shortRead(io)) break;
    total += count;
    // A kept 0 counts as none, so any later delta replaces it.
    if (stbl->min_delta == 0 || delta < stbl->min_delta) stbl->min_delta = delta;
  }
  stbl->total_samples = std::max(stbl->total_samples, total);
  return mpeg_skip_box(io, stts);
}

// ---- Descriptors inside "esds" ----

int32_t mpeg_read_BaseDescriptor(MediaIo* io, Mp4Box* esds, BaseDescriptor* d) {
  if (!io || !esds || !d) return -1;
  *d = BaseDescriptor{};
  d->tag = static_cast<uint8_t>(mpeg_get_1BigEndianValue(io, esds));
  d->head_bytes = 1;
  for (int i = 0; i < 4; ++i) {
    const uint32_t byte = mpeg_get_1BigEndianValue(io, esds);
    ++d->head_bytes;
    d->size = (d->size << 7) | (byte & 0x7F);
    if (!(byte & 0x80)) break;
  }
  return shortRead(io) ? -2 : 0;
}

int32_t mpeg_read_DecoderConfigDescriptor(MediaIo* io, Mp4Box* esds, Mp4EsDescriptor* es) {
  if (!io || !esds || !es) return -1;
  mpeg_skip_data(io, 5, esds);  // object type, stream type, buffer size
  es->max_bit_rate = mpeg_get_4BigEndianValue(io, esds);
  es->avg_bit_rate = mpeg_get_4BigEndianValue(io, esds);
  es->has_decoder_config = true;
  return 0;
}

// Copies the bytes into a new block; the length is bounded by what is left of
// the box, so a forged size can neither allocate much nor read past the box.
int32_t mpeg_read_DecoderSpecificDescriptor(MediaIo* io, Mp4Box* esds, Mp4EsDescriptor* es,
                                            uint32_t length) {
  if (!io || !esds || !es) return -1;
  const uint32_t left = esds->consumed < esds->size ? esds->size - esds->consumed : 0;
  const uint32_t kept = std::min({length, left, kMaxDecoderInfo});
  RetUB(es->specific_info);
  es->specific_length = 0;
  es->specific_info = static_cast<uint8_t*>(media_mallocz(kept + 8));
  if (!es->specific_info) return -3;
  if (!mpeg_read_data(io, es->specific_info, kept, esds)) return -2;
  es->specific_length = kept;
  const uint32_t rest = std::min(length, left) - kept;
  if (rest > 0) mpeg_skip_data(io, static_cast<int32_t>(rest), esds);
  return 0;
}

int32_t mpeg_read_ESDescriptor(MediaIo* io, Mp4Box* esds, Mp4EsDescriptor* es) {
  if (!io || !esds || !es) return -1;
  es->present = true;
  es->es_id = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, esds));
  es->flags = static_cast<uint8_t>(mpeg_get_1BigEndianValue(io, esds));
  // Each present flag's 2-byte field is skipped; a URL's text is not.
  for (uint8_t flag : {0x80, 0x40, 0x20}) {
    if (es->flags & flag) mpeg_skip_data(io, 2, esds);
  }
  while (esds->consumed < esds->size && !shortRead(io)) {
    BaseDescriptor d;
    if (mpeg_read_BaseDescriptor(io, esds, &d) != 0) break;
    if (d.tag == kDecoderConfigDescrTag) {
      mpeg_read_DecoderConfigDescriptor(io, esds, es);
    } else if (d.tag == kDecoderSpecificDescrTag) {
      if (mpeg_read_DecoderSpecificDescriptor(io, esds, es, d.size) != 0) break;
    } else {
      mpeg_skip_data(io, -static_cast<int32_t>(d.head_bytes), esds);
      break;
    }
  }
  return 0;
}

int32_t mpeg_read_ESDSBox(MediaIo* io, Mp4EsdsBox* esds) {
  if (!io || !esds) return -1;
  mpeg_read_full_box(io, esds);
  BaseDescriptor d;
  if (mpeg_read_BaseDescriptor(io, esds, &d) == 0 && d.tag == kEsDescrTag) {
    mpeg_read_ESDescriptor(io, esds, &esds->es);
  }
  return mpeg_skip_box(io, esds);
}

// The "esds" box that follows an MPEG-4 entry; anything else is left unread.
void readEntryEsds(MediaIo* io, Mp4SampleEntry* entry, Mp4EsdsBox* esds) {
  if (entry->consumed >= entry->size) return;
  Mp4Box child;
  if (!readChild(io, &child)) return;
  if (!isType(child.type, "esds")) {
    unreadChild(io);
    return;
  }
  adoptHeader(esds, child);
  mpeg_read_ESDSBox(io, esds);
  entry->consumed += child.size;
}

// ---- Sample entries ----
// These read the entry's fields and children but leave skipping the rest of
// the entry to stsd, which owns the loop over entries.

int32_t mpeg_read_SampleEntry(MediaIo* io, Mp4SampleEntry* entry) {
  if (!io || !entry) return -1;
  mpeg_skip_data(io, 6, entry);  // reserved
  entry->data_reference_index = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, entry));
  return 0;
}

int32_t mpeg_read_AudioSampleEntry(MediaIo* io, Mp4AudioSampleEntry* entry) {
  if (!io || !entry) return -1;
  mpeg_read_SampleEntry(io, entry);
  mpeg_skip_data(io, 8, entry);
  entry->channel_count = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, entry));
  entry->sample_size = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, entry));
  mpeg_skip_data(io, 4, entry);
  entry->sample_rate_int = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, entry));
  entry->sample_rate_frac = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, entry));
  return 0;
}

int32_t mpeg_read_PixelAspectRatioBox(MediaIo* io, Mp4Box* pasp, Mp4VisualSampleEntry* entry) {
  if (!io || !pasp || !entry) return -1;
  for (uint32_t& value : entry->pasp) value = mpeg_get_4BigEndianValue(io, pasp);
  return mpeg_skip_box(io, pasp);
}

int32_t mpeg_read_CleanApertureBox(MediaIo* io, Mp4Box* clap, Mp4VisualSampleEntry* entry) {
  if (!io || !clap || !entry) return -1;
  for (uint32_t& value : entry->clap) value = mpeg_get_4BigEndianValue(io, clap);
  return mpeg_skip_box(io, clap);
}

int32_t mpeg_read_VisualSampleEntry(MediaIo* io, Mp4VisualSampleEntry* entry) {
  if (!io || !entry) return -1;
  mpeg_read_SampleEntry(io, entry);
  mpeg_skip_data(io, 16, entry);
  entry->width = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, entry));
  entry->height = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, entry));
  entry->horiz_resolution = mpeg_get_4BigEndianValue(io, entry);
  entry->vert_resolution = mpeg_get_4BigEndianValue(io, entry);
  mpeg_skip_data(io, 4, entry);
  entry->frame_count = static_cast<uint16_t>(mpeg_get_2BigEndianValue(io, entry));
  mpeg_read_data(io, entry->compressor_name, sizeof entry->compressor_name, entry);
  mpeg_skip_data(io, 4, entry);  // depth, pre-defined
  while (entry->consumed < entry->size) {
    Mp4Box child;
    if (!readChild(io, &child)) break;
    if (isType(child.type, "pasp")) {
      mpeg_read_PixelAspectRatioBox(io, &child, entry);
    } else if (isType(child.type, "clap")) {
      mpeg_read_CleanApertureBox(io, &child, entry);
    } else {
      unreadChild(io);  // a codec's own box: its entry reads it
      break;
    }
    entry->consumed += child.size;
  }
  return 0;
}

int32_t mpeg_read_AVCConfigBox(MediaIo* io, Mp4Box* avcc) {
  if (!io || !avcc) return -1;
  return mpeg_skip_box(io, avcc);
}

int32_t mpeg_read_BitRateBox(MediaIo* io, Mp4BitRateBox* btrt) {
  if (!io || !btrt) return -1;
  btrt->buffer_size = mpeg_get_4BigEndianValue(io, btrt);
  btrt->max_bit_rate = mpeg_get_4BigEndianValue(io, btrt);
  btrt->avg_bit_rate = mpeg_get_4BigEndianValue(io, btrt);
  return mpeg_skip_box(io, btrt);
}

int32_t mpeg_read_AVCSampleEntry(MediaIo* io, Mp4AvcSampleEntry* entry) {
  if (!io || !entry) return -1;
  mpeg_read_VisualSampleEntry(io, entry);
  while (entry->consumed < entry->size) {
    Mp4Box child;
    if (!readChild(io, &child)) break;
    if (isType(child.type, "avcC")) {
      entry->avcc = child;
      mpeg_read_AVCConfigBox(io, &entry->avcc);
    } else if (isType(child.type, "btrt")) {
      adoptHeader(&entry->btrt, child);
      mpeg_read_BitRateBox(io, &entry->btrt);
      entry->has_btrt = true;
    } else {
      mpeg_skip_box(io, &child);
    }
    entry->consumed += child.size;
  }
  return 0;
}

int32_t mpeg_read_Mp4vSampleEntry(MediaIo* io, Mp4vSampleEntry* entry) {
  if (!io || !entry) return -1;
  mpeg_read_VisualSampleEntry(io, entry);
  readEntryEsds(io, entry, &entry->esds);
  return 0;
}

int32_t mpeg_read_mp4aAudioSampleEntry(MediaIo* io, Mp4aSampleEntry* entry) {
  if (!io || !entry) return -1;
  mpeg_read_AudioSampleEntry(io, entry);
  readEntryEsds(io, entry, &entry->esds);
  return 0;
}

// ---- Releasing ----

void mpeg_free_sample_list(Mp4SampleEntry* entry) {
  if (!entry) return;
  if (entry->kind == Mp4EntryKind::kMp4a) {
    RetUB(static_cast<Mp4aSampleEntry*>(entry)->esds.es.specific_info);
  } else if (entry->kind == Mp4EntryKind::kMp4v) {
    RetUB(static_cast<Mp4vSampleEntry*>(entry)->esds.es.specific_info);
  }
  RetUB(entry);
}

void mpeg_free_STBLBox(Mp4StblBox* stbl) {
  mpeg_free_sample_list(stbl->sample);
  stbl->sample = nullptr;
}

void mpeg_free_TRAKBox(Mp4TrakBox* trak) {
  mpeg_free_STBLBox(&trak->mdia.minf.stbl);
  RetUB(trak);
}

void mpeg_free_TRAKBox_list(Mp4TrakBox* trak) {
  while (trak) {
    Mp4TrakBox* next = trak->next;
    mpeg_free_TRAKBox(trak);
    trak = next;
  }
}

void mpeg_free_MOOVBox(Mp4MoovBox* moov) {
  mpeg_free_TRAKBox_list(moov->tracks);
  moov->tracks = nullptr;
  moov->track_count = 0;
}

// ---- Sample descriptions and the track containers ----

// A new record of type T for the entry, read by `read`; null when the
// allocation fails (the entry is then skipped).
template <typename T>
Mp4SampleEntry* readEntry(MediaIo* io, const Mp4Box& header, Mp4EntryKind kind,
                          int32_t (*read)(MediaIo*, T*)) {
  T* entry = newRecord<T>();
  if (!entry) return nullptr;
  adoptHeader(entry, header);
  entry->kind = kind;
  read(io, entry);
  return entry;
}

Mp4SampleEntry* readSampleEntry(MediaIo* io, const Mp4Box& header, uint32_t handler) {
  using K = Mp4EntryKind;
  if (handler == kMp4HandlerSound) {
    if (isType(header.type, "mp4a"))
      return readEntry<Mp4aSampleEntry>(io, header, K::kMp4a, mpeg_read_mp4aAudioSampleEntry);
    return readEntry<Mp4AudioSampleEntry>(io, header, K::kAudio, mpeg_read_AudioSampleEntry);
  }
  if (handler == kMp4HandlerVideo) {
    if (isType(header.type, "avc1"))
      return readEntry<Mp4AvcSampleEntry>(io, header, K::kAvc, mpeg_read_AVCSampleEntry);
    if (isType(header.type, "mp4v"))
      return readEntry<Mp4vSampleEntry>(io, header, K::kMp4v, mpeg_read_Mp4vSampleEntry);
    return readEntry<Mp4VisualSampleEntry>(io, header, K::kVisual, mpeg_read_VisualSampleEntry);
  }
  return nullptr;
}

int32_t mpeg_read_STSDBox(MediaIo* io, Mp4Box* stsd, Mp4StblBox* stbl, uint32_t handler) {
  if (!io || !stsd || !stbl) return -1;
  mpeg_read_full_box(io, stsd);
  const uint32_t entries = mpeg_get_4BigEndianValue(io, stsd);
  for (uint32_t i = 0; i < entries && stsd->consumed < stsd->size; ++i) {
    Mp4Box header;
    if (!readChild(io, &header)) break;
    Mp4SampleEntry* entry = readSampleEntry(io, header, handler);
    mpeg_skip_box(io, entry ? static_cast<Mp4Box*>(entry) : &header);
    stsd->consumed += header.size;
    if (entry) {
      mpeg_free_sample_list(stbl->sample);
      stbl->sample = entry;
    }
    if (shortRead(io)) break;
  }
  return mpeg_skip_box(io, stsd);
}

// Reads the children of a container box, handing each header to `child`,
// which reads or skips that child to its end and says whether to go on.
template <typename ChildFn>
void walkContainer(MediaIo* io, Mp4Box* box, ChildFn child) {
  while (box->consumed < box->size) {
    Mp4Box header;
    if (!readChild(io, &header)) break;
    const bool more = child(header);
    box->consumed += header.size;
    if (!more) break;
  }
  mpeg_skip_box(io, box);
}

int32_t mpeg_read_STBLBox(MediaIo* io, Mp4StblBox* stbl, uint32_t handler) {
  if (!io || !stbl) return -1;
  walkContainer(io, stbl, [&](Mp4Box& child) {
    if (isType(child.type, "stsd")) {
      mpeg_read_STSDBox(io, &child, stbl, handler);
    } else if (isType(child.type, "stts")) {
      mpeg_read_STTSBox(io, &child, stbl);
    } else {
      mpeg_skip_box(io, &child);
    }
    return true;
  });
  return 0;
}

int32_t mpeg_read_MINFBox(MediaIo* io, Mp4MinfBox* minf, uint32_t handler) {
  if (!io || !minf) return -1;
  walkContainer(io, minf, [&](Mp4Box& child) {
    if (isType(child.type, "vmhd")) {
      mpeg_read_VMHDBox(io, &child);
    } else if (isType(child.type, "smhd")) {
      mpeg_read_SMHDBox(io, &child);
    } else if (isType(child.type, "hmhd")) {
      adoptHeader(&minf->hmhd, child);
      mpeg_read_HMHDBox(io, &minf->hmhd);
      minf->has_hmhd = true;
    } else if (isType(child.type, "stbl")) {
      adoptHeader(&minf->stbl, child);
      mpeg_read_STBLBox(io, &minf->stbl, handler);
    } else {
      mpeg_skip_box(io, &child);  // nmhd and the rest
    }
    return true;
  });
  return 0;
}

int32_t mpeg_read_MDIABox(MediaIo* io, Mp4MdiaBox* mdia) {
  if (!io || !mdia) return -1;
  walkContainer(io, mdia, [&](Mp4Box& child) {
    if (isType(child.type, "mdhd")) {
      adoptHeader(&mdia->mdhd, child);
      mpeg_read_MDHDBox(io, &mdia->mdhd);
    } else if (isType(child.type, "hdlr")) {
      mpeg_read_HDLRBox(io, &child, &mdia->handler);
    } else if (isType(child.type, "minf")) {
      adoptHeader(&mdia->minf, child);
      mpeg_read_MINFBox(io, &mdia->minf, mdia->handler);
    } else {
      mpeg_skip_box(io, &child);
    }
    return true;
  });
  return 0;
}

int32_t mpeg_read_TRAKBox(MediaIo* io, Mp4TrakBox* trak) {
  if (!io || !trak) return -1;
  bool has_tkhd = false, has_mdia = false;
  walkContainer(io, trak, [&](Mp4Box& child) {
    if (isType(child.type, "tkhd")) {
      adoptHeader(&trak->tkhd, child);
      mpeg_read_TKHDBox(io, &trak->tkhd);
      has_tkhd = true;
    } else if (isType(child.type, "mdia")) {
      adoptHeader(&trak->mdia, child);
      mpeg_read_MDIABox(io, &trak->mdia);
      has_mdia = true;
    } else {
      mpeg_skip_box(io, &child);
    }
    return !(has_tkhd && has_mdia);
  });
  return 0;
}

// Appends first and reads after, so a track is freed with the list whatever
// its read does.
void readTrack(MediaIo* io, Mp4MoovBox* moov, const Mp4Box& header, Mp4TrakBox**& tail) {
  Mp4Box skipped = header;
  Mp4TrakBox* trak = moov->track_count < kMaxTracks ? newRecord<Mp4TrakBox>() : nullptr;
  if (!trak) {
    mpeg_skip_box(io, &skipped);
    return;
  }
  adoptHeader(trak, header);
  trak->track_byte = static_cast<uint8_t>(++moov->track_count);
  *tail = trak;
  tail = &trak->next;
  mpeg_read_TRAKBox(io, trak);
}

int32_t mpeg_read_MOOVBox(MediaIo* io, Mp4MoovBox* moov) {
  if (!io || !moov) return -1;
  Mp4TrakBox** tail = &moov->tracks;
  while (*tail) tail = &(*tail)->next;  // a second moov adds to the list
  walkContainer(io, moov, [&](Mp4Box& child) {
    if (isType(child.type, "mvhd")) {
      adoptHeader(&moov->mvhd, child);
      mpeg_read_MVHDBox(io, &moov->mvhd);
    } else if (isType(child.type, "trak")) {
      readTrack(io, moov, child, tail);
    } else {
      mpeg_skip_box(io, &child);
    }
    return true;
  });
  return 0;
}

// ---- Filling the MediaInfo ----

void fillMovie(const Mp4File& file, MediaInfo* info) {
  const char* brand = file.ftyp.major_brand;
  if (memcmp(brand, "3gp", 3) == 0) {
    char text[sizeof file.ftyp.major_brand + 1] = {};
    memcpy(text, brand, sizeof file.ftyp.major_brand);
    media_strncpy(info->format, text, sizeof info->format);
  } else {
    media_strncpy(info->format, "mp4", sizeof info->format);
  }
  const Mp4MvhdBox& mvhd = file.moov.mvhd;
  if (mvhd.timescale != 0 && mvhd.duration != 0) {
    const uint64_t us = mvhd.duration * kUsPerSecond / mvhd.timescale;
    info->duration = static_cast<int64_t>(us);
    const uint64_t seconds = us / kUsPerSecond;
    // The product is kept to 32 bits as the bit rate field is.
    if (seconds > 0) info->bit_rate = static_cast<uint32_t>((info->file_size * 8u) / seconds);
  }
  if (mvhd.has_creation_time) {
    info->year = mvhd.creation_time.tm_year + 1900;
    info->month = mvhd.creation_time.tm_mon + 1;
    info->day = mvhd.creation_time.tm_mday;
  }
  info->track = 0;
}

// The bit rates a track states outside its decoder configuration.
bool trackBitRates(const Mp4TrakBox& trak, uint32_t* max, uint32_t* avg) {
  const Mp4MinfBox& minf = trak.mdia.minf;
  const Mp4SampleEntry* entry = minf.stbl.sample;
  if (entry && entry->kind == Mp4EntryKind::kAvc) {
    const auto* avc = static_cast<const Mp4AvcSampleEntry*>(entry);
    if (avc->has_btrt) {
      *max = avc->btrt.max_bit_rate;
      *avg = avc->btrt.avg_bit_rate;
      return true;
    }
  }
  if (!minf.has_hmhd) return false;
  *max = minf.hmhd.max_bit_rate;
  *avg = minf.hmhd.avg_bit_rate;
  return true;
}

void takeAudioBitRates(MediaInfo* info, uint32_t max, uint32_t avg) {
  if (info->audio_bit_rate != 0 && info->audio_max_bit_rate != 0) return;
  info->audio_max_bit_rate = max;
  info->audio_bit_rate = avg;
}

void fillAudioEntry(const Mp4AudioSampleEntry& entry, MediaInfo* info) {
  info->channels = entry.channel_count;
  info->sample_rate = entry.sample_rate_int;
  if (entry.kind != Mp4EntryKind::kMp4a) {
    info->audio_codec = media_codec_get_id(media_codec_bmp_tags, fourcc(entry.type));
    return;
  }
  info->audio_codec = kMediaCodecAac;
  const Mp4EsDescriptor& es = static_cast<const Mp4aSampleEntry&>(entry).esds.es;
  if (es.specific_info) {
    info->audio_config_size = std::min<uint32_t>(es.specific_length, kMediaConfigSize);
    memcpy(info->audio_config, es.specific_info, info->audio_config_size);
  }
  if (es.has_decoder_config) takeAudioBitRates(info, es.max_bit_rate, es.avg_bit_rate);
}

void fillAudioTrack(const Mp4TrakBox& trak, MediaInfo* info) {
  info->has_audio = 1;
  info->audio_track = trak.track_byte;
  info->audio_streams = 1;
  uint32_t max = 0, avg = 0;
  if (trackBitRates(trak, &max, &avg)) takeAudioBitRates(info, max, avg);
  const Mp4SampleEntry* entry = trak.mdia.minf.stbl.sample;
  if (entry && (entry->kind == Mp4EntryKind::kAudio || entry->kind == Mp4EntryKind::kMp4a)) {
    fillAudioEntry(*static_cast<const Mp4AudioSampleEntry*>(entry), info);
  }
  info->audio_reserved = 0;
}

void fillVideoTrack(const Mp4TrakBox& trak, const Mp4File& file, MediaInfo* info) {
  info->has_video = 1;
  info->video_track = trak.track_byte;
  info->video_width = trak.tkhd.width_int;
  info->video_height = trak.tkhd.height_int;
  info->video_stream_type = 0;
  const Mp4MdhdBox& mdhd = trak.mdia.mdhd;
  const Mp4StblBox& stbl = trak.mdia.minf.stbl;
  const uint64_t seconds = mdhd.timescale ? mdhd.duration / mdhd.timescale : 0;
  if (seconds != 0) {
    // The mdat size stands for the video: the audio share is not taken out.
    const uint32_t bits = file.mdat.size * 8u;
    info->video_bit_rate = static_cast<uint32_t>(bits / seconds);
    info->video_max_bit_rate = info->video_bit_rate;
    info->frame_rate = static_cast<uint32_t>(stbl.min_delta ? mdhd.timescale / stbl.min_delta
                                                            : stbl.total_samples / seconds);
  }
  if (stbl.sample)
    info->video_codec = media_codec_get_id(media_codec_bmp_tags, fourcc(stbl.sample->type));
}

void fillTracks(const Mp4File& file, MediaInfo* info) {
  for (const Mp4TrakBox* trak = file.moov.tracks; trak; trak = trak->next) {
    if (trak->mdia.handler == kMp4HandlerSound) {
      fillAudioTrack(*trak, info);
    } else if (trak->mdia.handler == kMp4HandlerVideo) {
      fillVideoTrack(*trak, file, info);
    }
  }
}

}  // namespace

int32_t mp4_read_file_format(MediaIo* io, Mp4File* file) {
  if (!io || !file) return -1;
  for (uint32_t i = 0; i < kMaxTopLevelBoxes && !(file->has_moov && file->has_mdat); ++i) {
    Mp4Box box;
    if (mpeg_read_box(io, &box) != 0) break;
    if (isType(box.type, "ftyp")) {
      adoptHeader(&file->ftyp, box);
      mpeg_read_FTYPBox(io, &file->ftyp);
    } else if (isType(box.type, "pdin")) {
      adoptHeader(&file->pdin, box);
      if (mpeg_read_PDINBox(io, &file->pdin) != 0) break;
    } else if (isType(box.type, "moov")) {
      adoptHeader(&file->moov, box);
      if (mpeg_read_MOOVBox(io, &file->moov) != 0) break;
      file->has_moov = true;
    } else if (isType(box.type, "mdat")) {
      file->mdat = box;
      file->has_mdat = true;
      mpeg_skip_box(io, &box);
    } else {
      mpeg_skip_box(io, &box);
    }
  }
  return 0;
}

int32_t mp4_free_mp4_struct(Mp4File* file) {
  if (!file) return -1;
  mpeg_free_MOOVBox(&file->moov);
  return 0;
}

int32_t mp4_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !info) return -1;
  Mp4File file{};
  const int32_t result = mp4_read_file_format(io, &file);
  fillMovie(file, info);
  fillTracks(file, info);
  mp4_free_mp4_struct(&file);
  return result;
}
