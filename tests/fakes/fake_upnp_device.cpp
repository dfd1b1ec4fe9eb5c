#include "fakes/fake_upnp_device.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "stack/upnp_device.h"

namespace {
std::mutex g_mutex;
std::vector<FakeNotify> g_notifications;
std::vector<FakeNotify> g_subscriptions;

FakeNotify record(int handle, const char* udn, const char* serviceId, const char** names,
                  const char** values, int count) {
  FakeNotify call{handle, udn ? udn : "", serviceId ? serviceId : "", {}, {}};
  for (int i = 0; i < count; ++i) call.vars.emplace_back(names[i], values[i]);
  return call;
}
}  // namespace

void UpnpDeviceSetUuidFile(const char*) {}

int UpnpDeviceGetUUID(int device, int instance, char* uuid) {
  if (device != 1 || instance != 1) {
    uuid[0] = '\0';
    return -1;
  }
  strcpy(uuid, kFakeUuid);
  return 0;
}

int UpnpDeviceNotify(int handle, const char* udn, const char* serviceId, const char** names,
                     const char** values, int count) {
  FakeNotify call = record(handle, udn, serviceId, names, values, count);
  std::lock_guard lock(g_mutex);
  g_notifications.push_back(std::move(call));
  return 0;
}

int UpnpDeviceAcceptSubscription(int handle, const char* udn, const char* serviceId,
                                 const char** names, const char** values, int count,
                                 const char* sid) {
  FakeNotify call = record(handle, udn, serviceId, names, values, count);
  call.sid = sid ? sid : "";
  std::lock_guard lock(g_mutex);
  g_subscriptions.push_back(std::move(call));
  return 0;
}

std::vector<FakeNotify> fakeNotifications() {
  std::lock_guard lock(g_mutex);
  return g_notifications;
}

std::vector<FakeNotify> fakeSubscriptions() {
  std::lock_guard lock(g_mutex);
  return g_subscriptions;
}

void fakeClearNotifications() {
  std::lock_guard lock(g_mutex);
  g_notifications.clear();
  g_subscriptions.clear();
}

namespace {
std::vector<std::string> g_deviceCalls;
std::string g_failing;
std::string g_description;

int deviceCall(const char* name) {
  std::lock_guard lock(g_mutex);
  g_deviceCalls.push_back(name);
  return g_failing == name ? -1 : 0;
}
}  // namespace

int UpnpDeviceReg(int* handle, const char*, Upnp_FunPtr, const void*) {
  int rc = deviceCall("UpnpDeviceReg");
  if (rc == 0) *handle = 1;
  return rc;
}

int UpnpDeviceSetServerSocketInfo(int, const char*, const char*, const char*, uint16_t, int) {
  return deviceCall("UpnpDeviceSetServerSocketInfo");
}

int UpnpDeviceSetAdPara(int, int, int) { return deviceCall("UpnpDeviceSetAdPara"); }

int UpnpDeviceSetVDirAndCallbacks(const char*, const DlnaVirtualDirCallbacks*) {
  return deviceCall("UpnpDeviceSetVDirAndCallbacks");
}

int UpnpDeviceStart2(int, int, const char* description, size_t, int) {
  {
    std::lock_guard lock(g_mutex);
    g_description = description ? description : "";
  }
  return deviceCall("UpnpDeviceStart2");
}

int UpnpDeviceGetServerAddress(char* ip, size_t ipSize, uint16_t* port) {
  snprintf(ip, ipSize, "127.0.0.1");
  *port = 49152;
  return 0;
}

int UpnpDeviceStop(int) { return deviceCall("UpnpDeviceStop"); }

int UpnpDeviceUnReg(int) { return deviceCall("UpnpDeviceUnReg"); }

std::vector<std::string> fakeDeviceCalls() {
  std::lock_guard lock(g_mutex);
  return g_deviceCalls;
}

std::string fakeStartedDescription() {
  std::lock_guard lock(g_mutex);
  return g_description;
}

void fakeFailCall(const std::string& name) {
  std::lock_guard lock(g_mutex);
  g_failing = name;
  if (name.empty()) g_deviceCalls.clear();
}
