// Media reader benchmark: lays out a library of 10,000 files (the fixture media
// hard-linked round-robin into folders of 20), reads every file the way the
// profiler does, through the reader dispatch with the kind for its extension
// (over every reader linked in, dispatched or not), and prints
// per format the median and p90 time per file and the bytes each read takes.
//
//   dmsd_bench_reader [--files N] [--media DIR] [TREE]
//
// With TREE, the files under it are read instead of a generated tree. Bytes are
// counted in a second, untimed pass (see "Byte counts"). The page cache is
// warm: times are parsing cost, not USB latency.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "content/state_var.h"
#include "media/media_parse.h"
#include "platform/alloc.h"
#include "profile/profile.h"

namespace {

constexpr int kDefaultFiles = 10000;
constexpr int kFilesPerFolder = 20;
constexpr int kProfileRounds = 3;

struct KindForExtension {
  const char* ext;
  uint32_t kind;
};

// The kind each extension is read as, as the profile rules pass them.
// clang-format off
constexpr KindForExtension kKinds[] = {
    {"jpg",  kMediaFileJpeg},
    {"jpeg", kMediaFileJpeg},
    {"png",  kMediaFilePng},
    {"gif",  kMediaFileGif},
    {"tif",  kMediaFileTiff},
    {"tiff", kMediaFileTiff},
    {"bmp",  kMediaFileBmp},
    {"wma",  kMediaFileWma},
    {"wmv",  kMediaFileWmv},
    {"asf",  kMediaFileWmv},
    {"mp3",  kMediaFileMp3},
    {"wav",  kMediaFileWav},
    {"mp4",  kMediaFileMp4},
    {"m4a",  kMediaFileMp4},
    {"3gp",  kMediaFileMp4},
    {"mov",  kMediaFileMp4},
    {"mpg",  kMediaFileMpeg2},
    {"mpeg", kMediaFileMpeg2},
    {"ts",   kMediaFileMpeg2},
    {"m2ts", kMediaFileMpeg2},
    {"avi",  kMediaFileAvi},
    {"flv",  kMediaFileFlv},
    {"mkv",  kMediaFileMkv},
    {"webm", kMediaFileMkv},
};
// clang-format on

using Clock = std::chrono::steady_clock;

}  // namespace

