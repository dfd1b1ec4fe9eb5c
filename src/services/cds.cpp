// ContentDirectory actions: the capabilities, the SystemUpdateID, Browse and
// Search.
#include "services/cds.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>

#include "content/metadata.h"
#include "content/state_var.h"
#include "content/views.h"
#include "platform/alloc.h"
#include "platform/log.h"
#include "profile/profile.h"
#include "services/didl.h"

namespace {

constexpr char kLogSource[] = "cds";
constexpr size_t kMaxIdText = 255;
constexpr size_t kChildIdSize = 320;
constexpr size_t kOperandSize = 255;
// Parenthesised groups nest by recursion; a hostile criteria text must not
// exhaust the stack.
constexpr int kMaxGroupDepth = 32;

struct UbFree {
  void operator()(void* p) const { RetUB(p); }
};
using UbText = std::unique_ptr<char, UbFree>;

// A text argument of the request; false when it is missing.
bool getArg(DlnaActionCtx* ctx, const char* name, std::string& out) {
  UbText text(dlnaActionGetStr(ctx, name));
  if (!text) return false;
  out = text.get();
  return true;
}

std::string childIdText(const std::string& parent, int32_t id) {
  char text[kChildIdSize];
  snprintf(text, sizeof(text), "%s$%d", parent.c_str(), id);
  return text;
}

void addCount(DlnaActionCtx* ctx, const char* name, long long value) {
  char text[24];
  snprintf(text, sizeof(text), "%lld", value);
  dlnaUpnpAddRes(ctx, name, text);
}

// -1 when the group's view is of no known kind, else 1 when the item is filed in it.
int groupHasItem(const DlnaEntry& group, const DlnaItemMedia& media) {
  if (!group.parent) return -1;
  switch (dlnaViewKind(group.parent->id)) {
    case DlnaViewKind::kGenre:
      return static_cast<int16_t>(media.genreId) == static_cast<int16_t>(group.id);
    case DlnaViewKind::kArtist:
      return static_cast<int16_t>(media.artistId) == static_cast<int16_t>(group.id);
    case DlnaViewKind::kAlbum:
      return media.albumId != 0 &&
             static_cast<int16_t>(media.albumId) == static_cast<int16_t>(group.id);
    case DlnaViewKind::kYear:
      return std::to_string(media.year) == group.title;
    default:
      return -1;
  }
}

// Writes the matching media items of the global list after the first `start`,
// up to `count` (0: no limit); -1 for a group of unknown kind.
int writeViewItems(TextBuffer* buffer, uint32_t start, uint32_t count, DlnaEntry* container,
                   const char* filter, const std::string& idText) {
  const DlnaContainerTypeRow& type = dlnaContainerType(container->children->type);
  const bool allView = container->id < kDlnaFirstId;
  const uint32_t mediaClass = allView ? type.allClass : type.groupClass;
  uint32_t seen = 0;
  int written = 0;
  for (auto& node : g_tDlnaInfo.items) {
    if (count != 0 && static_cast<uint32_t>(written) >= count) break;
    DlnaEntry* item = node.second;
    if (!item->media || item->media->mediaClass != mediaClass) continue;
    if (!allView) {
      int match = groupHasItem(*container, *item->media);
      if (match < 0) return -1;
      if (match == 0) continue;
    }
    if (seen++ < start) continue;
    _dlnaDidlAddItem(buffer, item, childIdText(idText, item->id).c_str(), filter);
    ++written;
  }
  return written;
}

// Writes the container's own children after the first `start`, up to `count`.
int writeChildren(TextBuffer* buffer, uint32_t start, uint32_t count, DlnaEntry* container,
                  const char* filter, const std::string& idText, bool itemsAsItems) {
  uint32_t seen = 0;
  int written = 0;
  for (auto& node : container->children->nodes) {
    if (count != 0 && static_cast<uint32_t>(written) >= count) break;
    if (seen++ < start) continue;
    DlnaEntry* child = node.second;
    std::string childId = childIdText(idText, child->id);
    if (itemsAsItems && child->isItem())
      _dlnaDidlAddItem(buffer, child, childId.c_str(), filter);
    else
      _dlnaDidlAddContainer(buffer, child, childId.c_str(), filter);
    ++written;
  }
  return written;
}

const char* searchClass(const DlnaEntry& entry) {
  if (entry.media) {
    const DlnaItemClassRow* row = dlnaItemClass(entry.media->mediaClass);
    return row ? row->searchClass : "object.item";
  }
  return dlnaContainerType(entry.children ? entry.children->type : -1).searchClass;
}

bool startsWith(const char* text, const char* prefix) {
  return strncmp(text, prefix, strlen(prefix)) == 0;
}

const char* skipSpaces(const char* p) {
  while (*p == ' ') ++p;
  return p;
}

// One condition "property operator operand" at `p`. Sets *result; returns the
// text after the condition (inside `copy`), or null when the condition alone
// decides the whole criteria (*result then holds that answer).
const char* evalCondition(const char* p, DlnaEntry* entry, std::string& copy, int* result) {
  static constexpr const char* kProperties[] = {"upnp:class", "res@protocolInfo", "dc:title"};
  static constexpr const char* kOperators[] = {"=", "derivedfrom", "contains", "doesNotContain",
                                               "exists"};
  int property = -1;
  for (int i = 0; i < 3 && property < 0; ++i)
    if (startsWith(p, kProperties[i])) property = i;
  if (property < 0) {
    *result = 1;
    return nullptr;
  }
  p = skipSpaces(p + strlen(kProperties[property]));
  int op = -1;
  for (int i = 0; i < 5 && op < 0; ++i)
    if (startsWith(p, kOperators[i])) op = i;
  if (op < 0) {
    *result = 1;
    return nullptr;
  }
  p = skipSpaces(p + strlen(kOperators[op]));
  copy.assign(p, strnlen(p, kOperandSize));
  std::string operand;
  size_t rest;
  if (!copy.empty() && copy[0] == '"') {
    size_t close = copy.find('"', 1);
    if (close == std::string::npos) {
      *result = 0;
      return nullptr;
    }
    operand = copy.substr(1, close - 1);
    rest = close + 1;
  } else {
    size_t space = copy.find(' ');
    operand = copy.substr(0, space);
    rest = space == std::string::npos ? copy.size() : space + 1;
  }

  std::string value;
  bool hasValue = true;
  if (property == 0) {
    value = searchClass(*entry);
  } else if (property == 1) {
    hasValue = entry->media != nullptr;
    if (hasValue) value = dlnaWriteProtocolInfo(1, 1, entry);
  } else {
    value = entry->media && !entry->media->title.empty() ? entry->media->title : entry->title;
  }
  if (!hasValue) {
    *result = operand == "false";
  } else {
    switch (op) {
      case 0:
        *result = value == operand;
        break;
      case 1:
        *result = value.compare(0, operand.size(), operand) == 0;
        break;
      case 2:
        *result = value.find(operand) != std::string::npos;
        break;
      case 3:
        *result = value.find(operand) == std::string::npos;
        break;
      default:
        *result = operand != "false";
        break;
    }
  }
  return copy.c_str() + rest;
}

int matchSearch(const char* criteria, DlnaEntry* entry, int depth) {
  if (!criteria || !entry) return 0;
  std::string text = criteria;  // the rest still to evaluate
  while (true) {
    if (text == "*") return 1;
    const char* p = skipSpaces(text.c_str());
    if (*p == '\0') return 1;
    int result = 0;
    std::string copy;
    const char* after;
    if (*p == '(') {
      // The group starts one character late and the scan resumes inside it:
      // criteria that open with a parenthesis end up matching nothing.
      const char* first = skipSpaces(p + 1);
      const char* second = *first ? skipSpaces(first + 1) : first;
      const char* close = strchr(second, ')');
      std::string group(second, close ? static_cast<size_t>(close - second + 1) : strlen(second));
      result = depth < kMaxGroupDepth ? matchSearch(group.c_str(), entry, depth + 1) : 0;
      copy = first;
      after = copy.c_str();
    } else {
      after = evalCondition(p, entry, copy, &result);
      if (!after) return result;
    }
    after = skipSpaces(after);
    if (*after == '\0') return result;
    if (startsWith(after, "and ")) {
      if (!result) return 0;
      text = after + 4;
    } else if (startsWith(after, "or ")) {
      if (result) return 1;
      text = after + 3;
    } else {
      return 0;
    }
  }
}

}  // namespace

