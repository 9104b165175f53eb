#!/usr/bin/env bash
# The single file, built from the demo package and signed with a throw-away
# certificate: through the wizard it passes setup's exit code back (cancelled:
# 1) and installs; unattended, its arguments reach setup unchanged and the
# settings beside it are taken; its unpacked folder is gone after each run.
# A cut or damaged file (or digest) is refused: the damaged-package message
# (none with -suppressmsgboxes), exit code 1, setup never started, nothing left
# behind; without a temporary folder the exit code is 4.
# In the x86_64 tree, whose programs get a display.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

package="$work/package"
make_package "$package"
touch -d '2020-01-02 03:04:06' "$package/Qmkview8.exe"  # a release's date, long before this run
download="$work/download"
single="$download/Quillmark8Setup.exe"
if ! QM_SFX_TREE="$QM_BIN_DIR/.." QM_LINT_TREE="$QM_BIN_DIR/.." QM_SIGN_THROWAWAY=1 \
     bash "$QM_SOURCE_DIR/scripts/make-single-file.sh" "$package" "$single" >"$work/build.log" 2>&1; then
  fail "the single file could not be built"; sed 's/^/  | /' "$work/build.log"; finish
fi
# A download folder holds whatever else was downloaded: planted look-alikes.
plant "$download"
signed() { osslsigncode verify -CAfile "$download/throwaway-cert/cert.pem" -in "$1" >/dev/null 2>&1; }
check "the single file's signature verifies" signed "$single"
leftovers() { ls "$(hostpath "$temp_dir")" 2>/dev/null | grep '^QmkSfx' || true; }
setup_lines() { command_lines "$1" | grep -i 'setup\.exe"' | sed 's/QmkSfx[0-9a-f]\{16\}/QmkSfx*/' || true; }

# --- the wizard -------------------------------------------------------------
in_plant_cwd() {  # in_plant_cwd LOG PROGRAM ARGS...: as run_traced, in the background; $pid
  local log="$1"; shift
  WINEDEBUG=-all,trace+process planted_wine "$@" 2>"$log" &
  pid=$!
}
start_single() {  # start_single LOG: the single file without arguments; $frame, $pid
  in_plant_cwd "$1" "$single"
  frame=$(wine "$probe" find "Quillmark Setup" 300000 2>/dev/null | tr -d '\r') || frame=""
}
shows() { wine "$probe" wait-text "$frame" "$1" 300000 "$2" >/dev/null 2>&1; }  # shows ID TEXT
press() { wine "$probe" click "$frame" "$1" >/dev/null 2>&1; }
# step ID TEXT BUTTON: once ID shows TEXT, reads the page (as setup_wizard.sh
# does: the page has settled then) and clicks BUTTON.
step() { shows "$1" "$2" && wine "$probe" dump "$frame" >/dev/null 2>&1 && press "$3"; }
end_of() { rc=0; wait "$pid" || rc=$?; timeout 300 wineserver -w || true; }

start_single "$work/cancel.log"
check "wizard: the frame came" test -n "$frame"
wine "$probe" click "$frame" 2 >/dev/null 2>&1 || true
expect_eq "wizard: setup asks before cancelling" "Do you really want to cancel Quillmark setup?" "$(answer 6)"
end_of
expect_eq "wizard cancelled: setup's exit code 1 passed back" 1 "$rc"
expect_eq "wizard cancelled: nothing unpacked left" "" "$(leftovers)"

start_single "$work/wizard.log"
# Unpacked into a folder with an access list of its own: the user's, nothing
# for everyone else, where a folder made in the temporary folder by default
# lets everyone read. (Wine keeps an access list as Unix permissions, so the
# protection from inheritance cannot be seen here.)
acl=$(wine "$probe" sddl "$temp_dir\\$(leftovers)" 2>/dev/null | tr -d '\r')
check "wizard: the unpacked folder is the user's alone ($acl)" \
  test -n "$(grep -E ';;;S-1-5-21-[0-9-]+\)' <<<"$acl" | grep -vE ';;;(WD|BU|AU)\)' || true)"
check "wizard: welcome page, Next" step 1 "&Next >" 1
first_line=$(iconv -f UTF-16 "$package/agreement.txt" | head -n1 | tr -d '\r')
check "wizard: agreement page" shows 1 "Yes"
check "wizard: the package's agreement shown" grep -qF "$first_line" <(wine "$probe" dump "$frame" 2>/dev/null)
press 1
check "wizard: folder page, Next" step 1013 "$program_files\\Quillmark 8" 1
check "wizard: group page, Next" step 1000 "Quillmark 8" 1
check "wizard: ready page, Next" step 1010 "You are now ready to install Quillmark." 1
check "wizard: finished page, Finish" step 1 "&Finish >" 1
end_of
expect_eq "wizard: exit code" 0 "$rc"
expect_eq "wizard: installed files" "$installed_files" "$(tree_list "$(hostpath "$program_files\\Quillmark 8")")"
expect_eq "wizard: nothing unpacked left" "" "$(leftovers)"

