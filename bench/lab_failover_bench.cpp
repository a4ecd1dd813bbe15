// Failover figures of the four-host lab with its real daemons: how long the master takes to mark
// a killed member inactive in its database (kill to 200 there), and how long the slave takes to
// report a master whose link is pulled (cut to its Detected_3 line), with the master row's age
// when found and the length of the slave's cycles while it pings the silent master; and over the
// kills, Detected_ lines that named a server nobody killed. Members are killed in turn and
// started again; the master's link is restored after each cut. The moments of kill and cut are
// spread over the daemons' 2-second cycle.
// Usage: lab_failover_bench DIR [KILLS] [CUTS] [MEMBERS] [NICE]   (10, 5, 2 members at niceness
// 0: qorlab's --nice-members; about 30 s a kill and a minute a cut)
// Needs root; DIR is emptied.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
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
using qorlab::Lab;

constexpr int kMaster = 0;
constexpr int kSlave = 1;

double WallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

int Status(const Lab& lab, int db, const std::string& hostname) {
  bool ok = false;
  std::string out =
      lab.Sql(db, "select status from clusters where hostname = '" + hostname + "';", &ok);
  return ok && !out.empty() ? std::atoi(out.c_str()) : -1;
}

// Every host's row, and only those, active in both databases.
bool AllActive(const Lab& lab) {
  const std::string want = std::to_string(lab.size()) + "\t" + std::to_string(lab.size()) + "\n";
  for (int db : {kMaster, kSlave}) {
    if (lab.Sql(db, "select count(*), sum(status = 100) from clusters;") != want) return false;
  }
  return true;
}

struct Line {
  double at;  // the syslog catcher's time stamp, seconds since the epoch
  std::string text;
};

// Lines of host i's syslog that contain text, with the time each was received.
std::vector<Line> Lines(const Lab& lab, int i, const std::string& text) {
  std::vector<Line> found;
  std::ifstream in(lab.SyslogPath(i));
  for (std::string l; std::getline(in, l);) {
    struct tm tm {};
    int ms = 0;
    if (l.find(text) == std::string::npos) continue;
    const char* rest = strptime(l.c_str(), "%Y-%m-%d %H:%M:%S", &tm);
    if (rest == nullptr || std::sscanf(rest, ".%3d", &ms) != 1) continue;
    tm.tm_isdst = -1;
    found.push_back({static_cast<double>(mktime(&tm)) + ms / 1000.0, l});
  }
  return found;
}

// Polls pred every 100 ms for at most seconds; true as soon as it holds.
template <class Pred>
bool Poll(double seconds, Pred pred) {
  Clock::time_point t0 = Clock::now();
  while (Since(t0) < seconds) {
    if (pred()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return pred();
}

std::vector<double> MemberKills(Lab& lab, int kills) {
  std::vector<double> latencies;
  std::set<std::string> dead;
  for (int k = 0; k < kills; ++k) {
    int i = 2 + k % (lab.size() - 2);
    const std::string& name = lab.Info(i).name;
    dead.insert(name);
    if (!Poll(30, [&] { return AllActive(lab); })) {
      std::printf("kill %d: the cluster is not all active; stopped\n", k + 1);
      break;
    }
    Stagger(k);
    lab.Run(i, {"-stop"});
    // The command's last act is the kill.
    Clock::time_point killed = Clock::now();
    bool found = Poll(60, [&] { return Status(lab, kMaster, name) == 200; });
    double latency = Since(killed);
    std::printf("kill %d %s: %s %.2f s\n", k + 1, name.c_str(),
                found ? "200 after" : "NOT FOUND in", latency);
    if (found) latencies.push_back(latency);
    lab.StartDaemon(i, false);
  }
  // With many daemons on few processors a slow cycle could pass for a dead server: the count of
  // such mistakes is a figure of its own.
  std::printf("Detected_ lines naming a server never killed: %d\n",
              qorlab::DetectedOtherThan(lab, dead));
  return latencies;
}

struct CutFigures {
  std::vector<double> latencies, ages, cycles;
};

// "<updated_at> ... <now>" of a Detected_ line: the row's age when found.
double AgeOf(const std::string& line) {
  long updated = 0, now = 0;
  size_t a = line.find(")<"), b = line.find("time<");
  if (a == std::string::npos || b == std::string::npos) return -1;
  updated = std::atol(line.c_str() + a + 2);
  now = std::atol(line.c_str() + b + 5);
  return static_cast<double>(now - updated);
}

CutFigures MasterCuts(Lab& lab, int cuts) {
  CutFigures f;
  const std::string detected = "Detected_3 that " + lab.Info(kMaster).name;
  const std::string cycleLine = "Ping master(" + lab.Info(kMaster).address + ") failed";
  for (int k = 0; k < cuts; ++k) {
    if (!Poll(90, [&] { return AllActive(lab); })) {
      std::printf("cut %d: the cluster is not all active; stopped\n", k + 1);
      break;
    }
    Stagger(k);
    size_t before = Lines(lab, kSlave, detected).size();
    lab.Cut(kMaster);
    double cut = WallNow();
    bool found = Poll(90, [&] { return Lines(lab, kSlave, detected).size() > before; });
    if (found) {
      Line d = Lines(lab, kSlave, detected)[before];
      f.latencies.push_back(d.at - cut);
      f.ages.push_back(AgeOf(d.text));
      std::vector<Line> pings = Lines(lab, kSlave, cycleLine);
      std::vector<double> during;
      for (size_t j = 1; j < pings.size(); ++j) {
        if (pings[j - 1].at > cut && pings[j].at <= d.at)
          during.push_back(pings[j].at - pings[j - 1].at);
      }
      f.cycles.insert(f.cycles.end(), during.begin(), during.end());
      std::printf(
          "cut %d: Detected_3 after %.2f s, the master's row %.0f s old, %zu slave cycles\n", k + 1,
          d.at - cut, f.ages.back(), during.size());
    } else {
      std::printf("cut %d: NO Detected_3 within 90 s\n", k + 1);
    }
    lab.Restore(kMaster);
  }
  return f;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: lab_failover_bench DIR [KILLS] [CUTS] [MEMBERS] [NICE]\n");
    return 2;
  }
  int kills = argc > 2 ? std::max(0, std::atoi(argv[2])) : 10;
  int cuts = argc > 3 ? std::max(0, std::atoi(argv[3])) : 5;
  int members = argc > 4 ? std::clamp(std::atoi(argv[4]), 1, 62) : 2;
  qorlab::LabOptions opts{argv[1], members + 2, true};
  opts.member_nice = argc > 5 ? std::clamp(std::atoi(argv[5]), -20, 19) : 0;
  Lab lab(opts);
  if (!labfigures::UpWithDaemons(lab, "lab_failover_bench")) return 1;
  std::vector<double> kill = MemberKills(lab, kills);
  CutFigures cut = MasterCuts(lab, cuts);
  Report("member killed -> 200 in the master's database", kill);
  Report("master cut -> Detected_3 on the slave", cut.latencies);
  Report("  the master's row's age when found (updated_at whole seconds)", cut.ages);
  Report("  the slave's cycle while the master is cut (2 s sleep included)", cut.cycles);
  lab.Down();
  return 0;
}
