#include "replication/replication.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/clock.h"
#include "base/fatal.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/shell.h"
#include "config/qorconf.h"
#include "net/ping.h"
#include "store/clust_record.h"
#include "store/cluster_writes.h"
#include "store/pools.h"

namespace qor {

namespace {

// step: 1 for the whitelist and lumobr pulls, 2 for the templates, as the failure lines number
// them. True when rsync ended with status 0.
bool Pull(const char* master, const char* tree, int step) {
  FixedText<1024> command;
  command.format("%s -e \"%s\" qorrun@%s:%s %s", "rsync -auvzr --delete",
                 "ssh -i /var/www/html/qor/qorbin/qorrunsec -o 'StrictHostKeyChecking no'", master,
                 tree, kQorDir);
  Trace("rsync... from %s:%s to %s\n", master, tree, kQorDir);
  std::printf("pulling %s from qorrun@%s\n", tree, master);
  // rsync's own closing line only repeats its code; the line before says what went wrong.
  FixedText<256> last, cause;
  int status = kShellNoStatus;
  int64_t began = MonotonicMill();
  bool started = RunShell(
      command.c_str(), kShellLineMax,
      [&](char* line) {
        std::fputs(line, stdout);
        std::string_view text(line);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
        if (text.empty()) return;
        last.set(text);
        if (!text.starts_with("rsync error: ")) cause.set(text);
      },
      kTreeSeconds, &status);
  if (started) {
    double took = static_cast<double>(MonotonicMill() - began) / 1e3;
    if (status == 0) {
      std::printf("pull of %s from %s done in %.1f s\n", tree, master, took);
      return true;
    }
    const char* why = !cause.empty() ? cause.c_str() : !last.empty() ? last.c_str() : "no output";
    std::printf("pull of %s from %s failed after %.1f s (rsync status %d): %s\n", tree, master,
                took, status, why);
    LogError("rsynclicwlisttpl(%d) pull of %s from %s failed (rsync status %d): %s", step, tree,
             master, status, why);
    return false;
  }
  // The system's error text of the pull that could not be started, with a newline.
  FixedText<8192> sshLastError;
  sshLastError.format("%s\n", std::strerror(errno));
  Trace("_rsynclicwlisttpl(%d): sshlasterror=%s\n", step, sshLastError.c_str());
  LogError("rsynclicwlisttpl(%d) sshlasterror=%s", step, sshLastError.c_str());
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

TemplatePull RsyncLicWlistTpl(TplRecord& record, const char* host) {
  int64_t now = GetQorTimeMill();
  if (ClustRole == kRoleMaster) return {};
  TemplatePull pull{now, false};
  const char* master = cnf.clustmaster.c_str();
  // The address stands unquoted in the command line: only a plain address or host name may.
  if (!IsShellSafeWord(master)) {
    LogError("rsynclicwlisttpl refused master address (%.64s)", master);
    return pull;
  }
  bool ok = true;
  if (ClustRole == kRoleSlave) {
    ok = Pull(master, kWlistTree, 1) && ok;
    ok = Pull(master, kLumobrTree, 1) && ok;
  }
  pull.ok = Pull(master, kTemplateTree, 2) && ok;
  if (pull.ok) record = {now, {false, false}};
  const char* addresses[2] = {master, cnf.clustslave.c_str()};
  const Db dbs[2] = {Db::kMaster, Db::kSlave};
  for (int side = 0; side < 2; ++side) {
    if (record.syncmill == 0 || record.written[side] || Ping(addresses[side]) != 0) continue;
    record.written[side] = UpdateTplsyncSql(dbs[side], host, record.syncmill, kTplSynced) == kDbOk;
  }
  return pull;
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
