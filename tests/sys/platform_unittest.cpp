#include "sys/platform.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "sys/handles.h"
#include "sys/registry.h"
#include "tests/support/test_support.h"

namespace {

constexpr wchar_t kProbeVariable[] = L"QM_SYS_PROBE";

// Started as a probe child (the variable names a report file), this program
// reports what it sees of its parent and its Windows version, and leaves
// before any test runs.
const bool probeChild = [] {
  wchar_t reportPath[MAX_PATH] = {};
  if (!::GetEnvironmentVariableW(kProbeVariable, reportPath, MAX_PATH)) return false;
  wchar_t parentPath[MAX_PATH] = L"(untouched)";
  DWORD withPath = ParentProcessId(parentPath, MAX_PATH);
  wchar_t untouched[MAX_PATH] = L"(untouched)";
  DWORD withoutPath = ParentProcessId(untouched, 0);
  OSVERSIONINFOEXW record;
  memset(&record, 0xA5, sizeof record);
  BOOL read = ReadWindowsVersion(&record);
  std::wstring report = std::to_wstring(withPath) + L"\n" + parentPath + L"\n" +
                        std::to_wstring(withoutPath) + L"\n" + untouched + L"\n" +
                        std::to_wstring(read) + L"\n" + std::to_wstring(record.dwOSVersionInfoSize) +
                        L"\n" + std::to_wstring(record.dwMajorVersion) + L"." +
                        std::to_wstring(record.dwMinorVersion) + L"\n";
  qmtest::WriteFileBytes(reportPath, qmtest::Narrow(report));
  ::ExitProcess(0);
}();

std::wstring OwnPath() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

std::vector<std::wstring> SplitLines(const std::wstring& text) {
  std::vector<std::wstring> lines;
  size_t start = 0;
  for (size_t end; (end = text.find(L'\n', start)) != std::wstring::npos; start = end + 1)
    lines.push_back(text.substr(start, end - start));
  return lines;
}

// Runs this program again as a probe child and returns its report's lines.
std::vector<std::wstring> RunProbe() {
  qmtest::TempDir dir(L"qm probe");
  const std::wstring report = dir / L"report.txt";
  ::SetEnvironmentVariableW(kProbeVariable, report.c_str());
  int code = qmtest::RunProcess(L"\"" + OwnPath() + L"\"", 60000);
  ::SetEnvironmentVariableW(kProbeVariable, nullptr);
  EXPECT_EQ(0, code);
  return SplitLines(qmtest::Widen(qmtest::ReadFileBytes(report)));
}

// Saves one registry value (or its absence) and puts it back on destruction.
class SavedValue {
 public:
  SavedValue(HKEY root, std::wstring subkey, const wchar_t* name)
      : root_(root), subkey_(std::move(subkey)), name_(name ? name : L"") {
    CKey key;
    if (key.Open(root_, subkey_.c_str(), KEY_READ) != ERROR_SUCCESS) return;
    DWORD size = 0;
    if (::RegQueryValueExW(key.get(), name_.c_str(), nullptr, &type_, nullptr, &size) != ERROR_SUCCESS)
      return;
    data_.resize(size);
    existed_ = ::RegQueryValueExW(key.get(), name_.c_str(), nullptr, &type_,
                                  data_.empty() ? nullptr : data_.data(), &size) == ERROR_SUCCESS;
    data_.resize(size);
  }
  ~SavedValue() {
    CKey key;
    if (key.Create(root_, subkey_.c_str()) != ERROR_SUCCESS) return;
    if (existed_)
      ::RegSetValueExW(key.get(), name_.c_str(), 0, type_, data_.empty() ? nullptr : data_.data(),
                       static_cast<DWORD>(data_.size()));
    else
      ::RegDeleteValueW(key.get(), name_.c_str());
  }
  SavedValue(const SavedValue&) = delete;
  SavedValue& operator=(const SavedValue&) = delete;

 private:
  HKEY root_;
  std::wstring subkey_;
  std::wstring name_;
  bool existed_ = false;
  DWORD type_ = REG_NONE;
  std::vector<BYTE> data_;
};

void SetString(HKEY root, const std::wstring& subkey, const wchar_t* name, const std::wstring& text) {
  CKey key;
  ASSERT_EQ(ERROR_SUCCESS, key.Create(root, subkey.c_str()));
  ASSERT_EQ(ERROR_SUCCESS, ::RegSetValueExW(key.get(), name, 0, REG_SZ,
                                            reinterpret_cast<const BYTE*>(text.c_str()),
                                            static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))));
}

