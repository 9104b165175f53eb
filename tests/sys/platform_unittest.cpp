#include "sys/platform.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <string>
#include <tuple>
#include <vector>

#include "sys/registry.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::Narrow;
constexpr bool kThirtyTwoBit = sizeof(void*) == 4;
constexpr wchar_t kProbeVariable[] = L"QM_SYS_PROBE";

// Started as a probe child (the variable names a report file), this program reports
// its parent (with a path buffer, then with size 0), what ReadWindowsVersion reads
// into a dirty record and the start-up record's version, and leaves before any test.
const bool probeChild = [] {
  wchar_t reportPath[MAX_PATH] = {};
  if (!::GetEnvironmentVariableW(kProbeVariable, reportPath, MAX_PATH)) return false;
  wchar_t parentPath[MAX_PATH] = L"-", untouched[MAX_PATH] = L"-";
  const DWORD withPath = ParentProcessId(parentPath, MAX_PATH), withoutPath = ParentProcessId(untouched, 0);
  std::wstring report = std::to_wstring(withPath) + L"|" + parentPath + L"|" + std::to_wstring(withoutPath) +
                        L"|" + untouched + L"|";
  OSVERSIONINFOEXW record;
  memset(&record, 0xA5, sizeof record);
  BOOL read = ReadWindowsVersion(&record) && record.szCSDVersion[127] == 0;
  report += std::to_wstring(read) + L"|" + std::to_wstring(record.dwOSVersionInfoSize) + L"|" +
            std::to_wstring(record.dwMajorVersion) + L"." + std::to_wstring(record.dwMinorVersion) + L"|" +
            std::to_wstring(windowsVersion.dwOSVersionInfoSize) + L"|" +
            std::to_wstring(windowsVersion.dwMajorVersion) + L"." + std::to_wstring(windowsVersion.dwMinorVersion);
  qmtest::WriteFileBytes(reportPath, Narrow(report));
  ::ExitProcess(0);
}();

// Saves one registry value (or its absence) and puts it back on destruction.
struct SavedValue {
  HKEY root;
  std::wstring subkey, name;
  DWORD type = REG_NONE, size = 2048;
  std::vector<BYTE> data = std::vector<BYTE>(2048);
  bool existed = ::RegGetValueW(root, subkey.c_str(), name.c_str(), RRF_RT_ANY | RRF_NOEXPAND, &type,
                                data.data(), &size) == ERROR_SUCCESS;
  ~SavedValue() {
    if (existed)
      ::RegSetKeyValueW(root, subkey.c_str(), name.c_str(), type, data.data(), size);
    else
      ::RegDeleteKeyValueW(root, subkey.c_str(), name.c_str());
  }
};

constexpr wchar_t kShellFolders[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
constexpr wchar_t kUserShellFolders[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";

// A missing shell folder is made by the first request. When the shell fails (a
// folder on a drive that does not exist) the fallback is returned: each selector
// reads its own value name from its own hive's Shell Folders key (common folders
// the machine's, the others the user's), and a selector the shell does not know
// and the table lacks reads the user's key's default value.
TEST(ShellFolderPathTest, CreatesOrFallsBack) {
  qmtest::TempDir parent(L"qm shell folder");
  const std::wstring missing = parent / L"Docs\\Deeper";
  SavedValue savedPersonal{HKEY_CURRENT_USER, kUserShellFolders, L"Personal"};
  SavedValue savedPersonalCache{HKEY_CURRENT_USER, kShellFolders, L"Personal"};
  ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, kUserShellFolders, L"Personal", missing.c_str()));
  EXPECT_STRCASEEQ(Narrow(missing).c_str(), Narrow(ShellFolderPath(CSIDL_PERSONAL)).c_str());
  EXPECT_TRUE(qmtest::DirExists(missing));

  SavedValue savedPictures{HKEY_CURRENT_USER, kUserShellFolders, L"My Pictures"};
  SavedValue savedPicturesCache{HKEY_CURRENT_USER, kShellFolders, L"My Pictures"};
  ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, kUserShellFolders, L"My Pictures", L"Q:\\qm-unreachable"));
  const HKEY user = HKEY_CURRENT_USER, machine = HKEY_LOCAL_MACHINE;
  const std::tuple<int, const wchar_t*, HKEY> cases[] = {
      {0, L"Desktop", user},           {2, L"Programs", user},          {5, L"Personal", user},
      {7, L"Startup", user},           {23, L"Common Programs", machine}, {24, L"Common Startup", machine},
      {25, L"Common Desktop", machine}, {26, L"AppData", user},         {35, L"Common AppData", machine},
      {39, L"MyPictures", user},       {46, L"Common Documents", machine}, {54, L"CommonPictures", machine},
      {0xFE, L"", user}};
  for (const auto& [csidl, name, hive] : cases) {
    SCOPED_TRACE(csidl);
    const HKEY decoyHive = hive == user ? machine : user;
    SavedValue saved{hive, kShellFolders, name}, savedDecoy{decoyHive, kShellFolders, name};
    const std::wstring sentinel = L"C:\\qm-fallback\\" + std::to_wstring(csidl);
    ASSERT_TRUE(WriteRegString(hive, kShellFolders, name, sentinel.c_str()));
    ASSERT_TRUE(WriteRegString(decoyHive, kShellFolders, name, L"C:\\qm-wrong-hive"));
    EXPECT_EQ(sentinel, ShellFolderFromRegistry(csidl));
    // The pictures folder's shell value is unreachable and the shell keeps it under another name.
    if (csidl == CSIDL_MYPICTURES || csidl == 0xFE) {
      EXPECT_EQ(sentinel, ShellFolderPath(csidl));
    }
  }
}

