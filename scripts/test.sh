#!/usr/bin/env bash
# test.sh — sets the machine up, builds both architectures and runs every
# test under Wine (window tests under Xvfb). Exit status: CTest's.
#   QM_NO_SETUP=1     skip install-deps and the build: run what build/ holds
#   QM_ARCHS="x86_64" only these trees (default "i686 x86_64")
#   CTEST_ARGS="-R e2e_setup_options"  passed to ctest, e.g. to run one test
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
read -r -a archs <<<"${QM_ARCHS:-i686 x86_64}"
if [ -z "${QM_NO_SETUP:-}" ]; then
  bash "$root/scripts/install-deps.sh"
  bash "$root/scripts/build.sh" "${archs[@]}"
fi
status=0
for arch in "${archs[@]}"; do
  echo "=== tests: $arch ==="
  # A new prefix for every run: tests start from a clean Windows.
  rm -rf "$root/build/$arch/wineprefix"
  (cd "$root/build/$arch" && xvfb-run -a -s "-screen 0 1280x1024x24" \
     ctest --output-on-failure ${CTEST_ARGS:-}) || status=1
  WINEPREFIX="$root/build/$arch/wineprefix" wineserver -k 2>/dev/null || true
done
exit $status
