// The install-mode entry's look at the machine: the existing installation,
// versions and the version prompt, the program group and auto-start of an
// earlier install, the package check, and what happens after the install.
#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>

#include <tuple>
#include <utility>

#include "app/product.h"
#include "install/registration.h"
#include "sys/handles.h"
#include "sys/platform.h"
#include "sys/privileges.h"
#include "sys/registry.h"
#include "tests/support/test_support.h"
#include "wizard/install_mode.h"
#include "wizard/version_info.h"

using qmtest::MessageBoxRecorder;
using qmtest::TempDir;

namespace {

std::wstring StandinExe(const std::wstring& version) {
  return qmtest::BinDir() + L"\\standin-" + version + L"\\Qmkview8.exe";
}

// Puts the stand-in product of version into folder as Qmkview8.exe.
void PlaceProduct(const std::wstring& version, const std::wstring& folder) {
  ASSERT_TRUE(::CopyFileW(StandinExe(version).c_str(), (folder + L"\\Qmkview8.exe").c_str(), FALSE))
      << qmtest::Narrow(StandinExe(version));
}

// Removes the machine-wide keys an installation leaves, before and after a test.
class RegistryGuard {
 public:
  RegistryGuard() { Clear(); }
  ~RegistryGuard() { Clear(); }

 private:
  static void Clear() {
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kVendorKey);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kAppPathKey);
  }
};

VersionQuad Quad(unsigned a, unsigned b, unsigned c, unsigned d) { return VersionQuad{a, b, c, d}; }

// Settings for installing the package over the installation in mode.
InstallSettings Over(const TempDir& installed, const TempDir& package, int mode, int type, int autoStart) {
  InstallSettings settings;
  settings.installMode = mode;
  settings.installType = type;
  settings.autoStart = autoStart;
  settings.installDir = installed.path();
  settings.sourceDir = package.path();
  settings.groupName = L"Quillmark 8";
  return settings;
}

void WriteText(const std::wstring& path, const std::string& text) {
  ASSERT_TRUE(qmtest::WriteFileBytes(path, text));
}

std::string JournalLink(const std::wstring& path) { return "Shell Link: " + qmtest::Narrow(path) + "\r\n"; }

}  // namespace

// The versions come from the fixed file-version words of the resource; no resource or no file gives 0.0.0.0.
TEST(ReadFileVersion, ReadsTheFourParts) {
  VersionQuad v = ReadFileVersion(StandinExe(L"8.5.3.7"));
  EXPECT_EQ(std::vector<unsigned>({v.major, v.minor, v.release, v.build}), std::vector<unsigned>({8, 5, 3, 7}));
  EXPECT_EQ(VersionNumber(ReadFileVersion(qmtest::BinDir() + L"\\standin-noversion\\Qmkview8.exe")), 0u);
  EXPECT_EQ(VersionNumber(ReadFileVersion(qmtest::BinDir() + L"\\no-such-file.exe")), 0u);
}

// The existing installation is the vendor "Path", else App Paths cut before the product name, one
// backslash dropped; its type comes from "AllUsers".
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

  // "AllUsers" exactly "B" is all users; anything else, or nothing, is the current user.
  EXPECT_EQ(ExistingInstallType(), 0);
  for (auto [value, type] : {std::pair{L"B", 1}, std::pair{L"b", 0}, std::pair{L"A", 0}}) {
    WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", value);
    EXPECT_EQ(ExistingInstallType(), type) << qmtest::Narrow(value);
  }
}

// The version prompt: string 16 for an older package (installed version first), string 17 for
// the same one, only in wizard mode; a newer one (also by a part above 99 spilling over) goes on.
TEST(ConfirmVersionChange, PromptsByVersionAndMode) {
  const std::wstring older =
      L"Quillmark v. 8.06.00.00 is already installed on this machine. You are trying to install an older "
      L"version 8.05.03.07 .\n\nDo you still want to continue?";
  const std::wstring same =
      L"Quillmark ver. 8.05.03.00 is already installed on this machine.\n\nWould you like to run this setup "
      L"again to select different options or repair the files?";
  struct Case {
    int mode;
    VersionQuad installed, package;
    int answer;
    bool result;
    std::wstring text;
  } cases[] = {
      {0, Quad(8, 6, 0, 0), Quad(8, 5, 3, 7), IDNO, false, older},
      {0, Quad(8, 6, 0, 0), Quad(8, 5, 3, 7), IDYES, true, older},
      {0, Quad(8, 5, 3, 0), Quad(8, 5, 3, 0), IDYES, true, same},
      {0, Quad(8, 5, 3, 0), Quad(8, 5, 3, 0), IDCANCEL, false, same},
      {0, Quad(8, 5, 3, 0), Quad(8, 5, 3, 1), 0, true, L""},
      {0, Quad(0, 0, 0, 0), Quad(8, 4, 0, 0), 0, true, L""},
      {0, Quad(8, 5, 0, 0), Quad(8, 4, 100, 1), 0, true, L""},
      {1, Quad(8, 6, 0, 0), Quad(8, 4, 0, 0), 0, true, L""},
      {2, Quad(8, 5, 3, 0), Quad(8, 5, 3, 0), 0, true, L""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " package " << VersionNumber(c.package));
    MessageBoxRecorder boxes;
    if (c.answer) boxes.Answer(c.answer);
    EXPECT_EQ(ConfirmVersionChange(c.mode, c.installed, c.package), c.result);
    ASSERT_EQ(boxes.shown().size(), c.text.empty() ? 0u : 1u);
    if (c.text.empty()) continue;
    EXPECT_EQ(boxes.shown()[0].text, c.text);
    EXPECT_EQ(boxes.shown()[0].style, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION));
  }
}

