#!/usr/bin/env bash
# pkglint on the demo package (no finding, exit 0), on one with a product of
# major version 0, and on a broken package whose script carries one fault a
# line: each reported on its line, nothing else reported, exit code 1.
set -euo pipefail
source "$QM_SOURCE_DIR/tests/e2e/e2e_lib.sh"

lint() {  # lint PACKAGE: findings in $out, exit code in $rc
  rc=0
  out=$(wine "$QM_BIN_DIR/pkglint.exe" "$(winpath "$1")" 2>/dev/null | tr -d '\r') || rc=$?
}

make_package "$work/demo"
lint "$work/demo"
expect_eq "demo package: no finding" "" "$out"
expect_eq "demo package: exit code" 0 "$rc"

make_package "$work/zero" 0.9.0.0
lint "$work/zero"
expect_eq "major version 0" "Qmkview8.exe: error: has the major version 0: setup would call the package damaged" "$out"
expect_eq "major version 0: exit code" 1 "$rc"

broken="$work/broken"
make_package "$broken" noversion
printf 'plain 8-bit text\r\n' >"$broken/agreement.txt"
printf '%s\r\n' \
  '; a comment, and an entry that is right:' \
  'File Copy: Qmkview8.exe' \
  'File Copy: missing.dll' \
  'File Copy: *.zzz' \
  'File Copy: x*' \
  'File Copy: Thumb*.dll > Thumb.dll' \
  'file copy: ThumbDqm32.dll' \
  'File Copy:' \
  ' File Copy: ThumbDqm32.dll' \
  "File Copy: $(printf 'a%.0s' {1..600})" \
  "File Copy: Handbuch f$(printf '\xc3\xbc')r.chm" \
  'Make Dir: x64' \
  'Make Dir: x64\sub' \
  'Shell Link: C:\Users\Public\Desktop\Other.lnk' >"$broken/QmkUnInst.log"
lint "$broken"
expected=(
  'QmkUnInst.log:3: error: "missing.dll" is not in the package'
  'QmkUnInst.log:4: error: "*.zzz" matches nothing in the package'
  'QmkUnInst.log:5: error: "x*" meets the folder "x64": setup'"'"'s copy of this entry stops there'
  'QmkUnInst.log:6: error: a renaming entry names one file'
  'QmkUnInst.log:7: error: setup ignores this line (the kind is written in another case)'
  'QmkUnInst.log:8: error: setup ignores this line (it holds the kind alone, with no name)'
  'QmkUnInst.log:9: error: setup ignores this line (it begins with a blank)'
  'QmkUnInst.log:10: error: longer than the 511 characters setup reads at a time'
  'QmkUnInst.log:10: error: "aaaa'
  'QmkUnInst.log:11: error: holds UTF-8 text'
  'QmkUnInst.log:11: error: "Handbuch fÃ¼r.chm" is not in the package'
  'QmkUnInst.log:12: warning: "x64" is listed before its sub-folder "x64\sub" (line 13)'
  'QmkUnInst.log:14: warning: "Shell Link: " lines are setup'"'"'s own journal lines'
  'QmkUnInst.log: error: no "File Copy: " entry installs QmkUnInst.exe'
  'Qmkview8.exe: error: has no version resource'
  'agreement.txt: error: is not UTF-16LE text'
)
for finding in "${expected[@]}"; do check "reported: $finding" grep -qF "$finding" <<<"$out"; done
expect_eq "nothing else reported" "${#expected[@]}" "$(grep -c . <<<"$out")"
expect_eq "broken package: exit code" 1 "$rc"
[ "$failures" -eq 0 ] || printf '%s\n' "$out" | sed 's/^/  | /'
finish
