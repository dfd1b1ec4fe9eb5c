// Library benchmark: the real daemon on generated corpora (bench/make_corpus.py).
// Measures, each against a floor taken in the same run on the same machine:
//   - scan: wall time from the daemon's start to its "Total" line, against
//     walking the same tree and reading the first 64 KiB of every file;
//   - memory: VmRSS and VmHWM at the "Total" line, and bytes per item against
//     the same daemon on an empty share;
//   - Browse: BrowseDirectChildren pages of 100 (All Music, an artist group,
//     a 20-item folder) from 1, 8, 32 concurrent clients, against
//     GetSystemUpdateID under the same load;
//   - with --minidlna, the All Music page and a 20-item folder on dmsd and on
//     minidlna (a black-box peer on the same corpus, port 8200), each with one
//     persistent connection per client and with a new connection per request.
// Prints markdown tables (medians of --runs for scan and memory, one run of
// --seconds per Browse cell).
//
//   dmsd_bench_library [--dmsd PATH] [--runs R] [--seconds S] [--clients 1,8,32]
//                      [--pages all,artist,folder] [--no-browse]
//                      [--minidlna PATH] CORPUS...
//
// Browse runs on the last corpus. The servers listen on loopback, so this
// refuses to run outside a network namespace of its own (see
// bench/library_bench.sh); the page cache is warm (a first walk fills it).
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "e2e/daemon.h"
#include "e2e/upnp_client.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint16_t kPort = 49152;
constexpr uint16_t kPeerPort = 8200;
constexpr char kControlUrl[] = "http://127.0.0.1:49152/web/cds_control";
constexpr char kCdsType[] = "urn:schemas-upnp-org:service:ContentDirectory:1";
constexpr size_t kFloorReadBytes = 64 * 1024;
constexpr int kPageSize = 100;
constexpr auto kScanTimeout = 300s;
constexpr auto kPeerScanTimeout = 900s;  // it probes every file with its own readers

struct Options {
  int runs = 3;
  int seconds = 10;
  std::vector<int> clients = {1, 8, 32};
  bool browse = true;
  std::string pages = "all,artist,folder";  // which pages load the daemon (profiling one)
  std::string minidlna;                     // its binary; empty: no side-by-side run
  std::vector<std::string> corpora;
};

// Thrown, so that a running daemon is killed on the way out.
[[noreturn]] void die(const std::string& why) {
  throw std::runtime_error(why);
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// The daemon multicasts by the routing table; only a namespace holding
// nothing but loopback keeps that on this machine.
bool onlyLoopback() {
  // /proc/self/net follows this process's namespace; /sys/class/net follows
  // the mount's.
  std::ifstream dev("/proc/self/net/dev");
  std::string line;
  int interfaces = 0;
  bool only = true;
  while (std::getline(dev, line)) {
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;  // the two heading lines
    size_t name = line.find_first_not_of(' ');
    only = only && line.compare(name, colon - name, "lo") == 0;
    ++interfaces;
  }
  return interfaces > 0 && only;
}

// ---------------------------------------------------------------- scan floor

struct Walk {
  double seconds = 0;
  int mp3 = 0, jpg = 0, mp4 = 0, other = 0;
  int media() const { return mp3 + jpg + mp4; }
};

void walkTree(const std::string& dir, Walk& w, std::vector<char>& buffer) {
  DIR* d = opendir(dir.c_str());
  if (!d) return;
  while (dirent* e = readdir(d)) {
    if (e->d_name[0] == '.') continue;
    std::string path = dir + "/" + e->d_name;
    if (e->d_type == DT_DIR) {
      walkTree(path, w, buffer);
      continue;
    }
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) continue;
    ssize_t ignored = read(fd, buffer.data(), buffer.size());
    (void)ignored;
    close(fd);
    const char* dot = strrchr(e->d_name, '.');
    std::string ext = dot ? dot + 1 : "";
    if (ext == "mp3")
      ++w.mp3;
    else if (ext == "jpg")
      ++w.jpg;
    else if (ext == "mp4")
      ++w.mp4;
    else
      ++w.other;
  }
  closedir(d);
}

