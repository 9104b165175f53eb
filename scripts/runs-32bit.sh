#!/usr/bin/env bash
# runs-32bit.sh PREFIX — exit status 0 when Wine runs 32-bit Windows programs
# in PREFIX (a prefix made by make-prefix.sh). Some virtual machines' kernels
# run no 32-bit code at all, and there every 32-bit program ends before its
# first instruction; the 32-bit cmd.exe of the prefix tells the two apart.
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
rc=0
WINEPREFIX="$1" WINEDLLPATH="${QM_CACHE:-$root/.cache}/libwine-i386/usr/lib/i386-linux-gnu/wine" WINEDEBUG=-all \
  timeout 120 wine 'C:\windows\syswow64\cmd.exe' /c exit 7 >/dev/null 2>&1 || rc=$?
[ "$rc" = 7 ]
