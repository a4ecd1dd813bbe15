// The fixed paths of the platform that this program reads or runs.
#pragma once

namespace qor {

constexpr const char* kQorDir = "/var/www/html/qor";
constexpr const char* kConfFile = "/var/www/html/qor/.qorconf";
constexpr const char* kEnvFile = "/var/www/html/qor/.env";
// The platform's take-over script, run with no arguments when a server is found down.
constexpr const char* kQordownCommand = "/bin/bash /var/www/html/qor/qorbin/qordown.sh";
// The shared trees the slave and the members pull from the master, and where they land.
constexpr const char* kWlistTree = "/var/www/html/qor/wlist";
constexpr const char* kLumobrTree = "/var/www/html/qor/lumobr";
constexpr const char* kTemplateTree = "/var/www/html/qor/qortemplates";
// The daemon's own state: the take-over record survives restarts of the daemon.
constexpr const char* kStateDir = "/var/lib/qorclustd";
constexpr const char* kTakeoverRecord = "/var/lib/qorclustd/takeovers";
// What the detector observed, rewritten each cycle for -explain; lost with /run at a reboot.
constexpr const char* kRunDir = "/run/qorclustd";
constexpr const char* kObservedFile = "/run/qorclustd/observed";
constexpr const char* kProcCpuinfo = "/proc/cpuinfo";
constexpr const char* kProcLoadavg = "/proc/loadavg";
constexpr const char* kProcMeminfo = "/proc/meminfo";
constexpr const char* kProcStat = "/proc/stat";
// The directory node_exporter's textfile collector reads on Debian.
constexpr const char* kNodeExporterDir = "/var/lib/prometheus/node-exporter";

}  // namespace qor
