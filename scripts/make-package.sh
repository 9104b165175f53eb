#!/usr/bin/env bash
# make-package.sh OUTDIR [VERSION] — assembles the demo package in OUTDIR:
# setup.exe and the 32-bit thumbnail extensions of the i686 tree, the 64-bit
# extension x64\ThumbDqm64.dll of the x86_64 tree, the stand-in product of
# VERSION (default 8.5.3.0; "noversion" for the build without a version
# resource), and the package's own files (install script QmkUnInst.log,
# agreement.txt, the help file).
# Trees: BUILD_ROOT (default build/), or QM_PKG_TREE32 / QM_PKG_TREE64 for
# single build trees (each tree also holds the other word size's extension).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_root="${BUILD_ROOT:-$root/build}"
tree32="${QM_PKG_TREE32:-$build_root/i686}"
tree64="${QM_PKG_TREE64:-$build_root/x86_64}"
[ $# -ge 1 ] || { echo "usage: make-package.sh OUTDIR [VERSION]" >&2; exit 2; }
out="$1"; version="${2:-8.5.3.0}"

pick() {  # the first existing file of the arguments
  local candidate
  for candidate in "$@"; do
    [ -f "$candidate" ] && { printf '%s\n' "$candidate"; return 0; }
  done
  echo "make-package: missing, looked for: $*" >&2
  return 1
}

case "$version" in
  noversion) product_dir=standin-noversion ;;
  *.*.*.*) product_dir="standin-$version" ;;
  *) echo "make-package: version must be M.m.r.b or noversion" >&2; exit 2 ;;
esac

setup=$(pick "$tree32/bin/setup.exe")
product=$(pick "$tree32/bin/$product_dir/Qmkview8.exe")
thumb32=$(pick "$tree32/bin/ThumbDqm32.dll")
thumbxp=$(pick "$tree32/bin/ThumbDqmXP32.dll")
thumb64=$(pick "$tree64/bin/x64/ThumbDqm64.dll" "$tree32/bin/x64/ThumbDqm64.dll")

mkdir -p "$out/x64"
cp -f "$setup" "$out/setup.exe"
cp -f "$product" "$out/Qmkview8.exe"
cp -f "$thumb32" "$out/ThumbDqm32.dll"
cp -f "$thumbxp" "$out/ThumbDqmXP32.dll"
cp -f "$thumb64" "$out/x64/ThumbDqm64.dll"
for file in QmkUnInst.log agreement.txt Qmkview8Man.chm; do
  cp -f "$root/package/$file" "$out/$file"
done
echo "package $version: $out"
