// The state-variable table; see state_var.h.
#include "upnp/state_var.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "core/dlna_info.h"
#include "stack/upnp_device.h"

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
  char uuid[kUpnpUuidSize];
  UpnpDeviceGetUUID(1, 1, uuid);
  char udn[128];
  snprintf(udn, sizeof udn, "uuid:%s", uuid);
  std::lock_guard order(g_eventMutex);
  DlnaStateVarRow* row = nullptr;
  int column = 0;
  {
    std::lock_guard lock(g_valueMutex);
    if (!findVar(serviceId, varName, row, column)) return;
    row->values[column] = value;
  }
  const char* names[1] = {row->names[column]};
  const char* values[1] = {value};
  UpnpDeviceNotify(g_tDlnaInfo.deviceHandle, udn, row->serviceId, names, values, 1);
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
