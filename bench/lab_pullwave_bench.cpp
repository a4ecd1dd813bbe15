// The pull wave: a lab of SERVERS servers with their real daemons, a template tree of SIZE_MB
// on the master changed once, so that the slave and every member pull it after the same mark.
// Figures:
// - the time from the mark until each copy shows 100 in the master's database, and until all do;
// - the pulls the master serves at once (rsync senders in its host) and this machine's load
//   (1-minute average; every host of the lab shares this machine's processors), sampled;
// - the oldest row in either database meanwhile, and the Detected_ lines of the master and the
//   slave (take-overs: none expected);
// - each server's cycle length while its slow pass runs and while none runs: the time between
//   two changes of its row's updated_at in the master's database, sampled every ~0.1 s (the
//   sampling adds up to its period to one sample). The master's own slow work is due 300 s
//   after its start; its profile synchronisation is made to take MASTER_PASS_S seconds and the
//   mark is placed so that the master's pass falls inside the wave.
// Usage: lab_pullwave_bench DIR [SERVERS] [SIZE_MB] [MASTER_PASS_S]   (16, 200, 20). Needs root;
// DIR is emptied.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
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

std::string NetOf(pid_t pid) {
  char link[128] = {};
  std::string path = "/proc/" + std::to_string(pid) + "/ns/net";
  ssize_t n = readlink(path.c_str(), link, sizeof link - 1);
  return n > 0 ? std::string(link, static_cast<size_t>(n)) : "";
}

