// ContentDirectory, ConnectionManager and registrar actions as a control point
// sees them: through the device callback, with the response's arguments in order.
#include <gtest/gtest.h>
#include <upnp/ixml.h>

#include <string>

#include "fakes/fake_upnp_device.h"
#include "upnp/service.h"
#include "upnp/state_var.h"

namespace {

std::string serviceType(const std::string& serviceId) {
  if (serviceId == kCdsServiceId) return "urn:schemas-upnp-org:service:ContentDirectory:1";
  if (serviceId == kCmsServiceId) return "urn:schemas-upnp-org:service:ConnectionManager:1";
  return "urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1";
}

// Runs the action on this device: its output arguments as "Name=value|...", or
// "-" when it left no response, as a failed action does.
std::string answer(const char* serviceId, const char* action, const std::string& args) {
  std::string body = std::string("<u:") + action + ">" + args + "</u:" + action + ">";
  UpnpActionRequest* request = UpnpActionRequest_new();
  UpnpActionRequest_strcpy_ServiceID(request, serviceId);
  UpnpActionRequest_strcpy_ActionName(request, action);
  UpnpActionRequest_strcpy_DevUDN(request, (std::string("uuid:") + kFakeUuid).c_str());
  UpnpActionRequest_set_ActionRequest(request, ixmlParseBuffer(body.c_str()));
  _dlnaDevCallbackEvHdl(UPNP_CONTROL_ACTION_REQUEST, request, nullptr);

  EXPECT_EQ(UpnpActionRequest_get_ErrCode(request), 0);
  EXPECT_STREQ(UpnpActionRequest_get_ErrStr_cstr(request), "");
  IXML_Document* result = UpnpActionRequest_get_ActionResult(request);
  IXML_Node* element = ixmlNode_getFirstChild(reinterpret_cast<IXML_Node*>(result));
  std::string outputs = element ? "" : "-";
  if (element) {
    EXPECT_EQ(ixmlNode_getNodeName(element), std::string("u:") + action + "Response");
    const char* xmlns =
        ixmlElement_getAttribute(reinterpret_cast<IXML_Element*>(element), "xmlns:u");
    EXPECT_EQ(xmlns ? xmlns : "", serviceType(serviceId));
    for (IXML_Node* arg = ixmlNode_getFirstChild(element); arg;
         arg = ixmlNode_getNextSibling(arg)) {
      IXML_Node* text = ixmlNode_getFirstChild(arg);
      outputs += std::string(outputs.empty() ? "" : "|") + ixmlNode_getNodeName(arg) + "=" +
                 (text ? ixmlNode_getNodeValue(text) : "");
    }
  }
  ixmlDocument_free(result);
  ixmlDocument_free(UpnpActionRequest_get_ActionRequest(request));
  UpnpActionRequest_delete(request);
  return outputs;
}

TEST(Services, AnswersInOrder) {
  dlnaInitVarValue();
  const std::string protocols = "http-get:*:audio/mpeg:DLNA.ORG_PN=MP3,http-get:*:image/jpeg:*";
  dlnaSetVarValue(kCmsServiceId, "SourceProtocolInfo", protocols.c_str());
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", 42);
  struct Case {
    const char* serviceId;
    const char* action;
    const char* args;
    std::string outputs;
  };
  const Case cases[] = {
      {kCdsServiceId, "GetSearchCapabilities", "",
       "SearchCaps=dc:title,upnp:class,res@protocolInfo"},
      {kCdsServiceId, "GetSortCapabilities", "", "SortCaps="},
      {kCdsServiceId, "GetSystemUpdateID", "", "Id=42"},
      {kCdsServiceId, "Browse", "<ObjectID>0</ObjectID><BrowseFlag>BrowseMetadata</BrowseFlag>",
       "-"},
      {kCdsServiceId, "Search", "<ContainerID>0</ContainerID><SearchCriteria>*</SearchCriteria>",
       "-"},
      {kCmsServiceId, "GetProtocolInfo", "", "Source=" + protocols + "|Sink="},
      {kCmsServiceId, "GetCurrentConnectionIDs", "", "ConnectionIDs=0"},
      {kCmsServiceId, "GetCurrentConnectionInfo", "<ConnectionID>5</ConnectionID>",
       "RcsID=-1|AVTransportID=-1|ProtocolInfo=|PeerConnectionManager=|PeerConnectionID=-1|"
       "Direction=Output|Status=OK"},
      {kMsrServiceId, "IsAuthorized", "<DeviceID>x</DeviceID>", "Result=1"},
      {kMsrServiceId, "IsValidated", "<DeviceID>x</DeviceID>", "Result=0"},
      {kMsrServiceId, "RegisterDevice", "<RegistrationReqMsg>abc</RegistrationReqMsg>", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.action);
    EXPECT_EQ(answer(c.serviceId, c.action, c.args), c.outputs);
  }
  dlnaFreeVarValue();
  fakeClearNotifications();
}

}  // namespace
