#include "support/sandbox.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "support/ns_host.h"
#include "support/syslog_catcher.h"

namespace qortest {

namespace {

constexpr const char* kQorDir = "/var/www/html/qor";
constexpr const char* kInstallDir = "/usr/local/sbin";

[[noreturn]] void ChildFail(const char* what) {
  dprintf(2, "sandbox: %s: %s\n", what, strerror(errno));
  _exit(125);
}

}  // namespace

bool CopyQorclustd(const std::string& dir) {
  namespace fs = std::filesystem;
  std::error_code ec;
  fs::copy_file(QORCLUSTD_PATH, dir + "/qorclustd", fs::copy_options::overwrite_existing, ec);
  return !ec && chmod((dir + "/qorclustd").c_str(), 0755) == 0;
}

std::string MountServerPaths(const std::string& dir) {
  std::string qor = dir + "/qor";
  if (mount(qor.c_str(), kQorDir, nullptr, MS_BIND, nullptr) != 0) {
    return std::string("bind qor: ") + strerror(errno);
  }
  if (mount("tmpfs", kInstallDir, "tmpfs", 0, "mode=755") != 0) {
    return std::string("tmpfs on ") + kInstallDir + ": " + strerror(errno);
  }
  return BindFile(dir + "/qorclustd", kInstalledQorclustd);
}

Sandbox::Sandbox() {
  std::filesystem::create_directories(dir_.path() + "/qor");
  // The mount point must exist on the host; an empty directory is all that is left there.
  std::filesystem::create_directories(kQorDir);
  if (!CopyQorclustd(dir_.path())) ADD_FAILURE() << "cannot copy " << QORCLUSTD_PATH;
}

RunResult Sandbox::Run(const std::vector<std::string>& args, const RunOptions& opts) const {
  SyslogCatcher log(dir_.path());
  if (!log.ok()) {
    RunResult r;
    r.err = "sandbox: cannot bind the log socket";
    return r;
  }
  std::vector<std::string> argv{kInstalledQorclustd};
  argv.insert(argv.end(), args.begin(), args.end());
  std::string dir = dir_.path();
  RunResult r = RunInChild(argv, opts, [&] {
    if (unshare(CLONE_NEWNS) != 0) ChildFail("unshare");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ChildFail("private /");
    std::string e = MountServerPaths(dir);
    if (e.empty()) e = IsolateDevLog(dir, log.path());
    if (!e.empty()) {
      dprintf(2, "sandbox: %s\n", e.c_str());
      _exit(125);
    }
  });
  log.Take(&r.syslog, &r.syslog_raw);
  return r;
}

}  // namespace qortest
