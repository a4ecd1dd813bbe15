#!/usr/bin/env bash
# Runs the measurements kept in bench/: builds first, then prints each figure.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
bash "$here/install-deps.sh"
dir=$(bash "$here/build.sh" | tail -n 1)
"$dir/bench/qorconf_bench" "${1:-10000}"
