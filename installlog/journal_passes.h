// The passes over a journal that remove what it names: the removal walks the
// installation's journals with them, and the install run clears what an
// earlier installation left in the same folder.
#pragma once
#include <string>

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
