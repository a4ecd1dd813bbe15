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

#include "lab/syslog_catcher.h"

namespace qortest {

namespace {

constexpr const char* kQorDir = "/var/www/html/qor";

[[noreturn]] void ChildFail(const char* what) {
  dprintf(2, "sandbox: %s: %s\n", what, strerror(errno));
  _exit(125);
}

}  // namespace

Sandbox::Sandbox() {
  std::filesystem::create_directories(dir_.path() + "/qor");
  // The mount point must exist on the host; an empty directory is all that is left there.
  std::filesystem::create_directories(kQorDir);
  if (!qorlab::CopyQorclustd(dir_.path())) ADD_FAILURE() << "cannot copy " << QORCLUSTD_PATH;
}

RunResult Sandbox::Run(const std::vector<std::string>& args, const RunOptions& opts) const {
  qorlab::SyslogCatcher log(dir_.path());
  if (!log.ok()) {
    RunResult r;
    r.err = "sandbox: cannot bind the log socket";
    return r;
  }
  std::vector<std::string> argv{kInstalledQorclustd};
  argv.insert(argv.end(), args.begin(), args.end());
  std::string dir = dir_.path();
  RunResult r = qorlab::RunInChild(argv, opts, [&] {
    if (unshare(CLONE_NEWNS) != 0) ChildFail("unshare");
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ChildFail("private /");
    std::string e = qorlab::MountServerPaths(dir);
    if (e.empty()) e = qorlab::IsolateDevLog(dir, log.path());
    if (!e.empty()) {
      dprintf(2, "sandbox: %s\n", e.c_str());
      _exit(125);
    }
  });
  log.Take(&r.syslog, &r.syslog_raw);
  return r;
}

}  // namespace qortest
