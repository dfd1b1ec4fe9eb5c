// Action requests as the stack hands them to the device callback, for tests
// that drive the services in-process.
#pragma once

#include <upnp/ixml.h>
#include <upnp/upnp.h>

#include <map>
#include <memory>
#include <string>

#include "fakes/fake_upnp_device.h"
#include "upnp/service.h"

struct FreeRequest {
  void operator()(UpnpActionRequest* request) const {
    ixmlDocument_free(UpnpActionRequest_get_ActionRequest(request));
    ixmlDocument_free(UpnpActionRequest_get_ActionResult(request));
    UpnpActionRequest_delete(request);
  }
};
using Request = std::unique_ptr<UpnpActionRequest, FreeRequest>;

inline const std::string kOurUdn = std::string("uuid:") + kFakeUuid;

// An action request for this device with `args` (XML elements) in its body.
inline Request makeRequest(const char* serviceId, const char* action, const std::string& args,
                           const std::string& udn = kOurUdn) {
  Request request(UpnpActionRequest_new());
  UpnpActionRequest_strcpy_ServiceID(request.get(), serviceId);
  UpnpActionRequest_strcpy_ActionName(request.get(), action);
  UpnpActionRequest_strcpy_DevUDN(request.get(), udn.c_str());
  std::string body = "<u:A xmlns:u=\"urn:x\">" + args + "</u:A>";
  UpnpActionRequest_set_ActionRequest(request.get(), ixmlParseBuffer(body.c_str()));
  return request;
}

// Runs the request through the device callback and returns the response's
// output arguments by name; empty when the action failed.
inline std::map<std::string, std::string> runAction(UpnpActionRequest* request) {
  _dlnaDevCallbackEvHdl(UPNP_CONTROL_ACTION_REQUEST, request, nullptr);
  std::map<std::string, std::string> outputs;
  IXML_Document* result = UpnpActionRequest_get_ActionResult(request);
  if (!result || UpnpActionRequest_get_ErrCode(request) != 0) return outputs;
  IXML_Node* response = ixmlNode_getFirstChild(reinterpret_cast<IXML_Node*>(result));
  for (IXML_Node* arg = response ? ixmlNode_getFirstChild(response) : nullptr; arg;
       arg = ixmlNode_getNextSibling(arg)) {
    IXML_Node* text = ixmlNode_getFirstChild(arg);
    outputs[ixmlNode_getNodeName(arg)] = text ? ixmlNode_getNodeValue(text) : "";
  }
  return outputs;
}