Walk walkFloor(const std::string& root) {
  Walk w;
  std::vector<char> buffer(kFloorReadBytes);
  auto start = Clock::now();
  walkTree(root, w, buffer);
  w.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  return w;
}

// ---------------------------------------------------------------- daemon runs

struct Scan {
  double seconds = 0;
  int objects = 0, music = 0, photo = 0, video = 0, containers = 0;
  long rssKiB = 0, hwmKiB = 0, fileKiB = 0;  // fileKiB: the mapped files' share of VmRSS
  int items() const { return music + photo + video; }
};

double realNow() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<double>(ts.tv_sec) + ts.tv_nsec / 1e9;
}

long statusKiB(pid_t pid, const char* key) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(key, 0) == 0) return atol(line.c_str() + strlen(key));
  }
  return -1;
}

// Reads the time stamp and counts of the log's "Total" line into `scan`.
bool parseTotal(const std::string& log, double started, Scan& scan) {
  size_t at = log.find(" Total ");
  if (at == std::string::npos) return false;
  size_t lineStart = log.rfind('\n', at);
  lineStart = lineStart == std::string::npos ? 0 : lineStart + 1;
  tm t{};
  int ms = 0;
  if (sscanf(log.c_str() + lineStart, "%d-%d-%d %d:%d:%d.%d", &t.tm_year, &t.tm_mon, &t.tm_mday,
             &t.tm_hour, &t.tm_min, &t.tm_sec, &ms) != 7)
    return false;
  t.tm_year -= 1900;
  t.tm_mon -= 1;
  t.tm_isdst = -1;
  scan.seconds = static_cast<double>(mktime(&t)) + ms / 1000.0 - started;
  return sscanf(log.c_str() + at, " Total %d.music:%d; photo:%d; video:%d; container:%d",
                &scan.objects, &scan.music, &scan.photo, &scan.video, &scan.containers) == 5;
}

// Starts the daemon on `share` with summary logging (trace lines would cost
// scan time) and waits for the end of its first scan.
Scan startDaemon(DmsdProcess& dmsd, const std::string& share) {
  std::string config = "Enable = 1\nPort = " + std::to_string(kPort) +
                       "\nRescanTime = 0\nIPAddress = 127.0.0.1\nInterface = lo\n"
                       "DmsName = Bench\nContentList = " +
                       share + "\n";
  std::vector<std::string> args = {"--config",         dmsd.writeFile("dms.conf", config),
                                   "--folder-request", dmsd.dir() + "/request.conf",
                                   "--data-dir",       DMSD_BENCH_DATA,
                                   "--log-level",      "6"};
  double started = realNow();
  dmsd.start(args);
  if (!dmsd.waitForLog(" Total ", kScanTimeout)) die("no \"Total\" line; log:\n" + dmsd.log());
  Scan scan;
  scan.rssKiB = statusKiB(dmsd.pid(), "VmRSS:");
  scan.hwmKiB = statusKiB(dmsd.pid(), "VmHWM:");
  scan.fileKiB = statusKiB(dmsd.pid(), "RssFile:");
  if (!parseTotal(dmsd.log(), started, scan)) die("unreadable \"Total\" line:\n" + dmsd.log());
  return scan;
}

void stopDaemon(DmsdProcess& dmsd) {
  if (dmsd.stop(10s) != 0) die("the daemon did not stop cleanly; log:\n" + dmsd.log());
}

Scan scanOnce(const std::string& share) {
  DmsdProcess dmsd;
  Scan scan = startDaemon(dmsd, share);
  stopDaemon(dmsd);
  return scan;
}

void checkCounts(const Scan& scan, const Walk& disk, const std::string& corpus) {
  if (scan.music != disk.mp3 || scan.photo != disk.jpg || scan.video != disk.mp4) {
    char why[256];
    snprintf(why, sizeof why,
             "%s: the daemon found music %d, photo %d, video %d; on disk %d, %d, %d",
             corpus.c_str(), scan.music, scan.photo, scan.video, disk.mp3, disk.jpg, disk.mp4);
    die(why);
  }
}

