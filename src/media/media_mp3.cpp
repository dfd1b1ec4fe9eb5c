// MP3 reader: ID3v1 at the end of the file, ID3v2 at its start, the first
// layer III frame header with its Xing/Info or VBRI frame count, and from these
// the tag texts, date, duration and rates of the MediaInfo record. Also pulls
// the attached picture out of the ID3v2 tag for the thumbnail service.
//
// Files come from USB sticks, so every walk over file data is bounded by a
// byte count taken from the file and every copy by its destination.
#include "media/media_mp3.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/alloc.h"
#include "platform/ctype.h"
#include "platform/log.h"

const int32_t mpa_freq_tab[3] = {44100, 48000, 32000};

// clang-format off
const int32_t mpa_bitrate_tab[2][3][15] = {
    {
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    },
    {
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
    },
};

const char* const id3v1_genre_str[kId3v1GenreCount] = {
    "Blues",
    "Classic Rock",
    "Country",
    "Dance",
    "Disco",
    "Funk",
    "Grunge",
    "Hip-Hop",
    "Jazz",
    "Metal",
    "New Age",
    "Oldies",
    "Other",
    "Pop",
    "R&B",
    "Rap",
    "Reggae",
    "Rock",
    "Techno",
    "Industrial",
    "Alternative",
    "Ska",
    "Death Metal",
    "Pranks",
    "Soundtrack",
    "Euro-Techno",
    "Ambient",
    "Trip-Hop",
    "Vocal",
    "Jazz+Funk",
    "Fusion",
    "Trance",
    "Classical",
    "Instrumental",
    "Acid",
    "House",
    "Game",
    "Sound Clip",
    "Gospel",
    "Noise",
    "AlternRock",
    "Bass",
    "Soul",
    "Punk",
    "Space",
    "Meditative",
    "Instrumental Pop",
    "Instrumental Rock",
    "Ethnic",
    "Gothic",
    "Darkwave",
    "Techno-Industrial",
    "Electronic",
    "Pop-Folk",
    "Eurodance",
    "Dream",
    "Southern Rock",
    "Comedy",
    "Cult",
    "Gangsta",
    "Top 40",
    "Christian Rap",
    "Pop/Funk",
    "Jungle",
    "Native American",
    "Cabaret",
    "New Wave",
    "Psychadelic",
    "Rave",
    "Showtunes",
    "Trailer",
    "Lo-Fi",
    "Tribal",
    "Acid Punk",
    "Acid Jazz",
    "Polka",
    "Retro",
    "Musical",
    "Rock & Roll",
    "Hard Rock",
    "Folk",
    "Folk-Rock",
    "National Folk",
    "Swing",
    "Fast Fusion",
    "Bebob",
    "Latin",
    "Revival",
    "Celtic",
    "Bluegrass",
    "Avantgarde",
    "Gothic Rock",
    "Progressive Rock",
    "Psychedelic Rock",
    "Symphonic Rock",
    "Slow Rock",
    "Big Band",
    "Chorus",
    "Easy Listening",
    "Acoustic",
    "Humour",
    "Speech",
    "Chanson",
    "Opera",
    "Chamber Music",
    "Sonata",
    "Symphony",
    "Booty Bass",
    "Primus",
    "Porn Groove",
    "Satire",
    "Slow Jam",
    "Club",
    "Tango",
    "Samba",
    "Folklore",
    "Ballad",
    "Power Ballad",
    "Rhythmic Soul",
    "Freestyle",
    "Duet",
    "Punk Rock",
    "Drum Solo",
    "A capella",
    "Euro-House",
    "Dance Hall",
    "Goa",
    "Drum & Bass",
    "Club-House",
    "Hardcore",
    "Terror",
    "Indie",
    "BritPop",
    "Punk Rock",
    "Polsk Punk",
    "Beat",
    "Christian Gangsta",
    "Heavy Metal",
    "Black Metal",
    "Crossover",
    "Contemporary Christian",
    "Christian Rock",
    "Merengue",
    "Salsa",
    "Thrash Metal",
    "Anime",
    "JPop",
    "Synthpop",
};
// clang-format on

