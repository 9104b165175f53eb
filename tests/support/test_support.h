// Helpers shared by the test programs.
#pragma once
#include <windows.h>
#include <string>
#include <vector>

#include "product/settings.h"
#include "sys/platform.h"

namespace qmtest {

// Folder of the running test program (where setup.exe and the fixture
// programs are built too), without a trailing backslash.
std::wstring BinDir();
// Full path of the running test program.
std::wstring SelfPath();
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
bool FileExists(const std::wstring& path);
bool DirExists(const std::wstring& path);
// Writes bytes (the folders are made) / reads a whole file ("" when missing).
bool WriteFileBytes(const std::wstring& path, const std::string& bytes);
std::string ReadFileBytes(const std::wstring& path);
std::string Narrow(const std::wstring& text);

// PendingFileRenameOperations: the index of the operation that moves source
// to target (an empty target: deletion), or -1. Paths compare without case.
int PendingIndex(const std::wstring& source, const std::wstring& target = L"");
// Number of pending operations whose source lies in or below folder.
size_t PendingUnder(const std::wstring& folder);

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

// Puts installSettings and the Windows version record back on destruction.
class SettingsRestorer {
 public:
  ~SettingsRestorer() {
    installSettings = settings_;
    windowsVersion = version_;
  }

 private:
  InstallSettings settings_ = installSettings;
  OSVERSIONINFOEXW version_ = windowsVersion;
};

// Plays Windows major.minor in the version record.
inline void PlayWindows(DWORD major, DWORD minor) {
  windowsVersion.dwMajorVersion = major;
  windowsVersion.dwMinorVersion = minor;
}

}  // namespace qmtest
