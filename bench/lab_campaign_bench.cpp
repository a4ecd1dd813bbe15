// A fault campaign on the lab with its real daemons: a sequence of episodes drawn from a seeded
// generator, so that any run, and any failing episode of it, can be replayed. Episodes: one or two
// members killed (started again once found); a short link flap of a member or of the slave; the
// master or the slave cut off for 30-50 s; a member cut off for 20-30 s; a database stalled for
// 3-8 s, or stopped and started; any daemon restarted; a member's death while the master's
// database is down or stalling; a daemon's clock 30 s ahead or behind, or stepped 20 s forward
// while it runs, with a member killed meanwhile.
// After each episode, once healed: every death found (its row 200 in either database) within its
// bound and taken over exactly once in the cluster; no live server taken over (a cut-off master,
// slave or member counts as dead: its peer takes it over exactly once); no take-over run by the
// server that was cut off; every row active in both databases within 30 s of the episode's end.
// The take-over script learns nothing of the dead server, so runs are told apart by the daemon's
// "qordown.sh for HOST(ADDRESS) started" lines, decisions by its "MASTER/SLAVE detected HOST"
// lines. Usage: lab_campaign_bench DIR SECONDS SEED [MEMBERS] [EPISODE]   (2 members; EPISODE: only
// that episode of the seed's sequence). Exit status 1 when a check failed. Needs root.
// Run by bench/campaign.sh.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "lab/cluster_view.h"
#include "lab/lab.h"
#include "lab_figures.h"

namespace {

using labfigures::Clock;
using labfigures::Since;
using qorlab::kMaster;
using qorlab::kSlave;
using qorlab::Lab;

// A killed member's row goes silent at most one 2-s cycle before the kill, and is judged on the
// watcher's next cycle after 15 s: 15 + 2 + 1.5 of slack.
constexpr double kKillBound = 18.5;
// A cut-off master or slave: its peer spends two 3-s ping bounds of its cycle on it (heartbeat and
// watch) before it judges, so one cycle stretches by up to 6 s.
constexpr double kPeerCutBound = kKillBound + 6;
// The master's database stopped: the slave keeps the watch from its own database, and the cycle in
// which the master's database stops answering may spend its 2-s wait bound on it.
constexpr double kDbDownBound = kKillBound + 2;
// Each stall of the master's database: the stalled time is not counted as silence, and the cycle
// it catches spends up to its 2-s wait bound beyond it.
constexpr double kPerStallExtra = 2;
constexpr int kHealSeconds = 30;

enum Kind { kKill, kFlap, kCutPeer, kCutMember, kStall, kDbRestart, kRestart, kOutage, kClock };
const char* const kKindNames[] = {"kill",     "flap",       "cut",     "cut member",
                                  "db stall", "db restart", "restart", "death in outage",
                                  "clock"};

struct Plan {
  Kind kind = kKill;
  std::vector<int> targets;  // hosts; for kill and the outage's death, the members killed
  int db = kMaster;          // the database stalled or restarted
  int seconds = 0;           // the fault's length
  int gap = 0;               // kill: seconds between two kills; restart: daemon down
  int variant = 0;           // outage: 0 database down, 1 stalling; clock: 0 +30s, 1 -30s, 2 step
  std::vector<int> stalls;   // outage while stalling: stall lengths, then gaps, alternating
  int victim = -1;           // clock: the member killed meanwhile
};

// Portable draws: the same seed gives the same sequence with any standard library.
int Draw(std::mt19937& rng, int lo, int hi) {
  return lo + static_cast<int>(rng() % static_cast<unsigned>(hi - lo + 1));
}

Plan Next(std::mt19937& rng, int hosts) {
  const int members = hosts - 2;
  auto member = [&] { return Draw(rng, 2, hosts - 1); };
  Plan p;
  int r = Draw(rng, 0, 19);
  p.kind = r < 4    ? kKill
           : r < 7  ? kFlap
           : r < 9  ? kCutPeer
           : r < 11 ? kCutMember
           : r < 13 ? kStall
           : r < 14 ? kDbRestart
           : r < 16 ? kRestart
           : r < 18 ? kOutage
                    : kClock;
  switch (p.kind) {
    case kKill: {
      p.targets.push_back(member());
      if (members >= 2 && Draw(rng, 0, 1) == 1) {
        int second = member();
        while (second == p.targets[0]) second = member();
        p.targets.push_back(second);
      }
      p.gap = Draw(rng, 0, 3);
      break;
    }
    case kFlap:
      p.targets.push_back(Draw(rng, 0, members) == 0 ? kSlave : member());
      p.seconds = Draw(rng, 3, 10);
      break;
    case kCutPeer:
      p.targets.push_back(Draw(rng, kMaster, kSlave));
      p.seconds = Draw(rng, 30, 50);
      break;
    case kCutMember:
      p.targets.push_back(member());
      p.seconds = Draw(rng, 20, 30);
      break;
    case kStall:
      p.db = Draw(rng, kMaster, kSlave);
      p.seconds = Draw(rng, 3, 8);
      break;
    case kDbRestart:
      p.db = Draw(rng, kMaster, kSlave);
      p.seconds = Draw(rng, 3, 15);
      break;
    case kRestart:
      p.targets.push_back(Draw(rng, 0, hosts - 1));
      p.gap = Draw(rng, 0, 3);
      break;
    case kOutage:
      p.targets.push_back(member());
      p.variant = Draw(rng, 0, 1);
      for (int s = 0; s < 8; ++s) {
        p.stalls.push_back(Draw(rng, 3, 8));
        p.stalls.push_back(Draw(rng, 4, 7));
      }
      break;
    case kClock:
      p.targets.push_back(Draw(rng, 0, hosts - 1));
      p.variant = Draw(rng, 0, 2);
      p.seconds = 40;
      p.victim = member();
      while (p.victim == p.targets[0]) p.victim = member();
      break;
  }
  return p;
}

// A death the campaign caused (a daemon killed, or a host cut off) and when it was first seen at
// 200 in either database, watched from a thread of its own so that the driver's waits (a database
// starting, a daemon stopping) do not delay the figure.
struct Death {
  int host = -1;
  Clock::time_point at;
  double bound = kKillBound;
  double found = -1;  // seconds after at; -1 while not seen
  std::string why;    // the bound's reason, when not a plain kill
};

class DeathWatch {
 public:
  explicit DeathWatch(const Lab& lab) : lab_(lab), thread_([this] { Run(); }) {}
  ~DeathWatch() {
    stop_ = true;
    thread_.join();
  }
  int Add(Death d) {
    std::lock_guard<std::mutex> l(mu_);
    deaths_.push_back(d);
    return static_cast<int>(deaths_.size()) - 1;
  }
  Death Get(int k) {
    std::lock_guard<std::mutex> l(mu_);
    return deaths_.at(k);
  }
  void SetBound(int k, double bound) {
    std::lock_guard<std::mutex> l(mu_);
    deaths_.at(k).bound = bound;
  }
  bool Found(int k) { return Get(k).found >= 0; }

