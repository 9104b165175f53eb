// Paths: whether one exists, how a folder and a name are joined, a path's
// parent, and the lower-casing by which paths and names are compared.
#pragma once
#include <string>

// True when path names an existing file or folder (its attributes can be
// read); false for an empty path.
bool PathExists(const std::wstring& path);
// folder with a backslash appended unless it ends in '\' or '/'; "\" when empty.
std::wstring JoinFolder(const std::wstring& folder);
// name inside folder: JoinFolder(folder) + name.
std::wstring JoinPath(const std::wstring& folder, const std::wstring& name);
// The folder that holds path: one trailing backslash dropped, then
// everything from the last backslash on; empty when there is none.
std::wstring ParentFolder(std::wstring path);
// text lower-cased by the system's rules (CharLowerBuffW), as paths and names
// are compared.
std::wstring LowerCase(std::wstring text);