std::string CmdlineOf(const std::string& pid) {
  std::ifstream in("/proc/" + pid + "/cmdline", std::ios::binary);
  std::string s((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::replace(s.begin(), s.end(), '\0', ' ');
  return s;
}

struct ProcSample {
  std::set<int> passing;  // hosts whose daemon has a slow pass running
  int senders = 0;        // rsync senders in the master's host
};

// One look at every process of this machine: the lab's hosts are network namespaces of it.
ProcSample SampleProcesses(const std::map<std::string, int>& hostOfNet) {
  ProcSample s;
  DIR* d = opendir("/proc");
  if (d == nullptr) return s;
  while (dirent* e = readdir(d)) {
    if (e->d_name[0] < '1' || e->d_name[0] > '9') continue;
    std::string cmd = CmdlineOf(e->d_name);
    bool pass = cmd.rfind("qorclustd pass", 0) == 0;
    bool sender = cmd.rfind("rsync ", 0) == 0 && cmd.find("--server --sender") != std::string::npos;
    if (!pass && !sender) continue;
    auto host = hostOfNet.find(NetOf(std::atoi(e->d_name)));
    if (host == hostOfNet.end()) continue;
    if (pass) s.passing.insert(host->second);
    if (sender && host->second == kMaster) ++s.senders;
  }
  closedir(d);
  return s;
}

double LoadAverage() {
  std::ifstream in("/proc/loadavg");
  double one = 0;
  in >> one;
  return one;
}

int OldestRow(const Lab& lab) {
  int oldest = 0;
  for (int db : {kMaster, kSlave}) {
    std::string age =
        lab.Sql(db, "select max(timestampdiff(second, updated_at, now())) from clusters;");
    if (!age.empty() && age != "NULL\n") oldest = std::max(oldest, std::atoi(age.c_str()));
  }
  return oldest;
}

struct HostTrace {
  std::string stamp;                 // the updated_at last seen
  double changedAt = -1;             // when it was seen changing, seconds since the bench's start
  bool passSinceChange = false;      // a slow pass of the host was seen since that change
  std::vector<double> inPass, idle;  // cycle lengths
  double syncedAt = -1;              // seconds from the mark until its copy showed 100
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: lab_pullwave_bench DIR [SERVERS] [SIZE_MB] [MASTER_PASS_S]\n");
    return 2;
  }
  int servers = argc > 2 ? std::clamp(std::atoi(argv[2]), 3, 64) : 16;
  int64_t size = (argc > 3 ? std::max(1, std::atoi(argv[3])) : 200) * int64_t{1000 * 1000};
  int masterPass = argc > 4 ? std::max(0, std::atoi(argv[4])) : 20;
  Lab lab(qorlab::LabOptions{argv[1], servers, true});
  if (!labfigures::UpWithDaemons(lab, "lab_pullwave_bench")) return 1;
  Clock::time_point started = Clock::now();
  std::map<std::string, int> hostOfNet;
  std::vector<pid_t> holders = lab.Holders();
  for (int i = 0; i < lab.size(); ++i) hostOfNet[NetOf(holders.at(static_cast<size_t>(i) + 1))] = i;
  if (masterPass > 0) {
    lab.Shell(kMaster, "sed -i '2i sleep " + std::to_string(masterPass) +
                           "' /var/www/html/qor/qorbin/lumobrstat");
  }
  // The first pulls of a new cluster, of the small tree, are over before the large one appears.
  qorlab::WaitFor(60, [&] {
    return lab.Sql(kMaster, "select count(*) from clusters where tpl_syncstate <> 100;") == "0\n";
  });
  labfigures::MakeTree(lab, "wave", 2000, size);
  std::printf("%d servers, template tree of 2000 files, %lld bytes; %ld processors\n", servers,
              static_cast<long long>(size), sysconf(_SC_NPROCESSORS_ONLN));
  // The master's slow work falls due about 300 s after its start: the mark comes a little before.
  while (Since(started) < 285) std::this_thread::sleep_for(std::chrono::milliseconds(200));
  int64_t mark = qorlab::MarkTemplates(lab);
  if (mark < 0) {
    std::fprintf(stderr, "the master's heartbeat kept undoing the mark\n");
    return 1;
  }
  Clock::time_point t0 = Clock::now();
  std::vector<HostTrace> trace(static_cast<size_t>(lab.size()));
  std::map<std::string, int> index;
  for (int i = 0; i < lab.size(); ++i) index[lab.Info(i).name] = i;
  int maxSenders = 0, oldest = 0, synced = 0;
  double maxLoad = 0, allSynced = -1, masterPassSeen = -1, masterPassEnd = -1;
  std::map<int, double> sendersFirstAt;  // each count of senders reached, when first
  for (int tick = 0; tick < 6000 && Since(t0) < 600; ++tick) {
    double at = Since(t0);
    ProcSample p = SampleProcesses(hostOfNet);
    maxSenders = std::max(maxSenders, p.senders);
    if (!sendersFirstAt.count(p.senders)) sendersFirstAt[p.senders] = at;
    maxLoad = std::max(maxLoad, LoadAverage());
    if (p.passing.count(kMaster)) {
      if (masterPassSeen < 0) masterPassSeen = at;
    } else if (masterPassSeen >= 0 && masterPassEnd < 0) {
      masterPassEnd = at;
    }
    std::istringstream rows(
        lab.Sql(kMaster,
                "select hostname, unix_timestamp(updated_at), tpl_syncstate, tpl_syncmill "
                "from clusters;"));
    std::string name, stamp;
    int state;
    int64_t syncmill;
    while (rows >> name >> stamp >> state >> syncmill) {
      auto it = index.find(name);
      if (it == index.end()) continue;
      HostTrace& h = trace[static_cast<size_t>(it->second)];
      h.passSinceChange = h.passSinceChange || p.passing.count(it->second) > 0;
      if (stamp != h.stamp) {
        if (h.changedAt >= 0) (h.passSinceChange ? h.inPass : h.idle).push_back(at - h.changedAt);
        h.stamp = stamp;
        h.changedAt = at;
        h.passSinceChange = p.passing.count(it->second) > 0;
      }
      if (it->second != kMaster && h.syncedAt < 0 && state == 100 && syncmill >= mark) {
        h.syncedAt = at;
        ++synced;
      }
    }
    if (tick % 10 == 0) oldest = std::max(oldest, OldestRow(lab));
    if (allSynced < 0 && synced == lab.size() - 1) allSynced = at;
    bool masterDone = masterPass == 0 || masterPassEnd >= 0;
    if (allSynced >= 0 && masterDone && at > allSynced + 10) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }

  std::vector<double> spread;
  for (int i = 1; i < lab.size(); ++i) {
    const HostTrace& h = trace[static_cast<size_t>(i)];
    if (h.syncedAt >= 0) spread.push_back(h.syncedAt);
  }
  std::printf("copies at 100 after the mark: %zu of %d; all after %.1f s\n", spread.size(),
              lab.size() - 1, allSynced);
  Report("  time from the mark to a copy at 100", spread);
  std::printf("pulls served at once by the master: at most %d; first reached at:", maxSenders);
  for (const auto& [n, at] : sendersFirstAt) std::printf(" %d@%.1fs", n, at);
  std::printf("\nthis machine's load (1 min) meanwhile: at most %.2f\n", maxLoad);
  if (masterPass > 0) {
    std::printf("the master's slow pass seen from %.1f s to %.1f s after the mark\n",
                masterPassSeen, masterPassEnd);
  }
  std::printf("oldest row in either database meanwhile: %d s\n", oldest);
  int detected = 0;
  for (int i : {kMaster, kSlave}) detected += qorlab::CountLogged(lab, i, "Detected_");
  std::printf("Detected_ lines on the master and the slave: %d; take-overs run: %d\n", detected,
              qorlab::ClusterTakeovers(lab));
  std::vector<double> memberPass, memberIdle;
  for (int i = 2; i < lab.size(); ++i) {
    const HostTrace& h = trace[static_cast<size_t>(i)];
    memberPass.insert(memberPass.end(), h.inPass.begin(), h.inPass.end());
    memberIdle.insert(memberIdle.end(), h.idle.begin(), h.idle.end());
  }
  Report("cycle length, master, its slow pass running", trace[kMaster].inPass);
  Report("cycle length, master, no slow pass", trace[kMaster].idle);
  Report("cycle length, slave, its slow pass (pull) running", trace[kSlave].inPass);
  Report("cycle length, members, their slow pass (pull) running", memberPass);
  Report("cycle length, members, no slow pass", memberIdle);
  lab.Down();
  return 0;
}
