// What an operator's two maintenance tools cost and spare, on the lab with its real daemons:
// - maintenance: a member marked for maintenance and stopped for SECONDS (60), then started
//   again: take-overs in the cluster (none expected), the alerts that would fire (every host's
//   metrics file read every 15 s, as a scrape would, and run through the package's alert rules
//   with promtool: none expected), and the time from its start until its row is 100 in both
//   databases;
// - explain: -explain on the master of a lab of SERVERS servers (64), RUNS times: its run time,
//   and every statement that its connections sent to either database (the databases' general
//   logs, on for the run): writes expected none.
// Usage: lab_ops_bench DIR maintenance [SECONDS]
//        lab_ops_bench DIR explain [SERVERS] [RUNS]   (64, 10; members niced, as lab.sh does)
// Needs root; DIR is emptied. Run by bench/operations.sh (which names the checkout in
// QOR_SOURCE_DIR).

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lab/cluster_view.h"
#include "lab/lab.h"
#include "lab_figures.h"

namespace {

using labfigures::Clock;
using labfigures::Report;
using labfigures::Since;
using qorlab::kMaster;
using qorlab::kSlave;
using qorlab::Lab;

constexpr int kMember = 2;
constexpr int kScrapeSeconds = 15;

bool Joined(const Lab& lab) {
  return qorlab::NotAllActive(lab, kMaster).empty() && qorlab::NotAllActive(lab, kSlave).empty();
}

// One scrape of every host's metrics file: series text -> value, with the host as instance.
// Values that are times (the alert rules compare them with time()) are made relative to t0, as
// promtool's evaluation starts at 0.
using Scrape = std::map<std::string, double>;

bool IsTime(const std::string& name) {
  return name.ends_with("_timestamp_seconds") || name == "qorclustd_maintenance" ||
         name == "qorclustd_start_time_seconds";
}

Scrape ScrapeAll(Lab& lab, double t0) {
  Scrape s;
  for (int i = 0; i < lab.size(); ++i) {
    std::ifstream in(lab.dir() + "/" + lab.Info(i).name +
                     "/prometheus/node-exporter/qorclustd.prom");
    std::string line;
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      size_t space = line.rfind(' ');
      std::string series = line.substr(0, space);
      double value = std::atof(line.c_str() + space + 1);
      size_t brace = series.find('{');
      std::string name = series.substr(0, brace);
      std::string labels = brace == std::string::npos ? "" : series.substr(brace + 1);
      if (!labels.empty()) labels.pop_back();  // the closing brace
      std::string instance = "instance=\"" + lab.Info(i).name + "\"";
      series = name + "{" + instance + (labels.empty() ? "" : "," + labels) + "}";
      s[series] = IsTime(name) ? value - t0 : value;
    }
  }
  return s;
}

