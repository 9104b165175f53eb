#!/usr/bin/env bash
# The unattended options of setup.exe, each run in the same fresh prefix:
#   -instdir to a new folder: a current-user installation with "-runafter";
#   "-autostart" is overridden there by the search for an existing start-up
#   shortcut, which finds none; removed again by its uninstaller with "-v";
#   -instport: a portable installation, with no registry and no shortcuts,
#   removed again by its own uninstaller;
#   -nodeskico and -autostart, and "-instport" without a folder on a fresh
#   machine, which still gives an all-users installation in the default
#   folder, with the settings beside the self-extracting package taken along;
#   -sconf over that installation: installed unattended, then the wizard's
#   finished page, answered with Finish.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

package="$work/package"
make_package "$package" 8.5.3.0

# --- -instdir, current user, -runafter -------------------------------------
dest='C:\Apps\Quill Mark'
# The started product outlives setup: setup is waited for, then its window.
planted_wine "$package/setup.exe" -s -instdir "$dest\\" -autostart -runafter && rc=0 || rc=$?
expect_eq "-instdir exit code" 0 "$rc"
wine "$probe" find "Quillmark 8 - Stand-in" 60000 >/dev/null 2>&1 || true
expect_eq "-runafter started the installed product" "$dest\\Qmkview8.exe" "$(trace_events started)"
wineserver -k || true

expect_eq "AllUsers of a current-user installation" "A" "$(reg_value "$vendor" AllUsers)"
expect_eq "Path, the trailing backslash dropped" "$dest" "$(reg_value "$vendor" Path)"
check_default_links "-instdir" "$package" "$dest" "$user_programs" "$user_desktop" "$user_startup"
expect_eq "the installed product registered itself" "$dest\\Qmkview8.exe" "$(trace_events regonly)"

# The user's own file in the installation folder survives the removal.
printf 'mine' >"$(hostpath "$dest\\My Capture.qm8")"
planted_wine "$dest\\QmkUnInst.exe" -v >/dev/null 2>&1 &
job=$!
expect_eq "-v asks first" "This will completely uninstall Quillmark 8.
Do you want to continue?" "$(answer 6)"
wait "$job" && rc=0 || rc=$?
timeout 300 wineserver -w || true
expect_eq "uninstaller exit code" 0 "$rc"
for link in "$user_programs\\Quillmark 8" "$user_desktop\\Quillmark 8.lnk"; do check "removed: $link" gone "$link"; done
expect_eq "only the user's file is left" "My Capture.qm8" "$(tree_list "$(hostpath "$dest")")"
check "removed: the vendor key" key_missing "$vendor"

# --- -instport: portable ---------------------------------------------------
# A portable package may put files beside the installation folder.
portable_package="$work/portable-package"
make_package "$portable_package" 8.5.3.0
printf 'File Copy prt: Qmkview8Man.chm > Quillmark 8 Help.chm\r\n' >>"$portable_package/QmkUnInst.log"
: >"$trace"
stick='C:\Stick\QM8'
mkdir -p "$(hostpath 'C:\Stick')" && printf 'mine' >"$(hostpath 'C:\Stick\notes.txt')"
run_traced "$work/portable.log" "$portable_package/setup.exe" -s -instport "$stick" -nodeskico
expect_eq "-instport exit code" 0 "$rc"
expect_eq "portable: files, x64 included" \
  "QmkUnInst.exe QmkUnInst.log Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll x64 x64/ThumbDqm64.dll" \
  "$(tree_list "$(hostpath "$stick")")"
check "the prt entry copied into the parent folder" \
  cmp -s "$portable_package/Qmkview8Man.chm" "$(hostpath 'C:\Stick\Quillmark 8 Help.chm')"
expect_journal "portable journal: the script and the empty line only" "$portable_package" "$stick"
check "portable: no vendor key" key_missing "$vendor"
expect_eq "portable: no shortcut anywhere" "" "$(cd "$drive_c" && find . -iname 'Quillmark 8*.lnk')"
expect_eq "portable: nothing registered" "" "$(trace_events regonly; command_lines "$work/portable.log" | grep -i regsvr32)"
run_traced "$work/portable-remove.log" "$stick\\QmkUnInst.exe"
expect_eq "portable removal: the user's file alone is left" "notes.txt" "$(tree_list "$(hostpath 'C:\Stick')")"

# --- fresh default install: -nodeskico, and -instport without a folder ------
sfx="$work/sfx"
mkdir -p "$sfx" && printf 'ini' >"$sfx/Qmkview8.ini" && printf 'reg' >"$sfx/Qmkview8.reg" && printf 'x' >"$sfx/other.ini"
: >"$trace"
run_traced "$work/default.log" "$package/setup.exe" -s "-sfxname=$(winpath "$sfx")\\pkg.exe" -nodeskico -autostart -instport
expect_eq "default install exit code" 0 "$rc"
dest="$program_files\\Quillmark 8"
expect_eq "a fresh unattended install is for all users, even with -instport" "B" "$(reg_value "$vendor" AllUsers)"
group="$common_programs\\Quillmark 8"
expect_journal "journal: start-up link, no desktop link" "$package" "$dest" "Made Dir: $group" \
  "Shell Link: $group\\Quillmark 8.lnk" "Shell Link: $group\\Quillmark 8 Help.lnk" \
  "Shell Link: $common_startup\\Quillmark 8.lnk"
expect_eq "-autostart: all users' start-up link" "$dest\\Qmkview8.exe|$pictures|" \
  "$(resolve_link "$common_startup\\Quillmark 8.lnk")"
check "-nodeskico: no desktop link" gone "$common_desktop\\Quillmark 8.lnk"
expect_eq "the product's settings from beside the package, nothing else" "ini reg -" \
  "$(cat "$(hostpath "$dest\\Qmkview8.ini")") $(cat "$(hostpath "$dest\\Qmkview8.reg")") $(gone "$dest\\other.ini" && echo -)"

# --- -sconf: unattended reinstall, then the wizard's finished page ----------
: >"$trace"
planted_wine "$package/setup.exe" -sconf >/dev/null 2>&1 &
job=$!
# The frame opens on the finished page: Finish, the run box left unchecked.
frame=$(wine "$probe" find "Quillmark Setup" 300000 2>/dev/null | tr -d '\r') || fail "-sconf: no wizard frame"
wine "$probe" command "$frame" 1 >/dev/null 2>&1 || true
wait "$job" && rc=0 || rc=$?
timeout 300 wineserver -w || true
expect_eq "-sconf exit code" 0 "$rc"
expect_eq "-sconf reinstalled the product (-regonly)" "$dest\\Qmkview8.exe" "$(trace_events regonly)"
# Group and auto-start come from the existing installation; without
# -nodeskico the desktop link is back.
expect_journal "-sconf: journal of the reinstall" "$package" "$dest" "Made Dir: $group" \
  "Shell Link: $group\\Quillmark 8.lnk" "Shell Link: $group\\Quillmark 8 Help.lnk" \
  "Shell Link: $common_desktop\\Quillmark 8.lnk" "Shell Link: $common_startup\\Quillmark 8.lnk"
expect_eq "-sconf: the product is not started" "" "$(trace_events started)"
expect_eq "the auto-start search left no probe file" "" "$(ls "$(hostpath "$common_startup")" | grep -i '^h5t' || true)"
finish
