// What the install-mode entry reads from the machine that the end-to-end runs
// (tests/e2e) do not vary: App Paths, "AllUsers" spelling, version prompts by
// mode, the journal's group lines, the agreement file and the restart.
#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>

#include <utility>
#include <vector>

#include "install/registration.h"
#include "product/product.h"
#include "sys/handles.h"
#include "sys/platform.h"
#include "sys/privileges.h"
#include "sys/registry.h"
#include "tests/support/test_support.h"
#include "wizard/agreement_dlg.h"
#include "wizard/install_mode.h"


namespace {

// Removes the machine-wide keys an installation leaves, before and after a test.
struct RegistryGuard {
  RegistryGuard() { Clear(); }
  ~RegistryGuard() { Clear(); }
  static void Clear() {
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kVendorKey);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kAppPathKey);
  }
};

void WriteText(const std::wstring& path, const std::string& text) {
  ASSERT_TRUE(qmtest::WriteFileBytes(path, text));
}

}  // namespace

// The existing installation is the vendor "Path", else App Paths cut before the product name, one
// backslash dropped; its type is all users only for "AllUsers" exactly "B".
TEST(ExistingInstallation, FolderAndType) {
  RegistryGuard guard;
  EXPECT_EQ(ExistingInstallFolder(), L"");
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPathKey, nullptr, L"D:\\Tools\\QM\\Qmkview8.exe");
  EXPECT_EQ(ExistingInstallFolder(), L"D:\\Tools\\QM");
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path", L"E:\\Quill\\");
  EXPECT_EQ(ExistingInstallFolder(), L"E:\\Quill");
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path", L"");
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPathKey, nullptr, L"D:\\Tools\\QM\\Other.exe");
  EXPECT_EQ(ExistingInstallFolder(), L"");

  EXPECT_EQ(ExistingInstallType(), 0);
  for (auto [value, type] : {std::pair{L"B", 1}, std::pair{L"b", 0}, std::pair{L"A", 0}}) {
    WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", value);
    EXPECT_EQ(ExistingInstallType(), type) << qmtest::Narrow(value);
  }
}

// The version prompt (texts: e2e) comes only in wizard mode and only when the package is not
// newer as one number (a part above 99 spills over); any answer but Yes declines.
TEST(ConfirmVersionChange, PromptsByVersionAndMode) {
  constexpr InstallMode kWizard = InstallMode::kInteractive;
  const struct {
    InstallMode mode;
    VersionQuad installed, package;
    int answer;  // 0: no prompt expected
    bool result;
  } cases[] = {{kWizard, {8, 5, 3, 0}, {8, 5, 3, 0}, IDCANCEL, false},
               {kWizard, {8, 5, 3, 0}, {8, 5, 3, 0}, IDYES, true},
               {kWizard, {8, 5, 3, 0}, {8, 5, 3, 1}, 0, true},
               {kWizard, {8, 5, 0, 0}, {8, 4, 100, 1}, 0, true},
               {InstallMode::kSilent, {8, 6, 0, 0}, {8, 4, 0, 0}, 0, true},
               {InstallMode::kSilentThenFinishPage, {8, 5, 3, 0}, {8, 5, 3, 0}, 0, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "mode " << static_cast<int>(c.mode) << " package " << VersionNumber(c.package));
    qmtest::MessageBoxRecorder boxes;
    if (c.answer) boxes.Answer(c.answer);
    EXPECT_EQ(ConfirmVersionChange(c.mode, c.installed, c.package), c.result);
    EXPECT_EQ(boxes.shown().size(), c.answer ? 1u : 0u);
  }
}

