// The install-mode entry's look at the machine: the existing installation,
// versions and the version prompt, the program group and auto-start of an
// earlier install, the package check, and what happens after the install.
#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>

#include <fstream>

#include "app/product.h"
#include "install/registration.h"
#include "res/resource.h"
#include "sys/platform.h"
#include "sys/privileges.h"
#include "sys/registry.h"
#include "ui/message_box.h"
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

VersionQuad Quad(unsigned a, unsigned b, unsigned c, unsigned d) {
  VersionQuad v;
  v.major = a, v.minor = b, v.release = c, v.build = d;
  return v;
}

void WriteText(const std::wstring& path, const std::string& text) {
  ASSERT_TRUE(qmtest::WriteFileBytes(path, text));
}

std::string JournalLink(const std::wstring& path) { return "Shell Link: " + qmtest::Narrow(path) + "\r\n"; }

}  // namespace

// The versions come from the fixed file-version words of the resource; no resource or no file gives 0.0.0.0.
TEST(ReadFileVersion, ReadsTheFourParts) {
  VersionQuad v = ReadFileVersion(StandinExe(L"8.5.3.7"));
  EXPECT_EQ(v.major, 8u);
  EXPECT_EQ(v.minor, 5u);
  EXPECT_EQ(v.release, 3u);
  EXPECT_EQ(v.build, 7u);
  EXPECT_EQ(VersionNumber(ReadFileVersion(StandinExe(L"8.6.0.0"))), VersionNumber(Quad(8, 6, 0, 0)));
  EXPECT_EQ(VersionNumber(ReadFileVersion(qmtest::BinDir() + L"\\standin-noversion\\Qmkview8.exe")), 0u);
  EXPECT_EQ(VersionNumber(ReadFileVersion(qmtest::BinDir() + L"\\no-such-file.exe")), 0u);
}

// The existing installation is the vendor "Path", else App Paths cut before the product name, one backslash dropped.
TEST(ExistingInstallFolder, VendorPathThenAppPaths) {
  RegistryGuard guard;
  EXPECT_EQ(ExistingInstallFolder(), L"");
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPathKey, nullptr, L"D:\\Tools\\QM\\Qmkview8.exe");
  EXPECT_EQ(ExistingInstallFolder(), L"D:\\Tools\\QM");
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path", L"E:\\Quill\\");
  EXPECT_EQ(ExistingInstallFolder(), L"E:\\Quill");
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path", L"");
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPathKey, nullptr, L"D:\\Tools\\QM\\Other.exe");
  EXPECT_EQ(ExistingInstallFolder(), L"");
}

// "AllUsers" exactly "B" is all users; anything else, or nothing, is the current user.
TEST(ExistingInstallType, OnlyCapitalBMeansAllUsers) {
  RegistryGuard guard;
  EXPECT_EQ(ExistingInstallType(), 0);
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", L"B");
  EXPECT_EQ(ExistingInstallType(), 1);
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", L"b");
  EXPECT_EQ(ExistingInstallType(), 0);
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", L"A");
  EXPECT_EQ(ExistingInstallType(), 0);
}

// An older package asks with string 16 (installed version first), Yes/No with the question mark.
TEST(ConfirmVersionChange, OlderVersionAsksWithBothVersions) {
  MessageBoxRecorder boxes;
  boxes.Answer(IDNO);
  EXPECT_FALSE(ConfirmVersionChange(0, Quad(8, 6, 0, 0), Quad(8, 5, 3, 7)));
  ASSERT_EQ(boxes.shown().size(), 1u);
  EXPECT_EQ(boxes.shown()[0].text,
            L"Quillmark v. 8.06.00.00 is already installed on this machine. You are trying to "
            L"install an older version 8.05.03.07 .\n\nDo you still want to continue?");
  EXPECT_EQ(boxes.shown()[0].style, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION));
  boxes.Answer(IDYES);
  EXPECT_TRUE(ConfirmVersionChange(0, Quad(8, 6, 0, 0), Quad(8, 5, 3, 7)));
}

