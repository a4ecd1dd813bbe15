#!/usr/bin/env bash
# Template replication figures of the lab with its real daemons.
# Usage: templates.sh [RUNS] [FILES] [SIZE_MB]   (5, 2000, 200; four hosts, about two minutes and
#   SIZE_MB twice on disk): the time from a change marked in the master's row to each other
#   server's row showing the pull (median and maximum over RUNS marks), and the time of -synctpl
#   on a member for a tree of FILES files / SIZE_MB, when nothing changed and when one file changed.
#        templates.sh --wave [SERVERS] [SIZE_MB] [MASTER_PASS_S]   (16, 200, 20; about seven
#   minutes and SIZE_MB once per server on disk): every copy pulls a changed tree of SIZE_MB after
#   one mark, while the master's own slow work takes MASTER_PASS_S: the time until every copy is
#   pulled and how the pulls spread, the pulls the master serves at once, this machine's load, the
#   oldest row, take-overs, and each role's cycle length while its slow pass runs.
# Needs root. QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=${QOR_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
if [ "${1:-}" = --wave ]; then
  shift
  cmake --build "$dir" -j"$(nproc)" --target qorclustd lab_pullwave_bench >&2
  "$dir/bench/lab_pullwave_bench" "$dir/wavebench" "${1:-16}" "${2:-200}" "${3:-20}"
else
  cmake --build "$dir" -j"$(nproc)" --target qorclustd lab_repl_bench >&2
  "$dir/bench/lab_repl_bench" "$dir/replbench" "${1:-5}" "${2:-2000}" "${3:-200}"
fi
