#!/usr/bin/env bash
# The real setup.exe in wizard mode, walked page by page as a user would under
# the display: find the frame, read each page, click. First with the default
# choices, after which the installation is checked as after "setup.exe -s";
# then, in a fresh prefix, a portable installation chosen on the folder page
# (the group page skipped forward and back, the 'StartQM8' hint, no run box,
# nothing registered). setup.exe here is a native 64-bit program: no WoW64,
# so "C:\Program Files", the 64-bit registry view and the plain extension.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

package="$work/package"
make_package "$package" 8.5.3.0
year="$(date +%Y)"

setup_pid=""
cur=""
# Ends a setup that is still running (a walk that went wrong).
stop_setup() {
  [ -n "$setup_pid" ] || return 0
  if kill -0 "$setup_pid" 2>/dev/null; then
    echo "  setup still running: ended"
    kill "$setup_pid" 2>/dev/null || true
  fi
  wait "$setup_pid" 2>/dev/null || true
  setup_pid=""
}
trap stop_setup EXIT
# A walk that cannot go on: the reason, the page last read, and the end.
abort() {
  fail "$*"
  if [ -n "$cur" ] && [ -f "$cur" ]; then sed 's/^/  | /' "$cur"; fi
  [ -s "$work/probe.err" ] && sed 's/^/  probe: /' "$work/probe.err"
  stop_setup
  finish || true
  exit 1
}

if [ -z "${DISPLAY:-}" ]; then
  fail "no display: the wizard test runs under xvfb-run"
  finish
fi
if [ "$(reg_value 64 'HKCU\Software\Wine\Drivers' Graphics)" = null ]; then
  fail "the prefix uses Wine's null graphics driver"
  finish
fi

probe_run() { wine "$probe" "$@" 2>"$work/probe.err" | tr -d '\r'; }

# start_setup LOG: setup.exe without options, started from the package folder
# (it reads "agreement.txt" from the current folder), with process tracing.
start_setup() {
  (cd "$package" && WINEDEBUG=-all,trace+process WINEDLLOVERRIDES="$WINEDLLOVERRIDES;$plant_overrides" \
     exec timeout 600 wine "$package/setup.exe" 2>"$1") &
  setup_pid=$!
  frame=$(probe_run find "Quillmark Setup" 120000 3) || abort "the wizard frame did not appear"
}

# read_page NAME: the frame's caption and every control, kept in $work/NAME.dump.
read_page() {
  cur="$work/$1.dump"
  probe_run dump "$frame" >"$cur" || abort "$1: the frame is gone"
}
caption() { awk -F'\t' '$1 == "caption" { print $2; exit }' "$cur"; }
# field DEPTH ID COLUMN: 4 visible, 5 enabled, 6 check state, 7 text; depth 1
# is the frame's own control, depth 2 one of the page's.
field() { awk -F'\t' -v d="$1" -v id="$2" -v c="$3" '$1 == d && $2 == id { print $c; exit }' "$cur"; }
frame_text() { field 1 "$1" 7; }
page_text() { field 2 "$1" 7; }
has_label() { awk -F'\t' -v t="$1" '$1 == 2 && $3 == "Static" && $4 == 1 && $7 == t { f = 1 } END { exit !f }' "$cur"; }
# The state of the frame's buttons: Back, Next, Cancel as "visible/enabled text".
buttons() {
  local id
  for id in 3 1 2; do printf '%s/%s %s|' "$(field 1 "$id" 4)" "$(field 1 "$id" 5)" "$(frame_text "$id")"; done
}

click() {  # click WINDOW ID WHAT
  probe_run click "$1" "$2" >/dev/null || abort "could not click $3"
}
# wait_text ID TEXT WHAT [TIMEOUT-MS]: a page change shows up as a control's text.
wait_text() {
  local shown
  shown=$(probe_run wait-text "$frame" "$1" "${4:-30000}" "$2") ||
    abort "$3 (control $1 shows \"$shown\", expected \"$2\")"
}

# Ends the walk with Finish and leaves setup's exit code in $rc.
click_finish() {
  click "$frame" 1 "Finish"
  local _
  for _ in $(seq 1 300); do kill -0 "$setup_pid" 2>/dev/null || break; sleep 0.2; done
  kill -0 "$setup_pid" 2>/dev/null && abort "setup did not end after Finish"
  rc=0
  wait "$setup_pid" || rc=$?
  setup_pid=""
  timeout 300 wineserver -w || true
}

