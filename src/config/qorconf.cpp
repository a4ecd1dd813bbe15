#include "config/qorconf.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/line_reader.h"
#include "base/log.h"
#include "base/paths.h"
#include "config/cpuset.h"
#include "config/processors.h"
#include "config/strutil.h"

namespace qor {

FixedText<128> Cnffile = kConfFile;
Cnf cnf;
int Cluster = 0;
int ClustRole = kRoleOther;
FixedText<128> CurrentSvr;

namespace {

enum class Rule : unsigned char {
  kText,        // copied as it is
  kTextOr,      // copied; the empty value gives the default
  kCluster,     // "1" enables the cluster
  kClustRole,   // like kTextOr "0", then the role code
  kClustRate,   // decimal clamped to [0, 1]; empty gives 1.0
  kInt,         // empty gives 0, digits their value, anything else keeps the field
  kDbsvr,       // depends on the cluster and role lines read before it
  kCldbname,    // empty or "0" gives dbname as it stands
  kLogdbname,   // empty or "0" gives "qor"
  kCpuset,      // empty gives "all"; rebuilds the processor sets
  kFloatIfSet,  // decimal when non-empty, else unchanged
  kReserverate  // decimal; empty gives 0.0
};

struct Key {
  const char* match;  // prefix tested at the start of the lower-cased line
  Rule rule;
  CnfText Cnf::*text;
  int Cnf::*integer;
  float Cnf::*real;
  const char* dflt;
  bool keepCase;  // value taken from the line as read
  bool counted;   // counts as a parameter read
};

constexpr Key T(const char* m, CnfText Cnf::*f, bool keep = false, bool counted = true) {
  return {m, Rule::kText, f, nullptr, nullptr, nullptr, keep, counted};
}
constexpr Key D(const char* m, Rule r, CnfText Cnf::*f, const char* dflt, bool keep = false) {
  return {m, r, f, nullptr, nullptr, dflt, keep, true};
}
constexpr Key I(const char* m, int Cnf::*f) {
  return {m, Rule::kInt, nullptr, f, nullptr, nullptr, false, true};
}
constexpr Key F(const char* m, Rule r, float Cnf::*f) {
  return {m, r, nullptr, nullptr, f, nullptr, false, true};
}

// Tested in this order; the first prefix that matches wins. Three prefixes are shorter than their
// keys, "qor_flow=" carries its "=", and the xpraproxy pair comes before qor_xpraproxy.
const Key kKeys[] = {
    T("qor_match_clientnet", &Cnf::match_clientnet),
    T("qor_authentication", &Cnf::authentication),
    T("qor_else_authentication", &Cnf::else_authentication),
    T("qor_default_org", &Cnf::default_org),
    D("qor_cluster", Rule::kCluster, &Cnf::cluster, "0"),
    D("qor_clustid", Rule::kTextOr, &Cnf::clustid, "0"),
    D("qor_clustrole", Rule::kClustRole, &Cnf::clustrole, "0"),
    D("qor_clustmaster", Rule::kTextOr, &Cnf::clustmaster, "0"),
    D("qor_clustslave", Rule::kTextOr, &Cnf::clustslave, "0"),
    F("qor_clustrate", Rule::kClustRate, &Cnf::clustrate),
    I("qor_clustcontrol", &Cnf::clustcontrol),
    I("qor_clusthandler", &Cnf::clusthandler),
    I("qor_clustsweep", &Cnf::clustsweep),
    T("qor_xpraproxymaster", &Cnf::xpraproxymaster),
    T("qor_xpraproxyslave", &Cnf::xpraproxyslave),
    T("qor_fwsvr", &Cnf::fwsvr),
    T("qor_xpraproxy", &Cnf::xpraproxy),
    D("qor_dbsvr", Rule::kDbsvr, &Cnf::dbsvr, "0"),
    D("qor_dbname", Rule::kTextOr, &Cnf::dbname, "qor"),
    D("qor_dbpwd", Rule::kTextOr, &Cnf::dbpwd, "0", true),
    T("qor_dbpolicy", &Cnf::dbpolicy),
    D("qor_cldbname", Rule::kCldbname, &Cnf::cldbname, nullptr),
    D("qor_logdbname", Rule::kLogdbname, &Cnf::logdbname, "qor"),
    D("qor_netif", Rule::kTextOr, &Cnf::netif, "0"),
    T("qor_portstart", &Cnf::portstart),
    T("qor_portcount", &Cnf::portcount),
    T("qor_destnat", &Cnf::destnat),
    T("qor_nameresolve", &Cnf::nameresolve),
    T("qor_ipexplicit", &Cnf::ipexplicit),
    T("qor_nethost", &Cnf::nethost),
    T("qor_proxyauth", &Cnf::proxyauth),
    T("qor_protocol", &Cnf::protocol),
    T("qor_encode", &Cnf::encode),
    T("qor_quality", &Cnf::quality),
    T("qor_minquality", &Cnf::minquality),
    T("qor_speed", &Cnf::speed),
    T("qor_bandwidth", &Cnf::bandwidth),
    T("qor_else_protocol", &Cnf::else_protocol),
    T("qor_else_encode", &Cnf::else_encode),
    T("qor_else_quality", &Cnf::else_quality),
    T("qor_else_minquality", &Cnf::else_minquality),
    T("qor_else_speed", &Cnf::else_speed),
    T("qor_else_bandwidth", &Cnf::else_bandwidth),
    T("qor_useencode", &Cnf::useencode),
    T("qor_nospeaker", &Cnf::nospeaker),
    T("qor_cpuperiod", &Cnf::cpuperiod),
    T("qor_cpuquota", &Cnf::cpuquota),
    D("qor_cpuset", Rule::kCpuset, &Cnf::cpuset, "all"),
    T("qor_numanode", &Cnf::numanode, true),
    T("qor_usercert", &Cnf::usercert),
    T("qor_directprint", &Cnf::directprint),
    T("qor_simpleprint", &Cnf::simpleprint),
    T("qor_cust1", &Cnf::cust1, true),
    T("qor_cust2", &Cnf::cust2, true),
    T("qor_fsurl", &Cnf::fsurl, true),
    T("qor_fsopt1", &Cnf::fsopt1, true),
    T("qor_fsopt2", &Cnf::fsopt2, true),
    T("qor_fsopt3", &Cnf::fsopt3, true),
    T("qor_svurl", &Cnf::svurl, true),
    T("qor_svopt1", &Cnf::svopt1, true),
    T("qor_svopt2", &Cnf::svopt2, true),
    T("qor_svopt3", &Cnf::svopt3, true),
    T("qor_useqorrun", &Cnf::useqorrun),
    T("qor_usestoprm", &Cnf::usestoprm),
    T("qor_accesslog", &Cnf::accesslog),
    T("qor_shmsize", &Cnf::shmsize),
    T("qor_mem_softlimit", &Cnf::mem_softlimit),
    T("qor_autostzdl", &Cnf::autostzdl),
    T("qor_removeretry", &Cnf::removeretry),
    T("qor_vmount", &Cnf::vmount),
    T("qor_changename", &Cnf::changename),
    T("qor_newfeature", &Cnf::newfeature),
    T("qor_usersave", &Cnf::usersave),
    T("qor_noretry", &Cnf::noretry),
    T("qor_cbstz", &Cnf::cbstz),
    T("qor_xprareattach", &Cnf::xprareattach),
    T("qor_clientsel", &Cnf::clientsel),
    T("qor_updfolder", &Cnf::updfolder, true),
    T("qor_flow=", &Cnf::flow),
    T("qor_flow_umax", &Cnf::flow_umax),
    T("qor_flow_dmax", &Cnf::flow_dmax),
    T("qor_flow_keepdays", &Cnf::flow_keepdays),
    T("qor_flow_rewrite", &Cnf::flow_rewrite),
    T("qor_authlimit", &Cnf::authlimit),
    T("qor_authsec", &Cnf::authsec),
    T("qor_authlog", &Cnf::authlog),
    T("qor_drunlimit", &Cnf::drunlimit),
    T("qor_drunsec", &Cnf::drunsec),
    T("qor_drunlog", &Cnf::drunlog),
    T("qor_maxprocli", &Cnf::maxproclist),
    T("qor_loadavglimit", &Cnf::loadavglimit),
    F("qor_reserverate", Rule::kReserverate, &Cnf::reserverate),
    T("qor_rsvintervalmin", &Cnf::rsvintervalmin),
    T("qor_rsvauthlimit", &Cnf::rsvauthlimit),
    T("qor_usegrpmax", &Cnf::usemaxcon),
    T("qor_usemaxcon", &Cnf::usemaxcon),
    F("qor_limitratelo", Rule::kFloatIfSet, &Cnf::limitratelo),
    F("qor_limitratehi", Rule::kFloatIfSet, &Cnf::limitratehi),
    F("qor_limitend", Rule::kFloatIfSet, &Cnf::limitend),
    T("qor_backupsavedir", &Cnf::backupsavedir, true, false),
    T("qor_perfintvl", &Cnf::perfintvl),
    T("qor_proxyserver", &Cnf::proxyserver, true, false),
    T("qor_proxyport", &Cnf::proxyport, true, false),
    T("qor_proxyusr", &Cnf::proxyusr, true, false),
    T("qor_proxypwd", &Cnf::proxypwd, true, false),
    T("qor_usr_csvdir", &Cnf::usr_csvdir),
    T("qor_usr_histsize", &Cnf::usr_histsize),
    T("lumo_brapp", &Cnf::lumo_brapp),
    T("lumo_foldersel", &Cnf::lumo_foldersel),
    T("lumo_brbord", &Cnf::lumo_brborder),
    T("lumo_apitimeout", &Cnf::lumo_apitimeout),
    T("lumo_ffmode", &Cnf::lumo_ffmode),
    T("lumo_msdisable", &Cnf::lumo_msdisable),
};
static_assert(sizeof kKeys / sizeof kKeys[0] == kCnfKeyCount);

// Values longer than a field's 63 characters are cut at 63: the field is never overrun and a
// cut address or password simply fails to match or connect later, with that failure's message.
void SetTextOr(CnfText& field, const char* value, const char* dflt) {
  field.set(*value == '\0' && dflt != nullptr ? dflt : value);
}

// A number of more digits than an int holds is clamped to the largest int rather than refused:
// whoever wrote it asked for "very much" (a sweep age of 4294967295 minutes means never), and
// keeping the old value instead would keep a setting the file no longer names. It must never
// wrap to a negative value that turns the setting off. Logged when it changes the field, so a
// file that every heartbeat re-reads says it once.
int DigitsToInt(const char* key, const char* digits, int current) {
  errno = 0;
  long long v = std::strtoll(digits, nullptr, 10);
  if (errno != ERANGE && v <= INT_MAX) return static_cast<int>(v);
  if (current != INT_MAX) {
    LogError("getqorconf %s=%.32s is more than an int holds, taken as %d", key, digits, INT_MAX);
  }
  return INT_MAX;
}

int RoleCode(const CnfText& role) {
  if (role == "master") return kRoleMaster;
  if (role == "slave") return kRoleSlave;
  if (role == "member") return kRoleMember;
  return kRoleOther;
}

void ApplyKey(const Key& k, const char* value) {
  switch (k.rule) {
    case Rule::kText:
      cnf.*k.text = value;
      break;
    case Rule::kTextOr:
      SetTextOr(cnf.*k.text, value, k.dflt);
      break;
    case Rule::kCluster:
      cnf.cluster = value;
      Cluster = cnf.cluster == "1" ? 1 : 0;
      if (!Cluster) cnf.cluster = "0";
      break;
    case Rule::kClustRole:
      SetTextOr(cnf.clustrole, value, k.dflt);
      ClustRole = RoleCode(cnf.clustrole);
      break;
    case Rule::kClustRate: {
      float rate = *value == '\0' ? 1.0f : static_cast<float>(std::atof(value));
      // "nan" would pass both comparisons; it takes the server out of the target choice like 0.
      if (rate != rate) rate = 0.0f;
      cnf.clustrate = rate > 1.0f ? 1.0f : rate < 0.0f ? 0.0f : rate;
      break;
    }
    case Rule::kInt:
      if (*value == '\0') {
        cnf.*k.integer = 0;
      } else if (isnumber(value)) {
        cnf.*k.integer = DigitsToInt(k.match, value, cnf.*k.integer);
      }
      break;
    case Rule::kDbsvr:
      cnf.dbsvr = value;
      if (Cluster) {
        if (ClustRole == kRoleMaster || ClustRole == kRoleSlave) {
          cnf.dbsvr.set(cnf.clustmaster);
        } else if (*value == '\0') {
          cnf.dbsvr = "0";
        }
      } else if (*value == '\0') {
        cnf.dbsvr.set(CurrentSvr);
      }
      break;
    case Rule::kCldbname:
      if (*value == '\0' || !std::strcmp(value, "0")) {
        cnf.cldbname.set(cnf.dbname);
      } else {
        cnf.cldbname = value;
      }
      break;
    case Rule::kLogdbname:
      cnf.logdbname = (*value == '\0' || !std::strcmp(value, "0")) ? "qor" : value;
      break;
    case Rule::kCpuset:
      SetTextOr(cnf.cpuset, value, k.dflt);
      getcpuset(Cpusets, cnf.cpuset.c_str(), &Cpusetnum, Cpu.procs);
      break;
    case Rule::kFloatIfSet:
      if (*value != '\0') cnf.*k.real = static_cast<float>(std::atof(value));
      break;
    case Rule::kReserverate:
      cnf.*k.real = *value == '\0' ? 0.0f : static_cast<float>(std::atof(value));
      break;
  }
}

// Returns whether the line counted as a parameter read.
bool ApplyLine(char* raw, char* lower) {
  for (const Key& k : kKeys) {
    if (std::strncmp(lower, k.match, std::strlen(k.match)) != 0) continue;
    ApplyKey(k, getvalptr(k.keepCase ? raw : lower, '='));
    return k.counted;
  }
  return false;
}

// Wide arithmetic: a configured range such as 0-99999999999 must not overflow int.
void DeriveLimits() {
  cnf.maxlimit = ClampToInt(4.0 * Cpu.cores);
  const long long maxlimit = cnf.maxlimit;
  cnf.maxlimitlo = static_cast<int>(maxlimit * 80 / 100);
  if (cnf.limitend > 0.0f) {
    cnf.maxlimithi = ClampToInt(100.0 * cnf.limitend * cnf.maxlimit / 100.0 + 0.5);
  } else {
    cnf.maxlimithi = ClampToInt(maxlimit * 110 / 100 + 0.5);
  }
}

}  // namespace

void cnfcore() {
  CoresFromCpuset(cnf.cpuset.c_str());
}

int GetQorconf() {
  Trace("_xgetqorconf(1): [start] cpus=%d cores=%d procs=%d\n", Cpu.cpus, Cpu.cores, Cpu.procs);
  LineReader in(Cnffile.c_str());
  if (!in.ok()) return 1;
  cnf.reserverate = 0.0f;
  // Lines are read in pieces of at most 8191 bytes; each piece is taken as a line of its own.
  char raw[8192];
  char lower[8192];
  int count = 0;
  while (in.Next(raw, sizeof raw)) {
    if (raw[0] == '\0') continue;
    std::memcpy(lower, raw, std::strlen(raw) + 1);
    strtolower(lower);
    if (ApplyLine(raw, lower)) ++count;
  }
  cnfcore();
  DeriveLimits();
  Trace("_xgetqorconf(1): %d parameters are read\n", count);
  Trace("_xgetqorconf(1): cpusets[%d]=%s cnf.cpuset=%s cpusetnum=%d\n", 0, Cpusets[0].c_str(),
        cnf.cpuset.c_str(), Cpusetnum);
  Trace("_xgetqorconf(2): [end] cores=%d maxlimit=%d maxlimitlo=%d maxlimithi=%d limitend=%.1f\n",
        Cpu.cores, cnf.maxlimit, cnf.maxlimitlo, cnf.maxlimithi, static_cast<double>(cnf.limitend));
  return 0;
}

int CheckClustConf(const char* own, FixedText<128>& clusterid, FixedText<128>& role) {
  Trace("_xcheckcluster(1): cluster=%s clustid=%s role=%s master=%s slave=%s\n",
        cnf.cluster.c_str(), cnf.clustid.c_str(), cnf.clustrole.c_str(), cnf.clustmaster.c_str(),
        cnf.clustslave.c_str());
  if (!Cluster) return kClustConfNotCluster;
  clusterid.set(cnf.clustid);
  if (cnf.clustid.empty()) return kClustConfInvalid;
  role.set(cnf.clustrole);
  const CnfText& m = cnf.clustmaster;
  const CnfText& s = cnf.clustslave;
  ClustRole = RoleCode(cnf.clustrole);
  bool valid = false;
  switch (ClustRole) {
    case kRoleMaster:
      valid = !m.empty() && m == own && !(s == own);
      break;
    case kRoleSlave:
      valid = !m.empty() && !(m == own) && !s.empty() && s == own;
      break;
    case kRoleMember:
      valid = !m.empty() && !(m == own) && !s.empty() && !(s == own);
      break;
    default:
      break;
  }
  return valid ? kClustConfValid : kClustConfInvalid;
}

}  // namespace qor
