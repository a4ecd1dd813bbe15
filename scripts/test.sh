#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds, and runs every test with CTest.
# Usage: test.sh [--sanitize]   (--sanitize: AddressSanitizer + UndefinedBehaviorSanitizer build)
# Needs root: the tests run the real binary in private namespaces and start their own servers.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
bash "$here/install-deps.sh"
dir=$(bash "$here/build.sh" "$@" | tail -n 1)
cd "$dir"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --output-on-failure -j2 --timeout 600