# Pages both walks go through in the same way: welcome and agreement.
walk_welcome_and_agreement() {  # NAME-PREFIX
  read_page "$1-welcome"
  expect_eq "$1 welcome: caption" "Quillmark Setup" "$(caption)"
  expect_eq "$1 welcome: Back hidden, Next, Cancel" "0/1 < &Back|1/1 &Next >|1/1 Cancel|" "$(buttons)"
  expect_eq "$1 welcome: picture shown" 1 "$(field 1 1002 4)"
  check "$1 welcome: greeting" has_label "Welcome to Quillmark Setup! This program will install Quillmark on your computer."
  expect_eq "$1 welcome: version and copyright" \
    "Quillmark ver. 8.05.03 \\nCopyright (c) Lanternfold Technology LLC, 2003-$year\\nAll rights reserved." \
    "$(page_text 1003)"
  click "$frame" 1 "Next on the welcome page"

  wait_text 1 "Yes" "$1: the agreement page did not come"
  read_page "$1-agreement"
  expect_eq "$1 agreement: caption" "Please accept the License Agreement" "$(caption)"
  expect_eq "$1 agreement: Back, Yes, No" "1/1 < &Back|1/1 Yes|1/1 No|" "$(buttons)"
  expect_eq "$1 agreement: picture hidden" 0 "$(field 1 1002 4)"
  check "$1 agreement: question" has_label "Do you accept this agreement?"
  local first_line
  first_line=$(iconv -f UTF-16 "$package/agreement.txt" | head -n1 | tr -d '\r')
  check "$1 agreement: the package's agreement text" grep -qF "$first_line" <<<"$(page_text 1000)"
  click "$frame" 1 "Yes on the agreement page"
}

check_ready_page() {  # NAME
  read_page "$1"
  expect_eq "$1: caption" "Quillmark Setup" "$(caption)"
  expect_eq "$1: Back, Next, Cancel" "1/1 < &Back|1/1 &Next >|1/1 Cancel|" "$(buttons)"
  expect_eq "$1: ready text" "You are now ready to install Quillmark." "$(page_text 1010)"
  expect_eq "$1: hint" \
    "Press the Next button to begin the installation or the Back button to change your selections." \
    "$(page_text 1011)"
  expect_eq "$1: installing text and run box hidden" "0 0" "$(field 2 1009 4) $(field 2 1012 4)"
}

# ============================================================================
# Default choices
# ============================================================================
start_setup "$work/install.log"
walk_welcome_and_agreement default

dest="$program_files\\Quillmark 8"
wait_text 1013 "$dest" "default: the folder page did not come"
read_page default-folder
expect_eq "default folder: caption back" "Quillmark Setup" "$(caption)"
expect_eq "default folder: Back, Next, Cancel relabelled back" "1/1 < &Back|1/1 &Next >|1/1 Cancel|" "$(buttons)"
expect_eq "default folder: picture shown again" 1 "$(field 1 1002 4)"
expect_eq "default folder: all users chosen (user, all, portable)" "0 1 0" \
  "$(field 2 1001 6) $(field 2 1002 6) $(field 2 1003 6)"
expect_eq "default folder: hint" "To install into a different folder, click Browse, and select another one." \
  "$(page_text 1006)"
click "$frame" 1 "Next on the folder page"

wait_text 1000 "Quillmark 8" "default: the group page did not come"
read_page default-group
check "default group: question" has_label "Enter the name of the Program Manager group to add Quillmark icons to:"
expect_eq "default group: auto-start off, desktop icon on" "0 1" "$(field 2 1008 6) $(field 2 1009 6)"
expect_eq "default group: Back, Next, Cancel" "1/1 < &Back|1/1 &Next >|1/1 Cancel|" "$(buttons)"
click "$frame" 1 "Next on the group page"

wait_text 1010 "You are now ready to install Quillmark." "default: the ready page did not come"
check_ready_page default-ready
click "$frame" 1 "Next on the ready page"

