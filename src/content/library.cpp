// The library build; see library.h.
#include "content/library.h"

#include <dirent.h>
#include <sched.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "content/metadata.h"
#include "content/notify.h"
#include "content/state_var.h"
#include "content/views.h"
#include "platform/config.h"
#include "platform/ctype.h"
#include "platform/log.h"
#include "profile/profile.h"

namespace {

constexpr char kLogSource[] = "metadata";

struct DefaultContainer {
  int32_t id;
  const char* title;
  int32_t parent;  // -1: none
  int32_t type;
};

// Creation order matters: a view is made only when its parent was.
constexpr DefaultContainer kDefaultContainers[] = {
    {kDlnaIdRoot, "root", -1, kDlnaContPlain},
    {kDlnaIdMusic, "Music", kDlnaIdRoot, kDlnaContPlain},
    {kDlnaIdAllMusic, "All Music", kDlnaIdMusic, kDlnaContMusic},
    {kDlnaIdMusicGenre, "Genre", kDlnaIdMusic, kDlnaContMusicGenre},
    {kDlnaIdMusicArtist, "Artist", kDlnaIdMusic, kDlnaContMusic},
    {kDlnaIdMusicAlbum, "Album", kDlnaIdMusic, kDlnaContMusicAlbum},
    {kDlnaIdMusicYear, "Year", kDlnaIdMusic, kDlnaContMusic},
    {kDlnaIdVideo, "Video", kDlnaIdRoot, kDlnaContVideo},
    {kDlnaIdAllVideo, "All Video", kDlnaIdVideo, kDlnaContVideo},
    {kDlnaIdVideoYear, "Year", kDlnaIdVideo, kDlnaContVideo},
    {kDlnaIdPhoto, "Photo", kDlnaIdRoot, kDlnaContPhoto},
    {kDlnaIdAllPhoto, "All Photo", kDlnaIdPhoto, kDlnaContPhoto},
    {kDlnaIdPhotoAlbum, "Album", kDlnaIdPhoto, kDlnaContPhotoAlbum},
    {kDlnaIdPhotoYear, "Year", kDlnaIdPhoto, kDlnaContPhoto},
    {kDlnaIdFolder, "Folder", kDlnaIdRoot, kDlnaContPlain},
};

// Published as SystemUpdateID after every build; apart from info->systemUpdateId
// on purpose, so the value a build publishes can go down.
std::atomic<int32_t> g_buildCount{0};

int32_t mediaItemCount(const DlnaInfo* info) {
  return info->musicCount + info->photoCount + info->videoCount;
}

// A directory already being scanned further up: a symbolic link loop.
using DirChain = std::vector<std::pair<dev_t, ino_t>>;

bool onChain(const DirChain& chain, const struct stat& st) {
  for (const auto& dir : chain)
    if (dir.first == st.st_dev && dir.second == st.st_ino) return true;
  return false;
}

void scanDirectory(DlnaInfo* info, DlnaEntry* folder, const char* dirPath, DirChain& chain);

void createDefaultContainers(DlnaInfo* info) {
  for (const DefaultContainer& row : kDefaultContainers) {
    DlnaEntry* parent = nullptr;
    if (row.parent >= 0) {
      parent = row.parent == kDlnaIdRoot ? info->root : _dlnaGetDefCont(info, row.parent);
      if (!parent) continue;
    }
    DlnaEntry* container = dlnaNewContainer(info, row.title, parent, row.id, row.type);
    if (!container) continue;
    if (row.id == kDlnaIdRoot)
      info->root = container;
    else
      _dlnaHdlDefCont(info, parent, container, row.id);
  }
}

// The album of a file without one: the name of its folder for display.
std::string folderAlbum(const DlnaEntry* folder) {
  size_t slash = folder->title.rfind('/');
  std::string name = slash == std::string::npos ? folder->title : folder->title.substr(slash + 1);
  std::string converted;
  if (ctypeConvertStr(kCtypeDetect, kCtypeUtf8, name, converted)) return converted;
  return name;
}

// The kept record: the profiling result without its tag texts, its texts moved
// in; group ids come later.
std::unique_ptr<DlnaItemMedia> keptMedia(DlnaMediaResult& result) {
  auto media = std::make_unique<DlnaItemMedia>();
  static_cast<DlnaMedia&>(*media) = std::move(result);
  if (!media->mime) media->mime = "";
  return media;
}

// Counts the item in its class's "All" view and files it into the class's groups.
void fileIntoViews(DlnaInfo* info, const DlnaMediaResult& result, DlnaItemMedia& media) {
  const DlnaClassViews* views = dlnaGetClassViews(result.mediaClass);
  if (!views) return;
  if (DlnaEntry* all = _dlnaGetDefCont(info, views->allId)) ++all->childCount;
  for (int32_t viewId : views->views) {
    if (viewId == 0) break;
    int32_t group = _dlnaAddSub(info, &result, viewId, result.mediaClass);
    if (group <= 0) continue;
    switch (viewId) {
      case kDlnaIdMusicGenre:
        media.genreId = static_cast<uint16_t>(group);
        break;
      case kDlnaIdMusicArtist:
        media.artistId = static_cast<uint16_t>(group);
        break;
      case kDlnaIdMusicAlbum:
      case kDlnaIdPhotoAlbum:
        media.albumId = static_cast<uint16_t>(group);
        break;
      default:
        break;
    }
  }
}

void scanDirectory(DlnaInfo* info, DlnaEntry* folder, const char* dirPath, DirChain& chain) {
  struct dirent** names = nullptr;
  int n = scandir(dirPath, &names, nullptr, alphasort);
  if (n < 0) {
    DMS_LOG(kLogEvent, "File or Folder does not exist.");
    return;
  }
  for (int i = 0; i < n; ++i) {
    const char* name = names[i]->d_name;
    bool full;
    {
      std::shared_lock lock(info->lock);
      full = mediaItemCount(info) > kDlnaMaxItems - 1;
    }
    if (full || name[0] == '.') continue;
    std::string path = std::string(dirPath) + "/" + name;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) continue;
    if (S_ISDIR(st.st_mode)) {
      if (onChain(chain, st)) continue;
      DlnaEntry* sub;
      {
        std::unique_lock lock(info->lock);
        sub = dlnaNewContainer(info, name, folder, info->nextId, kDlnaContFolder);
        if (sub) dlnaAdd2Parents(info, folder, sub);
      }
      if (!sub) continue;
      chain.emplace_back(st.st_dev, st.st_ino);
      scanDirectory(info, sub, path.c_str(), chain);
      chain.pop_back();
      dlnaAddNotify(info, path.c_str(), sub->id);
    } else {
      dlnaMetaAddFile(info, folder, path.c_str(), name, &st);
      sched_yield();
    }
  }
  for (int i = 0; i < n; ++i) free(names[i]);
  free(names);
}

}  // namespace