int _cdsGetSrchCap(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  dlnaUpnpAddRes(ctx, "SearchCaps", "dc:title,upnp:class,res@protocolInfo");
  return ctx->ok;
}

int _cdsGetSortCap(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  // No sorting is offered; SortCriteria is ignored.
  dlnaUpnpAddRes(ctx, "SortCaps", "");
  return ctx->ok;
}

int _cdsGetSysUpdateId(DlnaActionCtx* ctx) {
  if (!ctx) return 0;
  std::optional<std::string> id = dlnaGetVarValue(kCdsServiceId, "SystemUpdateID");
  dlnaUpnpAddRes(ctx, "Id", id ? id->c_str() : nullptr);
  return ctx->ok;
}

int _dlnaGetIdFromStr(std::string* text) {
  if (!text) return -1;
  int id = -1;
  if (text->size() > kMaxIdText) {
    id = -1;
  } else if (size_t last = text->rfind('$'); last != std::string::npos) {
    id = atoi(text->c_str() + last + 1);
  } else if (*text == "0") {
    id = 0;
  } else if (*text == "B") {
    *text = "0$3$30";
    id = 30;
  } else {
    // Well-known numeric ids that some control points send in place of ours.
    struct WellKnown {
      const char* canonical;
      int id;
    };
    static constexpr WellKnown kWellKnown[17] = {
        {nullptr, -1},  {"0$4$200", 200}, {"0$4", 4},     {"0$4", 4},     {"0$1$10", 10},
        {"0$1$11", 11}, {"0$1$12", 12},   {"0$1$13", 13}, {"0$2$20", 20}, {"0$4", 4},
        {"0$5", 5},     {"0$5", 5},       {"0$4", 4},     {"0$5", 5},     {"0$4", 4},
        {"0$2$20", 20}, {"0$3$30", 30},
    };
    int number = atoi(text->c_str());
    const WellKnown& row = number < 0 || number > 16 ? kWellKnown[2] : kWellKnown[number];
    if (row.canonical) *text = row.canonical;
    id = row.id;
  }
  DMS_LOG(kLogTrace, "get object id:%d", id);
  return id;
}

