// A cluster of test hosts on this machine: host 0 the master, host 1 the slave, the others
// members. Each host is an NsHost with its own network, mount, UTS and pid namespaces, one veth
// interface (eth0) with an address in 198.18.0.0/24 plugged into a bridge that lives in a network
// namespace of its own, so nothing routes anywhere but between the hosts. The master and the slave
// run a MariaDB server on their address; the master runs an sshd for the account qorrun, whose key
// every host holds at qorbin/qorrunsec. The platform's commands the daemon calls are stand-ins that
// record every call. Every host's syslog goes to a file of its own. A host sees the binary under
// test at kInstalledQorclustd and the lab's directory at kLabDirInHost, never at a path of this
// machine: the checkout may sit under a home directory that each host covers with its own.
//
// One thread drives a Lab; Up, Down and the destructor must not overlap any other call. Needs root.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "lab/ns_host.h"

namespace qorlab {

struct LabOptions {
  std::string dir;        // the lab's directory, emptied at Up; under the build tree
  int hosts = 4;          // at least 2: master and slave, then members
  bool keep_logs = true;  // Down leaves dir/logs (syslog and stand-in call files) in place
  bool fast = false;      // StartDaemons starts each daemon as StartDaemon(i, true) does
  // The niceness of the members' daemons and of all they run (0: the daemons' own, the highest).
  // On one machine the members compete with the master's and the slave's hosts for the same
  // processors, which servers of their own never do; at 64 hosts on two processors that crowd
  // stretches every cycle to seconds. Niced members leave the master and the slave (daemon and
  // database server) the processors they would have as servers.
  int member_nice = 0;
  // The time zone of every host's processes (TZ), the database servers' included; empty: this
  // machine's.
  std::string tz = "";
};

struct LabHost {
  std::string name;     // host name, also the row's hostname
  std::string role;     // "master", "slave" or "member"
  std::string address;  // 198.18.0.x
};

// The lab's fixed facts: addresses, names and the database password.
constexpr const char* kLabNet = "198.18.0";
constexpr const char* kLabNetif = "eth0";
constexpr const char* kLabDbPassword = "Lab Pw&5%x";
constexpr const char* kLabVersion = "4.0.16-lab";
// Where every host sees the lab's directory (LabOptions::dir).
constexpr const char* kLabDirInHost = "/run/lab";
// The PATH of every command run in a host: the stand-ins come first, as a server's own tools.
constexpr const char* kLabPath = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

// Waits until pred() holds, polling four times a second, for at most seconds.
template <class Pred>
bool WaitFor(int seconds, Pred pred) {
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  for (int i = 0; i < seconds * 4 + 1; ++i) {
    if (pred()) return true;
    if (std::chrono::steady_clock::now() >= end) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
  return pred();
}

// This machine's clock in milliseconds since the epoch, the daemons' clock for their rows.
inline int64_t NowMill() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// Takes the bridge port of host i down or up in the bridge namespace held by process bridge;
// an error text, empty on success.
std::string SetLink(pid_t bridge, int i, bool up);

// Name, role and address of host i of a lab.
LabHost LabHostAt(int i);
// The configuration file the lab writes for host i.
std::string LabQorconf(const LabHost& h);

class Lab {
 public:
  explicit Lab(LabOptions opts);
  ~Lab();
  Lab(const Lab&) = delete;
  Lab& operator=(const Lab&) = delete;

  // Builds the whole lab; an error text (and nothing left behind) when it could not.
  std::string Up();
  // Ends every process of the lab and removes its namespaces and data. Idempotent.
  void Down();
  bool up() const { return !hosts_.empty(); }

  int size() const { return static_cast<int>(info_.size()); }
  const LabHost& Info(int i) const { return info_.at(i); }
  NsHost& Host(int i) { return *hosts_.at(i); }
  const std::string& dir() const { return opts_.dir; }

  // qorclustd inside host i, as an operator would run it there.
  RunResult Run(int i, const std::vector<std::string>& args, int timeout_sec = 30);
  // A shell command inside host i.
  RunResult Shell(int i, const std::string& command, int timeout_sec = 30);
  // `qorclustd -start_boot` on every host; an error text naming the hosts that refused.
  std::string StartDaemons();
  // `qorclustd -start_boot` on host i; fast: with the pause after each cycle cut to a twentieth
  // (fast_sleep.cpp), so that re-checks come every few seconds and the slow work (template pulls,
  // sweeps, profile synchronisations, every 150 cycles) after about half a minute.
  // A member's daemon runs at the lab's member_nice.
  RunResult StartDaemon(int i, bool fast);
  // Starts host i's daemon with its wall clock off by offset (libfaketime's form: "+30s", "-30s");
  // SetClock changes the offset of that running daemon at once, as an NTP step would. The
  // monotonic clock stays true, as on a server.
  RunResult StartDaemonWithClock(int i, const std::string& offset);
  void SetClock(int i, const std::string& offset);

  // Host i's syslog: the file, and the message texts it holds so far.
  std::string SyslogPath(int i) const;
  std::vector<std::string> Syslog(int i);
  // The stand-ins' record of host i: one line per call, "date time.ms command arguments".
  std::vector<std::string> Calls(int i) const;

  // Statements as the database's root on host i (0 or 1), in database qor; the tab-separated
  // rows without column names. ok (when given) says whether the client succeeded.
  std::string Sql(int i, const std::string& statements, bool* ok = nullptr) const;

  // Stops host i's database server (0 or 1), as an operator or a crash does, while the host and
  // its daemon go on; and starts it again on the same data. An error text, empty on success.
  std::string StopDatabase(int i);
  std::string StartDatabase(int i);

  // Drops (or lets through again) every packet to host i's database server, as a server that
  // stalls does (a lock, a backup, a swapping host): its clients wait until their bounds.
  std::string StallDatabase(int i, bool stall);

  // Makes every pull from the master's sshd (as qorrun) wait seconds before it begins, as a large
  // tree or a slow link does; 0 puts the plain key back. An error text, empty on success.
  std::string SlowPulls(int seconds);

  // Takes host i's link down (or up again) at the bridge: its packets go nowhere, as when a
  // server's cable is pulled; its processes keep running. Noted in dir/logs/links.log.
  bool Cut(int i);
  bool Restore(int i);

  // Process ids of the lab's namespace holders: the bridge's first, then the hosts'.
  std::vector<pid_t> Holders() const;

 private:
  std::string MakeHosts();
  std::string Wire();
  std::string Prepare();
  std::string StartServices();
  bool Link(int i, bool up);
  void NiceDaemon(int i);
  std::string DbDir(int i) const;

  LabOptions opts_;
  std::vector<LabHost> info_;
  std::vector<std::unique_ptr<NsHost>> hosts_;
  pid_t bridge_ = -1;
};

}  // namespace qorlab
