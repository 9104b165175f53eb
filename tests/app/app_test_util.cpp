#include "tests/app/app_test_util.h"

#include <tlhelp32.h>

#include <gtest/gtest.h>

namespace apptest {
namespace {

constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingValue[] = L"PendingFileRenameOperations";

void StorePendingOperations(const std::vector<std::wstring>& entries) {
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_ALL_ACCESS, key.put()) != ERROR_SUCCESS) return;
  std::wstring data;
  for (const std::wstring& entry : entries) data += entry + L'\0';
  data += L'\0';
  if (entries.empty()) ::RegDeleteValueW(key.get(), kPendingValue);
  else
    ::RegSetValueExW(key.get(), kPendingValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(data.data()),
                     static_cast<DWORD>(data.size() * sizeof(wchar_t)));
}

}  // namespace

bool SamePath(const std::wstring& a, const std::wstring& b) { return _wcsicmp(a.c_str(), b.c_str()) == 0; }

std::vector<std::wstring> PendingOperations() {
  UniqueRegKey key;
  DWORD size = 0;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_READ, key.put()) != ERROR_SUCCESS ||
      ::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
    return {};
  std::wstring data(size / sizeof(wchar_t), L'\0');
  if (::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size) !=
      ERROR_SUCCESS)
    return {};
  // Every entry ends with a null and the list with one more: drop that one so that empty targets survive.
  if (!data.empty() && data.back() == L'\0') data.pop_back();
  std::vector<std::wstring> entries;
  for (size_t start = 0, end; (end = data.find(L'\0', start)) != std::wstring::npos; start = end + 1)
    entries.push_back(data.substr(start, end - start));
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
    if (!ours) kept.insert(kept.end(), {entries[i], entries[i + 1]});
  }
  StorePendingOperations(kept);
}

namespace {
// Ends a process and, first, every process it started (a crashed program's debugger included).
void EndProcessTree(DWORD processId) {
  for (DWORD child : ChildrenOf(processId))
    if (child != processId) EndProcessTree(child);
  UniqueHandle process(::OpenProcess(PROCESS_TERMINATE, FALSE, processId));
  if (process) ::TerminateProcess(process.get(), 259);
}
}  // namespace

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

Started WaitForChild(DWORD parentId, DWORD timeoutMs) {
  Started child;
  WaitUntil([&] {
    for (DWORD id : ChildrenOf(parentId)) {
      child.process.reset(::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
      child.id = id;
      if (child.process) return true;
    }
    return false;
  }, timeoutMs);
  return child;
}

bool WaitUntil(const std::function<bool()>& done, DWORD timeoutMs) {
  for (DWORD waited = 0; waited < timeoutMs; waited += 20, ::Sleep(20))
    if (done()) return true;
  return done();
}

int WaitForExit(HANDLE process, DWORD timeoutMs) {
  DWORD code = 0;
  if (::WaitForSingleObject(process, timeoutMs) != WAIT_OBJECT_0) return -2;
  ::GetExitCodeProcess(process, &code);
  return static_cast<int>(code);
}

std::vector<DWORD> ChildrenOf(DWORD parentId) {
  std::vector<DWORD> children;
  UniqueFileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = snapshot && ::Process32FirstW(snapshot.get(), &entry); more;
       more = ::Process32NextW(snapshot.get(), &entry))
    if (entry.th32ParentProcessID == parentId) children.push_back(entry.th32ProcessID);
  return children;
}

std::wstring ProcessImagePath(HANDLE process) {
  wchar_t path[MAX_PATH] = {};
  DWORD size = MAX_PATH;
  return ::QueryFullProcessImageNameW(process, 0, path, &size) ? std::wstring(path, size) : std::wstring();
}

TraceFile::TraceFile() : dir_(L"qm trace"), path_(dir_ / L"trace.log") {
  EXPECT_TRUE(::SetEnvironmentVariableW(L"QM_TRACE_FILE", path_.c_str()));
}
TraceFile::~TraceFile() { ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr); }

std::wstring TempFolder() {
  wchar_t folder[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, folder);
  return folder;
}

std::vector<std::wstring> TempFilesMatching(const wchar_t* pattern) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW data;
  UniqueFindHandle find(::FindFirstFileW((TempFolder() + pattern).c_str(), &data));
  for (bool more = bool(find); more; more = ::FindNextFileW(find.get(), &data)) names.emplace_back(data.cFileName);
  return names;
}

InstalledCopy::InstalledCopy() : root_(L"qm app"), folder_(root_ / L"Quillmark 8") {
  EXPECT_TRUE(::CreateDirectoryW(folder_.c_str(), nullptr));
  EXPECT_TRUE(::CreateDirectoryW((folder_ + L"\\data").c_str(), nullptr));
  EXPECT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\setup.exe").c_str(), uninstaller().c_str(), FALSE));
  EXPECT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe").c_str(),
                          (folder_ + L"\\Qmkview8.exe").c_str(), FALSE));
  EXPECT_TRUE(qmtest::WriteFileBytes(folder_ + L"\\readme.txt", "read me\r\n"));
  EXPECT_TRUE(qmtest::WriteFileBytes(folder_ + L"\\QmkUnInst.log",
                                     "File Copy: Qmkview8.exe\r\nFile Copy: readme.txt\r\nMake Dir: data\r\n\r\n"));
}

bool InstalledCopy::Intact() const {
  return qmtest::FileExists(uninstaller()) && qmtest::FileExists(folder_ + L"\\Qmkview8.exe") &&
         qmtest::FileExists(folder_ + L"\\readme.txt") && qmtest::FileExists(folder_ + L"\\QmkUnInst.log") &&
         qmtest::DirExists(folder_ + L"\\data");
}

}  // namespace apptest
