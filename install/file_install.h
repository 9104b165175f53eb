// Copying the package's files as its install script directs.
#pragma once
#include <string>

// Acts on the file and "Make Dir: " entries of the script; single failures do
// not stop the pass. A script that cannot be opened does nothing.
void RunInstallScript(const std::wstring& scriptPath);
// Copies the files of sourceFolder matching pattern into targetFolder (keeping
// a sub-folder of the pattern); stops at the first file that fails. Returns
// the number copied (0 also when nothing matches).
int CopyMatchingFiles(const std::wstring& pattern, const std::wstring& sourceFolder,
                      const std::wstring& targetFolder);
// Copies one file, renaming or deferring a target in use. targetName null keeps
// the name. Non-zero on success; 0 when the source is missing or the final
// copy fails (also after a replacement was deferred to the next restart).
int InstallOneFile(const wchar_t* name, const std::wstring& sourceFolder,
                   const std::wstring& targetFolder, const wchar_t* targetName);