wait_text 1 "&Finish >" "default: the finished page did not come" 300000
read_page default-finished
expect_eq "default finished: Back and Cancel greyed, Finish" "1/0 < &Back|1/1 &Finish >|1/0 Cancel|" "$(buttons)"
expect_eq "default finished: success text" "Quillmark 8.05.03 has been successfully installed." "$(page_text 1010)"
expect_eq "default finished: hint" "Press the Finish button to exit this installation." "$(page_text 1011)"
expect_eq "default finished: run box shown, unchecked" "1 0 Run Quillmark" \
  "$(field 2 1012 4) $(field 2 1012 6) $(page_text 1012)"
expect_eq "default finished: installing text hidden" 0 "$(field 2 1009 4)"
click_finish
expect_eq "default: setup exit code" 0 "$rc"

# --- the installation --------------------------------------------------------
dest_host="$(hostpath "$dest")"
# x64\ThumbDqm64.dll is for a 32-bit setup on 64-bit Windows (and portable
# installations); the folder itself is made by "Make Dir: x64".
expect_eq "installed files" \
  "QmkUnInst.exe QmkUnInst.log Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll x64" \
  "$(tree_list "$dest_host")"
check_copied "" "$package" "$dest_host" Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll

check_default_links "$package" "$dest"

check_registration "$dest"
check "nothing written to the 32-bit view" key_missing "$vendor" 32
check "no uninstall entry in the 32-bit view" key_missing "$uninstall" 32

check "Wine's list of installed programs names Quillmark 8" grep -qx 'Quillmark 8|||Quillmark 8' <(installed_programs)

expect_eq "product self-registration (-regonly)" "regonly $dest\\Qmkview8.exe" \
  "$(trace_events regonly | cut -d' ' -f2-)"
# A native 64-bit setup is no WoW64 process: it registers the plain extension.
# (Wine's 64-bit regsvr32 then hands the 32-bit DLL to its 32-bit self.)
expect_eq "thumbnail extension registration" "regsvr32.exe /s \"$dest\\ThumbDqm32.dll\"" \
  "$(command_lines "$work/install.log" | grep -i regsvr32 | head -n1)"
# The 32-bit regsvr32 needs a kernel that runs 32-bit code (scripts/test.sh).
if [ -z "${QM_NO_32BIT:-}" ]; then
  check "the extension's own registration ran" grep -qx 'register ThumbDqm32.dll' \
    <(trace_events register | cut -d' ' -f2-)
fi
check "the product was not started after Finish (run box unchecked)" test -z "$(trace_events started)"

# ============================================================================
# Portable type, in a fresh prefix
# ============================================================================
timeout 300 wineserver -w || true
if [ "$failures" -eq 0 ]; then rm -rf "$WINEPREFIX"; fi
export WINEPREFIX="$work/prefix-portable"
if ! bash "$QM_SOURCE_DIR/scripts/make-prefix.sh" "$WINEPREFIX" "$e2e_arch"; then
  abort "could not make the Wine prefix $WINEPREFIX"
fi
drive_c="$WINEPREFIX/drive_c"
: >"$trace"
# A removable disk with something of the user's on it.
wine cmd /c 'md C:\Portable && echo keep me>C:\Portable\notes.txt' >/dev/null 2>&1 ||
  abort "could not make C:\\Portable"
# Wine's folder browser finds a folder to select by comparing item ids, which
# hold the folder's last access time; its own look into the folder (does it
# have subfolders?) would set that time once the folder's entry is taken, and
# the selection would then never match. Read it now, so that the file system
# (relatime) leaves the access time alone from here on.
ls -a "$drive_c/Portable" >/dev/null
portable_dest='C:\Portable\Quillmark 8'

start_setup "$work/portable.log"
walk_welcome_and_agreement portable
wait_text 1013 "$dest" "portable: the folder page did not come"
click "$frame" 1003 "the portable type"
wait_text 1006 "Click the Browse button and select a folder on a removable disk/USB key or network drive." \
  "portable: no portable hint"
read_page portable-folder-type
expect_eq "portable folder: no folder until one is browsed for" "" "$(page_text 1013)"
expect_eq "portable folder: portable chosen (user, all, portable)" "0 0 1" \
  "$(field 2 1001 6) $(field 2 1002 6) $(field 2 1003 6)"

