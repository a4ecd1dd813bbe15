#!/usr/bin/env bash
# The seeded-fault census: applies each fault of scripts/mutants.txt alone, rebuilds, runs the
# test labels the fault names and restores the file. A fault that no test notices is a hole in
# the suite; the report says which test caught each one.
#
#   bash scripts/mutants.sh [--build DIR] [--only id,id] [--labels unit,store] [--out FILE]
#   bash scripts/mutants.sh --check
#   (DIR: build/, or $QOR_BUILD_DIR)
#
# --check builds and runs nothing: it lists every fault whose file is missing or whose old text
# does not occur exactly once there, and exits 1 when there is any.
# --only runs the named faults, --labels the faults that name one of these labels. Lab faults
# may narrow the lab tests with a "tests:" regex. The first failing test stops the run of a fault
# and is reported as its catcher; each test has a time limit, so a fault that hangs the code is
# caught by the limit instead of stalling the census. Logs: DIR/mutants-logs/ID.log.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${QOR_BUILD_DIR:-build} only="" labels="" out=""
if [ "${1:-}" = "--check" ]; then
  exec python3 - "$root" <<'EOF'
import os, re, sys
root = sys.argv[1]
text = open(os.path.join(root, 'scripts/mutants.txt')).read()
entries = re.findall(r'^id: (\S+)\n(.*?)^end$', text, re.S | re.M)
bad = 0
for fid, body in entries:
    path = os.path.join(root, re.search(r'^file: (.*)$', body, re.M).group(1).strip())
    old = re.search(r'^old:\n(.*?)^new:\n', body, re.S | re.M).group(1)
    n = open(path).read().count(old) if os.path.isfile(path) else -1
    if n != 1:
        bad += 1
        print('%s: %s' % (fid, 'no file ' + path if n < 0 else 'old text occurs %d times' % n))
print('%d of %d faults stale' % (bad, len(entries)))
sys.exit(1 if bad else 0)
EOF
fi
while [ $# -gt 0 ]; do
  case $1 in
    --build) build=$2; shift 2 ;;
    --only) only=$2; shift 2 ;;
    --labels) labels=$2; shift 2 ;;
    --out) out=$2; shift 2 ;;
    *) echo "usage: $0 [--build DIR] [--only id,id] [--labels l,l] [--out FILE]" >&2; exit 2 ;;
  esac
