#include "lab/lab_files.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace qorlab {

namespace {

namespace fs = std::filesystem;

bool WriteFile(const std::string& path, const std::string& content, mode_t mode) {
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) return false;
  }
  return chmod(path.c_str(), mode) == 0;
}

}  // namespace

LabHost LabHostAt(int i) {
  std::string address = std::string(kLabNet) + "." + std::to_string(i + 1);
  if (i == 0) return {"qor-master", "master", address};
  if (i == 1) return {"qor-slave", "slave", address};
  return {"qor-member" + std::to_string(i - 1), "member", address};
}

std::string LabQorconf(const LabHost& h) {
  // The cluster and role lines come before qor_dbsvr, so that every read gives the same record.
  return "qor_cluster=1\n"
         "qor_clustid=lab\n"
         "qor_clustrole=" +
         h.role + "\nqor_clustmaster=" + LabHostAt(0).address +
         "\nqor_clustslave=" + LabHostAt(1).address +
         "\nqor_clustrate=1.0\n"
         "qor_clustsweep=0\n"
         "qor_dbsvr=" +
         LabHostAt(0).address +
         "\nqor_dbname=qor\n"
         "qor_dbpwd='" +
         kLabDbPassword +
         "'\n"
         "qor_cldbname=0\n"
         "qor_netif=" +
         kLabNetif +
         "\nqor_cpuset=all\n"
         "qor_limitratelo=0.6\n"
         "qor_limitratehi=0.3\n"
         "qor_limitend=1.1\n";
}

std::string StandInScript(const std::string& command) {
  bool sync = command != "qordown.sh";
  return "#!/bin/sh\n"
         "# Lab stand-in for the platform's " +
         command +
         ": records the call; answers as a run that did its work.\n"
         "printf '%s %s %s\\n' \"$(date '+%Y-%m-%d %H:%M:%S.%3N')\" " +
         command + " \"$*\" >> " + kLabCallsFile + "\n" + (sync ? "echo SYNC_OK\n" : "");
}

std::string SshdConfig(const std::string& address, const std::string& hostKey,
                       const std::string& authorizedKeys, const std::string& pidFile) {
  return "Port 22\n"
         "ListenAddress " +
         address + "\nHostKey " + hostKey + "\nAuthorizedKeysFile " + authorizedKeys +
         "\nPidFile " + pidFile +
         "\n"
         // The build tree's owners and modes are not a home directory's.
         "StrictModes no\n"
         "UsePAM no\n"
         "UseDNS no\n"
         "PubkeyAuthentication yes\n"
         "PasswordAuthentication no\n"
         "KbdInteractiveAuthentication no\n"
         "PermitRootLogin no\n"
         "AllowUsers qorrun\n"
         "X11Forwarding no\n"
         "AllowTcpForwarding no\n"
         "LogLevel INFO\n";
}

std::string WritePlatformDir(const LabHost& h, const std::string& qorDir,
                             const std::string& keyFile) {
  std::error_code ec;
  fs::create_directories(qorDir + "/qorbin", ec);
  if (ec) return "cannot make " + qorDir + "/qorbin: " + ec.message();
  // qorrun reads the shared trees through sshd: every directory on the way must let it in.
  chmod(qorDir.c_str(), 0755);
  chmod((qorDir + "/qorbin").c_str(), 0755);
  bool ok = WriteFile(qorDir + "/.qorconf", LabQorconf(h), 0644) &&
            WriteFile(qorDir + "/.env", std::string("QOR_VERSION=") + kLabVersion + "\n", 0644);
  for (const char* c : kLabStandIns) {
    ok = ok && WriteFile(qorDir + "/qorbin/" + c, StandInScript(c), 0755);
  }
  fs::copy_file(keyFile, qorDir + "/qorbin/qorrunsec", fs::copy_options::overwrite_existing, ec);
  ok = ok && !ec && chmod((qorDir + "/qorbin/qorrunsec").c_str(), 0600) == 0;
  if (h.role == "master") {
    // Something to pull: one file in each tree the slave and the members copy.
    for (const char* tree : {"qortemplates", "wlist", "lumobr"}) {
      std::string d = qorDir + "/" + tree;
      fs::create_directories(d, ec);
      ok = ok && !ec && chmod(d.c_str(), 0755) == 0 &&
           WriteFile(d + "/" + tree + ".txt", std::string(tree) + " of the lab master\n", 0644);
    }
  }
  return ok ? "" : "cannot write the platform directory " + qorDir;
}

}  // namespace qorlab
