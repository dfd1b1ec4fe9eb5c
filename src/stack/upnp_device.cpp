// The device interface over libupnp: one root device whose description lives
// in memory, advertised by SSDP, with SOAP and GENA handled by the library and
// files under the virtual directory served through the daemon's callbacks.
#include "stack/upnp_device.h"

#include <fcntl.h>
#include <net/if.h>
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
#include "stack/media_server.h"

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
  bool initialised = false;
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

// The virtual directory's callbacks see paths without the query string.
std::string withoutQuery(const char* path) {
  std::string text(path ? path : "");
  size_t query = text.find('?');
  if (query != std::string::npos) text.resize(query);
  return text;
}

int vdGetInfo(const char* filename, UpnpFileInfo* info, const void*) {
  const DlnaVirtualDirCallbacks* files = g_device.files;
  if (!files || !files->get_info) return -1;
  DlnaFileInfo fi = {};
  if (files->get_info(withoutQuery(filename).c_str(), &fi) != 0) {
    free(fi.content_type);
    return -1;
  }
  UpnpFileInfo_set_FileLength(info, static_cast<off_t>(fi.file_length));
  UpnpFileInfo_set_LastModified(info, fi.last_modified);
  UpnpFileInfo_set_IsDirectory(info, fi.is_directory);
  UpnpFileInfo_set_IsReadable(info, fi.is_readable);
  UpnpFileInfo_set_ContentType(info, fi.content_type ? fi.content_type : "");
  free(fi.content_type);
  return 0;
}

UpnpWebFileHandle vdOpen(const char* filename, enum UpnpOpenFileMode mode, const void*) {
  const DlnaVirtualDirCallbacks* files = g_device.files;
  if (!files || !files->open) return nullptr;
  return files->open(withoutQuery(filename).c_str(), mode == UPNP_READ ? 0 : 1);
}

int vdRead(UpnpWebFileHandle file, char* buf, size_t length, const void*) {
  const DlnaVirtualDirCallbacks* files = g_device.files;
  return files && files->read ? files->read(file, buf, length) : -1;
}

int vdWrite(UpnpWebFileHandle file, char* buf, size_t length, const void*) {
  const DlnaVirtualDirCallbacks* files = g_device.files;
  return files && files->write ? files->write(file, buf, length) : -1;
}

int vdSeek(UpnpWebFileHandle file, off_t offset, int origin, const void*) {
  const DlnaVirtualDirCallbacks* files = g_device.files;
  return files && files->seek ? files->seek(file, offset, origin) : -1;
}