bool dlnaIsMediaFile(const DlnaInfo* info, const char* path) {
  if (!info || !info->registry || !path) return false;
  for (const DlnaMediaParser* parser : info->registry->parsers)
    if (!parser->extensions || _dlnaMatchFileExt(path, parser->extensions)) return true;
  return false;
}

void dlnaBuildMetaLst(DlnaInfo* info) {
  if (!info) return;
  DMS_LOG(kLogTrace, "Building Metadata List ...\n");
  {
    std::unique_lock lock(info->lock);
    if (!info->root) createDefaultContainers(info);
  }
  DlnaEntry* folderRoot;
  {
    std::shared_lock lock(info->lock);
    folderRoot = _dlnaGetDefCont(info, kDlnaIdFolder);
  }
  const std::string list = gtDmsCfg.szContentLst;
  size_t begin = 0;
  while (begin <= list.size()) {
    size_t bar = list.find('|', begin);
    if (bar == std::string::npos) bar = list.size();
    std::string piece = list.substr(begin, bar - begin);
    begin = bar + 1;
    if (piece.empty()) continue;
    if (piece.back() == '/') piece.pop_back();
    DMS_LOG(kLogTrace, "Looking for files in content directory : %s\n", piece.c_str());
    if (folderRoot) dlnaAddSrc(info, piece.c_str(), folderRoot);
  }
  {
    std::unique_lock lock(info->lock);
    DMS_LOG(kLogSummary, "Total %d.music:%d; photo:%d; video:%d; container:%d\n",
            info->nextId - kDlnaFirstId, info->musicCount, info->photoCount, info->videoCount,
            info->containerCount);
    info->built = 1;
  }
  dlnaSetVarValueNum(kCdsServiceId, "SystemUpdateID", ++g_buildCount);
}

