// Removal of an installation over its journals and the product's known places.
#pragma once
#include <string>

// Removes the installation in installFolder (ending in a backslash). Silent;
// whatever cannot go now is scheduled for deletion at the next restart.
void UninstallProcedure(const std::wstring& installFolder);
// Deletes the files of folder matching pattern (wildcards; may begin with a
// relative sub-folder). Files in use are scheduled for deletion at restart.
// Returns the number deleted at once.
int DeleteMatchingFiles(const std::wstring& folder, const std::wstring& pattern);
// File pass then "Make Dir: " pass of logPath. onlyPrefix null: all six file
// kinds; otherwise only that kind in the file pass.
void RemoveLoggedFiles(const std::wstring& logPath, const std::wstring& installFolder,
                       const wchar_t* onlyPrefix);
// "Shell Link: " pass then "Made Dir: " pass of logPath.
void RemoveLoggedLinks(const std::wstring& logPath);
