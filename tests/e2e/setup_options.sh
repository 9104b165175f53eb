#!/usr/bin/env bash
# The unattended options of setup.exe, each run in the same fresh prefix:
#   -instdir to a new folder: a current-user installation with "-runafter";
#   "-autostart" is overridden there by the search for an existing start-up
#   shortcut, which finds none; removed again by its uninstaller;
#   -instport: a portable installation, with no registry and no shortcuts;
#   -nodeskico and -autostart, and "-instport" without a folder on a fresh
#   machine, which still gives an all-users installation in the default folder;
#   -sconf over that installation: installed unattended, then the wizard's
#   ready and finished pages, answered with Next and Finish.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

package="$work/package"
make_package "$package" 8.5.3.0

# --- -instdir, current user, -runafter -------------------------------------
dest='C:\Apps\Quill Mark'
E2E_NO_SETTLE=1 run_traced "$work/instdir.log" "$package/setup.exe" -s -instdir "$dest\\" -autostart -runafter
expect_eq "-instdir exit code" 0 "$rc"
started=$(wait_started)
expect_eq "-runafter started the installed product" "started $dest\\Qmkview8.exe" "$(cut -d' ' -f2- <<<"$started")"
[ -n "$started" ] && wine "$probe" kill "$(cut -d' ' -f1 <<<"$started")" >/dev/null 2>&1
timeout 300 wineserver -w || true

check "files in the given folder, trailing backslash dropped" test -f "$(hostpath "$dest\\Qmkview8.exe")"
check "nothing in the default folder" test ! -e "$(hostpath "$program_files\\Quillmark 8")"
expect_eq "AllUsers of a current-user installation" "A" "$(reg_value "$setup_view" "$vendor" AllUsers)"
expect_eq "Path" "$dest" "$(reg_value "$setup_view" "$vendor" Path)"
group="$user_programs\\Quillmark 8"
expected_journal "$package" \
  "Made Dir: $group" \
  "Shell Link: $group\\Quillmark 8.lnk" \
  "Shell Link: $group\\Quillmark 8 Help.lnk" \
  "Shell Link: $user_desktop\\Quillmark 8.lnk" >"$work/journal.expected"
expect_file_eq "journal: the user's group and desktop links" "$work/journal.expected" "$(hostpath "$dest\\QmkUnInst.log")"
expect_eq "desktop link" "$dest\\Qmkview8.exe|$pictures|" "$(resolve_link "$user_desktop\\Quillmark 8.lnk")"
check "-autostart overridden for a given folder: no start-up link" test ! -e "$(hostpath "$user_startup\\Quillmark 8.lnk")"
check "no all-users links" test ! -e "$(hostpath "$common_programs\\Quillmark 8")" -a ! -e "$(hostpath "$common_desktop\\Quillmark 8.lnk")"
check "installed product registered itself" grep -qxF "regonly $dest\\Qmkview8.exe" <(trace_events regonly | cut -d' ' -f2-)

run_traced "$work/instdir-remove.log" "$dest\\QmkUnInst.exe"
for link in "$group\\Quillmark 8.lnk" "$user_desktop\\Quillmark 8.lnk" "$user_startup\\Quillmark 8.lnk"; do
  check "removed: $link" test ! -e "$(hostpath "$link")"
done
check "removed: the group folder" test ! -e "$(hostpath "$group")"
check "removed: the installation folder" test ! -e "$(hostpath "$dest")"
check "removed: the vendor key" key_missing "$vendor"

# --- -instport: portable ---------------------------------------------------
# A portable package may put files beside the installation folder.
portable_package="$work/portable-package"
make_package "$portable_package" 8.5.3.0
printf 'File Copy prt: Qmkview8Man.chm > Quillmark 8 Help.chm\r\n' >>"$portable_package/QmkUnInst.log"
: >"$trace"
stick='C:\Stick\QM8'
run_traced "$work/portable.log" "$portable_package/setup.exe" -s -instport "$stick" -nodeskico
expect_eq "-instport exit code" 0 "$rc"
expect_eq "portable files, x64 included" \
  "QmkUnInst.exe QmkUnInst.log Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll x64 x64/ThumbDqm64.dll" \
  "$(tree_list "$(hostpath "$stick")")"
