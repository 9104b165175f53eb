# Shared part of the end-to-end scripts: sourced after `set -euo pipefail`.
# Every script gets a fresh Wine prefix of its own under <build>/e2e/<name>,
# a demo package assembled from this build tree, and a trace file that the
# stand-in product and the stand-in thumbnail extensions write to.
: "${QM_BIN_DIR:?run through ctest}" "${QM_SOURCE_DIR:?run through ctest}"

e2e_name="$(basename "$0" .sh)"
work="$(cd "$QM_BIN_DIR/.." && pwd)/e2e/$e2e_name"
rm -rf "$work"
mkdir -p "$work"
export WINEDEBUG=-all
# No crash dialog, no browser for the maker's home page, no menu entries on the host.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d;winedbg.exe=d;winebrowser.exe=d"
failures=0
pass() { printf 'ok   %s\n' "$*"; }
fail() { printf 'FAIL %s\n' "$*"; failures=$((failures + 1)); }
check() { local what="$1"; shift; if "$@"; then pass "$what"; else fail "$what"; fi; }  # check WHAT COMMAND...
expect_eq() {  # expect_eq WHAT EXPECTED ACTUAL
  [ "$2" = "$3" ] && pass "$1" && return
  fail "$1"; diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") | sed 's/^/  /' || true
}

# Planted code: logging look-alikes of DLLs that setup, the uninstaller, the
# worker and the system DLLs they use load by name, and of the programs they
# start, put wherever a search could find them: the package folder (make_package),
# the temporary folders of every prefix, the current folder of every run, and
# "C:\Program.exe" and "C:\Apps\Quill.exe" for unquoted paths with blanks. Our
# programs run with native-first overrides for those names, so Wine searches
# as Windows does. Nothing planted may ever log (checked by finish).
planted_dlls=(uxtheme dwmapi userenv profapi cryptbase propsys linkinfo secur32 sspicli shfolder comctl32)
plant_overrides="$(IFS=,; echo "${planted_dlls[*]}")=n,b"
plant() {  # plant HOST-DIR [PROGRAM...]
  local dir="$1" name
  shift
  mkdir -p "$dir"
  for name in "${planted_dlls[@]}"; do cp "$QM_BIN_DIR/planted/planted.dll" "$dir/$name.dll"; done
  for name in "$@"; do cp "$QM_BIN_DIR/planted/planted.exe" "$dir/$name"; done
}
plant_log="$work/planted.log"
: >"$plant_log"
plant_cwd="$work/cwd"
plant "$plant_cwd" regsvr32.exe Qmkview8.exe

# new_prefix NAME: a fresh prefix of this script's own, with the paths of its folders.
new_prefix() {
  export WINEPREFIX="$work/$1"
  bash "$QM_SOURCE_DIR/scripts/make-prefix.sh" "$WINEPREFIX" "$e2e_arch" || { fail "no Wine prefix"; exit 1; }
  drive_c="$WINEPREFIX/drive_c"
  user_dir="$(cd "$drive_c/users" && ls -d */ | grep -v '^Public/$' | head -n1)"
  user_dir="${user_dir%/}"
  user_programs="C:\\users\\$user_dir\\AppData\\Roaming\\Microsoft\\Windows\\Start Menu\\Programs"
  user_startup="$user_programs\\StartUp"
  user_desktop="C:\\users\\$user_dir\\Desktop"
  pictures="C:\\users\\$user_dir\\Pictures"
  temp_dir="C:\\users\\$user_dir\\Temp"
  plant "$(hostpath "$temp_dir")" regsvr32.exe Qmkview8.exe
  plant "$drive_c/windows/temp" regsvr32.exe Qmkview8.exe
  plant "$drive_c/Apps" Quill.exe
  cp "$QM_BIN_DIR/planted/planted.exe" "$drive_c/Program.exe"
}
common_programs='C:\ProgramData\Microsoft\Windows\Start Menu\Programs'
common_startup="$common_programs\\StartUp"
common_desktop='C:\users\Public\Desktop'
# The setup.exe of an i686 tree is a 32-bit program on 64-bit Windows (WoW64):
# the x86 program folder, the 32-bit registry view and the x64 extension. That
# of an x86_64 tree is none: its x64 folder stays empty.
e2e_arch="${QM_ARCH:-i686}"
if [ "$e2e_arch" = x86_64 ]; then
  program_files='C:\Program Files' view=64 wow_node='' thumb_dll='ThumbDqm32.dll' x64_files='x64'