// The group comes from the last matching "Shell Link: " line, with its case; start-up, foreign and
// ungrouped links do not count; the journal of the installation folder is read first.
TEST(RecoverGroup, LastLinkInProgramsFolderWins) {
  TempDir dir;
  std::wstring log = dir / L"QmkUnInst.log";
  WriteText(log,
            "File Copy: Qmkview8.exe\r\n"
            "\r\n"
            "Made Dir: C:\\Menu\\Programs\\Old Group\r\n"
            "Shell Link: C:\\Menu\\Programs\\Old Group\\Quillmark 8.lnk\r\n"
            "Shell Link: c:\\MENU\\programs\\Tools\\Capture\\Quillmark 8 Help.lnk   \r\n"
            "Shell Link: C:\\Menu\\Programs\\Startup\\Quillmark 8.lnk\r\n"
            "Shell Link: C:\\Users\\Public\\Desktop\\Quillmark 8.lnk\r\n"
            "shell link: C:\\Menu\\Programs\\lower\\Quillmark 8.lnk\r\n");
  EXPECT_EQ(RecoverGroupFromLog(log, L"C:\\Menu\\Programs", L"C:\\Menu\\Programs\\Startup", L"Quillmark 8"),
            L"Tools\\Capture");
  // A link right in the programs folder leaves no group; a log without links keeps the given one.
  WriteText(log, "Shell Link: C:\\Menu\\Programs\\Quillmark 8.lnk\n");
  EXPECT_EQ(RecoverGroupFromLog(log, L"C:\\Menu\\Programs\\", L"C:\\Menu\\Startup", L"Quillmark 8"), L"");
  WriteText(log, "File Copy: Qmkview8.exe\nMade Dir: C:\\Menu\\Programs\\G\n");
  EXPECT_EQ(RecoverGroupFromLog(log, L"C:\\Menu\\Programs", L"C:\\Menu\\Startup", L"Keep"), L"Keep");
  EXPECT_EQ(RecoverGroupFromLog(dir / L"missing.log", L"C:\\Menu\\Programs", L"C:\\Menu\\Startup", L"Keep"),
            L"Keep");

  // "QmkUnInst.log" is read before "install.log", which serves only when the journal is missing;
  // the folders follow the type.
  std::wstring common = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
  std::wstring user = ShellFolderPath(CSIDL_PROGRAMS);
  ASSERT_GT(common.size(), 4u);
  ASSERT_GT(user.size(), 4u);
  ASSERT_TRUE(::DeleteFileW(log.c_str()));
  WriteText(dir / L"install.log", JournalLink(common + L"\\From Old Log\\Quillmark 8.lnk"));
  EXPECT_EQ(RecoverGroupName(dir.path(), 1, L"Quillmark 8"), L"From Old Log");
  WriteText(dir / L"QmkUnInst.log", JournalLink(common + L"\\All Users Group\\Quillmark 8.lnk") +
                                        JournalLink(user + L"\\My Group\\Quillmark 8.lnk"));
  EXPECT_EQ(RecoverGroupName(dir.path(), 1, L"Quillmark 8"), L"All Users Group");
  EXPECT_EQ(RecoverGroupName(dir.path(), 0, L"Quillmark 8"), L"My Group");
  EXPECT_EQ(RecoverGroupName(dir.path(), 2, L"Quillmark 8"), L"Quillmark 8");
}

// Auto-start is on when "Quillmark 8.lnk" lies in either start-up folder longer than four characters; no "h5t" probe file stays.
TEST(DetectAutoStart, FindsTheStartupShortcut) {
  TempDir common(L"qm common startup"), user(L"qm user startup");
  EXPECT_EQ(DetectAutoStart(common.path(), user.path()), 0);
  WriteText(user / L"Quillmark 8.lnk", "link");
  EXPECT_EQ(DetectAutoStart(common.path(), user.path()), 1);
  ::DeleteFileW((user / L"Quillmark 8.lnk").c_str());
  WriteText(common / L"Quillmark 8.lnk", "link");
  EXPECT_EQ(DetectAutoStart(common.path(), user.path()), 1);
  EXPECT_EQ(DetectAutoStart(common.path(), L""), 1);
  EXPECT_EQ(DetectAutoStart(L"", user.path()), 0);

  WIN32_FIND_DATAW data;
  UniqueFindHandle find(::FindFirstFileW((common / L"h5t*").c_str(), &data));
  EXPECT_FALSE(find) << "probe file left: " << qmtest::Narrow(data.cFileName);

  // Folders of four characters or fewer are not looked at.
  const std::wstring shortFolder = L"C:\\q";
  ASSERT_TRUE(::CreateDirectoryW(shortFolder.c_str(), nullptr) || qmtest::DirExists(shortFolder));
  WriteText(shortFolder + L"\\Quillmark 8.lnk", "link");
  EXPECT_EQ(DetectAutoStart(shortFolder, shortFolder), 0);
  EXPECT_EQ(DetectAutoStart(shortFolder + L"\\", L""), 1);
  qmtest::RemoveTree(shortFolder);
}

