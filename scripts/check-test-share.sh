#!/usr/bin/env bash
# check-test-share.sh [CHECKOUT] — keeps the tests lean: the non-blank lines
# of C/C++, shell and Python files under tests/ and fixtures/ may be at most a
# third of those of the whole checkout (files git tracks). Exit 0 within the
# limit, 1 above it, 77 (skipped) outside a git checkout.
set -euo pipefail
root="${1:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}"
cd "$root"
files=$(git ls-files 2>/dev/null | grep -E '\.(c|cc|cpp|h|hpp|sh|py)$') || { echo "not a git checkout"; exit 77; }
count() { [ -z "$1" ] && echo 0 || xargs -d '\n' cat <<<"$1" | grep -c '[^[:space:]]'; }
all=$(count "$files")
tests=$(count "$(grep -E '^(tests|fixtures)/' <<<"$files" || true)")
echo "test code: $tests of $all lines"
# At most a third: 3 * tests <= all.
[ $((3 * tests)) -le "$all" ] || { echo "FAIL tests are more than a third of the code"; exit 1; }
