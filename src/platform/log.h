// Logging of the daemon: one line per message on standard error.
//
// Levels: 4 failure, 6 summary, 7 notable event or error, 8 trace. A message is
// written when its level is at or below the threshold (default 6). DMS_LOG checks
// the threshold before evaluating its arguments, so trace lines cost nothing when
// off. Each source file that logs defines `kLogSource`, the module's name.
// Thread-safe: each line is written with a single write(2).
#pragma once

#include <atomic>

inline constexpr int kLogFailure = 4;
inline constexpr int kLogSummary = 6;
inline constexpr int kLogEvent = 7;
inline constexpr int kLogTrace = 8;

extern std::atomic<int> g_iDmsLogLevel;

void ProcUserLog(const char* source, int line, const char* function, int level, int module,
                 const char* format, ...) __attribute__((format(printf, 6, 7)));

inline bool dmsLogOn(int level) {
  return level <= g_iDmsLogLevel.load(std::memory_order_relaxed);
}

#define DMS_LOG(level, ...)                                                                  \
  do {                                                                                       \
    if (dmsLogOn(level)) ProcUserLog(kLogSource, __LINE__, __func__, level, 0, __VA_ARGS__); \
  } while (0)
