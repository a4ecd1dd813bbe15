#!/usr/bin/env bash
# Template replication figures of the four-host lab with its real daemons: the time from a change
# marked in the master's row to each other server's row showing the pull (median and maximum over
# RUNS marks), and the time of -synctpl on a member for a tree of FILES files / SIZE_MB, when
# nothing changed and when one file changed.
# Usage: templates.sh [RUNS] [FILES] [SIZE_MB]   (5, 2000, 200; takes about two minutes and
# SIZE_MB twice on disk). Needs root. QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=${QOR_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"$(nproc)" --target qorclustd lab_repl_bench >&2
"$dir/bench/lab_repl_bench" "$dir/replbench" "${1:-5}" "${2:-2000}" "${3:-200}"