void dlnaAddSrc(DlnaInfo* info, const char* path, DlnaEntry* folderRoot) {
  _dlnaAddWatchedFolder(info, folderRoot, path, path);
}

void _dlnaAddWatchedFolder(DlnaInfo* info, DlnaEntry* parent, const char* title, const char* path) {
  if (!info || !parent || !title || !path) return;
  DlnaEntry* folder;
  {
    std::unique_lock lock(info->lock);
    folder = dlnaNewContainer(info, title, parent, info->nextId, kDlnaContFolder);
  }
  if (!folder) return;
  dlnaAddNotify(info, path, folder->id);
  {
    std::unique_lock lock(info->lock);
    dlnaAdd2Parents(info, parent, folder);
  }
  dlnaAdd2Container(info, folder, path);
}

void dlnaAdd2Container(DlnaInfo* info, DlnaEntry* folder, const char* dirPath) {
  if (!info || !folder || !dirPath) return;
  DirChain chain;
  struct stat st;
  if (stat(dirPath, &st) == 0) chain.emplace_back(st.st_dev, st.st_ino);
  scanDirectory(info, folder, dirPath, chain);
}

void dlnaMetaAddFile(DlnaInfo* info, DlnaEntry* folder, const char* fullPath, const char* fileName,
                     const struct stat* fileStat) {
  if (!info || !folder || !fullPath || !fileName || !fileStat) return;
  {
    std::shared_lock lock(info->lock);
    if (mediaItemCount(info) > kDlnaMaxItems - 1) return;
  }
  const char* ext = dlnaGetFileExt(fullPath);
  if (!ext || !dlnaIsMediaFile(info, fullPath)) return;

  DlnaMediaResult* result = dlnaGetMediaProfile(info->registry, fullPath);
  if (!result) return;
  result->fileSize = static_cast<uint64_t>(fileStat->st_size);
  if (result->album.empty()) result->album = folderAlbum(folder);

  auto item = std::make_unique<DlnaEntry>();
  const char* dot = strrchr(fileName, '.');
  item->title = dot ? std::string(fileName, static_cast<size_t>(dot - fileName)) : fileName;
  item->parent = folder;
  item->childCount = -1;
  item->media = keptMedia(*result);

  std::unique_lock lock(info->lock);
  item->id = info->nextId++;
  if (const DlnaClassViews* views = dlnaGetClassViews(result->mediaClass)) ++(info->*views->count);
  char url[32];
  if (snprintf(url, sizeof url, "%d.%s", item->id, ext) > 31) {
    DMS_LOG(kLogTrace, "URL string too long for id %d, truncated!!", item->id);
  }
  item->urlName = url;
  fileIntoViews(info, *result, *item->media);
  dlnaAdd2Parents(info, folder, item.release());
  lock.unlock();
  dlnaFreeItemTmp(result);
}

int32_t _dlnaAddSub(DlnaInfo* info, const DlnaMediaResult* media, int32_t viewId,
                    uint32_t mediaClass) {
  if (!info || !media) {
    DMS_LOG(kLogEvent, "add sub failed as error");
    return -1;
  }
  DlnaEntry* view = _dlnaGetDefCont(info, viewId);
  if (!view || !view->children) return -1;
  const DlnaViewKind kind = dlnaViewKind(viewId);
  const int32_t type = dlnaGroupType(mediaClass, kind);
  if (type < 0) return -1;
  std::string key;
  switch (kind) {
    case DlnaViewKind::kGenre:
      key = media->genre;
      break;
    case DlnaViewKind::kArtist:
      key = media->artist;
      break;
    case DlnaViewKind::kAlbum:
      key = media->album;
      break;
    case DlnaViewKind::kYear:
      key = std::to_string(media->year);
      break;
    default:
      return -1;
  }
  int32_t left = view->childCount;
  for (auto& [id, group] : view->children->nodes) {
    if (left-- <= 0) break;
    if (group->title == key) {
      ++group->childCount;
      return id;
    }
  }
  DlnaEntry* group = dlnaNewContainer(info, key.c_str(), view, info->nextId, type);
  if (!group) return -1;
  dlnaAdd2Parents(info, view, group);
  // A group counts the items filed into it.
  group->childCount = 1;
  return group->id;
}