else
  program_files='C:\Program Files (x86)' view=32 wow_node='Wow6432Node\\' thumb_dll='x64\ThumbDqm64.dll'
  x64_files='x64 x64/ThumbDqm64.dll'
fi
homepage=$(sed -n 's/^QM_HOMEPAGE:[A-Z]*=//p' "$QM_BIN_DIR/../CMakeCache.txt")
installed_files="QmkUnInst.exe QmkUnInst.log Qmkview8.exe Qmkview8Man.chm ThumbDqm32.dll ThumbDqmXP32.dll $x64_files"
probe="$QM_BIN_DIR/e2e_probe.exe"

# The Windows name of a host path (through drive Z:), the host path of a C: path.
winpath() { printf 'Z:%s' "${1//\//\\}"; }
hostpath() { local p="${1#C:\\}"; printf '%s/%s' "$drive_c" "${p//\\//}"; }
gone() { test ! -e "$(hostpath "$1")"; }
QM_PLANT_LOG="$(winpath "$plant_log")"
export QM_PLANT_LOG
new_prefix prefix

trace="$work/trace.log"
: >"$trace"
QM_TRACE_FILE="$(winpath "$trace")"
export QM_TRACE_FILE
# What the trace lines of EVENT (second field) say after it.
trace_events() { tr -d '\r' <"$trace" | awk -v e="$1" '$2 == e { sub(/^[^ ]+ [^ ]+ ?/, ""); print }'; }

# Keys setup writes (in the registry view $view).
vendor='HKLM\Software\Lanternfold\Quillmark 8'
uninstall='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\Quillmark 8'
reg_value() {  # reg_value KEY NAME: the data of one value in setup's view (empty when missing)
  wine reg query "$1" /reg:"$view" ${2:+/v "$2"} 2>/dev/null | tr -d '\r' | sed -n 's/^    .*    REG_[A-Z_]*    //p'
}
key_missing() { ! wine reg query "$1" /reg:"${2:-$view}" >/dev/null 2>&1; }
not_listed() { ! wine uninstaller --list 2>/dev/null | grep -q 'Quillmark 8'; }

# Ends the script: a passed run removes its prefixes, a failed one keeps them
# beside the traces for a look.
finish() {
  expect_eq "nothing planted was loaded or started" "" "$(tr -d '\r' <"$plant_log")"
  echo "---- $e2e_name: $failures failure(s)"
  [ "$failures" -eq 0 ] || exit 1
  timeout 300 wineserver -w || true
  rm -rf "$work"/prefix*
}

# make_package DIR [VERSION]: the demo package of this build tree, with
# planted code beside setup.exe.
make_package() {
  QM_PKG_TREE32="$QM_BIN_DIR/.." QM_PKG_TREE64="$QM_BIN_DIR/.." \
    bash "$QM_SOURCE_DIR/scripts/make-package.sh" "$@" >/dev/null
  plant "$1" regsvr32.exe
}

# run_traced LOG ARGS...: runs a program under Wine with process tracing into
# LOG (the command lines of every child) and waits for the whole prefix to
# settle, every child ended (unless E2E_NO_SETTLE is set: a product it
# started still runs); leaves the program's exit code in $rc. It runs in the
# planted current folder, under the native-first overrides.
run_traced() {
  local log="$1"; shift
  rc=0
  WINEDEBUG=-all,trace+process planted_wine "$@" 2>"$log" || rc=$?
  [ -n "${E2E_NO_SETTLE:-}" ] || timeout 300 wineserver -w || true
}
# planted_wine ARGS...: wine ARGS in the planted current folder (or
# E2E_CWD), under the native-first overrides, stopped after 10 minutes.
planted_wine() {
  (cd "${E2E_CWD:-$plant_cwd}" && WINEDLLOVERRIDES="$WINEDLLOVERRIDES;$plant_overrides" exec timeout 600 wine "$@")
}
# Command lines started by the traced programs, one a line, unescaped.
command_lines() {
  grep -o 'CreateProcessInternalW app .* cmdline L".*"$' "$1" |
    sed 's/^.*cmdline L"//; s/"$//; s/\\\\/\x01/g; s/\\"/"/g; s/\x01/\\/g'
}

