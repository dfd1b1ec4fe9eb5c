// The device interface: one root device served by the daemon's own web server
// (description, SOAP, GENA, files through the virtual directory's callbacks)
// and announced by libupnp's SSDP, which fetches the description from it.
#include "stack/upnp_device.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include <upnp/upnptools.h>

#include "platform/log.h"
#include "stack/gena.h"
#include "stack/web_server.h"

namespace {

constexpr char kLogSource[] = "upnp_device";
constexpr int kDeviceHandle = 1;  // the one device this stack registers

struct Device {
  bool registered = false;
  Upnp_FunPtr callback = nullptr;
  const void* cookie = nullptr;
  std::string ip;
  std::string ifName;
  uint16_t port = 0;
  int maxAge = 1800;
  std::string vdir;
  const DlnaVirtualDirCallbacks* files = nullptr;
  bool initialised = false;  // the web server runs
  bool stackUp = false;      // libupnp is initialised
};

Device g_device;  // changed on the main thread only, while the stack is down
std::atomic<UpnpDevice_Handle> g_upnpHandle{-1};

std::mutex g_uuidMutex;
std::string g_uuidFile = "/var/tmp/dms.uuid";
std::string g_uuid;

bool isUuid(const std::string& text) {
  if (text.size() != 36) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    if (dash ? text[i] != '-' : !isxdigit(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

std::string newUuid() {
  unsigned char b[16] = {};
  int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  bool ok = fd >= 0 && read(fd, b, sizeof b) == static_cast<ssize_t>(sizeof b);
  if (fd >= 0) close(fd);
  if (!ok) return "";
  b[6] = (b[6] & 0x0F) | 0x40;  // version 4, random
  b[8] = (b[8] & 0x3F) | 0x80;
  char text[37];
  snprintf(text, sizeof text,
           "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[0], b[1], b[2],
           b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return text;
}

// The kept UUID, or a new one written to the state file. Holds g_uuidMutex.
const std::string& loadUuid() {
  if (!g_uuid.empty()) return g_uuid;
  if (FILE* file = fopen(g_uuidFile.c_str(), "r")) {
    char line[64] = {};
    if (fgets(line, sizeof line, file)) {
      std::string text(line);
      while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
      if (isUuid(text)) g_uuid = text;
    }
    fclose(file);
  }
  if (!g_uuid.empty()) return g_uuid;
  g_uuid = newUuid();
  std::string tmp = g_uuidFile + ".tmp";
  FILE* file = fopen(tmp.c_str(), "w");
  bool saved = file && fprintf(file, "%s\n", g_uuid.c_str()) > 0;
  if (file) saved = fclose(file) == 0 && saved;
  if (!saved || rename(tmp.c_str(), g_uuidFile.c_str()) != 0) {
    unlink(tmp.c_str());
    DMS_LOG(kLogEvent, "cannot keep the device UUID in %s; it changes with the next start",
            g_uuidFile.c_str());
  }
  return g_uuid;
}

// A configured text may carry a bare '&' into the description, which the
// stack's parser refuses outright; the device must come up all the same.
std::string escapeBareAmpersands(const char* text, size_t length) {
  std::string out;
  out.reserve(length + 16);
  for (size_t i = 0; i < length; ++i) {
    out.push_back(text[i]);
    if (text[i] != '&') continue;
    size_t j = i + 1;
    if (j < length && text[j] == '#') ++j;
    while (j < length && isalnum(static_cast<unsigned char>(text[j]))) ++j;
    if (j == i + 1 || j >= length || text[j] != ';') out += "amp;";
  }
  return out;
}

// The IPv4 address to serve on: the interface's own when it exists (as the
// UPnP stack would pick), else the configured one, else loopback for "lo",
// else the first address of an interface that is up.
std::string serveAddress() {
  const Device& d = g_device;
  std::string found;
  std::string firstUp;
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) == 0) {
    for (ifaddrs* i = list; i; i = i->ifa_next) {
      if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET) continue;
      char text[INET_ADDRSTRLEN] = {};
      inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr, text, sizeof text);
      if (found.empty() && !d.ifName.empty() && d.ifName != "lo" && d.ifName == i->ifa_name)
        found = text;
      if (firstUp.empty() && (i->ifa_flags & IFF_UP) && !(i->ifa_flags & IFF_LOOPBACK))
        firstUp = text;
    }
    freeifaddrs(list);
  }
  if (!found.empty()) return found;
  if (!d.ip.empty()) return d.ip;
  if (d.ifName == "lo" || firstUp.empty()) return "127.0.0.1";
  return firstUp;
}

// libupnp keeps SSDP only: it is told the served address, and its own
// listener (on a port of its choosing) serves no documents and grants no
// subscription.
int initStack(const std::string& ip) {
  // libupnp takes no port below 49152 and does not look past a taken one, and
  // the first it would try is usually ours: find it a free one from there.
  uint16_t port = 0;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  if (inet_pton(AF_INET, ip.c_str(), &address.sin_addr) != 1) return UPNP_E_INVALID_PARAM;
  for (uint16_t candidate = 49152; port == 0 && candidate < 49152 + 512; ++candidate) {
    int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe < 0) break;
    address.sin_port = htons(candidate);
    if (bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) port = candidate;
    close(probe);
  }
  int rc = UpnpInit(ip.c_str(), port);
  if (rc == UPNP_E_SUCCESS) rc = UpnpEnableWebserver(0);
  return rc;
}

