// Formats and writes log lines; see log.h.
#include "platform/log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

std::atomic<int> g_iDmsLogLevel{6};

void ProcUserLog(const char* source, int line, const char* function, int level, int /*module*/,
                 const char* format, ...) {
  if (!dmsLogOn(level)) return;
  char buf[2048];
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  struct tm tmNow;
  localtime_r(&now.tv_sec, &tmNow);
  size_t used = strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tmNow);
  int n = snprintf(buf + used, sizeof buf - used, ".%03ld [%d] %s:%d %s: ", now.tv_nsec / 1000000L,
                   level, source ? source : "?", line, function ? function : "?");
  if (n > 0) used += static_cast<size_t>(n) < sizeof buf - used ? n : sizeof buf - used - 1;
  va_list ap;
  va_start(ap, format);
  n = vsnprintf(buf + used, sizeof buf - used, format, ap);
  va_end(ap);
  if (n > 0) used += static_cast<size_t>(n) < sizeof buf - used ? n : sizeof buf - used - 1;
  // Many messages carry their own line end; a log line gets exactly one.
  while (used > 0 && (buf[used - 1] == '\n' || buf[used - 1] == '\r')) --used;
  buf[used++] = '\n';
  ssize_t ignored = write(STDERR_FILENO, buf, used);
  (void)ignored;
}