done
case $build in /*) ;; *) build=$root/$build ;; esac
out=${out:-$build/mutants.md}

# The store and binary suites start database servers on 127.0.0.1/2:3306 and the lab makes
# namespaces: a private network keeps the census off anything else running on this machine.
if [ -z "${QOR_MUTANTS_NETNS:-}" ]; then
  exec unshare --net -- env QOR_MUTANTS_NETNS=1 bash -c 'ip link set lo up && exec bash "$0" "$@"' \
    "$0" --build "$build" --only "$only" --labels "$labels" --out "$out"
fi

# One file per fault, fields on lines of their own; old/new kept as files.
work=$(mktemp -d)
restore=""
cleanup() {
  if [ -n "$restore" ]; then cp "$work/original" "$root/$restore"; fi
  bash "$root/lab/testdb.sh" stop-pair "$build/testdb" >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT INT TERM
python3 - "$root/scripts/mutants.txt" "$work" <<'EOF'
import re, sys, os
text = open(sys.argv[1]).read()
for n, (fid, body) in enumerate(re.findall(r'^id: (\S+)\n(.*?)^end$', text, re.S | re.M)):
    d = os.path.join(sys.argv[2], '%03d' % n)
    os.mkdir(d)
    field = lambda k: (re.search(r'^%s: (.*)$' % k, body, re.M) or [None, ''])[1].strip()
    for k in ('file', 'labels', 'tests', 'about'):
        open(os.path.join(d, k), 'w').write(field(k))
    open(os.path.join(d, 'id'), 'w').write(fid)
    old, new = re.search(r'^old:\n(.*?)^new:\n(.*)', body, re.S | re.M).groups()
    open(os.path.join(d, 'old'), 'w').write(old)
    open(os.path.join(d, 'new'), 'w').write(new)
EOF

wanted() {  # $1 id, $2 labels
  if [ -n "$only" ]; then [[ ",$only," == *",$1,"* ]]; return; fi
  if [ -n "$labels" ]; then
    local l; for l in ${2//,/ }; do [[ ",$labels," == *",$l,"* ]] && return 0; done; return 1
  fi
  return 0
}

targets_for() {
  local l t=""
  for l in ${1//,/ }; do
    case $l in
      unit) t+=" qor_unit_tests" ;;
      store) t+=" qor_store_tests" ;;
      binary) t+=" qor_cli_tests qorclustd" ;;
      lab) t+=" qor_lab_tests qorclustd qorlab" ;;
      package) t+=" qorclustd" ;;
    esac
  done
  echo $t
}

# Runs the fault's labels; prints the first failing test, nothing when all passed.
run_labels() {  # $1 labels, $2 lab regex, $3 log
  local l args
  for l in ${1//,/ }; do
    args=(-L "^$l\$")
    if [ "$l" = lab ] && [ -n "$2" ]; then args+=(-R "$2"); fi
    (cd "$build" && ctest "${args[@]}" --stop-on-failure --timeout 240 --output-on-failure) \
      >>"$3" 2>&1 || true
    bash "$root/lab/testdb.sh" stop-pair "$build/testdb" >/dev/null 2>&1 || true
    local failed
    failed=$(grep -E '^\s*[0-9]+/[0-9]+ Test +#[0-9]+: .*(\*\*\*|Failed|Timeout)' "$3" |
      grep -v ' Passed ' | head -1 | sed -E 's/.*Test +#[0-9]+: ([^ ]+).*/\1/')
    if [ -n "$failed" ]; then echo "$failed"; return; fi
  done
}

[ -f "$build/CMakeCache.txt" ] || cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug >/dev/null
echo "baseline build ..."
cmake --build "$build" -j2 >/dev/null
mkdir -p "$build/mutants-logs"
{
  echo "| fault | file | labels | result | caught by |"
  echo "|---|---|---|---|---|"
} >"$out"
total=0 caught=0 start=$SECONDS
for d in "$work"/[0-9]*; do
  id=$(cat "$d/id") file=$(cat "$d/file") lbl=$(cat "$d/labels") tests=$(cat "$d/tests")
  wanted "$id" "$lbl" || continue
  total=$((total + 1))
  log=$build/mutants-logs/$id.log
  : >"$log"
  result="" by=""
  if ! python3 - "$root/$file" "$d" >>"$log" 2>&1 <<'EOF'; then
import sys
path, d = sys.argv[1], sys.argv[2]
src = open(path).read()
old, new = open(d + '/old').read(), open(d + '/new').read()
if src.count(old) != 1:
    print('old text occurs %d times' % src.count(old)); sys.exit(1)
open(d + '/original', 'w').write(src)
open(path, 'w').write(src.replace(old, new))
EOF
    result="stale (old text not found once)"
  else
    cp "$d/original" "$work/original"
    restore=$file
    # shellcheck disable=SC2046
    if ! cmake --build "$build" -j2 --target $(targets_for "$lbl") >>"$log" 2>&1; then
      result="does not build"
    else
      by=$(run_labels "$lbl" "$tests" "$log")
      if [ -n "$by" ]; then result="caught"; caught=$((caught + 1)); else result="NOT CAUGHT"; fi
    fi
    cp "$work/original" "$root/$file"
    restore=""
  fi
  printf '%-36s %-16s %s\n' "$id" "$result" "$by"
  echo "| $id | $file | $lbl | $result | $by |" >>"$out"
done
echo "rebuilding the unchanged tree ..."
cmake --build "$build" -j2 >/dev/null
git -C "$root" diff --quiet -- src lab || echo "WARNING: the tree differs from git after the census" >&2
echo "caught $caught of $total in $((SECONDS - start)) s; table: $out"