// The two version tests across XP, Vista, 7, 8, 8.1 and 10, and a record left zero.
TEST(VersionTest, VersionFacts) {
  const OSVERSIONINFOEXW saved = windowsVersion;
  struct Case { DWORD major, minor; BOOL vista, eight; };
  const Case cases[] = {{0, 0, FALSE, FALSE}, {5, 1, FALSE, FALSE}, {5, 2, FALSE, FALSE},
                        {6, 0, TRUE, FALSE},  {6, 1, TRUE, FALSE},  {6, 2, TRUE, TRUE},
                        {6, 3, TRUE, TRUE},   {10, 0, TRUE, TRUE},  {7, 0, TRUE, TRUE}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.major << "." << c.minor);
    windowsVersion.dwMajorVersion = c.major;
    windowsVersion.dwMinorVersion = c.minor;
    EXPECT_EQ(c.vista, IsVistaOrLater());
    EXPECT_EQ(c.eight, IsWindows8OrLater());
  }
  windowsVersion = saved;
}

// A child started under each claimed Windows version finds this process (and its
// path) as its parent, leaves a buffer of size 0 alone, reads the claimed version
// into a cleared 284-byte record, and had its start-up record filled the same way.
TEST(ProbeChildTest, ParentAndClaimedVersion) {
  wchar_t ownPath[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, ownPath, MAX_PATH);
  const std::wstring self = ownPath;
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
  std::vector<std::pair<const wchar_t*, const wchar_t*>> cases = {
      {L"win7", L"6.1"}, {L"win8", L"6.2"}, {L"win10", L"10.0"}};
  if (kThirtyTwoBit) cases.push_back({L"winxp", L"5.1"});
  const std::wstring pid = std::to_wstring(::GetCurrentProcessId());
  for (const auto& [name, version] : cases) {
    SCOPED_TRACE(Narrow(name));
    ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, appKey.c_str(), L"Version", name));
    qmtest::TempDir dir(L"qm probe");
    ::SetEnvironmentVariableW(kProbeVariable, (dir / L"report.txt").c_str());
    EXPECT_EQ(0, qmtest::RunProcess(L"\"" + self + L"\""));
    ::SetEnvironmentVariableW(kProbeVariable, nullptr);
    const std::wstring expected = pid + L"|" + self + L"|" + pid + L"|-|1|284|" + version + L"|284|" + version;
    EXPECT_STRCASEEQ(Narrow(expected).c_str(), qmtest::ReadFileBytes(dir / L"report.txt").c_str());
  }
}

BOOL WINAPI ClaimsWow64ButFails(HANDLE, PBOOL wow64) {
  *wow64 = TRUE;
  return FALSE;
}

// 32-bit code on this 64-bit system is WOW64, 64-bit code is not (a null handle
// means this process); without the system function the answer is FALSE, and the
// function's own result is ignored.
TEST(Wow64Test, ThirtyTwoBitBuildAndLateBoundFunction) {
  EXPECT_EQ(kThirtyTwoBit ? TRUE : FALSE, IsWow64());
  EXPECT_EQ(IsWow64(), IsProcessWow64(nullptr));
  const IsWow64ProcessFn saved = pIsWow64Process;
  ASSERT_NE(nullptr, saved);
  pIsWow64Process = nullptr;
  EXPECT_FALSE(IsWow64());
  pIsWow64Process = ClaimsWow64ButFails;
  EXPECT_TRUE(IsWow64());
  pIsWow64Process = saved;
}

// The registry's program-files folder without a trailing backslash; the Windows
// drive's "Program Files" when the value is missing, empty or over the reader's limit.
TEST(ProgramFilesDirTest, RegistryValueAndFallback) {
  constexpr wchar_t kCurrentVersion[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
  SavedValue saved{HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir"};
  wchar_t windows[MAX_PATH] = {};
  ASSERT_GT(::GetWindowsDirectoryW(windows, MAX_PATH), 3u);
  const std::wstring fallback = std::wstring(windows).substr(0, 3) + L"Program Files";
  const std::wstring overlong = L"D:\\" + std::wstring(200, L'x');
  const std::pair<const wchar_t*, std::wstring> cases[] = {
      {L"D:\\Apps\\", L"D:\\Apps"}, {L"E:\\", L"E:"}, {L"D:\\Apps\\Programs", L"D:\\Apps\\Programs"},
      {overlong.c_str(), fallback}, {L"", fallback}, {nullptr, fallback}};
  for (const auto& [value, expected] : cases) {
    SCOPED_TRACE(value ? Narrow(value) : "(missing)");
    if (value)
      ASSERT_TRUE(WriteRegString(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir", value));
    else
      ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kCurrentVersion, L"ProgramFilesDir");
    EXPECT_EQ(expected, ProgramFilesDir());
  }
}

}  // namespace