 private:
  void Run() {
    while (!stop_) {
      std::vector<std::pair<int, Death>> open;
      {
        std::lock_guard<std::mutex> l(mu_);
        for (size_t k = 0; k < deaths_.size(); ++k) {
          if (deaths_[k].found < 0) open.emplace_back(static_cast<int>(k), deaths_[k]);
        }
      }
      if (!open.empty()) {
        std::set<std::string> at200;
        for (int db : {kMaster, kSlave}) {
          for (const qorlab::ClusterRow& r : qorlab::ReadRows(lab_, db)) {
            if (r.status == 200) at200.insert(r.hostname);
          }
        }
        std::lock_guard<std::mutex> l(mu_);
        for (auto& [k, d] : open) {
          if (at200.count(lab_.Info(d.host).name) > 0) deaths_[k].found = Since(d.at);
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
  }

  const Lab& lab_;
  std::mutex mu_;
  std::vector<Death> deaths_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

bool Healed(const Lab& lab) {
  return qorlab::NotAllActive(lab, kMaster).empty() && qorlab::NotAllActive(lab, kSlave).empty();
}

void Sleep(double seconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(static_cast<int>(seconds * 1000)));
}

struct Totals {
  int episodes = 0, failed = 0, deaths = 0, found = 0, liveTakenOver = 0, twice = 0;
  double slowest = 0, slowestPlain = 0;  // plain: deaths bounded at 18.5 s
  std::string slowestWhat;
  std::vector<int> failures;
};

class Campaign {
 public:
  Campaign(Lab& lab, DeathWatch& watch) : lab_(lab), watch_(watch) {}

  // Runs episode index of plan p, checks it, and prints its line.
  void Episode(int index, const Plan& p, Totals& t) {
    deaths_.clear();
    cut_ = -1;
    expected_.clear();
    problems_.clear();
    notes_.clear();
    for (int h : {kMaster, kSlave}) logFrom_[h] = lab_.Syslog(h).size();
    const int runsBefore = qorlab::ClusterTakeovers(lab_);
    Clock::time_point t0 = Clock::now();
    std::string target = Drive(p);
    double length = Since(t0);
    Clock::time_point end = Clock::now();
    if (!qorlab::WaitFor(kHealSeconds, [&] { return Healed(lab_); })) {
      problems_.push_back("not healed " + std::to_string(kHealSeconds) +
                          " s after the episode: " + qorlab::NotAllActive(lab_, kMaster) + " " +
                          qorlab::NotAllActive(lab_, kSlave));
      // The next episode starts from a whole cluster, or its checks say nothing.
      qorlab::WaitFor(120, [&] { return Healed(lab_); });
    } else {
      notes_.push_back("healed " + Fixed(Since(end)) + " s");
    }
    // A second run or a late take-over comes within a few cycles of the heal; after a database's
    // return, once the watcher has observed it again for 15 s.
    Sleep(p.kind == kOutage || p.kind == kDbRestart ? 20 : 6);
    Check(runsBefore, t);
    ++t.episodes;
    std::string result = problems_.empty() ? "ok" : "FAIL:";
    for (const std::string& s : problems_) result += " " + s + ";";
    std::string notes;
    for (const std::string& s : notes_) notes += (notes.empty() ? "" : ", ") + s;
    std::printf("episode %3d  %-15s %-22s %5.1f s  %s  (%s)\n", index, kKindNames[p.kind],
                target.c_str(), length, result.c_str(), notes.c_str());
    std::fflush(stdout);
    if (!problems_.empty()) {
      ++t.failed;
      t.failures.push_back(index);
    }
  }

 private:
  static std::string Fixed(double v) {
    char b[320];
    std::snprintf(b, sizeof b, "%.1f", v);
    return b;
  }
  const std::string& Name(int i) const { return lab_.Info(i).name; }

  int Kill(int i, double bound, const std::string& why = "") {
    lab_.Run(i, {"-stop"});
    // The command's last act is the kill.
    return Expect(i, bound, why);
  }
  int CutOff(int i, double bound, const std::string& why) {
    lab_.Cut(i);
    return Expect(i, bound, why);
  }
  // Host i counts as dead from now on, to be found within bound seconds.
  int Expect(int i, double bound, const std::string& why) {
    Death d;
    d.host = i;
    d.at = Clock::now();
    d.bound = bound;
    d.why = why;
    expected_[i] = 1;
    deaths_.push_back(watch_.Add(d));
    return deaths_.back();
  }
  // Waits until death k is found, a while past its bound at most.
  void AwaitFound(int k) {
    Death d = watch_.Get(k);
    double left = d.bound + 20 - Since(d.at);
    qorlab::WaitFor(std::max(1, static_cast<int>(left)), [&] { return watch_.Found(k); });
  }
  void Revive(int i) {
    qorlab::RunResult r = lab_.StartDaemon(i, false);
    if (r.status != 0) problems_.push_back(Name(i) + "'s daemon did not start again");
  }

  std::string Drive(const Plan& p) {
    switch (p.kind) {
      case kKill: {
        std::vector<int> ks;
        for (size_t j = 0; j < p.targets.size(); ++j) {
          if (j > 0) Sleep(p.gap);
          ks.push_back(Kill(p.targets[j], kKillBound));
        }
        for (size_t j = 0; j < ks.size(); ++j) {
          AwaitFound(ks[j]);
          Revive(p.targets[j]);
        }
        std::string who = Name(p.targets[0]);
        if (p.targets.size() > 1)
          who += "+" + Name(p.targets[1]) + " " + std::to_string(p.gap) + "s apart";
        return who;
      }
      case kFlap:
      case kCutPeer:
      case kCutMember: {
        const int i = p.targets[0];
        if (p.kind == kFlap) {
          lab_.Cut(i);
          if (i == kSlave) cut_ = i;
        } else if (p.kind == kCutPeer) {
          cut_ = i;
          CutOff(i, kPeerCutBound, "peer's two 3-s ping bounds");
        } else {
          CutOff(i, kKillBound, "");
        }
        Sleep(p.seconds);
        lab_.Restore(i);
        return Name(i) + " " + std::to_string(p.seconds) + "s";
      }
      case kStall:
        lab_.StallDatabase(p.db, true);
        Sleep(p.seconds);
        lab_.StallDatabase(p.db, false);
        return Name(p.db) + "'s db " + std::to_string(p.seconds) + "s";
      case kDbRestart: {
        std::string err = lab_.StopDatabase(p.db);
        if (!err.empty()) problems_.push_back(err);
        Sleep(p.seconds);
        err = lab_.StartDatabase(p.db);
        if (!err.empty()) problems_.push_back(err);
        return Name(p.db) + "'s db down " + std::to_string(p.seconds) + "s";
      }
      case kRestart: {
        const int i = p.targets[0];
        lab_.Run(i, {"-stop"});
        Sleep(p.gap);
        Revive(i);
        return Name(i) + " down " + std::to_string(p.gap) + "s";
      }
      case kOutage:
        return Outage(p);
      case kClock:
        return Clocks(p);
    }
    return "";
  }

  // A member dies while the master's database is stopped, or stalls again and again.
  std::string Outage(const Plan& p) {
    const int i = p.targets[0];
    if (p.variant == 0) {
      std::string err = lab_.StopDatabase(kMaster);
      if (!err.empty()) problems_.push_back(err);
      Sleep(2);
      int k = Kill(i, kDbDownBound, "master's db down: slave's watch + 2-s wait bound");
      AwaitFound(k);
      err = lab_.StartDatabase(kMaster);
      if (!err.empty()) problems_.push_back(err);
      Revive(i);
      return Name(i) + ", master's db down";
    }
    std::atomic<bool> stalling{true};
    std::atomic<int> stalled{0};  // seconds of stalls begun so far, with their extra
    std::thread stalls([&] {
      for (size_t s = 0; s + 1 < p.stalls.size() && stalling; s += 2) {
        stalled += p.stalls[s] + static_cast<int>(kPerStallExtra);
        lab_.StallDatabase(kMaster, true);
        for (int w = 0; w < p.stalls[s] * 10; ++w) Sleep(0.1);
        lab_.StallDatabase(kMaster, false);
        for (int w = 0; w < p.stalls[s + 1] * 10 && stalling; ++w) Sleep(0.1);
      }
    });
    Sleep(1);
    int k = Kill(i, kKillBound + 60, "master's db stalling: 18.5 + stalls begun + 2 s each");
    qorlab::WaitFor(90, [&] {
      watch_.SetBound(k, kKillBound + stalled);
      return watch_.Found(k);
    });
    stalling = false;
    stalls.join();
    Revive(i);
    return Name(i) + ", master's db stalling";
  }

  // A daemon's clock skewed, or stepped forward while it runs; a member killed meanwhile.
  std::string Clocks(const Plan& p) {
    const int i = p.targets[0];
    const char* offset = p.variant == 0 ? "+30s" : p.variant == 1 ? "-30s" : "+0s";
    lab_.Run(i, {"-stop"});
    if (lab_.StartDaemonWithClock(i, offset).status != 0) {
      problems_.push_back(Name(i) + "'s daemon did not start with its clock");
    }
    Sleep(10);
    if (p.variant == 2) lab_.SetClock(i, "+20s");
    Sleep(5);
    int k = Kill(p.victim, kKillBound);
    AwaitFound(k);
    Revive(p.victim);
    double left = p.seconds - 15 - watch_.Get(k).found;
    if (left > 0) Sleep(left);
    lab_.Run(i, {"-stop"});
    Revive(i);
    const std::string how = p.variant == 2 ? " stepped +20s" : std::string(" ") + offset;
    return Name(i) + how + ", " + Name(p.victim) + " killed";
  }

  struct Seen {
    int detected = 0, runs = 0;
    std::set<int> by;  // hosts that ran or decided it
  };

  void Check(int runsBefore, Totals& t) {
    std::map<std::string, Seen> seen;
    int started = 0;
    for (int h : {kMaster, kSlave}) {
      std::vector<std::string> lines = lab_.Syslog(h);
      for (size_t n = logFrom_[h]; n < lines.size(); ++n) {
        const std::string& l = lines[n];
        for (const char* who : {"MASTER detected ", "SLAVE detected "}) {
          if (l.rfind(who, 0) != 0) continue;
          std::string host = l.substr(std::string(who).size());
          host = host.substr(0, host.find('('));
          ++seen[host].detected;
          seen[host].by.insert(h);
        }
        if (l.rfind("qordown.sh for ", 0) == 0 && l.find(") started pid=") != std::string::npos) {
          std::string host = l.substr(15);
          host = host.substr(0, host.find('('));
          ++seen[host].runs;
          seen[host].by.insert(h);
          ++started;
        }
      }
    }
    const int runs = qorlab::ClusterTakeovers(lab_) - runsBefore;
    if (runs != started) {
      problems_.push_back(std::to_string(runs) + " runs of the script but " +
                          std::to_string(started) + " started lines");
    }
    for (int k : deaths_) {
      Death d = watch_.Get(k);
      ++t.deaths;
      const std::string& name = Name(d.host);
      if (d.found < 0) {
        problems_.push_back(name + " never found at 200");
      } else {
        ++t.found;
        notes_.push_back(name + " found " + Fixed(d.found) + " s" +
                         (d.why.empty() ? "" : " (bound " + Fixed(d.bound) + ": " + d.why + ")"));
        if (d.found > d.bound) {
          problems_.push_back(name + " found after " + Fixed(d.found) + " s, bound " +
                              Fixed(d.bound) + " s");
        }
        if (d.found > t.slowest) {
          t.slowest = d.found;
          t.slowestWhat = name;
        }
        if (d.why.empty() && d.found > t.slowestPlain) t.slowestPlain = d.found;
      }
    }
    for (int i = 0; i < lab_.size(); ++i) {
      const Seen& s = seen[Name(i)];
      int want = expected_.count(i) ? expected_[i] : 0;
      if (want == 0 && (s.detected > 0 || s.runs > 0)) {
        ++t.liveTakenOver;
        problems_.push_back("live " + Name(i) + " taken over (" + std::to_string(s.detected) +
                            " detected lines, " + std::to_string(s.runs) + " runs)");
      } else if (want == 1 && (s.detected != 1 || s.runs != 1)) {
        if (s.runs > 1 || s.detected > 1) ++t.twice;
        problems_.push_back(Name(i) + " taken over " + std::to_string(s.runs) + " times (" +
                            std::to_string(s.detected) + " detected lines)");
      }
      if (want == 1 && s.runs == 1) {
        notes_.push_back(Name(i) + " taken over by " + Name(*s.by.begin()));
      }
    }
    if (cut_ >= 0) {
      for (auto& [host, s] : seen) {
        if (s.by.count(cut_) > 0) {
          problems_.push_back("the cut-off " + Name(cut_) + " took over " + host);
        }
      }
    }
  }

  Lab& lab_;
  DeathWatch& watch_;
  std::vector<int> deaths_;
  int cut_ = -1;                 // the master or slave whose link was down in this episode
  std::map<int, int> expected_;  // host -> take-overs expected in the cluster
  std::vector<std::string> problems_, notes_;
  size_t logFrom_[2] = {0, 0};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: lab_campaign_bench DIR SECONDS SEED [MEMBERS] [EPISODE]\n");
    return 2;
  }
  const int seconds = std::max(0, std::atoi(argv[2]));
  const unsigned seed = static_cast<unsigned>(std::strtoul(argv[3], nullptr, 10));
  const int members = argc > 4 ? std::clamp(std::atoi(argv[4]), 2, 62) : 2;
  const int only = argc > 5 ? std::atoi(argv[5]) : 0;
  std::printf("seed %u, %d s, %d members%s\n", seed, seconds, members,
              only > 0 ? (", episode " + std::to_string(only) + " only").c_str() : "");
  std::fflush(stdout);
  std::mt19937 rng(seed);
  qorlab::LabOptions opts{argv[1], members + 2, true};
  Lab lab(opts);
  if (!labfigures::UpWithDaemons(lab, "lab_campaign_bench")) return 1;
  if (!qorlab::WaitFor(60, [&] { return Healed(lab); })) {
    std::fprintf(stderr, "lab_campaign_bench: the cluster never became all active\n");
    return 1;
  }
  // Every watcher judges only after 15 s of its own observation.
  Sleep(16);
  Totals t;
  {
    DeathWatch watch(lab);
    Campaign c(lab, watch);
    Clock::time_point t0 = Clock::now();
    for (int index = 1; only > 0 ? index <= only : Since(t0) < seconds; ++index) {
      Plan p = Next(rng, lab.size());
      if (only > 0 && index < only) continue;
      // Events fall at different moments of the daemons' 2-s cycle.
      Sleep(1 + (index * 0.73 - static_cast<int>(index * 0.73)) * 2);
      c.Episode(index, p, t);
    }
  }
  std::printf("episodes %d, failed %d", t.episodes, t.failed);
  for (int f : t.failures) std::printf(" #%d", f);
  std::printf(
      "\ndeaths found %d / %d, slowest find %.1f s (%s), slowest of those bounded at "
      "%.1f s: %.1f s\n",
      t.found, t.deaths, t.slowest, t.slowestWhat.c_str(), kKillBound, t.slowestPlain);
  std::printf("live servers taken over %d, deaths taken over twice %d\n", t.liveTakenOver, t.twice);
  lab.Down();
  return t.failed > 0 ? 1 : 0;
}
