// A recording stand-in for the UPnP device interface, for unit tests: no
// network, every call remembered.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct FakeNotify {
  int deviceHandle;
  std::string udn;
  std::string serviceId;
  std::vector<std::pair<std::string, std::string>> vars;
  std::string sid;  // AcceptSubscription only
};

// The UUID that UpnpDeviceGetUUID reports.
inline constexpr char kFakeUuid[] = "00000000-1111-2222-3333-444444444444";

// Events sent through UpnpDeviceNotify and initial events of subscriptions
// accepted through UpnpDeviceAcceptSubscription, oldest first (a thread-safe copy).
std::vector<FakeNotify> fakeNotifications();
void fakeClearNotifications();

// Names of the registration and start/stop calls made, in order
// ("UpnpDeviceReg", "UpnpDeviceStart2", ...), and the description last started.
std::vector<std::string> fakeDeviceCalls();
std::string fakeStartedDescription();
// Makes the named call fail (return -1); an empty name clears that and the calls.
void fakeFailCall(const std::string& name);
