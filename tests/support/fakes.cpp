#include "support/fakes.h"

#include <algorithm>
#include <cstdio>

namespace qortest {

qor::ClustRecord SampleRecord() {
  qor::ClustRecord r;
  r.id = 12;
  r.hostname = "node-1";
  r.ipaddress = "10.0.0.5";
  r.clusterid = "c1";
  r.role = "member";
  r.role_id = 55;  // not the role's own 102: writes that derive it show
  r.status = 100;
  r.dbwrite_count = 77;
  r.last_writemill = 1700000000123;
  r.tpl_updatemill = 1700000000456;
  r.tpl_syncmill = 1700000000789;
  r.tpl_syncstate = 300;
  r.cpuinfo = "Xeon 2.4";
  r.cpus = 2;
  r.cpuphycores = 8;
  r.cpucores = 16;
  r.cpuprocs = 32;
  r.cpuloadavg = 1.236;    // "%0.2f" rounds up
  r.cpuloadavgpp = 0.075;  // just below 0.075 in binary: "%0.2f" rounds down
  r.containers = 9;
  r.cpuutil = 0.91;
  r.memutil = 0.92;
  r.diskutil = 0.93;
  r.qorver = "rec-ver";
  r.updated_at = 12345;
  r.qortimemill = 999;
  return r;
}

std::string Describe(const qor::ClustRecord& r) {
  char text[2048];
  std::snprintf(text, sizeof text,
                "id=%d host=%s ip=%s cid=%s role=%s role_id=%d status=%d dbw=%.0f lw=%lld "
                "tplupd=%lld tplsync=%lld tplstate=%d cpuinfo=%s cpus=%d phy=%d cores=%d procs=%d "
                "load=%g loadpp=%g containers=%d cpu=%g mem=%g disk=%g ver=%s updated=%lld "
                "qortime=%lld",
                r.id, r.hostname.c_str(), r.ipaddress.c_str(), r.clusterid.c_str(), r.role.c_str(),
                r.role_id, r.status, r.dbwrite_count, static_cast<long long>(r.last_writemill),
                static_cast<long long>(r.tpl_updatemill), static_cast<long long>(r.tpl_syncmill),
                r.tpl_syncstate, r.cpuinfo.c_str(), r.cpus, r.cpuphycores, r.cpucores, r.cpuprocs,
                r.cpuloadavg, r.cpuloadavgpp, r.containers, r.cpuutil, r.memutil, r.diskutil,
                r.qorver.c_str(), static_cast<long long>(r.updated_at),
                static_cast<long long>(r.qortimemill));
  return text;
}

bool FakeShell::Run(const char* command, size_t lineMax, int seconds, qor::LineSink sink) {
  commands.push_back(command);
  std::string run = command;
  if (real && real(run)) return qor::PopenShell().Run(run.c_str(), lineMax, seconds, sink);
  for (size_t pos = 0; pos < output.size();) {
    size_t nl = output.find('\n', pos);
    size_t n = std::min(nl == std::string::npos ? output.size() - pos : nl - pos + 1, lineMax - 1);
    std::string piece = output.substr(pos, n);
    sink(piece.data());
    pos += n;
  }
  return true;
}

}  // namespace qortest
