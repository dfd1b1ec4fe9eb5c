#include "fakes/fake_upnp_device.h"

#include <mutex>

#include "stack/upnp_device.h"

namespace {
std::mutex g_mutex;
std::vector<FakeNotify> g_calls;
}  // namespace

const char* UpnpDeviceGetUUID(int device, int instance) {
  return device == 1 && instance == 1 ? kFakeUuid : "";
}

int UpnpDeviceNotify(int deviceHandle, const char* udn, const char* serviceId, const char** names,
                     const char** values, int count) {
  FakeNotify call{deviceHandle, udn ? udn : "", serviceId ? serviceId : "", {}};
  for (int i = 0; i < count; ++i) call.vars.emplace_back(names[i], values[i]);
  std::lock_guard lock(g_mutex);
  g_calls.push_back(std::move(call));
  return 0;
}

std::vector<FakeNotify> fakeNotifications() {
  std::lock_guard lock(g_mutex);
  return g_calls;
}

void fakeClearNotifications() {
  std::lock_guard lock(g_mutex);
  g_calls.clear();
}
