#!/usr/bin/env bash
# screenshots.sh [BIN_DIR] [OUT_DIR] — PNG screenshots of every wizard page,
# at 96 DPI and again at 144 DPI, taken under Xvfb from the x86_64 build's
# wizard_demo. Defaults: build/x86_64/bin and docs/. Each DPI gets a Wine
# prefix of its own next to BIN_DIR (never ~/.wine).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bin="$(cd "${1:-$root/build/x86_64/bin}" && pwd)"
out="$(mkdir -p "${2:-$root/docs}" && cd "${2:-$root/docs}" && pwd)"

# Start again inside a virtual X server when none is given.
if [ -z "${QM_SHOTS_XVFB:-}" ]; then
  export QM_SHOTS_XVFB=1
  exec xvfb-run -a -s "-screen 0 1024x768x24 -br" bash "$0" "$bin" "$out"
fi

demo="$bin/wizard_demo.exe"
[ -f "$demo" ] || { echo "wizard_demo.exe not built in $bin" >&2; exit 1; }
pages=(welcome agreement folder group ready finished finished-restart finished-portable)

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
# The agreement page reads agreement.txt from the current folder.
cp "$root/package/agreement.txt" "$work/agreement.txt" 2>/dev/null ||
  printf 'S\0a\0m\0p\0l\0e\0 \0a\0g\0r\0e\0e\0m\0e\0n\0t\0\r\0\n\0' > "$work/agreement.txt"

export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d"
for dpi in 96 144; do
  export WINEPREFIX="$(dirname "$bin")/shots-prefix-$dpi"
  bash "$root/scripts/make-prefix.sh" "$WINEPREFIX" x86_64
  # No window manager runs under Xvfb: let Wine draw the caption itself.
  wine reg add 'HKCU\Software\Wine\X11 Driver' /v Decorated /d N /f >/dev/null 2>&1
  wine reg add 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d "$dpi" /f >/dev/null 2>&1
  wineserver -w
  # One server for the whole set, started before the first shot so that the
  # first page does not wait on Wine's start-up.
  wineserver -p
  wine cmd /c exit >/dev/null 2>&1 || true
  suffix=""; [ "$dpi" = 96 ] || suffix="-${dpi}dpi"
  for page in "${pages[@]}"; do
    (cd "$work" && wine "$demo" "$page" 6) &
    demo_pid=$!
    sleep 3
    shot="$out/wizard-$page$suffix.png"
    import -window root "$shot"
    # Keep only the window: the root background is black.
    convert "$shot" -trim +repage "$shot"
    wait "$demo_pid" || echo "wizard_demo $page ended with $?" >&2
  done
  wineserver -k 2>/dev/null || true
done
ls -1 "$out"/wizard-*.png