int _cdsBrowseChild(DlnaActionCtx* ctx, TextBuffer* buffer, uint32_t start, uint32_t count,
                    DlnaEntry* container, const char* filter, const std::string& idText) {
  if (!ctx || !buffer || !container || container->isItem() || !container->children) return -1;
  _dlnaDidlAddHeader(buffer);
  if (count == 0) count = static_cast<uint32_t>(container->childCount);
  int written;
  const int32_t id = container->id;
  if (id < kDlnaFirstId) {
    if (id == 0 || dlnaViewKind(id) != DlnaViewKind::kAll)
      written = writeChildren(buffer, start, count, container, filter, idText, false);
    else
      written = writeViewItems(buffer, start, count, container, filter, idText);
  } else if (container->children->type == kDlnaContFolder) {
    written = writeChildren(buffer, start, count, container, filter, idText, true);
  } else {
    written = writeViewItems(buffer, start, count, container, filter, idText);
  }
  if (written < 0) return -1;
  _dlnaDidlAddFooter(buffer);
  dlnaUpnpAddRes(ctx, "Result", buffer->c_str());
  addCount(ctx, "NumberReturned", written);
  addCount(ctx, "TotalMatches", container->childCount);
  return written;
}

int _cdsBrowse(DlnaActionCtx* ctx) {
  if (!ctx || !ctx->ok || !g_tDlnaInfo.built) return 0;
  const uint32_t start = dlnaActionGetUi4(ctx, "StartingIndex");
  const uint32_t count = dlnaActionGetUi4(ctx, "RequestedCount");
  std::string idText, flag, filter;
  if (!getArg(ctx, "ObjectID", idText) && !getArg(ctx, "ContainerID", idText)) return 0;
  if (!getArg(ctx, "BrowseFlag", flag) || !getArg(ctx, "Filter", filter)) return 0;
  const bool metadata = flag == "BrowseMetadata";
  if (metadata ? start != 0 : flag != "BrowseDirectChildren") return 0;
  const int id = _dlnaGetIdFromStr(&idText);
  if (id < 0) return 0;

  std::shared_lock lock(g_tDlnaInfo.lock);
  DlnaEntry* entry = dlnaGetEntry(&g_tDlnaInfo, id);
  if (!entry) return 0;
  TextBuffer buffer;
  if (metadata) {
    _dlnaDidlAddHeader(&buffer);
    if (entry->isItem())
      _dlnaDidlAddItem(&buffer, entry, idText.c_str(), filter.c_str());
    else
      _dlnaDidlAddContainer(&buffer, entry, idText.c_str(), filter.c_str());
    _dlnaDidlAddFooter(&buffer);
    dlnaUpnpAddRes(ctx, "Result", buffer.c_str());
    dlnaUpnpAddRes(ctx, "NumberReturned", "1");
    dlnaUpnpAddRes(ctx, "TotalMatches", "1");
  } else if (_cdsBrowseChild(ctx, &buffer, start, count, entry, filter.c_str(), idText) < 0) {
    return 0;
  }
  lock.unlock();
  dlnaUpnpAddRes(ctx, "UpdateID", "0");
  return ctx->ok;
}

