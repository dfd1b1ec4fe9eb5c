// The device on the network; see upnp_dms.h.
//
// The device description is a printf template filled from the configuration;
// the service descriptions live with the services (services/scpd.h).
#include "upnp/upnp_dms.h"

#include <cstdio>
#include <cstring>

#include "http/http.h"
#include "platform/alloc.h"
#include "platform/log.h"
#include "services/xml_escape.h"
#include "stack/upnp_device.h"
#include "upnp/service.h"

namespace {

constexpr char kLogSource[] = "upnp_dms";

// The 17 %s are, in order: model name and server name (friendlyName),
// manufacturer, its URL, model description, name and number, model URL,
// serial number, UUID, presentation page, then the ConnectionManager's and the
// ContentDirectory's SCPD, control and event URLs. The three line feeds and the
// colon after the server name belong to the published document; keep them.
constexpr char kDmsDescTemplate[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><root xmlns=\"urn:schemas-upnp-org:device-1-0\">"
    "  <specVersion>"
    "    <major>1</major>"
    "    <minor>0</minor>"
    "  </specVersion>"
    "  <device>"
    "  <dlna:X_DLNADOC xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\">DMS-1.50</dlna:X_DLNADOC>"
    "  <dlna:X_DLNACAP xmlns:dlna=\"urn:schemas-dlna-org:device-1-0\"/>"
    "    <deviceType>urn:schemas-upnp-org:device:MediaServer:1</deviceType>"
    "    <friendlyName>%s: %s:</friendlyName>"
    "    <manufacturer>%s</manufacturer>"
    "    <manufacturerURL>%s</manufacturerURL>"
    "    <modelDescription>%s</modelDescription>"
    "    <modelName>%s</modelName>"
    "    <modelNumber>%s</modelNumber>"
    "    <modelURL>%s</modelURL>"
    "    <serialNumber>%s</serialNumber>"
    "    <UPC/>"
    "    <UDN>uuid:%s</UDN>"
    "    <presentationURL>%s</presentationURL>"
    "    <serviceList>"
    "      <service>"
    "        <serviceType>urn:schemas-upnp-org:service:ConnectionManager:1</serviceType>"
    "        <serviceId>urn:upnp-org:serviceId:ConnectionManager</serviceId>"
    "        <SCPDURL>%s</SCPDURL>"
    "        <controlURL>%s</controlURL>"
    "        <eventSubURL>%s</eventSubURL>"
    "      </service>"
    "      <service>"
    "        <serviceType>urn:schemas-upnp-org:service:ContentDirectory:1</serviceType>"
    "        <serviceId>urn:upnp-org:serviceId:ContentDirectory</serviceId>"
    "        <SCPDURL>%s</SCPDURL>"
    "        <controlURL>%s</controlURL>"
    "        <eventSubURL>%s</eventSubURL>"
    "      </service>"
    "      <service>"
    "        <serviceType>urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1</serviceType>\n"
    "        <serviceId>urn:microsoft.com:serviceId:X_MS_MediaReceiverRegistrar</serviceId>\n"
    "        <SCPDURL>/web/msr.xml</SCPDURL>"
    "        <controlURL>/web/msr_control</controlURL>"
    "        <eventSubURL>/web/msr_event</eventSubURL>"
    "      </service>\n"
    "    </serviceList>"
    "  </device></root>";

}  // namespace

namespace {

// Steps that need the stack: register, configure, start. On a failure what is
// already registered stays so; the caller's stop sequence undoes it.
int registerAndStart(DlnaInfo* info, const DmsCfg* config, const char* name, const char* desc) {
  if (UpnpDeviceReg(&info->deviceHandle, name, _dlnaDevCallbackEvHdl, nullptr) < 0) {
    DMS_LOG(kLogEvent, "UpnpDeviceReg Faild\n");
    return -1;
  }
  int handle = info->deviceHandle;
  if (UpnpDeviceSetServerSocketInfo(handle, config->szIp, config->szIfLLA, config->szIf,
                                    static_cast<uint16_t>(config->iPort), 0) < 0) {
    DMS_LOG(kLogEvent, "UpnpDeviceSetServerSocketInfo Faild\n");
    return -1;
  }
  if (UpnpDeviceSetAdPara(handle, 1860, 4) < 0) {
    DMS_LOG(kLogEvent, "UpnpDeviceSetAdPara Faild\n");
    return -1;
  }
  if (UpnpDeviceSetVDirAndCallbacks("/web", &virtual_dir_callbacks) < 0) {
    DMS_LOG(kLogEvent, "UpnpDeviceSetVDirAndCallbacks Faild.");
    return -1;
  }
  if (UpnpDeviceStart2(handle, 2, desc, 0, 1) < 0) {
    DMS_LOG(kLogEvent, "UpnpDeviceStart2 Faild.");
    return -1;
  }
  DMS_LOG(kLogTrace, "UpnpDeviceStart2 Success.");
  // URLs must carry what the web server really bound: the configured port may
  // be 0 and the address empty.
  uint16_t port = 0;
  if (UpnpDeviceGetServerAddress(info->ip, sizeof info->ip, &port) == 0) info->port = port;
  return 0;
}

}  // namespace

char* dlnaGetDmsDesc(const char* modelName, const char* dmsName, const char* manufacturer,
                     const char* manufacturerUrl, const char* modelDescription,
                     const char* modelNameText, const char* modelNumber, const char* modelUrl,
                     const char* serialNumber, const char* uuid, const char* presentationUrl,
                     const char* cmsScpdUrl, const char* cmsControlUrl, const char* cmsEventUrl,
                     const char* cdsScpdUrl, const char* cdsControlUrl, const char* cdsEventUrl) {
  const char* texts[] = {modelName,        dmsName,       manufacturer,    manufacturerUrl,
                         modelDescription, modelNameText, modelNumber,     modelUrl,
                         serialNumber,     uuid,          presentationUrl, cmsScpdUrl,
                         cmsControlUrl,    cmsEventUrl,   cdsScpdUrl,      cdsControlUrl,
                         cdsEventUrl};
  size_t size = sizeof kDmsDescTemplate;
  for (const char* text : texts) {
    if (!text) return nullptr;
    size += strlen(text);
  }
  char* desc = static_cast<char*>(GetUB(size));
  if (!desc) return nullptr;
  snprintf(desc, size, kDmsDescTemplate, modelName, dmsName, manufacturer, manufacturerUrl,
           modelDescription, modelNameText, modelNumber, modelUrl, serialNumber, uuid,
           presentationUrl, cmsScpdUrl, cmsControlUrl, cmsEventUrl, cdsScpdUrl, cdsControlUrl,
           cdsEventUrl);
  return desc;
}

void dlnaSetDeviceUuidFile(const char* path) {
  UpnpDeviceSetUuidFile(path);
}

void dlnaNotifyVarChange(const char* serviceId, const char* varName, const char* value) {
  char uuid[kUpnpUuidSize];
  UpnpDeviceGetUUID(1, 1, uuid);
  char udn[128];
  snprintf(udn, sizeof udn, "uuid:%s", uuid);
  const char* names[1] = {varName};
  const char* values[1] = {value};
  UpnpDeviceNotify(g_tDlnaInfo.deviceHandle, udn, serviceId, names, values, 1);
}

int dlnaInitUpnp(DlnaInfo* info, DmsCfg* config) {
  if (!info || !config) {
    DMS_LOG(kLogFailure, "dlnaInitUpnp parameter is NULL");
    return -1;
  }
  // Only the server name is escaped; the other texts go in as configured.
  char* escaped = dlnaConvXml(config->szDmsName);
  const char* name = escaped ? escaped : config->szDmsName;
  char uuid[kUpnpUuidSize] = {};
  UpnpDeviceGetUUID(1, 1, uuid);
  char* desc = dlnaGetDmsDesc(
      config->szModelName, name, config->szManuFacturer, config->szManuFacturerURL,
      "Norvik MediaServer", "Windows Media Connect", "2.0", config->szDeviceURL,
      config->szSerialNumber, uuid, "/web/index.html", "/web/cms.xml", "/web/cms_control",
      "/web/cms_event", "/web/cds.xml", "/web/cds_control", "/web/cds_event");
  if (!desc) {
    RetUB(escaped);
    return -1;
  }
  DMS_LOG(kLogEvent, "Initializing Media Server ...\n");
  int rc = registerAndStart(info, config, name, desc);
  RetUB(escaped);
  RetUB(desc);
  if (rc < 0) return -1;
  if (UpnpSetMaxContentLength(0x3c000) != UPNP_E_SUCCESS)
    DMS_LOG(kLogFailure, "Could not set Max content UPnP\n");
  return 0;
}

int dlnaFinishUpnp(DlnaInfo* info) {
  if (!info) return -1;
  if (info->deviceHandle < 0) return 0;
  DMS_LOG(kLogEvent, "Stopping DMS ...\n");
  if (UpnpDeviceStop(info->deviceHandle) < 0) DMS_LOG(kLogEvent, "UpnpDeviceStop Faild\n");
  UpnpDeviceUnReg(info->deviceHandle);
  DMS_LOG(kLogEvent, "DMS stoped.");
  return 0;
}