# --- unattended, with settings beside the file --------------------------------
printf '[Options]\r\nTheme=Dark\r\n' >"$download/Qmkview8.ini"
printf 'REGEDIT4\r\n' >"$download/Qmkview8.reg"
custom='C:\Custom Place\QM'
run_traced "$work/silent.log" "$single" -s -instdir "$custom"
expect_eq "silent: exit code" 0 "$rc"
expect_eq "silent: setup started from the private folder with -sfxname= and the arguments" \
  "\"$temp_dir\\QmkSfx*\\setup.exe\" -sfxname=\"$(winpath "$single")\" -s -instdir \"$custom\"" \
  "$(setup_lines "$work/silent.log")"
expect_eq "silent: installed where -instdir said, with the settings" \
  "$(tr ' ' '\n' <<<"$installed_files Qmkview8.ini Qmkview8.reg" | LC_ALL=C sort | paste -sd' ')" \
  "$(tree_list "$(hostpath "$custom")")"
for side in Qmkview8.ini Qmkview8.reg; do
  check "silent: $side beside the single file taken" cmp -s "$download/$side" "$(hostpath "$custom")/$side"
done
check "silent: the installed uninstaller (setup.exe) is signed" signed "$(hostpath "$custom")/QmkUnInst.exe"
# The package's dates travel (the cabinet keeps them to two seconds).
packed=$(stat -c %Y "$package/Qmkview8.exe") installed=$(stat -c %Y "$(hostpath "$custom")/Qmkview8.exe")
check "silent: the product keeps its date ($packed, $installed)" test $(( packed > installed ? packed - installed : installed - packed )) -le 2
expect_eq "silent: nothing unpacked left" "" "$(leftovers)"

# --- cut and damaged files ------------------------------------------------------
homepage=$(sed -n 's/^set(QM_HOMEPAGE "\([^"]*\)".*/\1/p' "$QM_SOURCE_DIR/CMakeLists.txt")
damaged_text="This setup files are damaged, installation aborted.

Please download the product again from $homepage and re-try the setup."
head -c -4096 "$single" >"$download/cut.exe"
cp "$single" "$download/flipped.exe"
printf '\xff' | dd of="$download/flipped.exe" bs=1 seek=$(( $(stat -c %s "$single") / 2 )) conv=notrunc status=none
# The last byte of the trailer's digest (the trailer is the last "QMSFX01").
cp "$single" "$download/digest.exe"
trailer=$(grep -obUaP 'QMSFX01\x00' "$single" | tail -n1 | cut -d: -f1)
printf '\x5a' | dd of="$download/digest.exe" bs=1 seek=$((trailer + 63)) conv=notrunc status=none
# A temporary folder that does not exist: nothing can be unpacked (code 4).
no_temp() {  # no_temp add FOLDER | no_temp delete
  local name
  for name in TMP TEMP; do wine reg "$1" 'HKCU\Environment' /v "$name" ${2:+/d "$2"} /f >/dev/null 2>&1; done
}
# name | file | arguments | message box shown | exit code
cases=("cut|cut.exe|-s|yes|1" "flipped|flipped.exe|-s -suppressmsgboxes|no|1"
       "digest|digest.exe|-s -suppressmsgboxes|no|1" "no-temp|Quillmark8Setup.exe|-s -suppressmsgboxes|no|4")
for case in "${cases[@]}"; do
  IFS='|' read -r name file arguments box code <<<"$case"
  message=""
  [ "$box" = no ] || message="$damaged_text"
  [ "$name" != no-temp ] || no_temp add 'C:\no such folder'
  in_plant_cwd "$work/$name.log" "$download/$file" $arguments
  shown=""
  [ -z "$message" ] || shown=$(answer 1)
  end_of
  [ "$name" != no-temp ] || no_temp delete
  expect_eq "$name: message" "$message" "$shown"
  expect_eq "$name: exit code" "$code" "$rc"
  expect_eq "$name: setup not started" "" "$(setup_lines "$work/$name.log")"
  if [ -n "$message" ]; then
    check "$name: maker's page opened" grep -qF "$homepage" <(command_lines "$work/$name.log")
  else
    check "$name: no page opened" test -z "$(command_lines "$work/$name.log" | grep -F "$homepage" || true)"
  fi
  expect_eq "$name: nothing unpacked left" "" "$(leftovers)"
done
finish
