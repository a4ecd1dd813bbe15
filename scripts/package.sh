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
# copy of the sources, so that no build directory of the checkout goes in: the files git knows
# in a checkout, the tree less its build directories in an export without .git.
rm -rf "$dir/src" && mkdir -p "$dir/src"
if git -C "$root" rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  git -C "$root" ls-files -z --cached --others --exclude-standard |
    (cd "$root" && xargs -0 cp --parents -t "$dir/src")
else
  tar -C "$root" --exclude=./.git --exclude='./build*' -cf - . | tar -C "$dir/src" -xf -
fi
cp -r "$root/packaging/debian" "$dir/src/debian"
rm -f "$dir"/*.deb
(cd "$dir/src" && DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" dpkg-buildpackage -b -us -uc >&2)
deb=$(ls "$dir"/qorclustd_*.deb)
lintian --fail-on error,warning "$deb" >&2
echo "$deb"