// The package's alert rules run by promtool over the scrapes, one every 15 s: the alerts that
// fired at any minute, as promtool names them; empty when none did. Series whose text begins
// with leaveOut (when not empty) are left out.
std::string AlertsFired(const std::string& root, const std::string& dir,
                        const std::vector<Scrape>& scrapes, const std::string& leaveOut) {
  std::map<std::string, std::vector<std::string>> series;
  for (size_t k = 0; k < scrapes.size(); ++k) {
    for (const auto& [s, v] : scrapes[k]) {
      if (!leaveOut.empty() && s.rfind(leaveOut, 0) == 0) continue;
      std::vector<std::string>& values = series[s];
      values.resize(scrapes.size(), "");
      std::ostringstream text;
      text.precision(15);
      text << v;
      values[k] = text.str();
    }
  }
  std::ifstream rules(root + "/packaging/qorclustd-alerts.yml");
  std::string line;
  std::vector<std::string> names;
  const std::string alert = "- alert: ";
  while (std::getline(rules, line)) {
    size_t at = line.find(alert);
    if (at != std::string::npos && line.find_first_not_of(' ') == at) {
      names.push_back(line.substr(at + alert.size()));
    }
  }
  std::string file = dir + "/alerts_run.yml";
  std::ofstream out(file);
  out << "rule_files: [" << root << "/packaging/qorclustd-alerts.yml]\n"
      << "evaluation_interval: " << kScrapeSeconds << "s\ntests:\n  - interval: " << kScrapeSeconds
      << "s\n    input_series:\n";
  for (const auto& [s, values] : series) {
    // A series gone from the file is stale at once, as the exporter's next scrape makes it; one
    // that has not appeared yet has no sample.
    std::string v;
    bool seen = false;
    for (const std::string& x : values) {
      seen = seen || !x.empty();
      v += (v.empty() ? "" : " ") + (!x.empty() ? x : seen ? "stale" : "_");
    }
    std::string quoted;
    for (char c : s) quoted += c == '\'' ? std::string("''") : std::string(1, c);
    out << "      - {series: '" << quoted << "', values: '" << v << "'}\n";
  }
  out << "    alert_rule_test:\n";
  for (size_t k = 4; k < scrapes.size(); k += 4) {
    for (const std::string& n : names) {
      out << "      - {eval_time: " << k * kScrapeSeconds << "s, alertname: " << n
          << ", exp_alerts: []}\n";
    }
  }
  out.close();
  std::string command = "promtool test rules '" + file + "' 2>&1";
  FILE* p = popen(command.c_str(), "r");
  if (p == nullptr) return "promtool did not run";
  std::string said;
  char buf[4096];
  while (size_t n = fread(buf, 1, sizeof buf, p)) said.append(buf, n);
  int status = pclose(p);
  if (status == 0) return "";
  std::string fired;
  std::istringstream lines(said);
  while (std::getline(lines, line)) {
    if (line.find("alertname") != std::string::npos || line.find("got:") != std::string::npos) {
      fired += line + "\n";
    }
  }
  return fired.empty() ? said : fired;
}