namespace {

constexpr char kLogSource[] = "media_mp3";

constexpr uint32_t kId3HeaderSize = 10;
constexpr uint32_t kId3v1Size = 128;
constexpr uint32_t kId3v1FieldLen = 30;
constexpr uint8_t kId3FlagUnsync = 0x80;
constexpr uint8_t kId3FlagExtended = 0x40;  // compression in version 2
constexpr uint8_t kId3FlagFooter = 0x10;
constexpr uint32_t kFrameDataMax = kMediaTextSize;
// A text frame decoder may read this far past the frame data (byte-order mark).
constexpr uint32_t kFrameDataSlack = 4;

constexpr int64_t kMaxSyncSearch = 204801;
constexpr uint32_t kSyncChunk = 4096;
constexpr uint32_t kVbriOffset = 32;  // after the 4-byte frame header
constexpr int32_t kWalkFrameSizeMax = 156;
constexpr int64_t kUsPerFrame = 1152000000;  // 1152 samples per frame, in µs·Hz
constexpr int64_t kUsPerSecond = 1000000;

// Xing header offset after the frame header, by [lsf][mono].
constexpr int32_t kXingOffset[2][2] = {{32, 17}, {17, 9}};

constexpr uint32_t frameId(const char* s) {
  uint32_t v = 0;
  for (; *s; ++s) v = (v << 8) | static_cast<uint8_t>(*s);
  return v;
}

enum class TagField { kTitle, kArtist, kAlbum, kTrack, kGenre, kDate };

struct Id3TextFrame {
  uint32_t id;     // versions 3 and 4
  uint32_t id_v2;  // version 2
  TagField field;
};

// "TYR" rather than the real version-2 year id: version-2 tags give no date.
constexpr Id3TextFrame kId3TextFrames[] = {
    {frameId("TIT2"), frameId("TT2"), TagField::kTitle},
    {frameId("TPE1"), frameId("TP1"), TagField::kArtist},
    {frameId("TALB"), frameId("TAL"), TagField::kAlbum},
    {frameId("TRCK"), frameId("TRK"), TagField::kTrack},
    {frameId("TCON"), frameId("TCO"), TagField::kGenre},
    {frameId("TYER"), frameId("TYR"), TagField::kDate},
};

uint32_t synchsafe(const uint8_t* b) {
  return (static_cast<uint32_t>(b[0] & 0x7f) << 21) | ((b[1] & 0x7f) << 14) | ((b[2] & 0x7f) << 7) |
         (b[3] & 0x7f);
}

// 0 when a tag of this version and flags is read, else the reason it is not.
int32_t id3v2Unsupported(uint8_t major, uint8_t flags) {
  if (major == 2 && (flags & kId3FlagExtended)) return -1;
  if (major < 2 || major > 4) return -2;
  if (flags & kId3FlagUnsync) return -3;
  return 0;
}

// Versions 3 and 4 read the extended header's size the same way, as synchsafe.
void skipExtendedHeader(MediaIo* io, uint8_t major, uint8_t flags, int64_t* remaining) {
  if (major < 3 || !(flags & kId3FlagExtended)) return;
  uint8_t size[4] = {};
  media_read_data(io, size, sizeof size);
  const uint32_t n = synchsafe(size);
  media_skip_data(io, static_cast<int32_t>(n));
  *remaining -= static_cast<int64_t>(sizeof size) + n;
}

struct Id3FrameHeader {
  uint32_t id;
  uint32_t size;
};

// Version-4 sizes are synchsafe but are read as plain integers, like version 3.
Id3FrameHeader readFrameHeader(MediaIo* io, uint8_t major) {
  Id3FrameHeader h{};
  if (major == 2) {
    h.id = media_get_3BigEndianValue(io);
    h.size = media_get_3BigEndianValue(io);
  } else {
    h.id = media_get_4BigEndianValue(io);
    h.size = media_get_4BigEndianValue(io);
    media_get_2BigEndianValue(io);  // flags
  }
  return h;
}

// Calls on_frame(id, size) with the stream at each frame's data; on_frame
// consumes what it wants and returns 0 to go on or a negative value to stop
// the walk with that result. Padding (id 0) ends the walk.
template <class OnFrame>
int32_t walkId3Frames(MediaIo* io, uint8_t major, int64_t remaining, OnFrame&& on_frame) {
  const int64_t header_len = major == 2 ? 6 : 10;
  while (remaining >= header_len) {
    const Id3FrameHeader h = readFrameHeader(io, major);
    remaining -= header_len + h.size;
    if (remaining < 0) break;
    if (h.id == 0) {
      media_skip_data(io, static_cast<int32_t>(remaining));
      break;
    }
    if (int32_t r = on_frame(h.id, h.size); r < 0) return r;
  }
  return 0;
}

// Converts to UTF-8 and copies at most dst_size - 1 bytes; dst must be zeroed.
int32_t copyConverted(char* dst, uint32_t dst_size, int32_t code, const uint8_t* text, size_t len) {
  CtypeIn in{code, reinterpret_cast<const char*>(text), len};
  CtypeOut out{kCtypeUtf8, nullptr, 0};
  if (ctypeConvertTo(&in, &out) != 0) return -1;
  memcpy(dst, out.text, std::min<size_t>(out.len, dst_size - 1));
  RetUB(out.text);
  return 0;
}

// The byte-order mark of a UTF-16/32 text: its charset and length.
struct Bom {
  int32_t code;
  uint32_t len;
};

Bom readBom(const uint8_t* t) {
  if (t[0] == 0xff && t[1] == 0xfe) {
    return (t[2] || t[3]) ? Bom{kCtypeUtf16Le, 2} : Bom{kCtypeUtf32Le, 4};
  }
  if (t[0] == 0xfe && t[1] == 0xff) return {kCtypeUtf16Be, 2};
  if (t[0] == 0 && t[1] == 0 && t[2] == 0xfe && t[3] == 0xff) return {kCtypeUtf32Be, 4};
  return {kCtypeDetect, 0};
}

void applyDate(MediaInfo* info, const char* text) {
  const size_t len = strlen(text);
  if (len <= 3) return;
  char year[8] = {};
  memcpy(year, text, std::min<size_t>(len, 7));
  info->year = atoi(year);
  int y = 0, month = 0, day = 0;
  sscanf(text, "%4d-%2d-%2d", &y, &month, &day);
  if (month >= 1 && month <= 12) info->month = month;
  if (day >= 1 && day <= 30) info->day = day;  // 31 is refused on purpose
}

void applyGenre(MediaInfo* info, const char* text) {
  int n = -1;
  if (sscanf(text, "(%4d)", &n) == 1 && n >= 0 && n < kId3v1GenreCount) {
    media_strncpy(info->genre, id3v1_genre_str[n], kMediaTextSize);
  } else {
    media_strncpy(info->genre, text, kMediaTextSize);
  }
}

void applyTextFrame(MediaInfo* info, uint32_t id, uint8_t major, const uint8_t* data,
                    uint32_t len) {
  for (const Id3TextFrame& row : kId3TextFrames) {
    if (id != (major == 2 ? row.id_v2 : row.id)) continue;
    char text[kMediaTextSize];
    switch (row.field) {
      case TagField::kTitle:
        mp3Id3v2GetString(info->title, kMediaTextSize, data, len);
        return;
      case TagField::kArtist:
        mp3Id3v2GetString(info->artist, kMediaTextSize, data, len);
        return;
      case TagField::kAlbum:
        mp3Id3v2GetString(info->album, kMediaTextSize, data, len);
        return;
      case TagField::kTrack:
        mp3Id3v2GetString(text, sizeof text, data, len);
        info->track = atoi(text);
        return;
      case TagField::kGenre:
        mp3Id3v2GetString(text, sizeof text, data, len);
        applyGenre(info, text);
        return;
      case TagField::kDate:
        mp3Id3v2GetString(text, sizeof text, data, len);
        applyDate(info, text);
        return;
    }
  }
}

// 0, or -2 when the last 128 bytes cannot be read.
int32_t readId3v1(MediaIo* io, MediaInfo* info) {
  uint8_t tag[kId3v1Size];
  if (!media_reverse_data(io, kId3v1Size) || !media_read_data(io, tag, kId3v1Size)) return -2;
  if (memcmp(tag, "TAG", 3) != 0) return 0;
  mp3Id3v1GetString(info->title, kMediaTextSize, tag + 3, kId3v1FieldLen);
  mp3Id3v1GetString(info->artist, kMediaTextSize, tag + 33, kId3v1FieldLen);
  mp3Id3v1GetString(info->album, kMediaTextSize, tag + 63, kId3v1FieldLen);
  char year[5] = {};
  memcpy(year, tag + 93, 4);
  info->year = atoi(year);
  if (tag[125] == 0 && tag[126] != 0) info->track = tag[126];  // ID3v1.1
  if (tag[127] < kId3v1GenreCount) {
    media_strncpy(info->genre, id3v1_genre_str[tag[127]], kMediaTextSize);
  }
  return 0;
}

// Reads the ID3v2 tag at the start, if any, and leaves the stream where the
// audio should begin. 0, or -1 on a short read.
int32_t skipId3v2(MediaIo* io, MediaInfo* info) {
  uint8_t head[kId3HeaderSize];
  if (!media_goto_start(io) || !media_read_data(io, head, sizeof head)) return -1;
  int64_t start = 0;
  if (mp3Id3v2Match(head)) {
    const uint32_t size = synchsafe(head + 6);
    mp3Id3v2ParseTag(io, info, size, head[3], head[5]);
    start = size + kId3HeaderSize;
  }
  // Some taggers write a second tag straight after the first.
  if (!media_orient_data(io, start) || !media_read_data(io, head, sizeof head)) return -1;
  if (mp3Id3v2Match(head)) {
    media_skip_data(io, static_cast<int32_t>(synchsafe(head + 6)));
  } else {
    media_skip_data(io, -static_cast<int32_t>(kId3HeaderSize));
  }
  return 0;
}

// Looks for a frame sync from `pos` on, reading in chunks but with the result
// of a byte-by-byte search: -1 when 204801 bytes hold no sync or the file ends
// first; else 0 with the header (0 when `remaining` bytes were searched in
// vain), *skipped counting the bytes before it plus its 4, and the stream just
// after it.
int32_t findFrameSync(MediaIo* io, int64_t pos, int64_t remaining, uint32_t* header,
                      int64_t* skipped) {
  uint8_t buf[kSyncChunk];
  int64_t done = 0;
  while (true) {
    if (done >= remaining) {
      *header = 0;
      *skipped = done;
      return 0;
    }
    if (!media_orient_data(io, pos + done)) return -1;
    const size_t got = fread(buf, 1, sizeof buf, io->stream);
    if (got < 2) return -1;
    const bool at_end = got < sizeof buf;
    // Away from the end of the file, keep the 3 header bytes inside this chunk.
    const size_t last = at_end ? got - 1 : got - 3;
    auto byteAt = [&](size_t i) -> uint32_t { return i < got ? buf[i] : 0; };
    for (size_t i = 0; i < last; ++i) {
      if (done >= remaining) break;
      if (buf[i] == 0xff && (buf[i + 1] & 0xe0) == 0xe0) {
        *header = 0xff000000u | (byteAt(i + 1) << 16) | (byteAt(i + 2) << 8) | byteAt(i + 3);
        *skipped = done + 4;
        media_orient_data(io, pos + *skipped);
        return 0;
      }
      if (++done == kMaxSyncSearch) return -1;
    }
    if (at_end && done < remaining) return -1;  // the next 2-byte read falls short
  }
}

// The frame count of a Xing/Info header in the first frame, else 0; the
// stream is just after the frame header.
uint32_t readXingFrames(MediaIo* io, const MpegAudioFrameHeader& first) {
  char tag[4] = {};
  media_skip_data(io, kXingOffset[first.lsf ? 1 : 0][first.channels == 1 ? 1 : 0]);
  if (!media_read_data(io, tag, sizeof tag)) return 0;
  if (memcmp(tag, "Xing", 4) != 0 && memcmp(tag, "Info", 4) != 0) return 0;
  const uint32_t flags = media_get_4BigEndianValue(io);
  return (flags & 1) ? media_get_4BigEndianValue(io) : 0;
}

// The frame count of a VBRI header, or `frames` when there is none.
uint32_t readVbriFrames(MediaIo* io, int64_t after_header, uint32_t frames) {
  char tag[4] = {};
  media_orient_data(io, after_header + kVbriOffset);
  if (!media_read_data(io, tag, sizeof tag) || memcmp(tag, "VBRI", 4) != 0) return frames;
  if (media_get_2BigEndianValue(io) != 1) return frames;
  media_skip_data(io, 8);  // delay, quality, byte count
  return media_get_4BigEndianValue(io);
}

// Counts frames from the end of the first one until a header does not check.
uint32_t countFrames(MediaIo* io) {
  uint32_t frames = 1;
  while (true) {
    const uint32_t header = media_get_4BigEndianValue(io);
    if (mp3CheckHeader(header) < 0) break;
    ++frames;
    MpegAudioFrameHeader h{};
    mpegAudioDecodeHeader(&h, header);
    // A free-format frame has no size: stepping back 4 would loop for ever.
    if (h.frame_size < 4) break;
    media_skip_data(io, h.frame_size - 4);
  }
  return frames;
}

int64_t durationOf(MediaIo* io, const MpegAudioFrameHeader& first, uint32_t frames,
                   uint32_t file_size) {
  if (frames == 0 && first.frame_size > kWalkFrameSizeMax) {
    // Constant bit rate, in 32-bit arithmetic on purpose: files of 512 MiB or
    // more and durations past 4294 s wrap.
    const uint32_t seconds = file_size * 8u / static_cast<uint32_t>(first.bit_rate);
    return static_cast<uint32_t>(seconds * 1000000u);
  }
  if (frames == 0) frames = countFrames(io);
  return static_cast<int64_t>(frames) * kUsPerFrame / first.sample_rate;
}

struct RetUBDeleter {
  void operator()(void* p) const { RetUB(p); }
};

// Takes the picture out of an APIC/PIC frame of `size` bytes at the stream.
// 0 with thumb filled, 0 with thumb untouched for an empty picture, -1 for a
// malformed frame, a short read or no memory. *owned is the block this call
// put into thumb before; a later picture replaces and frees it.
int32_t takePicture(MediaIo* io, uint32_t size, MediaThumbnail* thumb, void** owned) {
  if (size == 0) return -1;
  std::unique_ptr<uint8_t, RetUBDeleter> frame(static_cast<uint8_t*>(GetUB(size)));
  if (!frame || !media_read_data(io, frame.get(), size)) return -1;
  const uint8_t* f = frame.get();
  const uint32_t mime_end = std::min<uint32_t>(size, kMediaThumbMimeSize);
  uint32_t nul = 1;
  while (nul < mime_end && f[nul] != 0) ++nul;
  if (nul >= mime_end) return -1;
  // After the MIME text: picture type, then a description ended by one zero
  // byte, or two for the wide encodings; the picture starts after the first.
  const bool wide = f[0] != 0;
  uint32_t start = 0;
  for (uint32_t i = nul + 2; i < size && start == 0; ++i) {
    if (f[i] == 0 && (!wide || (i + 1 < size && f[i + 1] == 0))) start = i + 1;
  }
  if (start == 0) return -1;
  const uint32_t len = size - start;
  if (len == 0) return 0;
  void* picture = GetUB(len);
  if (!picture) return -1;
  memcpy(picture, f + start, len);
  memset(thumb->mime, 0, sizeof thumb->mime);
  memcpy(thumb->mime, f + 1, nul - 1);
  RetUB(*owned);
  *owned = picture;
  thumb->data = picture;
  thumb->size = len;
  thumb->kind = 1;
  return 0;
}

}  // namespace

