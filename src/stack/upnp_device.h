// The device interface the daemon calls on the UPnP stack: the device's
// identity and event delivery to subscribers. Only this folder talks to the
// stack's libraries. Thread-safe.
#pragma once

// The UUID of device `device`, instance `instance` (without "uuid:"); an empty
// text before the device is registered. The text lives as long as the process.
const char* UpnpDeviceGetUUID(int device, int instance);

// Sends one event with `count` variables to every subscriber of `serviceId` of
// the device `udn`. 0 on success, negative on failure.
int UpnpDeviceNotify(int deviceHandle, const char* udn, const char* serviceId, const char** names,
                     const char** values, int count);
