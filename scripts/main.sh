#!/usr/bin/env bash
# main.sh — on a fresh Debian machine (as root): installs the tools, builds
# both architectures, assembles the demo package, turns it into the single
# download file (build/Quillmark8Setup.exe), installs from that file under
# Wine in a prefix of its own (build/demo-prefix), shows what the install
# made, and tells how to remove it again.
#
# With a display ($DISPLAY set) the install runs through the wizard; without
# one it runs unattended ("Quillmark8Setup.exe -s"). Extra: BUILD_ROOT
# (default build/); the signing variables of scripts/make-single-file.sh.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_root="${BUILD_ROOT:-$root/build}"
export BUILD_ROOT="$build_root"

say() { printf '\n== %s\n' "$*"; }

say "Tools (cross compilers, Wine, CMake)"
bash "$root/scripts/install-deps.sh"

say "Build: i686 (the shipped setup.exe) and x86_64"
bash "$root/scripts/build.sh" i686 x86_64

package="$build_root/package"
say "Package: $package"
bash "$root/scripts/make-package.sh" "$package" 8.5.3.0

export WINEPREFIX="$build_root/demo-prefix"
export WINEDLLPATH="${QM_CACHE:-$root/.cache}/libwine-i386/usr/lib/i386-linux-gnu/wine"
export WINEDEBUG=-all
# No crash dialog (Wine's 32-bit regsvr32 crashes on the 64-bit thumbnail
# extension, see below) and no menu entries on this machine.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
say "Wine prefix: $WINEPREFIX (made anew)"
rm -rf "$WINEPREFIX"
if [ -n "${DISPLAY:-}" ]; then
  bash "$root/scripts/make-prefix.sh" "$WINEPREFIX" x86_64
else
  bash "$root/scripts/make-prefix.sh" "$WINEPREFIX" i686
fi
# A kernel that runs no 32-bit code runs no 32-bit Windows program either:
# there the x86_64 build of the same code stands in for the shipped one.
use64="${DISPLAY:+1}"
if [ -z "$use64" ] && ! bash "$root/scripts/runs-32bit.sh" "$WINEPREFIX"; then
  echo "NOTE: this kernel runs no 32-bit programs: the x86_64 build installs instead"
  use64=1
fi

single="$build_root/Quillmark8Setup.exe"
say "Single file: $single"
bash "$root/scripts/make-single-file.sh" "$package" "$single"

status=0
if [ -n "$use64" ]; then
  # Wine 8's WoW64 mode has only the null graphics driver for 32-bit programs:
  # the shipped 32-bit setup.exe would run its wizard invisibly. The single
  # file made of the x86_64 build of the same code shows the wizard. As a
  # 64-bit program setup installs into "C:\Program Files" and, not running
  # under WOW64, skips the "File Copy x64:" entries and registers
  # ThumbDqm32.dll; the unattended 32-bit run (no $DISPLAY) is the shipped case.
  QM_PKG_TREE32="$build_root/x86_64" bash "$root/scripts/make-package.sh" "$build_root/package-x64" 8.5.3.0
  QM_SFX_TREE="$build_root/x86_64" bash "$root/scripts/make-single-file.sh" \
    "$build_root/package-x64" "$build_root/x64/Quillmark8Setup.exe"
  say "Install: the wizard (x64/Quillmark8Setup.exe) — follow its pages"
  wine "$build_root/x64/Quillmark8Setup.exe" || status=$?
else
  say "Install: unattended, Quillmark8Setup.exe -s (no display)"
  echo "(setup registers x64\ThumbDqm64.dll with regsvr32: Wine's 32-bit regsvr32"
  echo " crashes on a 64-bit DLL, where Windows hands it to its 64-bit regsvr32;"
  echo " a \"page fault ... starting debugger\" line from it is expected.)"
  timeout 600 wine "$single" -s || status=$?
fi
wineserver -w
if [ "$status" -ne 0 ]; then
  echo "setup ended with exit code $status (1: cancelled or damaged package); nothing to show."
  exit "$status"
fi

reg_data() {  # reg_data KEY VALUE: the data in either registry view
  local view
  for view in 32 64; do
    wine reg query "$1" /reg:$view /v "$2" 2>/dev/null | tr -d '\r' |
      sed -n 's/^    .*    REG_[A-Z_]*    //p' | grep . && return 0
  done
  return 0
}
vendor='HKLM\Software\Lanternfold\Quillmark 8'
install_dir=$(reg_data "$vendor" Path | head -n1)
[ -n "$install_dir" ] || install_dir=$(reg_data 'HKLM\Software\Microsoft\Windows\CurrentVersion\App Paths\Qmkview8.exe' Path | head -n1)
if [ -z "$install_dir" ]; then
  echo "No installation found in the registry (a portable installation writes none)."
  exit 0
fi
host_dir="$WINEPREFIX/drive_c/${install_dir#C:\\}"
host_dir="${host_dir//\\//}"

say "Installed files in $install_dir"
(cd "$host_dir" && find . -type f -printf '  %-28P %8s bytes\n' | sort)

say "Shortcuts (the journal's \"Shell Link: \" entries)"
probe="$build_root/i686/bin/e2e_probe.exe"
tr -d '\r' <"$host_dir/QmkUnInst.log" | sed -n 's/^Shell Link: //p' | while IFS= read -r link; do
  host_link="$WINEPREFIX/drive_c/${link#C:\\}"; host_link="${host_link//\\//}"
  if [ -f "$host_link" ]; then
    target=""
    [ -f "$probe" ] && target=$(wine "$probe" resolve "$link" 2>/dev/null | tr -d '\r' | head -n1)
    printf '  %s\n      -> %s\n' "$link" "${target:-(present)}"
  else
    printf '  %s (missing)\n' "$link"
  fi
done

say "Registry entries"
for key in "$vendor" \
           'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\Quillmark 8' \
           'HKLM\Software\Microsoft\Windows\CurrentVersion\App Paths\Qmkview8.exe' \
           'HKCR\Quillmark.8\shell\open\command' \
           'HKCR\Applications\Qmkview8.exe\shell\open\command'; do
  for view in 32 64; do
    if out=$(wine reg query "$key" /reg:$view /s 2>/dev/null | tr -d '\r'); then
      printf '%s\n' "$out" | sed 's/^/  /'
      break
    fi
  done
done

say "Wine's list of installed programs (wine uninstaller --list)"
wine uninstaller --list 2>/dev/null | tr -d '\r' | sed 's/^/  /'
wineserver -w

say "To remove it again"
cat <<EOF
  WINEPREFIX="$WINEPREFIX" WINEDLLPATH="$WINEDLLPATH" \\
    wine "$install_dir\\QmkUnInst.exe"
  (add -v to be asked first; or pick "Quillmark 8" in: WINEPREFIX="$WINEPREFIX" wine uninstaller)
The uninstaller copies itself to the temporary folder and that copy removes
every file, folder, shortcut and registry entry listed above; its own copy is
deleted when the prefix next starts.
EOF
