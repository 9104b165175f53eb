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
wine_dlls="$root/.cache/libwine-i386/usr/lib/i386-linux-gnu/wine"

# Where the kernel runs no 32-bit code (scripts/runs-32bit.sh), the i686 tree
# runs only the checks that need no Wine; the x86_64 tree runs every
# end-to-end script either way.
status=0
for arch in "${archs[@]}"; do
  echo "=== tests: $arch ==="
  prefix="$root/build/$arch/wineprefix"
  # A new prefix for every run: tests start from a clean Windows.
  rm -rf "$prefix"
  args=()
  if [ "$arch" = i686 ]; then
    WINEDLLPATH="$wine_dlls" bash "$root/scripts/make-prefix.sh" "$prefix" i686
    if ! bash "$root/scripts/runs-32bit.sh" "$prefix"; then
      echo "NOTE: this kernel runs no 32-bit programs under Wine: i686 tests under Wine skipped"
      args=(-R '^build_checks$')
      export QM_NO_32BIT=1
    fi
  fi
  (cd "$root/build/$arch" && xvfb-run -a -s "-screen 0 1280x1024x24" \
     ctest --output-on-failure "${args[@]}" ${CTEST_ARGS:-}) || status=1
  WINEPREFIX="$prefix" wineserver -k 2>/dev/null || true
done
exit $status
