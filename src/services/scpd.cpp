// The service descriptions: the ContentDirectory's generated from the action
// and variable tables below (the web server regenerates it on every open), the
// other two fixed texts laid out like its header: indented, but without line
// feeds; see scpd.h.
#include "services/scpd.h"

#include <cstring>

namespace {

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
