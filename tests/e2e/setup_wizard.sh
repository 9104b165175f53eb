#!/usr/bin/env bash
# The real setup.exe (native 64-bit here) in wizard mode, walked page by page
# as a user would under the display: find the frame, read each page, click.
# First with the default choices (cancelled once on the agreement page, No),
# after which the installation is checked; then, in a fresh prefix, a setup
# cancelled (Yes), and a portable installation of a beta build chosen on the
# folder page: a folder browsed for, the group page skipped both ways, the
# 'StartQM8' hint, no run box, nothing registered.
set -euo pipefail
[ -n "${DISPLAY:-}" ] || { echo "no display: the wizard test runs under xvfb-run"; exit 77; }
source "$(dirname "$0")/e2e_lib.sh"

package="$work/package"
make_package "$package" 8.5.3.0
setup_pid=""
trap '[ -z "$setup_pid" ] || kill "$setup_pid" 2>/dev/null || true' EXIT
probe_run() { wine "$probe" "$@" 2>/dev/null | tr -d '\r'; }
# A walk that cannot go on: the reason, the page last read, and the end.
abort() { fail "$*"; [ ! -f "${cur:-}" ] || sed 's/^/  | /' "$cur"; exit 1; }
# start_setup LOG: setup.exe without options from the package folder (it
# reads "agreement.txt" from the current folder), with process tracing.
start_setup() {
  WINEDEBUG=-all,trace+process E2E_CWD="$package" planted_wine "$package/setup.exe" 2>"$1" &
  setup_pid=$!
  frame=$(probe_run find "Quillmark Setup" 300000) || abort "the wizard frame did not appear"
}
# Ends with setup's exit code in $rc once every process of the prefix is done.
wait_setup() {
  wait "$setup_pid" && rc=0 || rc=$?
  setup_pid=""
  timeout 300 wineserver -w || true
}
# read_page NAME: the frame's caption and every control, kept in $work/NAME.dump.
read_page() { cur="$work/$1.dump"; probe_run dump "$frame" >"$cur" || abort "$1: the frame is gone"; }
# field DEPTH ID COLUMN: 4 visible, 5 enabled, 6 check state, 7 text; depth 1
# is the frame's own control, depth 2 one of the page's.
field() { awk -F'\t' -v d="$1" -v id="$2" -v c="$3" '$1 == d && $2 == id { print $c; exit }' "$cur"; }
page_text() { field 2 "$1" 7; }
has_label() { awk -F'\t' -v t="$1" '$1 == 2 && $3 == "Static" && $4 == 1 && $7 == t { f = 1 } END { exit !f }' "$cur"; }
# Caption, picture shown, and the frame's Back, Next, Cancel as "visible/enabled text".
frame_state() {
  printf '%s|%s|' "$(awk -F'\t' '$1 == "caption" { print $2 }' "$cur")" "$(field 1 1002 4)"
  local id
  for id in 3 1 2; do printf '%s/%s %s|' "$(field 1 "$id" 4)" "$(field 1 "$id" 5)" "$(field 1 "$id" 7)"; done
}
click() { probe_run click "$frame" "$1" >/dev/null || abort "could not click $2"; }
# wait_text ID TEXT WHAT [TIMEOUT-MS]: a page change shows up as a control's text.
wait_text() { probe_run wait-text "$frame" "$1" "${4:-30000}" "$2" >/dev/null || abort "$3"; }

