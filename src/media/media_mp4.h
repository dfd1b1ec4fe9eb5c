// The MP4 box reader: walks the boxes of ISO base media files (MP4, M4A, 3GP)
// far enough to fill a MediaInfo with the brand, duration, creation date and,
// per track, codec, picture size, frame rate, bit rates and the audio decoder
// configuration. Boxes are read through the counting segment layer, so the
// rest of any box can be skipped exactly.
//
// Only 32-bit box sizes are understood. The records below are plain data; an
// Mp4File lives on the caller's stack, starts value-initialised, and owns what
// hangs from it (tracks, sample descriptions, decoder blocks, all from
// media_mallocz) until mp4_free_mp4_struct. Nothing here keeps state, so reads
// of different files may run at once.
#pragma once

#include <cstdint>
#include <ctime>

#include "media/media_io.h"
#include "media/media_parse.h"  // mp4_read_info

// The head of every box record: the byte count of the segment layer, then the
// box header. version and flags are read for full boxes only.
struct Mp4Box : MediaSegment {
  char type[4] = {};
  uint8_t version = 0;
  uint8_t flags[3] = {};
};

enum Mp4Handler : uint32_t {
  kMp4HandlerOther = 0,
  kMp4HandlerSound = 1,  // "soun"
  kMp4HandlerVideo = 2,  // "vide"
  kMp4HandlerHint = 3,   // "hint"
  kMp4HandlerMeta = 4,   // "meta"
};

struct Mp4FtypBox : Mp4Box {
  char major_brand[4] = {};
};

struct Mp4PdinBox : Mp4Box {
  uint32_t rate = 0;
  uint32_t initial_delay = 0;
};

struct Mp4MvhdBox : Mp4Box {
  uint32_t timescale = 0;
  uint64_t duration = 0;  // version 0 values widened
  bool has_creation_time = false;
  struct tm creation_time = {};  // UTC calendar time
};

struct Mp4TkhdBox : Mp4Box {
  uint16_t width_int = 0;  // the 16.16 fields as integer and fraction halves
  uint16_t width_frac = 0;
  uint16_t height_int = 0;
  uint16_t height_frac = 0;
};

struct Mp4MdhdBox : Mp4Box {
  uint32_t timescale = 0;
  uint64_t duration = 0;
  uint8_t language[3] = {};  // as read
};

struct Mp4HmhdBox : Mp4Box {
  uint32_t max_bit_rate = 0;
  uint32_t avg_bit_rate = 0;
};

struct Mp4BitRateBox : Mp4Box {  // "btrt"
  uint32_t buffer_size = 0;
  uint32_t max_bit_rate = 0;
  uint32_t avg_bit_rate = 0;
};

// ---- Sample descriptions ----

// Which record a sample description is, so it can be read back and freed.
enum class Mp4EntryKind : uint8_t { kAudio, kMp4a, kVisual, kAvc, kMp4v };

struct Mp4SampleEntry : Mp4Box {  // type is the entry type ("avc1", "mp4a", ...)
  Mp4EntryKind kind = Mp4EntryKind::kAudio;
  uint16_t data_reference_index = 0;
};

struct Mp4EsDescriptor {
  bool present = false;
  uint16_t es_id = 0;
  uint8_t flags = 0;
  bool has_decoder_config = false;
  uint32_t max_bit_rate = 0;  // from the DecoderConfigDescriptor
  uint32_t avg_bit_rate = 0;
  uint32_t specific_length = 0;      // DecoderSpecificInfo bytes held in specific
  uint8_t* specific_info = nullptr;  // media_mallocz(specific_length + 8), owned
};

struct Mp4EsdsBox : Mp4Box {
  Mp4EsDescriptor es;
};

struct Mp4VisualSampleEntry : Mp4SampleEntry {
  uint16_t width = 0;
  uint16_t height = 0;
  uint32_t horiz_resolution = 0;
  uint32_t vert_resolution = 0;
  uint16_t frame_count = 0;
  char compressor_name[32] = {};
  uint32_t pasp[2] = {};  // h-spacing, v-spacing
  uint32_t clap[7] = {};
};

struct Mp4AvcSampleEntry : Mp4VisualSampleEntry {
  Mp4Box avcc;  // only the header: the configuration itself is skipped
  bool has_btrt = false;
  Mp4BitRateBox btrt;
};

struct Mp4vSampleEntry : Mp4VisualSampleEntry {
  Mp4EsdsBox esds;
};

struct Mp4AudioSampleEntry : Mp4SampleEntry {
  uint16_t channel_count = 0;
  uint16_t sample_size = 0;
  uint16_t sample_rate_int = 0;
  uint16_t sample_rate_frac = 0;
};

struct Mp4aSampleEntry : Mp4AudioSampleEntry {
  Mp4EsdsBox esds;
};

// ---- Movie and tracks ----

struct Mp4StblBox : Mp4Box {
  uint32_t total_samples = 0;        // largest stts total seen
  uint32_t min_delta = 0;            // smallest stts delta; 0 = none
  Mp4SampleEntry* sample = nullptr;  // the last description of the track's kind, owned
};

struct Mp4MinfBox : Mp4Box {
  bool has_hmhd = false;
  Mp4HmhdBox hmhd;
  Mp4StblBox stbl;
};

struct Mp4MdiaBox : Mp4Box {
  Mp4MdhdBox mdhd;
  uint32_t handler = kMp4HandlerOther;  // Mp4Handler
  Mp4MinfBox minf;
};

struct Mp4TrakBox : Mp4Box {
  Mp4TkhdBox tkhd;
  Mp4MdiaBox mdia;
  uint8_t track_byte = 0;  // the track's position in the list, from 1
  Mp4TrakBox* next = nullptr;
};

struct Mp4MoovBox : Mp4Box {
  Mp4MvhdBox mvhd;
  Mp4TrakBox* tracks = nullptr;  // in file order, owned
  uint32_t track_count = 0;
};

struct Mp4File {
  Mp4FtypBox ftyp;
  Mp4PdinBox pdin;
  Mp4MoovBox moov;
  Mp4Box mdat;  // only its size is used
  bool has_moov = false;
  bool has_mdat = false;
};

// The top-level walk: at most 20 boxes, ending at the first unreadable header
// or once both a moov and an mdat have been seen. -1 for a null argument,
// else 0. The caller frees the result with mp4_free_mp4_struct, also after -1.
int32_t mp4_read_file_format(MediaIo* io, Mp4File* file);

// Frees everything hanging from the moov record and clears the pointers, so a
// second call is harmless. -1 for a null file, else 0.
int32_t mp4_free_mp4_struct(Mp4File* file);
