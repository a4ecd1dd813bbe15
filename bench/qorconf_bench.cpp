// Time and heap allocations of one configuration read over a realistic file naming all 113 keys.
// Counts every malloc/calloc/realloc of the process while the reads run.
// Usage: qorconf_bench [reads]
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "config/cpuset.h"
#include "config/processors.h"
#include "config/qorconf.h"

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void __libc_free(void*);

static std::atomic<long> allocations{0};

extern "C" void* malloc(size_t n) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(p, n);
}
extern "C" void free(void* p) {
  __libc_free(p);
}

namespace {

const char* const kKeys[] = {
    "qor_match_clientnet=10.0.0.0/8",
    "qor_authentication=ldap",
    "qor_else_authentication=local",
    "qor_default_org=Main",
    "qor_cluster=1",
    "qor_clustid=prod01",
    "qor_clustrole=member",
    "qor_clustmaster=10.1.0.1",
    "qor_clustslave=10.1.0.2",
    "qor_clustrate=0.8",
    "qor_clustcontrol=1",
    "qor_clusthandler=0",
    "qor_clustsweep=30",
    "qor_xpraproxymaster=10.1.0.1",
    "qor_xpraproxyslave=10.1.0.2",
    "qor_fwsvr=10.1.0.9",
    "qor_xpraproxy=1",
    "qor_dbsvr=10.1.0.1",
    "qor_dbname=qor",
    "qor_dbpwd='S3cret%Pw'",
    "qor_dbpolicy=strict",
    "qor_cldbname=0",
    "qor_logdbname=qorlog",
    "qor_netif=eth0",
    "qor_portstart=20000",
    "qor_portcount=1000",
    "qor_destnat=0",
    "qor_nameresolve=1",
    "qor_ipexplicit=0",
    "qor_nethost=0",
    "qor_proxyauth=0",
    "qor_protocol=h264",
    "qor_encode=h264",
    "qor_quality=80",
    "qor_minquality=30",
    "qor_speed=50",
    "qor_bandwidth=0",
    "qor_else_protocol=vp8",
    "qor_else_encode=vp8",
    "qor_else_quality=60",
    "qor_else_minquality=20",
    "qor_else_speed=40",
    "qor_else_bandwidth=0",
    "qor_useencode=1",
    "qor_nospeaker=0",
    "qor_cpuperiod=100000",
    "qor_cpuquota=200000",
    "qor_cpuset=0-7,16-23",
    "qor_numanode=0",
    "qor_usercert=0",
    "qor_directprint=1",
    "qor_simpleprint=0",
    "qor_cust1=Custom One",
    "qor_cust2=Custom Two",
    "qor_fsurl=smb://Files/Share",
    "qor_fsopt1=vers=3.0",
    "qor_fsopt2=",
    "qor_fsopt3=",
    "qor_svurl=https://Sv/Api",
    "qor_svopt1=",
    "qor_svopt2=",
    "qor_svopt3=",
    "qor_useqorrun=1",
    "qor_usestoprm=1",
    "qor_accesslog=1",
    "qor_shmsize=2g",
    "qor_mem_softlimit=4g",
    "qor_autostzdl=0",
    "qor_removeretry=3",
    "qor_vmount=0",
    "qor_changename=0",
    "qor_newfeature=0",
    "qor_usersave=1",
    "qor_noretry=0",
    "qor_cbstz=1",
    "qor_xprareattach=1",
    "qor_clientsel=0",
    "qor_updfolder=/Updates",
    "qor_flow=1",
    "qor_flow_umax=100",
    "qor_flow_dmax=100",
    "qor_flow_keepdays=30",
    "qor_flow_rewrite=0",
    "qor_authlimit=5",
    "qor_authsec=60",
    "qor_authlog=1",
    "qor_drunlimit=5",
    "qor_drunsec=60",
    "qor_drunlog=1",
    "qor_maxproclist=200",
    "qor_loadavglimit=8",
    "qor_reserverate=0.1",
    "qor_rsvintervalmin=5",
    "qor_rsvauthlimit=3",
    "qor_usegrpmaxcon=1",
    "qor_usemaxcon=1",
    "qor_limitratelo=0.6",
    "qor_limitratehi=0.3",
    "qor_limitend=1.1",
    "qor_backupsavedir=/Backup",
    "qor_perfintvl=60",
    "qor_proxyserver=Proxy.Local",
    "qor_proxyport=3128",
    "qor_proxyusr=User",
    "qor_proxypwd=Pass",
    "qor_usr_csvdir=/csv",
    "qor_usr_histsize=100",
    "lumo_brapp=chromium",
    "lumo_foldersel=1",
    "lumo_brborder=1",
    "lumo_apitimeout=30",
    "lumo_ffmode=0",
    "lumo_msdisable=0",
};

}  // namespace

int main(int argc, char** argv) {
  int reads = argc > 1 ? std::atoi(argv[1]) : 10000;
  char path[] = "/tmp/qorconf_bench.XXXXXX";
  int fd = mkstemp(path);
  std::string text = "# platform settings\n";
  for (const char* k : kKeys) text += std::string(k) + "\n";
  if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) return 1;
  close(fd);

  qor::Cnffile.set(path);
  qor::Cpu.procs = 32;
  qor::Cpu.cores = 16;
  qor::GetQorconf();  // first read: lazily initialised library state is not counted

  std::vector<double> us;
  us.reserve(static_cast<size_t>(reads));
  long before = allocations.load();
  for (int i = 0; i < reads; ++i) {
    auto t0 = std::chrono::steady_clock::now();
    qor::GetQorconf();
    auto t1 = std::chrono::steady_clock::now();
    us.push_back(std::chrono::duration<double, std::micro>(t1 - t0).count());
  }
  long allocs = allocations.load() - before;
  unlink(path);
  std::sort(us.begin(), us.end());
  std::printf("keys=%zu bytes=%zu reads=%d\n", sizeof kKeys / sizeof kKeys[0], text.size(), reads);
  std::printf("time per read: median %.1f us, p99 %.1f us, max %.1f us\n", us[us.size() / 2],
              us[us.size() * 99 / 100], us.back());
  std::printf("heap allocations per read: %.3f (total %ld)\n", static_cast<double>(allocs) / reads,
              allocs);
  std::printf("cores=%d maxlimit=%d clustrole=%s\n", qor::Cpu.cores, qor::cnf.maxlimit,
              qor::cnf.clustrole.c_str());
  return 0;
}
