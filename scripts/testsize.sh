#!/usr/bin/env bash
# The test budget: all test code (src/**/*_test.cpp and tests/, support included, the shell tests
# under tests/ and the alert rules' test series too) may be at most a third of the product code
# (src/ and lab/), counted in lines that are neither blank nor comment. Prints the figures; exits 1
# when the tests are over the budget.
set -euo pipefail
cd "$(dirname "$0")/.."

# Lines of the files named on stdin that hold code: /* */ blocks, // lines and blank lines out.
count() {
  xargs -d '\n' cat | awk '
    { line = $0
      if (inblock) { if (!match(line, /\*\//)) next; line = substr(line, RSTART + 2); inblock = 0 }
      while (match(line, /\/\*/)) {
        head = substr(line, 1, RSTART - 1); rest = substr(line, RSTART + 2)
        if (match(rest, /\*\//)) line = head substr(rest, RSTART + 2); else { line = head; inblock = 1 }
      }
      if (line !~ /^[ \t]*(\/\/.*)?$/) n++ }
    END { print n + 0 }'
}
sources() { find "$@" -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) | sort; }

# Lines of the shell scripts named on stdin that hold code: blank lines and # comments out.
count_sh() { xargs -d '\n' cat | grep -cvE '^[[:space:]]*(#.*)?$' || true; }
scripts() { find "$@" -type f -name '*.sh' | sort; }

product=$( (sources src | grep -v '_test\.cpp$'; sources lab) | count)
cases=$(( $( (sources src | grep '_test\.cpp$'; sources tests | grep '_test\.cpp$') | count) \
  + $( (scripts tests | grep '_test\.sh$'; find tests -type f -name '*_test.yml') | count_sh) ))
support=$(sources tests | grep -v '_test\.cpp$' | count)
tests=$((cases + support))
echo "product code (src/, lab/): $product"
echo "test code: $tests ($cases in test cases, $support in test support)"
echo "tests/product: $((100 * tests / product))% (at most 33%)"
[ $((3 * tests)) -le "$product" ]
