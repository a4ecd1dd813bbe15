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

constexpr Key TextKey(const char* m, CnfText Cnf::*f, bool keep = false, bool counted = true) {
  return {m, Rule::kText, f, nullptr, nullptr, nullptr, keep, counted};
}
constexpr Key RuleTextKey(const char* m, Rule r, CnfText Cnf::*f, const char* dflt,
                          bool keep = false) {
  return {m, r, f, nullptr, nullptr, dflt, keep, true};
}
constexpr Key IntKey(const char* m, int Cnf::*f) {
  return {m, Rule::kInt, nullptr, f, nullptr, nullptr, false, true};
}
constexpr Key RuleFloatKey(const char* m, Rule r, float Cnf::*f) {
  return {m, r, nullptr, nullptr, f, nullptr, false, true};
}

// Tested in this order; the first prefix that matches wins. Three prefixes are shorter than their
// keys, "qor_flow=" carries its "=", and the xpraproxy pair comes before qor_xpraproxy.
const Key kKeys[] = {
    TextKey("qor_match_clientnet", &Cnf::match_clientnet),
    TextKey("qor_authentication", &Cnf::authentication),
    TextKey("qor_else_authentication", &Cnf::else_authentication),
    TextKey("qor_default_org", &Cnf::default_org),
    RuleTextKey("qor_cluster", Rule::kCluster, &Cnf::cluster, "0"),
    RuleTextKey("qor_clustid", Rule::kTextOr, &Cnf::clustid, "0"),
    RuleTextKey("qor_clustrole", Rule::kClustRole, &Cnf::clustrole, "0"),
    RuleTextKey("qor_clustmaster", Rule::kTextOr, &Cnf::clustmaster, "0"),
    RuleTextKey("qor_clustslave", Rule::kTextOr, &Cnf::clustslave, "0"),
    RuleFloatKey("qor_clustrate", Rule::kClustRate, &Cnf::clustrate),
    IntKey("qor_clustcontrol", &Cnf::clustcontrol),
    IntKey("qor_clusthandler", &Cnf::clusthandler),
    IntKey("qor_clustsweep", &Cnf::clustsweep),
    IntKey("qor_clustmaintmax", &Cnf::clustmaintmax),
    TextKey("qor_xpraproxymaster", &Cnf::xpraproxymaster),
    TextKey("qor_xpraproxyslave", &Cnf::xpraproxyslave),
    TextKey("qor_fwsvr", &Cnf::fwsvr),
    TextKey("qor_xpraproxy", &Cnf::xpraproxy),
    RuleTextKey("qor_dbsvr", Rule::kDbsvr, &Cnf::dbsvr, "0"),
    RuleTextKey("qor_dbname", Rule::kTextOr, &Cnf::dbname, "qor"),
    RuleTextKey("qor_dbpwd", Rule::kTextOr, &Cnf::dbpwd, "0", true),
    TextKey("qor_dbpolicy", &Cnf::dbpolicy),
    RuleTextKey("qor_cldbname", Rule::kCldbname, &Cnf::cldbname, nullptr),
    RuleTextKey("qor_logdbname", Rule::kLogdbname, &Cnf::logdbname, "qor"),
    RuleTextKey("qor_netif", Rule::kTextOr, &Cnf::netif, "0"),
    TextKey("qor_portstart", &Cnf::portstart),
    TextKey("qor_portcount", &Cnf::portcount),
    TextKey("qor_destnat", &Cnf::destnat),
    TextKey("qor_nameresolve", &Cnf::nameresolve),
    TextKey("qor_ipexplicit", &Cnf::ipexplicit),
    TextKey("qor_nethost", &Cnf::nethost),
    TextKey("qor_proxyauth", &Cnf::proxyauth),
    TextKey("qor_protocol", &Cnf::protocol),
    TextKey("qor_encode", &Cnf::encode),
    TextKey("qor_quality", &Cnf::quality),
    TextKey("qor_minquality", &Cnf::minquality),
    TextKey("qor_speed", &Cnf::speed),
    TextKey("qor_bandwidth", &Cnf::bandwidth),
    TextKey("qor_else_protocol", &Cnf::else_protocol),
    TextKey("qor_else_encode", &Cnf::else_encode),
    TextKey("qor_else_quality", &Cnf::else_quality),
    TextKey("qor_else_minquality", &Cnf::else_minquality),
    TextKey("qor_else_speed", &Cnf::else_speed),
    TextKey("qor_else_bandwidth", &Cnf::else_bandwidth),
    TextKey("qor_useencode", &Cnf::useencode),
    TextKey("qor_nospeaker", &Cnf::nospeaker),
    TextKey("qor_cpuperiod", &Cnf::cpuperiod),
    TextKey("qor_cpuquota", &Cnf::cpuquota),
    RuleTextKey("qor_cpuset", Rule::kCpuset, &Cnf::cpuset, "all"),
    TextKey("qor_numanode", &Cnf::numanode, true),
    TextKey("qor_usercert", &Cnf::usercert),
    TextKey("qor_directprint", &Cnf::directprint),
    TextKey("qor_simpleprint", &Cnf::simpleprint),
    TextKey("qor_cust1", &Cnf::cust1, true),
    TextKey("qor_cust2", &Cnf::cust2, true),
    TextKey("qor_fsurl", &Cnf::fsurl, true),
    TextKey("qor_fsopt1", &Cnf::fsopt1, true),
    TextKey("qor_fsopt2", &Cnf::fsopt2, true),
    TextKey("qor_fsopt3", &Cnf::fsopt3, true),
    TextKey("qor_svurl", &Cnf::svurl, true),
    TextKey("qor_svopt1", &Cnf::svopt1, true),
    TextKey("qor_svopt2", &Cnf::svopt2, true),
    TextKey("qor_svopt3", &Cnf::svopt3, true),
    TextKey("qor_useqorrun", &Cnf::useqorrun),
    TextKey("qor_usestoprm", &Cnf::usestoprm),
    TextKey("qor_accesslog", &Cnf::accesslog),
    TextKey("qor_shmsize", &Cnf::shmsize),
    TextKey("qor_mem_softlimit", &Cnf::mem_softlimit),
    TextKey("qor_autostzdl", &Cnf::autostzdl),
    TextKey("qor_removeretry", &Cnf::removeretry),
    TextKey("qor_vmount", &Cnf::vmount),
    TextKey("qor_changename", &Cnf::changename),
    TextKey("qor_newfeature", &Cnf::newfeature),
    TextKey("qor_usersave", &Cnf::usersave),
    TextKey("qor_noretry", &Cnf::noretry),
    TextKey("qor_cbstz", &Cnf::cbstz),
    TextKey("qor_xprareattach", &Cnf::xprareattach),
    TextKey("qor_clientsel", &Cnf::clientsel),
    TextKey("qor_updfolder", &Cnf::updfolder, true),
    TextKey("qor_flow=", &Cnf::flow),
    TextKey("qor_flow_umax", &Cnf::flow_umax),
    TextKey("qor_flow_dmax", &Cnf::flow_dmax),
    TextKey("qor_flow_keepdays", &Cnf::flow_keepdays),
    TextKey("qor_flow_rewrite", &Cnf::flow_rewrite),
    TextKey("qor_authlimit", &Cnf::authlimit),
    TextKey("qor_authsec", &Cnf::authsec),
    TextKey("qor_authlog", &Cnf::authlog),
    TextKey("qor_drunlimit", &Cnf::drunlimit),
    TextKey("qor_drunsec", &Cnf::drunsec),
    TextKey("qor_drunlog", &Cnf::drunlog),
    TextKey("qor_maxprocli", &Cnf::maxproclist),
    TextKey("qor_loadavglimit", &Cnf::loadavglimit),
    RuleFloatKey("qor_reserverate", Rule::kReserverate, &Cnf::reserverate),
    TextKey("qor_rsvintervalmin", &Cnf::rsvintervalmin),
    TextKey("qor_rsvauthlimit", &Cnf::rsvauthlimit),
    TextKey("qor_usegrpmax", &Cnf::usemaxcon),
    TextKey("qor_usemaxcon", &Cnf::usemaxcon),
    RuleFloatKey("qor_limitratelo", Rule::kFloatIfSet, &Cnf::limitratelo),
    RuleFloatKey("qor_limitratehi", Rule::kFloatIfSet, &Cnf::limitratehi),
    RuleFloatKey("qor_limitend", Rule::kFloatIfSet, &Cnf::limitend),
    TextKey("qor_backupsavedir", &Cnf::backupsavedir, true, false),
    TextKey("qor_perfintvl", &Cnf::perfintvl),
    TextKey("qor_proxyserver", &Cnf::proxyserver, true, false),
    TextKey("qor_proxyport", &Cnf::proxyport, true, false),
    TextKey("qor_proxyusr", &Cnf::proxyusr, true, false),
    TextKey("qor_proxypwd", &Cnf::proxypwd, true, false),
    TextKey("qor_usr_csvdir", &Cnf::usr_csvdir),
    TextKey("qor_usr_histsize", &Cnf::usr_histsize),
    TextKey("lumo_brapp", &Cnf::lumo_brapp),
    TextKey("lumo_foldersel", &Cnf::lumo_foldersel),
    TextKey("lumo_brbord", &Cnf::lumo_brborder),
    TextKey("lumo_apitimeout", &Cnf::lumo_apitimeout),
    TextKey("lumo_ffmode", &Cnf::lumo_ffmode),
    TextKey("lumo_msdisable", &Cnf::lumo_msdisable),
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
      ClustRole = RoleCodeOf(cnf.clustrole.c_str());
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
      } else if (IsNumber(value)) {
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
      GetCpuset(cnf.Cpusets, cnf.cpuset.c_str(), &cnf.Cpusetnum, Cpu.procs);
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
    ApplyKey(k, GetValPtr(k.keepCase ? raw : lower, '='));
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

int RoleCodeOf(const char* role) {
  if (!std::strcmp(role, "master")) return kRoleMaster;
  if (!std::strcmp(role, "slave")) return kRoleSlave;
  if (!std::strcmp(role, "member")) return kRoleMember;
  return kRoleOther;
}

void CnfCore() {
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
    StrToLower(lower);
    if (ApplyLine(raw, lower)) ++count;
  }
  CnfCore();
  DeriveLimits();
  Trace("_xgetqorconf(1): %d parameters are read\n", count);
  Trace("_xgetqorconf(1): cpusets[%d]=%s cnf.cpuset=%s cpusetnum=%d\n", 0, cnf.Cpusets[0].c_str(),
        cnf.cpuset.c_str(), cnf.Cpusetnum);
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
  ClustRole = RoleCodeOf(cnf.clustrole.c_str());
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
