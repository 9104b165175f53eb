// Removal of an installation over its journals and the product's known places.
#pragma once
#include <string>

// Removes the installation in installFolder (ending in a backslash): the
// product's own unregistration, registry clean-up and association restore,
// both journals ("install.log" first), the journal itself, the x64, x32 and
// installation folders, and the product's shortcuts and program group in the
// shared shell folders and in every profile under HKEY_USERS. Silent; whatever
// cannot go now is scheduled for deletion at the next restart.
void UninstallProcedure(const std::wstring& installFolder);
// Deletes the entries of folder matching pattern (wildcards; may begin with a
// relative sub-folder such as "x64\"), read-only and hidden attributes
// cleared first. What cannot be deleted now (a file in use, a sub-folder) is
// scheduled for deletion at restart; "." and ".." are never touched.
// Returns the number deleted at once (0 when nothing matches).
int DeleteMatchingFiles(const std::wstring& folder, const std::wstring& pattern);
// File pass then "Make Dir: " pass of logPath. onlyPrefix null: all six file
// kinds; otherwise only that kind in the file pass. A "Make Dir: " folder
// that cannot be removed now is scheduled for the restart. Nothing happens
// when the log cannot be opened.
void RemoveLoggedFiles(const std::wstring& logPath, const std::wstring& installFolder,
                       const wchar_t* onlyPrefix);
// "Shell Link: " pass then "Made Dir: " pass of logPath: shortcut files
// deleted, logged folders removed with every parent that became empty.
// Nothing happens when the log cannot be opened.
void RemoveLoggedLinks(const std::wstring& logPath);
