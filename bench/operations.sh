#!/usr/bin/env bash
# Figures of the operator's maintenance tools on the lab with its real daemons.
# Usage: operations.sh maintenance [SECONDS]   (60; four hosts, about five minutes): a member
#   marked for maintenance and stopped for SECONDS: take-overs, the alerts the package's rules
#   would fire over the metrics files scraped every 15 s (promtool), the time back to 100.
#        operations.sh explain [SERVERS] [RUNS]   (64, 10; about five minutes): -explain's run
#   time on the master, and the statements its connections sent to both databases (writes: none).
# Needs root. QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=${QOR_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"$(nproc)" --target qorclustd lab_ops_bench >&2
QOR_SOURCE_DIR=$root "$dir/bench/lab_ops_bench" "$dir/opsbench" "${@:-maintenance}"
