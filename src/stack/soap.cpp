// The control body is parsed by ixml only after a linear scan has bounded its
// nesting, so a hostile envelope costs one pass over at most the body limit.
// The records handed to the device callback are the stack's own; what the
// callback leaves in them becomes the answer or the fault.
#include "stack/soap.h"

#include <upnp/ixml.h>

#include <cstring>
#include <memory>

#include "stack/ixml_print.h"
#include "stack/xml_text.h"

namespace {

constexpr char kEnvelopeStart[] =
    "<?xml version=\"1.0\"?>\r\n"
    "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
    "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>\r\n";
constexpr char kEnvelopeEnd[] = "</s:Body></s:Envelope>\r\n";
constexpr char kControlNs[] = "urn:schemas-upnp-org:control-1-0";

constexpr int kInvalidAction = 401;
constexpr int kInvalidArgs = 402;
constexpr int kActionFailed = 501;

SoapAnswer fault(int code, const char* description) {
  std::string body = kEnvelopeStart;
  body +=
      "<s:Fault><faultcode>s:Client</faultcode><faultstring>UPnPError</faultstring><detail>"
      "<UPnPError xmlns=\"urn:schemas-upnp-org:control-1-0\"><errorCode>";
  body += std::to_string(code);
  body += "</errorCode><errorDescription>";
  AppendXmlText(body, description ? description : "");
  body += "</errorDescription></UPnPError></detail></s:Fault>";
  body += kEnvelopeEnd;
  return SoapAnswer(500, std::move(body));
}

const char* localName(IXML_Node* node) {
  const char* local = ixmlNode_getLocalName(node);
  if (local) return local;
  const char* name = ixmlNode_getNodeName(node);
  const char* colon = name ? strchr(name, ':') : nullptr;
  return colon ? colon + 1 : name;
}

IXML_Node* firstElement(IXML_Node* parent) {
  for (IXML_Node* n = parent ? ixmlNode_getFirstChild(parent) : nullptr; n;
       n = ixmlNode_getNextSibling(n))
    if (ixmlNode_getNodeType(n) == eELEMENT_NODE) return n;
  return nullptr;
}

// The element child with local name `name`, or null.
IXML_Node* childNamed(IXML_Node* parent, const char* name) {
  for (IXML_Node* n = firstElement(parent); n; n = ixmlNode_getNextSibling(n)) {
    const char* local = ixmlNode_getNodeType(n) == eELEMENT_NODE ? localName(n) : nullptr;
    if (local && strcmp(local, name) == 0) return n;
  }
  return nullptr;
}

// The action element of an envelope: Envelope / Body / first element.
IXML_Node* actionNode(IXML_Document* doc) {
  IXML_Node* envelope = firstElement(reinterpret_cast<IXML_Node*>(doc));
  if (!envelope || strcmp(localName(envelope), "Envelope") != 0) return nullptr;
  return firstElement(childNamed(envelope, "Body"));
}

// The action name a SOAPACTION value ends with: "urn:...:1#Browse", quoted or not.
std::string headerActionName(const char* soapAction) {
  std::string text(soapAction);
  size_t hash = text.rfind('#');
  if (hash == std::string::npos) return "";
  std::string name = text.substr(hash + 1);
  while (!name.empty() && (name.back() == '"' || name.back() == ' ')) name.pop_back();
  return name;
}

struct DocFree {
  void operator()(IXML_Document* doc) const { ixmlDocument_free(doc); }
};
using DocPtr = std::unique_ptr<IXML_Document, DocFree>;

sockaddr_storage clientAddress(const SoapTarget& target) {
  sockaddr_storage address = {};
  memcpy(&address, &target.client, sizeof target.client);
  return address;
}

SoapAnswer queryVariable(IXML_Node* action, const SoapTarget& target) {
  IXML_Node* varName = childNamed(action, "varName");
  IXML_Node* text = varName ? ixmlNode_getFirstChild(varName) : nullptr;
  const char* name = text ? ixmlNode_getNodeValue(text) : nullptr;
  if (!name) return fault(kInvalidArgs, "Invalid Args");
  UpnpStateVarRequest* request = UpnpStateVarRequest_new();
  if (!request) return fault(kActionFailed, "Action Failed");
  sockaddr_storage address = clientAddress(target);
  UpnpStateVarRequest_set_ErrCode(request, 0);
  UpnpStateVarRequest_strcpy_DevUDN(request, target.udn);
  UpnpStateVarRequest_strcpy_ServiceID(request, target.serviceId);
  UpnpStateVarRequest_strcpy_StateVarName(request, name);
  UpnpStateVarRequest_set_CtrlPtIPAddr(request, &address);
  target.callback(UPNP_CONTROL_GET_VAR_REQUEST, request, const_cast<void*>(target.cookie));
  SoapAnswer answer;
  const char* value = UpnpStateVarRequest_get_CurrentVal(request);
  if (UpnpStateVarRequest_get_ErrCode(request) != 0 || !value) {
    int code = UpnpStateVarRequest_get_ErrCode(request);
    answer = fault(code ? code : kActionFailed, UpnpStateVarRequest_get_ErrStr_cstr(request));
  } else {
    std::string body = kEnvelopeStart;
    body += "<u:QueryStateVariableResponse xmlns:u=\"";
    body += kControlNs;
    body += "\"><return>";
    AppendXmlText(body, value);
    body += "</return></u:QueryStateVariableResponse>";
    body += kEnvelopeEnd;
    answer = SoapAnswer(200, std::move(body));
  }
  UpnpStateVarRequest_delete(request);
  return answer;
}

SoapAnswer runAction(IXML_Node* action, const char* name, const SoapTarget& target) {
  // The handlers read their arguments from a document whose first child is
  // the action element.
  IXML_Document* copy = nullptr;
  IXML_Node* imported = nullptr;
  if (ixmlDocument_createDocumentEx(&copy) != IXML_SUCCESS) return fault(kActionFailed, "");
  DocPtr request(copy);
  if (ixmlDocument_importNode(copy, action, 1, &imported) != IXML_SUCCESS ||
      ixmlNode_appendChild(reinterpret_cast<IXML_Node*>(copy), imported) != IXML_SUCCESS) {
    if (imported) ixmlNode_free(imported);
    return fault(kActionFailed, "Action Failed");
  }
  UpnpActionRequest* record = UpnpActionRequest_new();
  if (!record) return fault(kActionFailed, "Action Failed");
  sockaddr_storage address = clientAddress(target);
  UpnpActionRequest_set_ErrCode(record, 0);
  UpnpActionRequest_strcpy_ActionName(record, name);
  UpnpActionRequest_strcpy_DevUDN(record, target.udn);
  UpnpActionRequest_strcpy_ServiceID(record, target.serviceId);
  UpnpActionRequest_set_ActionRequest(record, copy);
  UpnpActionRequest_set_CtrlPtIPAddr(record, &address);
  target.callback(UPNP_CONTROL_ACTION_REQUEST, record, const_cast<void*>(target.cookie));

  DocPtr result(UpnpActionRequest_get_ActionResult(record));
  SoapAnswer answer;
  int code = UpnpActionRequest_get_ErrCode(record);
  if (code != 0 || !result) {
    answer = fault(code ? code : kActionFailed,
                   code ? UpnpActionRequest_get_ErrStr_cstr(record) : "Action Failed");
  } else {
    answer = SoapAnswer(200, kEnvelopeStart);
    answer.printed = ixmlPrintNode(reinterpret_cast<IXML_Node*>(result.get()));
    answer.tail = kEnvelopeEnd;
  }
  UpnpActionRequest_set_ActionRequest(record, nullptr);
  UpnpActionRequest_set_ActionResult(record, nullptr);
  UpnpActionRequest_delete(record);
  return answer;
}

// Skips a comment, CDATA section, declaration or processing instruction that
// starts at text[i] ("<!" or "<?"); the index after it, or length.
size_t skipMarkup(const char* text, size_t length, size_t i) {
  const char* end = nullptr;
  const char* rest = text + i;
  size_t left = length - i;
  auto find = [&](const char* needle) {
    size_t n = strlen(needle);
    for (size_t k = 0; k + n <= left; ++k)
      if (memcmp(rest + k, needle, n) == 0) return rest + k + n;
    return static_cast<const char*>(nullptr);
  };
  if (left >= 4 && memcmp(rest, "<!--", 4) == 0)
    end = find("-->");
  else if (left >= 9 && memcmp(rest, "<![CDATA[", 9) == 0)
    end = find("]]>");
  else
    end = find(">");
  return end ? static_cast<size_t>(end - text) : length;
}

}  // namespace

