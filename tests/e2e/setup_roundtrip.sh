#!/usr/bin/env bash
# The package installed with "setup.exe -s" into a fresh prefix, checked file
# by file, value by value and link by link; then removed by the installed
# QmkUnInst.exe, after which the prefix must be as it was, but for what the
# removal deliberately leaves.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

package="$work/package"
make_package "$package" 8.5.3.0
# Another product of the same maker: its keys must survive the removal.
wine reg add 'HKLM\Software\Lanternfold\Quillmark Notes' /reg:$setup_view /v Path /d 'C:\Notes' /f >/dev/null 2>&1
snapshot before

# --- install ---------------------------------------------------------------
run_traced "$work/install.log" "$package/setup.exe" -s
expect_eq "setup -s exit code" 0 "$rc"

dest="$program_files\\Quillmark 8"
dest_host="$(hostpath "$dest")"
expect_eq "installed files" "$installed_files" "$(tree_list "$dest_host")"
check_copied "" "$package" "$dest_host" Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll ${x64_files#x64}

check_default_links "$package" "$dest"

check_registration "$dest"

check "Wine's list of installed programs names Quillmark 8" grep -qx 'Quillmark 8|||Quillmark 8' <(installed_programs)

expect_eq "product self-registration (-regonly)" "regonly $dest\\Qmkview8.exe" \
  "$(trace_events regonly | cut -d' ' -f2-)"
# Wine's regsvr32 crashes on a DLL of the other word size where Windows hands
# it to its other regsvr32 (under Wine by full path), so only the command
# line setup gave can be checked here.
expect_eq "thumbnail extension registration" "regsvr32.exe /s \"$dest\\$thumb_dll\"" \
  "$(command_lines "$work/install.log" | grep -i "^regsvr32")"
snapshot installed

# --- removal ---------------------------------------------------------------
run_traced "$work/remove.log" "$dest\\QmkUnInst.exe"
expect_eq "QmkUnInst.exe exit code" 0 "$rc"
worker_line=$(command_lines "$work/remove.log" | grep -- '-delself' || true)
expect_eq "removal worker started from the temporary folder with -delself" \
  "$temp_dir\\uniXXXX.tmp -delself \"$dest\\QmkUnInst.exe\" -s" \
  "$(sed 's/uni[0-9A-Fa-f]*\.tmp/uniXXXX.tmp/' <<<"$worker_line")"
expect_eq "product unregistration (-unregonly)" "unregonly $dest\\Qmkview8.exe" \
  "$(trace_events unregonly | cut -d' ' -f2-)"
expect_eq "thumbnail extension unregistration" "regsvr32.exe /s /u \"$dest\\$thumb_dll\"" \
  "$(command_lines "$work/remove.log" | grep -i "^regsvr32")"
# No Wine program may run before this snapshot: a new session would carry
# out the pending deletions at once.
snapshot removed
check "uninstall entry gone from Wine's list" not_listed

# Right after the removal, before a new session runs the pending renames,
# the worker's temporary copy is still there, queued for deletion.
snapshot_diff before removed >"$work/removed.diff"
worker_file=$(sed -n 's|^> \./\(users/[^/]*/Temp/uni[0-9A-Fa-f]*\.tmp\)$|\1|p' "$work/removed.diff")
check "the worker's temporary copy is left for the restart" test -n "$worker_file"
# Wine's registry file doubles every backslash.
esc() { sed 's/\\/\\\\/g' <<<"$1"; }
uni="$(basename "${worker_file:-none}")"
# Queued: the worker's copy, and the x64 folder, which the removal hands to the
# restart without looking whether the journal pass has removed it already.
expect_eq "pending operations: the worker's copy and the x64 folder" \
  "HKLM + $(esc 'System\CurrentControlSet\Control\Session Manager') :: \"PendingFileRenameOperations\"=str(7):\"$(esc "\\??\\$temp_dir\\$uni")\\0\\0$(esc "\\??\\$dest\\x64")\\0\\0\"" \
  "$(grep 'PendingFileRenameOperations' "$work/removed.diff" || true)"
others=$(grep -v -e "^> \./$worker_file\$" -e 'PendingFileRenameOperations' \
               -e "^HKLM + $(esc "$registered_apps")\$" "$work/removed.diff" || true)
expect_eq "nothing else differs from before the install" "" "$others"
check "the other product's key survives" key_exists 'HKLM\Software\Lanternfold\Quillmark Notes' "$setup_view"

# A new session (the list above started one) carried out the pending deletion.
snapshot restarted
snapshot_diff before restarted >"$work/restarted.diff"
expect_eq "after the restart only the emptied RegisteredApplications key remains" \
  "HKLM + $registered_apps" "$(cat "$work/restarted.diff")"
finish
