#include "cli/maintenance_cmd.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/clock.h"
#include "config/qorconf.h"
#include "store/maintenance.h"
#include "store/pools.h"

namespace qor {

namespace {

int List() {
  std::vector<MaintenanceMark> marks;
  int answered = 0;
  for (Db db : kDbs) answered += ReadMaintenanceSql(db, &marks) == kDbOk ? 1 : 0;
  if (answered == 0 && PoolOf(Db::kMaster) == nullptr && PoolOf(Db::kSlave) == nullptr) {
    std::puts("no database answers: NG");
    return 1;
  }
  if (marks.empty()) std::puts("no server is marked for maintenance");
  for (const MaintenanceMark& m : marks) {
    char since[32], until[32];
    FormatQorDate(since, sizeof since, static_cast<time_t>(m.since), kDateTime);
    FormatQorDate(until, sizeof until, static_cast<time_t>(m.until), kDateTime);
    std::printf("%s maintenance since %s until %s by %s: %s\n", m.hostname.c_str(), since, until,
                m.markedBy.c_str(), m.reason.c_str());
  }
  return 0;
}

int Refuse(const char* why) {
  std::printf("maintenance: %s\n", why);
  std::puts("usage: qorclustd -maintenance [host on minutes reason or host off]");
  return 1;
}

// Who set the mark: the operator behind sudo where there is one, at this host.
std::string Operator(const char* thisHost) {
  const char* user = std::getenv("SUDO_USER");
  if (user == nullptr || *user == '\0') user = std::getenv("LOGNAME");
  if (user == nullptr || *user == '\0') user = "root";
  return std::string(user) + "@" + thisHost;
}

}  // namespace

int MaintenanceCommand(int operandCount, char* const* operands, const char* thisHost) {
  if (operandCount == 0) return List();
  const char* host = operands[0];
  bool on = operandCount >= 4 && std::strcmp(operands[1], "on") == 0;
  bool off = operandCount == 2 && std::strcmp(operands[1], "off") == 0;
  if (!on && !off) return Refuse("say on with minutes and a reason, or off");
  int max = cnf.clustmaintmax > 0 ? cnf.clustmaintmax : kMaintenanceMinutesDefault;
  int minutes = 0;
  std::string reason;
  if (on) {
    char* end = nullptr;
    long m = std::strtol(operands[2], &end, 10);
    if (*operands[2] == '\0' || *end != '\0' || m < 1 || m > max) {
      char why[96];
      std::snprintf(why, sizeof why, "minutes must be 1 to %d (qor_clustmaintmax)", max);
      return Refuse(why);
    }
    minutes = static_cast<int>(m);
    for (int i = 3; i < operandCount; ++i) reason += (i > 3 ? " " : "") + std::string(operands[i]);
  }
  const std::string who = Operator(thisHost);
  int taken = 0;
  for (Db db : kDbs) {
    std::printf("maintenance of %s %s on %s...", host, on ? "on" : "off", AddressOf(db));
    int rc = on ? SetMaintenanceSql(db, host, minutes, reason.c_str(), who.c_str())
                : ClearMaintenanceSql(db, host);
    std::puts(rc == kDbOk ? "OK" : "NG");
    taken += rc == kDbOk ? 1 : 0;
  }
  return taken > 0 ? 0 : 1;
}

}  // namespace qor