namespace {

// clang-format off
const MediaReaderTable kLinkedReaders = {
    mediaParseExifProfile,
    {
        jpg_read_info, png_read_info, gif_read_info, tif_read_info, bmp_read_info,
        asf_read_info, mp3_read_info, wav_read_info,
        mp4_read_info, mp4_read_info, mp4_read_info,
        mpeg_read_info, mpeg_read_info, asf_read_info,
        avi_read_info, flv_read_info, mkv_read_info,
    },
};
// clang-format on

// Kinds whose reader is linked but not yet in the dispatch table.
std::string unwiredKinds() {
  const MediaReaderTable& builtin = mediaBuiltinReaders();
  std::string text;
  if (kLinkedReaders.exif && !builtin.exif) text += " exif";
  for (uint32_t k = 0; k < kMediaFileTypeCount; ++k)
    if (kLinkedReaders.readers[k] && !builtin.readers[k]) {
      text += ' ';
      text += std::to_string(k);
    }
  return text;
}

std::string extensionOf(const std::string& path) {
  size_t dot = path.rfind('.');
  size_t slash = path.rfind('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  std::string ext = path.substr(dot + 1);
  for (char& c : ext) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return ext;
}

const KindForExtension* kindFor(const std::string& path) {
  std::string ext = extensionOf(path);
  for (const auto& row : kKinds)
    if (ext == row.ext) return &row;
  return nullptr;
}

// Regular files under dir with a known extension, sorted, recursively.
void listMedia(const std::string& dir, std::vector<std::string>* out) {
  DIR* d = opendir(dir.c_str());
  if (!d) return;
  while (dirent* e = readdir(d)) {
    if (e->d_name[0] == '.') continue;
    std::string path = dir + "/" + e->d_name;
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) continue;
    if (S_ISDIR(st.st_mode)) {
      listMedia(path, out);
    } else if (S_ISREG(st.st_mode) && kindFor(path)) {
      out->push_back(path);
    }
  }
  closedir(d);
  std::sort(out->begin(), out->end());
}

bool copyFile(const std::string& from, const std::string& to) {
  FILE* in = fopen(from.c_str(), "rb");
  if (!in) return false;
  FILE* out = fopen(to.c_str(), "wb");
  bool ok = out != nullptr;
  char buf[65536];
  size_t n;
  while (ok && (n = fread(buf, 1, sizeof buf, in)) > 0) ok = fwrite(buf, 1, n, out) == n;
  fclose(in);
  if (out && fclose(out) != 0) ok = false;
  return ok;
}

// Lays `files` out as root/dNNN/NNNNN-<fixture name>, round-robin over sources.
bool buildTree(const std::string& root, const std::vector<std::string>& sources, int files) {
  for (int i = 0; i < files; ++i) {
    char folder[32], name[32];
    snprintf(folder, sizeof folder, "/d%03d", i / kFilesPerFolder);
    snprintf(name, sizeof name, "/%05d-", i);
    std::string dir = root + folder;
    if (i % kFilesPerFolder == 0 && mkdir(dir.c_str(), 0755) != 0) return false;
    const std::string& src = sources[i % sources.size()];
    std::string dst = dir + name + src.substr(src.rfind('/') + 1);
    if (link(src.c_str(), dst.c_str()) != 0 && !copyFile(src, dst)) return false;
  }
  return true;
}

void removeTree(const std::string& dir) {
  DIR* d = opendir(dir.c_str());
  if (!d) return;
  while (dirent* e = readdir(d)) {
    if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
    std::string path = dir + "/" + e->d_name;
    struct stat st;
    if (lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      removeTree(path);
    } else {
      unlink(path.c_str());
    }
  }
  closedir(d);
  rmdir(dir.c_str());
}

// ---- Byte counts ----
//
// Two counts per file. "Asked": the bytes the reader requests, through an
// unbuffered counting stream, so each request reaches the count as made. "Disk":
// the read(2) bytes of the real read, stdio buffering and re-reads after seeks
// included, from the process's own total in /proc/self/io.

struct CountingFile {
  FILE* file;
  uint64_t bytes;
};

ssize_t countingRead(void* cookie, char* buf, size_t size) {
  auto* c = static_cast<CountingFile*>(cookie);
  size_t n = fread(buf, 1, size, c->file);
  c->bytes += n;
  return static_cast<ssize_t>(n);
}

int countingSeek(void* cookie, off64_t* pos, int whence) {
  auto* c = static_cast<CountingFile*>(cookie);
  if (fseeko(c->file, *pos, whence) != 0) return -1;
  *pos = ftello(c->file);
  return 0;
}

int countingClose(void* cookie) {
  return fclose(static_cast<CountingFile*>(cookie)->file);
}

// Bytes the reader for `kind` asks for; -1 when it cannot run.
int64_t askedByReader(MediaReaderFn reader, const std::string& path, uint32_t kind,
                      MediaInfo* info) {
  CountingFile counter{fopen(path.c_str(), "rb"), 0};
  if (!reader || !counter.file) {
    if (counter.file) fclose(counter.file);
    return -1;
  }
  setvbuf(counter.file, nullptr, _IONBF, 0);
  cookie_io_functions_t fns{countingRead, nullptr, countingSeek, countingClose};
  FILE* stream = fopencookie(&counter, "rb", fns);
  if (!stream) {
    fclose(counter.file);
    return -1;
  }
  setvbuf(stream, nullptr, _IONBF, 0);
  MediaIo io{};
  media_init_io(&io, stream, kind);
  reader(&io, info);
  fclose(stream);
  return static_cast<int64_t>(counter.bytes);
}

// The process's read(2) byte total, and how many bytes this look itself read:
// the total counts those only from the next look on.
struct ReadTotal {
  uint64_t rchar = 0;
  uint64_t own = 0;
};

ReadTotal processReadTotal() {
  ReadTotal total;
  int fd = open("/proc/self/io", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return total;
  char text[512];
  ssize_t n = read(fd, text, sizeof text - 1);
  close(fd);
  if (n <= 0) return total;
  text[n] = '\0';
  total.own = static_cast<uint64_t>(n);
  sscanf(text, "rchar: %" SCNu64, &total.rchar);
  return total;
}

// Bytes read(2) by the process between start() and stop().
class ReadMeter {
 public:
  void start() { start_ = processReadTotal(); }
  int64_t stop() const {
    return static_cast<int64_t>(processReadTotal().rchar - start_.rchar - start_.own);
  }

 private:
  ReadTotal start_;
};

// Asked bytes of what the profiler runs for one file: for JPEG the EXIF step
// (libexif reads by itself, so its read(2) bytes stand in) and, without EXIF,
// the marker walk; for other kinds the reader alone.
int64_t askedBytes(const std::string& path, uint32_t kind, MediaInfo* info, ReadMeter& meter) {
  const MediaReaderTable& readers = kLinkedReaders;
  if (kind != kMediaFileJpeg) return askedByReader(readers.readers[kind], path, kind, info);
  int64_t exif = 0;
  if (readers.exif) {
    meter.start();
    int32_t result = readers.exif(info, path.c_str());
    exif = meter.stop();
    if (result == 0) return exif;
  }
  int64_t markers = askedByReader(readers.readers[kind], path, kind, info);
  return markers < 0 ? (readers.exif ? exif : -1) : exif + markers;
}

int64_t diskBytes(const std::string& path, uint32_t kind, MediaInfo* info, ReadMeter& meter) {
  meter.start();
  mediaReadInfoWith(kLinkedReaders, path.c_str(), kind, info);
  return meter.stop();
}

// ---- Report ----

struct FormatStats {
  uint32_t kind = 0;
  int ok = 0;
  std::vector<double> micros;
  std::vector<int64_t> asked;
  std::vector<int64_t> disk;
};

template <typename T>
T percentile(std::vector<T> v, int pct) {
  if (v.empty()) return T{};
  std::sort(v.begin(), v.end());
  return v[std::min(v.size() - 1, v.size() * pct / 100)];
}

// "-" when the reader is missing for any file of the format.
std::string bytesText(const std::vector<int64_t>& bytes, bool median) {
  if (bytes.empty() || *std::min_element(bytes.begin(), bytes.end()) < 0) return "-";
  int64_t v = median ? percentile(bytes, 50) : *std::max_element(bytes.begin(), bytes.end());
  return std::to_string(v);
}

void printTable(const std::map<std::string, FormatStats>& stats, double total_seconds) {
  printf("%-6s %4s %6s %6s %10s %10s %10s %10s %10s %10s\n", "format", "kind", "files", "ok",
         "median_us", "p90_us", "asked_med", "asked_max", "disk_med", "disk_max");
  std::vector<double> all;
  int files = 0, ok = 0;
  for (const auto& [ext, s] : stats) {
    printf("%-6s %4u %6zu %6d %10.1f %10.1f %10s %10s %10s %10s\n", ext.c_str(), s.kind,
           s.micros.size(), s.ok, percentile(s.micros, 50), percentile(s.micros, 90),
           bytesText(s.asked, true).c_str(), bytesText(s.asked, false).c_str(),
           bytesText(s.disk, true).c_str(), bytesText(s.disk, false).c_str());
    all.insert(all.end(), s.micros.begin(), s.micros.end());
    files += static_cast<int>(s.micros.size());
    ok += s.ok;
  }
  printf("%-6s %4s %6d %6d %10.1f %10.1f   reading all: %.2f s\n", "all", "", files, ok,
         percentile(all, 50), percentile(all, 90), total_seconds);
}

int usage() {
  fprintf(stderr, "usage: dmsd_bench_reader [--files N] [--media DIR] [TREE]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  int files = kDefaultFiles;
  std::string media = DMSD_BENCH_MEDIA;
  std::string tree;
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (arg == "--files" && i + 1 < argc) {
      files = atoi(argv[++i]);
    } else if (arg == "--media" && i + 1 < argc) {
      media = argv[++i];
    } else if (!arg.empty() && arg[0] != '-' && tree.empty()) {
      tree = argv[i];
    } else {
      return usage();
    }
  }
  if (files <= 0) return usage();

  std::string made;
  if (tree.empty()) {
    std::vector<std::string> sources;
    listMedia(media, &sources);
    if (sources.empty()) {
      fprintf(stderr, "no media files in %s\n", media.c_str());
      return 1;
    }
    char tmpl[] = "/tmp/dmsd-reader-bench-XXXXXX";
    if (!mkdtemp(tmpl)) {
      perror("mkdtemp");
      return 1;
    }
    made = tree = tmpl;
    if (!buildTree(tree, sources, files)) {
      fprintf(stderr, "cannot build the tree under %s\n", tree.c_str());
      removeTree(made);
      return 1;
    }
    printf("tree: %d files from %zu fixtures in folders of %d\n", files, sources.size(),
           kFilesPerFolder);
  }
  std::vector<std::string> paths;
  listMedia(tree, &paths);

  auto info = std::make_unique<MediaInfo>();
  std::map<std::string, FormatStats> stats;
  auto start = Clock::now();
  for (const auto& path : paths) {
    const KindForExtension* k = kindFor(path);
    FormatStats& s = stats[k->ext];
    s.kind = k->kind;
    *info = MediaInfo{};
    auto t0 = Clock::now();
    int32_t result = mediaReadInfoWith(kLinkedReaders, path.c_str(), k->kind, info.get());
    s.micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
    if (result == 0) ++s.ok;
  }
  double seconds = std::chrono::duration<double>(Clock::now() - start).count();

  // Profiling reads each file once more and decides; its cost over reading
  // alone is what the rules add. Each file is read and profiled back to back,
  // in alternating order, over several rounds, so cache and frequency drift
  // fall on both sides alike.
  dlnaInitVarValue();
  DlnaProfileRegistry* registry = dlnaMMInit();
  dlnaSetExtCheck(registry, 1);
  dlnaRegMediaProfile(registry);
  std::vector<double> readMicros, profileMicros;
  std::map<std::string, std::pair<std::vector<double>, std::vector<double>>> byFormat;
  for (int round = 0; round < kProfileRounds; ++round) {
    for (size_t i = 0; i < paths.size(); ++i) {
      const KindForExtension* k = kindFor(paths[i]);
      double read = 0, profile = 0;
      for (int step = 0; step < 2; ++step) {
        bool profileStep = (step == 0) == ((i + round) % 2 == 0);
        auto t0 = Clock::now();
        if (profileStep) {
          dlnaFreeItemTmp(dlnaGetMediaProfile(registry, paths[i].c_str()));
        } else {
          *info = MediaInfo{};
          mediaReadInfoWith(kLinkedReaders, paths[i].c_str(), k->kind, info.get());
        }
        double us = std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
        (profileStep ? profile : read) = us;
      }
      readMicros.push_back(read);
      profileMicros.push_back(profile);
      byFormat[k->ext].first.push_back(read);
      byFormat[k->ext].second.push_back(profile);
    }
  }
  dlnaMMUninit(registry);
  dlnaFreeVarValue();

  ReadMeter meter;
  for (const auto& path : paths) {
    const KindForExtension* k = kindFor(path);
    FormatStats& s = stats[k->ext];
    *info = MediaInfo{};
    s.asked.push_back(askedBytes(path, k->kind, info.get(), meter));
    *info = MediaInfo{};
    s.disk.push_back(diskBytes(path, k->kind, info.get(), meter));
  }

  printTable(stats, seconds);
  const double readMedian = percentile(readMicros, 50);
  const double profileMedian = percentile(profileMicros, 50);
  printf("profiling: median %.1f us per file against %.1f us reading alone (ratio %.2f)\n",
         profileMedian, readMedian, readMedian > 0 ? profileMedian / readMedian : 0.0);
  for (const auto& [ext, times] : byFormat) {
    double r = percentile(times.first, 50), p = percentile(times.second, 50);
    printf("  %-5s read %6.1f us  profile %6.1f us  ratio %.2f\n", ext.c_str(), r, p,
           r > 0 ? p / r : 0.0);
  }
  std::string unwired = unwiredKinds();
  if (!unwired.empty())
    printf("linked but not yet dispatched by media_read_info:%s\n", unwired.c_str());
  if (!made.empty()) removeTree(made);
  return 0;
}
