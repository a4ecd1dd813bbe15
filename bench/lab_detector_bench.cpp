// Detection figures of the four-host lab, in a time zone whose daylight saving time is in force:
// the time from a member's death (its daemon killed) to 200 in a database, in four situations,
// each ROUNDS times: (4) nothing else amiss, the zone's rules only; (1) the master's template
// tree changed just after the death, so the member's copy is behind; (2) the master's database
// server stopped while its host stays up (to 200 in the slave's database; then the time until
// both databases agree once the master's database is back); (3) the master's database stalling
// 3 s in every 10. After each: take-overs in the cluster for that death, and Detected_ lines
// naming a live server.
// Usage: lab_detector_bench DIR [ROUNDS]   (3; about two and a half minutes a round). Needs root.
// Run by scripts/failoverbench.sh --situations ROUNDS.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <set>
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
using labfigures::Stagger;
using qorlab::kMaster;
using qorlab::kSlave;
using qorlab::Lab;

bool Joined(const Lab& lab) {
  return qorlab::NotAllActive(lab, kMaster).empty() && qorlab::NotAllActive(lab, kSlave).empty();
}

// Every row as it should be after member dead died: dead at 200, the others active.
bool Agreed(const Lab& lab, int db, const std::string& dead) {
  std::vector<qorlab::ClusterRow> rows = qorlab::ReadRows(lab, db);
  return static_cast<int>(rows.size()) == lab.size() &&
         std::all_of(rows.begin(), rows.end(), [&](const qorlab::ClusterRow& r) {
           return r.status == (r.hostname == dead ? 200 : 100);
         });
}

struct Figures {
  std::vector<double> found[5];  // by situation 1 to 4
  std::vector<double> agreed;    // situation 2: database back -> both databases agree
  int extraTakeovers = 0, liveDetected = 0, missed = 0;
};

// Kills member i in the situation, measures, and brings the lab back to all active.
void Death(Lab& lab, int situation, int i, int k, Figures& f) {
  const std::string name = lab.Info(i).name;
  if (!qorlab::WaitFor(30, [&] { return Joined(lab); })) {
    std::printf("situation %d: the cluster is not all active; skipped\n", situation);
    return;
  }
  Stagger(k);
  int takeovers = qorlab::ClusterTakeovers(lab);
  if (situation == 2) lab.StopDatabase(kMaster);
  std::atomic<bool> stalling{situation == 3};
  std::thread stalls([&] {
    for (int s = 0; s < 12 && stalling; ++s) {
      lab.StallDatabase(kMaster, true);
      std::this_thread::sleep_for(std::chrono::seconds(3));
      lab.StallDatabase(kMaster, false);
      for (int w = 0; w < 70 && stalling; ++w)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  });
  lab.Run(i, {"-stop"});
  Clock::time_point death = Clock::now();
  if (situation == 1) qorlab::MarkTemplates(lab);
  int db = situation == 2 ? kSlave : kMaster;
  bool found = qorlab::WaitFor(60, [&] { return qorlab::RowOf(lab, db, name).status == 200; });
  double after = Since(death);
  stalling = false;
  stalls.join();
  std::printf("situation %d, %s: %s %.1f s\n", situation, name.c_str(),
              found ? "200 after" : "NOT FOUND in", after);
  if (found) f.found[situation].push_back(after);
  f.missed += found ? 0 : 1;
  if (situation == 2) {
    lab.StartDatabase(kMaster);
    Clock::time_point back = Clock::now();
    if (qorlab::WaitFor(60,
                        [&] { return Agreed(lab, kMaster, name) && Agreed(lab, kSlave, name); })) {
      f.agreed.push_back(Since(back));
    }
  }
  // A second take-over would come within the 15 s after the database's return. The members die in
  // turn, so Detected_ lines naming the master or the slave are the false ones.
  std::this_thread::sleep_for(std::chrono::seconds(situation == 2 ? 20 : 5));
  f.extraTakeovers += qorlab::ClusterTakeovers(lab) - takeovers - 1;
  lab.StartDaemon(i, false);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: lab_detector_bench DIR [ROUNDS]\n");
    return 2;
  }
  int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
  qorlab::LabOptions opts{argv[1], 4, true};
  opts.tz = qorlab::DaylightSavingZone();
  Lab lab(opts);
  if (!labfigures::UpWithDaemons(lab, "lab_detector_bench")) return 1;
  std::printf("time zone %s\n", opts.tz.c_str());
  if (!qorlab::WaitFor(30, [&] { return Joined(lab); })) return 1;
  Figures f;
  int k = 0;
  for (int r = 0; r < rounds; ++r) {
    for (int situation : {4, 1, 2, 3}) {
      Death(lab, situation, 2 + k % 2, k, f);
      ++k;
    }
  }
  f.liveDetected = qorlab::DetectedOtherThan(lab, {lab.Info(2).name, lab.Info(3).name});
  Report("(4) daylight saving time in force: death -> 200 in the master's database", f.found[4]);
  Report("(1) template copy behind: death -> 200 in the master's database", f.found[1]);
  Report("(2) master's database down: death -> 200 in the slave's database", f.found[2]);
  Report("    master's database back -> both databases agree", f.agreed);
  Report("(3) master's database stalling 3 s in 10: death -> 200 in the master's database",
         f.found[3]);
  std::printf(
      "deaths not found: %d; take-overs beyond one a death: %d; Detected_ lines naming a "
      "live server: %d\n",
      f.missed, f.extraTakeovers, f.liveDetected);
  lab.Down();
  return 0;
}
