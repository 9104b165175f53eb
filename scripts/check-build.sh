#!/usr/bin/env bash
# check-build.sh [setup.exe] — checks the shipped image: a 32-bit (PE32, i386)
# Windows GUI program that imports only KnownDLLs, enters through its
# DLL-search restriction, and a
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

# Only DLLs on Windows' KnownDLLs list, which the loader takes from the system
# folder whatever lies beside the program (and ntdll, the loader itself); the
# C and C++ runtimes are linked in statically.
known=" advapi32.dll clbcatq.dll combase.dll comdlg32.dll coml2.dll difxapi.dll gdi32.dll"
known+=" gdiplus.dll imagehlp.dll imm32.dll kernel32.dll msctf.dll msvcrt.dll normaliz.dll nsi.dll"
known+=" ole32.dll oleaut32.dll psapi.dll rpcrt4.dll sechost.dll setupapi.dll shcore.dll shell32.dll"
known+=" shlwapi.dll user32.dll wldap32.dll ws2_32.dll ntdll.dll "
imports="$(sed -n 's/^[[:space:]]*DLL Name: //p' <<<"$headers" | tr 'A-Z' 'a-z' | sort -u)"
[ -n "$imports" ] || fail "no import table found"
for dll in $imports; do
  case "$known" in *" $dll "*) ;; *) fail "imports $dll, which is not a KnownDLL";; esac
done
echo "ok: PE32 i386 GUI image importing only KnownDLLs: $(echo $imports)"

# The entry point is the one that restricts the DLL search before the C
# runtime starts (its address from the link map beside the image).
map="$(dirname "$image")/setup.map"
[ -f "$map" ] || fail "no link map at $map"
base=$((16#$(sed -n 's/^ImageBase[[:space:]]*//p' <<<"$headers")))
entry=$((16#$(sed -n 's/^AddressOfEntryPoint[[:space:]]*//p' <<<"$headers")))
hardened=$(awk '$2 == "SetupEntry" || $2 == "_SetupEntry" { print $1; exit }' "$map")
[ -n "$hardened" ] || fail "no SetupEntry in $map"
[ $((base + entry)) -eq $((hardened)) ] || fail "the entry point is not SetupEntry"
echo "ok: the entry point is SetupEntry"

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
