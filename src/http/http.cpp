// Serving under "/web": the descriptions and the presentation page from
// memory, media files by object id from disk (offered to the stack for
// sendfile), the logos, and thumbnails; reads, seeks and closes of memory and
// disk handles.
#include "http/http.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "content/dlna_info.h"
#include "content/metadata.h"
#include "http/http_header.h"
#include "media/jpg_read.h"
#include "media/media_mp3.h"
#include "media/media_thumbnail.h"
#include "platform/alloc.h"
#include "platform/config.h"
#include "platform/log.h"
#include "services/scpd.h"

namespace {

constexpr char kLogSource[] = "http";
constexpr int32_t kDiskFile = 0;
constexpr int32_t kMemoryFile = 1;
constexpr char kIndexPage[] = "  ";
constexpr char kThumbPrefix[] = "/web/tn/";
constexpr int32_t kDefaultThumbSide = 160;

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

constexpr const char* kLogos[] = {"/web/logo48.png", "/web/logo32.png"};

// Thumbnail kinds by URL segment, tried in this order.
struct DlnaTnKind {
  const char* segment;
  int32_t kind;
};

constexpr DlnaTnKind kTnKinds[] = {
    {"/tn/image/", 3},
    {"/tn/video/", 2},
    {"/tn/music/", 1},
};

// Default pictures by thumbnail kind, in the data directory.
struct DlnaTnDefault {
  int32_t kind;
  const char* file;
};

constexpr DlnaTnDefault kTnDefaults[] = {
    {2, "video.jpg"},
    {3, "image.jpg"},
    {1, "audio.jpg"},
};

// Row of a document served from memory, or -1.
int findMemDoc(const char* path) {
  for (size_t i = 0; i < sizeof kMemDocs / sizeof kMemDocs[0]; ++i)
    if (strcmp(path, kMemDocs[i].path) == 0) return static_cast<int>(i);
  return -1;
}

bool isLogo(const char* path) {
  for (const char* logo : kLogos)
    if (strcmp(path, logo) == 0) return true;
  return false;
}

bool isThumbnail(const char* path) {
  return strncmp(path, kThumbPrefix, sizeof kThumbPrefix - 1) == 0;
}

int32_t thumbnailKind(const char* path) {
  for (const DlnaTnKind& row : kTnKinds)
    if (strstr(path, row.segment)) return row.kind;
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

char* copyText(const std::string& text) {
  char* copy = static_cast<char*>(GetUB(text.size() + 1));
  if (copy) memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

// The object id of a URL: its last path component read as atoi reads it,
// except that a number beyond the 32-bit range names no object (-1) instead
// of wrapping onto one.
int32_t urlObjectId(const char* url) {
  const char* slash = strrchr(url, '/');
  const char* text = slash ? slash + 1 : url;
  errno = 0;
  long long id = strtoll(text, nullptr, 10);
  if (errno == ERANGE || id > INT32_MAX || id < INT32_MIN) return -1;
  return static_cast<int32_t>(id);
}

// What a request needs of the object a URL names, copied under the tree lock.
struct DlnaUrlObject {
  char* path = nullptr;  // owned disk path
  std::string mime;
  const DlnaEntry* entry = nullptr;  // valid only while the lock was held
  ~DlnaUrlObject() { RetUB(path); }
};

// The logo's own path, or the media object's disk path: false for an unknown
// id, an object without media record or name, or no path.
bool resolveUrl(const char* url, DlnaUrlObject* object) {
  if (isLogo(url)) {
    object->path = copyText(url);
    return object->path != nullptr;
  }
  int32_t id = urlObjectId(url);
  std::shared_lock lock(g_tDlnaInfo.lock);
  const DlnaEntry* entry = dlnaGetEntry(&g_tDlnaInfo, id);
  if (!entry || !entry->media || entry->title.empty()) return false;
  object->entry = entry;
  object->mime = entry->media->mime;
  object->path = dlnaGetFullPath(entry, url);
  return object->path != nullptr;
}

void fillMemInfo(DlnaFileInfo* info, int64_t length, const char* contentType) {
  info->file_length = length;
  info->last_modified = 0;
  info->is_directory = 0;
  info->is_readable = 1;
  info->content_type = strdup(contentType);
}

// Get-info's last step: the file on disk.
int statFileInfo(const char* path, const char* contentType, DlnaFileInfo* info) {
  struct stat st;
  if (stat(path, &st) != 0) {
    DMS_LOG(kLogEvent, "file %s not exist", path);
    return -1;
  }
  info->is_readable = 1;
  if (access(path, R_OK) != 0) {
    DMS_LOG(kLogEvent, "file not readable");
    if (errno != EACCES) return -1;
    info->is_readable = 0;
  }
  info->file_length = st.st_size;
  info->last_modified = st.st_mtime;
  info->is_directory = S_ISDIR(st.st_mode) ? 1 : 0;
  info->content_type = strdup(contentType);
  return 0;
}

// A zeroed handle of `kind` named by a copy of `name`, or null.
DlnaHttpFile* newHandle(const char* name, int32_t kind) {
  auto* file = static_cast<DlnaHttpFile*>(GetUB(sizeof(DlnaHttpFile)));
  char* copy = strdup(name);
  if (!file || !copy) {
    RetUB(file);
    RetUB(copy);
    return nullptr;
  }
  file->name = copy;
  file->kind = kind;
  file->fd = -1;
  return file;
}

DlnaHttpFile* openDiskFile(const char* path, const DlnaEntry* object) {
  int fd = open(path, O_RDONLY | O_NONBLOCK | O_DSYNC);
  if (fd < 0) return nullptr;
  DlnaHttpFile* file = newHandle(path, kDiskFile);
  if (!file) {
    close(fd);
    return nullptr;
  }
  file->fd = fd;
  file->object = object;
  return file;
}

// A memory handle that takes over `length` bytes at `data`.
DlnaHttpFile* memoryHandle(const char* name, char* data, int64_t length) {
  DlnaHttpFile* file = newHandle(name, kMemoryFile);
  if (!file) {
    RetUB(data);
    return nullptr;
  }
  file->data = data;
  file->size = length;
  return file;
}

}  // namespace

const DlnaVirtualDirCallbacks virtual_dir_callbacks = {
    _dlnaHttpGetInfo, _dlnaHttpOpen,        _dlnaHttpRead,       _dlnaHttpWrite,    _dlnaHttpSeek,
    _dlnaHttpClose,   _dlnaHttpHeaderCheck, _dlnaHttpHeaderResp, _dlnaHttpSendfile,
};

int _dlnaHttpGetInfo(const char* path, DlnaFileInfo* info) {
  if (!path || !info) return -1;
  DMS_LOG(kLogTrace, "http_get_info, filename : %s\n", path);
  if (int row = findMemDoc(path); row >= 0) {
    fillMemInfo(info, memDocLength(row), kMemDocs[row].contentType);
    return 0;
  }
  DlnaUrlObject object;
  if (!resolveUrl(path, &object)) return -1;
  if (!isThumbnail(path)) return statFileInfo(object.path, object.mime.c_str(), info);

  MediaThumbnail thumb = {};
  if (mediaGetTn(object.path, thumbnailKind(path), &thumb) != 0) return -1;
  if (thumb.kind == 1) {
    fillMemInfo(info, thumb.size, thumb.mime);
    RetUB(thumb.data);  // open extracts it again
    return 0;
  }
  int result = statFileInfo(static_cast<const char*>(thumb.data), "image/jpeg", info);
  RetUB(thumb.data);
  return result;
}

DlnaWebFileHandle _dlnaHttpOpen(const char* path, int mode) {
  if (!path || mode != 0) return nullptr;
  DMS_LOG(kLogTrace, "http_open, filename : %s\n", path);
  // Regenerated on every open, so get-info reports the length of the last one.
  char cdsDesc[kCdsDescSize];
  dlnaGenCdsDesc(cdsDesc);
  if (int row = findMemDoc(path); row >= 0) {
    const char* text = memDocText(row, cdsDesc);
    return _dlnaGetFileMem(path, text, static_cast<int64_t>(strlen(text)));
  }
  DlnaUrlObject object;
  if (!resolveUrl(path, &object)) return nullptr;
  if (!isThumbnail(path)) return openDiskFile(object.path, object.entry);

  int32_t kind = thumbnailKind(path);
  MediaThumbnail thumb = {};
  if (kind < 0 || mediaGetTn(object.path, kind, &thumb) != 0) return nullptr;
  if (thumb.kind == 1) {
    char* bytes = static_cast<char*>(GetUB(thumb.size + 1));
    if (bytes) memcpy(bytes, thumb.data, thumb.size);
    RetUB(thumb.data);
    return bytes ? memoryHandle(object.path, bytes, thumb.size) : nullptr;
  }
  DlnaHttpFile* file = openDiskFile(static_cast<const char*>(thumb.data), object.entry);
  RetUB(thumb.data);
  return file;
}

DlnaHttpFile* _dlnaGetFileMem(const char* name, const char* text, int64_t length) {
  if (!name || !text || length < 0) return nullptr;
  char* data = static_cast<char*>(GetUB(static_cast<size_t>(length) + 1));
  if (!data) return nullptr;
  memcpy(data, text, static_cast<size_t>(length));
  return memoryHandle(name, data, length);
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

char* dlnaGetFullPath(const DlnaEntry* entry, const char* url) {
  if (!entry || entry->title.empty() || !entry->parent || !url) return nullptr;
  std::string path = entry->title;
  // Ids below the first dynamic one are the virtual containers; the shared
  // folder just under them carries an absolute path as its name.
  for (const DlnaEntry* up = entry->parent; up && up->id >= kDlnaFirstId; up = up->parent) {
    if (up->title.empty()) return nullptr;
    path = up->title + "/" + path;
  }
  size_t dot = entry->urlName.rfind('.');
  if (dot != std::string::npos) path += entry->urlName.substr(dot);
  return copyText(path);
}

int parseFileInfo(const char* url, DlnaReqFileInfo* out) {
  if (!url || !out) return -1;
  *out = {};
  out->objectId = urlObjectId(url);
  std::shared_lock lock(g_tDlnaInfo.lock);
  const DlnaEntry* entry = dlnaGetEntry(&g_tDlnaInfo, out->objectId);
  if (!entry || entry->title.empty()) return -1;
  out->path = dlnaGetFullPath(entry, url);
  if (!entry->media) return 0;
  out->valid = 1;
  out->isImage = entry->media->mediaClass == kDlnaClassImage ? 1 : 0;
  return 0;
}

int mediaGetTn(const char* path, int32_t kind, MediaThumbnail* thumb) {
  if (!path || !thumb) return -1;
  const char* ext = strrchr(path, '.');
  if (!ext) return -1;
  // Substring searches on purpose: a piece of an extension (".jp") also counts.
  if (strstr(".jpg,.jpeg,.jpe", ext))
    jpgGetTn(path, thumb);
  else if (strstr(".mp3", ext))
    mp3GetAlbumArt(path, thumb);
  if (thumb->data) {
    thumb->kind = 1;
    return 0;
  }
  for (const DlnaTnDefault& row : kTnDefaults) {
    if (row.kind != kind) continue;
    thumb->width = kDefaultThumbSide;
    thumb->height = kDefaultThumbSide;
    thumb->size = 0;
    thumb->kind = 0;
    thumb->data = copyText(g_tDmsPaths.dataDir + "/" + row.file);
    return thumb->data ? 0 : -1;
  }
  return -1;
}
