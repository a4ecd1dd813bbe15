#!/usr/bin/env bash
# Figures of the running lab: how long it takes to come up and to go away, the statements and
# round trips per second each MariaDB server gets from all the daemons (its own SHOW GLOBAL STATUS
# counters over 60 seconds), every daemon's resident memory, the size of the metrics file of the
# master, the slave and a member, then each role's cycle work time (median and maximum over CYCLES
# cycles, with the daemon's 2-second sleep between cycles), its cycle length, the processor time
# per cycle (median and mean, commands included) and the processes each cycle spawns, once with
# the metrics file written and once without.
# The cycle figures come from bench/lab_cycle_bench, run inside the master, the slave and a member
# in place of their daemons while the other members' daemons run, each as the first process of a
# pid namespace of its own, whose pid counter then counts every process the cycles spawn.
# Usage: lab.sh [CYCLES] [--members N] [--nice-members N]   (100 cycles, 2 members besides
#   the master and the slave, up to 62, their daemons at niceness 0; takes about 4 s per cycle
#   plus 90 s). Needs root. --nice-members: see qorlab's; on two processors 64 daemons at the
#   same priority stretch every cycle to seconds, which measures the crowd, not the work.
#        lab.sh --stall [SECONDS]   instead, only the longest stall of the other daemons'
#   cycles while the master's database gets no packets for SECONDS (60): port 3306 dropped in the
#   master's host at an arbitrary moment of the cycles, so that a statement under way, or the
#   next one, gets no answer. The figure is the longest time between two rewrites of each row in
#   the slave's database, from the drop to the end.
# QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
stall=
cycles=100
members=2
nice=0
while [ $# -gt 0 ]; do
  case $1 in
    --stall) stall=60; cycles=0; if [[ ${2:-} =~ ^[0-9]+$ ]]; then stall=$2; shift; fi; shift ;;
    --members) members=$2; shift 2 ;;
    --nice-members) nice=$2; shift 2 ;;
    *) cycles=$1; shift ;;
  esac
done
bash "$root/scripts/install-deps.sh"
if [ -n "${QOR_BUILD_DIR:-}" ]; then
  dir=$QOR_BUILD_DIR
  cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$dir" -j"$(nproc)" --target qorclustd qorlab lab_cycle_bench >&2
else
  dir=$(bash "$root/scripts/build.sh" | tail -n 1)
fi
qorlab="$dir/qorlab/qorlab"
bench="$dir/bench/lab_cycle_bench"
lab="$dir/labbench"
trap '"$qorlab" --dir "$lab" down >/dev/null 2>&1 || true' EXIT

echo "== lab start-up"
"$qorlab" --dir "$lab" up --members "$members" --nice-members "$nice" | grep -E '^(lab up in|not every|the lab costs)'
sleep 10

if [ -n "$stall" ]; then
  echo "== longest time between two rewrites of a row in the slave's database, with the master's"
  echo "   database port dropped for $stall s"
  # Each sample: the time in ms, then each row's host name and updated_at.
  sample() {
    mariadb --no-defaults --socket="$lab/qor-slave/db/mysqld.sock" -uroot -N -B qor -e \
      "select hostname, unix_timestamp(updated_at) from clusters where role != 'master'" |
      sed "s/^/$(($(date +%s%N) / 1000000)) /"
  }
  "$qorlab" --dir "$lab" run master nft -f - <<'NFT' >/dev/null
table inet labstall {
  chain in { type filter hook input priority 0; tcp dport 3306 drop; }
  chain out { type filter hook output priority 0; tcp sport 3306 drop; }
}
NFT
  t0=$(($(date +%s%N) / 1000000))
  t1=$((t0 + stall * 1000))
  while [ $(($(date +%s%N) / 1000000)) -lt $t1 ]; do
    sample
    sleep 0.2
  done >"$lab/logs/stall"
  "$qorlab" --dir "$lab" run master nft delete table inet labstall >/dev/null
  # A row's stall: from the drop, or from the sample that first showed a new updated_at, to the
  # next such sample, or to the end.
  awk -v t0="$t0" -v t1="$t1" '
    !($2 in last) { last[$2] = t0; seen[$2] = $3 }
    $3 != seen[$2] { if ($1 - last[$2] > worst[$2]) worst[$2] = $1 - last[$2]
                     last[$2] = $1; seen[$2] = $3; n[$2]++ }
    END { for (h in last) { if (t1 - last[h] > worst[h]) worst[h] = t1 - last[h]
            printf "%s: longest stall %.1f s, %d rewrites\n", h, worst[h] / 1000, n[h] } }' \
    "$lab/logs/stall" | sort
  echo "== lab teardown"
  "$qorlab" --dir "$lab" down | grep -E '^lab down in'
  exit 0
