#!/usr/bin/env bash
# make-prefix.sh PREFIX ARCH — creates the disposable Wine prefix that the
# tests of one build tree share (never ~/.wine). Reused when already made.
set -euo pipefail
prefix="$1"; arch="${2:-x86_64}"
export WINEPREFIX="$prefix" WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d;winedbg.exe=d;winebrowser.exe=d"
[ -f "$prefix/.qm-ready" ] && exit 0
case "$prefix" in "$HOME/.wine"|"$HOME/.wine/") echo "refusing to use ~/.wine" >&2; exit 1;; esac
rm -rf "$prefix"; mkdir -p "$prefix"
wine wineboot -i >/dev/null 2>&1 || true
wineserver -w
if [ "$arch" = i686 ] || [ -z "${DISPLAY:-}" ]; then
  # Wine 8's WoW64 mode has no X11 driver for 32-bit programs; windows still
  # exist and can be driven with the null driver.
  for attempt in 1 2 3; do
    wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1 && break
    sleep 2
  done
fi
# A fresh prefix links Desktop, Pictures and the like to $HOME: give the tests
# real folders inside the prefix instead.
for user_dir in "$prefix"/drive_c/users/*/; do
  for link in "$user_dir"*; do
    if [ -L "$link" ]; then rm -f "$link"; mkdir -p "$link"; fi
  done
done
wineserver -w
touch "$prefix/.qm-ready"