// The group comes from the last matching "Shell Link: " line, with its case; start-up, foreign and
// ungrouped links do not count; without "QmkUnInst.log", "install.log" is read; a portable
// installation keeps the group and type it has.
TEST(RecoverGroup, LastLinkInProgramsFolderWins) {
  qmtest::TempDir dir;
  std::wstring log = dir / L"QmkUnInst.log";
  WriteText(log,
            "Shell Link: C:\\Menu\\Programs\\Old Group\\Quillmark 8.lnk\r\n"
            "Shell Link: c:\\MENU\\programs\\Tools\\Capture\\Quillmark 8 Help.lnk   \r\n"
            "Shell Link: C:\\Menu\\Programs\\Startup\\Quillmark 8.lnk\r\n"
            "Shell Link: C:\\Users\\Public\\Desktop\\Quillmark 8.lnk\r\n"
            "shell link: C:\\Menu\\Programs\\lower\\Quillmark 8.lnk\r\n");
  EXPECT_EQ(RecoverGroupFromLog(log, L"C:\\Menu\\Programs", L"C:\\Menu\\Programs\\Startup", L"Quillmark 8"),
            L"Tools\\Capture");
  WriteText(log, "Shell Link: C:\\Menu\\Programs\\Quillmark 8.lnk\n");
  EXPECT_EQ(RecoverGroupFromLog(log, L"C:\\Menu\\Programs\\", L"C:\\Menu\\Startup", L"Quillmark 8"), L"");
  EXPECT_EQ(RecoverGroupFromLog(dir / L"missing.log", L"C:\\Menu\\Programs", L"C:\\Menu\\Startup", L"Keep"),
            L"Keep");

  ASSERT_TRUE(::DeleteFileW(log.c_str()));
  WriteText(dir / L"install.log", "Shell Link: " + qmtest::Narrow(ShellFolderPath(CSIDL_COMMON_PROGRAMS)) +
                                      "\\From Old Log\\Quillmark 8.lnk\r\n");
  EXPECT_EQ(RecoverGroupName(dir.path(), 1, L"Quillmark 8"), L"From Old Log");
  EXPECT_EQ(RecoverGroupName(dir.path(), 2, L"Quillmark 8"), L"Quillmark 8");

  // Taken over with an installation: a portable type stays portable, not "AllUsers".
  RegistryGuard guard;
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", L"B");
  InstallSettings portable;
  portable.installMode = InstallMode::kSilent;
  portable.SetType(InstallType::kPortable);
  portable.installDir = dir.path();
  portable.groupName = L"Quillmark 8";
  EXPECT_TRUE(AdoptExistingInstallation(portable));
  EXPECT_EQ(portable.Type(), InstallType::kPortable);
  EXPECT_EQ(portable.groupName, L"Quillmark 8");
}

// "agreement.txt" is shown as raw UTF-16LE: byte-order mark kept, an odd last
// byte dropped; an empty, one-byte or missing file shows nothing.
TEST(ReadAgreementText, RawUtf16) {
  qmtest::TempDir dir;
  const std::pair<std::string, std::wstring> cases[] = {
      {std::string("\xFF\xFE" "A\0g\0r\0e\0e\0\x0A\x04" "Z", 15), L"\xFEFF" L"Agree\x040A"}, {"x", L""}, {"", L""}};
  for (const auto& [bytes, text] : cases) {
    WriteText(dir / L"agreement.txt", bytes);
    EXPECT_EQ(ReadAgreementText((dir / L"agreement.txt").c_str()), text) << bytes.size();
  }
  EXPECT_EQ(ReadAgreementText((dir / L"missing.txt").c_str()), L"");
}

namespace {
std::vector<std::pair<UINT, DWORD>> exitCalls;
bool shutdownEnabledAtExit = false;

// Disables the shutdown privilege of this process's token; whether it was enabled.
bool DisableShutdownPrivilege() {
  UniqueHandle token;
  TOKEN_PRIVILEGES off = {1, {{{}, 0}}}, before = {};
  DWORD size = sizeof before;
  ::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &off.Privileges[0].Luid);
  return ::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.put()) &&
         ::AdjustTokenPrivileges(token.get(), FALSE, &off, sizeof off, &before, &size) &&
         before.PrivilegeCount == 1 && (before.Privileges[0].Attributes & SE_PRIVILEGE_ENABLED);
}

BOOL WINAPI RecordExit(UINT flags, DWORD reason) {
  exitCalls.push_back({flags, reason});
  shutdownEnabledAtExit = DisableShutdownPrivilege();
  return TRUE;
}
}  // namespace

// With a restart pending "-runafter" asks for a planned restart, the shutdown
// privilege enabled first, instead of starting the installed product (that
// start: e2e); without "-runafter" nothing happens.
TEST(RunAfterSetup, RestartsWhenARestartIsPending) {
  DisableShutdownPrivilege();
  ExitWindowsFn saved = std::exchange(pExitWindowsEx, RecordExit);
  InstallSettings settings;
  settings.installDir = L"C:\\no such folder";  // a start of the product would fail: nothing is left running
  settings.restartNeeded = 1;
  RunAfterSetup(settings);
  settings.runAfter = 1;
  RunAfterSetup(settings);
  pExitWindowsEx = saved;
  ASSERT_EQ(exitCalls.size(), 1u);
  EXPECT_EQ(exitCalls[0].first, static_cast<UINT>(EWX_REBOOT));
  EXPECT_EQ(exitCalls[0].second, 0x80040002u);  // planned, application: installation
  EXPECT_TRUE(shutdownEnabledAtExit);
}