SoapAnswer& SoapAnswer::operator=(SoapAnswer&& other) noexcept {
  if (this == &other) return *this;
  ixmlFreeDOMString(printed);
  status = other.status;
  head = std::move(other.head);
  printed = std::exchange(other.printed, nullptr);
  tail = std::move(other.tail);
  return *this;
}

SoapAnswer::~SoapAnswer() {
  ixmlFreeDOMString(printed);
}

size_t SoapAnswer::size() const {
  return head.size() + (printed ? strlen(printed) : 0) + tail.size();
}

bool SoapDepthWithin(const char* text, size_t length, int maxDepth) {
  int depth = 0;
  size_t i = 0;
  while (i < length) {
    const char* open = static_cast<const char*>(memchr(text + i, '<', length - i));
    if (!open) break;
    i = static_cast<size_t>(open - text);
    if (i + 1 < length && (text[i + 1] == '!' || text[i + 1] == '?')) {
      i = skipMarkup(text, length, i);
      continue;
    }
    const bool closing = i + 1 < length && text[i + 1] == '/';
    // The tag ends at the first '>' outside a quoted attribute value.
    char quote = 0;
    size_t j = i + 1;
    for (; j < length; ++j) {
      char c = text[j];
      if (quote) {
        if (c == quote) quote = 0;
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (c == '>') {
        break;
      }
    }
    if (closing) {
      --depth;
    } else if (!(j < length && j > i + 1 && text[j - 1] == '/')) {
      if (++depth > maxDepth) return false;
    }
    i = j + 1;
  }
  return true;
}

SoapAnswer SoapHandle(const std::string& body, const char* soapAction, const SoapTarget& target) {
  if (!target.callback) return fault(kActionFailed, "Action Failed");
  if (!SoapDepthWithin(body.data(), body.size(), kSoapMaxDepth)) return {400, ""};
  IXML_Document* parsed = nullptr;
  if (ixmlParseBufferEx(body.c_str(), &parsed) != IXML_SUCCESS || !parsed) return {400, ""};
  DocPtr doc(parsed);
  IXML_Node* action = actionNode(doc.get());
  if (!action) return {400, ""};
  const char* name = localName(action);
  const char* ns = ixmlNode_getNamespaceURI(action);
  if (!name) return {400, ""};
  if (strcmp(name, "QueryStateVariable") == 0 && ns && strcmp(ns, kControlNs) == 0)
    return queryVariable(action, target);
  // The header and the body must name the same action of this service.
  // The service is the control URL's; the header must name the body's action.
  if (!soapAction || headerActionName(soapAction) != name)
    return fault(kInvalidAction, "Invalid Action");
  return runAction(action, name, target);
}
