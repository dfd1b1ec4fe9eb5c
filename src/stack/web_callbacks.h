// The web server's view of the daemon's files: a table of callbacks the stack
// calls for every GET or HEAD under a virtual directory, in the order get-info,
// open, read/seek (or sendfile), close. The types here are the stack's own, so
// the callbacks never see the HTTP libraries underneath.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

// Filled by get_info. content_type is a heap text (malloc/strdup or GetUB) that
// the stack frees; null means none.
struct DlnaFileInfo {
  int64_t file_length;
  time_t last_modified;
  int is_directory;
  int is_readable;
  char* content_type;
};

using DlnaWebFileHandle = void*;

struct DlnaVirtualDirCallbacks {
  int (*get_info)(const char* filename, DlnaFileInfo* info);      // 0 or -1
  DlnaWebFileHandle (*open)(const char* filename, int mode);      // mode 0 reads; null on failure
  int (*read)(DlnaWebFileHandle file, char* buf, size_t length);  // bytes, 0 at end, < 0 error
  int (*write)(DlnaWebFileHandle file, char* buf, size_t length);
  int (*seek)(DlnaWebFileHandle file, int64_t offset, int origin);  // 0 or -1
  int (*close)(DlnaWebFileHandle file);                             // 0 or -1
  // 1 and *fd set when the body may be sent from that descriptor, else 0.
  int (*sendfile)(DlnaWebFileHandle file, int* fd);
};