walk_welcome_and_agreement() {  # NAME-PREFIX VERSION-LINE
  read_page "$1-welcome"
  expect_eq "$1 welcome: frame" "Quillmark Setup|1|0/1 < &Back|1/1 &Next >|1/1 Cancel|" "$(frame_state)"
  check "$1 welcome: greeting" has_label "Welcome to Quillmark Setup! This program will install Quillmark on your computer."
  expect_eq "$1 welcome: version and copyright" \
    "$2\\nCopyright (c) Lanternfold Technology LLC, 2003-$(date +%Y)\\nAll rights reserved." \
    "$(page_text 1003)"
  click 1 "Next on the welcome page"
  wait_text 1 "Yes" "$1: the agreement page did not come"
  read_page "$1-agreement"
  expect_eq "$1 agreement: frame" "Please accept the License Agreement|0|1/1 < &Back|1/1 Yes|1/1 No|" "$(frame_state)"
  check "$1 agreement: question" has_label "Do you accept this agreement?"
  check "$1 agreement: the package's agreement text" grep -qF "$(iconv -f UTF-16 "$package/agreement.txt" | head -n1 | tr -d '\r')" <<<"$(page_text 1000)"
}
check_ready_page() {  # NAME
  read_page "$1"
  expect_eq "$1: frame" "Quillmark Setup|1|1/1 < &Back|1/1 &Next >|1/1 Cancel|" "$(frame_state)"
  expect_eq "$1: texts, installing text and run box hidden" "You are now ready to install Quillmark.|Press the Next \
button to begin the installation or the Back button to change your selections.|0 0" \
    "$(page_text 1010)|$(page_text 1011)|$(field 2 1009 4) $(field 2 1012 4)"
}
check_finished_page() {  # NAME
  wait_text 1 "&Finish >" "$1: the finished page did not come" 300000
  read_page "$1"
  expect_eq "$1: Back and Cancel greyed" "Quillmark Setup|1|1/0 < &Back|1/1 &Finish >|1/0 Cancel|" "$(frame_state)"
  expect_eq "$1: texts" "Quillmark 8.05.03 has been successfully installed.|Press the Finish button to exit this \
installation." "$(page_text 1010)|$(page_text 1011)"
}

# ============================================================================
# Default choices
# ============================================================================
start_setup "$work/install.log"
walk_welcome_and_agreement default "Quillmark ver. 8.05.03 "
# No, the agreement page's Cancel, asks first; No to that keeps the page.
click 2 "No on the agreement page"
expect_eq "cancel question" "Do you really want to cancel Quillmark setup?" "$(answer 7)"
wait_text 1 "Yes" "No to the cancel question left the agreement page"
click 1 "Yes on the agreement page"

dest="$program_files\\Quillmark 8"
wait_text 1013 "$dest" "default: the folder page did not come"
read_page default-folder
expect_eq "default folder: frame back" "Quillmark Setup|1|1/1 < &Back|1/1 &Next >|1/1 Cancel|" "$(frame_state)"
expect_eq "default folder: all users chosen (user, all, portable), hint" "0 1 0|To install into a different \
folder, click Browse, and select another one." "$(field 2 1001 6) $(field 2 1002 6) $(field 2 1003 6)|$(page_text 1006)"
click 1 "Next on the folder page"

wait_text 1000 "Quillmark 8" "default: the group page did not come"
read_page default-group
check "default group: question" has_label "Enter the name of the Program Manager group to add Quillmark icons to:"
expect_eq "default group: auto-start off, desktop icon on" "0 1" "$(field 2 1008 6) $(field 2 1009 6)"
click 1 "Next on the group page"

wait_text 1010 "You are now ready to install Quillmark." "default: the ready page did not come"
check_ready_page default-ready
click 1 "Next on the ready page"
check_finished_page default-finished
expect_eq "default finished: run box shown, unchecked; installing text hidden" "1 0 Run Quillmark 0" \
  "$(field 2 1012 4) $(field 2 1012 6) $(page_text 1012) $(field 2 1009 4)"
click 1 "Finish"
wait_setup
expect_eq "default: setup exit code" 0 "$rc"

check_installed_files "default" "$package" "$dest"
check_default_links "default" "$package" "$dest" "$common_programs" "$common_desktop" "$common_startup"
expect_eq "AllUsers" "B" "$(reg_value "$vendor" AllUsers)"
expect_eq "product self-registration (-regonly)" "$dest\\Qmkview8.exe" "$(trace_events regonly)"
# A native 64-bit setup is no WoW64 process: it registers the plain extension.
expect_eq "thumbnail extension registration" "regsvr32.exe /s \"$dest\\$thumb_dll\"" \
  "$(command_lines "$work/install.log" | grep -i regsvr32 | head -n1)"
check "the product was not started after Finish (run box unchecked)" test -z "$(trace_events started)"

