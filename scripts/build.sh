#!/usr/bin/env bash
# Configures and builds qorclustd and its tests. Usage: build.sh [--sanitize]
# Prints the build directory on its last line. QOR_BUILD_DIR=DIR builds into DIR instead of build/
# (the sanitizer build into DIR-sanitize), as every script here and in bench/ does.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${QOR_BUILD_DIR:-$root/build}
opts=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
if [ "${1:-}" = "--sanitize" ]; then
  dir="$dir-sanitize"
  opts+=(-DQOR_SANITIZE=ON)
fi
cmake -S "$root" -B "$dir" "${opts[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)" >&2
echo "$dir"