// The same version asks with string 17 and the one version; only Yes goes on.
TEST(ConfirmVersionChange, SameVersionAsksToRepair) {
  MessageBoxRecorder boxes;
  boxes.Answer(IDYES);
  EXPECT_TRUE(ConfirmVersionChange(0, Quad(8, 5, 3, 0), Quad(8, 5, 3, 0)));
  ASSERT_EQ(boxes.shown().size(), 1u);
  EXPECT_EQ(boxes.shown()[0].text,
            L"Quillmark ver. 8.05.03.00 is already installed on this machine.\n\nWould you like "
            L"to run this setup again to select different options or repair the files?");
  boxes.Answer(IDCANCEL);
  EXPECT_FALSE(ConfirmVersionChange(0, Quad(8, 5, 3, 0), Quad(8, 5, 3, 0)));
}

// A newer package, or any unattended mode, goes on without a question.
TEST(ConfirmVersionChange, NoQuestionWhenNewerOrUnattended) {
  MessageBoxRecorder boxes;
  EXPECT_TRUE(ConfirmVersionChange(0, Quad(8, 5, 3, 0), Quad(8, 5, 3, 1)));
  EXPECT_TRUE(ConfirmVersionChange(0, Quad(0, 0, 0, 0), Quad(8, 4, 0, 0)));
  EXPECT_TRUE(ConfirmVersionChange(1, Quad(8, 6, 0, 0), Quad(8, 4, 0, 0)));
  EXPECT_TRUE(ConfirmVersionChange(2, Quad(8, 5, 3, 0), Quad(8, 5, 3, 0)));
  EXPECT_TRUE(boxes.shown().empty());
}

// Versions compare as one number, so a part above 99 spills over: 8.4.100.0 counts as newer than 8.5.0.0.
TEST(ConfirmVersionChange, PartsAbove99SpillOver) {
  MessageBoxRecorder boxes;
  EXPECT_TRUE(ConfirmVersionChange(0, Quad(8, 5, 0, 0), Quad(8, 4, 100, 1)));
  EXPECT_TRUE(boxes.shown().empty());
}

// The group is taken from the last matching "Shell Link: " line, with its letter case; start-up and foreign links do not count.
TEST(RecoverGroupFromLog, LastLinkInProgramsFolderWins) {
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
}

// A link right in the programs folder leaves no group; a log without links keeps the given one.
TEST(RecoverGroupFromLog, LinkWithoutGroupAndLogWithoutLinks) {
  TempDir dir;
  std::wstring log = dir / L"QmkUnInst.log";
  WriteText(log, "Shell Link: C:\\Menu\\Programs\\Quillmark 8.lnk\n");
  EXPECT_EQ(RecoverGroupFromLog(log, L"C:\\Menu\\Programs\\", L"C:\\Menu\\Startup", L"Quillmark 8"), L"");
  WriteText(log, "File Copy: Qmkview8.exe\nMade Dir: C:\\Menu\\Programs\\G\n");
  EXPECT_EQ(RecoverGroupFromLog(log, L"C:\\Menu\\Programs", L"C:\\Menu\\Startup", L"Quillmark 8"),
            L"Quillmark 8");
  EXPECT_EQ(RecoverGroupFromLog(dir / L"missing.log", L"C:\\Menu\\Programs", L"C:\\Menu\\Startup", L"Keep"),
            L"Keep");
}

// "QmkUnInst.log" is read before "install.log", which serves only when the journal is missing; the folders follow the type.
TEST(RecoverGroupName, JournalBeforeOldLogAndFoldersOfTheType) {
  TempDir dir;
  std::wstring common = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
  std::wstring user = ShellFolderPath(CSIDL_PROGRAMS);
  ASSERT_GT(common.size(), 4u);
  ASSERT_GT(user.size(), 4u);
  WriteText(dir / L"install.log", JournalLink(common + L"\\From Old Log\\Quillmark 8.lnk"));
  EXPECT_EQ(RecoverGroupName(dir.path(), 1, L"Quillmark 8"), L"From Old Log");
  WriteText(dir / L"QmkUnInst.log", JournalLink(common + L"\\All Users Group\\Quillmark 8.lnk") +
                                        JournalLink(user + L"\\My Group\\Quillmark 8.lnk"));
  EXPECT_EQ(RecoverGroupName(dir.path(), 1, L"Quillmark 8"), L"All Users Group");
  EXPECT_EQ(RecoverGroupName(dir.path(), 0, L"Quillmark 8"), L"My Group");
  EXPECT_EQ(RecoverGroupName(dir.path(), 2, L"Quillmark 8"), L"Quillmark 8");
}

