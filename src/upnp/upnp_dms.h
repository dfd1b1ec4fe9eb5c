// The device on the network: the device description made from the
// configuration, registration with the stack, and the events of the evented
// variables.
#pragma once

#include <cstddef>
#include <cstdint>

#include "content/dlna_info.h"
#include "platform/config.h"

// The device description with the 17 texts in template order (GetUB; free with
// RetUB), or null when a text is null or memory runs out.
char* dlnaGetDmsDesc(const char* modelName, const char* dmsName, const char* manufacturer,
                     const char* manufacturerUrl, const char* modelDescription,
                     const char* modelNameText, const char* modelNumber, const char* modelUrl,
                     const char* serialNumber, const char* uuid, const char* presentationUrl,
                     const char* cmsScpdUrl, const char* cmsControlUrl, const char* cmsEventUrl,
                     const char* cdsScpdUrl, const char* cdsControlUrl, const char* cdsEventUrl);

// Where the device keeps its UUID across restarts.
void dlnaSetDeviceUuidFile(const char* path);

// Sends one changed state variable to the device's subscribers; the
// state-variable table's notifier.
void dlnaNotifyVarChange(const char* serviceId, const char* varName, const char* value);

// Registers the device described by `config` with the stack and advertises
// it; info->deviceHandle receives the handle. 0 or -1.
int dlnaInitUpnp(DlnaInfo* info, DmsCfg* config);

// Stops and unregisters the device; -1 for a null info, else 0.
int dlnaFinishUpnp(DlnaInfo* info);