struct ScanRow {
  int files = 0;
  double scan = 0, floor = 0, ratio = 0, startup = 0;
  double rss = 0, hwm = 0, file = 0, emptyRss = 0, bytesPerItem = 0;
};

ScanRow measureScan(const std::string& corpus, const std::vector<Scan>& empty, int runs) {
  Walk disk = walkFloor(corpus);  // fills the page cache
  std::vector<double> scans, floors, ratios, rss, hwm, file;
  for (int r = 0; r < runs; ++r) {
    Walk floor = walkFloor(corpus);
    Scan scan = scanOnce(corpus);
    checkCounts(scan, disk, corpus);
    scans.push_back(scan.seconds);
    floors.push_back(floor.seconds);
    ratios.push_back(scan.seconds / floor.seconds);
    rss.push_back(scan.rssKiB);
    hwm.push_back(scan.hwmKiB);
    file.push_back(scan.fileKiB);
    fprintf(stderr, "  %s run %d: scan %.3f s, floor %.3f s, VmRSS %ld KiB\n", corpus.c_str(),
            r + 1, scan.seconds, floor.seconds, scan.rssKiB);
  }
  ScanRow row;
  row.files = disk.media();
  row.scan = median(scans);
  row.floor = median(floors);
  row.ratio = median(ratios);
  std::vector<double> emptySeconds, emptyRss;
  for (const Scan& s : empty) {
    emptySeconds.push_back(s.seconds);
    emptyRss.push_back(s.rssKiB);
  }
  row.startup = median(emptySeconds);
  row.rss = median(rss);
  row.hwm = median(hwm);
  row.file = median(file);
  row.emptyRss = median(emptyRss);
  row.bytesPerItem = (row.rss - row.emptyRss) * 1024 / disk.media();
  return row;
}

// ---------------------------------------------------------------- Browse load

