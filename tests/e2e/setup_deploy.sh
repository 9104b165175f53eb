#!/usr/bin/env bash
# What a deployment tool relies on: "-log=" (a line per action, one log for
# the uninstaller and its worker), "-suppressmsgboxes" (default answers, no
# window, no browser), "-restartexitcode=" and "-norestart -runafter" with a
# file that can only be replaced at the restart, and the uninstall entry's
# values for such tools (their data: setup_roundtrip.sh), gone again with the
# removal.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

package="$work/package"
make_package "$package" 8.5.3.0
dest="$program_files\\Quillmark 8"
log_of() { winpath "$work/$1.log"; }
# has_line LOG TEXT: a line of the action log is TEXT after its timestamp.
log_text() { tr -d '\r' <"$work/$1.log"; }
# (grep reads to the end: an early exit would fail the pipe under pipefail.)
has_line() { log_text "$1" | cut -c25- | grep -xF -- "$2" >/dev/null; }

# --- a fresh install with a log ------------------------------------------------
run_traced "$work/install.trace" "$package/setup.exe" -s "-LOG=$(log_of install)"
expect_eq "install exit code" 0 "$rc"
check "every line starts with its timestamp" test -z "$(log_text install |
  grep -vE '^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3} ' || true)"
check "log: role" has_line install "role: setup, mode 1"
check "log: a copied file" has_line install "copy file $(winpath "$package")\\Qmkview8.exe -> $dest\\Qmkview8.exe: ok"
check "log: a shortcut" has_line install \
  "save shortcut $common_programs\\Quillmark 8\\Quillmark 8.lnk -> $dest\\Qmkview8.exe: ok"
check "log: a registry value" has_line install \
  "set registry value HKLM\\SOFTWARE\\Lanternfold\\Quillmark 8\\Path = \"$dest\""
check "log: regsvr32 from the system folder" grep -qF "\\regsvr32.exe with command line: regsvr32.exe /s \"$dest\\$thumb_dll\": ok" <(log_text install)
check "log: outcome" has_line install "outcome: completed; restart needed: no; exit code 0"
check "log: nothing failed in a clean install" test -z "$(log_text install | grep -F ': failed' || true)"

# --- a reinstall while the product file is held open ---------------------------
: >"$trace"
flag="$work/held.flag"
mkfifo "$work/held.pipe"
wine "$probe" hold "$dest\\Qmkview8.exe" "$(winpath "$flag")" >"$work/held.pipe" 2>/dev/null &
holder=$!
read -r -t 120 held <"$work/held.pipe" || held=""
expect_eq "the product file is held open" held "${held%$'\r'}"
E2E_NO_SETTLE=1 run_traced "$work/restart.trace" "$package/setup.exe" -s -norestart -runafter \
  -restartexitcode=3010 "-log=$(log_of restart)"
rm -f "$flag"; wait "$holder" || true
timeout 300 wineserver -w || true
# Wine hands its Unix caller only the low byte of a Windows exit code; the
# log's last line gives the whole code.
expect_eq "-restartexitcode=3010 with a replacement pending" $((3010 % 256)) "$rc"
check "log: the new copy waits for the restart" has_line restart \
  "schedule replacement at restart: $dest\\Qmkview8.exe.new -> $dest\\Qmkview8.exe: ok"
check "log: -norestart" has_line restart "restart needed, not restarting (-norestart); the product is not started"
check "log: outcome" has_line restart "outcome: completed, restart needed; restart needed: yes; exit code 3010"
expect_eq "-norestart -runafter: the product is not started" "" "$(trace_events started)"

# --- -suppressmsgboxes: a running copy is closed without a question ------------
: >"$trace"
wine "$dest\\Qmkview8.exe" >/dev/null 2>&1 &
copy=$!
wine "$probe" find "Quillmark 8 - Stand-in" 60000 >/dev/null 2>&1 || true
run_traced "$work/close.trace" "$package/setup.exe" -s -suppressmsgboxes "-log=$(log_of close)"
expect_eq "running copy: exit code" 0 "$rc"
check "log: the close question answered Yes by itself" grep -q 'answered Yes (automatic)$' <(log_text close)
check "the running copy was closed" test -n "$(kill -0 "$copy" 2>/dev/null || echo gone)"

# --- -suppressmsgboxes: a damaged package ---------------------------------------
make_package "$work/damaged" noversion
run_traced "$work/damaged.trace" "$work/damaged/setup.exe" -s -suppressmsgboxes "-log=$(log_of damaged)"
expect_eq "damaged package: exit code, no box waited for" 1 "$rc"
check "log: the message answered OK by itself" \
  grep -q 'message box: "This setup files are damaged, .*", answered OK (automatic)$' <(log_text damaged)
check "damaged package: the home page is not opened" test -z "$(command_lines "$work/damaged.trace" | grep -i http || true)"

# --- -suppressmsgboxes: "-v" asks first, and the default answer is No ----------
run_traced "$work/keep.trace" "$dest\\QmkUnInst.exe" -v -suppressmsgboxes "-log=$(log_of keep)"
expect_eq "-v declined by default: exit code" 2 "$rc"
check "log: declined" has_line keep "outcome: declined; restart needed: no; exit code 2"
check "-v declined: the product stays" test -f "$(hostpath "$dest\\Qmkview8.exe")"

# --- the removal: the uninstaller and its worker in one log --------------------
run_traced "$work/remove.trace" "$dest\\QmkUnInst.exe" "-log=$(log_of remove)"
expect_eq "removal exit code" 0 "$rc"
check "log: the uninstaller" has_line remove "role: uninstaller, mode 1"
check "log: the worker gets the log" grep -qF -- "-delself \"$dest\\QmkUnInst.exe\" -s -log=\"$(log_of remove)\": ok" <(log_text remove)
check "log: the uninstaller's outcome" has_line remove "outcome: handed over to the removal worker; restart needed: no; exit code 0"
check "log: the worker" has_line remove "role: removal worker"
check "log: regsvr32 waited for" grep -qE '\\regsvr32\.exe: (ended with exit code|still running)' <(log_text remove)
check "log: a deleted file" has_line remove "delete file $dest\\Qmkview8.exe: ok"
check "log: the uninstall entry deleted" has_line remove \
  "delete registry key HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Quillmark 8: ok"
check "log: the worker's outcome" has_line remove "outcome: removed; restart needed: no; exit code 0"
check "log: nothing failed in the removal" test -z "$(log_text remove | grep -F ': failed' || true)"
check "the uninstall entry and its new values are gone" key_missing "$uninstall"
finish
