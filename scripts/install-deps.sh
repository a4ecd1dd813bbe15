#!/usr/bin/env bash
# Installs every Debian package that building, testing and running qorclustd needs.
# Idempotent: packages already installed are left alone and apt is not touched at all
# when nothing is missing. --fuzz adds clang and its fuzzer runtime, for scripts/fuzz.sh only.
set -euo pipefail

PACKAGES=(
  # build
  cmake g++ make pkg-config clang-format
  libgtest-dev libgmock-dev
  # database pools, and the client library under them whose waits the store bounds
  libzdb-dev libmariadb-dev
  # readiness, watchdog and status for systemd
  libsystemd-dev
  # test databases and the program's runtime tools
  mariadb-server mariadb-client
  iputils-ping rsync openssh-client openssh-server
  procps iproute2 util-linux coreutils grep sed
  # useradd, for the replication account the cluster lab creates
  passwd
  # nft, with which the lab drops a database's packets; libfaketime, with which it skews and
  # steps one daemon's clock
  nftables libfaketime
  # the Debian package (debhelper and dpkg-buildpackage, lintian to check it), the manual
  # page's rendering, and the systemd that its test boots in a container to run the unit
  dpkg-dev debhelper lintian file man-db systemd systemd-container
  # the node exporter that publishes the daemon's metrics file, promtool, which checks it, and
  # curl, with which the lab reads it
  prometheus-node-exporter prometheus curl
)
# Services of the packages above that would listen on every interface: installed here for the
# tests, which start their own copies inside lab hosts, they are neither started nor enabled.
SERVICES=(prometheus prometheus-node-exporter)
if [ "${1:-}" = "--fuzz" ]; then
  PACKAGES+=(clang libclang-rt-dev)
fi

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: need root to install: ${missing[*]}" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
# policy-rc.d keeps the packages' scripts from starting their services; one already present is
# the machine's own and stays.
policy=/usr/sbin/policy-rc.d
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' >"$policy"
  chmod 755 "$policy"
  trap 'rm -f "$policy"' EXIT
fi
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
for s in "${SERVICES[@]}"; do
  [[ " ${missing[*]} " == *" $s "* ]] || continue
  systemctl disable "$s" >/dev/null 2>&1 || true
  if [ -d /run/systemd/system ]; then systemctl stop "$s" >/dev/null 2>&1 || true; fi
done
