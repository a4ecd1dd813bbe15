#!/usr/bin/env bash
# Builds the Debian package of qorclustd from this tree with debhelper (packaging/debian): a
# release build of the program alone (no tests), installed under /usr, the unit handled by
# dh_installsystemd, then checked with lintian. Usage: package.sh [BUILD_DIR]   (build-package,
# or DIR-package with QOR_BUILD_DIR=DIR)
# Prints the package's path on its last line.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-${QOR_BUILD_DIR:-$root/build}-package}
bash "$root/scripts/install-deps.sh" >&2
# dpkg-buildpackage wants debian/ at the top of the source and writes the package beside it: a
# copy of the tracked sources, so that no build directory of the checkout goes in.
rm -rf "$dir/src" && mkdir -p "$dir/src"
git -C "$root" ls-files -z --cached --others --exclude-standard |
  (cd "$root" && xargs -0 cp --parents -t "$dir/src")
cp -r "$root/packaging/debian" "$dir/src/debian"
rm -f "$dir"/*.deb
(cd "$dir/src" && DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" dpkg-buildpackage -b -us -uc >&2)
deb=$(ls "$dir"/qorclustd_*.deb)
lintian --fail-on error,warning "$deb" >&2
echo "$deb"
