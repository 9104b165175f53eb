#!/usr/bin/env bash
# Installs the cross toolchain, Wine (with the 32-bit DLLs for WoW64 mode),
# Xvfb, the single file's cabinet and signing tools (gcab, osslsigncode,
# openssl) and the other Debian tools the build and the tests need.
# Idempotent; safe to run on every build. Needs root (or sudo).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
cache="${QM_CACHE:-$here/../.cache}"
SUDO=""; [ "$(id -u)" = 0 ] || SUDO=sudo
export DEBIAN_FRONTEND=noninteractive

pkgs=(cmake ninja-build googletest
      g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix binutils-mingw-w64
      wine wine64 xvfb xauth xdotool imagemagick python3 file
      gcab osslsigncode openssl)
missing=()
for p in "${pkgs[@]}"; do dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p"); done
if ! dpkg --print-foreign-architectures | grep -qx i386; then
  $SUDO dpkg --add-architecture i386
  need_update=1
fi
if [ ${#missing[@]} -gt 0 ] || [ -n "${need_update:-}" ] || [ ! -d "$cache/libwine-i386" ]; then
  # An i386 index that fails to sync is tolerated: only libwine:i386 is taken from it.
  $SUDO apt-get update -q || true
fi
if [ ${#missing[@]} -gt 0 ]; then
  $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# Wine's 32-bit PE DLLs, unpacked beside the tree (wine32:i386 itself is not installable).
if [ ! -d "$cache/libwine-i386/usr/lib/i386-linux-gnu/wine" ]; then
  mkdir -p "$cache/dl"
  (cd "$cache/dl" && rm -f libwine_*i386.deb && apt-get download libwine:i386)
  rm -rf "$cache/libwine-i386"
  dpkg -x "$cache"/dl/libwine_*_i386.deb "$cache/libwine-i386"
fi
echo "deps ok: WINEDLLPATH=$cache/libwine-i386/usr/lib/i386-linux-gnu/wine"
