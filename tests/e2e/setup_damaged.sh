#!/usr/bin/env bash
# A damaged package (no install script, or a product executable without a
# version) is refused: string 18 in a real message box, the maker's home page
# opened, exit code 1, and nothing installed.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

homepage=$(sed -n 's/^set(QM_HOMEPAGE "\([^"]*\)".*/\1/p' "$QM_SOURCE_DIR/CMakeLists.txt")
expected_text="This setup files are damaged, installation aborted.

Please download the product again from $homepage and re-try the setup."
snapshot before

refused() {  # refused WHAT PACKAGE-DIR: setup -s is refused, with nothing installed
  local what="$1" package="$2" text
  : >"$trace"
  (cd "$plant_cwd" && WINEDEBUG=-all,trace+process WINEDLLOVERRIDES="$WINEDLLOVERRIDES;$plant_overrides" exec wine "$package/setup.exe" -s 2>"$work/$what.log") &
  local job=$!
  text=$(answer 1)
  rc=0; wait "$job" || rc=$?
  timeout 300 wineserver -w || true
  expect_eq "$what: message" "$expected_text" "$text"
  expect_eq "$what: exit code" 1 "$rc"
  check "$what: home page opened" grep -qF "$homepage" <(command_lines "$work/$what.log")
  expect_eq "$what: product not started" "" "$(cat "$trace")"
  snapshot "$what"
  expect_eq "$what: nothing installed" "" "$(snapshot_diff before "$what")"
}

make_package "$work/no-script" 8.5.3.0
rm "$work/no-script/QmkUnInst.log"
refused no-script "$work/no-script"

make_package "$work/no-version" noversion
refused no-version "$work/no-version"
finish