void DeleteValue(HKEY root, const std::wstring& subkey, const wchar_t* name) {
  CKey key;
  if (key.Open(root, subkey.c_str(), KEY_SET_VALUE) == ERROR_SUCCESS) ::RegDeleteValueW(key.get(), name);
}

// Reads a string value with the raw API, without any size limit.
std::wstring RawString(HKEY root, const std::wstring& subkey, const wchar_t* name) {
  wchar_t buffer[1024] = {};
  DWORD size = sizeof buffer - sizeof(wchar_t);
  if (::RegGetValueW(root, subkey.c_str(), name, RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND,
                     nullptr, buffer, &size) != ERROR_SUCCESS)
    return std::wstring();
  return buffer;
}

bool SamePath(const std::wstring& a, const std::wstring& b) {
  return ::CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

bool Is32BitBuild() {
  const char* arch = std::getenv("QM_ARCH");
  return arch ? std::string(arch) == "i686" : sizeof(void*) == 4;
}

constexpr wchar_t kShellFolders[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
constexpr wchar_t kUserShellFolders[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

// The fallback table, and the value under which the shell itself keeps each folder.
struct FolderCase {
  int csidl;
  const wchar_t* fallbackName;
  HKEY fallbackHive;
  const wchar_t* shellName;  // "User Shell Folders" value the shell reads
};
const FolderCase kFolderCases[] = {
    {0, L"Desktop", HKEY_CURRENT_USER, L"Desktop"},
    {2, L"Programs", HKEY_CURRENT_USER, L"Programs"},
    {5, L"Personal", HKEY_CURRENT_USER, L"Personal"},
    {7, L"Startup", HKEY_CURRENT_USER, L"Startup"},
    {23, L"Common Programs", HKEY_LOCAL_MACHINE, L"Common Programs"},
    {24, L"Common Startup", HKEY_LOCAL_MACHINE, L"Common Startup"},
    {25, L"Common Desktop", HKEY_LOCAL_MACHINE, L"Common Desktop"},
    {26, L"AppData", HKEY_CURRENT_USER, L"AppData"},
    {35, L"Common AppData", HKEY_LOCAL_MACHINE, L"Common AppData"},
    {39, L"MyPictures", HKEY_CURRENT_USER, L"My Pictures"},
    {46, L"Common Documents", HKEY_LOCAL_MACHINE, L"Common Documents"},
    {54, L"CommonPictures", HKEY_LOCAL_MACHINE, L"CommonPictures"},
};

HKEY OtherHive(HKEY hive) { return hive == HKEY_CURRENT_USER ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER; }

// Every folder the program asks for resolves to an existing folder, as the shell says.
TEST(ShellFolderPathTest, ResolvesRealFolders) {
  for (const FolderCase& folder : kFolderCases) {
    SCOPED_TRACE(folder.csidl);
    wchar_t expected[MAX_PATH] = {};
    ASSERT_EQ(S_OK, ::SHGetFolderPathW(nullptr, folder.csidl, nullptr, SHGFP_TYPE_CURRENT, expected));
    std::wstring path = ShellFolderPath(folder.csidl);
    EXPECT_EQ(std::wstring(expected), path);
    EXPECT_TRUE(qmtest::DirExists(path));
  }
}

// A folder that does not exist yet is made by the first request.
TEST(ShellFolderPathTest, CreatesMissingFolder) {
  qmtest::TempDir parent(L"qm shell folder");
  const std::wstring missing = parent / L"Docs\\Deeper";
  ASSERT_FALSE(qmtest::DirExists(missing));
  SavedValue savedUser(HKEY_CURRENT_USER, kUserShellFolders, L"Personal");
  SavedValue savedShell(HKEY_CURRENT_USER, kShellFolders, L"Personal");
  SetString(HKEY_CURRENT_USER, kUserShellFolders, L"Personal", missing);

  EXPECT_TRUE(SamePath(missing, ShellFolderPath(CSIDL_PERSONAL)));
  EXPECT_TRUE(qmtest::DirExists(missing));
}

// When the shell fails, each selector reads its own value name from its own
// hive's Shell Folders key: common ones the machine's, the others the user's.
TEST(ShellFolderPathTest, FallsBackToTheRegistryTable) {
  for (const FolderCase& folder : kFolderCases) {
    SCOPED_TRACE(folder.csidl);
    SavedValue savedUser(folder.fallbackHive, kUserShellFolders, folder.shellName);
    SavedValue savedShellOwn(folder.fallbackHive, kShellFolders, folder.shellName);
    SavedValue savedFallback(folder.fallbackHive, kShellFolders, folder.fallbackName);
    SavedValue savedDecoy(OtherHive(folder.fallbackHive), kShellFolders, folder.fallbackName);

    // A folder on a drive that does not exist cannot be created: the shell call fails.
    const std::wstring unreachable = L"Q:\\qm-unreachable\\" + std::to_wstring(folder.csidl);
    SetString(folder.fallbackHive, kUserShellFolders, folder.shellName, unreachable);
    const std::wstring sentinel = L"C:\\qm-fallback\\" + std::to_wstring(folder.csidl);
    SetString(folder.fallbackHive, kShellFolders, folder.fallbackName, sentinel);
    SetString(OtherHive(folder.fallbackHive), kShellFolders, folder.fallbackName, L"C:\\qm-wrong-hive");
    wchar_t shellPath[MAX_PATH] = {};
    ASSERT_TRUE(FAILED(::SHGetFolderPathW(nullptr, folder.csidl | CSIDL_FLAG_CREATE, nullptr,
                                          SHGFP_TYPE_CURRENT, shellPath)));
    // The shell may rewrite its own cache value on the way; the fallback reads whatever is there now.
    SetString(folder.fallbackHive, kShellFolders, folder.fallbackName, sentinel);

    std::wstring path = ShellFolderPath(folder.csidl);
    EXPECT_NE(L"C:\\qm-wrong-hive", path);
    EXPECT_FALSE(path.empty());
    EXPECT_EQ(RawString(folder.fallbackHive, kShellFolders, folder.fallbackName), path);
    EXPECT_TRUE(path == sentinel || path == unreachable) << qmtest::Narrow(path);
  }
}

// A fallback value longer than the registry reader's limit gives an empty path.
TEST(ShellFolderPathTest, FallbackOfOverlongValueIsEmpty) {
  SavedValue savedUser(HKEY_CURRENT_USER, kUserShellFolders, L"My Pictures");
  SavedValue savedFallback(HKEY_CURRENT_USER, kShellFolders, L"MyPictures");
  SetString(HKEY_CURRENT_USER, kUserShellFolders, L"My Pictures", L"Q:\\qm-unreachable\\pictures");
  SetString(HKEY_CURRENT_USER, kShellFolders, L"MyPictures", L"C:\\" + std::wstring(140, L'p'));
  EXPECT_EQ(L"", ShellFolderPath(CSIDL_MYPICTURES));
  DeleteValue(HKEY_CURRENT_USER, kShellFolders, L"MyPictures");
  EXPECT_EQ(L"", ShellFolderPath(CSIDL_MYPICTURES));
}

// A selector the shell does not know and the table lacks reads the user's key's default value.
TEST(ShellFolderPathTest, UnknownSelectorReadsDefaultValue) {
  const int unknown = 0xFE;
  SavedValue savedUser(HKEY_CURRENT_USER, kShellFolders, nullptr);
  SavedValue savedMachine(HKEY_LOCAL_MACHINE, kShellFolders, nullptr);
  DeleteValue(HKEY_CURRENT_USER, kShellFolders, L"");
  SetString(HKEY_LOCAL_MACHINE, kShellFolders, L"", L"C:\\qm-wrong-hive");
  EXPECT_EQ(L"", ShellFolderPath(unknown));

  SetString(HKEY_CURRENT_USER, kShellFolders, L"", L"C:\\qm-default-value");
  EXPECT_EQ(L"C:\\qm-default-value", ShellFolderPath(unknown));
}

// Puts the process-wide version record back after a test played another Windows.
class VersionTest : public testing::Test {
 protected:
  void SetUp() override { saved_ = windowsVersion; }
  void TearDown() override { windowsVersion = saved_; }
  void Play(DWORD major, DWORD minor) {
    windowsVersion.dwMajorVersion = major;
    windowsVersion.dwMinorVersion = minor;
  }
  OSVERSIONINFOEXW saved_;
};

// The two version tests across XP, Vista, 7, 8, 8.1 and 10, and a record left zero.
TEST_F(VersionTest, VersionFacts) {
  struct Case { DWORD major, minor; BOOL vista, eight; };
  const Case cases[] = {{0, 0, FALSE, FALSE}, {5, 1, FALSE, FALSE}, {5, 2, FALSE, FALSE},
                        {6, 0, TRUE, FALSE},  {6, 1, TRUE, FALSE},  {6, 2, TRUE, TRUE},
                        {6, 3, TRUE, TRUE},   {10, 0, TRUE, TRUE},  {7, 0, TRUE, TRUE}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.major << "." << c.minor);
    Play(c.major, c.minor);
    EXPECT_EQ(c.vista, IsVistaOrLater());
    EXPECT_EQ(c.eight, IsWindows8OrLater());
  }
}

// The record is filled at start-up the way ReadWindowsVersion fills it.
TEST_F(VersionTest, StartupRecordIsFilled) {
  OSVERSIONINFOEXW record;
  memset(&record, 0x5A, sizeof record);
  ASSERT_TRUE(ReadWindowsVersion(&record));
  EXPECT_EQ(284u, record.dwOSVersionInfoSize);
  EXPECT_EQ(284u, windowsVersion.dwOSVersionInfoSize);
  EXPECT_EQ(record.dwMajorVersion, windowsVersion.dwMajorVersion);
  EXPECT_EQ(record.dwMinorVersion, windowsVersion.dwMinorVersion);
  EXPECT_EQ(record.dwBuildNumber, windowsVersion.dwBuildNumber);
  EXPECT_GE(record.dwMajorVersion, 5u);
  // What the record held before is gone: the text after the service-pack name is zero.
  size_t length = wcsnlen(record.szCSDVersion, 128);
  ASSERT_LT(length, 128u);
  EXPECT_EQ(0, record.szCSDVersion[127]);
}

// ReadWindowsVersion reports the version the system claims for the process.
TEST_F(VersionTest, ReadsTheClaimedVersion) {
  const std::wstring self = OwnPath();
  const std::wstring appKey = L"Software\\Wine\\AppDefaults\\" + self.substr(self.find_last_of(L'\\') + 1);
  ASSERT_FALSE(RegKeyExists(HKEY_CURRENT_USER, appKey.c_str()));
  // Removed on every way out: a leftover would change the version of later runs.
  struct KeyRemover {
    const std::wstring& key;
    ~KeyRemover() {
      ::RegDeleteTreeW(HKEY_CURRENT_USER, key.c_str());
      ::RegDeleteKeyW(HKEY_CURRENT_USER, key.c_str());
    }
  } remover{appKey};
  struct Case { const wchar_t* name; const wchar_t* expected; };
  std::vector<Case> cases = {{L"win7", L"6.1"}, {L"win8", L"6.2"}, {L"win10", L"10.0"}};
  if (Is32BitBuild()) cases.push_back({L"winxp", L"5.1"});
  for (const Case& c : cases) {
    SCOPED_TRACE(qmtest::Narrow(c.name));
    ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, appKey.c_str(), L"Version", c.name));
    std::vector<std::wstring> report = RunProbe();
    ASSERT_EQ(7u, report.size());
    EXPECT_EQ(L"1", report[4]);
    EXPECT_EQ(L"284", report[5]);
    EXPECT_EQ(std::wstring(c.expected), report[6]);
  }
}

