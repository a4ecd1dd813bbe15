#!/usr/bin/env bash
# Runs the measurements kept in bench/: builds first, then prints each figure. The store
# figures use two database servers of their own on 127.0.0.3 and 127.0.0.4, stopped at the end.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=$(bash "$root/scripts/build.sh" | tail -n 1)
pw='Bench Pw&1%'

echo "== configuration read"
"$dir/bench/qorconf_bench" "${1:-10000}"

echo "== store"
db="$dir/benchdb"
trap 'bash "$root/lab/testdb.sh" stop "$db/master"; bash "$root/lab/testdb.sh" stop "$db/slave"' EXIT
QOR_TEST_DBPWD="$pw" bash "$root/lab/testdb.sh" start 127.0.0.3 "$db/master"
QOR_TEST_DBPWD="$pw" bash "$root/lab/testdb.sh" start 127.0.0.4 "$db/slave"
"$dir/bench/store_bench" 127.0.0.3 127.0.0.4 "$pw"

echo "== master cycle"
"$dir/bench/cycle_bench" 127.0.0.3 127.0.0.4 "$pw"