// The device answers only on the web server; what reaches libupnp's own
// listener is refused.
int refuseOnStackListener(Upnp_EventType type, const void* event, void*) {
  void* record = const_cast<void*>(event);
  if (!record) return 0;
  if (type == UPNP_CONTROL_ACTION_REQUEST) {
    auto* request = static_cast<UpnpActionRequest*>(record);
    UpnpActionRequest_set_ErrCode(request, 401);
    UpnpActionRequest_strcpy_ErrStr(request, "Invalid Action");
  } else if (type == UPNP_CONTROL_GET_VAR_REQUEST) {
    auto* request = static_cast<UpnpStateVarRequest*>(record);
    UpnpStateVarRequest_set_ErrCode(request, 404);
    UpnpStateVarRequest_strcpy_ErrStr(request, "Invalid Variable");
  }
  return 0;
}

// The description as served: bare '&' escaped, and with configBaseUrl the
// URLBase of the server.
std::string servedDescription(const char* description, size_t length, int configBaseUrl,
                              const std::string& base) {
  std::string desc = escapeBareAmpersands(description, length ? length : strlen(description));
  size_t end = desc.rfind("</root>");
  if (configBaseUrl && end != std::string::npos && desc.find("<URLBase>") == std::string::npos)
    desc.insert(end, "<URLBase>" + base + "</URLBase>");
  return desc;
}

}  // namespace

void UpnpDeviceSetUuidFile(const char* path) {
  std::lock_guard lock(g_uuidMutex);
  g_uuidFile = path ? path : "";
  g_uuid.clear();
}

int UpnpDeviceGetUUID(int device, int instance, char* uuid) {
  if (!uuid) return -1;
  uuid[0] = '\0';
  if (device != 1 || instance != 1) return -1;
  std::lock_guard lock(g_uuidMutex);
  const std::string& text = loadUuid();
  if (text.empty()) return -1;
  snprintf(uuid, kUpnpUuidSize, "%s", text.c_str());
  return 0;
}

int UpnpDeviceReg(int* handle, const char* name, Upnp_FunPtr callback, const void* cookie) {
  if (!handle || !callback || g_device.registered) return UPNP_E_INVALID_PARAM;
  (void)name;  // the description carries the name
  g_device.registered = true;
  g_device.callback = callback;
  g_device.cookie = cookie;
  *handle = kDeviceHandle;
  return UPNP_E_SUCCESS;
}

int UpnpDeviceSetServerSocketInfo(int handle, const char* ip, const char* ipv6Lla,
                                  const char* ifName, uint16_t port, int flags) {
  if (handle != kDeviceHandle || !g_device.registered) return UPNP_E_INVALID_HANDLE;
  (void)ipv6Lla;  // served over IPv4 only
  (void)flags;
  g_device.ip = ip ? ip : "";
  g_device.ifName = ifName ? ifName : "";
  g_device.port = port;
  return UPNP_E_SUCCESS;
}

int UpnpDeviceSetAdPara(int handle, int maxAge, int repeat) {
  if (handle != kDeviceHandle || !g_device.registered) return UPNP_E_INVALID_HANDLE;
  if (maxAge <= 0 || repeat <= 0) return UPNP_E_INVALID_PARAM;
  // libupnp sends each SSDP message a fixed number of times; only the expiry is ours.
  g_device.maxAge = maxAge;
  return UPNP_E_SUCCESS;
}

int UpnpDeviceSetVDirAndCallbacks(const char* dir, const DlnaVirtualDirCallbacks* callbacks) {
  if (!dir || dir[0] != '/' || !callbacks) return UPNP_E_INVALID_PARAM;
  g_device.vdir = dir;
  g_device.files = callbacks;
  return UPNP_E_SUCCESS;
}

