// Helpers of the application tests: the system's pending file operations,
// processes started and found, and an installed copy of the program.
#pragma once
#include <windows.h>

#include <string>
#include <vector>

#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace apptest {

// PendingFileRenameOperations as stored: source, target, source, target...;
// an empty target means deletion.
std::vector<std::wstring> PendingOperations();
// Index of the pair whose source is path (in the "\??\" form), or -1.
int FindPending(const std::vector<std::wstring>& entries, const std::wstring& path);
// Takes the pairs with these sources out again, so that the next start of the
// prefix does not act on them.
void ForgetPending(const std::vector<std::wstring>& sources);
bool SamePath(const std::wstring& a, const std::wstring& b);

// A started process; one still running when this goes is ended with all it
// started, so that a failing test leaves nothing behind.
struct Started {
  Started() = default;
  Started(Started&&) = default;
  ~Started();
  UniqueHandle process;
  DWORD id = 0;
};
// Starts commandLine in workingFolder (null: ours); process.valid() is false on failure.
Started StartProcess(const std::wstring& commandLine, const wchar_t* workingFolder = nullptr);
// Exit code after at most timeoutMs; -2 when still running then.
int WaitForExit(HANDLE process, DWORD timeoutMs);
// Processes whose parent is parentId, with their executable file names.
struct ProcessEntry {
  DWORD id;
  std::wstring exeName;
};
std::vector<ProcessEntry> ChildrenOf(DWORD parentId);
// Ends a process and, first, every process it started (a crashed program's
// debugger included), so that a failing test leaves nothing running.
void EndProcessTree(DWORD processId);
// Full path of a running process's image; empty when unknown.
std::wstring ProcessImagePath(HANDLE process);

std::wstring TempFolder();  // with a trailing backslash
// Names of the files of the temporary folder that match pattern.
std::vector<std::wstring> TempFilesMatching(const wchar_t* pattern);

// An installation as the install run leaves it, in a folder whose path holds
// blanks: QmkUnInst.exe (a copy of setup.exe), the product executable (the
// stand-in), a readme, an empty "data" folder and the journal naming them.
class InstalledCopy {
 public:
  InstalledCopy();
  const std::wstring& folder() const { return folder_; }  // no trailing backslash
  std::wstring uninstaller() const { return folder_ + L"\\QmkUnInst.exe"; }
  // Every file and folder of the installation is still there.
  bool Intact() const;
  // Nothing of the installation is left, not even its folder.
  bool Gone() const;

 private:
  qmtest::TempDir root_;
  std::wstring folder_;
};

}  // namespace apptest
