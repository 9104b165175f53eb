// Helpers shared by the test programs.
#pragma once
#include <windows.h>
#include <string>
#include <vector>

namespace qmtest {

// Folder of the running test program (where setup.exe and the fixture
// programs are built too), without a trailing backslash.
std::wstring BinDir();
// A new empty folder under the temporary folder, removed with its content on
// destruction. name may hold blanks or any characters a test wants.
class TempDir {
 public:
  explicit TempDir(const std::wstring& name = L"qmtest");
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::wstring& path() const { return path_; }
  std::wstring operator/(const std::wstring& relative) const { return path_ + L"\\" + relative; }

 private:
  std::wstring path_;
};
// Removes a folder tree (files made writable first); true when it is gone.
bool RemoveTree(const std::wstring& path);
bool FileExists(const std::wstring& path);
bool DirExists(const std::wstring& path);
// Writes bytes / reads a whole file.
bool WriteFileBytes(const std::wstring& path, const std::string& bytes);
std::string ReadFileBytes(const std::wstring& path);
std::wstring Widen(const std::string& utf8);
std::string Narrow(const std::wstring& text);

// Starts a program (quoted by the caller as needed) and waits up to timeoutMs
// for it; returns its exit code, or -1 when it did not start, -2 on timeout
// (the process is then terminated).
int RunProcess(const std::wstring& commandLine, DWORD timeoutMs = 60000,
               const wchar_t* workingFolder = nullptr);

// Records every message box the program would show and answers from a queue
// (IDOK when the queue is empty). Installed for the object's lifetime.
class MessageBoxRecorder {
 public:
  MessageBoxRecorder();
  ~MessageBoxRecorder();
  void Answer(int button) { answers_.push_back(button); }
  struct Shown { std::wstring text; UINT style; };
  const std::vector<Shown>& shown() const { return shown_; }

 private:
  std::vector<int> answers_;
  std::vector<Shown> shown_;
};

}  // namespace qmtest