fi

echo "== statements and round trips per second from the $((members + 2)) daemons, over 60 s"
counters() {
  mariadb --no-defaults --socket="$lab/$1/db/mysqld.sock" -uroot -N -B -e "show global status
    where variable_name like 'Com\\_%'"
}
m0=$(counters qor-master); s0=$(counters qor-slave)
sleep 60
m1=$(counters qor-master); s1=$(counters qor-slave)
rate() {
  # SQL statements: the selects, updates, inserts and deletes the server ran. Then every kind of
  # client command per second: admin_commands are the pings, stmt_* the round trips of a query
  # that the pool library runs as a prepared statement. The counter reads themselves are left out.
  paste <(echo "$2") <(echo "$3") | awk -v who="$1" '
    $1 == "Com_show_status" || $1 == "Questions" { next }
    { d = $4 - $2; if (d > 0) r[substr($1, 5)] = d / 60 }
    END {
      sql = r["select"] + r["update"] + r["insert"] + r["delete"]
      # A round trip is a client command the server answers: a prepared statement'"'"'s prepare,
      # execute, fetch and reset, a ping, and a statement sent as text (the SQL statements
      # that were not executions of a prepared one). Closing a statement gets no answer.
      text = sql - r["stmt_execute"]; if (text < 0) text = 0
      trips = r["stmt_prepare"] + r["stmt_execute"] + r["stmt_fetch"] + r["stmt_reset"] + \
        r["admin_commands"] + text
      printf "%s: %.1f SQL statements/s (select %.1f, update %.1f, insert %.1f, delete %.1f), %.1f round trips/s\n",
        who, sql, r["select"], r["update"], r["insert"], r["delete"], trips
      printf "  client commands/s:"
      for (k in r) if (r[k] > 0) printf " %s %.2f", k, r[k]
      printf "\n"
    }'
}
rate "master's server" "$m0" "$m1"
rate "slave's server" "$s0" "$s1"

echo "== resident memory of the daemons"
for ((i = 0; i < members + 2; i++)); do
  # The daemon is the oldest qorclustd of its host; a command it is starting is briefly another.
  "$qorlab" --dir "$lab" run "$i" sh -c 'ps -o rss= -p "$(pgrep -o -x qorclustd)"'
done | sort -n | awk '{ v[NR] = $1 } END {
  printf "%d daemons: median %d KiB, max %d KiB\n", NR, v[int((NR + 1) / 2)], v[NR] }'

hosts=(master slave member1)
# Each host's node_exporter directory is the lab's own, bound over this machine's.
prom=/var/lib/prometheus/node-exporter
echo "== size of the metrics file ($prom/qorclustd.prom) per role"
for h in "${hosts[@]}"; do "$qorlab" --dir "$lab" run "$h" stat -c "$h: %s bytes" "$prom/qorclustd.prom"; done

for h in "${hosts[@]}"; do "$qorlab" --dir "$lab" run "$h" qorclustd -stop >/dev/null; done
# The hosts see the lab's directory at /run/lab, and no path of this machine.
cp "$bench" "$lab/lab_cycle_bench"
for metrics in on off; do
  echo "== cycle work time per role, $cycles cycles each (all three at once), metrics file $metrics"
  for h in "${hosts[@]}"; do
    # Without the directory the daemon writes no file.
    if [ $metrics = off ]; then "$qorlab" --dir "$lab" run "$h" rm -r "$prom" >/dev/null; fi
    "$qorlab" --dir "$lab" run "$h" unshare --pid --fork --mount-proc /run/lab/lab_cycle_bench \
      "$cycles" >"$lab/logs/bench.$h" 2>&1 &
  done
  wait
  for h in "${hosts[@]}"; do cat "$lab/logs/bench.$h"; done
done

echo "== lab teardown"
"$qorlab" --dir "$lab" down | grep -E '^lab down in'
