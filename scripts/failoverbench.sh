#!/usr/bin/env bash
# Failover figures of the four-host lab with its real daemons: a killed member's time to inactive
# (200) in the master's database over KILLS kills, and a cut-off master's time to the slave's
# Detected_3 line over CUTS cuts, with the slave's cycle length while the master is cut.
# Usage: failoverbench.sh [KILLS] [CUTS] [--members N] [--nice-members N]   (10 and 5, 2 members;
#   takes about 30 s a kill, a minute a cut). --members: a lab of N members (1 to 62) besides the
#   master and the slave; --nice-members: their daemons at that niceness (qorlab's option).
# Needs root. QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
members=2
nice=0
args=()
while [ $# -gt 0 ]; do
  case $1 in
    --members) members=$2; shift 2 ;;
    --nice-members) nice=$2; shift 2 ;;
    *) args+=("$1"); shift ;;
  esac
done
set -- "${args[@]}"
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=${QOR_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"$(nproc)" --target qorclustd lab_failover_bench >&2
"$dir/bench/lab_failover_bench" "$dir/failoverbench" "${1:-10}" "${2:-5}" "$members" "$nice"
