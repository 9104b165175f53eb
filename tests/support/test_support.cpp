#include "tests/support/test_support.h"

#include <filesystem>
#include <fstream>

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

// Read-only files are made writable first, so that they can go too.
TempDir::~TempDir() {
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path_, error))
    ::SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
  std::filesystem::remove_all(path_, error);
}

bool FileExists(const std::wstring& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error);
}

bool DirExists(const std::wstring& path) {
  std::error_code error;
  return std::filesystem::is_directory(path, error);
}

bool WriteFileBytes(const std::wstring& path, const std::string& bytes) {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  std::ofstream file(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  return !file.fail();
}

std::string ReadFileBytes(const std::wstring& path) {
  std::ifstream file(std::filesystem::path(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string Narrow(const std::wstring& text) {
  std::string bytes(text.size() * 3, '\0');
  bytes.resize(::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                     static_cast<int>(bytes.size()), nullptr, nullptr));
  return bytes;
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
