#!/usr/bin/env bash
# run.sh — times the unattended install and the removal of two payloads with
# setup.exe against an uncompressed NSIS installer, xcopy under Wine and a
# native cp, all in one Wine prefix, interleaved round by round.
#
#   bash scripts/bench/run.sh
#
# A third payload of one small file shows each contestant's fixed cost.
#
# Settings (environment): BENCH_BUILD (build tree with bin/setup.exe and the
# stand-in product, default build/i686), BENCH_ROUNDS (5), BENCH_WORK (work
# folder, default build-bench), BENCH_ONLY_FLOORS=1 (NSIS, xcopy and cp only),
# BENCH_DESKTOP=0 (no desktop process: see below).
# Prints medians and per-round ratios; writes results.tsv and summary.md in
# the work folder.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
root="$(cd "$here/../.." && pwd)"
build="${BENCH_BUILD:-$root/build/i686}"
rounds="${BENCH_ROUNDS:-5}"
work="${BENCH_WORK:-$root/build-bench}"
only_floors="${BENCH_ONLY_FLOORS:-0}"
desktop="${BENCH_DESKTOP:-1}"
mkdir -p "$work"
work="$(cd "$work" && pwd)"

# Windows always has its desktop process. Wine without a display driver has
# none, and starts (and loses) one for every program that opens a window, even
# a hidden one: some 50 ms that Windows never pays. So the bench runs on a
# virtual display where Wine's desktop stays up for the whole session.
if [ "$desktop" = 1 ] && [ -z "${DISPLAY:-}" ] && [ -z "${BENCH_UNDER_XVFB:-}" ]; then
  command -v xvfb-run >/dev/null || { echo "[bench] error: xvfb-run is missing" >&2; exit 1; }
  BENCH_UNDER_XVFB=1 exec xvfb-run -a bash "${BASH_SOURCE[0]}" "$@"
fi

export WINEPREFIX="$work/prefix" WINEDEBUG=-all
export WINEDLLPATH="$root/.cache/libwine-i386/usr/lib/i386-linux-gnu/wine"
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"

log() { echo "[bench] $*" >&2; }
die() { echo "[bench] error: $*" >&2; exit 1; }
winpath() { local p="${1//\//\\}"; echo "Z:$p"; }
now() { date +%s.%N; }
since() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.3f", b - a }'; }

# --- tools -------------------------------------------------------------------
if ! command -v makensis >/dev/null; then
  log "installing nsis"
  SUDO=""; [ "$(id -u)" = 0 ] || SUDO=sudo
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -q --no-install-recommends nsis >/dev/null
fi
command -v wine >/dev/null || die "wine is missing (scripts/install-deps.sh)"

setup_exe="$build/bin/setup.exe"
product_exe="$build/bin/standin-8.5.3.0/Qmkview8.exe"
if [ "$only_floors" != 1 ]; then
  [ -f "$setup_exe" ] || die "no $setup_exe: build the setup target first (or BENCH_ONLY_FLOORS=1)"
  [ -f "$product_exe" ] || die "no $product_exe: build the stand-in product first"
fi

# --- payloads and packages -----------------------------------------------------
kinds=(small large one)
for kind in "${kinds[@]}"; do
  if [ ! -f "$work/payload-$kind/.done" ]; then
    log "writing the $kind payload"
    rm -rf "$work/payload-$kind"
    python3 "$here/make_payload.py" "$kind" "$work/payload-$kind"
    touch "$work/payload-$kind/.done"
  fi
  if [ ! -f "$work/nsis-$kind.exe" ] || [ "$here/payload.nsi" -nt "$work/nsis-$kind.exe" ]; then
    log "building the NSIS installer of the $kind payload"
    rm -f "$work/payload-$kind/.done"   # not part of the payload
    makensis -V1 -DPAYLOAD="$work/payload-$kind" -DOUTFILE="$work/nsis-$kind.exe" "$here/payload.nsi" >/dev/null
    touch "$work/payload-$kind/.done"
  fi
  if [ "$only_floors" != 1 ]; then
    pkg="$work/pkg-$kind"
    rm -rf "$pkg"; mkdir -p "$pkg"
    cp -al "$work/payload-$kind/." "$pkg/"
    rm -f "$pkg/.done"
    cp "$setup_exe" "$pkg/setup.exe"
    cp "$product_exe" "$pkg/Qmkview8.exe"
    {
      case "$kind" in
        small)
          for d in "$work/payload-$kind"/d*/; do
            name="$(basename "$d")"
            printf 'Make Dir: %s\r\n' "$name"
            printf 'File Copy: %s\\*.dat\r\n' "$name"
          done;;
        large) printf 'File Copy: big*.bin\r\n';;
        one) printf 'File Copy: one.dat\r\n';;
      esac
      printf 'File Copy: Qmkview8.exe\r\n'
      printf 'File Copy: setup.exe > QmkUnInst.exe\r\n'
    } >"$pkg/QmkUnInst.log"
  fi
done

# --- the Wine session ------------------------------------------------------------
bash "$root/scripts/make-prefix.sh" "$WINEPREFIX" i686
wineserver -k 2>/dev/null || true   # a leftover session would keep the old driver
if [ "$desktop" = 1 ]; then
  wine reg delete 'HKCU\Software\Wine\Drivers' /v Graphics /f >/dev/null 2>&1 || true
else
  wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1 || true
fi
wineserver -w
wineserver -p          # one session for every contestant: no start-up in the figures
wine cmd /c exit >/dev/null 2>&1 || true
cleanup() { wineserver -k 2>/dev/null || true; }
trap cleanup EXIT
drive_c="$WINEPREFIX/drive_c"
mkdir -p "$drive_c/bench"

