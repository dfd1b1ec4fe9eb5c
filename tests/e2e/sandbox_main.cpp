// Entry point of the end-to-end tests. The daemon's UPnP stack multicasts by
// the routing table, so the whole test binary re-runs itself in a network
// namespace of its own where multicast stays on loopback and nothing leaves
// the machine; a private mount namespace with a tmpfs on /var/tmp lets tests
// use the daemon's fixed paths without touching the host's files.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "e2e/daemon.h"

extern char** environ;

namespace {

constexpr char kSandboxVar[] = "DMSD_E2E_SANDBOX";

int run(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid;
  if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
  int status = 0;
  if (waitpid(pid, &status, 0) < 0) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

[[noreturn]] void reexecInSandbox(int argc, char** argv) {
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) {
    perror("readlink /proc/self/exe");
    exit(1);
  }
  self[n] = '\0';
  std::vector<std::string> args = {"unshare", "--net", "--mount", "--propagation", "private"};
  if (geteuid() != 0) {
    args.push_back("--user");
    args.push_back("--map-root-user");
  }
  args.push_back("--");
  for (auto& word : programRunner()) args.push_back(word);
  args.push_back(self);
  for (int i = 1; i < argc; ++i) args.push_back(argv[i]);
  std::vector<char*> cargs;
  for (auto& a : args) cargs.push_back(a.data());
  cargs.push_back(nullptr);
  setenv(kSandboxVar, "1", 1);
  execvp("unshare", cargs.data());
  perror("cannot start the test sandbox (unshare)");
  exit(1);
}

bool setUpSandbox() {
  if (run({"ip", "link", "set", "lo", "up"}) != 0) {
    fprintf(stderr, "sandbox: cannot bring up lo\n");
    return false;
  }
  if (run({"ip", "route", "add", "239.0.0.0/8", "dev", "lo"}) != 0) {
    fprintf(stderr, "sandbox: cannot route multicast to lo\n");
    return false;
  }
  if (mount("tmpfs", "/var/tmp", "tmpfs", 0, "mode=1777") != 0) {
    perror("sandbox: mount tmpfs on /var/tmp");
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (!getenv(kSandboxVar)) reexecInSandbox(argc, argv);
  if (!setUpSandbox()) return 1;
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
