// The shared trees of the master reach the other servers: the slave pulls the whitelist, the
// lumobr tree and the templates, members the templates, each with rsync over ssh as qorrun; the
// pull is recorded in the row (tpl_syncstate 100, tpl_syncmill the start). On the master the trees
// are given to the web server's user, and on master and slave the platform's profile
// synchronisations are triggered. Single-threaded; call after the pools are opened. The pulls
// need the exit status of rsync: SIGCHLD must not be ignored while they run.
#pragma once

#include "base/fixed_text.h"

namespace qor {

// A pull of a large tree, a chown of one, or the platform's synchronisation of every profile may
// take minutes, far beyond the shell's default bound for status commands: cut there, it would be
// cut every time. One that hangs (a master cut off mid-transfer, which ssh alone notices only after
// TCP gives up) is stopped so that the heartbeat resumes.
constexpr int kTreeSeconds = 600;
// The most such commands one pass runs: a slave's three pulls and two profile synchronisations.
constexpr int kTreeCommandsMax = 5;

// A pull: when it began (milliseconds since the epoch, 0 before the first), and whether rsync
// ended with status 0 for every tree of it.
struct TemplatePull {
  int64_t startMill = 0;
  bool ok = false;
};

// The record of the last pull that ended well (tpl_syncstate 100, tpl_syncmill its start), and
// which databases took it (0 the master's, 1 the slave's). Whoever runs pulls keeps it from one to
// the next, so that a database that did not answer gets it at the next pull that can reach it.
struct TplRecord {
  int64_t syncmill = 0;  // 0: nothing to record yet
  bool written[2] = {false, false};
  bool pending() const { return syncmill != 0 && !(written[0] && written[1]); }
};

// Pulls by this node's role (nothing on the master), printing which tree it pulls from where and
// how each pull ended; a pull that ended well becomes record, then record goes to each database
// that has not taken it and answers. A failed pull is logged with the tree and rsync's last error
// line, and leaves the mark as it was, so the next pass tries again. A pull that cannot be started
// ends the process with status 1 ("STAT:SSHERROR").
// host: this server's name, whose rows take the record.
TemplatePull RsyncLicWlistTpl(TplRecord& record, const char* host);
// Master only: 0, or 1 on another role or when a chown cannot be started.
int ChownLicWlistTpl();
// The platform's lumobr and lumodt synchronisations; a command that cannot be started ends the
// process with status 1.
void SyncLumoBrProf();
void SyncLumoDtSecret();

}  // namespace qor
