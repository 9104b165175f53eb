#include "tests/support/test_support.h"

#include <fstream>
#include <sstream>

#include "sys/handles.h"
#include "ui/message_box.h"

namespace qmtest {

std::wstring BinDir() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring text(path);
  return text.substr(0, text.find_last_of(L'\\'));
}

TempDir::TempDir(const std::wstring& name) {
  wchar_t temp[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, temp);
  static unsigned counter = 0;
  for (;;) {
    std::wstring candidate = std::wstring(temp) + name + L"." +
                             std::to_wstring(::GetCurrentProcessId()) + L"." +
                             std::to_wstring(++counter);
    if (::CreateDirectoryW(candidate.c_str(), nullptr)) {
      path_ = candidate;
      return;
    }
  }
}

TempDir::~TempDir() { RemoveTree(path_); }

bool RemoveTree(const std::wstring& path) {
  WIN32_FIND_DATAW data;
  UniqueFindHandle find(::FindFirstFileW((path + L"\\*").c_str(), &data));
  if (find) {
    do {
      std::wstring name = data.cFileName;
      if (name == L"." || name == L"..") continue;
      std::wstring full = path + L"\\" + name;
      ::SetFileAttributesW(full.c_str(), FILE_ATTRIBUTE_NORMAL);
      if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
        RemoveTree(full);
      else
        ::DeleteFileW(full.c_str());
    } while (::FindNextFileW(find.get(), &data));
  }
  find.reset();
  return ::RemoveDirectoryW(path.c_str()) || !DirExists(path);
}

bool FileExists(const std::wstring& path) {
  DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool DirExists(const std::wstring& path) {
  DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool WriteFileBytes(const std::wstring& path, const std::string& bytes) {
  UniqueFileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  DWORD written = 0;
  return ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
         written == bytes.size();
}

std::string ReadFileBytes(const std::wstring& path) {
  UniqueFileHandle file(::CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file) return std::string();
  std::string bytes;
  char buffer[65536];
  DWORD read = 0;
  while (::ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr) && read > 0)
    bytes.append(buffer, read);
  return bytes;
}

std::wstring Widen(const std::string& utf8) {
  if (utf8.empty()) return std::wstring();
  int length = ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
  std::wstring text(static_cast<size_t>(length), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), text.data(), length);
  return text;
}

std::string Narrow(const std::wstring& text) {
  if (text.empty()) return std::string();
  int length = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<size_t>(length), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), length, nullptr, nullptr);
  return bytes;
}

int RunProcess(const std::wstring& commandLine, DWORD timeoutMs, const wchar_t* workingFolder) {
  std::wstring buffer = commandLine;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(nullptr, buffer.data(), nullptr, nullptr, FALSE, 0, nullptr, workingFolder,
                        &startup, &process))
    return -1;
  UniqueHandle processHandle(process.hProcess), threadHandle(process.hThread);
  if (::WaitForSingleObject(processHandle.get(), timeoutMs) != WAIT_OBJECT_0) {
    ::TerminateProcess(processHandle.get(), 259);
    return -2;
  }
  DWORD code = 0;
  ::GetExitCodeProcess(processHandle.get(), &code);
  return static_cast<int>(code);
}

MessageBoxRecorder::MessageBoxRecorder() {
  SetMessageBoxResponder([this](const std::wstring& text, UINT style) {
    shown_.push_back({text, style});
    if (answers_.empty()) return IDOK;
    int answer = answers_.front();
    answers_.erase(answers_.begin());
    return answer;
  });
}

MessageBoxRecorder::~MessageBoxRecorder() { SetMessageBoxResponder(nullptr); }

}  // namespace qmtest
