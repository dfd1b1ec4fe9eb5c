// Device interface while the daemon has no network device: there is no UUID and
// nobody subscribes, so an event reaches no one.
#include "stack/upnp_device.h"

const char* UpnpDeviceGetUUID(int, int) {
  return "";
}

int UpnpDeviceNotify(int, const char*, const char*, const char**, const char**, int) {
  return 0;
}