int _dlnaMatchSearch(const char* criteria, DlnaEntry* entry) {
  return matchSearch(criteria, entry, 0);
}

int _cdsSrchChildRec(TextBuffer* buffer, uint32_t start, uint32_t count, DlnaEntry* container,
                     const char* filter, const char* criteria, const std::string& idText) {
  if (!buffer || !container || !container->children) return -1;
  uint32_t written = 0;
  uint32_t skipped = 0;
  for (auto& node : container->children->nodes) {
    if (count != 0 && written >= count) break;
    DlnaEntry* child = node.second;
    std::string childId = childIdText(idText, child->id);
    if (!child->isItem()) {
      // Descendants come first; a sub-walk spends the starting index again.
      int sub =
          _cdsSrchChildRec(buffer, start > skipped ? start - skipped : 0,
                           count == 0 ? 0 : count - written, child, filter, criteria, childId);
      if (sub > 0) written += static_cast<uint32_t>(sub);
    }
    if (!_dlnaMatchSearch(criteria, child)) continue;
    if (skipped < start) {
      ++skipped;
      continue;
    }
    if (child->isItem())
      _dlnaDidlAddItem(buffer, child, childId.c_str(), filter);
    else
      _dlnaDidlAddContainer(buffer, child, childId.c_str(), filter);
    ++skipped;
    ++written;
  }
  return static_cast<int>(written);
}

int _cdsSearch(DlnaActionCtx* ctx) {
  if (!ctx || !ctx->ok || !g_tDlnaInfo.built) return 0;
  const uint32_t start = dlnaActionGetUi4(ctx, "StartingIndex");
  const uint32_t count = dlnaActionGetUi4(ctx, "RequestedCount");
  std::string idText, criteria, filter;
  if (!getArg(ctx, "ObjectID", idText) && !getArg(ctx, "ContainerID", idText)) return 0;
  if (!getArg(ctx, "SearchCriteria", criteria) || !getArg(ctx, "Filter", filter)) return 0;
  int id = _dlnaGetIdFromStr(&idText);
  if (id < 0) return 0;
  if (id == kDlnaIdRoot) id = kDlnaIdFolder;

  std::shared_lock lock(g_tDlnaInfo.lock);
  DlnaEntry* container = dlnaGetEntry(&g_tDlnaInfo, id);
  if (!container || !container->children) return 0;
  TextBuffer buffer;
  int found;
  if (id == kDlnaIdFolder || (id >= kDlnaFirstId && container->children->type == kDlnaContFolder)) {
    _dlnaDidlAddHeader(&buffer);
    found = _cdsSrchChildRec(&buffer, start, count, container, filter.c_str(), criteria.c_str(),
                             idText);
    _dlnaDidlAddFooter(&buffer);
    dlnaUpnpAddRes(ctx, "Result", buffer.c_str());
    addCount(ctx, "NumberReturned", found);
    // A full page reports no total: kept for the clients that page on it.
    long long total = count == 0 ? found + static_cast<long long>(start)
                      : static_cast<uint32_t>(found) == count ? 0
                                                              : found;
    addCount(ctx, "TotalMatches", total);
  } else {
    found = _cdsBrowseChild(ctx, &buffer, start, count, container, filter.c_str(), idText);
  }
  lock.unlock();
  if (found < 0) return 0;
  dlnaUpnpAddRes(ctx, "UpdateID", "0");
  return ctx->ok;
}
