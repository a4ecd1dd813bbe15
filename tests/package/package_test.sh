#!/usr/bin/env bash
# The Debian package end to end: built from the tree with scripts/package.sh, installed with dpkg
# into a root of its own, and the installed program run there. The root is an overlay of this
# machine's root in a private mount namespace, dropped afterwards, so the machine is untouched;
# fetching a fresh Debian root would need the network, which tests do not use.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
deb=$(bash "$root/scripts/package.sh" "$work/build" | tail -n 1)

# What it asks of a server: the libraries the binary links and the commands it runs, no more.
depends=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/(.*//; s/ //g' | sort | xargs)
want="bash iputils-ping libc6 libgcc-s1 libmariadb3 libstdc++6 libsystemd0 libzdb11 openssh-client procps rsync"
[ "$depends" = "$want" ] || { echo "Depends: $depends (want $want)"; exit 1; }

unshare -m --propagation private bash -s "$work" "$deb" <<'ROOT'
set -euo pipefail
fail() { echo "$*"; exit 1; }
mkdir -p "$1/o"
mount -t tmpfs tmpfs "$1/o"
mkdir "$1/o/upper" "$1/o/work" "$1/o/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/o/upper,workdir=$1/o/work" "$1/o/root"
r=$1/o/root
mount -t proc proc "$r/proc"
mount --rbind /dev "$r/dev"
cp "$2" "$r/qorclustd.deb"
chroot "$r" dpkg -i /qorclustd.deb >/dev/null
[ "$(chroot "$r" qorclustd -v)" = 4.0.16 ] || fail "qorclustd -v: $(chroot "$r" qorclustd -v)"
[ "$(chroot "$r" qorclustd | head -n 1)" = "qorclustd 4.0.16 2022/10/03" ] || fail "no usage text"
chroot "$r" dpkg -L qorclustd | grep -qx /usr/share/qorclustd/schema.sql || fail "no schema"
chroot "$r" dpkg -L qorclustd | grep -qx /usr/share/qorclustd/qorclustd-alerts.yml || fail "no alert rules"
chroot "$r" systemd-analyze verify qorclustd.service || fail "systemd finds fault with the unit"
page=$(LANG=C MANWIDTH=500 chroot "$r" man -l /usr/share/man/man8/qorclustd.8.gz 2>"$1/man.err")
[ ! -s "$1/man.err" ] || fail "man warns: $(cat "$1/man.err")"
# The manual page names every word of the usage text: each alias after a "|" and each operand.
set -f
for w in $(chroot "$r" qorclustd | sed '1d; s/^.*qorclustd //; s/#.*//; s/ | /|/g; s/|/ -/g; s/[][]//g'); do
  grep -qF -- "$w" <<<"$page" || fail "the manual page lacks $w"
done
set +f

# The unit under a systemd of its own: this root booted in a container with a network of its own
# and a member's configuration whose master's database is the container's MariaDB and whose slave
# does not answer, so the daemon just cycles.
umount -R "$r/dev" "$r/proc"
mkdir -p "$r/var/www/html/qor"
printf '%s\n' qor_cluster=1 qor_clustid=t qor_clustrole=member qor_clustmaster=127.0.0.2 \
  qor_clustslave=127.0.0.3 qor_netif=lo qor_dbpwd=pkgtest >"$r/var/www/html/qor/.qorconf"
printf '[mysqld]\nbind-address=127.0.0.2\n' >"$r/etc/mysql/mariadb.conf.d/99-master.cnf"
systemd-nspawn -q -D "$r" --register=no --keep-unit --private-network --console=passive -b \
  </dev/null >/dev/null 2>&1 &
nspawn=$!
trap 'kill "$nspawn"; wait "$nspawn" || true' EXIT
for _ in $(seq 100); do init=$(pgrep -x -P "$nspawn" systemd || true); [ -n "$init" ] && break; sleep 0.2; done
inside() { nsenter -t "$init" -a "$@"; }
state=
for _ in $(seq 120); do
  state=$(inside systemctl is-system-running 2>/dev/null || true)
  case $state in running | degraded) break ;; esac
  sleep 0.5
done
# A machine whose kernel or sandbox keeps systemd from booting in a container cannot run this
# part; that is the machine's limit, not the unit's, and is reported as a skip.
case $state in running | degraded) ;; *) echo "SKIP: no systemd container here ($state)"; exit 77 ;; esac
inside mariadb -e "create database qor; grant all on qor.* to qordirect identified by 'pkgtest'" &&
  inside mariadb qor <"$r/usr/share/qorclustd/schema.sql" || fail "no master database in the container"
daemons() { inside pgrep -x qorclustd | xargs; }
main() { inside systemctl show -p MainPID --value qorclustd; }
show() { inside systemctl show --timestamp=us+utc -p "$1" --value qorclustd; }
inside systemctl start qorclustd || fail "systemctl start: $(inside systemctl status qorclustd)"
# Active only after the first heartbeat: the row's insert time, taken as that heartbeat began,
# precedes the unit's.
wrote=$(inside mariadb -N qor -e 'select qortimemill from clusters')
active=$(show ActiveEnterTimestamp)
[ -n "$wrote" ] && [ "$wrote" -le "$(date -d "${active#* }" +%s%3N)" ] ||
  fail "active at $active, before the first heartbeat (${wrote:-no row})"
[ "$(inside qorclustd -ps | wc -l)" = 1 ] && [ "$(daemons)" = "$(main)" ] || fail "one daemon: $(daemons)"
# Each cycle tells the watchdog, and the status line says what the daemon does.
pinged=$(show WatchdogTimestampMonotonic)
sleep 3
[ "$(show WatchdogTimestampMonotonic)" -gt "$pinged" ] || fail "no watchdog ping in 3 s"
inside systemctl status qorclustd | grep -qF 'Status: "member: 1 server in the table, cycle 0.' ||
  fail "no status line: $(inside systemctl status qorclustd)"
first=$(main)
inside kill -ABRT "$first"
# systemd learns the new daemon's pid a moment after it runs.
restarted() { [ -n "$(daemons)" ] && [ "$(daemons)" = "$(main)" ] && [ "$(main)" != "$first" ]; }
for _ in $(seq 30); do restarted && break; sleep 1; done
restarted || fail "not restarted: $(daemons) (systemd's: $(main))"
# A frozen daemon: the watchdog ends it after 30 s, and systemd starts another 10 s later.
first=$(main)
inside kill -STOP "$first"
SECONDS=0
for _ in $(seq 60); do restarted && break; sleep 1; done
restarted && [ "$SECONDS" -ge 30 ] && [ "$SECONDS" -le 55 ] ||
  { inside kill -CONT "$first"; fail "frozen daemon not restarted in 30 to 55 s: $SECONDS s, $(main)"; }
inside systemctl stop qorclustd
[ -z "$(daemons)" ] || fail "left running after systemctl stop: $(daemons)"
# SIGKILL is the program's own stop: -stop ends it for good, not for a restart.
inside systemctl start qorclustd
inside qorclustd -stop >/dev/null
sleep 12
[ -z "$(daemons)" ] || fail "restarted after qorclustd -stop: $(daemons)"
echo "installed and ran: $(chroot "$r" dpkg -s qorclustd | grep -E '^(Version|Status)' | xargs)"
ROOT