// The raw request the load sends; without `keepAlive` it asks the server to
// close, so neither side waits on a connection the other has given up.
std::string soapRequest(const std::string& action, const e2e::Fields& args, uint16_t port = kPort,
                        const std::string& path = "/web/cds_control", bool keepAlive = true) {
  std::string body =
      "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
      "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body><u:" +
      action + " xmlns:u=\"" + kCdsType + "\">";
  for (const auto& [name, value] : args) body += "<" + name + ">" + value + "</" + name + ">";
  body += "</u:" + action + "></s:Body></s:Envelope>";
  return "POST " + path + " HTTP/1.1\r\nHOST: 127.0.0.1:" + std::to_string(port) +
         "\r\nCONTENT-TYPE: text/xml; charset=\"utf-8\"\r\nSOAPACTION: \"" + kCdsType + "#" +
         action + "\"\r\n" + (keepAlive ? "" : "CONNECTION: close\r\n") +
         "CONTENT-LENGTH: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

e2e::Fields pageArgs(const std::string& id) {
  return {
      {"ObjectID", id},       {"BrowseFlag", "BrowseDirectChildren"},        {"Filter", "*"},
      {"StartingIndex", "0"}, {"RequestedCount", std::to_string(kPageSize)}, {"SortCriteria", ""}};
}

struct Page {
  int returned = -1, total = -1;
  std::vector<std::string> ids;     // of the objects in the Result, in order
  std::vector<std::string> titles;  // their dc:title
  int containers = 0;
};

// One page through the test client, which checks the whole answer parses.
Page browsePage(const std::string& id, const std::string& controlUrl = kControlUrl) {
  e2e::SoapResult r = e2e::soapAction(controlUrl, kCdsType, "Browse", pageArgs(id));
  if (!r.ok()) die("Browse " + id + " failed: " + r.http.raw.substr(0, 300));
  Page page;
  page.returned = atoi(e2e::findField(r.out, "NumberReturned").value_or("-1").c_str());
  page.total = atoi(e2e::findField(r.out, "TotalMatches").value_or("-1").c_str());
  auto didl = e2e::parseXml(e2e::findField(r.out, "Result").value_or(""));
  if (!didl) die("Browse " + id + ": the Result does not parse");
  for (const e2e::Xml& object : didl->children) {
    page.ids.push_back(e2e::findField(object.attributes, "id").value_or(""));
    const e2e::Xml* title = object.child("title");
    page.titles.push_back(title ? title->text : "");
    page.containers += object.name == "container";
  }
  if (static_cast<int>(page.ids.size()) != page.returned)
    die("Browse " + id + ": NumberReturned disagrees with the Result");
  return page;
}

struct Target {
  std::string name;
  std::string request;
};

// The floor and the pages asked for, each checked before any load.
std::vector<Target> findTargets(const Walk& disk, const std::string& pages) {
  std::vector<Target> targets = {
      {"GetSystemUpdateID (floor)", soapRequest("GetSystemUpdateID", {})}};
  Page all = browsePage("0$1$10");
  if (all.total != disk.mp3 || all.returned != std::min(kPageSize, disk.mp3))
    die("All Music: " + std::to_string(all.returned) + " of " + std::to_string(all.total) +
        " returned; " + std::to_string(disk.mp3) + " MP3 files on disk");
  if (pages.find("all") != std::string::npos)
    targets.push_back({"All Music, 100 of " + std::to_string(all.total),
                       soapRequest("Browse", pageArgs("0$1$10"))});

  Page artists = browsePage("0$1$12");
  if (artists.ids.empty()) die("no artist groups");
  Page artist = browsePage(artists.ids.front());
  if (artist.returned <= 0 || artist.returned != std::min(kPageSize, artist.total))
    die("artist group " + artists.ids.front() + ": " + std::to_string(artist.returned) + " of " +
        std::to_string(artist.total) + " returned");
  if (pages.find("artist") != std::string::npos)
    targets.push_back({"artist group, " + std::to_string(artist.returned) + " items",
                       soapRequest("Browse", pageArgs(artists.ids.front()))});

  // Folder, the share, its first top folder, its first leaf.
  std::string id = "0$4";
  for (int depth = 0; depth < 3; ++depth) {
    Page p = browsePage(id);
    if (p.ids.empty()) die("folder " + id + " is empty");
    id = p.ids.front();
  }
  Page leaf = browsePage(id);
  if (leaf.total != 20 || leaf.returned != 20)
    die("folder " + id + ": " + std::to_string(leaf.returned) + " of " +
        std::to_string(leaf.total) + " returned, not 20");
  if (pages.find("folder") != std::string::npos)
    targets.push_back({"folder, 20 items", soapRequest("Browse", pageArgs(id))});
  return targets;
}

int connectTo(uint16_t port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  timeval tv{5, 0};  // a stuck answer ends the request, not the run
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

// Reads one answer; its HTTP status, 0 when nothing came, -1 when it broke
// off. `open` says whether the connection may carry another request.
int readAnswer(int fd, std::string& buffer, bool& open) {
  buffer.clear();
  char chunk[65536];
  size_t headerEnd = std::string::npos, need = std::string::npos;
  for (;;) {
    ssize_t n = recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) {
      open = false;
      if (buffer.empty()) return 0;
      return need == std::string::npos && headerEnd != std::string::npos ? atoi(buffer.c_str() + 9)
                                                                         : -1;
    }
    buffer.append(chunk, static_cast<size_t>(n));
    if (headerEnd == std::string::npos &&
        (headerEnd = buffer.find("\r\n\r\n")) != std::string::npos) {
      std::string head = buffer.substr(0, headerEnd);
      std::transform(head.begin(), head.end(), head.begin(), ::tolower);
      size_t length = head.find("\r\ncontent-length:");
      if (length != std::string::npos) need = headerEnd + 4 + atol(head.c_str() + length + 17);
      if (head.find("\r\nconnection: close") != std::string::npos) open = false;
    }
    if (need != std::string::npos && buffer.size() >= need) return atoi(buffer.c_str() + 9);
  }
}

struct Connection {
  uint16_t port = kPort;
  bool reuse = true;  // keep the connection for the next request while the server does
  int fd = -1;
  long opened = 0;
  std::string buffer;
};

// One request, on the open connection when the server keeps it, else on a new
// one. Finding the kept connection closed turns `reuse` off.
int roundTrip(Connection& c, const std::string& request) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    bool fresh = c.fd < 0;
    if (fresh) {
      if ((c.fd = connectTo(c.port)) < 0) return -1;
      ++c.opened;
    }
    bool open = c.reuse;
    int status = -1;
    if (send(c.fd, request.data(), request.size(), MSG_NOSIGNAL) ==
        static_cast<ssize_t>(request.size()))
      status = readAnswer(c.fd, c.buffer, open);
    if (!open || status <= 0) {
      close(c.fd);
      c.fd = -1;
    }
    if (status > 0 || fresh) return status;
    c.reuse = false;  // the server closed what it had answered on
  }
  return -1;
}

