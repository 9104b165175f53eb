// Helpers of the application tests: the texts the roles show, the system's
// pending file operations, processes started and found, and an installed copy.
#pragma once
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace apptest {

inline const std::wstring kConfirmText = L"This will completely uninstall Quillmark 8.\nDo you want to continue?";
inline const std::wstring kOneCopyText =
    L"1 instance of Quillmark is currently opened. If you click \"Yes\" button, SETUP will try to close it "
    L"without saving any editing work you may have done. \n\nContinue installation?";
inline std::wstring CopiesText(int count) {
  return std::to_wstring(count) +
         L" instances of Quillmark are currently opened. ff you click \"Yes\" button, SETUP will try to close "
         L"them without saving any editing work you may have done. \n\nContinue installation?";
}
inline const std::wstring kAbortedText =
    L"Setup of Quillmark aborted. Please close other instances of Quillmark manually, saving any editing "
    L"work you have done in them, then restart this setup program.";

// PendingFileRenameOperations as stored: source, target, ...; an empty target means deletion.
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
// The first child of parentId, looked for during up to timeoutMs; process.valid() is false when none came.
Started WaitForChild(DWORD parentId, DWORD timeoutMs);
// Polls done() every 50 ms; false when it still fails after timeoutMs.
bool WaitUntil(const std::function<bool()>& done, DWORD timeoutMs);
// Exit code after at most timeoutMs; -2 when still running then.
int WaitForExit(HANDLE process, DWORD timeoutMs);
// Ids of the processes whose parent is parentId.
std::vector<DWORD> ChildrenOf(DWORD parentId);
// Full path of a running process's image; empty when unknown.
std::wstring ProcessImagePath(HANDLE process);

// QM_TRACE_FILE pointing at a fresh file while this lives: the stand-in
// product writes what happens to it there.
class TraceFile {
 public:
  TraceFile();
  ~TraceFile();
  std::string Read() const { return qmtest::ReadFileBytes(path_); }
  bool Has(const std::string& part) const { return Read().find(part) != std::string::npos; }

 private:
  qmtest::TempDir dir_;
  std::wstring path_;
};

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
  bool Gone() const { return !qmtest::DirExists(folder_) && !qmtest::FileExists(folder_); }

 private:
  qmtest::TempDir root_;
  std::wstring folder_;
};

}  // namespace apptest
