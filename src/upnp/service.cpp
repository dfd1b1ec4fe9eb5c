// The device callback: routes SOAP actions to the service handlers through the
// tables below, answers state-variable queries and accepts event subscriptions
// with the current evented values. Handlers reach the request through
// g_tUpnpActionIo.
#include "upnp/service.h"

#include <upnp/ixml.h>
#include <upnp/upnptools.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "content/dlna_info.h"
#include "content/state_var.h"
#include "platform/alloc.h"
#include "platform/log.h"
#include "services/cds.h"
#include "services/cms.h"
#include "stack/upnp_device.h"

namespace {

constexpr char kLogSource[] = "service";

constexpr int kUpnpInvalidAction = 401;
constexpr int kUpnpInvalidVar = 404;

constexpr DlnaServiceAction cdsServiceActions[] = {
    {"GetSearchCapabilities", _cdsGetSrchCap},
    {"GetSortCapabilities", _cdsGetSortCap},
    {"GetSystemUpdateID", _cdsGetSysUpdateId},
    {"Browse", _cdsBrowse},
    {"Search", _cdsSearch},
    {nullptr, nullptr},
};

constexpr DlnaServiceAction cmsServiceActions[] = {
    {"GetProtocolInfo", cmsGetProtocolInfo},
    {"GetCurrentConnectionIDs", cmsGetCurrentConnectionIds},
    {"GetCurrentConnectionInfo", cmsGetCurrentConnectionInfo},
    {nullptr, nullptr},
};

constexpr DlnaServiceAction msr_service_actions[] = {
    {"IsAuthorized", msr_is_authorized},
    {"RegisterDevice", msr_register_device},
    {"IsValidated", msr_is_validated},
    {nullptr, nullptr},
};

}  // namespace

constexpr DlnaService g_tServices[] = {
    {kCdsServiceId, "urn:schemas-upnp-org:service:ContentDirectory:1", cdsServiceActions},
    {kCmsServiceId, "urn:schemas-upnp-org:service:ConnectionManager:1", cmsServiceActions},
    {kMsrServiceId, "urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1", msr_service_actions},
    {nullptr, nullptr, nullptr},
};

namespace {

const DlnaService* findService(const char* serviceId) {
  if (!serviceId) return nullptr;
  for (const DlnaService* s = g_tServices; s->serviceId; ++s)
    if (strcmp(s->serviceId, serviceId) == 0) return s;
  return nullptr;
}

// The request names this device when its UDN, past "uuid:", is our UUID.
bool isForThisDevice(const UpnpActionRequest* request) {
  char uuid[kUpnpUuidSize] = {};
  UpnpDeviceGetUUID(1, 1, uuid);
  const char* udn = UpnpActionRequest_get_DevUDN_cstr(request);
  return udn && strlen(udn) >= 5 && strcmp(udn + 5, uuid) == 0;
}

void dropResult(UpnpActionRequest* request) {
  if (IXML_Document* result = UpnpActionRequest_get_ActionResult(request)) {
    ixmlDocument_free(result);
    UpnpActionRequest_set_ActionResult(request, nullptr);
  }
}

void failAction(UpnpActionRequest* request, const char* reason) {
  UpnpActionRequest_strcpy_ErrStr(request, reason);
  dropResult(request);
  UpnpActionRequest_set_ErrCode(request, kUpnpInvalidAction);
  DMS_LOG(kLogEvent, "%s: %s", reason, UpnpActionRequest_get_ActionName_cstr(request));
}

void handleAction(UpnpActionRequest* request) {
  if (UpnpActionRequest_get_ErrCode(request) != 0) return;
  if (!isForThisDevice(request)) return;

  const DlnaService* service = nullptr;
  const DlnaServiceAction* action = nullptr;
  if (!dlnaFindServiceAction(request, &service, &action)) {
    failAction(request, service ? "Unknown Service Action" : "Unknown Service ID");
    return;
  }

  DlnaActionCtx ctx{request, &g_tUpnpActionIo, 1, service};
  if (action->handler(&ctx) && ctx.ok) {
    UpnpActionRequest_set_ErrCode(request, 0);
    // The stack treats a missing result as a failure, so an action without
    // output arguments still needs its empty response element.
    if (!UpnpActionRequest_get_ActionResult(request)) {
      UpnpActionRequest_set_ActionResult(
          request, UpnpMakeActionResponse(UpnpActionRequest_get_ActionName_cstr(request),
                                          service->serviceType, 0, nullptr));
    }
  } else {
    // Whatever a failed handler added must not go out as a success.
    dropResult(request);
  }
}

// The state-variable module hands out copies under a lock of its own, so the
// tree's lock is not needed to read the values here.
void handleGetVar(UpnpStateVarRequest* request) {
  const char* serviceId = UpnpStateVarRequest_get_ServiceID_cstr(request);
  const char* name = UpnpStateVarRequest_get_StateVarName_cstr(request);
  DMS_LOG(kLogTrace, "Request get the value of statevar %s", name ? name : "");

  std::optional<std::string> value = dlnaGetVarValue(serviceId, name);
  // The setter stores its own clone (ixmlCloneDOMString) of the text.
  if (value && UpnpStateVarRequest_set_CurrentVal(request, value->data())) {
    UpnpStateVarRequest_set_ErrCode(request, 0);
    return;
  }
  UpnpStateVarRequest_set_ErrCode(request, kUpnpInvalidVar);
  UpnpStateVarRequest_strcpy_ErrStr(request, "Invalid Variable");
  DMS_LOG(kLogEvent, "Unknow State Variable name!");
}

void handleSubscription(const UpnpSubscriptionRequest* request) {
  const char* serviceId = UpnpSubscriptionRequest_get_ServiceId_cstr(request);
  DMS_LOG(kLogTrace, "Var subscription:%s!", serviceId ? serviceId : "");
  // Every service of the device has a row of evented variables (the registrar's
  // is empty); a service that is not ours gets nothing.
  if (!findService(serviceId)) return;

  std::vector<std::pair<std::string, std::string>> vars = dlnaGetServiceVars(serviceId);
  std::vector<const char*> names;
  std::vector<const char*> values;
  for (const auto& [name, value] : vars) {
    names.push_back(name.c_str());
    values.push_back(value.c_str());
  }
  UpnpDeviceAcceptSubscription(g_tDlnaInfo.deviceHandle,
                               UpnpSubscriptionRequest_get_UDN_cstr(request), serviceId,
                               names.data(), values.data(), static_cast<int>(vars.size()),
                               UpnpSubscriptionRequest_get_SID_cstr(request));
}

}  // namespace

