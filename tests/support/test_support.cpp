#include "tests/support/test_support.h"

#include <filesystem>

#include "sys/handles.h"
#include "ui/message_box.h"

namespace qmtest {
namespace {

constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingValue[] = L"PendingFileRenameOperations";

// A path as compared: no "!" or "\??\" in front, '/' as '\', no trailing '\', lower case.
std::wstring Normalized(std::wstring path) {
  if (path.starts_with(L"!")) path.erase(0, 1);
  if (path.starts_with(L"\\??\\")) path.erase(0, 4);
  for (wchar_t& c : path) c = c == L'/' ? L'\\' : c;
  while (path.size() > 3 && path.back() == L'\\') path.pop_back();
  ::CharLowerBuffW(path.data(), static_cast<DWORD>(path.size()));
  return path;
}

// The stored list, source and target after each other (empty strings included).
std::vector<std::wstring> PendingList() {
  DWORD size = 0;
  if (::RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingValue, RRF_RT_REG_MULTI_SZ, nullptr, nullptr,
                     &size) != ERROR_SUCCESS)
    return {};
  std::wstring data(size / sizeof(wchar_t), L'\0');
  ::RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingValue, RRF_RT_REG_MULTI_SZ, nullptr, data.data(), &size);
  data.resize(size / sizeof(wchar_t));
  std::vector<std::wstring> list;
  for (size_t start = 0, end; (end = data.find(L'\0', start)) != std::wstring::npos; start = end + 1)
    list.push_back(data.substr(start, end - start));
  // The list's own final terminator reads as one more empty entry.
  if (list.size() % 2 == 1 && list.back().empty()) list.pop_back();
  return list;
}

bool IsUnder(const std::wstring& path, const std::wstring& folder) {
  std::wstring p = Normalized(path), f = Normalized(folder);
  return p.starts_with(f) && (p.size() == f.size() || p[f.size()] == L'\\');
}

}  // namespace

std::wstring SelfPath() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

std::wstring BinDir() {
  std::wstring self = SelfPath();
  return self.substr(0, self.find_last_of(L'\\'));
}

TempDir::TempDir(const std::wstring& name) {
  wchar_t temp[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, temp);
  static unsigned counter = 0;
  do path_ = temp + name + L"." + std::to_wstring(::GetCurrentProcessId()) + L"." + std::to_wstring(++counter);
  while (!::CreateDirectoryW(path_.c_str(), nullptr));
}

TempDir::~TempDir() { RemoveTree(path_); }

bool RemoveTree(const std::wstring& path) {
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path, error))
    ::SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
  std::filesystem::remove_all(path, error);
  return !DirExists(path);
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
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  UniqueFileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  DWORD written = 0;
  return file && ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
         written == bytes.size();
}

std::string ReadFileBytes(const std::wstring& path) {
  const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  UniqueFileHandle file(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
  std::string bytes;
  char buffer[65536];
  DWORD read = 0;
  while (file && ::ReadFile(file.get(), buffer, sizeof buffer, &read, nullptr) && read > 0) bytes.append(buffer, read);
  return bytes;
}

std::string Narrow(const std::wstring& text) {
  std::string bytes(text.size() * 3, '\0');
  bytes.resize(::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                     static_cast<int>(bytes.size()), nullptr, nullptr));
  return bytes;
}

int RunProcess(const std::wstring& commandLine, DWORD timeoutMs) {
  std::wstring buffer = commandLine;
  STARTUPINFOW startup = {sizeof startup};
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(nullptr, buffer.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
    return -1;
  UniqueHandle processHandle(process.hProcess), threadHandle(process.hThread);
  if (::WaitForSingleObject(processHandle.get(), timeoutMs) != WAIT_OBJECT_0) {
    ::TerminateProcess(processHandle.get(), 259);
    ::WaitForSingleObject(processHandle.get(), INFINITE);
    return -2;
  }
  DWORD code = 0;
  ::GetExitCodeProcess(processHandle.get(), &code);
  return static_cast<int>(code);
}

int PendingIndex(const std::wstring& source, const std::wstring& target) {
  std::vector<std::wstring> list = PendingList();
  for (size_t i = 0; i + 1 < list.size(); i += 2)
    if (Normalized(list[i]) == Normalized(source) && Normalized(list[i + 1]) == Normalized(target))
      return static_cast<int>(i / 2);
  return -1;
}

size_t PendingUnder(const std::wstring& folder) {
  std::vector<std::wstring> list = PendingList();
  size_t count = 0;
  for (size_t i = 0; i + 1 < list.size(); i += 2) count += IsUnder(list[i], folder);
  return count;
}

void ForgetPendingUnder(const std::wstring& folder) {
  std::vector<std::wstring> list = PendingList();
  std::wstring kept;
  for (size_t i = 0; i + 1 < list.size(); i += 2)
    if (!IsUnder(list[i], folder)) kept += list[i] + L'\0' + list[i + 1] + L'\0';
  if (kept.empty())
    ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingValue);
  else
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingValue, REG_MULTI_SZ, kept.c_str(),
                      static_cast<DWORD>((kept.size() + 1) * sizeof(wchar_t)));
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
