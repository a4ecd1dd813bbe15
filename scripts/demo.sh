#!/usr/bin/env bash
# README's main command: builds qorclustd and runs a four-host cluster on this machine (master,
# slave and two members). Each host has its own network, mount, UTS and pid namespaces, one
# address in 198.18.0.0/24 on a bridge that lives in a namespace of its own (nothing routes to the
# real network), its own /var/www/html/qor and its own syslog file; the master and the slave run
# MariaDB, the master an sshd for the replication account. `qorclustd -start_boot` runs on every
# host, and the master's two-database listing (-l) is shown every few seconds until Ctrl-C; then
# everything the demo started is stopped and the namespaces are gone. Needs root.
#
#   bash scripts/demo.sh                        the live listing until Ctrl-C
#   bash scripts/demo.sh --keep                 leaves the lab up, prints how to use it, returns
#     either with --members N (2; up to 62) and --fast (each cycle's pause a twentieth, so the
#     slow work of the daemons, template pulls and sweeps, comes every half minute)
#   bash scripts/demo.sh --on HOST CMD [ARGS..] CMD on a host of the kept lab, e.g. qorclustd -l
#   bash scripts/demo.sh --cut HOST | --restore HOST   pulls or plugs a host's link
#   bash scripts/demo.sh --down                 tears the kept lab down
#
# HOST is a host name (qor-master ...), a role (master, slave, member1, member2) or a number.
# QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

build() {
  bash "$root/scripts/install-deps.sh"
  if [ -n "${QOR_BUILD_DIR:-}" ]; then
    cmake -S "$root" -B "$QOR_BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
    cmake --build "$QOR_BUILD_DIR" -j"$(nproc)" --target qorclustd qorlab >&2
    echo "$QOR_BUILD_DIR"
  else
    bash "$root/scripts/build.sh" | tail -n 1
  fi
}

# The kept lab's tool, without building again.
built() {
  local dir=${QOR_BUILD_DIR:-$root/build}
  if [ ! -x "$dir/qorlab/qorlab" ]; then
    echo "demo: no lab tool in $dir; run bash scripts/demo.sh --keep first" >&2
    exit 1
  fi
  echo "$dir/qorlab/qorlab"
}

# The lab's size and pace, for a demo or a kept lab.
opts=()
keep=
while [ $# -gt 0 ]; do
  case $1 in
    --members) [ $# -ge 2 ] || { echo "usage: $0 --members N" >&2; exit 2; }
      opts+=(--members "$2"); shift 2 ;;
    --fast) opts+=(--fast); shift ;;
    --keep) keep=1; shift ;;
    *) break ;;
  esac
done
if [ $# -eq 0 ]; then
  qorlab="$(build)/qorlab/qorlab"
  # qorlab catches Ctrl-C and SIGTERM itself and takes the whole lab down before it ends.
  if [ -n "$keep" ]; then exec "$qorlab" up "${opts[@]}"; fi
  exec "$qorlab" demo "${opts[@]}"
fi
[ -z "$keep" ] && [ ${#opts[@]} -eq 0 ] || { echo "usage: $0 [--keep] [--members N] [--fast]" >&2; exit 2; }

case "$1" in
  --on)
    [ $# -ge 3 ] || { echo "usage: $0 --on HOST CMD [ARGS..]" >&2; exit 2; }
    qorlab=$(built)
    shift
    exec "$qorlab" run "$@" ;;
  --cut | --restore)
    [ $# -eq 2 ] || { echo "usage: $0 $1 HOST" >&2; exit 2; }
    qorlab=$(built)
    exec "$qorlab" "${1#--}" "$2" ;;
  --down)
    qorlab=$(built)
    exec "$qorlab" down ;;
  *)
    sed -n '2,19p' "$0" >&2
    exit 2 ;;
esac