// Saves and restores the late-bound WOW64 function.
class Wow64Test : public testing::Test {
 protected:
  void TearDown() override { pIsWow64Process = saved_; }
  IsWow64ProcessFn saved_ = pIsWow64Process;
};

BOOL WINAPI ClaimsWow64ButFails(HANDLE, PBOOL wow64) {
  *wow64 = TRUE;
  return FALSE;
}

// 32-bit code on this 64-bit system is WOW64; 64-bit code is not.
TEST_F(Wow64Test, TrueExactlyForTheThirtyTwoBitBuild) {
  ASSERT_NE(nullptr, pIsWow64Process);
  EXPECT_EQ(Is32BitBuild() ? TRUE : FALSE, IsWow64());
  EXPECT_EQ(IsWow64(), IsProcessWow64(nullptr));
  EXPECT_EQ(IsWow64(), IsProcessWow64(::GetCurrentProcess()));
}

// Without the system function the answer is FALSE; the function's own result is ignored.
TEST_F(Wow64Test, LateBoundFunction) {
  pIsWow64Process = nullptr;
  EXPECT_FALSE(IsWow64());
  pIsWow64Process = ClaimsWow64ButFails;
  EXPECT_TRUE(IsWow64());
}

// Starts a program suspended, asks IsProcessWow64 about it and ends it.
BOOL Wow64OfChild(const std::wstring& program) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION info = {};
  std::wstring commandLine = L"\"" + program + L"\"";
  if (!::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                        nullptr, nullptr, &startup, &info)) {
    ADD_FAILURE() << "cannot start " << qmtest::Narrow(program) << ": " << ::GetLastError();
    return -1;
  }
  UniqueHandle process(info.hProcess), thread(info.hThread);
  BOOL wow64 = IsProcessWow64(process.get());
  ::TerminateProcess(process.get(), 0);
  ::WaitForSingleObject(process.get(), 10000);
  return wow64;
}