// Over an existing installation: a declined downgrade stops before anything is taken over;
// otherwise the version, the type from AllUsers and the group from the journal are taken over
// (a portable type and its group stay), and the shortcut search overrides "-autostart".
TEST(AdoptExistingInstallation, TakesOverUnlessDeclinedOrPortable) {
  RegistryGuard guard;
  TempDir installed(L"qm installed"), package(L"qm package");
  PlaceProduct(L"8.6.0.0", installed.path());
  PlaceProduct(L"8.4.0.0", package.path());
  WriteText(installed / L"QmkUnInst.log",
            JournalLink(ShellFolderPath(CSIDL_COMMON_PROGRAMS) + L"\\Capture Tools\\Quillmark 8.lnk"));
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", L"B");

  MessageBoxRecorder boxes;
  boxes.Answer(IDNO);
  InstallSettings declined = Over(installed, package, 0, 0, 1);
  EXPECT_FALSE(AdoptExistingInstallation(declined));
  ASSERT_EQ(boxes.shown().size(), 1u);
  EXPECT_NE(boxes.shown()[0].text.find(L"v. 8.06.00.00"), std::wstring::npos);
  EXPECT_NE(boxes.shown()[0].text.find(L"older version 8.04.00.00"), std::wstring::npos);
  EXPECT_EQ(std::tuple(declined.installType, declined.groupName, declined.autoStart), std::tuple(0, L"Quillmark 8", 1));

  InstallSettings silent = Over(installed, package, 1, 0, 1);
  EXPECT_TRUE(AdoptExistingInstallation(silent));
  EXPECT_EQ(VersionNumber(silent.newVersion), VersionNumber(Quad(8, 4, 0, 0)));
  EXPECT_EQ(std::tuple(silent.installType, silent.groupName, silent.autoStart), std::tuple(1, L"Capture Tools", 0));

  InstallSettings portable = Over(installed, package, 1, 2, 1);
  EXPECT_TRUE(AdoptExistingInstallation(portable));
  EXPECT_EQ(std::tuple(portable.installType, portable.groupName, portable.autoStart), std::tuple(2, L"Quillmark 8", 0));
  EXPECT_EQ(boxes.shown().size(), 1u);
}

// A package is damaged without a versioned product or without its install script.
TEST(PackageIsDamaged, NeedsVersionAndScript) {
  TempDir package;
  InstallSettings settings;
  settings.sourceDir = package.path();
  settings.newVersion = Quad(8, 5, 3, 0);
  EXPECT_TRUE(PackageIsDamaged(settings));
  WriteText(package / L"QmkUnInst.log", "File Copy: Qmkview8.exe\r\n");
  EXPECT_FALSE(PackageIsDamaged(settings));
  settings.newVersion = Quad(0, 9, 9, 9);
  EXPECT_TRUE(PackageIsDamaged(settings));
}

namespace {
std::vector<std::pair<UINT, DWORD>> exitWindowsCalls;
BOOL WINAPI FakeExitWindows(UINT flags, DWORD reason) {
  exitWindowsCalls.emplace_back(flags, reason);
  return TRUE;
}
}  // namespace

// With a restart pending "-runafter" restarts Windows instead of starting the product (which
// the end-to-end run checks; so does the damaged-package abort); without "-runafter" nothing happens.
TEST(RunAfterSetup, RestartsWhenARestartIsPending) {
  TempDir installed(L"qm run after"), traceDir;
  PlaceProduct(L"8.5.3.0", installed.path());
  std::wstring trace = traceDir / L"trace.log";
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace.c_str());
  ExitWindowsFn saved = std::exchange(pExitWindowsEx, FakeExitWindows);
  exitWindowsCalls.clear();
  InstallSettings settings;
  settings.installDir = installed.path();
  settings.restartNeeded = 1;
  RunAfterSetup(settings);
  settings.runAfter = 1;
  RunAfterSetup(settings);
  pExitWindowsEx = saved;
  ::Sleep(1500);
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
  EXPECT_EQ(qmtest::ReadFileBytes(trace).find("started"), std::string::npos);
  ASSERT_EQ(exitWindowsCalls.size(), 1u);
  EXPECT_TRUE(exitWindowsCalls[0].first & EWX_REBOOT);
}
