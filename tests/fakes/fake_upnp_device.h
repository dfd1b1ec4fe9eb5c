// A recording stand-in for the UPnP device interface, for unit tests.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct FakeNotify {
  int deviceHandle;
  std::string udn;
  std::string serviceId;
  std::vector<std::pair<std::string, std::string>> vars;
};

// Events sent through UpnpDeviceNotify, oldest first (thread-safe copy).
std::vector<FakeNotify> fakeNotifications();
void fakeClearNotifications();
// The UUID that UpnpDeviceGetUUID reports.
inline constexpr char kFakeUuid[] = "00000000-1111-2222-3333-444444444444";
