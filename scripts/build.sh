#!/usr/bin/env bash
# build.sh [i686|x86_64]... — configures and builds the given architectures
# (both by default) into build/<arch>. Extra: BUILD_ROOT, CMAKE_ARGS, TARGETS.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_root="${BUILD_ROOT:-$root/build}"
archs=("$@"); [ ${#archs[@]} -gt 0 ] || archs=(i686 x86_64)
for arch in "${archs[@]}"; do
  dir="$build_root/$arch"
  cmake -S "$root" -B "$dir" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-$arch.cmake" ${CMAKE_ARGS:-} >/dev/null
  cmake --build "$dir" ${TARGETS:+--target $TARGETS}
done
