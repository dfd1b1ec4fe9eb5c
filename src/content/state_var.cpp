// The state-variable table; see state_var.h.
#include "content/state_var.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include "profile/profile.h"

namespace {

struct DlnaStateVarRow {
  const char* serviceId;
  std::array<const char*, 4> names;
  std::array<std::optional<std::string>, 4> values;
  int32_t count;
};

struct DlnaStateVarInit {
  const char* serviceId;
  std::array<const char*, 4> values;
};

DlnaStateVarRow g_tStateVar[] = {
    {kCdsServiceId, {"SystemUpdateID"}, {}, 1},
    {kCmsServiceId, {"SourceProtocolInfo", "SinkProtocolInfo", "CurrentConnectionIDs"}, {}, 3},
    {kMsrServiceId, {}, {}, 0},
    {nullptr, {}, {}, 0},
};

constexpr DlnaStateVarInit kInitialValues[] = {
    {kCdsServiceId, {"0"}},
    {kCmsServiceId, {"", "", "0"}},
};

// Guards the values. Held only to copy a text in or out.
std::mutex g_valueMutex;
// Held across a set and its event, so events leave in the order of the sets.
std::mutex g_eventMutex;
std::atomic<uint64_t> g_generation{0};
std::atomic<DlnaVarNotifier> g_notifier{nullptr};

// Row and column of a variable, or false.
bool findVar(const char* serviceId, const char* varName, DlnaStateVarRow*& row, int& column) {
  if (!serviceId || !varName) return false;
  for (DlnaStateVarRow* r = g_tStateVar; r->serviceId; ++r) {
    if (strcmp(r->serviceId, serviceId) != 0) continue;
    for (int i = 0; i < r->count; ++i) {
      if (strcmp(r->names[i], varName) == 0) {
        row = r;
        column = i;
        return true;
      }
    }
  }
  return false;
}

// Serialises the read-modify-write of SourceProtocolInfo across profiling threads.
std::mutex g_sourceInfoMutex;
// The (name, mime) pairs already in the list, for the variable table of
// g_sourceInfoGeneration; guarded by g_sourceInfoMutex. Bounded, as scratch
// MIME texts are one per rate/channel pair.
constexpr size_t kSourceInfoCacheRows = 256;
std::vector<std::pair<const char*, const char*>> g_sourceInfoAdded;
uint64_t g_sourceInfoGeneration = 0;
}  // namespace

void dlnaInitVarValue() {
  std::lock_guard lock(g_valueMutex);
  g_generation.fetch_add(1, std::memory_order_release);
  for (const DlnaStateVarInit& init : kInitialValues) {
    for (DlnaStateVarRow* r = g_tStateVar; r->serviceId; ++r) {
      if (strcmp(r->serviceId, init.serviceId) != 0) continue;
      for (int i = 0; i < r->count; ++i) r->values[i] = init.values[i];
    }
  }
}

void dlnaSetVarValue(const char* serviceId, const char* varName, const char* value) {
  if (!value) return;
  std::lock_guard order(g_eventMutex);
  DlnaStateVarRow* row = nullptr;
  int column = 0;
  {
    std::lock_guard lock(g_valueMutex);
    if (!findVar(serviceId, varName, row, column)) return;
    row->values[column] = value;
  }
  if (DlnaVarNotifier notify = g_notifier.load()) notify(row->serviceId, row->names[column], value);
}

void dlnaSetVarNotifier(DlnaVarNotifier notifier) {
  g_notifier.store(notifier);
}

void dlnaSetVarValueNum(const char* serviceId, const char* varName, int32_t number) {
  char text[64];
  snprintf(text, sizeof text, "%d", number);
  dlnaSetVarValue(serviceId, varName, text);
}

std::optional<std::string> dlnaGetVarValue(const char* serviceId, const char* varName) {
  std::lock_guard lock(g_valueMutex);
  DlnaStateVarRow* row = nullptr;
  int column = 0;
  if (!findVar(serviceId, varName, row, column)) return std::nullopt;
  return row->values[column];
}

std::vector<std::pair<std::string, std::string>> dlnaGetServiceVars(const char* serviceId) {
  std::vector<std::pair<std::string, std::string>> vars;
  if (!serviceId) return vars;
  std::lock_guard lock(g_valueMutex);
  for (DlnaStateVarRow* r = g_tStateVar; r->serviceId; ++r) {
    if (strcmp(r->serviceId, serviceId) != 0) continue;
    for (int i = 0; i < r->count; ++i)
      if (r->values[i]) vars.emplace_back(r->names[i], *r->values[i]);
    break;
  }
  return vars;
}

void dlnaFreeVarValue() {
  std::lock_guard lock(g_valueMutex);
  g_generation.fetch_add(1, std::memory_order_release);
  for (DlnaStateVarRow* r = g_tStateVar; r->serviceId; ++r)
    for (auto& value : r->values) value.reset();
}

uint64_t dlnaVarTableGeneration() {
  return g_generation.load(std::memory_order_acquire);
}

int32_t dlnaAddSourceProtocolInfo(const char* name, const char* mime) {
  if (!name || !mime) return -1;
  std::lock_guard<std::mutex> guard(g_sourceInfoMutex);
  // Every file of a library lands on one of a few dozen pairs, and profile
  // names and MIME texts live as long as the process: once a pair is in the
  // list, later files skip formatting the entry and copying the whole list.
  uint64_t generation = dlnaVarTableGeneration();
  if (generation != g_sourceInfoGeneration) {
    g_sourceInfoAdded.clear();
    g_sourceInfoGeneration = generation;
  }
  for (const auto& [addedName, addedMime] : g_sourceInfoAdded) {
    if (addedName == name && addedMime == mime) return 0;
  }

  bool nonDlna = strcmp(name, kDlnaNonDlna) == 0;
  char entry[256];
  if (nonDlna) {
    snprintf(entry, sizeof(entry), "http-get:*:%s:*", mime);
  } else {
    snprintf(entry, sizeof(entry), "http-get:*:%s:DLNA.ORG_PN=%s", mime, name);
  }
  std::optional<std::string> current = dlnaGetVarValue(kCmsServiceId, "SourceProtocolInfo");
  if (!current) return -1;
  if (g_sourceInfoAdded.size() < kSourceInfoCacheRows) g_sourceInfoAdded.emplace_back(name, mime);
  std::string value;
  if (current->empty()) {
    value = entry;
  } else if (current->find(entry) != std::string::npos) {
    return 0;
  } else if (nonDlna) {
    value = *current + "," + entry;
  } else {
    // Profiled entries lead the list that control points read.
    value = std::string(entry) + "," + *current;
  }
  dlnaSetVarValue(kCmsServiceId, "SourceProtocolInfo", value.c_str());
  return 0;
}
