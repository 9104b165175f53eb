// The action log of "-log=<file>": one UTF-8 line per action, with a local
// timestamp, appended to a file that setup, the uninstaller and its removal
// worker share. Without an open log every call here does nothing, so a run
// without the option, or with a log that cannot be opened, is unchanged.
// The log is separate from the install journal and never changes it.
#pragma once
#include <windows.h>

#include <string>

// Opens path for appending (created if missing, shared with other writers).
// False when it cannot be opened; the run then goes on without a log.
bool OpenActionLog(const std::wstring& path);
// The full path of the open log; empty when none is open.
const std::wstring& ActionLogPath();

// Writes "yyyy-mm-dd hh:mm:ss.mmm text" as one line.
void LogAction(const std::wstring& text);
// Writes "text: failed, error N: <the system's text for N>".
void LogFailure(const std::wstring& text, DWORD error);
// Logs "text: ok" when ok is non-zero, else the failure with the last-error
// value (which is left as it was). Returns ok, so that it can wrap a call:
// LogResult(::DeleteFileW(path), L"delete file " + path).
BOOL LogResult(BOOL ok, const std::wstring& text);

// File and folder calls that log what they did. A file or folder that is not
// there to delete, or a folder that exists already, is no action and is not
// logged; every other failure is. Each returns what the system call returned.
BOOL LoggedDeleteFile(const std::wstring& path);
BOOL LoggedRemoveDirectory(const std::wstring& path);
BOOL LoggedCreateDirectory(const std::wstring& path);
BOOL LoggedCopyFile(const std::wstring& source, const std::wstring& target);

// The last line of a run: "outcome: <outcome>; restart needed: yes|no; exit code N".
void LogOutcomeLine(const std::wstring& outcome, bool restartNeeded, int exitCode);

// Logs a registry deletion's status: nothing for a key or value that was not
// there, else "delete registry <what>" with its outcome. Returns status.
LONG LogRegistryDeletion(LONG status, const std::wstring& what);

// "HKLM", "HKCU", "HKCR", "HKU" for the predefined roots, else "(key)".
const wchar_t* RootName(HKEY root);
