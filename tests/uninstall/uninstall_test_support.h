// Helpers of the removal tests: the system's pending restart operations and
// small registry probes.
#pragma once
#include <windows.h>

#include <string>
#include <vector>

namespace uninstalltest {

// Sources of the pending deletions at restart (PendingFileRenameOperations
// entries without a target, and WININIT.INI "NUL=" lines), as plain paths.
std::vector<std::wstring> PendingDeletions();
// True when path (compared without case, "\\" runs collapsed) is pending deletion.
bool IsPendingDeletion(const std::wstring& path);
// Number of pending deletions at or below folder.
size_t PendingDeletionsUnder(const std::wstring& folder);
// Drops every pending operation whose source lies at or below folder.
void ForgetPendingUnder(const std::wstring& folder);

// Creates root\path (in the given registry view) with one string value "v".
bool MakeKey(HKEY root, const std::wstring& path, REGSAM view = 0);
bool KeyExists(HKEY root, const std::wstring& path, REGSAM view = 0);
// Removes root\path with everything below it; no error when missing.
void DropKey(HKEY root, const std::wstring& path, REGSAM view = 0);
bool SetString(HKEY root, const std::wstring& path, const wchar_t* name, const std::wstring& value);
// The string value, or "<missing>".
std::wstring GetString(HKEY root, const std::wstring& path, const wchar_t* name);

}  // namespace uninstalltest
