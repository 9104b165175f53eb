#!/usr/bin/env bash
# check-build.sh [setup.exe] — checks the shipped image: a 32-bit (PE32, i386)
# Windows GUI program that imports nothing but Windows' own DLLs, and a
# reproducible one: a second configure and build in a fresh folder must give
# the very same bytes. Exit status 0 when both hold.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
image="${1:-${QM_BIN_DIR:-$root/build/i686/bin}/setup.exe}"
objdump=i686-w64-mingw32-objdump
fail() { echo "FAIL: $*" >&2; exit 1; }

[ -f "$image" ] || fail "no image at $image"
headers="$($objdump -p "$image")"

grep -q 'file format pei-i386' <<<"$headers" || fail "not an i386 PE image"
grep -Eq '^Magic[[:space:]]+010b[[:space:]]+\(PE32\)' <<<"$headers" || fail "not PE32"
grep -Eq '^Subsystem[[:space:]]+00000002[[:space:]]+\(Windows GUI\)' <<<"$headers" || fail "not a GUI program"

# DLLs every Windows has; the C and C++ runtimes are linked in statically.
allowed=" kernel32.dll user32.dll gdi32.dll advapi32.dll shell32.dll ole32.dll oleaut32.dll"
allowed+=" comctl32.dll comdlg32.dll version.dll msvcrt.dll ntdll.dll shlwapi.dll "
imports="$(sed -n 's/^[[:space:]]*DLL Name: //p' <<<"$headers" | tr 'A-Z' 'a-z' | sort -u)"
[ -n "$imports" ] || fail "no import table found"
for dll in $imports; do
  case "$allowed" in *" $dll "*) ;; *) fail "imports $dll";; esac
done
echo "ok: PE32 i386 GUI image importing only: $(echo $imports)"

# Same sources, same settings, another folder: byte-identical output.
build_dir="$(cd "$(dirname "$image")/.." && pwd)"
homepage="$(sed -n 's/^QM_HOMEPAGE:STRING=//p' "$build_dir/CMakeCache.txt" 2>/dev/null || true)"
second="$(mktemp -d /tmp/qm-reproduce.XXXXXX)"
trap 'rm -rf "$second"' EXIT
cmake -S "$root" -B "$second" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-i686.cmake" \
      -DQM_BUILD_TESTS=OFF ${homepage:+-DQM_HOMEPAGE="$homepage"} >/dev/null
cmake --build "$second" --target setup >/dev/null
cmp "$image" "$second/bin/setup.exe" || fail "a second build differs from $image"
echo "ok: a second build in $second is byte-identical"