// Auto-start is on when "Quillmark 8.lnk" lies in either start-up folder; the probe leaves no "h5t" file behind.
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
  HANDLE find = ::FindFirstFileW((common / L"h5t*").c_str(), &data);
  EXPECT_EQ(find, INVALID_HANDLE_VALUE) << "probe file left: " << qmtest::Narrow(data.cFileName);
  if (find != INVALID_HANDLE_VALUE) ::FindClose(find);
}

// Folders of four characters or fewer are not looked at.
TEST(DetectAutoStart, ShortFoldersAreIgnored) {
  const std::wstring shortFolder = L"C:\\q";
  ASSERT_TRUE(::CreateDirectoryW(shortFolder.c_str(), nullptr) || qmtest::DirExists(shortFolder));
  WriteText(shortFolder + L"\\Quillmark 8.lnk", "link");
  EXPECT_EQ(DetectAutoStart(shortFolder, shortFolder), 0);
  EXPECT_EQ(DetectAutoStart(shortFolder + L"\\", L""), 1);
  qmtest::RemoveTree(shortFolder);
}

// Over an existing installation the versions, the type, the group and auto-start are taken over.
TEST(AdoptExistingInstallation, TakesOverTypeGroupAndAutoStart) {
  RegistryGuard guard;
  TempDir installed(L"qm installed"), package(L"qm package");
  PlaceProduct(L"8.5.3.0", installed.path());
  PlaceProduct(L"8.6.0.0", package.path());
  std::wstring common = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
  WriteText(installed / L"QmkUnInst.log", JournalLink(common + L"\\Capture Tools\\Quillmark 8.lnk"));
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", L"B");
  std::wstring userStartupLink = ShellFolderPath(CSIDL_STARTUP) + L"\\Quillmark 8.lnk";
  ASSERT_FALSE(qmtest::FileExists(userStartupLink));
  WriteText(userStartupLink, "link");

  MessageBoxRecorder boxes;
  InstallSettings settings;
  settings.installMode = 0;
  settings.installDir = installed.path();
  settings.sourceDir = package.path();
  settings.groupName = L"Quillmark 8";
  EXPECT_TRUE(AdoptExistingInstallation(settings));
  ::DeleteFileW(userStartupLink.c_str());

  EXPECT_TRUE(boxes.shown().empty());
  EXPECT_EQ(VersionNumber(settings.newVersion), VersionNumber(Quad(8, 6, 0, 0)));
  EXPECT_EQ(settings.installType, 1);
  EXPECT_EQ(settings.groupName, L"Capture Tools");
  EXPECT_EQ(settings.autoStart, 1);
}

