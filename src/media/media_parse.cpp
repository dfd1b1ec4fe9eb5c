// Reader dispatch for the media-info record and the small copy helpers the
// readers share; see media_parse.h.
#include "media/media_parse.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "platform/alloc.h"
#include "platform/log.h"

namespace {

constexpr char kLogSource[] = "media_parse";

// clang-format off
constexpr MediaReaderTable kBuiltinReaders = {
    /* exif */ mediaParseExifProfile,
    {
        /*  0 JPEG     */ jpg_read_info,
        /*  1 PNG      */ png_read_info,
        /*  2 GIF      */ gif_read_info,
        /*  3 TIFF     */ tif_read_info,
        /*  4 BMP      */ bmp_read_info,
        /*  5 ASF      */ asf_read_info,
        /*  6 MP3      */ mp3_read_info,
        /*  7 WAV      */ wav_read_info,
        /*  8 MP4      */ mp4_read_info,
        /*  9 MP4      */ mp4_read_info,
        /* 10 MP4      */ mp4_read_info,
        /* 11 MPEG     */ mpeg_read_info,
        /* 12 MPEG     */ mpeg_read_info,
        /* 13 ASF      */ asf_read_info,
        /* 14 AVI      */ avi_read_info,
        /* 15 FLV      */ flv_read_info,
        /* 16 Matroska */ mkv_read_info,
    },
};
// clang-format on

int32_t runReader(const MediaReaderTable& readers, uint32_t type, MediaIo* io, MediaInfo* info,
                  int32_t exif_result) {
  // An unknown kind is a success with nothing read: the file is still published.
  if (type >= kMediaFileTypeCount) return 0;
  MediaReaderFn reader = readers.readers[type];
  if (type == kMediaFileJpeg) {
    if (exif_result == 0) return 0;
    // Without EXIF the markers decide; any failure there, a missing reader
    // included, is reported as 1.
    return reader && reader(io, info) == 0 ? 0 : 1;
  }
  if (!reader) {
    DMS_LOG(kLogEvent, "no reader for type %u\n", type);
    return -1;
  }
  return reader(io, info);
}

}  // namespace

const MediaReaderTable& mediaBuiltinReaders() {
  return kBuiltinReaders;
}

int32_t media_read_info(const char* path, uint32_t type, MediaInfo* info) {
  return mediaReadInfoWith(kBuiltinReaders, path, type, info);
}

int32_t mediaReadInfoWith(const MediaReaderTable& readers, const char* path, uint32_t type,
                          MediaInfo* info) {
  if (!path || !info) return -1;
  info->path = path;
  struct stat st;
  if (stat(path, &st) != 0) {
    DMS_LOG(kLogEvent, "file not exist");
    return -1;
  }
  info->file_size = static_cast<uint32_t>(st.st_size);

  // Opened before the EXIF step, which opens the file by itself: a FIFO or a
  // directory must be refused before anything reads it.
  FILE* stream = mediaOpenRegular(path);
  if (!stream) return -1;
  ssize_t head = pread(fileno(stream), info->head, sizeof info->head, 0);
  info->head_size = head > 0 ? static_cast<uint32_t>(head) : 0;
  int32_t exif_result = -1;
  if (type == kMediaFileJpeg && readers.exif) exif_result = readers.exif(info, path);

  MediaIo io{};
  media_init_io(&io, stream, type);
  int32_t result = runReader(readers, type, &io, info, exif_result);
  fclose(stream);
  if (result == 0) info->parsed = 1;
  return result;
}

void* media_mallocz(size_t size) {
  void* block = GetUB(size);
  if (block) memset(block, 0, size);
  return block;
}

int32_t media_memcpy(void* dst, const void* src, uint32_t dst_size, uint32_t len) {
  if (!dst || !src) return -1;
  memset(dst, 0, dst_size);
  if (dst_size < len) return -1;
  if (len > 0) memcpy(dst, src, len);
  return 0;
}

int32_t media_strncpy(char* dst, const char* src, uint32_t size) {
  if (!dst || !src) return -1;
  // With no room even for the terminator, nothing can be written safely.
  if (size == 0) return -1;
  memset(dst, 0, size);
  // strnlen: src may be an unterminated field of a file's header.
  size_t len = strnlen(src, size - 1);
  memcpy(dst, src, len);
  return 0;
}

void media_convert_utf16_to_utf8(char* dst, const uint16_t* src, int32_t dst_size) {
  if (!dst || dst_size < 1) return;
  int32_t pos = 0;
  for (const uint16_t* unit = src; unit && *unit != 0; ++unit) {
    const uint32_t u = *unit;
    const int32_t left = dst_size - pos;
    if (u <= 0x7f) {
      if (left < 2) break;
      dst[pos++] = static_cast<char>(u);
    } else if (u <= 0x7ff) {
      if (left < 3) break;
      dst[pos++] = static_cast<char>(0xc0 | (u >> 6));
      dst[pos++] = static_cast<char>(0x80 | (u & 0x3f));
    } else {
      // Only 3 bytes asked for, not 4: the terminator may land at dst[dst_size].
      if (left < 3) break;
      dst[pos++] = static_cast<char>(0xe0 | (u >> 12));
      dst[pos++] = static_cast<char>(0x80 | ((u >> 6) & 0x3f));
      dst[pos++] = static_cast<char>(0x80 | (u & 0x3f));
    }
  }
  dst[pos] = '\0';
}

// O_NONBLOCK keeps a FIFO or device node on a stick from blocking the scan in
// open(); a directory is refused too, its reads would only fail later.
FILE* mediaOpenRegular(const char* path) {
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    close(fd);
    return nullptr;
  }
  int flags = fcntl(fd, F_GETFL);
  if (flags >= 0) fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
  FILE* stream = fdopen(fd, "rb");
  if (!stream) close(fd);
  return stream;
}
