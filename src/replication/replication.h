// The shared trees of the master reach the other servers: the slave pulls the whitelist, the
// lumobr tree and the templates, members the templates, each with rsync over ssh as qorrun; the
// pull is recorded in the row (tpl_syncstate 100, tpl_syncmill the start). On the master the trees
// are given to the web server's user, and on master and slave the platform's profile
// synchronisations are triggered. Single-threaded; call after the pools are opened.
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

// The system's error text of the last pull that could not be started, with a newline.
extern FixedText<8192> SshLastError;

// The last pull of this process: when it began (milliseconds since the epoch, 0 before the
// first), and whether every tree of it reached the end of its transfer. rsync's exit status is
// out of reach (the daemon ignores SIGCHLD): a transfer that ends prints its summary line
// ("total size is ..."), one cut off by the network, a refusal or the bound does not.
struct TemplatePull {
  int64_t startMill = 0;
  bool ok = false;
};
extern TemplatePull LastTemplatePull;

// Pulls by this node's role (nothing on the master) and records the pull. A pull that cannot be
// started ends the process with status 1 ("STAT:SSHERROR"), the daemon included.
void RsyncLicWlistTpl();
// Master only: 0, or 1 on another role or when a chown cannot be started.
int ChownLicWlistTpl();
// The platform's lumobr and lumodt synchronisations; a command that cannot be started ends the
// process with status 1.
void SyncLumoBrProf();
void SyncLumoDtSecret();

}  // namespace qor