int UpnpDeviceStart2(int handle, int descType, const char* description, size_t length,
                     int configBaseUrl) {
  if (handle != kDeviceHandle || !g_device.registered) return UPNP_E_INVALID_HANDLE;
  if (descType != UPNPREG_BUF_DESC || !description) return UPNP_E_INVALID_PARAM;
  if (g_device.initialised) return UPNP_E_INIT;
  const std::string ip = serveAddress();
  if (WebServerStart(ip.c_str(), g_device.port, g_device.files,
                     {g_device.callback, g_device.cookie}) != 0)
    return UPNP_E_SOCKET_BIND;
  g_device.initialised = true;
  const std::string base = "http://" + ip + ":" + std::to_string(WebServerPort()) + "/";
  int rc = UPNP_E_SUCCESS;
  if (WebServerSetDescription(servedDescription(description, length, configBaseUrl, base)) != 0)
    rc = UPNP_E_INVALID_DESC;
  if (rc == UPNP_E_SUCCESS) rc = initStack(ip);
  if (rc == UPNP_E_SUCCESS) g_device.stackUp = true;
  // libupnp fetches the description from the web server and announces its URL.
  const std::string descUrl = base + (kWebDescriptionPath + 1);
  UpnpDevice_Handle upnpHandle = -1;
  if (rc == UPNP_E_SUCCESS)
    rc = UpnpRegisterRootDevice(descUrl.c_str(), refuseOnStackListener, nullptr, &upnpHandle);
  if (rc == UPNP_E_SUCCESS) {
    g_upnpHandle = upnpHandle;
    rc = UpnpSetMaxSubscriptions(upnpHandle, 0);
  }
  if (rc == UPNP_E_SUCCESS) rc = UpnpSendAdvertisement(upnpHandle, g_device.maxAge);
  if (rc != UPNP_E_SUCCESS) {
    DMS_LOG(kLogFailure, "cannot start the device on %s: %s", ip.c_str(), UpnpGetErrorMessage(rc));
    UpnpDeviceStop(handle);
    return rc;
  }
  DMS_LOG(kLogEvent, "device at %s", descUrl.c_str());
  return UPNP_E_SUCCESS;
}

int UpnpDeviceGetServerAddress(char* ip, size_t ipSize, uint16_t* port) {
  if (!g_device.initialised || !ip || !port || WebServerPort() == 0) return -1;
  snprintf(ip, ipSize, "%s", serveAddress().c_str());
  *port = WebServerPort();
  return 0;
}

int UpnpDeviceStop(int handle) {
  if (handle != kDeviceHandle) return UPNP_E_INVALID_HANDLE;
  if (!g_device.initialised) return UPNP_E_FINISH;
  UpnpDevice_Handle upnpHandle = g_upnpHandle.exchange(-1);
  if (upnpHandle >= 0) UpnpUnRegisterRootDevice(upnpHandle);  // says byebye
  if (g_device.stackUp) UpnpFinish();
  WebServerStop();
  g_device.stackUp = false;
  g_device.initialised = false;
  return UPNP_E_SUCCESS;
}

int UpnpDeviceUnReg(int handle) {
  if (handle != kDeviceHandle || !g_device.registered) return UPNP_E_INVALID_HANDLE;
  g_device = Device();
  return UPNP_E_SUCCESS;
}

int UpnpDeviceAcceptSubscription(int handle, const char* udn, const char* serviceId,
                                 const char** names, const char** values, int count,
                                 const char* sid) {
  (void)udn;  // one device: its services' ids are enough
  if (handle != kDeviceHandle || !g_device.initialised) return UPNP_E_INVALID_HANDLE;
  return GenaAccept(serviceId, sid, names, values, count) == 0 ? UPNP_E_SUCCESS
                                                               : UPNP_E_BAD_REQUEST;
}

int UpnpDeviceNotify(int handle, const char* udn, const char* serviceId, const char** names,
                     const char** values, int count) {
  (void)udn;
  if (handle != kDeviceHandle || !g_device.initialised) return UPNP_E_INVALID_HANDLE;
  return GenaNotify(serviceId, names, values, count) == 0 ? UPNP_E_SUCCESS : UPNP_E_INVALID_PARAM;
}

// Control bodies are bounded by the web server with the limit the daemon
// gives the stack (linked with --wrap=UpnpSetMaxContentLength).
extern "C" int __real_UpnpSetMaxContentLength(size_t contentLength);
extern "C" int __wrap_UpnpSetMaxContentLength(size_t contentLength) {
  WebServerSetMaxBody(contentLength);
  return __real_UpnpSetMaxContentLength(contentLength);
}
