# Shared part of the end-to-end scripts: sourced after `set -euo pipefail`.
# Every script gets a fresh Wine prefix of its own under <build>/e2e/<name>,
# a demo package assembled from this build tree, and a trace file that the
# stand-in product and the stand-in thumbnail extensions write to.
: "${QM_BIN_DIR:?run through ctest}" "${QM_SOURCE_DIR:?run through ctest}"

e2e_name="$(basename "$0" .sh)"
work="$(cd "$QM_BIN_DIR/.." && pwd)/e2e/$e2e_name"
rm -rf "$work"
mkdir -p "$work"
export WINEPREFIX="$work/prefix"
export WINEDEBUG=-all
# No crash dialog (Wine's 32-bit regsvr32 crashes on the 64-bit extension),
# no browser for the maker's home page, no menu entries on the host.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d;winedbg.exe=d;winebrowser.exe=d"
# The setup.exe of an i686 tree is a 32-bit program (WoW64 under a 64-bit
# prefix); that of an x86_64 tree a native 64-bit one.
e2e_arch="${QM_ARCH:-i686}"
if ! bash "$QM_SOURCE_DIR/scripts/make-prefix.sh" "$WINEPREFIX" "$e2e_arch"; then
  echo "FAIL could not make the Wine prefix $WINEPREFIX"
  exit 1
fi

drive_c="$WINEPREFIX/drive_c"
probe="$QM_BIN_DIR/e2e_probe.exe"
failures=0

# The Windows name of a host path (through drive Z:).
winpath() { printf 'Z:%s' "${1//\//\\}"; }
# The host path of a C: path.
hostpath() { local p="${1#C:\\}"; printf '%s/%s' "$drive_c" "${p//\\//}"; }

trace="$work/trace.log"
: >"$trace"
QM_TRACE_FILE="$(winpath "$trace")"
export QM_TRACE_FILE

# Folders of this prefix (Wine's layout for user root; checked once below).
user_dir="$(cd "$drive_c/users" && ls -d */ | grep -v '^Public/$' | head -n1)"
user_dir="${user_dir%/}"
common_programs='C:\ProgramData\Microsoft\Windows\Start Menu\Programs'
common_startup="$common_programs\\StartUp"
common_desktop='C:\users\Public\Desktop'
user_programs="C:\\users\\$user_dir\\AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs"
user_startup="$user_programs\\StartUp"
user_desktop="C:\\users\\$user_dir\\Desktop"
pictures="C:\\users\\$user_dir\\Pictures"
# A 32-bit setup on 64-bit Windows also copies and registers the 64-bit
# extension ("File Copy x64: "); a 64-bit setup registers the 32-bit one.
if [ "$e2e_arch" = x86_64 ]; then
  program_files='C:\Program Files'; setup_view=64
  thumb_dll='ThumbDqm32.dll'; x64_files='x64'
  registered_apps='Software\\RegisteredApplications'
else
  program_files='C:\Program Files (x86)'; setup_view=32
  thumb_dll='x64\ThumbDqm64.dll'; x64_files='x64 x64/ThumbDqm64.dll'
  registered_apps='Software\\Wow6432Node\\RegisteredApplications'
fi
installed_files="QmkUnInst.exe QmkUnInst.log Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll $x64_files"
temp_dir="C:\\users\\$user_dir\\Temp"

# Keys setup writes (in the registry view $setup_view).
vendor='HKLM\Software\Lanternfold\Quillmark 8'
uninstall='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\Quillmark 8'
app_path='HKLM\Software\Microsoft\Windows\CurrentVersion\App Paths\Qmkview8.exe'