# Waits until the contestants' processes in this prefix have all ended (other
# Wine sessions on the machine are not ours to wait for).
ours_running() {
  local pid
  for pid in $(pgrep -fi 'setup\.exe|qmkuninst|qmkview8|\\uni[0-9a-f]*\.tmp|un_a\.exe|au_\.exe|nsis-[a-z]*\.exe|uninst\.exe|xcopy|regsvr32' || true); do
    { tr '\0' '\n' <"/proc/$pid/environ"; } 2>/dev/null | grep -qxF "WINEPREFIX=$WINEPREFIX" && return 0
  done
  return 1
}
settle() {
  local deadline=$((SECONDS + 60))
  while ours_running; do
    [ $SECONDS -lt $deadline ] || { log "processes still running after 60 s"; break; }
    sleep 0.05
  done
  sync
}
# Seconds until a folder has disappeared (or "timeout").
wait_gone() {
  local start="$1" dir="$2" deadline=$((SECONDS + 300))
  while [ -e "$dir" ]; do
    [ $SECONDS -lt $deadline ] || { echo timeout; return; }
    sleep 0.01
  done
  since "$start"
}
files_in() { find "$1" -type f | wc -l; }

results="$work/results.tsv"
: >"$results"
record() { printf '%s\t%s\t%s\t%s\t%s\n' "$1" "$2" "$3" "$4" "$5" >>"$results"; log "round $1 $2 $3 $4: $5 s"; }

run_ours() {
  local r="$1" kind="$2" dir="$drive_c/bench/ours-$kind" expected="$3"
  rm -rf "$dir"; settle
  local t; t=$(now)
  wine "$(winpath "$work/pkg-$kind")\\setup.exe" -s -instdir "C:\\bench\\ours-$kind" >/dev/null 2>&1 || true
  local took; took=$(since "$t")
  local got=$(( $(files_in "$dir") - 3 ))   # less the uninstaller, the journal and the product
  [ "$got" = "$expected" ] || { log "ours/$kind installed $got of $expected files"; took="failed"; }
  record "$r" "$kind" ours install "$took"
  settle
  t=$(now)
  wine "C:\\bench\\ours-$kind\\QmkUnInst.exe" >/dev/null 2>&1 &
  record "$r" "$kind" ours remove "$(wait_gone "$t" "$dir")"
  wait || true
  settle; rm -rf "$dir"
}

run_nsis() {
  local r="$1" kind="$2" dir="$drive_c/bench/nsis-$kind" expected="$3"
  rm -rf "$dir"; settle
  local t; t=$(now)
  wine "$(winpath "$work/nsis-$kind.exe")" /S "/D=C:\\bench\\nsis-$kind" >/dev/null 2>&1 || true
  local took; took=$(since "$t")
  local got=$(( $(files_in "$dir") - 1 ))   # less the uninstaller
  [ "$got" = "$expected" ] || { log "nsis/$kind installed $got of $expected files"; took="failed"; }
  record "$r" "$kind" nsis install "$took"
  settle
  t=$(now)
  wine "C:\\bench\\nsis-$kind\\uninst.exe" /S >/dev/null 2>&1 &
  record "$r" "$kind" nsis remove "$(wait_gone "$t" "$dir")"
  wait || true
  settle; rm -rf "$dir"
}

# xcopy runs twice: Wine's 64-bit one (what "wine xcopy" starts) and its
# 32-bit one, which pays the same WoW64 start-up as the 32-bit setup.exe.
copy_with() {
  local r="$1" kind="$2" expected="$3" who="$4" program="$5" dir="$drive_c/bench/$4-$2"
  rm -rf "$dir"; settle
  local t; t=$(now)
  wine "$program" /E /I /Q /Y "$(winpath "$work/payload-$kind")" "C:\\bench\\$who-$kind" >/dev/null 2>&1 || true
  local took; took=$(since "$t")
  local got=$(( $(files_in "$dir") - 1 ))   # less the payload's marker file
  [ "$got" = "$expected" ] || { log "$who/$kind copied $got of $expected files"; took="failed"; }
  record "$r" "$kind" "$who" install "$took"
  settle; rm -rf "$dir"
}
run_xcopy() { copy_with "$1" "$2" "$3" xcopy xcopy; }
run_xcopy32() { copy_with "$1" "$2" "$3" xcopy32 'C:\windows\syswow64\xcopy.exe'; }

run_cp() {
  local r="$1" kind="$2" dir="$drive_c/bench/cp-$kind" expected="$3"
  rm -rf "$dir"; settle
  local t; t=$(now)
  cp -r "$work/payload-$kind" "$dir"
  record "$r" "$kind" cp install "$(since "$t")"
  settle; rm -rf "$dir"
}

contestants=(nsis xcopy xcopy32 cp)
[ "$only_floors" = 1 ] || contestants=(ours nsis xcopy xcopy32 cp)
# A warm-up round on the one-file payload, not counted: it brings up the
# desktop and fills the file cache with the contestants' programs.
for c in "${contestants[@]}"; do "run_$c" 0 one 1; done
: >"$results"
for ((r = 1; r <= rounds; r++)); do
  # Rotate the order so that no contestant always runs first after a sync.
  n=${#contestants[@]}
  for kind in "${kinds[@]}"; do
    expected=$(find "$work/payload-$kind" -type f ! -name .done | wc -l)
    for ((i = 0; i < n; i++)); do
      c=${contestants[$(((i + r) % n))]}
      "run_$c" "$r" "$kind" "$expected"
    done
  done
done

python3 "$here/summarise.py" "$results" | tee "$work/summary.md"
