// Token privileges and the restart of Windows.
#pragma once
#include <windows.h>

// Late-bound from the loaded advapi32 during static initialisation; null when missing.
using LookupPrivilegeValueFn = BOOL(WINAPI*)(LPCWSTR, LPCWSTR, PLUID);
using AdjustTokenPrivilegesFn = BOOL(WINAPI*)(HANDLE, BOOL, PTOKEN_PRIVILEGES, DWORD, PTOKEN_PRIVILEGES, PDWORD);
using OpenProcessTokenFn = BOOL(WINAPI*)(HANDLE, DWORD, PHANDLE);
extern LookupPrivilegeValueFn pLookupPrivilegeValue;
extern AdjustTokenPrivilegesFn pAdjustTokenPrivileges;
extern OpenProcessTokenFn pOpenProcessToken;

// Enables or disables one privilege in token. FALSE (after a console line on
// standard output) when the lookup or adjustment fails or the token lacks it.
BOOL SetTokenPrivilege(HANDLE token, const wchar_t* privilege, BOOL enable);
// Enables the shutdown privilege if it can and asks Windows to reboot.
// Failures are silent.
void RestartWindows();

// The call that really ends the session; tests replace it so that they never
// restart the machine they run on.
using ExitWindowsFn = BOOL(WINAPI*)(UINT, DWORD);
extern ExitWindowsFn pExitWindowsEx;
