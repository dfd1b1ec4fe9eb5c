// The device on the network; see upnp_dms.h.
//
// The device description is a printf template filled from the configuration.
// The ContentDirectory description is generated from two tables (the web
// server regenerates it on every open); the two smaller services are fixed
// texts, laid out like its header: indented, but without line feeds.
#include "upnp/upnp_dms.h"

#include <cstdio>
#include <cstring>

#include "http/http.h"
#include "platform/alloc.h"
#include "platform/log.h"
#include "stack/upnp_device.h"
#include "upnp/service.h"

namespace {

constexpr char kLogSource[] = "upnp_dms";

// Fixed-width fields: a row is plain bytes, and an empty name marks an unused slot.
struct CdsArgDef {
  char name[32];
  char direction[16];
  char relatedStateVariable[64];
};

struct CdsActionDef {
  char name[32];
  CdsArgDef args[16];
};

struct CdsStateVarDef {
  char openTag[64];
  char name[32];
  char dataType[16];
  char allowedValues[8][32];
};

constexpr CdsActionDef g_cds_Action[] = {
    {"Browse",
     {
         {"ObjectID", "in", "A_ARG_TYPE_ObjectID"},
         {"BrowseFlag", "in", "A_ARG_TYPE_BrowseFlag"},
         {"Filter", "in", "A_ARG_TYPE_Filter"},
         {"StartingIndex", "in", "A_ARG_TYPE_Index"},
         {"RequestedCount", "in", "A_ARG_TYPE_Count"},
         {"SortCriteria", "in", "A_ARG_TYPE_SortCriteria"},
         {"Result", "out", "A_ARG_TYPE_Result"},
         {"NumberReturned", "out", "A_ARG_TYPE_Count"},
         {"TotalMatches", "out", "A_ARG_TYPE_Count"},
         {"UpdateID", "out", "A_ARG_TYPE_UpdateID"},
     }},
    {"GetSystemUpdateID", {{"Id", "out", "SystemUpdateID"}}},
    {"GetSearchCapabilities", {{"SearchCaps", "out", "SearchCapabilities"}}},
    {"GetSortCapabilities", {{"SortCaps", "out", "SortCapabilities"}}},
    {"Search",
     {
         {"ContainerID", "in", "A_ARG_TYPE_ObjectID"},
         {"SearchCriteria", "in", "A_ARG_TYPE_SearchCriteria"},
         {"Filter", "in", "A_ARG_TYPE_Filter"},
         {"StartingIndex", "in", "A_ARG_TYPE_Index"},
         {"RequestedCount", "in", "A_ARG_TYPE_Count"},
         {"SortCriteria", "in", "A_ARG_TYPE_SortCriteria"},
         {"Result", "out", "A_ARG_TYPE_Result"},
         {"NumberReturned", "out", "A_ARG_TYPE_Count"},
         {"TotalMatches", "out", "A_ARG_TYPE_Count"},
         {"UpdateID", "out", "A_ARG_TYPE_UpdateID"},
     }},
};

// clang-format off
constexpr CdsStateVarDef g_cds_stateVariable[] = {
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_BrowseFlag", "string", {"BrowseMetadata", "BrowseDirectChildren"}},
    {"<stateVariable sendEvents=\"yes\">", "SystemUpdateID", "ui4", {}},
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_Count", "ui4", {}},
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_SortCriteria", "string", {}},
    {"<stateVariable sendEvents=\"no\">", "SortCapabilities", "string", {}},
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_Index", "ui4", {}},
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_ObjectID", "string", {}},
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_UpdateID", "ui4", {}},
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_Result", "string", {}},
    {"<stateVariable sendEvents=\"no\">", "SearchCapabilities", "string", {}},
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_Filter", "string", {}},
    {"<stateVariable sendEvents=\"no\">", "A_ARG_TYPE_SearchCriteria", "string", {}},
};
// clang-format on

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

constexpr char kCdsDescHeader[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><scpd xmlns=\"urn:schemas-upnp-org:service-1-0\">"
    "  <specVersion>"
    "    <major>1</major>"
    "    <minor>0</minor>"
    "  </specVersion>";

// Appends to a text whose length is known, so a whole document costs one pass.
struct XmlWriter {
  char* buffer;
  size_t size;
  size_t length;

  void append(const char* text, size_t count) {
    if (length >= size) return;
    size_t room = size - length - 1;
    if (count > room) count = room;
    memcpy(buffer + length, text, count);
    length += count;
    buffer[length] = '\0';
  }

  int tag(const char* text, int level, bool newline) {
    if (level > 100) return -1;
    for (int i = 1; i < level; ++i) append("  ", 2);
    append(text, strlen(text));
    if (newline) append("\n", 1);
    return 0;
  }

  // <open>value</close> on one line.
  void element(const char* open, const char* value, const char* close, int level) {
    tag(open, level, false);
    tag(value, 0, false);
    tag(close, 0, true);
  }
};

}  // namespace

// clang-format off
const XmlConvEntry g_tXmlConv[] = {
    {'"', "&quot;"},
    {'&', "&amp;"},
    {'\'', "&apos;"},
    {'<', "&lt;"},
    {'>', "&gt;"},
    {'\n', "&#xA;"},
    {'\r', "&#xD;"},
    {'\t', "&#x9;"},
    {0, nullptr},
};
// clang-format on
// The characters of g_tXmlConv, for a quick scan.
constexpr char kXmlConvChars[] = "\"&'<>\n\r\t";

std::atomic<uint32_t> g_CdsDesLen{0};

const char g_szCmsDesc[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><scpd xmlns=\"urn:schemas-upnp-org:service-1-0\">"
    "  <specVersion>"
    "    <major>1</major>"
    "    <minor>0</minor>"
    "  </specVersion>"
    "  <actionList>"
    "    <action>"
    "      <name>GetCurrentConnectionInfo</name>"
    "      <argumentList>"
    "        <argument>"
    "          <name>ConnectionID</name>"
    "          <direction>in</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_ConnectionID</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>RcsID</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_RcsID</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>AVTransportID</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_AVTransportID</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>ProtocolInfo</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_ProtocolInfo</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>PeerConnectionManager</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_ConnectionManager</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>PeerConnectionID</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_ConnectionID</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>Direction</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_Direction</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>Status</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_ConnectionStatus</relatedStateVariable>"
    "        </argument>"
    "      </argumentList>"
    "    </action>"
    "    <action>"
    "      <name>GetProtocolInfo</name>"
    "      <argumentList>"
    "        <argument>"
    "          <name>Source</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>SourceProtocolInfo</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>Sink</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>SinkProtocolInfo</relatedStateVariable>"
    "        </argument>"
    "      </argumentList>"
    "    </action>"
    "    <action>"
    "      <name>GetCurrentConnectionIDs</name>"
    "      <argumentList>"
    "        <argument>"
    "          <name>ConnectionIDs</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>CurrentConnectionIDs</relatedStateVariable>"
    "        </argument>"
    "      </argumentList>"
    "    </action>"
    "  </actionList>"
    "  <serviceStateTable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_ProtocolInfo</name>"
    "      <dataType>string</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_ConnectionStatus</name>"
    "      <dataType>string</dataType>"
    "      <allowedValueList>"
    "        <allowedValue>OK</allowedValue>"
    "        <allowedValue>ContentFormatMismatch</allowedValue>"
    "        <allowedValue>InsufficientBandwidth</allowedValue>"
    "        <allowedValue>UnreliableChannel</allowedValue>"
    "        <allowedValue>Unknown</allowedValue>"
    "      </allowedValueList>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_AVTransportID</name>"
    "      <dataType>i4</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_RcsID</name>"
    "      <dataType>i4</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_ConnectionID</name>"
    "      <dataType>i4</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_ConnectionManager</name>"
    "      <dataType>string</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"yes\">"
    "      <name>SourceProtocolInfo</name>"
    "      <dataType>string</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"yes\">"
    "      <name>SinkProtocolInfo</name>"
    "      <dataType>string</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_Direction</name>"
    "      <dataType>string</dataType>"
    "      <allowedValueList>"
    "        <allowedValue>Input</allowedValue>"
    "        <allowedValue>Output</allowedValue>"
    "      </allowedValueList>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"yes\">"
    "      <name>CurrentConnectionIDs</name>"
    "      <dataType>string</dataType>"
    "    </stateVariable>"
    "  </serviceStateTable></scpd>";

const char g_szMsrDesc[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\"?><scpd xmlns=\"urn:schemas-upnp-org:service-1-0\">"
    "  <specVersion>"
    "    <major>1</major>"
    "    <minor>0</minor>"
    "  </specVersion>"
    "  <actionList>"
    "    <action>"
    "      <name>IsAuthorized</name>"
    "      <argumentList>"
    "        <argument>"
    "          <name>DeviceID</name>"
    "          <direction>in</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_DeviceID</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>Result</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_Result</relatedStateVariable>"
    "        </argument>"
    "      </argumentList>"
    "    </action>"
    "    <action>"
    "      <name>RegisterDevice</name>"
    "      <argumentList>"
    "        <argument>"
    "          <name>RegistrationReqMsg</name>"
    "          <direction>in</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_RegistrationReqMsg</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>RegistrationRespMsg</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_RegistrationRespMsg</relatedStateVariable>"
    "        </argument>"
    "      </argumentList>"
    "    </action>"
    "    <action>"
    "      <name>IsValidated</name>"
    "      <argumentList>"
    "        <argument>"
    "          <name>DeviceID</name>"
    "          <direction>in</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_DeviceID</relatedStateVariable>"
    "        </argument>"
    "        <argument>"
    "          <name>Result</name>"
    "          <direction>out</direction>"
    "          <relatedStateVariable>A_ARG_TYPE_Result</relatedStateVariable>"
    "        </argument>"
    "      </argumentList>"
    "    </action>"
    "  </actionList>"
    "  <serviceStateTable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_DeviceID</name>"
    "      <dataType>string</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_Result</name>"
    "      <dataType>int</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_RegistrationReqMsg</name>"
    "      <dataType>bin.base64</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>A_ARG_TYPE_RegistrationRespMsg</name>"
    "      <dataType>bin.base64</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>AuthorizationGrantedUpdateID</name>"
    "      <dataType>ui4</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>AuthorizationDeniedUpdateID</name>"
    "      <dataType>ui4</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>ValidationSucceededUpdateID</name>"
    "      <dataType>ui4</dataType>"
    "    </stateVariable>"
    "    <stateVariable sendEvents=\"no\">"
    "      <name>ValidationRevokedUpdateID</name>"
    "      <dataType>ui4</dataType>"
    "    </stateVariable>"
    "  </serviceStateTable></scpd>";

namespace {

const XmlConvEntry* findConv(unsigned char c) {
  for (const XmlConvEntry* row = g_tXmlConv; row->entity; ++row)
    if (row->ch == c) return row;
  return nullptr;
}

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

char* dlnaConvXml(const char* text) {
  if (!text) return nullptr;
  // Most titles need nothing: find that out with one scan for the table's characters.
  if (text[strcspn(text, kXmlConvChars)] == '\0') return nullptr;
  size_t extra = 0;
  size_t length = 0;
  for (; text[length]; ++length)
    if (const XmlConvEntry* row = findConv(text[length])) extra += strlen(row->entity) - 1;
  if (extra == 0) return nullptr;
  char* escaped = static_cast<char*>(GetUB(length + extra + 1));
  if (!escaped) return nullptr;
  char* out = escaped;
  for (const char* p = text; *p; ++p) {
    if (const XmlConvEntry* row = findConv(*p)) {
      size_t n = strlen(row->entity);
      memcpy(out, row->entity, n);
      out += n;
    } else {
      *out++ = *p;
    }
  }
  *out = '\0';
  return escaped;
}

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

int _WriteTag2XML(char* buffer, size_t size, const char* text, int level, int newline) {
  if (level > 100 || !buffer) return -1;
  XmlWriter out{buffer, size, strnlen(buffer, size)};
  return out.tag(text ? text : "", level, newline != 0);
}

void dlnaGenCdsDesc(char* buffer) {
  memset(buffer, 0, kCdsDescSize);
  XmlWriter out{buffer, kCdsDescSize, 0};
  out.append(kCdsDescHeader, sizeof kCdsDescHeader - 1);
  out.tag("<actionList>", 2, true);
  for (const CdsActionDef& action : g_cds_Action) {
    out.tag("<action>", 3, true);
    out.element("<name>", action.name, "</name>", 4);
    out.tag("<argumentList>", 4, true);
    for (const CdsArgDef& arg : action.args) {
      if (!arg.name[0]) continue;
      out.tag("<argument>", 5, true);
      out.element("<name>", arg.name, "</name>", 6);
      out.element("<direction>", arg.direction, "</direction>", 6);
      out.element("<relatedStateVariable>", arg.relatedStateVariable, "</relatedStateVariable>", 6);
      out.tag("</argument>", 5, true);
    }
    out.tag("</argumentList>", 4, true);
    out.tag("</action>", 3, true);
  }
  out.tag("</actionList>", 2, true);
  out.tag("<serviceStateTable>", 2, true);
  for (const CdsStateVarDef& var : g_cds_stateVariable) {
    out.tag(var.openTag, 3, true);
    out.element("<name>", var.name, "</name>", 4);
    out.element("<dataType>", var.dataType, "</dataType>", 4);
    if (var.allowedValues[0][0]) {
      out.tag("<allowedValueList>", 4, true);
      for (const auto& value : var.allowedValues)
        if (value[0]) out.element("<allowedValue>", value, "</allowedValue>", 5);
      out.tag("</allowedValueList>", 4, true);
    }
    out.tag("</stateVariable>", 3, true);
  }
  out.tag("</serviceStateTable>", 2, true);
  out.tag("</scpd>", 0, true);
  g_CdsDesLen.store(static_cast<uint32_t>(out.length), std::memory_order_relaxed);
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