pass() { printf 'ok   %s\n' "$*"; }
fail() { printf 'FAIL %s\n' "$*"; failures=$((failures + 1)); }
check() {  # check "what" command...
  local what="$1"; shift
  if "$@"; then pass "$what"; else fail "$what"; fi
}
expect_eq() {  # expect_eq "what" expected actual
  if [ "$2" = "$3" ]; then pass "$1"; else
    fail "$1"; printf '  expected: %s\n  actual:   %s\n' "$2" "$3"
  fi
}
expect_file_eq() {  # expect_file_eq "what" expected-file actual-file
  if cmp -s "$2" "$3"; then pass "$1"; else
    fail "$1"; diff <(cat -A "$2") <(cat -A "$3") | head -n 20 || true
  fi
}
# Ends the script: a passed run removes its prefix (over a gigabyte), a failed
# one keeps it beside the traces for a look.
finish() {
  expect_eq "nothing planted was loaded or started" "" "$(tr -d '\r' <"$plant_log")"
  echo "---- $e2e_name: $failures failure(s)"
  [ "$failures" -eq 0 ] || return 1
  timeout 300 wineserver -w || true
  rm -rf "$WINEPREFIX"
}

# Planted code: logging look-alikes of DLLs that setup, the uninstaller, the
# worker and the system DLLs they use load by name, and of the programs they
# start, put wherever a search could find them: the package folder (make_package),
# the temporary folders, the current folder of every run, and "C:\Program.exe"
# and "C:\Apps\Quill.exe" for unquoted paths with blanks. Our programs run with
# native-first overrides for those names, so Wine searches as Windows does.
# Nothing planted may ever log (checked by finish).
planted_dlls=(uxtheme dwmapi userenv profapi cryptbase propsys linkinfo secur32 sspicli shfolder comctl32)
plant_overrides="$(IFS=,; echo "${planted_dlls[*]}")=n,b"
plant_log="$work/planted.log"
: >"$plant_log"
QM_PLANT_LOG="$(winpath "$plant_log")"
export QM_PLANT_LOG
plant() {  # plant HOST-DIR [PROGRAM...]
  local dir="$1" name
  shift
  mkdir -p "$dir"
  for name in "${planted_dlls[@]}"; do cp "$QM_BIN_DIR/planted/planted.dll" "$dir/$name.dll"; done
  for name in "$@"; do cp "$QM_BIN_DIR/planted/planted.exe" "$dir/$name"; done
}
plant_cwd="$work/cwd"
plant "$plant_cwd" regsvr32.exe Qmkview8.exe
plant "$(hostpath "$temp_dir")" regsvr32.exe Qmkview8.exe
plant "$drive_c/windows/temp" regsvr32.exe Qmkview8.exe
plant "$drive_c/Apps" Quill.exe
cp "$QM_BIN_DIR/planted/planted.exe" "$drive_c/Program.exe"

# make_package DIR [VERSION]: the demo package of this build tree, with
# planted code beside setup.exe.
make_package() {
  QM_PKG_TREE32="$QM_BIN_DIR/.." QM_PKG_TREE64="$QM_BIN_DIR/.." \
    bash "$QM_SOURCE_DIR/scripts/make-package.sh" "$@" >/dev/null
  plant "$1" regsvr32.exe
}

# run_traced LOG ARGS...: runs a program under Wine with process tracing into
# LOG (the command lines of every child), waits for the whole prefix to
# settle (unless E2E_NO_SETTLE is set: a product it started still runs) and
# leaves the program's exit code in $rc.
run_traced() {
  local log="$1"; shift
  rc=0
  (cd "$plant_cwd" && WINEDEBUG=-all,trace+process WINEDLLOVERRIDES="$WINEDLLOVERRIDES;$plant_overrides" \
     timeout 300 wine "$@" 2>"$log") || rc=$?
  [ -n "${E2E_NO_SETTLE:-}" ] || timeout 300 wineserver -w || true
}

# Command lines started by the traced programs, one a line, unescaped.
command_lines() {
  grep -o 'CreateProcessInternalW app .* cmdline L".*"$' "$1" |
    sed 's/^.*cmdline L"//; s/"$//; s/\\\\/\x01/g; s/\\"/"/g; s/\x01/\\/g'
}

