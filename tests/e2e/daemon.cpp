#include "e2e/daemon.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#ifndef DMSD_BINARY
#error "DMSD_BINARY must name the dmsd binary"
#endif

#ifndef DMSD_RUNNER
#define DMSD_RUNNER ""
#endif

extern char** environ;

std::vector<std::string> programRunner() {
  std::vector<std::string> words;
  std::istringstream in(DMSD_RUNNER);
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

namespace {

std::string& binary() {
  static std::string path = DMSD_BINARY;
  return path;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

int countOf(const std::string& text, const std::string& needle) {
  int n = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) ++n;
  return n;
}

bool pollFile(const std::string& path, const std::string& needle, std::chrono::milliseconds timeout,
              int times = 1) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (countOf(readFile(path), needle) >= times) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
}

}  // namespace

DmsdProcess::DmsdProcess() {
  char tmpl[] = "/tmp/dmsd-e2e-XXXXXX";
  if (!mkdtemp(tmpl)) throw std::runtime_error("mkdtemp failed");
  dir_ = tmpl;
}

DmsdProcess::~DmsdProcess() {
  if (pid_ > 0 && !status_) {
    kill(pid_, SIGKILL);
    waitExit(5s);
  }
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

std::string DmsdProcess::writeFile(const std::string& name, const std::string& text) const {
  std::string path = dir_ + "/" + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

std::string serverConfig(const std::string& contentList, const std::string& rescanTime) {
  return "Enable = 1\nPort = 49152\nRescanTime = " + rescanTime +
         "\nIPAddress = 127.0.0.1\nInterface = lo\nDmsName = T\nContentList = " + contentList +
         "\n";
}

std::string DmsdProcess::copyFixture(const std::string& rel, const std::string& fixture) const {
  const std::filesystem::path to = dir_ + "/" + rel;
  std::filesystem::create_directories(to.parent_path());
  std::filesystem::copy_file(std::filesystem::path(DMSD_TEST_MEDIA) / fixture, to);
  return to.string();
}

bool DmsdProcess::serve(const std::string& contentList, const std::string& ready) {
  startWithConfig(serverConfig(contentList), {"--data-dir", DMSD_DATA_DIR});
  return waitForLog(ready);
}

void DmsdProcess::useBinary(std::string path) {
  binary() = std::move(path);
}

void DmsdProcess::start(const std::vector<std::string>& args) {
  if (pid_ > 0) throw std::logic_error("daemon already started");
  args_ = args;
  std::vector<std::string> all = programRunner();
  all.push_back(binary());
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : all) argv.push_back(a.data());
  argv.push_back(nullptr);

  // Opened here, not by the child: an emulator's spawn returns before the
  // child runs, and a restart must not be seen through the old run's output.
  const int out = open((dir_ + "/stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const int err = open((dir_ + "/stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&files, out, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&files, err, STDERR_FILENO);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  for (int sig : {SIGPIPE, SIGTERM, SIGINT, SIGUSR1, SIGALRM}) sigaddset(&defaults, sig);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  int rc = posix_spawnp(&pid_, argv[0], &files, &attr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&attr);
  close(out);
  close(err);
  if (rc != 0) throw std::runtime_error("cannot start " + all[0]);
}

void DmsdProcess::startWithConfig(const std::string& config, std::vector<std::string> extraArgs) {
  std::vector<std::string> args = {"--config", writeFile("dms.conf", config), "--log-level", "8"};
  args.insert(args.end(), extraArgs.begin(), extraArgs.end());
  start(args);
}

bool DmsdProcess::waitForLog(const std::string& needle, std::chrono::milliseconds timeout,
                             int times) const {
  return pollFile(dir_ + "/stderr", needle, timeout, times);
}

bool DmsdProcess::waitForOutput(const std::string& needle,
                                std::chrono::milliseconds timeout) const {
  return pollFile(dir_ + "/stdout", needle, timeout);
}

std::string DmsdProcess::log() const {
  return readFile(dir_ + "/stderr");
}

std::string DmsdProcess::output() const {
  return readFile(dir_ + "/stdout");
}

void DmsdProcess::signal(int sig) const {
  if (pid_ > 0 && !status_) kill(pid_, sig);
}

bool DmsdProcess::running() {
  if (pid_ <= 0 || status_) return false;
  return !waitExit(0ms);
}

std::optional<int> DmsdProcess::waitExit(std::chrono::milliseconds timeout) {
  if (status_ || pid_ <= 0) return status_;
  auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    int status = 0;
    pid_t done = waitpid(pid_, &status, WNOHANG);
    if (done == pid_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      return status_;
    }
    if (done < 0 || std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(5ms);
  }
}

std::optional<int> DmsdProcess::stop(std::chrono::milliseconds timeout) {
  signal(SIGTERM);
  return waitExit(timeout);
}

std::optional<int> DmsdProcess::restart(std::chrono::milliseconds timeout) {
  std::optional<int> status = stop(timeout);
  if (!status) return std::nullopt;
  pid_ = -1;
  status_.reset();
  start(std::vector<std::string>(args_));
  return status;
}
