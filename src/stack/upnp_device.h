// The device interface the daemon calls on the UPnP stack: one root device,
// registered, configured, started (SSDP advertisement by libupnp; description,
// SOAP, GENA and the virtual directory on one web server of ours) and stopped. Only this folder
// and src/upnp talk to the stack's libraries.
//
// Registration and start/stop run on the main thread; GetUUID, Notify and
// AcceptSubscription are thread-safe and may run on the stack's threads.
#pragma once

#include <upnp/upnp.h>

#include <cstddef>
#include <cstdint>

#include "stack/web_callbacks.h"

// Room for a UUID text and its terminator.
inline constexpr size_t kUpnpUuidSize = 64;

// Where the device's UUID is kept between runs; set before the first
// UpnpDeviceGetUUID (default "/var/tmp/dms.uuid").
void UpnpDeviceSetUuidFile(const char* path);

// Writes the UUID of device `device`, instance `instance` (without "uuid:")
// into `uuid` (kUpnpUuidSize bytes). The UUID is made once and kept in a state
// file beside the configuration, so it survives restarts. 0, or -1 (then
// `uuid` is empty).
int UpnpDeviceGetUUID(int device, int instance, char* uuid);

// Registers the device: its name, the callback that receives SOAP actions,
// variable queries and subscriptions, and the callback's cookie. Writes a
// handle (>= 0) for the calls below. 0 or negative.
int UpnpDeviceReg(int* handle, const char* name, Upnp_FunPtr callback, const void* cookie);

// Where to serve: IPv4 address (empty: the interface's), IPv6 link-local
// address, interface name, port (0: any free port). 0 or negative.
int UpnpDeviceSetServerSocketInfo(int handle, const char* ip, const char* ipv6Lla,
                                  const char* ifName, uint16_t port, int flags);

// Advertisement expiry in seconds and the number of times each message is sent.
int UpnpDeviceSetAdPara(int handle, int maxAge, int repeat);

// The callbacks that serve files under the virtual directory `dir` ("/web"):
// every GET and HEAD that is not the description.
int UpnpDeviceSetVDirAndCallbacks(const char* dir, const DlnaVirtualDirCallbacks* callbacks);

// Starts the web server on the configured address and port, publishes the
// description there and advertises it. descType 2: the description is the text
// in `description` (`length` 0: up to its NUL); configBaseUrl 1: a URLBase of
// the server is added. 0 or negative.
int UpnpDeviceStart2(int handle, int descType, const char* description, size_t length,
                     int configBaseUrl);

// The address and port the web server actually serves on, once started (the
// configured port may be 0 and the address empty); 0 or -1.
int UpnpDeviceGetServerAddress(char* ip, size_t ipSize, uint16_t* port);

// Says goodbye on the network and stops the stack. 0 or negative.
int UpnpDeviceStop(int handle);

// Forgets the registration.
int UpnpDeviceUnReg(int handle);

// Accepts subscription `sid` and sends it the initial event with `count`
// variables. 0 or negative.
int UpnpDeviceAcceptSubscription(int handle, const char* udn, const char* serviceId,
                                 const char** names, const char** values, int count,
                                 const char* sid);

// Sends one event with `count` variables to every subscriber of `serviceId` of
// the device `udn`. 0 on success, negative on failure (also when not started).
int UpnpDeviceNotify(int handle, const char* udn, const char* serviceId, const char** names,
                     const char** values, int count);
