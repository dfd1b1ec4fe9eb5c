#include "fakes/fake_upnp_device.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "content/state_var.h"
#include "profile/profile.h"
#include "stack/upnp_device.h"
#include "upnp/upnp_dms.h"

namespace {
std::mutex g_mutex;
std::vector<FakeNotify> g_notifications;
std::vector<std::string> g_deviceCalls;
std::string g_failing, g_description;

int record(int handle, const char* udn, const char* serviceId, const char** names,
           const char** values, int count, const char* sid) {
  FakeNotify call{handle, udn ? udn : "", serviceId ? serviceId : "", {}, sid ? sid : ""};
  for (int i = 0; i < count; ++i) call.vars.emplace_back(names[i], values[i]);
  std::lock_guard lock(g_mutex);
  g_notifications.push_back(std::move(call));
  return 0;
}

int deviceCall(const char* name, const char* description = nullptr) {
  std::lock_guard lock(g_mutex);
  g_deviceCalls.push_back(name);
  if (description) g_description = description;
  return g_failing == name ? -1 : 0;
}

// The daemon installs its lower layers' hooks at start; in-process tests run
// with the same ones, so variable changes reach the recorded notifications.
const bool kHooksInstalled = [] {
  dlnaSetVarNotifier(dlnaNotifyVarChange);
  dlnaSetProfileSink(dlnaAddSourceProtocolInfo);
  return true;
}();

template <class T>
T locked(const T& value) {
  std::lock_guard lock(g_mutex);
  return value;
}
}  // namespace

void UpnpDeviceSetUuidFile(const char*) {}

int UpnpDeviceGetUUID(int device, int instance, char* uuid) {
  strcpy(uuid, device == 1 && instance == 1 ? kFakeUuid : "");
  return uuid[0] ? 0 : -1;
}

int UpnpDeviceNotify(int handle, const char* udn, const char* serviceId, const char** names,
                     const char** values, int count) {
  return record(handle, udn, serviceId, names, values, count, nullptr);
}

int UpnpDeviceAcceptSubscription(int handle, const char* udn, const char* serviceId,
                                 const char** names, const char** values, int count,
                                 const char* sid) {
  return record(handle, udn, serviceId, names, values, count, sid);
}

int UpnpDeviceReg(int* handle, const char*, Upnp_FunPtr, const void*) {
  int rc = deviceCall("UpnpDeviceReg");
  if (rc == 0) *handle = 1;
  return rc;
}

int UpnpDeviceSetServerSocketInfo(int, const char*, const char*, const char*, uint16_t, int) {
  return deviceCall("UpnpDeviceSetServerSocketInfo");
}

int UpnpDeviceSetAdPara(int, int, int) {
  return deviceCall("UpnpDeviceSetAdPara");
}

int UpnpDeviceSetVDirAndCallbacks(const char*, const DlnaVirtualDirCallbacks*) {
  return deviceCall("UpnpDeviceSetVDirAndCallbacks");
}

int UpnpDeviceStart2(int, int, const char* description, size_t, int) {
  return deviceCall("UpnpDeviceStart2", description);
}

int UpnpDeviceGetServerAddress(char* ip, size_t ipSize, uint16_t* port) {
  snprintf(ip, ipSize, "127.0.0.1");
  *port = 49152;
  return 0;
}

int UpnpDeviceStop(int) {
  return deviceCall("UpnpDeviceStop");
}

int UpnpDeviceUnReg(int) {
  return deviceCall("UpnpDeviceUnReg");
}

std::vector<FakeNotify> fakeNotifications() {
  return locked(g_notifications);
}

std::vector<std::string> fakeDeviceCalls() {
  return locked(g_deviceCalls);
}

std::string fakeStartedDescription() {
  return locked(g_description);
}

void fakeClearNotifications() {
  std::lock_guard lock(g_mutex);
  g_notifications.clear();
}

void fakeFailCall(const std::string& name) {
  std::lock_guard lock(g_mutex);
  g_failing = name;
  if (name.empty()) g_deviceCalls.clear();
}
