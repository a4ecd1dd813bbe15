// The configuration reader: GetQorconf reads the platform's key=value file into the process-wide
// record cnf (sets Cluster and ClustRole, rebuilds the processor sets, derives the container
// limits); CheckClustConf decides whether the cluster settings fit this server. Both run at
// start-up and in every daemon cycle; a read allocates nothing.
#pragma once

#include "base/fixed_text.h"
#include "config/cpuset.h"

namespace qor {

using CnfText = FixedText<64>;

// Status codes of CheckClustConf.
constexpr int kClustConfValid = 500;
constexpr int kClustConfNotCluster = 501;
constexpr int kClustConfInvalid = 502;

// Process role codes (ClustRole).
constexpr int kRoleMaster = 100;
constexpr int kRoleSlave = 101;
constexpr int kRoleMember = 102;
constexpr int kRoleOther = 103;

// Every setting of the configuration file; fields are named after their keys without "qor_".
// Keys this program never reads are kept as text (values lower-cased unless their case is kept).
// The longest maintenance mark when the configuration names none (or none above 0): a working day.
constexpr int kMaintenanceMinutesDefault = 480;

struct Cnf {
  CnfText match_clientnet, authentication, else_authentication, default_org;
  CnfText cluster = "0";
  CnfText clustid = "0";
  CnfText clustrole = "0";
  CnfText clustmaster = "0";
  CnfText clustslave = "0";
  float clustrate = 1.0f;
  int clustcontrol = 0;
  int clusthandler = 0;
  int clustsweep = 0;
  // The longest maintenance mark allowed, in minutes: a forgotten mark must not switch the
  // detector off for a server for ever.
  int clustmaintmax = kMaintenanceMinutesDefault;
  int maxlimit = 0;    // processor cores x 4
  int maxlimitlo = 0;  // 80 % of maxlimit
  int maxlimithi = 0;  // limitend x maxlimit, rounded
  CnfText xpraproxymaster, xpraproxyslave, fwsvr, xpraproxy;
  CnfText dbsvr = "0";
  CnfText dbname = "qor";
  CnfText dbuser = "qordirect";  // never read from the file
  CnfText dbpwd = "0";
  CnfText dbpolicy;
  CnfText cldbname = "qor";
  CnfText logdbname = "qor";
  CnfText netif = "em0";
  CnfText portstart, portcount, destnat, nameresolve, ipexplicit, nethost, proxyauth;
  CnfText protocol, encode, quality, minquality, speed, bandwidth;
  CnfText else_protocol, else_encode, else_quality, else_minquality, else_speed, else_bandwidth;
  CnfText useencode, nospeaker, cpuperiod, cpuquota;
  CnfText cpuset = "all";
  CnfText numanode, usercert, directprint, simpleprint, cust1, cust2;
  CnfText fsurl, fsopt1, fsopt2, fsopt3, svurl, svopt1, svopt2, svopt3;
  CnfText useqorrun, usestoprm, accesslog, shmsize, mem_softlimit, autostzdl, removeretry, vmount;
  CnfText changename, newfeature, usersave, noretry, cbstz, xprareattach, clientsel, updfolder;
  CnfText flow, flow_umax, flow_dmax, flow_keepdays, flow_rewrite;
  CnfText authlimit, authsec, authlog, drunlimit, drunsec, drunlog, maxproclist, loadavglimit;
  float reserverate = 0.0f;  // back to 0.0 at the start of every read
  CnfText rsvintervalmin, rsvauthlimit, usemaxcon;
  float limitratelo = 0.6f;
  float limitratehi = 0.3f;
  float limitend = 1.1f;
  CnfText backupsavedir, perfintvl, proxyserver, proxyport, proxyusr, proxypwd;
  CnfText usr_csvdir, usr_histsize;
  CnfText lumo_brapp, lumo_foldersel, lumo_brborder, lumo_apitimeout, lumo_ffmode, lumo_msdisable;
  float maxloadpp = 1000.0f;  // load per processor reported for a full server
  // The processor sets qor_cpuset names, in order (unused slots empty), and how many are in use
  // (0: no restriction).
  CpusetText Cpusets[kCpusetSlots];
  int Cpusetnum = 0;
};

// The configuration: process-wide, since every part of the program reads it and the file is its
// one source. Written only by GetQorconf (at start-up, in every heartbeat and at the cycle's
// re-check) and CheckClustConf; tests point Cnffile at a file of their own.
// The configuration file's path; read by GetQorconf.
extern FixedText<128> Cnffile;
// All settings, as last read.
extern Cnf cnf;
// 1 when the configuration enables the cluster.
extern int Cluster;
// kRoleMaster, kRoleSlave, kRoleMember or kRoleOther.
extern int ClustRole;
// The role code of a role text ("master", "slave", "member"; kRoleOther for any other text).
int RoleCodeOf(const char* role);
// This server's own address, the node's identity (from the configured interface). Process-wide:
// written once at start-up; read by the cluster-settings check, the reader's database default and
// the metrics.
extern FixedText<128> CurrentSvr;

// 0 when the file was read, 1 when it cannot be opened (nothing changed).
int GetQorconf();

// 500 valid for the server at own, 501 not in a cluster, 502 invalid. Copies clustid and
// clustrole into the node's own record fields clusterid and role.
int CheckClustConf(const char* own, FixedText<128>& clusterid, FixedText<128>& role);

// Cpu.cores from the configured processor sets (cnf.cpuset), when they name any.
void CnfCore();

// Number of keys the reader knows.
constexpr int kCnfKeyCount = 114;

}  // namespace qor