# ============================================================================
# Cancelled, then portable, in a fresh prefix
# ============================================================================
timeout 300 wineserver -w || true
new_prefix prefix-portable
: >"$trace"
# Cancelled on its first page, answered Yes: exit code 1, nothing installed.
start_setup "$work/cancel.log"
click 2 "Cancel on the welcome page"
expect_eq "cancel question answered Yes" "Do you really want to cancel Quillmark setup?" "$(answer 6)"
wait_setup
expect_eq "cancelled: exit code, nothing installed" "1 gone" "$rc $(gone "$dest" && echo gone)"

# A removable disk with something of the user's on it. Wine's folder browser
# finds a folder by comparing item ids, which hold the folder's last access
# time; read it now, so that the file system (relatime) leaves that alone.
mkdir -p "$drive_c/Portable" && printf 'keep me' >"$drive_c/Portable/notes.txt" && ls -a "$drive_c/Portable" >/dev/null
portable_dest='C:\Portable\Quillmark 8'
# A beta build, which the welcome page names so.
package="$work/package-beta"
make_package "$package" 8.5.3.7
start_setup "$work/portable.log"
walk_welcome_and_agreement portable "Quillmark ver. 8.05.03 Beta 7"
click 1 "Yes on the agreement page"
wait_text 1013 "$dest" "portable: the folder page did not come"
click 1003 "the portable type"
wait_text 1006 "Click the Browse button and select a folder on a removable disk/USB key or network drive." \
  "portable: no portable hint"
read_page portable-folder-type
expect_eq "portable folder: no folder yet, portable chosen" "|0 0 1" \
  "$(page_text 1013)|$(field 2 1001 6) $(field 2 1002 6) $(field 2 1003 6)"
click 1 "Next without a folder"
expect_eq "portable: Next without a folder refused" \
  "Please click BROWSE button first and select the folder for portable installation." "$(answer 1)"

click 1005 "Browse"
browser=$(probe_run find "Browse for Folder" 30000) || abort "portable: no folder browser came"
check "portable browser: title string 12" grep -qF "Select the folder where where Quillmark should be installed." \
  <(probe_run dump "$browser")
probe_run select-folder "$browser" 'C:\Portable' 20000 || abort "portable: could not select C:\\Portable in the browser"
probe_run click "$browser" 1 >/dev/null || abort "could not click OK in the folder browser"
wait_text 1013 "$portable_dest" "portable: the chosen folder was not taken"
click 1 "Next on the folder page"

# The group page is skipped: Next leads from the folder page to the ready page, and Back back.
wait_text 1010 "You are now ready to install Quillmark." "portable: Next did not skip the group page"
check_ready_page portable-ready
click 3 "Back on the ready page"
wait_text 1013 "$portable_dest" "portable: Back did not skip the group page"
click 1 "Next on the folder page (again)"
wait_text 1010 "You are now ready to install Quillmark." "portable: Next did not skip the group page (again)"
click 1 "Next on the ready page"
check_finished_page portable-finished
expect_eq "portable finished: the 'StartQM8' hint with the folder above the installation, no run box" \
  "1 To run portable Quillmark, double-click 'StartQM8' icon located at:\\nC:\\Portable 0" \
  "$(field 2 1009 4) $(page_text 1009) $(field 2 1012 4)"
click 1 "Finish"
wait_setup
expect_eq "portable: setup exit code" 0 "$rc"

installed_files="${installed_files% x64} x64 x64/ThumbDqm64.dll"
check_installed_files "portable" "$package" "$portable_dest"
expect_journal "portable: journal is the script and an empty line" "$package" "$portable_dest"
expect_eq "portable: the disk's own file untouched" "keep me" "$(cat "$drive_c/Portable/notes.txt")"
check "portable: the default folder made for the browser is gone" gone "$dest"
check "portable: no vendor key" key_missing "$vendor"
expect_eq "portable: no shortcut anywhere" "" "$(cd "$drive_c" && find . -iname 'Quillmark 8*.lnk')"
expect_eq "portable: nothing registered or started" "" \
  "$(trace_events regonly; trace_events started; command_lines "$work/portable.log" | grep -i regsvr32)"
finish