check "prt entry copied into the parent folder" cmp -s "$portable_package/Qmkview8Man.chm" "$(hostpath 'C:\Stick\Quillmark 8 Help.chm')"
expected_journal "$portable_package" >"$work/portable-journal.expected"
expect_file_eq "portable journal: script and the empty line only" "$work/portable-journal.expected" "$(hostpath "$stick\\QmkUnInst.log")"
check "portable: no vendor key" key_missing "$vendor"
check "portable: not in Wine's list of installed programs" not_listed
expect_eq "portable: no shortcut anywhere" "" "$(cd "$drive_c" && find . -iname 'Quillmark 8*.lnk')"
expect_eq "portable: no -regonly" "" "$(trace_events regonly)"
expect_eq "portable: no regsvr32" "" "$(command_lines "$work/portable.log" | grep -i regsvr32 || true)"

# --- fresh default install: -nodeskico, and -instport without a folder ------
: >"$trace"
run_traced "$work/default.log" "$package/setup.exe" -s -nodeskico -autostart -instport
expect_eq "default install exit code" 0 "$rc"
dest="$program_files\\Quillmark 8"
check "installed into the default folder" test -f "$(hostpath "$dest\\Qmkview8.exe")"
expect_eq "a fresh unattended install is for all users, even with -instport" "B" "$(reg_value "$setup_view" "$vendor" AllUsers)"
group="$common_programs\\Quillmark 8"
expected_journal "$package" \
  "Made Dir: $group" \
  "Shell Link: $group\\Quillmark 8.lnk" \
  "Shell Link: $group\\Quillmark 8 Help.lnk" \
  "Shell Link: $common_startup\\Quillmark 8.lnk" >"$work/default-journal.expected"
expect_file_eq "journal: start-up link, no desktop link" "$work/default-journal.expected" "$(hostpath "$dest\\QmkUnInst.log")"
expect_eq "-autostart: all users' start-up link" "$dest\\Qmkview8.exe|$pictures|" "$(resolve_link "$common_startup\\Quillmark 8.lnk")"
check "-nodeskico: no desktop link" test ! -e "$(hostpath "$common_desktop\\Quillmark 8.lnk")"

# --- -sconf: unattended reinstall, then the wizard's last pages -------------
: >"$trace"
(cd "$plant_cwd" && WINEDEBUG=-all WINEDLLOVERRIDES="$WINEDLLOVERRIDES;$plant_overrides" exec wine "$package/setup.exe" -sconf >/dev/null 2>&1) &
sconf_job=$!
# The frame opens on the ready page: Next, then Finish (the run box unchecked).
wine "$probe" answer 1 120000 >/dev/null 2>&1 || true
sleep 2
wine "$probe" answer 1 30000 >/dev/null 2>&1 || true
rc=0; wait "$sconf_job" || rc=$?
timeout 300 wineserver -w || true
expect_eq "-sconf exit code" 0 "$rc"
expect_eq "-sconf reinstalled the product (-regonly)" "regonly $dest\\Qmkview8.exe" "$(trace_events regonly | cut -d' ' -f2-)"
# Group and auto-start come from the existing installation; without
# -nodeskico the desktop link is back.
expected_journal "$package" \
  "Made Dir: $group" \
  "Shell Link: $group\\Quillmark 8.lnk" \
  "Shell Link: $group\\Quillmark 8 Help.lnk" \
  "Shell Link: $common_desktop\\Quillmark 8.lnk" \
  "Shell Link: $common_startup\\Quillmark 8.lnk" >"$work/sconf-journal.expected"
expect_file_eq "-sconf: journal of the reinstall" "$work/sconf-journal.expected" "$(hostpath "$dest\\QmkUnInst.log")"
expect_eq "-sconf: the product is not started" "" "$(trace_events started)"
finish
