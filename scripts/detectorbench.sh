#!/usr/bin/env bash
# Detection figures of the four-host lab in a time zone whose daylight saving time is in force: a
# killed member's time to 200 when nothing else is amiss, with its template copy behind, with the
# master's database server down (and the time until both databases agree once it is back), and
# with the master's database stalling 3 s in every 10; take-overs beyond one a death, and
# Detected_ lines naming a live server.
# Usage: detectorbench.sh [ROUNDS]   (3; about two and a half minutes a round)
# Needs root. QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=${QOR_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"$(nproc)" --target qorclustd lab_detector_bench >&2
"$dir/bench/lab_detector_bench" "$dir/detectorbench" "${1:-3}"