// A declined downgrade stops before anything else is taken over; a portable type stays portable.
TEST(AdoptExistingInstallation, DeclinedDowngradeAndPortableType) {
  RegistryGuard guard;
  TempDir installed(L"qm installed"), package(L"qm package");
  PlaceProduct(L"8.6.0.0", installed.path());
  PlaceProduct(L"8.4.0.0", package.path());
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", L"B");

  MessageBoxRecorder boxes;
  boxes.Answer(IDNO);
  InstallSettings settings;
  settings.installMode = 0;
  settings.installType = 0;
  settings.autoStart = 1;
  settings.installDir = installed.path();
  settings.sourceDir = package.path();
  EXPECT_FALSE(AdoptExistingInstallation(settings));
  ASSERT_EQ(boxes.shown().size(), 1u);
  EXPECT_NE(boxes.shown()[0].text.find(L"8.06.00.00"), std::wstring::npos);
  EXPECT_NE(boxes.shown()[0].text.find(L"older version 8.04.00.00"), std::wstring::npos);
  EXPECT_EQ(settings.installType, 0);
  EXPECT_EQ(settings.autoStart, 1);

  InstallSettings portable;
  portable.installMode = 1;
  portable.installType = 2;
  portable.autoStart = 1;
  portable.installDir = installed.path();
  portable.sourceDir = package.path();
  portable.groupName = L"Quillmark 8";
  EXPECT_TRUE(AdoptExistingInstallation(portable));
  EXPECT_EQ(portable.installType, 2);
  EXPECT_EQ(portable.groupName, L"Quillmark 8");
  EXPECT_EQ(portable.autoStart, 0) << "the shortcut search overrides -autostart";
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
std::vector<std::wstring> events;
HINSTANCE WINAPI FakeShellExecute(HWND, LPCWSTR verb, LPCWSTR file, LPCWSTR parameters, LPCWSTR,
                                  INT show) {
  events.push_back(std::wstring(L"shell ") + verb + L" " + file + L" " +
                   (parameters ? parameters : L"-") + L" " + std::to_wstring(show));
  return reinterpret_cast<HINSTANCE>(42);
}
void WINAPI FakeExitProcess(UINT code) { events.push_back(L"exit " + std::to_wstring(code)); }
}  // namespace

// The abort shows string 18 as an error, opens the home page, then ends the process with code 1.
TEST(SetupDamagedAbort, MessageHomePageExit) {
  events.clear();
  SetMessageBoxResponder([](const std::wstring& text, UINT style) {
    events.push_back(L"box " + std::to_wstring(style) + L" " + text);
    return IDOK;
  });
  ShellExecuteFn savedShell = pShellExecuteW;
  ExitProcessFn savedExit = pExitProcess;
  pShellExecuteW = FakeShellExecute;
  pExitProcess = FakeExitProcess;
  SetupDamagedAbort();
  pShellExecuteW = savedShell;
  pExitProcess = savedExit;
  SetMessageBoxResponder(nullptr);

  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[0], L"box " + std::to_wstring(MB_OK | MB_ICONERROR) +
                           L" This setup files are damaged, installation aborted.\n\nPlease download "
                           L"the product again from " + kMakerHomePage + L" and re-try the setup.");
  EXPECT_EQ(events[1], std::wstring(L"shell open ") + kMakerHomePage + L" - " + std::to_wstring(SW_SHOW));
  EXPECT_EQ(events[2], L"exit 1");
}

namespace {
std::vector<std::pair<UINT, DWORD>> exitWindowsCalls;
BOOL WINAPI FakeExitWindows(UINT flags, DWORD reason) {
  exitWindowsCalls.emplace_back(flags, reason);
  return TRUE;
}

// Lines of the stand-in trace that contain word.
std::vector<std::string> TraceLines(const std::wstring& trace, const std::string& word) {
  std::vector<std::string> found;
  std::string text = qmtest::ReadFileBytes(trace);
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    std::string line = text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (line.find(word) != std::string::npos) found.push_back(line);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return found;
}
}  // namespace

// "-runafter" starts the installed product from its folder; without it nothing starts.
TEST(RunAfterSetup, StartsTheProduct) {
  TempDir installed(L"qm run after"), traceDir;
  PlaceProduct(L"8.5.3.0", installed.path());
  std::wstring trace = traceDir / L"trace.log";
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace.c_str());
  InstallSettings settings;
  settings.installDir = installed.path();
  RunAfterSetup(settings);
  ::Sleep(1500);
  EXPECT_TRUE(TraceLines(trace, "started").empty());

  settings.runAfter = 1;
  RunAfterSetup(settings);
  std::vector<std::string> started;
  for (int i = 0; i < 100 && started.empty(); ++i, ::Sleep(100)) started = TraceLines(trace, "started");
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
  ASSERT_EQ(started.size(), 1u);
  EXPECT_NE(started[0].find(qmtest::Narrow(installed.path()) + "\\Qmkview8.exe"), std::string::npos)
      << started[0];
  DWORD pid = std::stoul(started[0]);
  HANDLE process = ::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid);
  ASSERT_NE(process, nullptr);
  ::TerminateProcess(process, 0);
  ::WaitForSingleObject(process, 5000);
  ::CloseHandle(process);
}