struct Cell {
  double perSecond = 0, p50ms = 0, p99ms = 0;
  long requests = 0, errors = 0, connections = 0;
};

Cell load(const std::string& request, int clients, int seconds, uint16_t port = kPort,
          bool keepAlive = true) {
  std::vector<std::vector<float>> latencies(clients);
  std::vector<long> errors(clients), opened(clients);
  std::atomic<bool> go{false};
  auto start = Clock::now(), end = start;
  std::vector<std::thread> threads;
  for (int c = 0; c < clients; ++c) {
    threads.emplace_back([&, c] {
      while (!go.load()) std::this_thread::yield();
      Connection conn;
      conn.port = port;
      conn.reuse = keepAlive;
      conn.buffer.reserve(256 * 1024);
      while (Clock::now() < end) {
        auto t0 = Clock::now();
        int status = roundTrip(conn, request);
        latencies[c].push_back(std::chrono::duration<float, std::milli>(Clock::now() - t0).count());
        if (status != 200) ++errors[c];
      }
      if (conn.fd >= 0) close(conn.fd);
      opened[c] = conn.opened;
    });
  }
  start = Clock::now();
  end = start + std::chrono::seconds(seconds);
  go = true;
  for (auto& t : threads) t.join();
  double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  std::vector<float> all;
  Cell cell;
  for (int c = 0; c < clients; ++c) {
    all.insert(all.end(), latencies[c].begin(), latencies[c].end());
    cell.errors += errors[c];
    cell.connections += opened[c];
  }
  std::sort(all.begin(), all.end());
  cell.requests = static_cast<long>(all.size());
  cell.perSecond = (cell.requests - cell.errors) / elapsed;  // answers, not refusals
  if (!all.empty()) {
    cell.p50ms = all[all.size() / 2];
    cell.p99ms = all[std::min(all.size() - 1, all.size() * 99 / 100)];
  }
  return cell;
}

// ---------------------------------------------------------------- minidlna

