// Facts about the machine: shell folders, the Windows version, WOW64, the
// program-files folder and the parent process. Stateless but for the version
// record and the late-bound functions, filled during static initialisation.
#pragma once
#include <windows.h>
#include <string>

// The process-wide version record (size field 284). Zero when RtlGetVersion is
// unavailable, so every version test then sees an XP-class machine. Tests may
// overwrite its major and minor fields to play another Windows version.
extern OSVERSIONINFOEXW windowsVersion;

// Late-bound optional functions; each is null when the system lacks it.
using IsWow64ProcessFn = BOOL(WINAPI*)(HANDLE, PBOOL);
extern IsWow64ProcessFn pIsWow64Process;

// Path of a shell folder by CSIDL number (created when missing); on failure the
// registry's Shell Folders value for it; empty when neither is known.
std::wstring ShellFolderPath(int csidl);
// Fills record through RtlGetVersion; FALSE (record left zero) when unavailable.
BOOL ReadWindowsVersion(OSVERSIONINFOEXW* record);
BOOL IsVistaOrLater();      // major version 6 or more
BOOL IsWindows8OrLater();   // above 6, or 6.2 and later
// 32-bit code on 64-bit Windows. Both ask pIsWow64Process, looked up once;
// FALSE when the system lacks it.
BOOL IsWow64();
BOOL IsProcessWow64(HANDLE process);  // null means the current process
// "ProgramFilesDir" of the machine, else the Windows drive's root plus
// "Program Files"; never ends in a backslash.
std::wstring ProgramFilesDir();
// Process id of the parent (0 if unknown); fills path with its image path when
// path and size are given.
DWORD ParentProcessId(wchar_t* path, DWORD size);

// The Shell Folders registry value that stands in for csidl when the shell
// cannot say (HKLM for the all-users folders, HKCU otherwise); empty if unset.
std::wstring ShellFolderFromRegistry(int csidl);
