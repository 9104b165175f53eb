#include "tests/app/app_test_util.h"

#include <tlhelp32.h>

#include <gtest/gtest.h>

namespace apptest {
namespace {

constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingValue[] = L"PendingFileRenameOperations";

void StorePendingOperations(const std::vector<std::wstring>& entries) {
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_ALL_ACCESS, key.put()) != ERROR_SUCCESS)
    return;
  if (entries.empty()) {
    ::RegDeleteValueW(key.get(), kPendingValue);
    return;
  }
  std::wstring data;
  for (const std::wstring& entry : entries) data += entry + L'\0';
  data += L'\0';
  ::RegSetValueExW(key.get(), kPendingValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(data.data()),
                   static_cast<DWORD>(data.size() * sizeof(wchar_t)));
}

}  // namespace

bool SamePath(const std::wstring& a, const std::wstring& b) { return _wcsicmp(a.c_str(), b.c_str()) == 0; }

std::vector<std::wstring> PendingOperations() {
  std::vector<std::wstring> entries;
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_READ, key.put()) != ERROR_SUCCESS)
    return entries;
  DWORD size = 0;
  if (::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
    return entries;
  std::vector<wchar_t> data(size / sizeof(wchar_t) + 1, L'\0');
  if (::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()),
                         &size) != ERROR_SUCCESS)
    return entries;
  size_t chars = size / sizeof(wchar_t);
  // The list ends with one extra null: drop it so that empty targets survive.
  if (chars > 0 && data[chars - 1] == L'\0') --chars;
  std::wstring current;
  for (size_t i = 0; i < chars; ++i) {
    if (data[i] == L'\0') {
      entries.push_back(current);
      current.clear();
    } else {
      current += data[i];
    }
  }
  return entries;
}

int FindPending(const std::vector<std::wstring>& entries, const std::wstring& path) {
  for (size_t i = 0; i + 1 < entries.size(); i += 2)
    if (SamePath(entries[i], L"\\??\\" + path)) return static_cast<int>(i);
  return -1;
}

void ForgetPending(const std::vector<std::wstring>& sources) {
  std::vector<std::wstring> entries = PendingOperations(), kept;
  for (size_t i = 0; i + 1 < entries.size(); i += 2) {
    bool ours = false;
    for (const std::wstring& source : sources) ours = ours || SamePath(entries[i], L"\\??\\" + source);
    if (!ours) {
      kept.push_back(entries[i]);
      kept.push_back(entries[i + 1]);
    }
  }
  StorePendingOperations(kept);
}

Started::~Started() {
  if (process && ::WaitForSingleObject(process.get(), 0) == WAIT_TIMEOUT) EndProcessTree(id);
}

Started StartProcess(const std::wstring& commandLine, const wchar_t* workingFolder) {
  Started started;
  std::wstring buffer = commandLine;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(nullptr, buffer.data(), nullptr, nullptr, FALSE, 0, nullptr, workingFolder, &startup,
                        &process))
    return started;
  ::CloseHandle(process.hThread);
  started.process.reset(process.hProcess);
  started.id = process.dwProcessId;
  return started;
}

int WaitForExit(HANDLE process, DWORD timeoutMs) {
  if (::WaitForSingleObject(process, timeoutMs) != WAIT_OBJECT_0) return -2;
  DWORD code = 0;
  ::GetExitCodeProcess(process, &code);
  return static_cast<int>(code);
}

std::vector<ProcessEntry> ChildrenOf(DWORD parentId) {
  std::vector<ProcessEntry> children;
  UniqueFileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return children;
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more; more = ::Process32NextW(snapshot.get(), &entry))
    if (entry.th32ParentProcessID == parentId) children.push_back({entry.th32ProcessID, entry.szExeFile});
  return children;
}

void EndProcessTree(DWORD processId) {
  for (const ProcessEntry& child : ChildrenOf(processId))
    if (child.id != processId) EndProcessTree(child.id);
  UniqueHandle process(::OpenProcess(PROCESS_TERMINATE, FALSE, processId));
  if (process) ::TerminateProcess(process.get(), 259);
}

std::wstring ProcessImagePath(HANDLE process) {
  wchar_t path[MAX_PATH] = {};
  DWORD size = MAX_PATH;
  if (!::QueryFullProcessImageNameW(process, 0, path, &size)) return std::wstring();
  return std::wstring(path, size);
}

std::wstring TempFolder() {
  wchar_t folder[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, folder);
  return folder;
}

std::vector<std::wstring> TempFilesMatching(const wchar_t* pattern) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW data;
  UniqueFindHandle find(::FindFirstFileW((TempFolder() + pattern).c_str(), &data));
  if (!find) return names;
  do names.emplace_back(data.cFileName);
  while (::FindNextFileW(find.get(), &data));
  return names;
}

InstalledCopy::InstalledCopy() : root_(L"qm app") {
  folder_ = root_ / L"Quillmark 8";
  EXPECT_TRUE(::CreateDirectoryW(folder_.c_str(), nullptr));
  EXPECT_TRUE(::CreateDirectoryW((folder_ + L"\\data").c_str(), nullptr));
  const std::wstring bin = qmtest::BinDir();
  EXPECT_TRUE(::CopyFileW((bin + L"\\setup.exe").c_str(), uninstaller().c_str(), FALSE));
  EXPECT_TRUE(::CopyFileW((bin + L"\\standin-8.5.3.0\\Qmkview8.exe").c_str(),
                          (folder_ + L"\\Qmkview8.exe").c_str(), FALSE));
  EXPECT_TRUE(qmtest::WriteFileBytes(folder_ + L"\\readme.txt", "read me\r\n"));
  EXPECT_TRUE(qmtest::WriteFileBytes(folder_ + L"\\QmkUnInst.log",
                                     "File Copy: Qmkview8.exe\r\n"
                                     "File Copy: readme.txt\r\n"
                                     "Make Dir: data\r\n"
                                     "\r\n"));
}

bool InstalledCopy::Intact() const {
  return qmtest::FileExists(uninstaller()) && qmtest::FileExists(folder_ + L"\\Qmkview8.exe") &&
         qmtest::FileExists(folder_ + L"\\readme.txt") && qmtest::FileExists(folder_ + L"\\QmkUnInst.log") &&
         qmtest::DirExists(folder_ + L"\\data");
}

bool InstalledCopy::Gone() const { return !qmtest::DirExists(folder_) && !qmtest::FileExists(folder_); }

}  // namespace apptest
