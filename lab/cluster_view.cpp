#include "lab/cluster_view.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <sstream>

#include "store/clust_record.h"

namespace qorlab {

std::vector<ClusterRow> ReadRows(const Lab& lab, int db, std::string* err) {
  bool ok = false;
  std::string out =
      lab.Sql(db,
              "select hostname, ipaddress, role, qorver, role_id, status, last_writemill, "
              "unix_timestamp(updated_at), unix_timestamp(now()) from clusters "
              "order by id;",
              &ok);
  std::vector<ClusterRow> rows;
  if (!ok) {
    if (err) *err = "reading the clusters table of " + lab.Info(db).name + ": " + out;
    return rows;
  }
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) {
    std::istringstream l(line);
    ClusterRow r;
    std::getline(l, r.hostname, '\t');
    std::getline(l, r.ipaddress, '\t');
    std::getline(l, r.role, '\t');
    std::getline(l, r.qorver, '\t');
    l >> r.role_id >> r.status >> r.last_writemill >> r.updated_at >> r.now;
    rows.push_back(r);
  }
  return rows;
}

ClusterRow RowOf(const Lab& lab, int db, const std::string& hostname) {
  for (const ClusterRow& r : ReadRows(lab, db)) {
    if (r.hostname == hostname) return r;
  }
  return ClusterRow{};
}

std::string NotAllActive(const Lab& lab, int db) {
  std::string err;
  std::vector<ClusterRow> rows = ReadRows(lab, db, &err);
  if (!err.empty()) return err;
  std::ostringstream why;
  if (static_cast<int>(rows.size()) != lab.size()) {
    why << rows.size() << " rows instead of " << lab.size() << ";";
  }
  for (int i = 0; i < lab.size(); ++i) {
    const LabHost& h = lab.Info(i);
    int found = 0;
    for (const ClusterRow& r : rows) {
      if (r.hostname != h.name) continue;
      ++found;
      if (r.ipaddress != h.address || r.role != h.role ||
          r.role_id != qor::RoleIdOf(h.role.c_str()) || r.status != qor::kStatusActive) {
        why << " " << h.name << " has " << r.ipaddress << " " << r.role << " " << r.role_id
            << " status " << r.status << ";";
      }
    }
    if (found != 1) why << " " << found << " rows of " << h.name << ";";
  }
  return why.str().empty() ? "" : "database of " + lab.Info(db).name + ":" + why.str();
}

int CountLogged(Lab& lab, int i, const std::string& prefix) {
  const std::vector<std::string>& lines = lab.Syslog(i);
  return static_cast<int>(std::count_if(
      lines.begin(), lines.end(), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; }));
}

int Takeovers(const Lab& lab, int i) {
  std::vector<std::string> calls = lab.Calls(i);
  return static_cast<int>(std::count_if(calls.begin(), calls.end(), [](const std::string& c) {
    return c.find(" qordown.sh") != std::string::npos;
  }));
}

int ClusterTakeovers(const Lab& lab) {
  return Takeovers(lab, kMaster) + Takeovers(lab, kSlave);
}

int DetectedOtherThan(Lab& lab, const std::set<std::string>& dead) {
  int n = 0;
  for (int host : {kMaster, kSlave}) {
    for (const std::string& line : lab.Syslog(host)) {
      if (line.rfind("Detected_", 0) != 0) continue;
      n += std::none_of(dead.begin(), dead.end(), [&](const std::string& d) {
        return line.find(" that " + d + "(") != std::string::npos;
      });
    }
  }
  return n;
}

bool Moves(const Lab& lab, int db, const std::string& hostname, int seconds) {
  int64_t at = RowOf(lab, db, hostname).updated_at;
  return WaitFor(seconds, [&] { return RowOf(lab, db, hostname).updated_at > at; });
}

// The master's heartbeat writes back the value it read: a mark made between its read and its
// write is lost, and made again.
int64_t MarkTemplates(const Lab& lab) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    const std::string t = std::to_string(NowMill());
    lab.Sql(kMaster, "update clusters set tpl_updatemill=" + t + " where role_id=100;");
    if (!Moves(lab, kMaster, lab.Info(kMaster).name, 5)) continue;
    if (lab.Sql(kMaster, "select tpl_updatemill from clusters where role_id=100;") == t + "\n") {
      return std::stoll(t);
    }
  }
  return -1;
}

std::string DaylightSavingZone() {
  for (const char* zone : {"Europe/Berlin", "Australia/Sydney"}) {
    setenv("TZ", zone, 1);
    tzset();
    time_t now = time(nullptr);
    struct tm tm;
    if (localtime_r(&now, &tm) != nullptr && tm.tm_isdst > 0) return zone;
  }
  return "Australia/Sydney";
}

}  // namespace qorlab
