#!/usr/bin/env bash
# Builds the fuzz targets of fuzz/ with clang (ASan + UBSan) and runs each in turn, starting from
# its seed corpus in fuzz/corpus/<target>. Any finding fails the script.
# Usage: fuzz.sh --smoke | [--runs N] [--time S]  [target ...]
#   --smoke    60 seconds a target (CI)
#   --runs N   N executions a target; --time S: at most S seconds a target (both: whichever first)
# What a run adds to the corpus is kept in build-fuzz/corpus/<target> and used again next time;
# findings are written to build-fuzz/findings/<target>, emptied when that target starts.
# QOR_BUILD_DIR=DIR: DIR-fuzz instead of build-fuzz.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir="${QOR_BUILD_DIR:-$root/build}-fuzz"

limits=()
while [ $# -gt 0 ]; do
  case "$1" in
    --smoke) limits+=(-max_total_time=60) ;;
    --runs) limits+=(-runs="$2"); shift ;;
    --time) limits+=(-max_total_time="$2"); shift ;;
    -*) echo "fuzz.sh: unknown option $1" >&2; exit 2 ;;
    *) break ;;
  esac
  shift
done
if [ ${#limits[@]} -eq 0 ]; then
  echo "usage: fuzz.sh --smoke | [--runs N] [--time S] [target ...]" >&2
  exit 2
fi
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(qorconf cpuset qorver clust_record updated_at command_line)
fi

bash "$root/scripts/install-deps.sh" --fuzz
cmake -S "$root" -B "$dir" -DQOR_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
if ! cmake --build "$dir" -j2 --target "${targets[@]/#/fuzz_}" >"$dir/build.log" 2>&1; then
  cat "$dir/build.log" >&2
  exit 1
fi

# The file readers cut lines at 8191 bytes in a 4096-byte buffer: their inputs must reach past both.
max_len() {
  case "$1" in
    qorconf | qorver) echo 20000 ;;
    *) echo 4096 ;;
  esac
}

export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
passed=0
failed=0
summary=()
for t in "${targets[@]}"; do
  corpus="$dir/corpus/$t"
  findings="$dir/findings/$t"
  log="$dir/logs/$t.log"
  mkdir -p "$corpus" "$dir/logs"
  rm -rf "$findings"
  mkdir -p "$findings"
  echo "fuzz: $t ..." >&2
  rc=0
  start=$SECONDS
  "$dir/fuzz/fuzz_$t" "${limits[@]}" -max_len="$(max_len "$t")" -timeout=10 \
    -print_final_stats=1 -artifact_prefix="$findings/" "$corpus" "$root/fuzz/corpus/$t" \
    >"$log" 2>&1 || rc=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  secs=$((SECONDS - start))
  corp=$(grep -o 'corp: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)
  found=$(find "$findings" -type f | wc -l)
  if [ "$rc" -ne 0 ] || [ "$found" -ne 0 ]; then
    failed=$((failed + 1))
    status="FAILED (exit $rc, findings in $findings, log $log)"
    tail -n 40 "$log" >&2
  else
    passed=$((passed + 1))
    status=ok
  fi
  summary+=("$(printf '%-13s %12s execs %6s s  corpus %5s  %s' "$t" "${execs:-?}" "${secs:-?}" \
    "${corp:-?}" "$status")")
done

printf '%s\n' "${summary[@]}"
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