# wine reg query in the 32-bit view that setup writes to.
reg32() { wine reg query "$1" /reg:32 ${2:+/v "$2"} 2>/dev/null | tr -d '\r'; }
# The data of one value (empty when missing).
reg_value() {  # reg_value VIEW KEY NAME
  local view="$1" key="$2" name="$3" out
  if [ -z "$name" ]; then
    out=$(wine reg query "$key" /reg:"$view" /ve 2>/dev/null | tr -d '\r') || return 0
  else
    out=$(wine reg query "$key" /reg:"$view" /v "$name" 2>/dev/null | tr -d '\r') || return 0
  fi
  printf '%s\n' "$out" | sed -n 's/^    .*    REG_[A-Z_]*    //p' | head -n1
}
key_exists() { wine reg query "$1" /reg:"${2:-$setup_view}" >/dev/null 2>&1; }
key_missing() { ! key_exists "$@"; }

installed_programs() { wine uninstaller --list 2>/dev/null | tr -d '\r'; }
not_listed() { local list; list=$(installed_programs); ! grep -q 'Quillmark 8' <<<"$list"; }

# resolve LNK(C: path): target, working folder and arguments joined by '|'.
resolve_link() { wine "$probe" resolve "$1" 2>/dev/null | tr -d '\r' | paste -sd'|'; }

# Trace lines with EVENT (second field).
trace_events() { tr -d '\r' <"$trace" | awk -v e="$1" '$2 == e'; }
# Waits up to 20 s for a "started" trace line and prints the lines then.
wait_started() {
  local _
  for _ in $(seq 1 100); do [ -n "$(trace_events started)" ] && break; sleep 0.2; done
  trace_events started
}
# answer BUTTON [TIMEOUT-MS]: presses BUTTON in setup's next message box and prints its text.
answer() { wine "$probe" answer "$1" "${2:-60000}" 2>/dev/null | tr -d '\r'; }

# snapshot NAME: the prefix's files and registry once every process has ended.
snapshot() {
  timeout 300 wineserver -w || true
  (cd "$drive_c" && find . -mindepth 1 | LC_ALL=C sort) >"$work/$1.files"
  cp "$WINEPREFIX/system.reg" "$work/$1.system.reg"
  cp "$WINEPREFIX/user.reg" "$work/$1.user.reg"
}
# Keys that Wine itself rewrites on every start (hardware enumeration, the
# debugger's settings when a program crashed).
wine_noise=(
  '^[-+~] System\\\\CurrentControlSet\\\\Control\\\\Class\\\\'
  '^[-+~] System\\\\CurrentControlSet\\\\Enum\\\\'
  '^[-+~] Software\\\\Wine\\\\WineDbg'
  '^[-+~] Software\\\\Microsoft\\\\Windows NT\\\\CurrentVersion\\\\AeDebug'
  '^[-+~] System\\\\CurrentControlSet\\\\Hardware Profiles\\\\Current\\\\Software\\\\Fonts'
  '^[-+~] Software\\\\Wine\\\\Fonts'
  '^[-+~] Software\\\\Microsoft\\\\Windows NT\\\\CurrentVersion\\\\NetworkCards'
)
# snapshot_diff A B: file and registry differences, Wine's own noise left out.
snapshot_diff() {
  diff "$work/$1.files" "$work/$2.files" | grep '^[<>]' || true
  python3 "$QM_SOURCE_DIR/tests/e2e/regdiff.py" "$work/$1.system.reg" "$work/$2.system.reg" "${wine_noise[@]}" | sed 's/^/HKLM /'
  python3 "$QM_SOURCE_DIR/tests/e2e/regdiff.py" "$work/$1.user.reg" "$work/$2.user.reg" "${wine_noise[@]}" | sed 's/^/HKCU /'
}

# Journal of an installation as the package's script plus setup's own lines.
expected_journal() {  # expected_journal PACKAGE-DIR LINE...
  local package="$1"; shift
  cat "$package/QmkUnInst.log"
  printf '\r\n'
  local line
  for line in "$@"; do printf '%s\r\n' "$line"; done
}

# Every entry below a host folder, relative and sorted, on one line.
tree_list() { (cd "$1" 2>/dev/null && find . -mindepth 1 | sed 's|^\./||' | LC_ALL=C sort | paste -sd' '); }

