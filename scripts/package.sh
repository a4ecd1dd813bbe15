#!/usr/bin/env bash
# Builds the Debian package of qorclustd from this tree: a release build of the program alone
# (no tests), installed under /usr. Usage: package.sh [BUILD_DIR]   (build-package, or DIR-package
# with QOR_BUILD_DIR=DIR)
# Prints the package's path on its last line.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-${QOR_BUILD_DIR:-$root/build}-package}
bash "$root/scripts/install-deps.sh" >&2
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=Release -DQOR_TESTS=OFF \
  -DCMAKE_INSTALL_PREFIX=/usr >&2
cmake --build "$dir" -j"$(nproc)" >&2
(cd "$dir" && rm -f ./*.deb && cpack -G DEB >&2)
ls "$dir"/*.deb
