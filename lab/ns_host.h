// A host of the lab on this machine: a holder process that is pid 1 of its own pid namespace, with
// its own mount namespace (its /var/www/html/qor bound to a temporary directory, the binary under
// test installed at kInstalledQorclustd, /proc of its own, /dev/log caught) and optionally its own
// network and UTS namespaces. Commands run inside it
// through nsenter, so the real binary sees fixed paths and a process table of its own, as on a
// server. Destroying the host kills its pid 1 and with it everything that runs inside. Needs root.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "lab/syslog_catcher.h"
#include "lab/temp_dir.h"

namespace qorlab {

struct RunResult {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
  std::vector<std::string> syslog;  // message texts, without the priority/date/identity head
};

struct RunOptions {
  std::string input;     // written to standard input, which is then closed
  int uid = 0;           // run as this user (after the mounts are made)
  int timeout_sec = 30;  // the child is killed after this
};

// Where every host has the binary, as a server has it installed: never a path of the build
// machine, whose checkout may sit in a home directory that only its owner may enter.
constexpr const char* kInstalledQorclustd = "/usr/local/sbin/qorclustd";

// Copies the built binary to dir/qorclustd, executable by every user (a build made under a
// restrictive umask is not); false when it could not.
bool CopyQorclustd(const std::string& dir);
// In a private mount namespace of the calling process: dir/qor bound on /var/www/html/qor, and
// the copy in dir installed at kInstalledQorclustd on a /usr/local/sbin of the namespace's own.
// An error text, empty on success.
std::string MountServerPaths(const std::string& dir);

struct HostOptions {
  std::string hostname;      // non-empty: a UTS namespace with this host name
  bool own_network = false;  // a network namespace with only lo (up)
  // The host's directory (its platform directory is dir/qor, its copy of the binary
  // dir/qorclustd); empty: a temporary one, removed with the host. A given directory must exist
  // and is left in place.
  std::string dir;
  // Non-empty: the host's syslog lines go to this file (SyslogCatcher::WriteTo) and Syslog()
  // reads them back from it; RunResult::syslog stays empty.
  std::string syslog_file;
  // "NAME=value" settings put into the environment of every command entered.
  std::vector<std::string> env;
};

class NsHost {
 public:
  explicit NsHost(const HostOptions& opts = {});
  ~NsHost();
  NsHost(const NsHost&) = delete;
  NsHost& operator=(const NsHost&) = delete;

  bool ok() const { return holder_ > 0; }
  pid_t holder() const { return holder_; }
  const std::string& dir() const { return dir_; }
  // Files of the host's platform directory.
  std::string Write(const std::string& name, const std::string& content) const;
  // The real binary inside the host.
  RunResult Run(const std::vector<std::string>& args, const RunOptions& opts = {});
  // A shell command inside the host.
  RunResult Shell(const std::string& command, int timeout_sec = 30);
  // Every syslog line the host's programs wrote so far (message texts).
  const std::vector<std::string>& Syslog();

  // Any program inside the host.
  RunResult Enter(const std::vector<std::string>& argv, const RunOptions& opts);
  // The nsenter command line that enters the host, to be followed by a program and arguments.
  std::vector<std::string> EnterPrefix() const;

 private:
  void Collect();

  HostOptions opts_;
  std::unique_ptr<TempDir> tmp_;
  std::string dir_;
  std::unique_ptr<SyslogCatcher> log_;
  std::vector<std::string> lines_;
  pid_t holder_ = -1;
};

// Runs argv (argv[0] a path) with input on standard input, collecting output, bounded by
// timeout_sec; the child is killed when the time is up.
RunResult RunProgram(const std::vector<std::string>& argv, const RunOptions& opts);
// The same, with inChild run in the child before the program is started (namespaces, mounts).
RunResult RunInChild(const std::vector<std::string>& argv, const RunOptions& opts,
                     const std::function<void()>& inChild);

// Runs statements as the database's root through the server's socket, in database qor: the
// client's status, and its output tab-separated without column names.
RunResult RootSql(const std::string& socket, const std::string& statements);

}  // namespace qorlab
