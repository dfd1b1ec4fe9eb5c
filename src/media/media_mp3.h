// MPEG audio layer III files and their ID3 tags: the reader behind
// mp3_read_info (declared in media_parse.h), the frame-header decoder the audio
// profile rules use, and the album-art extractor of the thumbnail service.
//
// Nothing here keeps state between calls; every function may run on any thread
// as long as each call has its own MediaIo, MediaInfo and MediaThumbnail. Text
// conversion goes through ctypeConvertTo, so tag texts other than plain UTF-8
// come out empty until ctypeInit has switched the converter on.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/media_io.h"
#include "media/media_parse.h"
#include "media/media_thumbnail.h"

// One MPEG audio frame header, decoded. Zero it before each decode: a header
// without a frame size leaves frame_size and bit_rate untouched.
struct MpegAudioFrameHeader {
  int32_t frame_size;   // whole frame in bytes, header included
  int32_t layer;        // 1..3; 4 = reserved
  int32_t sample_rate;  // Hz
  int32_t bit_rate;     // bits per second
  int32_t channels;     // 1 for mono mode, else 2
  int32_t mode;         // channel-mode bits
  int32_t mode_ext;     // mode-extension bits
  int32_t lsf;          // 1 for MPEG-2 and MPEG-2.5, 0 for MPEG-1
};

// Sampling rates by index, and kbit/s by [lsf][layer - 1][index 0..14].
extern const int32_t mpa_freq_tab[3];
extern const int32_t mpa_bitrate_tab[2][3][15];

inline constexpr int kId3v1GenreCount = 148;
extern const char* const id3v1_genre_str[kId3v1GenreCount];

// 0 for a usable header; -1 no frame sync, -2 layer bits 00, -3 bit-rate index
// 15, -4 sampling-rate index 3. A free-format header (index 0) passes.
int32_t mp3CheckHeader(uint32_t header);

// Decodes `header` into `decoded`. 0 when the frame size was computed; 1 when
// it cannot be (reserved layer, free format, or a header mp3CheckHeader
// rejects), and then only lsf, layer, sample_rate, channels, mode and mode_ext
// are set.
uint32_t mpegAudioDecodeHeader(MpegAudioFrameHeader* decoded, uint32_t header);

// 1 when the 10 bytes are an ID3v2 tag header, else 0 (also for null).
int32_t mp3Id3v2Match(const uint8_t* bytes10);
// The whole tag length: synchsafe size + 10, + 10 more with a footer.
uint32_t mp3Id3v2TagLen(const uint8_t* bytes10);

// Walks the frames of the ID3v2 tag whose 10-byte header was just read (`size`
// is the synchsafe size from it) and fills the tag texts, track and date of
// `info`. 0, or the negative reason a tag of this form is skipped unread.
// Leaves the stream somewhere inside or just after the tag.
int32_t mp3Id3v2ParseTag(MediaIo* io, MediaInfo* info, uint32_t size, uint8_t major_version,
                         uint8_t flags);

// A fixed-width ID3v1 field to UTF-8 in dst (always terminated): "" for a
// field of blanks or a text that does not convert. 0, or -1 for bad arguments.
int32_t mp3Id3v1GetString(char* dst, uint32_t dst_size, const uint8_t* field, uint32_t field_len);

// An ID3v2 text frame (encoding byte, then the text; `len` bytes in all) to
// UTF-8 in dst, cleared first and always terminated. The text is read up to 4
// bytes past `len` when it starts with a byte-order mark, so `data` must have
// 4 readable bytes beyond it. 0, or -1 for bad arguments or a failed conversion.
int32_t mp3Id3v2GetString(char* dst, uint32_t dst_size, const uint8_t* data, uint32_t len);

// Fills thumb's MIME text, size and data (and kind 1) with the attached
// picture of the file's ID3v2 tag; the last picture of the tag wins. 0 with
// thumb untouched when the file has no ID3v2 tag or no picture; -1 for a null
// argument, a file that cannot be opened (logged) or read, a tag form that is
// not read, a malformed picture frame or no memory.
int32_t mp3GetAlbumArt(const char* path, MediaThumbnail* thumb);
