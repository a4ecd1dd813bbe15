#!/usr/bin/env bash
# Builds qorclustd and runs it on the example master configuration, as a server would, but in a
# private mount namespace whose /var/www/html/qor is a temporary copy of examples/: the host's
# own platform directory is never touched. Needs root.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=$(bash "$root/scripts/build.sh" | tail -n 1)
bin="$dir/src/qorclustd"

work=$(mktemp -d /tmp/qordemo.XXXXXX)
trap 'rm -rf "$work"' EXIT
cp "$root/examples/qorconf.master" "$work/.qorconf"
cp "$root/examples/env" "$work/.env"
mkdir -p /var/www/html/qor

run() {
  echo "\$ qorclustd $*"
  unshare -m --propagation private sh -c \
    'mount --bind "$1" /var/www/html/qor && shift && exec "$@"' sh "$work" "$bin" "$@" || true
  echo
}

run -v
run -qorver
run -timesecx
run -timemill