int Maintenance(Lab& lab, const std::string& root, int seconds) {
  if (!qorlab::WaitFor(60, [&] { return Joined(lab); })) {
    std::fprintf(stderr, "lab_ops_bench: the lab did not join\n");
    return 1;
  }
  std::this_thread::sleep_for(std::chrono::seconds(20));
  const std::string name = lab.Info(kMember).name;
  int takeoversBefore = qorlab::ClusterTakeovers(lab);
  double t0 = static_cast<double>(qorlab::NowMill()) / 1000;
  Clock::time_point start = Clock::now();
  std::vector<Scrape> scrapes;
  auto scrapeUntil = [&](double at) {
    while (Since(start) < at) {
      double next = static_cast<double>(scrapes.size()) * kScrapeSeconds;
      if (Since(start) >= next) scrapes.push_back(ScrapeAll(lab, t0));
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  };
  scrapeUntil(60);
  if (lab.Run(kMaster, {"-maintenance", name, "on", "30", "kernel", "update"}).status != 0 ||
      lab.Run(kMember, {"-stop"}).status != 0) {
    std::fprintf(stderr, "lab_ops_bench: could not mark and stop %s\n", name.c_str());
    return 1;
  }
  double stopped = Since(start);
  scrapeUntil(stopped + seconds);
  Clock::time_point restart = Clock::now();
  lab.StartDaemon(kMember, false);
  double back = -1;
  for (int tick = 0; tick < 600 && back < 0; ++tick) {
    if (qorlab::RowOf(lab, kMaster, name).status == 100 &&
        qorlab::RowOf(lab, kSlave, name).status == 100) {
      back = Since(restart);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  scrapeUntil(Since(start) + 120);
  bool marked = false;
  for (const Scrape& s : scrapes) {
    for (const auto& [series, v] : s) {
      marked =
          marked || (series.rfind("qorclustd_row_status{", 0) == 0 &&
                     series.find("hostname=\"" + name + "\"") != std::string::npos && v >= 200);
    }
  }
  std::printf("%s marked for maintenance and stopped for %d s:\n", name.c_str(), seconds);
  std::printf("  its row marked inactive meanwhile (seen in the metrics): %s\n",
              marked ? "yes" : "no");
  std::printf("  take-overs in the cluster: %d\n", qorlab::ClusterTakeovers(lab) - takeoversBefore);
  std::printf("  back to 100 in both databases %.1f s after its start\n", back);
  std::string fired = AlertsFired(root, lab.dir(), scrapes, "");
  std::printf(
      "  alerts firing over %zu scrapes (%d s apart, the package's rules by promtool): %s\n",
      scrapes.size(), kScrapeSeconds, fired.empty() ? "none" : "");
  if (!fired.empty()) std::printf("%s", fired.c_str());
  // The same series without the mark's: what the mark spared.
  fired = AlertsFired(root, lab.dir(), scrapes, "qorclustd_maintenance");
  std::printf("  the same without the mark's series: %s\n", fired.empty() ? "none" : "");
  if (!fired.empty()) std::printf("%s", fired.c_str());
  return 0;
}

int Explain(Lab& lab, int runs) {
  if (!qorlab::WaitFor(180, [&] { return Joined(lab); })) {
    std::fprintf(stderr, "lab_ops_bench: the lab did not join\n");
    return 1;
  }
  std::this_thread::sleep_for(std::chrono::seconds(20));
  for (int db : {kMaster, kSlave}) {
    lab.Sql(db,
            "truncate mysql.general_log; set global log_output='TABLE'; "
            "set global general_log=1;");
  }
  std::string since = lab.Sql(kMaster, "select now(6);");
  since.pop_back();
  std::vector<double> took;
  size_t lines = 0;
  for (int k = 0; k < runs; ++k) {
    Clock::time_point t = Clock::now();
    qorlab::RunResult r = lab.Run(kMaster, {"-explain"});
    took.push_back(Since(t));
    lines = static_cast<size_t>(std::count(r.out.begin(), r.out.end(), '\n'));
    if (r.status != 0) std::printf("-explain: status %d %s\n", r.status, r.err.c_str());
  }
  std::string until = lab.Sql(kMaster, "select now(6);");
  until.pop_back();
  std::printf("-explain on the master of %d servers (%zu lines):\n", lab.size(), lines);
  Report("  run time", took);
  // The connections -explain opened: from the master's address, begun within the runs. The
  // daemons' own connections were all open before.
  const std::string from = "%[" + lab.Info(kMaster).address + "]%";
  for (int db : {kMaster, kSlave}) {
    lab.Sql(db, "set global general_log=0;");
    std::string threads =
        "select thread_id from mysql.general_log where command_type='Connect' and "
        "user_host like '" +
        from + "' and event_time between '" + since + "' and '" + until + "'";
    std::string counts = lab.Sql(
        db,
        "select count(distinct thread_id), count(*), coalesce(sum(argument regexp "
        "'^[[:space:]]*(insert|update|delete|replace|create|alter|drop|truncate|lock|grant)'"
        "), 0) from mysql.general_log where command_type in ('Query', 'Execute') and "
        "thread_id in (" +
            threads + ");");
    std::istringstream in(counts);
    long connections = 0, statements = 0, writes = 0;
    in >> connections >> statements >> writes;
    std::printf("  %s's database: %ld connections of -explain sent %ld statements, writes %ld\n",
                db == kMaster ? "the master" : "the slave", connections, statements, writes);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: lab_ops_bench DIR maintenance|explain [N] [RUNS]\n");
    return 2;
  }
  std::string mode = argv[2];
  // The alert rules are read from the checkout the script runs from.
  const char* source = getenv("QOR_SOURCE_DIR");
  std::string root = source != nullptr ? source : ".";
  qorlab::LabOptions o{argv[1], 4, true};
  if (mode == "explain") {
    o.hosts = argc > 3 ? std::clamp(std::atoi(argv[3]), 3, 64) : 64;
    o.member_nice = 10;
  }
  Lab lab(o);
  if (!labfigures::UpWithDaemons(lab, "lab_ops_bench")) return 1;
  int status = mode == "explain"
                   ? Explain(lab, argc > 4 ? std::max(1, std::atoi(argv[4])) : 10)
                   : Maintenance(lab, root, argc > 3 ? std::max(10, std::atoi(argv[3])) : 60);
  lab.Down();
  return status;
}
