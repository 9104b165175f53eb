// Finding the product's main window of a process, and closing running copies.
#pragma once
#include <windows.h>

class COXInstanceManager;

// wParam of the WM_CLOSE that asks the product to close without asking.
inline constexpr WPARAM kCloseWithoutAskingParam = 1001;

// The top-level, unowned, non-tool window of processId whose title begins
// with the product word, kProductWord (and is neither "DDE Server Window" nor
// "OleMainThreadWndName"); null when there is none.
HWND FindProcessMainWindow(DWORD processId);
// Posts WM_CLOSE to that window; FALSE when none is found or it is disabled.
BOOL CloseProcessWindow(DWORD processId);
// Brings the main window of processId to the foreground, restoring it when
// minimised; does nothing when the process has no such window.
void BringProcessWindowForward(DWORD processId);
// The pause between a copy's close request and its termination (Sleep; a
// seam so that tests can watch the request arrive).
extern void(WINAPI* pSweepPause)(DWORD milliseconds);
// The sweep: asks each of the first otherCopies registered processes (this
// one skipped) to close with WM_CLOSE wParam 1001, then terminates it.
// Stops early when the list holds fewer ids than otherCopies.
void CloseRunningCopies(COXInstanceManager& registry, int otherCopies);
