// Runs the real dmsd binary for end-to-end tests: a temporary folder for its
// files, start with arguments, bounded polling of its output, signals, and the
// exit status. The destructor kills a daemon still running and removes the
// folder. Not copyable; one daemon per object.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

using namespace std::chrono_literals;

// What runs the build's programs on this machine: empty for a native build,
// the emulator (qemu and its arguments) for a cross build.
std::vector<std::string> programRunner();

// The configuration the tests serve with: on 127.0.0.1:49152, sharing the
// folders of `contentList` ('|'-separated).
std::string serverConfig(const std::string& contentList, const std::string& rescanTime = "0");

class DmsdProcess {
 public:
  DmsdProcess();
  ~DmsdProcess();
  DmsdProcess(const DmsdProcess&) = delete;
  DmsdProcess& operator=(const DmsdProcess&) = delete;

  // The temporary folder (no trailing slash).
  const std::string& dir() const { return dir_; }

  // Writes `text` to a file in dir() and returns its path.
  std::string writeFile(const std::string& name, const std::string& text) const;
  // Copies the fixture medium `fixture` to `rel` under dir(), making the
  // folders it needs; returns its path.
  std::string copyFixture(const std::string& rel, const std::string& fixture) const;

  // The binary start() runs from now on: the build's own dmsd unless a caller
  // (a benchmark measuring another build) names another. Not thread-safe.
  static void useBinary(std::string path);

  // Starts dmsd with exactly these arguments.
  void start(const std::vector<std::string>& args);

  // Writes `config` as dms.conf and starts dmsd on it with trace logging.
  void startWithConfig(const std::string& config, std::vector<std::string> extraArgs = {});
  // Starts on serverConfig(contentList) with the build's data folder; true
  // once the log says `ready` (the scan's counts).
  bool serve(const std::string& contentList, const std::string& ready);

  // Polls standard error (or output) until it holds `needle` (`times` times);
  // false on timeout.
  bool waitForLog(const std::string& needle, std::chrono::milliseconds timeout = 5s,
                  int times = 1) const;
  bool waitForOutput(const std::string& needle, std::chrono::milliseconds timeout = 5s) const;

  std::string log() const;     // standard error so far
  std::string output() const;  // standard output so far

  void signal(int sig) const;
  bool running();

  // The exit status (128 + signal number when killed), or nothing on timeout.
  std::optional<int> waitExit(std::chrono::milliseconds timeout = 5s);

  // SIGTERM, then the exit status.
  std::optional<int> stop(std::chrono::milliseconds timeout = 5s);

  // Stops the daemon and starts it again with the same arguments in the same
  // folder; the new run's output replaces the old one. Returns the old run's
  // exit status, or nothing (and starts nothing) when it did not end in time.
  std::optional<int> restart(std::chrono::milliseconds timeout = 5s);

  pid_t pid() const { return pid_; }

 private:
  std::string dir_;
  std::vector<std::string> args_;
  pid_t pid_ = -1;
  std::optional<int> status_;
};
