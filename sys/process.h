// Starting child processes. A program is always named by its full path as the
// application: CreateProcessW then searches nowhere, where a bare or unquoted
// command line would try the current folder, the program's own folder, PATH,
// and "C:\Program.exe" for "C:\Program Files\...".
#pragma once
#include <windows.h>

#include <string>

#include "sys/handles.h"

// Starts application (an absolute path) with commandLine as the text the
// program receives, in workingFolder (null: this process's current folder).
// The process handle; an empty owner when application is not absolute or the
// start failed (GetLastError tells why).
UniqueHandle StartProcess(const std::wstring& application, const std::wstring& commandLine,
                          const wchar_t* workingFolder);

// Starts application (a full path: nothing is searched for) with commandLine
// (at most 519 characters are passed on) in workingFolder (installDir when
// null); waits up to timeoutMs (0: no wait). Non-zero when the process was
// started.
BOOL RunAndWait(const wchar_t* application, const wchar_t* commandLine, const wchar_t* workingFolder,
                DWORD timeoutMs);

// True for "X:\..." and "\\server\..." paths.
bool IsAbsolutePath(const std::wstring& path);
