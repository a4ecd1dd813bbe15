// Runs the real qorclustd as in production, with its fixed paths, but inside a private mount
// namespace: a temporary directory is bound on /var/www/html/qor, the binary is installed at
// kInstalledQorclustd and a fresh /dev carries a /dev/log socket whose syslog lines the sandbox
// collects. Needs root.
#pragma once

#include <string>
#include <vector>

#include "lab/ns_host.h"
#include "lab/syslog_catcher.h"
#include "lab/temp_dir.h"

namespace qortest {

using qorlab::HostOptions;
using qorlab::kInstalledQorclustd;
using qorlab::NsHost;
using qorlab::RunOptions;
using qorlab::RunProgram;
using qorlab::RunResult;
using qorlab::SyslogCatcher;
using qorlab::TempDir;

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

}  // namespace qortest
