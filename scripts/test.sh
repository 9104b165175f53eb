#!/usr/bin/env bash
# test.sh — sets the machine up, builds both architectures and runs every
# test under Wine (window tests under Xvfb). Exit status: CTest's.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$root/scripts/install-deps.sh"
bash "$root/scripts/build.sh" i686 x86_64
status=0
for arch in i686 x86_64; do
  echo "=== tests: $arch ==="
  # A new prefix for every run: tests start from a clean Windows.
  rm -rf "$root/build/$arch/wineprefix"
  (cd "$root/build/$arch" && xvfb-run -a -s "-screen 0 1280x1024x24" \
     ctest --output-on-failure ${CTEST_ARGS:-}) || status=1
  WINEPREFIX="$root/build/$arch/wineprefix" wineserver -k 2>/dev/null || true
done
exit $status
