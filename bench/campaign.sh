#!/usr/bin/env bash
# A fault campaign on the lab with its real daemons: for SECONDS, episodes drawn from a generator
# seeded with SEED (members killed, link flaps, the master or the slave or a member cut off, a
# database stalled or restarted, daemons restarted, deaths while the master's database is down or
# stalling, clocks skewed or stepped), each checked once the cluster has healed: every death found
# within its bound and taken over exactly once, no live server taken over, no take-over by a
# cut-off server, every row active in both databases within 30 s. Prints the seed, one line per
# episode and the totals; exits 1 when a check failed. The same seed replays the same episodes;
# --episode K runs only episode K of the seed's sequence.
# Usage: campaign.sh SECONDS SEED [--members N] [--episode K]   (2 members; an episode takes
#   about a minute). Needs root. QOR_BUILD_DIR=DIR builds into DIR instead of build/.
set -euo pipefail
members=2
episode=0
args=()
while [ $# -gt 0 ]; do
  case $1 in
    --members) members=$2; shift 2 ;;
    --episode) episode=$2; shift 2 ;;
    *) args+=("$1"); shift ;;
  esac
done
if [ ${#args[@]} -ne 2 ]; then
  echo "usage: campaign.sh SECONDS SEED [--members N] [--episode K]" >&2
  exit 2
fi
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
dir=${QOR_BUILD_DIR:-$root/build}
cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$dir" -j"$(nproc)" --target qorclustd lab_campaign_bench >&2
exec "$dir/bench/lab_campaign_bench" "$dir/campaignbench" "${args[0]}" "${args[1]}" "$members" \
  "$episode"
