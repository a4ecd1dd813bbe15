// Runs the real qorclustd as in production, with its fixed paths, but inside a private mount
// namespace: a temporary directory is bound on /var/www/html/qor and a fresh /dev carries a
// /dev/log socket whose syslog lines the sandbox collects. Needs root.
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
  std::string input;    // written to standard input, which is then closed
  int uid = 0;          // run as this user (after the mounts are made)
  int timeout_sec = 30; // the child is killed after this
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

// The qorclustd binary under test.
std::string QorclustdPath();

}  // namespace qortest
