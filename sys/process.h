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

// True for "X:\..." and "\\server\..." paths.
bool IsAbsolutePath(const std::wstring& path);