# resolve LNK: target, working folder and arguments joined by '|'.
resolve_link() { wine "$probe" resolve "$1" 2>/dev/null | tr -d '\r' | paste -sd'|'; }
# answer BUTTON: presses BUTTON in setup's next message box and prints its text.
answer() { wine "$probe" answer "$1" 120000 2>/dev/null | tr -d '\r'; }

# snapshot NAME: the prefix's files and registry once every process has ended.
snapshot() {
  timeout 300 wineserver -w || true
  (cd "$drive_c" && find . -mindepth 1 | LC_ALL=C sort) >"$work/$1.files"
  local hive
  for hive in system user userdef; do cp "$WINEPREFIX/$hive.reg" "$work/$1.$hive.reg"; done
}
# snapshot_diff A B: file and registry differences, what Wine itself rewrites left out.
snapshot_diff() {
  diff "$work/$1.files" "$work/$2.files" | grep '^[<>]' || true
  python3 "$QM_SOURCE_DIR/tests/e2e/regdiff.py" "$work/$1.system.reg" "$work/$2.system.reg" | sed 's/^/HKLM /'
  python3 "$QM_SOURCE_DIR/tests/e2e/regdiff.py" "$work/$1.user.reg" "$work/$2.user.reg" | sed 's/^/HKCU /'
  python3 "$QM_SOURCE_DIR/tests/e2e/regdiff.py" "$work/$1.userdef.reg" "$work/$2.userdef.reg" | sed 's/^/HKU\\.Default /'
}

# Journal of an installation: the package's script, its empty line, and setup's lines.
expect_journal() {  # expect_journal WHAT PACKAGE-DIR INSTALL-DIR LINE...
  local what="$1" package="$2" dest="$3"; shift 3
  { cat "$package/QmkUnInst.log"; printf '\r\n'; [ $# -eq 0 ] || printf '%s\r\n' "$@"; } >"$work/journal.expected"
  check "$what" cmp -s "$work/journal.expected" "$(hostpath "$dest")/QmkUnInst.log"
}
# Every entry below a host folder, relative and sorted, on one line.
tree_list() { (cd "$1" 2>/dev/null && find . -mindepth 1 | sed 's|^\./||' | LC_ALL=C sort | paste -sd' '); }
# The installed files are the package's, the uninstaller its setup.exe.
check_installed_files() {  # check_installed_files WHAT PACKAGE INSTALL-DIR
  local dest_host file
  dest_host="$(hostpath "$3")"
  expect_eq "$1: installed files" "$installed_files" "$(tree_list "$dest_host")"
  for file in $installed_files; do
    case "$file" in QmkUnInst.log|x64) ;; *) check "$1: $file" cmp -s "$2/${file/QmkUnInst.exe/setup.exe}" "$dest_host/$file";; esac
  done
}

# After an install with the default choices for the type's folders: the
# group, its links and the desktop link, resolving to the installed product,
# journalled after the script and its empty line; no start-up link.
check_default_links() {  # check_default_links WHAT PACKAGE DEST PROGRAMS DESKTOP STARTUP
  local group="$4\\Quillmark 8"
  expect_journal "$1: journal of group and links" "$2" "$3" "Made Dir: $group" "Shell Link: $group\\Quillmark 8.lnk" \
    "Shell Link: $group\\Quillmark 8 Help.lnk" "Shell Link: $5\\Quillmark 8.lnk"
  expect_eq "$1: program link" "$3\\Qmkview8.exe|$pictures|" "$(resolve_link "$group\\Quillmark 8.lnk")"
  expect_eq "$1: help link" "$3\\Qmkview8Man.chm||" "$(resolve_link "$group\\Quillmark 8 Help.lnk")"
  expect_eq "$1: desktop link" "$3\\Qmkview8.exe|$pictures|" "$(resolve_link "$5\\Quillmark 8.lnk")"
  check "$1: no start-up link" gone "$6\\Quillmark 8.lnk"
}
