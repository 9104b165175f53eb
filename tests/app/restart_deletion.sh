#!/usr/bin/env bash
# Deletion and replacement queued for the next start of Windows happen when
# the Wine prefix restarts, and not before.
#   phase 1: queue the deletion of one file, and the replacement of another
#            (its old copy queued for deletion first, as the file installation does);
#   phase 2: after `wineserver -w; wine wineboot -r` check what is left.
set -euo pipefail
defer="$QM_BIN_DIR/app_defer.exe"
dir="$WINEPREFIX/drive_c/qm restart test"
win='C:\qm restart test'
rm -rf "$dir"
mkdir -p "$dir"
printf 'doomed' > "$dir/delete me.txt"
printf 'old' > "$dir/program.dll"
printf 'new' > "$dir/program.dll.new"
fail() { echo "FAIL: $*" >&2; exit 1; }

# Phase 1
wine "$defer" delete "$win\\delete me.txt" || fail "deletion not queued"
wine "$defer" delete "$win\\program.dll" || fail "deletion of the old copy not queued"
wine "$defer" replace "$win\\program.dll.new" "$win\\program.dll" || fail "replacement not queued"
wine "$defer" bogus && fail "bad usage accepted"
wineserver -w
[ -f "$dir/delete me.txt" ] || fail "deleted before the restart"
[ "$(cat "$dir/program.dll")" = old ] || fail "replaced before the restart"

# Phase 2
wine wineboot -r >/dev/null 2>&1
wineserver -w
[ ! -e "$dir/delete me.txt" ] || fail "not deleted at the restart"
[ -f "$dir/program.dll" ] || fail "replacement missing after the restart"
[ "$(cat "$dir/program.dll")" = new ] || fail "old copy kept after the restart"
[ ! -e "$dir/program.dll.new" ] || fail "source of the replacement left behind"
rm -rf "$dir"
echo "restart deletion: ok"
