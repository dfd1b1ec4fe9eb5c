// DIDL-Lite writer: containers and items as Browse and Search publish them,
// with the res elements that point renderers at the media web server.
#include "services/didl.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "content/metadata.h"
#include "content/views.h"
#include "platform/alloc.h"
#include "platform/ctype.h"
#include "platform/decimal.h"
#include "profile/profile.h"
#include "services/xml_escape.h"

namespace {

constexpr char kNonDlna[] = "NON-DLNA";
constexpr char kWebRoot[] = "/web";
// Flags 0x00f00000 as eight hex digits, then 24 zero digits.
constexpr char kThumbnailProtocol[] =
    "http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_TN; DLNA.ORG_FLAGS=00f00000000000000000000000000000";
// The plain protocolInfo is cut to the length of its fixed buffer.
constexpr size_t kMaxProtocolText = 255;

struct UbFree {
  void operator()(void* p) const { RetUB(p); }
};
using UbText = std::unique_ptr<char, UbFree>;

bool wanted(const char* filter, const char* name) {
  if (!filter) return false;
  return strcmp(filter, "*") == 0 || _dlnaFilterHasVal(filter, name) != 0;
}

bool contains(const char* text, const char* part) {
  return strstr(text, part) != nullptr;
}

// A file-system name as UTF-8 for a title; the name itself when it does not convert.
std::string displayName(const std::string& name) {
  std::string out;
  if (ctypeConvertStr(kCtypeDetect, kCtypeUtf8, name, out)) return out;
  return name;
}

void addParentId(TextBuffer* buffer, const char* id) {
  char parent[336] = {};
  if (strlen(id) >= sizeof(parent)) return;
  _dlnaGetPid(parent, id);
  _dlnaDidlAddParam(buffer, "parentID", parent);
}

// A group's name, "Unknown" for group 0; false when the group no longer exists.
bool groupName(uint16_t id, std::string& name) {
  if (id == 0) {
    name = "Unknown";
    return true;
  }
  DlnaEntry* group = dlnaGetEntry(&g_tDlnaInfo, id);
  if (!group) return false;
  name = group->title;
  return true;
}

void addGroupTag(TextBuffer* buffer, const char* filter, const char* tag, uint16_t id) {
  std::string name;
  if (wanted(filter, tag) && groupName(id, name)) _dlnaDidlAddTag(buffer, tag, name.c_str());
}

void addResolution(TextBuffer* buffer, const DlnaItemMedia& media, const char* filter) {
  if ((media.mediaClass == kDlnaClassVideo || media.mediaClass == kDlnaClassImage) &&
      wanted(filter, "@resolution")) {
    buffer->append(" resolution=\"");
    buffer->appendNumber(media.width);
    buffer->append("x");
    buffer->appendNumber(media.height);
    buffer->append("\"");
  }
}

void addSize(TextBuffer* buffer, const DlnaItemMedia& media, const char* filter) {
  if (wanted(filter, "@size")) {
    buffer->append(" size=\"");
    buffer->appendNumber(static_cast<long long>(media.fileSize));
    buffer->append("\"");
  }
}

void addDuration(TextBuffer* buffer, const DlnaItemMedia& media, const char* filter) {
  if (wanted(filter, "@duration")) _dlnaDidlAddParam(buffer, "duration", media.duration.c_str());
}

// ">http://address:port/web", where every res URL begins.
void appendServerUrl(TextBuffer* buffer) {
  buffer->append(">http://");
  buffer->append(g_tDlnaInfo.ip);
  buffer->append(":");
  buffer->appendNumber(g_tDlnaInfo.port);
  buffer->append(kWebRoot);
}

// The closing part of a res element: the URL of the item's bytes.
void closeRes(TextBuffer* buffer, const char* urlPath, const std::string& fileName) {
  appendServerUrl(buffer);
  buffer->append("/");
  buffer->append(urlPath);
  buffer->append("/");
  buffer->append(fileName);
  buffer->append("</res>");
}

void addProfiledRes(TextBuffer* buffer, const DlnaEntry& entry, const char* filter) {
  const DlnaItemMedia& media = *entry.media;
  const std::string protocol = dlnaWriteProtocolInfo(1, 1, &entry);
  buffer->append("<res");
  _dlnaDidlAddParam(buffer, "protocolInfo", protocol.c_str());
  addResolution(buffer, media, filter);
  if (media.mediaClass == kDlnaClassImage) {
    addSize(buffer, media, filter);
  } else {
    addDuration(buffer, media, filter);
    addSize(buffer, media, filter);
  }
  const char* suffix = media.mediaClass == kDlnaClassImage      ? "-FLAGS00f0000"
                       : strcmp(media.profileName, "LPCM") == 0 ? "-OP01"
                                                                : "-OP01-FLAGS0170000";
  std::string path = std::string("DLNA-PN") + media.profileName + suffix;
  closeRes(buffer, path.c_str(), entry.urlName);
}

void addPlainRes(TextBuffer* buffer, const DlnaEntry& entry, const char* protocol,
                 const char* filter) {
  const DlnaItemMedia& media = *entry.media;
  buffer->append("<res");
  _dlnaDidlAddParam(buffer, "protocolInfo", protocol);
  addResolution(buffer, media, filter);
  addSize(buffer, media, filter);
  if (media.mediaClass != kDlnaClassImage) addDuration(buffer, media, filter);
  closeRes(buffer, kNonDlna, entry.urlName);
}

void addAviAlias(TextBuffer* buffer, const DlnaEntry& entry, const char* protocol,
                 const char* filter) {
  const DlnaItemMedia& media = *entry.media;
  buffer->append("<res");
  _dlnaDidlAddParam(buffer, "protocolInfo", protocol);
  addSize(buffer, media, filter);
  if (media.mediaClass != kDlnaClassImage) addDuration(buffer, media, filter);
  closeRes(buffer, kNonDlna, entry.urlName);
}

void addResElements(TextBuffer* buffer, const DlnaEntry& entry, const char* filter) {
  const DlnaItemMedia& media = *entry.media;
  const bool profiled = media.profileName && strcmp(media.profileName, kNonDlna) != 0;
  if (profiled) addProfiledRes(buffer, entry, filter);

  if (contains(media.mime, "audio/L16")) {
    buffer->append("<res");
    _dlnaDidlAddParam(buffer, "protocolInfo", "http-get:*:audio/x-wav:*");
    addSize(buffer, media, filter);
    addDuration(buffer, media, filter);
    closeRes(buffer, kNonDlna, entry.urlName);
  } else {
    const bool video = contains(media.mime, "video/x-msvideo") || contains(media.mime, "video");
    std::string protocol =
        std::string("http-get:*:") + media.mime + (video ? ":DLNA.ORG_OP=01" : ":*");
    if (protocol.size() > kMaxProtocolText) protocol.resize(kMaxProtocolText);
    addPlainRes(buffer, entry, protocol.c_str(), filter);
  }

  if (contains(media.mime, "video/x-msvideo")) {
    addAviAlias(buffer, entry, "http-get:*:video/avi:DLNA.ORG_OP=01", filter);
    addAviAlias(buffer, entry, "http-get:*:video/msvideo:DLNA.ORG_OP=01", filter);
  }

  const bool visual = media.mediaClass == kDlnaClassVideo || media.mediaClass == kDlnaClassImage;
  if (visual && profiled && !contains(media.mime, "image/gif") &&
      !contains(media.mime, "image/png") && !contains(media.mime, "image/tiff") &&
      !contains(media.mime, "image/bmp") && contains(media.mime, "image/jpeg")) {
    buffer->append("<res");
    _dlnaDidlAddParam(buffer, "protocolInfo", kThumbnailProtocol);
    appendServerUrl(buffer);
    buffer->append(media.mediaClass == kDlnaClassImage ? "/tn/image/" : "/tn/video/");
    buffer->appendNumber(entry.id);
    buffer->append("</res>");
  }
}

}  // namespace