int vdClose(UpnpWebFileHandle file, const void*) {
  const DlnaVirtualDirCallbacks* files = g_device.files;
  return files && files->close ? files->close(file) : -1;
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

// Media go on the port after the UPnP port; 0 (and 65535, which has no next
// port) lets the system choose.
uint16_t mediaPort(uint16_t upnpPort) {
  return upnpPort == 0 || upnpPort == 65535 ? 0 : static_cast<uint16_t>(upnpPort + 1);
}

// libupnp refuses loopback in UpnpInit2, so an interface that is missing or
// is "lo" goes by address.
int initStack() {
  const Device& d = g_device;
  int rc = UPNP_E_INVALID_INTERFACE;
  if (!d.ifName.empty() && d.ifName != "lo" && if_nametoindex(d.ifName.c_str()) != 0)
    rc = UpnpInit2(d.ifName.c_str(), d.port);
  if (rc != UPNP_E_SUCCESS) {
    const char* ip = d.ip.empty() ? (d.ifName == "lo" ? "127.0.0.1" : nullptr) : d.ip.c_str();
    rc = UpnpInit(ip, d.port);
  }
  return rc;
}

int addVirtualDir() {
  if (g_device.vdir.empty()) return UPNP_E_SUCCESS;
  int rc = UpnpAddVirtualDir(g_device.vdir.c_str(), nullptr, nullptr);
  if (rc == UPNP_E_SUCCESS) rc = UpnpVirtualDir_set_GetInfoCallback(vdGetInfo);
  if (rc == UPNP_E_SUCCESS) rc = UpnpVirtualDir_set_OpenCallback(vdOpen);
  if (rc == UPNP_E_SUCCESS) rc = UpnpVirtualDir_set_ReadCallback(vdRead);
  if (rc == UPNP_E_SUCCESS) rc = UpnpVirtualDir_set_WriteCallback(vdWrite);
  if (rc == UPNP_E_SUCCESS) rc = UpnpVirtualDir_set_SeekCallback(vdSeek);
  if (rc == UPNP_E_SUCCESS) rc = UpnpVirtualDir_set_CloseCallback(vdClose);
  return rc;
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
  int rc = initStack();
  if (rc != UPNP_E_SUCCESS) {
    DMS_LOG(kLogFailure, "cannot start the UPnP stack on %s %s port %u: %s",
            g_device.ifName.c_str(), g_device.ip.c_str(), g_device.port, UpnpGetErrorMessage(rc));
    return rc;
  }
  g_device.initialised = true;
  UpnpDevice_Handle upnpHandle = -1;
  std::string desc = escapeBareAmpersands(description, length ? length : strlen(description));
  rc = addVirtualDir();
  if (rc == UPNP_E_SUCCESS)
    rc = UpnpRegisterRootDevice2(UPNPREG_BUF_DESC, desc.c_str(), desc.size(), configBaseUrl,
                                 g_device.callback, g_device.cookie, &upnpHandle);
  if (rc == UPNP_E_SUCCESS) {
    g_upnpHandle = upnpHandle;
    rc = UpnpSendAdvertisement(upnpHandle, g_device.maxAge);
  }
  if (rc == UPNP_E_SUCCESS && g_device.files &&
      MediaServerStart(UpnpGetServerIpAddress(), mediaPort(g_device.port), g_device.files) != 0)
    rc = UPNP_E_SOCKET_BIND;
  if (rc != UPNP_E_SUCCESS) {
    DMS_LOG(kLogFailure, "cannot register the device: %s", UpnpGetErrorMessage(rc));
    UpnpDeviceStop(handle);
    return rc;
  }
  DMS_LOG(kLogEvent, "device at http://%s:%u/description.xml", UpnpGetServerIpAddress(),
          UpnpGetServerPort());
  return UPNP_E_SUCCESS;
}

int UpnpDeviceGetServerAddress(char* ip, size_t ipSize, uint16_t* port) {
  if (!g_device.initialised || !ip || !port) return -1;
  const char* served = UpnpGetServerIpAddress();
  snprintf(ip, ipSize, "%s", served ? served : "");
  *port = UpnpGetServerPort();
  return 0;
}

int UpnpDeviceGetMediaServerAddress(char* ip, size_t ipSize, uint16_t* port) {
  if (!g_device.initialised || !ip || !port || MediaServerPort() == 0) return -1;
  const char* served = UpnpGetServerIpAddress();
  snprintf(ip, ipSize, "%s", served ? served : "");
  *port = MediaServerPort();
  return 0;
}

int UpnpDeviceStop(int handle) {
  if (handle != kDeviceHandle) return UPNP_E_INVALID_HANDLE;
  if (!g_device.initialised) return UPNP_E_FINISH;
  UpnpDevice_Handle upnpHandle = g_upnpHandle.exchange(-1);
  if (upnpHandle >= 0) UpnpUnRegisterRootDevice(upnpHandle);  // says byebye
  UpnpFinish();
  MediaServerStop();
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
  UpnpDevice_Handle upnpHandle = g_upnpHandle;
  if (handle != kDeviceHandle || upnpHandle < 0) return UPNP_E_INVALID_HANDLE;
  return UpnpAcceptSubscription(upnpHandle, udn, serviceId, names, values, count, sid);
}

int UpnpDeviceNotify(int handle, const char* udn, const char* serviceId, const char** names,
                     const char** values, int count) {
  UpnpDevice_Handle upnpHandle = g_upnpHandle;
  if (handle != kDeviceHandle || upnpHandle < 0) return UPNP_E_INVALID_HANDLE;
  return UpnpNotify(upnpHandle, udn, serviceId, names, values, count);
}
