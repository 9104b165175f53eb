#!/usr/bin/env bash
# A damaged package (no install script, or a product executable without a
# version) is refused: string 18 in a real message box, the maker's home page
# opened, exit code 1, and nothing installed.
set -euo pipefail
source "$(dirname "$0")/e2e_lib.sh"

snapshot before
refused() {  # refused WHAT PACKAGE-DIR: setup -s is refused, with nothing installed
  : >"$trace"
  WINEDEBUG=-all,trace+process planted_wine "$2/setup.exe" -s 2>"$work/$1.log" &
  local job=$!
  expect_eq "$1: message" "This setup files are damaged, installation aborted.

Please download the product again from $homepage and re-try the setup." "$(answer 1)"
  wait "$job" && rc=0 || rc=$?
  timeout 300 wineserver -w || true
  expect_eq "$1: exit code" 1 "$rc"
  check "$1: home page opened" grep -qF "$homepage" <(command_lines "$work/$1.log")
  expect_eq "$1: product not started" "" "$(cat "$trace")"
  snapshot "$1"
  expect_eq "$1: nothing installed" "" "$(snapshot_diff before "$1")"
}

make_package "$work/no-script" 8.5.3.0
rm "$work/no-script/QmkUnInst.log"
refused no-script "$work/no-script"
make_package "$work/no-version" noversion
refused no-version "$work/no-version"
finish