bool TextBuffer::appendf(const char* fmt, ...) {
  char area[1024];
  va_list args;
  va_start(args, fmt);
  int n = vsnprintf(area, sizeof(area), fmt, args);
  va_end(args);
  if (n < 0) return false;
  try {
    if (static_cast<size_t>(n) < sizeof(area)) {
      text_.append(area, static_cast<size_t>(n));
      return true;
    }
    // Long pieces are formatted a second time straight into the text.
    size_t old = text_.size();
    text_.resize(old + static_cast<size_t>(n) + 1);
    va_start(args, fmt);
    vsnprintf(&text_[old], static_cast<size_t>(n) + 1, fmt, args);
    va_end(args);
    text_.resize(old + static_cast<size_t>(n));
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool TextBuffer::append(const char* text) {
  return text && append(std::string_view(text));
}

bool TextBuffer::append(std::string_view text) {
  try {
    text_.append(text);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool TextBuffer::appendNumber(long long value, int width) {
  try {
    appendDecimal(text_, value, width);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void _dlnaDidlAddHeader(TextBuffer* buffer) {
  if (!buffer) return;
  buffer->appendf("<%s %s>", "DIDL-Lite",
                  "xmlns=\"urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/\" "
                  "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
                  "xmlns:upnp=\"urn:schemas-upnp-org:metadata-1-0/upnp/\" "
                  "xmlns:dlna=\"urn:schemas-dlna-org:metadata-1-0/\"");
}

void _dlnaDidlAddFooter(TextBuffer* buffer) {
  if (buffer) buffer->append("</DIDL-Lite>");
}

void _dlnaDidlAddParam(TextBuffer* buffer, const char* name, const char* value) {
  if (!buffer || !name || !value) return;
  buffer->append(" ");
  buffer->append(name);
  buffer->append("=\"");
  buffer->append(value);
  buffer->append("\"");
}

void _dlnaDidlAddTag(TextBuffer* buffer, const char* name, const char* value) {
  if (!buffer || !name || !value) return;
  UbText escaped(dlnaConvXml(value));  // null: nothing to escape
  buffer->append("<");
  buffer->append(name);
  buffer->append(">");
  buffer->append(escaped ? escaped.get() : value);
  buffer->append("</");
  buffer->append(name);
  buffer->append(">");
}

int _dlnaFilterHasVal(const char* filter, const char* name) {
  if (!filter || !name) return 0;
  const size_t nameLen = strlen(name);
  const bool attribute = name[0] == '@';
  const char* token = filter;
  while (true) {
    const char* end = strchr(token, ',');
    const size_t len = end ? static_cast<size_t>(end - token) : strlen(token);
    std::string_view piece(token, len);
    if (attribute) {
      size_t at = piece.find('@');
      piece = at == std::string_view::npos ? std::string_view() : piece.substr(at);
    }
    if (!piece.empty() && piece.size() >= nameLen && piece.compare(0, nameLen, name) == 0) return 1;
    if (!end) return 0;
    token = end + 1;
  }
}

int _dlnaGetPid(char* parent, const char* id) {
  if (!parent || !id) return -1;
  const char* last = strrchr(id, '$');
  if (!last) {
    memcpy(parent, "-1", 2);
    return 0;
  }
  memcpy(parent, id, static_cast<size_t>(last - id));
  return 0;
}

void _dlnaDidlAddContainer(TextBuffer* buffer, DlnaEntry* entry, const char* id,
                           const char* filter) {
  if (!buffer || !entry || !id) return;
  const int32_t type = entry->children ? entry->children->type : kDlnaContPlain;
  buffer->append("<container");
  _dlnaDidlAddParam(buffer, "id", id);
  addParentId(buffer, id);
  _dlnaDidlAddParam(buffer, "restricted", "1");
  if (wanted(filter, "@childCount")) {
    buffer->append(" childCount=\"");
    buffer->appendNumber(entry->childCount);
    buffer->append("\"");
  }
  if (wanted(filter, "@searchable")) _dlnaDidlAddParam(buffer, "searchable", "1");
  buffer->append(">");
  const std::string title = type == kDlnaContFolder ? displayName(entry->title) : entry->title;
  _dlnaDidlAddTag(buffer, "dc:title", title.c_str());
  _dlnaDidlAddTag(buffer, "upnp:class", dlnaContainerType(type).didlClass);
  buffer->append("</container>");
}

void _dlnaDidlAddItem(TextBuffer* buffer, DlnaEntry* entry, const char* id, const char* filter) {
  if (!buffer || !entry || !entry->media || !id) return;
  const DlnaItemMedia& media = *entry->media;
  buffer->append("<item");
  _dlnaDidlAddParam(buffer, "id", id);
  addParentId(buffer, id);
  _dlnaDidlAddParam(buffer, "restricted", "0");
  buffer->append(">");
  const std::string title = media.title.empty() ? displayName(entry->title) : media.title;
  _dlnaDidlAddTag(buffer, "dc:title", title.c_str());
  _dlnaDidlAddTag(buffer, "upnp:class", dlnaGetItemClassStr(entry));
  if (wanted(filter, "dc:date") && media.year > 1900 && media.year < 9999) {
    // An impossible month or day is published as the first. Repaired here, not
    // in the record: writers of Browse share the tree under a read lock.
    const int month = media.month < 1 || media.month > 12 ? 1 : media.month;
    const int day = media.day < 1 || media.day > 31 ? 1 : media.day;
    buffer->append("<dc:date>");
    buffer->appendNumber(media.year);
    buffer->append("-");
    buffer->appendNumber(month, 2);
    buffer->append("-");
    buffer->appendNumber(day, 2);
    buffer->append("</dc:date>");
  }
  if (wanted(filter, "upnp:originalTrackNumber")) {
    buffer->append("<upnp:originalTrackNumber>");
    buffer->appendNumber(media.track);
    buffer->append("</upnp:originalTrackNumber>");
  }
  switch (media.mediaClass) {
    case kDlnaClassAudio:
      addGroupTag(buffer, filter, "upnp:genre", media.genreId);
      addGroupTag(buffer, filter, "upnp:artist", media.artistId);
      addGroupTag(buffer, filter, "upnp:album", media.albumId);
      break;
    case kDlnaClassVideo:
      addGroupTag(buffer, filter, "upnp:genre", media.genreId);
      addGroupTag(buffer, filter, "upnp:actor", media.artistId);
      addGroupTag(buffer, filter, "upnp:album", media.albumId);
      break;
    case kDlnaClassImage:
      addGroupTag(buffer, filter, "upnp:artist", media.artistId);
      addGroupTag(buffer, filter, "upnp:album", media.albumId);
      break;
    default:
      break;
  }
  if (wanted(filter, "res")) addResElements(buffer, *entry, filter);
  buffer->append("</item>");
}
