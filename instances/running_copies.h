// Finding the product's main window of a process, and closing running copies.
#pragma once
#include <windows.h>

class COXInstanceManager;

// The top-level, unowned, non-tool window of processId whose title begins
// with "Quillmark"; null when there is none.
HWND FindProcessMainWindow(DWORD processId);
// Posts WM_CLOSE to that window; FALSE when none is found or it is disabled.
BOOL CloseProcessWindow(DWORD processId);
// The sweep: asks each of the first otherCopies registered processes (this
// one skipped) to close with WM_CLOSE wParam 1001, then terminates it.
void CloseRunningCopies(COXInstanceManager& registry, int otherCopies);