int _dlnaDevCallbackEvHdl(Upnp_EventType type, const void* event, void* /*cookie*/) {
  if (!event) return 0;
  // The stack hands the records over as const but expects the answer in them.
  void* record = const_cast<void*>(event);
  switch (type) {
    case UPNP_CONTROL_ACTION_REQUEST:
      handleAction(static_cast<UpnpActionRequest*>(record));
      break;
    case UPNP_CONTROL_GET_VAR_REQUEST:
      handleGetVar(static_cast<UpnpStateVarRequest*>(record));
      break;
    case UPNP_EVENT_SUBSCRIPTION_REQUEST:
      handleSubscription(static_cast<const UpnpSubscriptionRequest*>(event));
      break;
    default:
      break;
  }
  return 0;
}

int dlnaFindServiceAction(const UpnpActionRequest* request, const DlnaService** service,
                          const DlnaServiceAction** action) {
  if (!service || !action) return 0;
  *service = nullptr;
  *action = nullptr;
  if (!request) return 0;
  *service = findService(UpnpActionRequest_get_ServiceID_cstr(request));
  if (!*service) return 0;
  const char* name = UpnpActionRequest_get_ActionName_cstr(request);
  if (!name) return 0;
  for (const DlnaServiceAction* a = (*service)->actions; a->name; ++a) {
    if (strcmp(a->name, name) == 0) {
      *action = a;
      return 1;
    }
  }
  return 0;
}

char* dlnaUpnpGetStr(const UpnpActionRequest* request, const char* name) {
  if (!request || !name) return nullptr;
  IXML_Document* doc = UpnpActionRequest_get_ActionRequest(request);
  if (!doc) return nullptr;
  IXML_Node* actionNode = ixmlNode_getFirstChild(reinterpret_cast<IXML_Node*>(doc));
  if (!actionNode) {
    DMS_LOG(kLogEvent, "Invalid action request document\n");
    return nullptr;
  }
  for (IXML_Node* arg = ixmlNode_getFirstChild(actionNode); arg;
       arg = ixmlNode_getNextSibling(arg)) {
    if (ixmlNode_getNodeType(arg) != eELEMENT_NODE) continue;
    const char* argName = ixmlNode_getNodeName(arg);
    if (!argName || strcmp(argName, name) != 0) continue;
    IXML_Node* text = ixmlNode_getFirstChild(arg);
    const char* value = text ? ixmlNode_getNodeValue(text) : nullptr;
    return strdup(value ? value : "");
  }
  DMS_LOG(kLogEvent, "Missing action request argument (%s)\n", name);
  return nullptr;
}

namespace {

int addUpnpRes(void* record, const char* serviceType, const char* name, const char* value) {
  auto* request = static_cast<UpnpActionRequest*>(record);
  IXML_Document* result = UpnpActionRequest_get_ActionResult(request);
  int rc = UpnpAddToActionResponse(&result, UpnpActionRequest_get_ActionName_cstr(request),
                                   serviceType, name, value);
  UpnpActionRequest_set_ActionResult(request, result);
  return rc == UPNP_E_SUCCESS ? 1 : 0;
}

char* getUpnpStr(const void* request, const char* name) {
  return dlnaUpnpGetStr(static_cast<const UpnpActionRequest*>(request), name);
}

}  // namespace

const DlnaActionIo g_tUpnpActionIo = {getUpnpStr, addUpnpRes};

uint32_t dlnaUpnpGetUi4(const UpnpActionRequest* request, const char* name) {
  DlnaActionCtx ctx{const_cast<UpnpActionRequest*>(request), &g_tUpnpActionIo, 1, nullptr};
  return dlnaActionGetUi4(&ctx, name);
}
