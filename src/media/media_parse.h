// The media-info record that every reader fills, and the single entry that
// opens a file and hands it to the reader for its kind.
//
// A MediaInfo lives for the profiling of one file: the profile layer allocates
// it zero-filled (media_mallocz), fills it once through media_read_info, lets
// its rules read it, copies what the content tree keeps and frees it before
// the file is published. Readers never clear the record: they write what they
// find on top of what is there. Nothing here keeps state, so media_read_info
// may run on any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <type_traits>

#include "media/media_codec.h"
#include "media/media_io.h"

inline constexpr size_t kMediaTextSize = 1024;
// The first bytes of a file kept for the profile rules: enough for two 192-byte
// transport packets.
inline constexpr size_t kMediaHeadSize = 384;
inline constexpr size_t kMediaConfigSize = 128;

// Plain data: allocated zeroed by GetUB and copied field by field. Texts are
// fixed buffers so that readers never allocate for tags; all are UTF-8 and
// NUL-terminated.
struct MediaInfo {
  uint8_t parsed;      // 1 once media_read_info succeeded; the file is not read again
  const char* path;    // as given to media_read_info; not owned
  uint32_t file_size;  // low 32 bits of the size on disk
  int32_t width;       // still-image size in pixels (also EXIF)
  int32_t height;
  int64_t duration;  // microseconds; 0 unknown
  int32_t year;      // 0 = none, as are month, day and track
  int32_t month;
  int32_t day;
  int32_t track;
  char artist[kMediaTextSize];
  char genre[kMediaTextSize];
  char album[kMediaTextSize];
  char title[kMediaTextSize];
  char format[kMediaTextSize];  // short container name, at most 63 characters
  uint32_t bit_rate;            // whole file, bits per second

  uint8_t has_audio;
  uint8_t audio_track;
  uint32_t audio_streams;
  uint32_t audio_codec;  // MediaCodecId
  uint32_t audio_max_bit_rate;
  uint32_t audio_bit_rate;
  uint32_t audio_frame_rate;
  uint32_t audio_frame_num;
  uint32_t audio_frame_den;
  uint8_t audio_sub_type;
  uint16_t channels;
  uint16_t audio_reserved;
  uint32_t sample_rate;
  uint32_t audio_config_size;  // at most kMediaConfigSize
  uint8_t audio_config[kMediaConfigSize];

  uint8_t has_video;
  uint8_t video_track;
  uint32_t video_stream_type;
  uint32_t video_codec;  // MediaCodecId
  uint32_t video_max_bit_rate;
  uint32_t video_bit_rate;
  uint32_t frame_rate;  // frame_rate_num / frame_rate_den, whole frames
  uint32_t frame_rate_num;
  uint32_t frame_rate_den;
  uint8_t vc1_profile;
  uint16_t video_width;  // consumers prefer these and fall back to width/height
  uint16_t video_height;
  uint32_t video_config_size;  // at most kMediaConfigSize
  uint8_t video_config[kMediaConfigSize];

  // The first bytes of the file (zeros past a short file), so that a profile
  // rule can tell the packaging without opening the file again.
  uint32_t head_size;
  uint8_t head[kMediaHeadSize];
};
static_assert(std::is_trivial_v<MediaInfo> && std::is_standard_layout_v<MediaInfo>,
              "MediaInfo is zero-filled raw memory and must stay plain data");

// Which reader media_read_info runs. Values 17 and above select none: the read
// succeeds with nothing read.
enum MediaFileType : uint32_t {
  kMediaFileJpeg = 0,  // EXIF first, then the JPEG markers
  kMediaFilePng = 1,
  kMediaFileGif = 2,
  kMediaFileTiff = 3,
  kMediaFileBmp = 4,
  kMediaFileWma = 5,  // ASF
  kMediaFileMp3 = 6,
  kMediaFileWav = 7,
  kMediaFileMp4 = 8,
  kMediaFileMp4Alt1 = 9,   // MP4 as well; no caller passes it
  kMediaFileMp4Alt2 = 10,  // MP4 as well; no caller passes it
  kMediaFileMpeg1 = 11,    // MPEG program/transport stream
  kMediaFileMpeg2 = 12,    // MPEG program/transport stream
  kMediaFileWmv = 13,      // ASF
  kMediaFileAvi = 14,
  kMediaFileFlv = 15,
  kMediaFileMkv = 16,
  kMediaFileTypeCount = 17,
};

