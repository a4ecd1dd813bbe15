#!/usr/bin/env bash
# Failover figures of the four-host lab with its real daemons: a killed member's time to inactive
# (200) in the master's database over KILLS kills, and a cut-off master's time to the slave's
# Detected_3 line over CUTS cuts, with the slave's cycle length while the master is cut, and the
# Detected_ lines naming a live server over the kills.
# Usage: failover.sh [KILLS] [CUTS] [--members N] [--nice-members N]   (10 and 5, 2 members;
#   takes about 30 s a kill, a minute a cut). --members: a lab of N members (1 to 62) besides the
#   master and the slave; --nice-members: their daemons at that niceness (qorlab's option).
# failover.sh --situations ROUNDS: instead, in a time zone whose daylight saving time is in
#   force, a killed member's time to 200 when nothing else is amiss, with its template copy
#   behind, with the master's database server down (and the time until both databases agree
#   once it is back), and with the master's database stalling 3 s in every 10; take-overs beyond
#   one a death, and Detected_ lines naming a live server (about two and a half minutes a round).
# failover.sh --cuts ROUNDS [--members N]: instead, the master and the slave each cut off for
#   45 s, ROUNDS times: take-overs on the cut server and on its peer (about three minutes a round).
# Needs root. QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
members=2
nice=0
situations=0
cuts=0
args=()
while [ $# -gt 0 ]; do
  case $1 in
    --members) members=$2; shift 2 ;;
    --nice-members) nice=$2; shift 2 ;;
    --situations) situations=$2; shift 2 ;;
    --cuts) cuts=$2; shift 2 ;;
    *) args+=("$1"); shift ;;
  esac
done
set -- "${args[@]}"
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=${QOR_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"$(nproc)" --target qorclustd lab_failover_bench lab_detector_bench >&2
if [ "$cuts" -gt 0 ]; then
  exec "$dir/bench/lab_detector_bench" "$dir/detectorbench" "$cuts" $((members + 2)) cuts
fi
if [ "$situations" -gt 0 ]; then
  exec "$dir/bench/lab_detector_bench" "$dir/detectorbench" "$situations"
fi
"$dir/bench/lab_failover_bench" "$dir/failoverbench" "${1:-10}" "${2:-5}" "$members" "$nice"
