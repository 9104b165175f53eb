#!/usr/bin/env bash
# A file locked against renaming is replaced by its ".new" copy when Wine
# restarts: phase 1 queues the replacement, phase 2 finds it done.
set -euo pipefail
program="$QM_BIN_DIR/install_restart_phases.exe"
wine "$program" --gtest_filter='*Phase1*'
wineserver -w
wine wineboot -r >/dev/null 2>&1
wineserver -w
wine "$program" --gtest_filter='*Phase2*'
