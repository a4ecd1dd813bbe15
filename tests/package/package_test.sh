#!/usr/bin/env bash
# The Debian package end to end, as a server goes through it: built from the tree with
# scripts/package.sh (lintian included), then installed, upgraded from the previous build,
# removed and purged with dpkg under a systemd of its own, in a container whose root is an overlay
# of this machine's root in a private mount namespace, dropped afterwards, so the machine is
# untouched; fetching a fresh Debian root would need the network, which tests do not use.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
deb=$(bash "$root/scripts/package.sh" "$work/build" | tail -n 1)
# The previous build: the same files under a lower version, maintainer scripts included.
dpkg-deb -R "$deb" "$work/prev"
sed -i 's/^Version: .*/Version: 4.0.15/' "$work/prev/DEBIAN/control"
dpkg-deb -b "$work/prev" "$work/prev.deb" >/dev/null
cp "$root/db/schema.sql" "$work/schema.sql"

# What it asks of a server: the libraries the binary links and the commands it runs, no more.
depends=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/(.*//; s/ //g' | sort | xargs)
want="iproute2 iputils-ping libc6 libgcc-s1 libmariadb3 libstdc++6 libsystemd0 libzdb11 openssh-client procps rsync"
[ "$depends" = "$want" ] || { echo "Depends: $depends (want $want)"; exit 1; }

# The part run in a mount namespace of its own is a file, not bash's standard input: a command
# there that reads its input (dpkg, systemctl, nsenter pass it on) would eat the rest of the
# script, and the script would end early without a word.
cat >"$work/in_container.sh" <<'ROOT'
set -euo pipefail
fail() { echo "$*"; exit 1; }
# A step that fails without its own message names itself, and so does a signal that ends it.
trap 'echo "failed at line $LINENO: $BASH_COMMAND"' ERR
for sig in HUP INT PIPE TERM; do trap "echo \"ended by SIG$sig at line \$LINENO\"; exit 1" $sig; done
mkdir -p "$1/o"
mount -t tmpfs tmpfs "$1/o"
mkdir "$1/o/upper" "$1/o/work" "$1/o/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/o/upper,workdir=$1/o/work" "$1/o/root"
r=$1/o/root
# A machine built from a container image forbids service starts to its package scripts
# (policy-rc.d); a server does not, and the overlay drops it without touching this machine.
rm -f "$r/usr/sbin/policy-rc.d"
cp "$2" "$r/qorclustd.deb"
cp "$3" "$r/prev.deb"
# The unit under a systemd of its own: this root booted in a container with a network of its own
# and a member's configuration whose master's database is the container's MariaDB and whose slave
# does not answer, so the daemon just cycles.
mkdir -p "$r/var/www/html/qor"
printf '%s\n' qor_cluster=1 qor_clustid=t qor_clustrole=member qor_clustmaster=127.0.0.2 \
  qor_clustslave=127.0.0.3 qor_netif=lo qor_dbpwd=pkgtest >"$r/var/www/html/qor/.qorconf"
printf '[mysqld]\nbind-address=127.0.0.2\n' >"$r/etc/mysql/mariadb.conf.d/99-master.cnf"
systemd-nspawn -q -D "$r" --register=no --keep-unit --private-network --console=passive -b \
  </dev/null >/dev/null 2>&1 &
nspawn=$!
# Any failure, a command's in a function too (which no ERR trap sees), shows what the unit and
# the daemon said last: a daemon that ended or restarted between two steps is seen only there.
finish() {
  local rc=$?
  if [ "$rc" != 0 ] && [ "$rc" != 77 ] && [ -n "${init:-}" ]; then
    echo "--- ended with status $rc; the unit's journal:"
    nsenter -t "$init" -a journalctl -q --no-pager -n 80 -o short-monotonic -u qorclustd \
      </dev/null 2>&1 || true
  fi
  kill "$nspawn" 2>/dev/null || true
  wait "$nspawn" || true
}
trap finish EXIT
init=
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
  inside mariadb qor <"$1/schema.sql" || fail "no master database in the container"
# The daemons, as -ps finds them: by their command line, since the slow pass the daemon forks has
# the daemon's process name and comes and goes.
daemons() { inside pgrep -f 'qorclustd -start' | xargs; }
main() { inside systemctl show -p MainPID --value qorclustd; }
show() { inside systemctl show --timestamp=us+utc -p "$1" --value qorclustd; }
prom=/var/lib/prometheus/node-exporter/qorclustd.prom
SECONDS=0
# Installed where the configuration says cluster: enabled and started by the package.
inside dpkg -i /prev.deb >/dev/null || fail "dpkg -i of the previous build"
inside systemctl is-enabled -q qorclustd && inside systemctl is-active -q qorclustd ||
  fail "not enabled and started on install: $(inside systemctl status qorclustd)"
# Active only after the first heartbeat: the row's insert time, taken as that heartbeat began,
# precedes the unit's. Asked of the first start, whose heartbeat inserted the row; a later daemon
# only updates it.
wrote=$(inside mariadb -N qor -e 'select qortimemill from clusters')
active=$(show ActiveEnterTimestamp)
[ -n "$wrote" ] && [ "$wrote" -le "$(date -d "${active#* }" +%s%3N)" ] ||
  fail "active at $active, before the first heartbeat (${wrote:-no row})"
inside sh -c 'cd /usr/share/qorclustd && test -s schema.sql -a -s qorclustd-alerts.yml -a -s qorclustd-dashboard.json' ||
  fail "schema, alert rules or dashboard missing from /usr/share/qorclustd"
page=$(LANG=C MANWIDTH=500 inside man -l /usr/share/man/man8/qorclustd.8.gz 2>"$1/man.err")
[ ! -s "$1/man.err" ] || fail "man warns: $(cat "$1/man.err")"
# The manual page names every word of the usage text: each alias after a "|" and each operand.
set -f
for w in $(inside qorclustd | sed '1d; s/^.*qorclustd //; s/#.*//; s/ | /|/g; s/|/ -/g; s/[][]//g'); do
  grep -qF -- "$w" <<<"$page" || fail "the manual page lacks $w"
done
set +f
# An upgrade restarts the running daemon onto the new program.
old=$(main)
inside dpkg -i /qorclustd.deb >/dev/null || fail "dpkg -i of the upgrade"
[ "$(inside dpkg-query -W -f '${Version}' qorclustd)" = 4.0.16 ] && [ -n "$(daemons)" ] &&
  [ "$(daemons)" = "$(main)" ] && [ "$(main)" != "$old" ] || fail "not restarted on upgrade: $(daemons)"
[ "$(inside qorclustd -ps | wc -l)" = 1 ] && [ "$(daemons)" = "$(main)" ] || fail "one daemon: $(daemons)"
# Each cycle tells the watchdog, and the status line says what the daemon does.
pinged=$(show WatchdogTimestampMonotonic)
sleep 3
[ "$(show WatchdogTimestampMonotonic)" -gt "$pinged" ] || fail "no watchdog ping in 3 s"
inside systemctl status qorclustd | grep -qF 'Status: "member: 1 server in the table, cycle 0.' ||
  fail "no status line: $(inside systemctl status qorclustd)"
# systemd learns the new daemon's pid a moment after it runs. The answer is kept: asked twice, a
# restart seen once may be missed the second time, and the old pid is gone by then.
restarted() {
  again=no
  [ -n "$(daemons)" ] && [ "$(daemons)" = "$(main)" ] && [ "$(main)" != "$first" ] && again=yes
}
waitrestart() { for _ in $(seq "$1"); do restarted && break; sleep 1; done; }
# A frozen daemon: the watchdog ends it after 30 s, and systemd starts another 10 s later.
first=$(main)
inside kill -STOP "$first"
SECONDS=0
waitrestart 60
[ $again = yes ] && [ "$SECONDS" -ge 30 ] && [ "$SECONDS" -le 55 ] ||
  { inside kill -CONT "$first" || true; fail "frozen daemon not restarted in 30 to 55 s: $SECONDS s, $(main)"; }
# A crash, here an OOM kill (SIGKILL), restarts it.
first=$(main)
inside kill -KILL "$first"
waitrestart 30
[ $again = yes ] || fail "not restarted after SIGKILL: $(daemons) (systemd's: $(main))"
inside test -s $prom || fail "no metrics file while it runs"
# A stop, by systemctl or by -stop, stays stopped and leaves no metrics file behind.
inside systemctl stop qorclustd
[ -z "$(daemons)" ] || fail "left running after systemctl stop: $(daemons)"
inside test ! -e $prom || fail "metrics file left after systemctl stop"
inside systemctl start qorclustd
inside qorclustd -stop >/dev/null
sleep 12
[ -z "$(daemons)" ] || fail "restarted after qorclustd -stop: $(daemons)"
inside test ! -e $prom || fail "metrics file left after qorclustd -stop"
inside systemctl start qorclustd
inside dpkg -r qorclustd >/dev/null
[ -z "$(daemons)" ] || fail "left running after dpkg -r: $(daemons)"
inside mkdir -p /var/lib/qorclustd
inside touch $prom
inside dpkg -P qorclustd >/dev/null
inside test ! -e /var/lib/qorclustd -a ! -e $prom || fail "state or metrics left after dpkg -P"
echo "installed, upgraded, stopped, removed and purged in $SECONDS s"
ROOT
unshare -m --propagation private bash "$work/in_container.sh" "$work" "$deb" "$work/prev.deb" </dev/null