click "$frame" 1005 "Browse"
browser=$(probe_run owned "$frame" 30000) || abort "portable: no folder browser came"
probe_run select-folder "$browser" 'C:\Portable' 20000 || abort "portable: could not select C:\\Portable in the browser"
cur="$work/portable-browser.dump"
probe_run dump "$browser" >"$cur" || true
check "portable browser: title string 12" grep -qF "Select the folder where where Quillmark should be installed." "$cur"
click "$browser" 1 "OK in the folder browser"
wait_text 1013 "$portable_dest" "portable: the chosen folder was not taken"
read_page portable-folder
expect_eq "portable folder: still portable" 1 "$(field 2 1003 6)"
click "$frame" 1 "Next on the folder page"

# The group page is skipped: Next leads from the folder page to the ready page.
wait_text 1010 "You are now ready to install Quillmark." "portable: Next did not skip the group page"
check_ready_page portable-ready
check "portable: no group page controls on the ready page" test -z "$(field 2 1008 2)"
click "$frame" 3 "Back on the ready page"
# ... and Back leads from the ready page to the folder page.
wait_text 1013 "$portable_dest" "portable: Back did not skip the group page"
read_page portable-folder-again
expect_eq "portable folder again: portable kept" 1 "$(field 2 1003 6)"
check "portable folder again: it is the folder page" test -n "$(field 2 1005 2)"
click "$frame" 1 "Next on the folder page (again)"
wait_text 1010 "You are now ready to install Quillmark." "portable: Next did not skip the group page (again)"
check_ready_page portable-ready-again
click "$frame" 1 "Next on the ready page"

wait_text 1 "&Finish >" "portable: the finished page did not come" 300000
read_page portable-finished
expect_eq "portable finished: Back and Cancel greyed, Finish" "1/0 < &Back|1/1 &Finish >|1/0 Cancel|" "$(buttons)"
expect_eq "portable finished: success text" "Quillmark 8.05.03 has been successfully installed." "$(page_text 1010)"
expect_eq "portable finished: the 'StartQM8' hint with the folder above the installation" \
  "1 To run portable Quillmark, double-click 'StartQM8' icon located at:\\nC:\\Portable" \
  "$(field 2 1009 4) $(page_text 1009)"
expect_eq "portable finished: no run box" 0 "$(field 2 1012 4)"
click_finish
expect_eq "portable: setup exit code" 0 "$rc"

portable_host="$(hostpath "$portable_dest")"
expect_eq "portable: files, the 64-bit extension included" \
  "QmkUnInst.exe QmkUnInst.log Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll x64 x64/ThumbDqm64.dll" \
  "$(tree_list "$portable_host")"
check_copied "portable: " "$package" "$portable_host" Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll x64/ThumbDqm64.dll
expected_journal "$package" >"$work/portable-journal.expected"
expect_file_eq "portable: journal is the script and an empty line" "$work/portable-journal.expected" \
  "$portable_host/QmkUnInst.log"
expect_eq "portable: the disk's own file untouched" "keep me" "$(tr -d '\r' <"$drive_c/Portable/notes.txt" 2>/dev/null)"
check "portable: the default folder made for the browser is gone" test ! -e "$(hostpath "$dest")"

for view in 64 32; do
  check "portable: no vendor key ($view-bit view)" key_missing "$vendor" "$view"
  check "portable: no uninstall entry ($view-bit view)" key_missing "$uninstall" "$view"
  check "portable: no App Paths entry ($view-bit view)" key_missing "$app_path" "$view"
done
check "portable: no document class" key_missing 'HKCR\Quillmark.8' 64
check "portable: no application entry" key_missing 'HKCR\Applications\Qmkview8.exe' 64
check "portable: not in Wine's list of installed programs" not_listed
check "portable: no program group" test ! -e "$(hostpath "$common_programs\\Quillmark 8")"
check "portable: no user program group" test ! -e "$(hostpath "$user_programs\\Quillmark 8")"
check "portable: no desktop link" test ! -e "$(hostpath "$common_desktop\\Quillmark 8.lnk")"
check "portable: no user desktop link" test ! -e "$(hostpath "$user_desktop\\Quillmark 8.lnk")"
check "portable: no -regonly" test -z "$(trace_events regonly)"
check "portable: no regsvr32" test -z "$(command_lines "$work/portable.log" | grep -i regsvr32 || true)"
check "portable: the product was not started" test -z "$(trace_events started)"
finish
