// Template replication figures of the four-host lab with its real daemons:
// - how long a change marked in the master's row (a newer tpl_updatemill) takes to show as pulled
//   (tpl_syncstate 100) in each other server's row of the master's database, from the mark and
//   from the master monitor's mark of that row (state 300 first seen), over RUNS marks spread
//   over the daemons' 2-second cycle;
// - how long -synctpl takes on a member for a template tree of FILES files of SIZE_MB in all:
//   the first pull, then RUNS pulls with nothing changed and RUNS with one file changed.
// Usage: lab_repl_bench DIR [RUNS] [FILES] [SIZE_MB]   (5, 2000, 200). Needs root; DIR is emptied.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lab/lab.h"
#include "lab_figures.h"

namespace {

using labfigures::Clock;
using labfigures::Report;
using labfigures::Since;
using qorlab::Lab;
using qorlab::NowMill;

constexpr int kMaster = 0;
constexpr int kMember1 = 2;

struct Tpl {
  int state = -1;
  int64_t syncmill = -1;
};

// Template state of every row but the master's, in the master's database, by host name.
std::map<std::string, Tpl> TplRows(const Lab& lab) {
  std::map<std::string, Tpl> rows;
  std::istringstream in(lab.Sql(
      kMaster, "select hostname, tpl_syncstate, tpl_syncmill from clusters where role_id <> 100;"));
  std::string name;
  Tpl t;
  while (in >> name >> t.state >> t.syncmill) rows[name] = t;
  return rows;
}

struct Latency {
  std::vector<double> fromMark, fromMonitor;
};

// One mark after another, each when every row shows the previous one pulled.
std::map<std::string, Latency> MarkRuns(const Lab& lab, int runs) {
  std::map<std::string, Latency> out;
  for (int k = 0; k < runs; ++k) {
    labfigures::Stagger(k);
    int64_t mark = NowMill();
    lab.Sql(kMaster,
            "update clusters set tpl_updatemill=" + std::to_string(mark) + " where role_id=100;");
    Clock::time_point t0 = Clock::now();
    std::map<std::string, double> seen300, done;
    size_t others = static_cast<size_t>(lab.size() - 1);
    while (done.size() < others && Since(t0) < 30) {
      double at = Since(t0);
      for (const auto& [name, t] : TplRows(lab)) {
        if (t.state == 300 && !seen300.count(name)) seen300[name] = at;
        if (t.state == 100 && t.syncmill >= mark && !done.count(name)) done[name] = at;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::printf("mark %d:", k + 1);
    for (const auto& [name, at] : done) {
      out[name].fromMark.push_back(at);
      if (seen300.count(name)) out[name].fromMonitor.push_back(at - seen300[name]);
      std::printf(" %s %.2f s", name.c_str(), at);
    }
    // A mark made between the master's heartbeat read and write of its row is written over.
    std::printf("%s\n", done.size() < others ? " (not all within 30 s: mark lost?)" : "");
  }
  return out;
}

double TimedSync(Lab& lab) {
  Clock::time_point t0 = Clock::now();
  qorlab::RunResult r = lab.Run(kMember1, {"-synctpl"}, 600);
  double s = Since(t0);
  if (r.status != 0) std::printf("-synctpl: status %d %s\n", r.status, r.err.c_str());
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: lab_repl_bench DIR [RUNS] [FILES] [SIZE_MB]\n");
    return 2;
  }
  int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
  int files = argc > 3 ? std::max(1, std::atoi(argv[3])) : 2000;
  int64_t size = (argc > 4 ? std::max(1, std::atoi(argv[4])) : 200) * int64_t{1000 * 1000};
  Lab lab(qorlab::LabOptions{argv[1], 4, true});
  if (!labfigures::UpWithDaemons(lab, "lab_repl_bench")) return 1;
  std::this_thread::sleep_for(std::chrono::seconds(5));

  std::map<std::string, Latency> marks = MarkRuns(lab, runs);
  for (const auto& [name, l] : marks) {
    Report("mark -> " + name + " pulled (state 100)", l.fromMark);
    Report("  the monitor's mark of its row (300) -> 100", l.fromMonitor);
  }

  labfigures::MakeTree(lab, "bench", files, size);
  std::printf("template tree: %d files, %lld bytes\n", files, static_cast<long long>(size));
  std::printf("-synctpl on %s, first pull of the whole tree: %.2f s\n",
              lab.Info(kMember1).name.c_str(), TimedSync(lab));
  // In turns, so that both kinds see the same machine: a pull with nothing changed, then an edit
  // (new content and a newer time) and a pull.
  std::vector<double> same, one;
  std::string changed = lab.Host(kMaster).dir() + "/qor/qortemplates/bench/d0/f0.tpl";
  for (int k = 0; k < runs; ++k) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    same.push_back(TimedSync(lab));
    std::ofstream(changed, std::ios::binary | std::ios::app) << "edit " << k << "\n";
    one.push_back(TimedSync(lab));
  }
  Report("-synctpl, nothing changed", same);
  Report("-synctpl, one file changed", one);
  std::vector<double> word;
  for (int k = 0; k < runs; ++k) {
    Clock::time_point w = Clock::now();
    lab.Run(kMember1, {"-count"});
    word.push_back(Since(w));
  }
  Report("  for scale: -count on the same member (start-up, pools, one query)", word);
  lab.Down();
  return 0;
}