// Another process is judged by its own bitness, not by the caller's.
TEST_F(Wow64Test, OtherProcesses) {
  wchar_t windows[MAX_PATH] = {};
  ::GetWindowsDirectoryW(windows, MAX_PATH);
  const std::wstring thirtyTwo = std::wstring(windows) + L"\\syswow64\\cmd.exe";
  // A 32-bit caller reaches the 64-bit system folder under its other name.
  const std::wstring sixtyFour =
      std::wstring(windows) + (Is32BitBuild() ? L"\\sysnative\\cmd.exe" : L"\\system32\\cmd.exe");

  EXPECT_EQ(IsWow64(), Wow64OfChild(OwnPath()));
  EXPECT_EQ(TRUE, Wow64OfChild(thirtyTwo));
  EXPECT_EQ(FALSE, Wow64OfChild(sixtyFour));
}

constexpr wchar_t kCurrentVersion[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";

// The registry's program-files folder, without a trailing backslash, and the
// Windows drive's "Program Files" when the value is missing or unreadable.
TEST(ProgramFilesDirTest, RegistryValueAndFallback) {
  SavedValue saved(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir");
  wchar_t windows[MAX_PATH] = {};
  ASSERT_GT(::GetWindowsDirectoryW(windows, MAX_PATH), 3u);
  const std::wstring fallback = std::wstring(windows).substr(0, 3) + L"Program Files";

  const std::wstring real = RawString(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir");
  ASSERT_FALSE(real.empty());
  EXPECT_EQ(real, ProgramFilesDir());

  SetString(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir", L"D:\\Apps\\");
  EXPECT_EQ(L"D:\\Apps", ProgramFilesDir());
  SetString(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir", L"E:\\");
  EXPECT_EQ(L"E:", ProgramFilesDir());
  SetString(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir", L"D:\\Apps\\Programs");
  EXPECT_EQ(L"D:\\Apps\\Programs", ProgramFilesDir());

  SetString(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir", L"D:\\" + std::wstring(200, L'x'));
  EXPECT_EQ(fallback, ProgramFilesDir());
  SetString(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir", L"");
  EXPECT_EQ(fallback, ProgramFilesDir());
  DeleteValue(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir");
  EXPECT_EQ(fallback, ProgramFilesDir());
}

// A child finds this process as its parent, with this program's path.
TEST(ParentProcessIdTest, ChildFindsItsParent) {
  std::vector<std::wstring> report = RunProbe();
  ASSERT_EQ(7u, report.size());
  const std::wstring self = std::to_wstring(::GetCurrentProcessId());
  EXPECT_EQ(self, report[0]);
  EXPECT_TRUE(SamePath(OwnPath(), report[1])) << qmtest::Narrow(report[1]);
  // Without a buffer size the id is still found and the buffer left alone.
  EXPECT_EQ(self, report[2]);
  EXPECT_EQ(L"(untouched)", report[3]);
}

}  // namespace
