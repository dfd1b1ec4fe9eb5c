// libFuzzer entry for one media reader, chosen at build time: DMSD_FUZZ_READER
// names the reader and DMSD_FUZZ_KIND its MediaFileType, or DMSD_FUZZ_EXIF
// selects the EXIF step, which opens the file by path.
//
// The input goes into a memfd rather than fmemopen so that seeks past the end,
// sizes and short reads behave as on a file from a stick. The record comes from
// media_mallocz like the profile layer's, so a write past it is caught.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "media/media_parse.h"
#include "platform/alloc.h"
#include "platform/log.h"

namespace {

// A memfd holding `data`, or -1.
int memFile(const uint8_t* data, size_t size) {
  int fd = memfd_create("fuzz-input", MFD_CLOEXEC);
  if (fd < 0) return -1;
  size_t done = 0;
  while (done < size) {
    ssize_t n = write(fd, data + done, size - done);
    if (n <= 0) {
      close(fd);
      return -1;
    }
    done += static_cast<size_t>(n);
  }
  lseek(fd, 0, SEEK_SET);
  return fd;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Every message is formatted, so a bad argument to a log line shows up too;
  // scripts/fuzz.sh keeps the text itself off the terminal.
  g_iDmsLogLevel.store(kLogTrace);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  int fd = memFile(data, size);
  if (fd < 0) return 0;
  auto* info = static_cast<MediaInfo*>(media_mallocz(sizeof(MediaInfo)));
  if (!info) {
    close(fd);
    return 0;
  }
  char path[64];
  snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
  info->path = path;
  info->file_size = static_cast<uint32_t>(size);
#ifdef DMSD_FUZZ_EXIF
  mediaParseExifProfile(info, path);
  close(fd);
#else
  FILE* stream = fdopen(fd, "rb");
  if (stream) {
    MediaIo io{};
    media_init_io(&io, stream, DMSD_FUZZ_KIND);
    DMSD_FUZZ_READER(&io, info);
    fclose(stream);
  } else {
    close(fd);
  }
#endif
  RetUB(info);
  return 0;
}
