#!/usr/bin/env bash
# check-build.sh [setup.exe] — checks the shipped images, setup.exe and the
# single file's stub beside it: 32-bit (PE32, i386) Windows GUI programs that
# import only KnownDLLs, enter through their DLL-search restriction and keep
# within their sizes; and setup.exe a reproducible one: a second configure and
# build in a fresh folder must give the very same bytes. Exit status 0 when
# all hold.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
image="${1:-${QM_BIN_DIR:-$root/build/i686/bin}/setup.exe}"
objdump=i686-w64-mingw32-objdump
fail() { echo "FAIL: $*" >&2; exit 1; }

# Only DLLs on Windows' KnownDLLs list, which the loader takes from the system
# folder whatever lies beside the program (and ntdll, the loader itself); the
# C and C++ runtimes are linked in statically.
known=" advapi32.dll clbcatq.dll combase.dll comdlg32.dll coml2.dll difxapi.dll gdi32.dll"
known+=" gdiplus.dll imagehlp.dll imm32.dll kernel32.dll msctf.dll msvcrt.dll normaliz.dll nsi.dll"
known+=" ole32.dll oleaut32.dll psapi.dll rpcrt4.dll sechost.dll setupapi.dll shcore.dll shell32.dll"
known+=" shlwapi.dll user32.dll wldap32.dll ws2_32.dll ntdll.dll "

# check_image FILE ENTRY MAX-BYTES: a PE32 i386 GUI image importing only
# KnownDLLs, entering through ENTRY, the function that restricts the DLL
# search before the C runtime starts (its address from the link map beside
# the image), and no larger than MAX-BYTES (millions download it).
check_image() {
  local file="$1" symbol="$2" limit="$3" name headers imports dll map base entry hardened size
  name="$(basename "$file")"
  [ -f "$file" ] || fail "no image at $file"
  headers="$($objdump -p "$file")"
  grep -q 'file format pei-i386' <<<"$headers" || fail "$name: not an i386 PE image"
  grep -Eq '^Magic[[:space:]]+010b[[:space:]]+\(PE32\)' <<<"$headers" || fail "$name: not PE32"
  grep -Eq '^Subsystem[[:space:]]+00000002[[:space:]]+\(Windows GUI\)' <<<"$headers" || fail "$name: not a GUI program"
  imports="$(sed -n 's/^[[:space:]]*DLL Name: //p' <<<"$headers" | tr 'A-Z' 'a-z' | sort -u)"
  [ -n "$imports" ] || fail "$name: no import table found"
  for dll in $imports; do
    case "$known" in *" $dll "*) ;; *) fail "$name imports $dll, which is not a KnownDLL";; esac
  done
  echo "ok: $name: PE32 i386 GUI image importing only KnownDLLs: $(echo $imports)"
  map="${file%.exe}.map"
  [ -f "$map" ] || fail "no link map at $map"
  base=$((16#$(sed -n 's/^ImageBase[[:space:]]*//p' <<<"$headers")))
  entry=$((16#$(sed -n 's/^AddressOfEntryPoint[[:space:]]*//p' <<<"$headers")))
  hardened=$(awk -v s="$symbol" '$2 == s || $2 == "_" s { print $1; exit }' "$map")
  [ -n "$hardened" ] || fail "no $symbol in $map"
  [ $((base + entry)) -eq $((hardened)) ] || fail "the entry point of $name is not $symbol"
  echo "ok: the entry point of $name is $symbol"
  size=$(stat -c %s "$file")
  [ "$size" -le "$limit" ] || fail "$name is $size bytes, more than $limit"
  echo "ok: $name is $size bytes (at most $limit)"
}
check_image "$image" SetupEntry 400000
check_image "$(dirname "$image")/sfxstub.exe" SfxEntry 100000

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
