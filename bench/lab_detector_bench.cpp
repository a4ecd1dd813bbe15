// Detection figures of the four-host lab, in a time zone whose daylight saving time is in force:
// the time from a member's death (its daemon killed) to 200 in a database, in four situations,
// each ROUNDS times: (4) nothing else amiss, the zone's rules only; (1) the master's template
// tree changed just after the death, so the member's copy is behind; (2) the master's database
// server stopped while its host stays up (to 200 in the slave's database; then the time until
// both databases agree once the master's database is back); (3) the master's database stalling
// 3 s in every 10. After each: take-overs in the cluster for that death, and Detected_ lines
// naming a live server. Then, each round: a member's death while the master's take-over script
// takes 40 s (the master's own row's largest age meanwhile, the slave's detections), and the
// master and the slave cut off for 45 s in turn (take-overs on the cut server and on its peer, and
// the time from the link's return until every row is active in both databases).
// Usage: lab_detector_bench DIR [ROUNDS] [HOSTS] [cuts]   (3, 4; about six minutes a round).
// cuts: the cut-offs alone, each round (about three minutes a round). Needs root.
// Run by bench/failover.sh --situations ROUNDS and --cuts ROUNDS.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
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
  std::vector<double> longAge;  // the master's own row, oldest while a 40 s take-over ran
  int longSlaveDetected = 0;
  std::vector<double> cutRuns[2], peerRuns[2], rejoined[2];  // by the host cut off
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
  const std::set<std::string> members = {lab.Info(2).name, lab.Info(3).name};
  int falseDetections = qorlab::DetectedOtherThan(lab, members);
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
  // turn, so Detected_ lines naming the master or the slave meanwhile are the false ones.
  std::this_thread::sleep_for(std::chrono::seconds(situation == 2 ? 20 : 5));
  f.extraTakeovers += qorlab::ClusterTakeovers(lab) - takeovers - 1;
  f.liveDetected += qorlab::DetectedOtherThan(lab, members) - falseDetections;
  lab.StartDaemon(i, false);
}

// Member i dies while the master's take-over script takes 40 s (and exits 3): how old the master's
// own row gets in either database meanwhile, and what the slave detects.
void LongTakeover(Lab& lab, int i, Figures& f) {
  const qorlab::LabHost& m = lab.Info(i);
  if (!qorlab::WaitFor(30, [&] { return Joined(lab); })) return;
  const std::string script = lab.Host(kMaster).dir() + "/qor/qorbin/qordown.sh";
  std::string original;
  std::getline(std::ifstream(script), original, '\0');
  std::ofstream(script, std::ios::app) << "sleep 40\nexit 3\n";
  int slaveDetected = qorlab::CountLogged(lab, kSlave, "Detected_");
  lab.Run(i, {"-stop"});
  const std::string ended = "qordown.sh for " + m.name + "(" + m.address + ") ended ";
  const int endedBefore = qorlab::CountLogged(lab, kMaster, ended);
  double worst = 0;
  Clock::time_point t0 = Clock::now();
  while (Since(t0) < 120 && qorlab::CountLogged(lab, kMaster, ended) == endedBefore) {
    for (int db : {kMaster, kSlave}) {
      qorlab::ClusterRow r = qorlab::RowOf(lab, db, lab.Info(kMaster).name);
      worst = std::max(worst, static_cast<double>(r.now - r.updated_at));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
  }
  std::string last;
  for (const std::string& l : lab.Syslog(kMaster)) {
    if (l.rfind(ended, 0) == 0) last = l;
  }
  std::printf("long take-over: %s\n", last.c_str());
  f.longAge.push_back(worst);
  f.longSlaveDetected += qorlab::CountLogged(lab, kSlave, "Detected_") - slaveDetected;
  std::ofstream(script, std::ios::trunc) << original;
  lab.StartDaemon(i, false);
}

// Host cut (the master or the slave) loses its link for 45 s: take-overs it runs and its peer
// runs, and the time from the link's return until every row is active in both databases.
void CutOff(Lab& lab, int cut, int k, Figures& f) {
  const int peer = cut == kMaster ? kSlave : kMaster;
  if (!qorlab::WaitFor(30, [&] { return Joined(lab); })) return;
  Stagger(k);
  int onCut = qorlab::Takeovers(lab, cut), onPeer = qorlab::Takeovers(lab, peer);
  lab.Cut(cut);
  std::this_thread::sleep_for(std::chrono::seconds(45));
  lab.Restore(cut);
  Clock::time_point back = Clock::now();
  if (qorlab::WaitFor(90, [&] { return Joined(lab); })) f.rejoined[cut].push_back(Since(back));
  // A held take-over would run 15 s after the others write again.
  std::this_thread::sleep_for(std::chrono::seconds(20));
  f.cutRuns[cut].push_back(qorlab::Takeovers(lab, cut) - onCut);
  f.peerRuns[cut].push_back(qorlab::Takeovers(lab, peer) - onPeer);
  std::printf("%s cut 45 s: %d take-overs there, %d on its peer\n", lab.Info(cut).name.c_str(),
              qorlab::Takeovers(lab, cut) - onCut, qorlab::Takeovers(lab, peer) - onPeer);
}

void DeathReports(const Figures& f) {
  Report("(4) daylight saving time in force: death -> 200 in the master's database", f.found[4]);
  Report("(1) template copy behind: death -> 200 in the master's database", f.found[1]);
  Report("(2) master's database down: death -> 200 in the slave's database", f.found[2]);
  Report("    master's database back -> both databases agree", f.agreed);
  Report("(3) master's database stalling 3 s in 10: death -> 200 in the master's database",
         f.found[3]);
  Report("a 40 s take-over script: the master's own row's largest age in either database",
         f.longAge);
  std::printf("  Detected_ lines on the slave meanwhile: %d\n", f.longSlaveDetected);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: lab_detector_bench DIR [ROUNDS] [HOSTS] [cuts]\n");
    return 2;
  }
  int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
  int hosts = argc > 3 ? std::clamp(std::atoi(argv[3]), 4, 64) : 4;
  bool cutsOnly = argc > 4 && std::string(argv[4]) == "cuts";
  qorlab::LabOptions opts{argv[1], hosts, true};
  opts.tz = qorlab::DaylightSavingZone();
  Lab lab(opts);
  if (!labfigures::UpWithDaemons(lab, "lab_detector_bench")) return 1;
  std::printf("time zone %s\n", opts.tz.c_str());
  if (!qorlab::WaitFor(30, [&] { return Joined(lab); })) return 1;
  Figures f;
  int k = 0;
  for (int r = 0; r < rounds; ++r) {
    for (int situation : {4, 1, 2, 3}) {
      if (cutsOnly) break;
      Death(lab, situation, 2 + k % 2, k, f);
      ++k;
    }
    if (!cutsOnly) LongTakeover(lab, 2 + k % 2, f);
    for (int cut : {kMaster, kSlave}) CutOff(lab, cut, k++, f);
  }
  std::printf("%d servers\n", lab.size());
  if (!cutsOnly) DeathReports(f);
  for (int cut : {kMaster, kSlave}) {
    const std::string who = lab.Info(cut).name + " cut 45 s";
    Report(who + ": take-overs it ran", f.cutRuns[cut], "");
    Report(who + ": take-overs its peer ran", f.peerRuns[cut], "");
    Report(who + ": link back -> every row active in both databases", f.rejoined[cut]);
  }
  std::printf(
      "deaths not found: %d; take-overs beyond one a death: %d; Detected_ lines naming a "
      "live server: %d\n",
      f.missed, f.extraTakeovers, f.liveDetected);
  lab.Down();
  return 0;
}