// A format reader: reads the open file behind `io` into `info`. 0 on success,
// -1 when the file is not of its format, other negative values for its own
// failures.
using MediaReaderFn = int32_t (*)(MediaIo* io, MediaInfo* info);
// The EXIF step opens the file itself; 0 when the file holds EXIF data.
using MediaExifFn = int32_t (*)(MediaInfo* info, const char* path);

// The readers behind the selectors, each defined by its own module.
int32_t mediaParseExifProfile(MediaInfo* info, const char* path);
int32_t jpg_read_info(MediaIo* io, MediaInfo* info);
int32_t png_read_info(MediaIo* io, MediaInfo* info);
int32_t gif_read_info(MediaIo* io, MediaInfo* info);
int32_t tif_read_info(MediaIo* io, MediaInfo* info);
int32_t bmp_read_info(MediaIo* io, MediaInfo* info);
int32_t asf_read_info(MediaIo* io, MediaInfo* info);
int32_t mp3_read_info(MediaIo* io, MediaInfo* info);
int32_t wav_read_info(MediaIo* io, MediaInfo* info);
int32_t mp4_read_info(MediaIo* io, MediaInfo* info);
int32_t mpeg_read_info(MediaIo* io, MediaInfo* info);
int32_t avi_read_info(MediaIo* io, MediaInfo* info);
int32_t flv_read_info(MediaIo* io, MediaInfo* info);
int32_t mkv_read_info(MediaIo* io, MediaInfo* info);

// The reader for each selector; a null entry is a reader not built in.
struct MediaReaderTable {
  MediaExifFn exif;
  MediaReaderFn readers[kMediaFileTypeCount];
};

// The readers this build has.
const MediaReaderTable& mediaBuiltinReaders();

// Reads the file at `path` as kind `type` into `info` with the built-in readers.
// 0 on success (info->parsed set to 1); -1 for a null argument, a missing file
// (logged), a file that is not a regular file or cannot be opened, or a kind
// whose reader is not built in; otherwise the reader's own non-zero result.
// JPEG (kind 0) succeeds when EXIF data is found; else the JPEG reader decides
// and its failure gives 1. `path` is stored in info->path, not copied.
int32_t media_read_info(const char* path, uint32_t type, MediaInfo* info);
// The same with the given readers.
int32_t mediaReadInfoWith(const MediaReaderTable& readers, const char* path, uint32_t type,
                          MediaInfo* info);

// The file at `path` opened for reading when it is a regular file; null for
// anything else (a FIFO or device node on a stick must not block a scan).
FILE* mediaOpenRegular(const char* path);

// A zero-filled block from GetUB (free with RetUB), or null.
void* media_mallocz(size_t size);

// Zeroes dst_size bytes of dst, then copies len bytes of src if they fit. 0, or
// -1 for a null pointer (nothing touched) or len > dst_size (dst left zeroed).
int32_t media_memcpy(void* dst, const void* src, uint32_t dst_size, uint32_t len);

// Zeroes size bytes of dst and copies at most size - 1 characters of src, so
// dst is always terminated. 0, or -1 for a null pointer or size 0.
int32_t media_strncpy(char* dst, const char* src, uint32_t size);

// Converts NUL-terminated UTF-16 units in host order to UTF-8, each unit on
// its own (a surrogate half becomes a 3-byte sequence), stopping at the first
// unit that does not fit. dst must have room for dst_size + 1 bytes: a 3-byte
// sequence may end exactly at dst_size, with the terminator just past it.
// dst_size below 1 or a null dst writes nothing; a null src gives "".
void media_convert_utf16_to_utf8(char* dst, const uint16_t* src, int32_t dst_size);