# The named files are the package's own, and the uninstaller is its setup.exe.
check_copied() {  # check_copied LABEL PACKAGE HOST-DIR FILE...
  local label="$1" package="$2" dir="$3" file
  shift 3
  for file in "$@"; do check "$label$file is the package's" cmp -s "$package/$file" "$dir/$file"; done
  check "${label}QmkUnInst.exe is the package's setup.exe" cmp -s "$package/setup.exe" "$dir/QmkUnInst.exe"
}

# The registry entries of an all-users installation of 8.5.3.0 in DEST, in
# the view setup writes to.
check_registration() {  # check_registration DEST
  local dest="$1"
  expect_eq "AllUsers" "B" "$(reg_value "$setup_view" "$vendor" AllUsers)"
  expect_eq "Path" "$dest" "$(reg_value "$setup_view" "$vendor" Path)"
  expect_eq "DisplayName" "Quillmark 8" "$(reg_value "$setup_view" "$uninstall" DisplayName)"
  expect_eq "DisplayVersion" "8.05.03" "$(reg_value "$setup_view" "$uninstall" DisplayVersion)"
  expect_eq "UninstallString" "$dest\\QmkUnInst.exe" "$(reg_value "$setup_view" "$uninstall" UninstallString)"
  expect_eq "InstallLocation" "$dest" "$(reg_value "$setup_view" "$uninstall" InstallLocation)"
  expect_eq "Publisher" "Lanternfold Technology LLC" "$(reg_value "$setup_view" "$uninstall" Publisher)"
  expect_eq "MajorVersion" "0x8" "$(reg_value "$setup_view" "$uninstall" MajorVersion)"
  expect_eq "VersionMinor" "5" "$(reg_value "$setup_view" "$uninstall" VersionMinor)"
  expect_eq "App Paths" "$dest\\Qmkview8.exe" "$(reg_value "$setup_view" "$app_path" '')"
  expect_eq "App Paths Path" "$dest" "$(reg_value "$setup_view" "$app_path" Path)"
  expect_eq "open command" "\"$dest\\Qmkview8.exe\" \"%1\"" \
    "$(reg_value 64 'HKCR\Quillmark.8\shell\open\command' '')"
  expect_eq "application open command" "\"$dest\\Qmkview8.exe\" \"%1\"" \
    "$(reg_value 64 'HKCR\Applications\Qmkview8.exe\shell\open\command' '')"
  # The prefix reports Windows 7: associations go to the application entry.
  expect_eq ".png association" 'Applications\Qmkview8.exe' \
    "$(reg_value "$setup_view" "$vendor\\Capabilities\\FileAssociations" .png)"
  expect_eq "registered application" 'SOFTWARE\Lanternfold\Quillmark 8\Capabilities' \
    "$(reg_value "$setup_view" 'HKLM\Software\RegisteredApplications' Quillmark.8)"
}

# After an all-users install with the default choices from PACKAGE into DEST:
# the group, its links and the desktop link, resolving to the installed
# product, journalled after the script and its empty line; no start-up link.
check_default_links() {  # check_default_links PACKAGE DEST
  local package="$1" dest="$2" group="$common_programs\\Quillmark 8"
  expected_journal "$package" \
    "Made Dir: $group" \
    "Shell Link: $group\\Quillmark 8.lnk" \
    "Shell Link: $group\\Quillmark 8 Help.lnk" \
    "Shell Link: $common_desktop\\Quillmark 8.lnk" >"$work/journal.expected"
  expect_file_eq "journal: script, empty line, group and links" "$work/journal.expected" "$(hostpath "$dest")/QmkUnInst.log"
  expect_eq "program link" "$dest\\Qmkview8.exe|$pictures|" "$(resolve_link "$group\\Quillmark 8.lnk")"
  expect_eq "help link" "$dest\\Qmkview8Man.chm||" "$(resolve_link "$group\\Quillmark 8 Help.lnk")"
  expect_eq "desktop link" "$dest\\Qmkview8.exe|$pictures|" "$(resolve_link "$common_desktop\\Quillmark 8.lnk")"
  check "no start-up link" test ! -e "$(hostpath "$common_startup\\Quillmark 8.lnk")"
}