// With a pending restart "-runafter" restarts Windows instead of starting the product.
TEST(RunAfterSetup, RestartsWhenARestartIsPending) {
  TempDir installed(L"qm run after"), traceDir;
  PlaceProduct(L"8.5.3.0", installed.path());
  std::wstring trace = traceDir / L"trace.log";
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace.c_str());
  exitWindowsCalls.clear();
  ExitWindowsFn saved = pExitWindowsEx;
  pExitWindowsEx = FakeExitWindows;
  InstallSettings settings;
  settings.installDir = installed.path();
  settings.runAfter = 1;
  settings.restartNeeded = 1;
  RunAfterSetup(settings);
  pExitWindowsEx = saved;
  ::Sleep(1500);
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
  ASSERT_EQ(exitWindowsCalls.size(), 1u);
  EXPECT_TRUE(exitWindowsCalls[0].first & EWX_REBOOT);
  EXPECT_TRUE(TraceLines(trace, "started").empty());
}

namespace {
// Runs the whole entry with the process-wide settings fresh, and restores them.
int RunEntry(const std::vector<std::wstring>& argv, int installMode) {
  InstallSettings saved = installSettings;
  installSettings = InstallSettings{};
  installSettings.installMode = installMode;
  int result = RunInstallModeEntry(argv);
  installSettings = saved;
  return result;
}
}  // namespace

// The test program's folder is no package: the entry shows string 18, opens the home page and ends with code 1.
TEST(RunInstallModeEntry, FolderWithoutPackageAborts) {
  RegistryGuard guard;
  events.clear();
  SetMessageBoxResponder([](const std::wstring& text, UINT style) {
    events.push_back(L"box " + std::to_wstring(style) + L" " + text.substr(0, 16));
    return IDOK;
  });
  ShellExecuteFn savedShell = pShellExecuteW;
  ExitProcessFn savedExit = pExitProcess;
  pShellExecuteW = FakeShellExecute;
  pExitProcess = FakeExitProcess;
  int result = RunEntry({qmtest::BinDir() + L"\\setup.exe", L"-s"}, 1);
  pShellExecuteW = savedShell;
  pExitProcess = savedExit;
  SetMessageBoxResponder(nullptr);

  EXPECT_EQ(result, 1);
  ASSERT_EQ(events.size(), 3u);
  EXPECT_EQ(events[0], L"box " + std::to_wstring(MB_OK | MB_ICONERROR) + L" This setup files");
  EXPECT_EQ(events[2], L"exit 1");
  EXPECT_FALSE(RegKeyExists(HKEY_LOCAL_MACHINE, kVendorKey));
}

// Declining the version question ends the entry with 0 before the package is even checked.
TEST(RunInstallModeEntry, DeclinedVersionQuestionEndsAtOnce) {
  RegistryGuard guard;
  TempDir installed(L"qm installed");
  PlaceProduct(L"8.6.0.0", installed.path());
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path", installed.path().c_str());
  MessageBoxRecorder boxes;
  boxes.Answer(IDNO);
  ShellExecuteFn savedShell = pShellExecuteW;
  ExitProcessFn savedExit = pExitProcess;
  pShellExecuteW = FakeShellExecute;
  pExitProcess = FakeExitProcess;
  events.clear();
  int result = RunEntry({qmtest::BinDir() + L"\\setup.exe"}, 0);
  pShellExecuteW = savedShell;
  pExitProcess = savedExit;

  EXPECT_EQ(result, 0);
  ASSERT_EQ(boxes.shown().size(), 1u);
  EXPECT_NE(boxes.shown()[0].text.find(L"older version 0.00.00.00"), std::wstring::npos);
  EXPECT_TRUE(events.empty()) << "no damaged-package abort after a declined question";
  EXPECT_EQ(ReadRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers"), L"");
}
