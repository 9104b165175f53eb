#!/usr/bin/env bash
# Runs the page-walk window test again at 144 DPI, in a prefix of its own
# (LogPixels is per user and would change every other window test): the
# pages must still sit beside the picture and above the buttons.
set -euo pipefail
: "${QM_BIN_DIR:?}" "${QM_SOURCE_DIR:?}"
export WINEPREFIX="$(dirname "$QM_BIN_DIR")/wineprefix-dpi144"
bash "$QM_SOURCE_DIR/scripts/make-prefix.sh" "$WINEPREFIX" x86_64
wine reg add 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d 144 /f >/dev/null 2>&1
wineserver -w
status=0
wine "$QM_BIN_DIR/wizard_window_tests.exe" \
  --gtest_filter='SetupFrameTest.DefaultWalk*:SetupFrameTest.FinishedPageBox*' || status=$?
wineserver -k 2>/dev/null || true
exit $status