int32_t mp3CheckHeader(uint32_t header) {
  if ((header & 0xffe00000u) != 0xffe00000u) return -1;
  if (((header >> 17) & 3) == 0) return -2;
  if (((header >> 12) & 15) == 15) return -3;
  if (((header >> 10) & 3) == 3) return -4;
  return 0;
}

uint32_t mpegAudioDecodeHeader(MpegAudioFrameHeader* decoded, uint32_t header) {
  if (!decoded) return 1;
  int32_t mpeg25 = 0;
  if (header & (1u << 20)) {
    decoded->lsf = (header & (1u << 19)) ? 0 : 1;
  } else {
    decoded->lsf = 1;
    mpeg25 = 1;
  }
  decoded->layer = 4 - static_cast<int32_t>((header >> 17) & 3);
  const uint32_t freq_index = (header >> 10) & 3;
  decoded->sample_rate = freq_index < 3 ? mpa_freq_tab[freq_index] >> (decoded->lsf + mpeg25) : 0;
  decoded->mode = static_cast<int32_t>((header >> 6) & 3);
  decoded->mode_ext = static_cast<int32_t>((header >> 4) & 3);
  decoded->channels = decoded->mode == 3 ? 1 : 2;

  const uint32_t rate_index = (header >> 12) & 15;
  if (decoded->layer == 4 || rate_index == 0 || rate_index == 15 || decoded->sample_rate == 0) {
    return 1;
  }
  const int32_t padding = static_cast<int32_t>((header >> 9) & 1);
  const int32_t kbps = mpa_bitrate_tab[decoded->lsf][decoded->layer - 1][rate_index];
  decoded->bit_rate = kbps * 1000;
  switch (decoded->layer) {
    case 1:
      decoded->frame_size = (kbps * 12000 / decoded->sample_rate + padding) * 4;
      break;
    case 2:
      decoded->frame_size = kbps * 144000 / decoded->sample_rate + padding;
      break;
    default:
      decoded->frame_size = kbps * 144000 / (decoded->sample_rate << decoded->lsf) + padding;
      break;
  }
  return 0;
}

