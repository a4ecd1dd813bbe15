#!/usr/bin/env bash
# Builds qorclustd and runs it on the example master configuration, as a server would, but in a
# private mount namespace whose /var/www/html/qor is a temporary copy of examples/: the host's own
# platform directory is never touched. Two database servers of the demo's own stand in for the
# master's and the slave's (127.0.0.1 and 127.0.0.2, port 3306); they are stopped at the end.
# Needs root.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=$(bash "$root/scripts/build.sh" | tail -n 1)
bin="$dir/src/qorclustd"

work=$(mktemp -d /tmp/qordemo.XXXXXX)
db="$dir/demodb"
cleanup() {
  bash "$root/scripts/testdb.sh" stop-pair "$db" || true
  rm -rf "$work"
}
trap cleanup EXIT
cp "$root/examples/qorconf.master" "$work/.qorconf"
cp "$root/examples/env" "$work/.env"
mkdir -p /var/www/html/qor

echo "starting the example cluster's two databases..."
QOR_TEST_DBPWD='Demo%Pass' bash "$root/scripts/testdb.sh" start-pair "$db"
# The slave's row, as a running slave would have written it: the master then keeps its own row
# in both databases.
bash "$root/scripts/testdb.sh" sql "$db/master" qor -e "insert into clusters
  (hostname,ipaddress,clusterid,role,role_id,status) values
  ('demo-slave','127.0.0.2','demo','slave',101,100);"
echo

run() {
  echo "\$ qorclustd $*"
  unshare -m --propagation private sh -c \
    'mount --bind "$1" /var/www/html/qor && shift && exec "$@"' sh "$work" "$bin" "$@" || true
  echo
}

run -v
run -qorver
run -conf
run -ping 127.0.0.2
run -update
run -update
run -lf
run -count
run -target
run -ismaster
