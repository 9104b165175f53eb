#!/usr/bin/env bash
# The package installed with "setup.exe -s" into a fresh prefix, checked file
# by file, value by value and link by link; then removed by the installed
# QmkUnInst.exe, after which the prefix must be as it was, but for what the
# removal deliberately leaves.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

package="$work/package"
make_package "$package" 8.5.3.0
# Another product of the same maker, whose key must survive the removal; what
# the product and its earlier versions leave for the removal to take along: its
# keys for the user and for other profiles, the old document type, the browser
# host of 64-bit Windows (its 32-bit twin is another key and stays).
for key in 'HKCU\Software\Lanternfold\Quillmark 8\Settings' 'HKU\.Default\Software\Lanternfold\Quillmark 8' \
           'HKCR\QM8.Document\shell' 'HKLM\Software\Mozilla\NativeMessagingHosts\qmrkff' \
           'HKCU\Software\Mozilla\NativeMessagingHosts\qmrkff'; do
  wine reg add "$key" /reg:64 /f >/dev/null 2>&1
done
wine reg add 'HKLM\Software\Mozilla\NativeMessagingHosts\qmrkff' /reg:32 /f >/dev/null 2>&1
wine reg add 'HKLM\Software\Lanternfold\Quillmark Notes' /reg:$view /f >/dev/null 2>&1
snapshot before

# --- install ---------------------------------------------------------------
day_before=$(date +%Y%m%d)
run_traced "$work/install.log" "$package/setup.exe" -s
day_after=$(date +%Y%m%d)
expect_eq "setup -s exit code" 0 "$rc"
dest="$program_files\\Quillmark 8"
check_installed_files "setup -s" "$package" "$dest"
check_default_links "setup -s" "$package" "$dest" "$common_programs" "$common_desktop" "$common_startup"

# Every registry value setup writes (as Wine stores them: backslashes doubled,
# the 32-bit view folded into the 64-bit one); the prefix reports Windows 7,
# so the associations go to the application entry.
snapshot installed
# The size in KiB of the installed files, the day of the install.
kib=$(find "$(hostpath "$dest")" -type f -printf '%s\n' | awk '{ s += $1 } END { printf "%08x", int((s + 1023) / 1024) }')
install_date=$(reg_value "$uninstall" InstallDate)
check "InstallDate is the day of the install ($install_date)" test "$install_date" = "$day_before" -o "$install_date" = "$day_after"
d="${dest//\\/\\\\}" exe="${dest//\\/\\\\}\\\\Qmkview8.exe" uninst='Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Quillmark 8'
caps='Software\\Lanternfold\\Quillmark 8\\Capabilities' open="@=\"\\\"$exe\\\" \\\"%1\\\"\""
{
  echo "HKLM + Software\\\\Classes\\\\Applications\\\\Qmkview8.exe\\\\shell\\\\open\\\\command :: $open"
  echo "HKLM + Software\\\\Classes\\\\Quillmark.8\\\\shell\\\\open\\\\command :: $open"
  echo "HKLM + Software\\\\Lanternfold\\\\Quillmark 8 :: \"AllUsers\"=\"B\""
  echo "HKLM + Software\\\\Lanternfold\\\\Quillmark 8 :: \"Path\"=\"$d\""
  for ext in .bmp .cmp .dib .dqm .gif .j2k .jp2 .jpeg .jpg .png .tga .tif .tiff .wpg; do
    echo "HKLM + $caps\\\\FileAssociations :: \"$ext\"=\"Applications\\\\Qmkview8.exe\""
  done
  echo "HKLM + Software\\\\Microsoft\\\\Windows\\\\CurrentVersion\\\\App Paths\\\\Qmkview8.exe :: \"Path\"=\"$d\""
  echo "HKLM + Software\\\\Microsoft\\\\Windows\\\\CurrentVersion\\\\App Paths\\\\Qmkview8.exe :: @=\"$exe\""
  for value in '"Contact"="Support"' "\"DisplayIcon\"=\"$exe\"" '"DisplayName"="Quillmark 8"' \
               '"DisplayVersion"="8.05.03"' "\"EstimatedSize\"=dword:$kib" "\"InstallDate\"=\"$install_date\"" \
               "\"InstallLocation\"=\"$d\"" '"MajorVersion"=dword:00000008' '"MinorVersion"=dword:00000005' \
               '"NoModify"=dword:00000001' '"NoRepair"=dword:00000001' \
               '"Publisher"="Lanternfold Technology LLC"' "\"QuietUninstallString\"=\"\\\"$d\\\\QmkUnInst.exe\\\"\"" \
               "\"URLInfoAbout\"=\"$homepage\"" \
               "\"UninstallString\"=\"$d\\\\QmkUnInst.exe\"" '"VersionMajor"="8"' '"VersionMinor"="5"'; do
    echo "HKLM + $uninst :: $value"
  done
  echo 'HKLM + Software\\RegisteredApplications :: "Quillmark.8"="SOFTWARE\\Lanternfold\\Quillmark 8\\Capabilities"'
} >"$work/registry.expected"
snapshot_diff before installed | grep ' :: ' | sed 's/Wow6432Node\\\\\\\\//' >"$work/registry.actual"
check "every registry value as written" diff "$work/registry.expected" "$work/registry.actual"
expect_eq "product self-registration (-regonly)" "$dest\\Qmkview8.exe" "$(trace_events regonly)"
# Wine's 32-bit regsvr32 crashes on a 64-bit DLL where Windows hands it to its
# 64-bit regsvr32, so the command line is checked, not the DLL's own trace.
expect_eq "thumbnail extension registration" "regsvr32.exe /s \"$dest\\$thumb_dll\"" \
  "$(command_lines "$work/install.log" | grep -i regsvr32 | head -n1)"