// minidlna as a black box: its own config in a private folder, its own
// database there, stopped (and its scanner with it) on the way out.
class Peer {
 public:
  Peer(const std::string& binary, const std::string& media) {
    char tmp[] = "/tmp/dmsd-bench-minidlna-XXXXXX";
    if (!mkdtemp(tmp)) die("mkdtemp failed");
    dir_ = tmp;
    std::string conf = dir_ + "/minidlna.conf";
    std::ofstream(conf) << "port=" << kPeerPort << "\nnetwork_interface=lo\nmedia_dir=" << media
                        << "\ndb_dir=" << dir_ << "/db\nlog_dir=" << dir_
                        << "\ninotify=no\nfriendly_name=Peer\n";
    // Nothing allocates between fork and exec.
    std::string logPath = dir_ + "/stderr.log", pidFile = dir_ + "/minidlna.pid";
    started_ = Clock::now();
    pid_ = fork();
    if (pid_ < 0) die("fork failed");
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlives the benchmark
      int log = open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(log, 1);
      dup2(log, 2);
      execl(binary.c_str(), binary.c_str(), "-S", "-f", conf.c_str(), "-P", pidFile.c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~Peer() {
    if (pid_ > 0) {
      std::vector<pid_t> children = this->children();
      kill(pid_, SIGTERM);
      bool gone = false;
      for (int i = 0; i < 100 && !gone; ++i) {  // 10 s
        gone = waitpid(pid_, nullptr, WNOHANG) == pid_;
        if (!gone) std::this_thread::sleep_for(100ms);
      }
      if (!gone) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
      }
      for (pid_t child : children) kill(child, SIGKILL);  // a scanner left behind
    }
    std::string rm = "rm -rf '" + dir_ + "'";
    if (system(rm.c_str()) != 0) fprintf(stderr, "could not remove %s\n", dir_.c_str());
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  pid_t pid() const { return pid_; }
  double secondsSinceStart() const {
    return std::chrono::duration<double>(Clock::now() - started_).count();
  }
  bool running() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }
  // Its scanner runs as a child process while it scans.
  std::vector<pid_t> children() const {
    std::ifstream in("/proc/" + std::to_string(pid_) + "/task/" + std::to_string(pid_) +
                     "/children");
    std::vector<pid_t> pids;
    for (pid_t p; in >> p;) pids.push_back(p);
    return pids;
  }
  std::string log() const {
    std::ifstream a(dir_ + "/stderr.log"), b(dir_ + "/minidlna.log");
    std::stringstream s;
    s << a.rdbuf() << b.rdbuf();
    return s.str();
  }

 private:
  std::string dir_;
  pid_t pid_ = -1;
  Clock::time_point started_;
};

// The control URL of the ContentDirectory in a device description.
std::string findControlPath(const e2e::Xml& node) {
  if (node.name == "service") {
    const e2e::Xml* type = node.child("serviceType");
    const e2e::Xml* url = node.child("controlURL");
    if (type && url && type->text == kCdsType) return url->text;
  }
  for (const e2e::Xml& child : node.children) {
    std::string found = findControlPath(child);
    if (!found.empty()) return found;
  }
  return "";
}

std::string childTitled(const Page& page, const std::string& title, const std::string& where) {
  for (size_t i = 0; i < page.ids.size(); ++i) {
    if (page.titles[i] == title) return page.ids[i];
  }
  die("no \"" + title + "\" in " + where);
}

// Descends by first children from `id` to the first folder holding 20 items
// and nothing else.
std::string findLeafFolder(std::string id, const std::string& controlUrl) {
  for (int depth = 0; depth < 6; ++depth) {
    Page p = browsePage(id, controlUrl);
    if (p.total == 20 && p.returned == 20 && p.containers == 0) return id;
    if (p.ids.empty() || p.containers == 0) break;
    id = p.ids.front();
  }
  die("no 20-item folder below " + id + " at " + controlUrl);
}

struct Server {
  std::string name;
  uint16_t port = kPort;
  std::string controlPath;
  std::string allMusic, folder;  // object ids
};

struct PeerScan {
  double seconds = 0;
  long rssKiB = 0;
};

// Waits for the peer's HTTP server, then for its scan: All Music holds every
// MP3 and its scanner process has exited.
Server awaitPeer(Peer& peer, const Walk& disk, PeerScan& scan) {
  std::string base = "http://127.0.0.1:" + std::to_string(kPeerPort);
  Server s{"minidlna", kPeerPort, "", "", ""};
  auto deadline = Clock::now() + kPeerScanTimeout;
  while (s.controlPath.empty()) {
    if (!peer.running()) die("minidlna exited; its log:\n" + peer.log());
    if (Clock::now() > deadline) die("minidlna never answered; its log:\n" + peer.log());
    e2e::HttpResponse r = e2e::httpRequest(base + "/rootDesc.xml", "GET");
    if (r.status == 200) {
      auto xml = e2e::parseXml(r.body);
      if (xml) s.controlPath = findControlPath(*xml);
    }
    if (s.controlPath.empty()) std::this_thread::sleep_for(200ms);
  }
  std::string control = base + s.controlPath;
  Page root = browsePage("0", control);
  Page music = browsePage(childTitled(root, "Music", "the root"), control);
  s.allMusic = childTitled(music, "All Music", "Music");
  for (int total = -1;; std::this_thread::sleep_for(500ms)) {
    if (!peer.running()) die("minidlna exited during its scan; its log:\n" + peer.log());
    if (Clock::now() > deadline) die("minidlna's scan did not end; its log:\n" + peer.log());
    total = browsePage(s.allMusic, control).total;
    if (total == disk.mp3 && peer.children().empty()) break;
  }
  scan.seconds = peer.secondsSinceStart();
  scan.rssKiB = statusKiB(peer.pid(), "VmRSS:");
  Page all = browsePage(s.allMusic, control);
  if (all.returned != std::min(kPageSize, disk.mp3))
    die("minidlna's All Music returned " + std::to_string(all.returned));
  s.folder = findLeafFolder(childTitled(root, "Browse Folders", "the root"), control);
  return s;
}

// The same pages on both servers, both connection modes, interleaved so that
// neither gets the quieter minutes of the shared machine.
void runVersus(const Options& o, const Walk& disk, const Server& dmsd, const Server& peer) {
  printf(
      "\nAgainst minidlna (%d files; the same corpus, both servers up, one loaded at a time),\n"
      "one %d s run per cell; req/s counts 200 answers, latencies all requests; \"conns\"\n"
      "counts the connections the clients opened (one per request where the server\n"
      "closes after each answer):\n\n",
      disk.media(), o.seconds);
  printf(
      "| page | clients | connection | dmsd req/s | minidlna req/s | ratio | dmsd p50 ms |"
      " minidlna p50 ms | dmsd p99 ms | minidlna p99 ms | p99 ratio | conns dmsd / minidlna |"
      " errors dmsd / minidlna |\n");
  printf("| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
  struct PageKind {
    const char* name;
    std::string Server::*id;
  };
  const PageKind kinds[] = {{"All Music, 100", &Server::allMusic}, {"folder, 20", &Server::folder}};
  for (int clients : o.clients) {
    for (const PageKind& kind : kinds) {
      for (bool keepAlive : {true, false}) {
        Cell cells[2];
        const Server* servers[2] = {&dmsd, &peer};
        for (int i = 0; i < 2; ++i) {
          const Server& s = *servers[i];
          std::string request =
              soapRequest("Browse", pageArgs(s.*(kind.id)), s.port, s.controlPath, keepAlive);
          cells[i] = load(request, clients, o.seconds, s.port, keepAlive);
        }
        const Cell &a = cells[0], &b = cells[1];
        printf(
            "| %s | %d | %s | %.0f | %.0f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %ld / %ld |"
            " %ld / %ld |\n",
            kind.name, clients, keepAlive ? "keep-alive" : "new per request", a.perSecond,
            b.perSecond, b.perSecond > 0 ? a.perSecond / b.perSecond : 0, a.p50ms, b.p50ms, a.p99ms,
            b.p99ms, b.p99ms > 0 ? a.p99ms / b.p99ms : 0, a.connections, b.connections, a.errors,
            b.errors);
        fflush(stdout);
      }
    }
  }
}

// ---------------------------------------------------------------- main

Options parseOptions(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) die(a + " needs a value");
      return argv[++i];
    };
    if (a == "--dmsd")
      DmsdProcess::useBinary(value());
    else if (a == "--runs")
      o.runs = std::max(1, atoi(value().c_str()));
    else if (a == "--seconds")
      o.seconds = std::max(1, atoi(value().c_str()));
    else if (a == "--no-browse")
      o.browse = false;
    else if (a == "--pages")
      o.pages = value();
    else if (a == "--minidlna")
      o.minidlna = value();
    else if (a == "--clients") {
      o.clients.clear();
      std::stringstream list(value());
      for (std::string n; std::getline(list, n, ',');)
        o.clients.push_back(std::max(1, atoi(n.c_str())));
    } else if (a.rfind("--", 0) == 0)
      die("unknown option " + a);
    else
      o.corpora.push_back(a);
  }
  if (o.corpora.empty())
    die("usage: dmsd_bench_library [--dmsd PATH] [--runs R] [--seconds S] "
        "[--clients 1,8,32] [--pages all,artist,folder] [--no-browse] [--minidlna PATH] "
        "CORPUS...");
  return o;
}

