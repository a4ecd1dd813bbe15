#!/usr/bin/env bash
# Test database servers: a MariaDB server of our own per address, each with its own data
# directory, the database `qor` with the repo's schema and the user `qordirect`.
#
#   testdb.sh start ADDR DIR    start (initialising DIR on first use) a server on ADDR:3306
#   testdb.sh stop DIR          stop the server started in DIR (only that pid)
#   testdb.sh start-pair DIR    servers on 127.0.0.1 and 127.0.0.2 in DIR/master and DIR/slave
#   testdb.sh stop-pair DIR
#   testdb.sh sql DIR [ARGS..]  the mariadb client as root on the server of DIR
#
# Refuses (exit 1) when ADDR:3306 is already served by something that is not ours.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
PASSWORD=${QOR_TEST_DBPWD:-'Qor Pw&50%x'}

client() { local dir=$1; shift; mariadb --no-defaults --socket="$dir/mysqld.sock" -uroot "$@"; }

our_pid() {
  local dir=$1
  [ -f "$dir/mysqld.pid" ] || return 1
  local pid; pid=$(cat "$dir/mysqld.pid" 2>/dev/null) || return 1
  [ -n "$pid" ] && [ -d "/proc/$pid" ] && grep -q "$dir" "/proc/$pid/cmdline" 2>/dev/null && echo "$pid"
}

port_taken() {
  local addr=$1
  ss -Hltn 2>/dev/null | awk '{print $4}' | grep -qE "^(${addr//./\\.}|0\.0\.0\.0|\*|\[::\]):3306$"
}

start() {
  local addr=$1 dir=$2
  mkdir -p "$dir"
  dir=$(cd "$dir" && pwd)
  if our_pid "$dir" >/dev/null; then stop "$dir"; fi
  if port_taken "$addr"; then
    echo "testdb: $addr:3306 is already in use by another server; stop it first" >&2
    exit 1
  fi
  # The marker is written only after a complete initialisation: a data directory left half
  # made by a failed one is made again instead of being trusted.
  if [ ! -f "$dir/installed" ]; then
    rm -rf "$dir/data"
    # mariadb-install-db splits an unquoted data directory at blanks: it is given a link to
    # DIR whose own path has none.
    local link; link=$(mktemp -d /tmp/qordb.XXXXXX)
    ln -s "$dir" "$link/db"
    mariadb-install-db --no-defaults --datadir="$link/db/data" --user=root \
      --auth-root-authentication-method=socket --skip-test-db >"$dir/install.log" 2>&1 || {
      rm -rf "$link"; cat "$dir/install.log" >&2; exit 1; }
    rm -rf "$link"
    touch "$dir/installed"
  fi
  # Every daemon holds a pool of 5 connections to each database: 64 servers take 320.
  mariadbd --no-defaults --user=root --datadir="$dir/data" --socket="$dir/mysqld.sock" \
    --pid-file="$dir/mysqld.pid" --bind-address="$addr" --port=3306 --skip-name-resolve \
    --log-error="$dir/error.log" --innodb-buffer-pool-size=32M --innodb-log-file-size=16M \
    --max-connections=400 --skip-log-bin >/dev/null 2>&1 &
  local tries=0
  until client "$dir" -e 'select 1' >/dev/null 2>&1; do
    tries=$((tries + 1))
    if [ $tries -gt 120 ] || ! kill -0 $! 2>/dev/null; then
      echo "testdb: server on $addr did not come up; its log:" >&2
      tail -n 20 "$dir/error.log" >&2 || true
      exit 1
    fi
    sleep 0.25
  done
  local pw=${PASSWORD//\'/\'\'}
  client "$dir" <<SQL
DELETE FROM mysql.global_priv WHERE User='';
FLUSH PRIVILEGES;
CREATE DATABASE IF NOT EXISTS qor;
CREATE USER IF NOT EXISTS 'qordirect'@'%' IDENTIFIED BY '$pw';
ALTER USER 'qordirect'@'%' IDENTIFIED BY '$pw';
GRANT ALL ON qor.* TO 'qordirect'@'%';
FLUSH PRIVILEGES;
SQL
  client "$dir" qor <"$root/db/schema.sql"
}

stop() {
  local dir=$1 pid
  [ -d "$dir" ] || return 0
  dir=$(cd "$dir" && pwd)
  pid=$(our_pid "$dir") || return 0
  kill "$pid" 2>/dev/null || true
  for _ in $(seq 1 120); do
    [ -d "/proc/$pid" ] || return 0
    sleep 0.25
  done
  kill -9 "$pid" 2>/dev/null || true
}

case "${1:-}" in
  start) start "$2" "$3" ;;
  stop) stop "$2" ;;
  start-pair)
    # Both or neither: a pair that failed half-way leaves no server behind.
    (start 127.0.0.1 "$2/master" && start 127.0.0.2 "$2/slave") || { stop "$2/master"; stop "$2/slave"; exit 1; } ;;
  stop-pair) stop "$2/master"; stop "$2/slave" ;;
  sql) dir=$2; shift 2; client "$dir" "$@" ;;
  *) echo "usage: $0 start ADDR DIR | stop DIR | start-pair DIR | stop-pair DIR | sql DIR [ARGS]" >&2; exit 2 ;;
esac
