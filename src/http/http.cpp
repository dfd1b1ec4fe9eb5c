// Serving under "/web": the descriptions and the presentation page from
// memory; reads, seeks and closes of memory and disk handles.
#include "http/http.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/alloc.h"
#include "platform/log.h"
#include "upnp/upnp_dms.h"

namespace {

constexpr char kLogSource[] = "http";
constexpr int32_t kDiskFile = 0;
constexpr int32_t kMemoryFile = 1;
constexpr char kIndexPage[] = "  ";

struct DlnaMemDoc {
  const char* path;
  const char* contentType;
};

constexpr DlnaMemDoc kMemDocs[] = {
    {"/web/cds.xml", "text/xml"},
    {"/web/cms.xml", "text/xml"},
    {"/web/msr.xml", "text/xml"},
    {"/web/index.html", "text/html"},
};

// Row of a document served from memory, or -1.
int findMemDoc(const char* path) {
  for (size_t i = 0; i < sizeof kMemDocs / sizeof kMemDocs[0]; ++i)
    if (strcmp(path, kMemDocs[i].path) == 0) return static_cast<int>(i);
  return -1;
}

const char* memDocText(int row, const char* cdsDesc) {
  switch (row) {
    case 0:
      return cdsDesc;
    case 1:
      return g_szCmsDesc;
    case 2:
      return g_szMsrDesc;
    default:
      return kIndexPage;
  }
}

int64_t memDocLength(int row) {
  return row == 0 ? g_CdsDesLen.load() : static_cast<int64_t>(strlen(memDocText(row, "")));
}

void logCannotSeek(const DlnaHttpFile* file, int error) {
  DMS_LOG(kLogTrace, "%s: cannot seek: %s\n", file->name, strerror(error));
}

}  // namespace

const DlnaVirtualDirCallbacks virtual_dir_callbacks = {
    _dlnaHttpGetInfo, _dlnaHttpOpen,  _dlnaHttpRead,     _dlnaHttpWrite,
    _dlnaHttpSeek,    _dlnaHttpClose, _dlnaHttpSendfile,
};

int _dlnaHttpGetInfo(const char* path, DlnaFileInfo* info) {
  if (!path || !info) return -1;
  DMS_LOG(kLogTrace, "http_get_info, filename : %s\n", path);
  int row = findMemDoc(path);
  if (row < 0) return -1;  // media files and thumbnails are not served yet
  info->file_length = memDocLength(row);
  info->last_modified = 0;
  info->is_directory = 0;
  info->is_readable = 1;
  info->content_type = strdup(kMemDocs[row].contentType);
  return 0;
}

DlnaWebFileHandle _dlnaHttpOpen(const char* path, int mode) {
  if (!path || mode != 0) return nullptr;
  DMS_LOG(kLogTrace, "http_open, filename : %s\n", path);
  // Regenerated on every open, so get-info reports the length of the last one.
  char cdsDesc[kCdsDescSize];
  dlnaGenCdsDesc(cdsDesc);
  int row = findMemDoc(path);
  if (row < 0) return nullptr;
  const char* text = memDocText(row, cdsDesc);
  return _dlnaGetFileMem(path, text, static_cast<int64_t>(strlen(text)));
}

DlnaHttpFile* _dlnaGetFileMem(const char* name, const char* text, int64_t length) {
  if (!name || !text || length < 0) return nullptr;
  auto* file = static_cast<DlnaHttpFile*>(GetUB(sizeof(DlnaHttpFile)));
  if (!file) return nullptr;
  file->name = strdup(name);
  file->kind = kMemoryFile;
  file->fd = -1;
  file->data = static_cast<char*>(GetUB(static_cast<size_t>(length) + 1));
  if (!file->name || !file->data) {
    RetUB(file->name);
    RetUB(file->data);
    RetUB(file);
    return nullptr;
  }
  memcpy(file->data, text, static_cast<size_t>(length));
  file->size = length;
  return file;
}

int _dlnaHttpRead(DlnaWebFileHandle handle, char* buf, size_t length) {
  auto* file = static_cast<DlnaHttpFile*>(handle);
  if (!file || !buf) return -1;
  ssize_t count;
  if (file->kind == kDiskFile) {
    count = read(file->fd, buf, length);
  } else if (file->kind == kMemoryFile) {
    int64_t left = file->size - file->position;
    count = static_cast<ssize_t>(left < static_cast<int64_t>(length) ? left : length);
    if (count < 0) count = 0;
    memcpy(buf, file->data + file->position, static_cast<size_t>(count));
  } else {
    DMS_LOG(kLogTrace, "Unknown file type.\n");
    return -1;
  }
  if (count > 0) file->position += count;
  return static_cast<int>(count);
}

int _dlnaHttpWrite(DlnaWebFileHandle, char*, size_t) {
  DMS_LOG(kLogTrace, "http write\n");
  return 0;
}

int _dlnaHttpSeek(DlnaWebFileHandle handle, int64_t offset, int origin) {
  auto* file = static_cast<DlnaHttpFile*>(handle);
  if (!file) return -1;
  DMS_LOG(kLogTrace, "Enter _dlnaHttpSeek");
  long long position = file->position;
  int64_t target = -1;
  switch (origin) {
    case SEEK_SET:
      DMS_LOG(kLogTrace, "Attempting to seek to %lld (was at %lld) in %s\n",
              static_cast<long long>(offset), position, file->name);
      target = offset;
      break;
    case SEEK_CUR:
      DMS_LOG(kLogTrace, "Attempting to seek by %lld from %lld in %s\n",
              static_cast<long long>(offset), position, file->name);
      target = file->position + offset;
      break;
    case SEEK_END:
      DMS_LOG(kLogTrace, "Attempting to seek by %lld from end (was at %lld) in %s\n",
              static_cast<long long>(offset), position, file->name);
      if (file->kind == kDiskFile) {
        struct stat st;
        if (stat(file->name, &st) != 0) {
          DMS_LOG(kLogTrace, "%s: cannot stat: %s\n", file->name, strerror(errno));
          return -1;
        }
        target = st.st_size + offset;
      } else if (file->kind == kMemoryFile) {
        target = file->size + offset;
      }
      break;
    default:
      break;
  }
  if (file->kind == kDiskFile) {
    if (target < 0) {
      logCannotSeek(file, EINVAL);
      return -1;
    }
    if (lseek(file->fd, target, SEEK_SET) < 0) {
      logCannotSeek(file, errno);
      return -1;
    }
  } else if (target < 0 || target > file->size) {
    logCannotSeek(file, EINVAL);
    return -1;
  }
  file->position = target;
  return 0;
}

int _dlnaHttpClose(DlnaWebFileHandle handle) {
  DMS_LOG(kLogTrace, "http_close\n");
  auto* file = static_cast<DlnaHttpFile*>(handle);
  if (!file) return -1;
  if (file->kind == kDiskFile)
    close(file->fd);
  else if (file->kind == kMemoryFile)
    RetUB(file->data);
  else
    DMS_LOG(kLogTrace, "Unknown file type.\n");
  RetUB(file->name);
  RetUB(file);
  return 0;
}

int _dlnaHttpSendfile(DlnaWebFileHandle handle, int* fd) {
  DMS_LOG(kLogTrace, "Enter _dlnaHttpSendfile");
  auto* file = static_cast<DlnaHttpFile*>(handle);
  if (!file || !fd) return 0;
  if (file->kind == kDiskFile) {
    *fd = file->fd;
    return 1;
  }
  if (file->kind != kMemoryFile) DMS_LOG(kLogTrace, "Unknown file type\n");
  return 0;
}