void printScan(const std::vector<ScanRow>& rows, int runs) {
  printf("Scan and memory, medians of %d runs:\n\n", runs);
  printf(
      "| files | scan s | floor s | scan/floor | start-up s | VmRSS KiB | VmHWM KiB |"
      " RssFile KiB | empty VmRSS KiB | bytes/item |\n");
  printf("| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |\n");
  for (const ScanRow& r : rows) {
    printf("| %d | %.3f | %.3f | %.1f | %.3f | %.0f | %.0f | %.0f | %.0f | %.0f |\n", r.files,
           r.scan, r.floor, r.ratio, r.startup, r.rss, r.hwm, r.file, r.emptyRss, r.bytesPerItem);
  }
}

void runBrowse(const Options& o, const std::string& corpus) {
  Walk disk = walkFloor(corpus);
  // The peer scans first and alone; then both stay up for the whole load.
  std::unique_ptr<Peer> peer;
  Server peerServer;
  PeerScan peerScan;
  if (!o.minidlna.empty()) {
    peer = std::make_unique<Peer>(o.minidlna, corpus);
    peerServer = awaitPeer(*peer, disk, peerScan);
  }
  DmsdProcess dmsd;
  startDaemon(dmsd, corpus);
  std::vector<Target> targets = findTargets(disk, o.pages);
  // What the daemon made of the tags, to see the corpus is the one meant.
  printf(
      "\nBrowse (%d files; %d artists, %d albums, %d genres), one %d s run per cell;\n"
      "\"of floor\" is req/s over the floor's at the same clients:\n\n",
      disk.media(), browsePage("0$1$12").total, browsePage("0$1$13").total,
      browsePage("0$1$11").total, o.seconds);
  printf("| request | clients | req/s | of floor | p50 ms | p99 ms | errors |\n");
  printf("| --- | --- | --- | --- | --- | --- | --- |\n");
  for (int clients : o.clients) {
    double floor = 0;
    for (const Target& t : targets) {
      Cell c = load(t.request, clients, o.seconds);
      if (floor == 0) floor = c.perSecond;
      printf("| %s | %d | %.0f | %.2f | %.2f | %.2f | %ld |\n", t.name.c_str(), clients,
             c.perSecond, floor > 0 ? c.perSecond / floor : 0, c.p50ms, c.p99ms, c.errors);
      fflush(stdout);
    }
  }
  if (peer) {
    Server ours{"dmsd", kPort, "/web/cds_control", "0$1$10", findLeafFolder("0$4", kControlUrl)};
    runVersus(o, disk, ours, peerServer);
    printf(
        "\nminidlna's scan (start to its scanner's exit, All Music complete): %.1f s;"
        " its VmRSS then %ld KiB (its database is on disk).\n",
        peerScan.seconds, peerScan.rssKiB);
  }
  stopDaemon(dmsd);
}

int run(int argc, char** argv) {
  Options o = parseOptions(argc, argv);
  if (!onlyLoopback())
    die("run me in a network namespace holding only lo (bench/library_bench.sh)");
  char emptyShare[] = "/tmp/dmsd-bench-empty-XXXXXX";
  if (!mkdtemp(emptyShare)) die("mkdtemp failed");
  std::vector<Scan> empty;
  for (int r = 0; r < o.runs; ++r) empty.push_back(scanOnce(emptyShare));
  rmdir(emptyShare);
  std::vector<ScanRow> rows;
  for (const std::string& corpus : o.corpora) rows.push_back(measureScan(corpus, empty, o.runs));
  printScan(rows, o.runs);
  if (o.browse) runBrowse(o, o.corpora.back());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    fprintf(stderr, "dmsd_bench_library: %s\n", e.what());
    return 1;
  }
}
