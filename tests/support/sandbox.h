// Runs the real qorclustd as in production, with its fixed paths, but inside a private mount
// namespace: a temporary directory is bound on /var/www/html/qor, the binary is installed at
// kInstalledQorclustd and a fresh /dev carries a /dev/log socket whose syslog lines the sandbox
// collects. Needs root.
#pragma once

#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace qortest {

struct RunResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
  std::vector<std::string> syslog;  // message texts, without the priority/date/identity head
  std::vector<std::string> syslog_raw;
};

struct RunOptions {
  std::string input;     // written to standard input, which is then closed
  int uid = 0;           // run as this user (after the mounts are made)
  int timeout_sec = 30;  // the child is killed after this
};

class Sandbox {
 public:
  Sandbox();
  // Files of the platform directory (/var/www/html/qor inside the sandbox).
  std::string Write(const std::string& name, const std::string& content) const {
    return dir_.Write("qor/" + name, content);
  }
  const std::string& dir() const { return dir_.path(); }
  RunResult Run(const std::vector<std::string>& args, const RunOptions& opts = {}) const;

 private:
  TempDir dir_;
};

// Where the sandbox and every test host have the binary under test, as a server has it
// installed: never a path of the build machine, whose checkout may sit in a home directory that
// only its owner may enter.
constexpr const char* kInstalledQorclustd = "/usr/local/sbin/qorclustd";

// Copies the binary under test to dir/qorclustd, executable by every user (a build made under a
// restrictive umask is not); false when it could not.
bool CopyQorclustd(const std::string& dir);
// In a private mount namespace of the calling process: dir/qor bound on /var/www/html/qor, and
// the copy in dir installed at kInstalledQorclustd on a /usr/local/sbin of the namespace's own.
// An error text, empty on success.
std::string MountServerPaths(const std::string& dir);

}  // namespace qortest
