// Object store benchmark: builds a tree the size of the largest library
// (10,000 items in 100 folders, filed into 50 genre groups), then times
// lookups by id and freeing, and measures heap bytes per object. Prints
// medians of several rounds.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "content/metadata.h"
#include "core/dlna_dms.h"

namespace {

constexpr int kItems = 10000;
constexpr int kFolders = 100;
constexpr int kGenres = 50;
constexpr int kRounds = 7;

using Clock = std::chrono::steady_clock;

double microsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

DlnaEntry* addContainer(DlnaInfo& info, const std::string& name, DlnaEntry* parent, int id,
                        int type) {
  DlnaEntry* c = dlnaNewContainer(&info, name.c_str(), parent, id, type);
  _dlnaHdlDefCont(&info, parent, c, id);
  return c;
}

void buildTree(DlnaInfo& info) {
  info.root = dlnaNewContainer(&info, "root", nullptr, 0, kDlnaContPlain);
  DlnaEntry* music = addContainer(info, "Music", info.root, kDlnaIdMusic, kDlnaContPlain);
  DlnaEntry* all = addContainer(info, "All Music", music, kDlnaIdAllMusic, kDlnaContMusic);
  DlnaEntry* genre = addContainer(info, "Genre", music, kDlnaIdMusicGenre, kDlnaContMusicGenre);
  DlnaEntry* folderRoot = addContainer(info, "Folder", info.root, kDlnaIdFolder, kDlnaContPlain);
  std::vector<DlnaEntry*> groups;
  for (int g = 0; g < kGenres; ++g) {
    groups.push_back(
        addContainer(info, "Genre " + std::to_string(g), genre, info.nextId, kDlnaContMusicGenre));
    groups.back()->childCount = 0;
  }
  DlnaEntry* share = addContainer(info, "/mnt/usb1", folderRoot, info.nextId, kDlnaContFolder);
  for (int f = 0; f < kFolders; ++f) {
    DlnaEntry* folder =
        addContainer(info, "Album " + std::to_string(f), share, info.nextId, kDlnaContFolder);
    for (int i = 0; i < kItems / kFolders; ++i) {
      auto* item = new DlnaEntry;
      item->id = info.nextId++;
      item->title = "Track " + std::to_string(i) + " of a typical length";
      item->urlName = std::to_string(item->id) + ".mp3";
      item->parent = folder;
      item->childCount = -1;
      item->media = std::make_unique<DlnaItemMedia>();
      item->media->mediaClass = kDlnaClassAudio;
      item->media->duration = "0:03:25.000";
      item->media->mime = "audio/mpeg";
      item->media->title = item->title;
      DlnaEntry* group = groups[item->id % kGenres];
      item->media->genreId = static_cast<uint16_t>(group->id);
      ++group->childCount;
      ++all->childCount;
      ++info.musicCount;
      dlnaAdd2Parents(&info, folder, item);
    }
  }
}

}  // namespace

int main() {
  std::vector<double> build, lookup, freeAll, bytes;
  std::mt19937 rng(1);
  for (int round = 0; round < kRounds; ++round) {
    DlnaInfo info;
    _dlnaInit(&info);
    size_t heapBefore = mallinfo2().uordblks;
    auto start = Clock::now();
    buildTree(info);
    build.push_back(microsSince(start) / 1000.0);
    int objects = static_cast<int>(info.index->size()) + 1;
    bytes.push_back(double(mallinfo2().uordblks - heapBefore) / objects);

    std::vector<int> ids;
    for (auto& node : *info.index) ids.push_back(node.first);
    std::uniform_int_distribution<size_t> pick(0, ids.size() - 1);
    std::vector<int> probe(100000);
    for (int& id : probe) id = ids[pick(rng)];
    start = Clock::now();
    size_t found = 0;
    for (int id : probe) found += dlnaGetEntry(&info, id) != nullptr;
    lookup.push_back(microsSince(start) * 1000.0 / probe.size());
    if (found != probe.size()) fprintf(stderr, "lookup missed %zu ids\n", probe.size() - found);

    start = Clock::now();
    dlnaFreeMetaLst(&info);
    freeAll.push_back(microsSince(start) / 1000.0);
  }
  printf("object store, %d items in %d folders, median of %d rounds\n", kItems, kFolders, kRounds);
  printf("  build tree:        %8.2f ms\n", median(build));
  printf("  lookup by id:      %8.1f ns\n", median(lookup));
  printf("  free whole tree:   %8.2f ms\n", median(freeAll));
  printf("  heap per object:   %8.0f bytes\n", median(bytes));
  return 0;
}