int32_t mp3Id3v2Match(const uint8_t* b) {
  if (!b || memcmp(b, "ID3", 3) != 0) return 0;
  if (b[3] == 0xff || b[4] == 0xff) return 0;
  return (b[6] | b[7] | b[8] | b[9]) < 0x80 ? 1 : 0;
}

uint32_t mp3Id3v2TagLen(const uint8_t* b) {
  if (!b) return 0;
  uint32_t len = synchsafe(b + 6) + kId3HeaderSize;
  if (b[5] & kId3FlagFooter) len += kId3HeaderSize;
  return len;
}

int32_t mp3Id3v1GetString(char* dst, uint32_t dst_size, const uint8_t* field, uint32_t field_len) {
  if (!dst || dst_size == 0 || !field) return -1;
  memset(dst, 0, dst_size);
  const char* text = reinterpret_cast<const char*>(field);
  const size_t len = strnlen(text, std::min<uint32_t>(field_len, kMediaTextSize - 1));
  if (std::all_of(text, text + len, [](char c) { return c == ' '; })) return 0;
  return copyConverted(dst, dst_size, kCtypeDetect, field, len);
}

int32_t mp3Id3v2GetString(char* dst, uint32_t dst_size, const uint8_t* data, uint32_t len) {
  if (!dst || dst_size == 0) return -1;
  memset(dst, 0, dst_size);
  if (!data || len == 0) return -1;
  const uint8_t* text = data + 1;
  const uint32_t text_len = len - 1;
  switch (data[0]) {
    case 0:
      return copyConverted(dst, dst_size, kCtypeLatin1, text, text_len);
    case 1: {
      // The length is not reduced by the mark: the text runs on into the
      // caller's slack, whose zeros end it.
      const Bom bom = readBom(text);
      return copyConverted(dst, dst_size, bom.code, text + bom.len, text_len);
    }
    case 3:
      memcpy(dst, text, std::min(text_len, dst_size - 1));
      return 0;
    default:
      return copyConverted(dst, dst_size, kCtypeDetect, text, text_len);
  }
}

