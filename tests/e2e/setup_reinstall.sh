#!/usr/bin/env bash
# Setup over an existing installation keeps its folder, its type, its program
# group (a nested one here) and its auto-start, and deletes what the script
# declares obsolete: a reinstall of the same version, an upgrade while the
# product runs (closed with WM_CLOSE 1001 after the question), and an
# unattended downgrade, which asks nothing, while the wizard asks first. The
# removal then takes the group where the journal says it is.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

for version in 8.5.3.0 8.6.0.0 8.4.0.0; do make_package "$work/pkg-$version" "$version"; done
dest='C:\QM Home'
dest_host="$(hostpath "$dest")"

run_traced "$work/first.log" "$work/pkg-8.5.3.0/setup.exe" -s -instdir "$dest"
expect_eq "first install exit code" 0 "$rc"
expect_eq "first install is for the current user" "A" "$(reg_value "$vendor" AllUsers)"

# The group and auto-start as a wizard install would have chosen them: move
# the group, add the start-up link, and let the journal say so.
old_group="$user_programs\\Quillmark 8"
group="$user_programs\\Capture\\Tools"
mkdir -p "$(hostpath "$user_programs\\Capture")"
mv "$(hostpath "$old_group")" "$(hostpath "$group")"
sed -i 's/Programs\\Quillmark 8/Programs\\Capture\\Tools/' "$dest_host/QmkUnInst.log"
cp "$(hostpath "$user_desktop\\Quillmark 8.lnk")" "$(hostpath "$user_startup\\Quillmark 8.lnk")"
printf 'Shell Link: %s\r\n' "$user_startup\\Quillmark 8.lnk" >>"$dest_host/QmkUnInst.log"

expected_tail="Made Dir: $group
Shell Link: $group\\Quillmark 8.lnk
Shell Link: $group\\Quillmark 8 Help.lnk
Shell Link: $user_desktop\\Quillmark 8.lnk
Shell Link: $user_startup\\Quillmark 8.lnk"
kept_everything() {  # kept_everything WHAT: folder, type, group and auto-start of the first install
  check "$1: nothing in the default folder" gone "$program_files\\Quillmark 8"
  expect_eq "$1: current-user type and folder kept" "A $dest" "$(reg_value "$vendor" AllUsers) $(reg_value "$vendor" Path)"
  expect_eq "$1: group, desktop and start-up links journalled" "$expected_tail" \
    "$(tail -n +"$(($(wc -l <"$work/pkg-8.5.3.0/QmkUnInst.log") + 2))" "$dest_host/QmkUnInst.log" | tr -d '\r')"
  expect_eq "$1: group link" "$dest\\Qmkview8.exe|$pictures|" "$(resolve_link "$group\\Quillmark 8.lnk")"
  check "$1: start-up link kept without -autostart" test -f "$(hostpath "$user_startup\\Quillmark 8.lnk")"
  check "$1: no stale default group" gone "$old_group"
}

# --- reinstall of the same version -----------------------------------------
printf 'old' >"$dest_host/QmkThumbOld.dll"
run_traced "$work/reinstall.log" "$work/pkg-8.5.3.0/setup.exe" -s
expect_eq "reinstall exit code" 0 "$rc"
kept_everything "reinstall"
check "the file the script declares obsolete is gone" gone "$dest\\QmkThumbOld.dll"

# --- upgrade while the product runs ----------------------------------------
: >"$trace"
wine "$dest\\Qmkview8.exe" >/dev/null 2>&1 &
product_job=$!
wine "$probe" find "Quillmark 8 - Stand-in" 60000 >/dev/null 2>&1 || true
running_pid=$(tr -d '\r' <"$trace" | awk '$2 == "started" { print $1 }')
check "the installed product runs" test -n "$running_pid"
# Started with "-s" alone, setup still asks before closing the copy (string 33).
planted_wine "$work/pkg-8.6.0.0/setup.exe" -s >/dev/null 2>&1 &
setup_job=$!
expect_eq "close question" '1 instance of Quillmark is currently opened. If you click "Yes" button, SETUP will try to close it without saving any editing work you may have done. 

Continue installation?' "$(answer 6)"
wait "$setup_job" && rc=0 || rc=$?
timeout 300 wineserver -w || true
expect_eq "upgrade exit code" 0 "$rc"
check "the running copy ended during setup" bash -c '! kill -0 "$1" 2>/dev/null' _ "$product_job"
# The copy gets WM_CLOSE with 1001 and is terminated 10 ms later; under Wine
# it is often gone before it has traced the message, but it never shows another close.
closes=$(tr -d '\r' <"$trace" | awk '$2 ~ /^close/' | sort -u)
check "running copy closed with WM_CLOSE 1001 (or terminated first)" test -z "$closes" -o "$closes" = "$running_pid close1001"
check "no renamed copy of the product left" test ! -e "$dest_host/Qmkview8.exe.old" -a ! -e "$dest_host/Qmkview8.exe.new"
check "product replaced by 8.6.0.0" cmp -s "$work/pkg-8.6.0.0/Qmkview8.exe" "$dest_host/Qmkview8.exe"
expect_eq "upgrade: DisplayVersion" "8.06.00" "$(reg_value "$uninstall" DisplayVersion)"
kept_everything "upgrade"

# --- the wizard asks before an older or the same version; No changes nothing
version_prompt() {  # version_prompt WHAT PACKAGE EXPECTED-TEXT
  snapshot "before-$1"
  planted_wine "$2/setup.exe" >/dev/null 2>&1 &
  local job=$!
  expect_eq "$1: question" "$3" "$(answer 7)"
  wait "$job" && rc=0 || rc=$?
  expect_eq "$1: declined, exit code" 0 "$rc"
  snapshot "after-$1"
  expect_eq "$1: declined, nothing changed" "" "$(snapshot_diff "before-$1" "after-$1")"
}
version_prompt older "$work/pkg-8.5.3.0" "Quillmark v. 8.06.00.00 is already installed on this machine. You are trying to install an older version 8.05.03.00 .

Do you still want to continue?"
version_prompt same "$work/pkg-8.6.0.0" "Quillmark ver. 8.06.00.00 is already installed on this machine.

Would you like to run this setup again to select different options or repair the files?"

# --- unattended downgrade: no version prompt --------------------------------
run_traced "$work/downgrade.log" "$work/pkg-8.4.0.0/setup.exe" -s
expect_eq "downgrade exit code" 0 "$rc"
check "product replaced by 8.4.0.0" cmp -s "$work/pkg-8.4.0.0/Qmkview8.exe" "$dest_host/Qmkview8.exe"
expect_eq "downgrade: DisplayVersion" "8.04.00" "$(reg_value "$uninstall" DisplayVersion)"
kept_everything "downgrade"

# --- removal: the group the journal names goes, and its emptied parent --------
run_traced "$work/remove.log" "$dest\\QmkUnInst.exe"
expect_eq "removal exit code" 0 "$rc"
check "removal: the journal's group and its emptied parent are gone" gone "$user_programs\\Capture"
check "removal: the start-up link is gone" gone "$user_startup\\Quillmark 8.lnk"
finish