# --- removal ---------------------------------------------------------------
run_traced "$work/remove.log" "$dest\\QmkUnInst.exe"
expect_eq "QmkUnInst.exe exit code" 0 "$rc"
expect_eq "removal worker started from the temporary folder with -delself" \
  "$temp_dir\\uniXXXX.tmp -delself \"$dest\\QmkUnInst.exe\" -s" \
  "$(command_lines "$work/remove.log" | grep -- '-delself' | sed 's/uni[0-9A-Fa-f]*\.tmp/uniXXXX.tmp/')"
expect_eq "product unregistration (-unregonly)" "$dest\\Qmkview8.exe" "$(trace_events unregonly)"
expect_eq "thumbnail extension unregistration" "regsvr32.exe /s /u \"$dest\\$thumb_dll\"" \
  "$(command_lines "$work/remove.log" | grep -i regsvr32 | head -n1)"
# No Wine program may run before this snapshot: a new session would carry out
# the pending deletions at once.
snapshot removed
check "uninstall entry gone from Wine's list" not_listed

# Right after the removal, before a new session runs the pending renames, the
# worker's temporary copy is still there, queued for deletion, and so is the
# x64 folder, which the removal queues without looking whether it is gone.
# The planted keys are gone but for the 32-bit host; the other product's stays.
snapshot_diff before removed | grep -v ' :: @=""$' >"$work/removed.diff"
uni=$(sed -n 's|^> \./users/[^/]*/Temp/\(uni[0-9A-Fa-f]*\.tmp\)$|\1|p' "$work/removed.diff")
esc() { sed 's/\\/\\\\/g' <<<"$1"; }
leftover="HKLM + Software\\\\${wow_node}RegisteredApplications"
expect_eq "what the removal leaves and takes besides the installation" "> ./users/$user_dir/Temp/$uni
HKLM - Software\\\\Classes\\\\QM8.Document
HKLM - Software\\\\Classes\\\\QM8.Document\\\\shell
HKLM - Software\\\\Mozilla\\\\NativeMessagingHosts\\\\qmrkff
$leftover
HKLM + System\\\\CurrentControlSet\\\\Control\\\\Session Manager :: \"PendingFileRenameOperations\"=str(7):\"$(esc "\\??\\$temp_dir\\$uni")\\0\\0$(esc "\\??\\$dest\\x64")\\0\\0\"
HKCU - Software\\\\Lanternfold
HKCU - Software\\\\Lanternfold\\\\Quillmark 8
HKCU - Software\\\\Lanternfold\\\\Quillmark 8\\\\Settings
HKCU - Software\\\\Mozilla\\\\NativeMessagingHosts\\\\qmrkff
HKU\\.Default - Software\\\\Lanternfold
HKU\\.Default - Software\\\\Lanternfold\\\\Quillmark 8" "$(cat "$work/removed.diff")"

# A new session (the checks above started one) carried out the pending deletions.
snapshot restarted
expect_eq "after the restart the worker's copy is gone" "$(sed '1d; /PendingFileRenameOperations/d' "$work/removed.diff")" \
  "$(snapshot_diff before restarted | grep -v ' :: @=""$')"
finish