int32_t mp3Id3v2ParseTag(MediaIo* io, MediaInfo* info, uint32_t size, uint8_t major_version,
                         uint8_t flags) {
  if (!io || !info) return -1;
  if (int32_t reason = id3v2Unsupported(major_version, flags); reason != 0) {
    DMS_LOG(kLogTrace, "ID3v2.%d tag skipped, cannot handle %d\n", major_version, reason);
    media_skip_data(io, static_cast<int32_t>(size));
    return reason;
  }
  int64_t remaining = size;
  skipExtendedHeader(io, major_version, flags, &remaining);
  uint8_t data[kFrameDataMax + kFrameDataSlack];
  // The rest of a frame longer than the buffer is not skipped: the walk goes
  // on from inside it, so a big picture frame ends the useful part.
  return walkId3Frames(io, major_version, remaining, [&](uint32_t id, uint32_t frame_size) {
    const uint32_t n = std::min(frame_size, kFrameDataMax);
    memset(data, 0, sizeof data);
    media_read_data(io, data, n);
    applyTextFrame(info, id, major_version, data, n);
    return 0;
  });
}

int32_t mp3_read_info(MediaIo* io, MediaInfo* info) {
  if (!io || !io->stream || !info) return -1;
  if (readId3v1(io, info) != 0) return -2;
  // ID3v2 is read second so that its values win.
  if (skipId3v2(io, info) != 0) return -1;

  const int64_t pos = media_ftell_data(io);
  uint32_t header = 0;
  int64_t skipped = 0;
  if (findFrameSync(io, pos, static_cast<int64_t>(info->file_size) - pos, &header, &skipped) != 0)
    return -1;
  if (mp3CheckHeader(header) < 0) return -1;
  MpegAudioFrameHeader first{};
  mpegAudioDecodeHeader(&first, header);
  if (first.layer != 3) return -1;

  const int64_t after_header = pos + skipped;
  uint32_t frames = readXingFrames(io, first);
  frames = readVbriFrames(io, after_header, frames);
  media_orient_data(io, after_header + first.frame_size - 4);
  info->duration = durationOf(io, first, frames, info->file_size);

  info->sample_rate = static_cast<uint32_t>(first.sample_rate);
  info->channels = static_cast<uint16_t>(first.channels);
  info->has_audio = 1;
  info->audio_streams = 1;
  info->audio_codec = kMediaCodecMp3;
  info->audio_max_bit_rate = static_cast<uint32_t>(first.bit_rate);
  info->audio_bit_rate = static_cast<uint32_t>(first.bit_rate);
  // Bytes per second for files of a second or more, unlike the other readers.
  const int64_t seconds = info->duration / kUsPerSecond;
  info->bit_rate = seconds < 1 ? static_cast<uint32_t>(first.bit_rate)
                               : static_cast<uint32_t>(info->file_size / seconds);
  media_strncpy(info->format, "mp3", kMediaTextSize);
  return 0;
}

