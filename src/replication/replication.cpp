#include "replication/replication.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/fatal.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/shell.h"
#include "config/qorconf.h"
#include "store/clust_record.h"
#include "store/cluster_writes.h"
#include "store/pools.h"

namespace qor {

FixedText<8192> SshLastError;
TemplatePull LastTemplatePull;

namespace {

// step: 1 for the whitelist and lumobr pulls, 2 for the templates, as the failure lines number
// them. True when the transfer reached its end.
bool Pull(const char* master, const char* tree, int step) {
  FixedText<1024> command;
  command.format("%s -e \"%s\" qorrun@%s:%s %s", "rsync -auvzr --delete",
                 "ssh -i /var/www/html/qor/qorbin/qorrunsec -o 'StrictHostKeyChecking no'", master,
                 tree, kQorDir);
  Trace("rsync... from %s:%s to %s\n", master, tree, kQorDir);
  bool ended = false;
  bool started = RunShell(
      command.c_str(), kShellLineMax,
      [&](char* line) {
        ended = ended || std::strncmp(line, "total size is ", 14) == 0;
        std::fputs(line, stdout);
      },
      kTreeSeconds);
  if (started) return ended;
  SshLastError.format("%s\n", std::strerror(errno));
  Trace("_rsynclicwlisttpl(%d): sshlasterror=%s\n", step, SshLastError.c_str());
  LogError("rsynclicwlisttpl(%d) sshlasterror=%s", step, SshLastError.c_str());
  std::puts("STAT:SSHERROR");
  CloseConnectionPool();
  FatalExit();
}

// The first output line decides which notice is logged; a command that cannot start ends us.
void SyncProfiles(const char* command, const char* synced, const char* unchanged) {
  bool first = true;
  bool started = RunShell(
      command, 128,
      [&](char* line) {
        if (first) LogNotice("%s", std::strstr(line, "SYNC_OK") ? synced : unchanged);
        first = false;
      },
      kTreeSeconds);
  if (!started) FatalCommand(command);
}

}  // namespace

void RsyncLicWlistTpl() {
  int64_t now = getqortimemill();
  if (ClustRole == kRoleMaster) return;
  LastTemplatePull = {now, false};
  const char* master = cnf.clustmaster.c_str();
  // The address stands unquoted in the command line: only a plain address or host name may.
  if (!IsShellSafeWord(master)) {
    LogError("rsynclicwlisttpl refused master address (%.64s)", master);
    return;
  }
  bool ok = true;
  if (ClustRole == kRoleSlave) {
    ok = Pull(master, kWlistTree, 1) && ok;
    ok = Pull(master, kLumobrTree, 1) && ok;
  }
  LastTemplatePull.ok = Pull(master, kTemplateTree, 2) && ok;
  // A pull that ran but failed is not detected: the start time is recorded all the same.
  const char* host = Clust.hostname.c_str();
  if (Ping(master, 1, 3) == 0) UpdateTplsyncSql(Db::kMaster, host, now, kTplSynced);
  const char* slave = cnf.clustslave.c_str();
  if (Ping(slave, 1, 3) == 0) UpdateTplsyncSql(Db::kSlave, host, now, kTplSynced);
}

int ChownLicWlistTpl() {
  if (ClustRole != kRoleMaster) {
    std::puts("ChownLicWlistTpl can run on only MASTER!");
    return 1;
  }
  for (const char* command : {"chown www-data:docker -R /var/www/html/qor/wlist",
                              "chown www-data:docker -R /var/www/html/qor/qortemplates"}) {
    if (!RunShell(
            command, kShellLineMax, [](char* line) { std::fputs(line, stdout); }, kTreeSeconds)) {
      std::puts("ChownLicWlistTpl run error!");
      return 1;
    }
  }
  return 0;
}

void SyncLumoBrProf() {
  SyncProfiles("lumobrstat -sync_all", "lumobr sync success", "lumobr not need to sync");
}

void SyncLumoDtSecret() {
  SyncProfiles("lumodtstat -sync_all", "lumodt sync success", "lumodt not need to sync");
}

}  // namespace qor