int32_t mp3GetAlbumArt(const char* path, MediaThumbnail* thumb) {
  if (!path || !thumb) return -1;
  std::unique_ptr<FILE, int (*)(FILE*)> stream(mediaOpenRegular(path), fclose);
  if (!stream) {
    DMS_LOG(kLogEvent, "open file \"%s\" fail", path);
    return -1;
  }
  MediaIo io{};
  media_init_io(&io, stream.get(), kMediaFileMp3);
  uint8_t head[kId3HeaderSize];
  if (!media_read_data(&io, head, sizeof head)) return -1;
  if (!mp3Id3v2Match(head)) return 0;
  const uint8_t major = head[3];
  const uint8_t flags = head[5];
  if (id3v2Unsupported(major, flags) != 0) return -1;

  int64_t remaining = synchsafe(head + 6);
  skipExtendedHeader(&io, major, flags, &remaining);
  const uint32_t picture_id = major == 2 ? frameId("PIC") : frameId("APIC");
  const MediaThumbnail before = *thumb;
  void* owned = nullptr;
  const int32_t result = walkId3Frames(&io, major, remaining, [&](uint32_t id, uint32_t size) {
    if (id == picture_id) return takePicture(&io, size, thumb, &owned);
    media_skip_data(&io, static_cast<int32_t>(size));
    return 0;
  });
  if (result != 0) {
    // Nothing half-done is handed back: the caller would not free it.
    RetUB(owned);
    *thumb = before;
    return -1;
  }
  return 0;
}
