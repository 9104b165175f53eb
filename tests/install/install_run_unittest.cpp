#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>

#include <string>
#include <vector>

#include "app/settings.h"
#include "install/install_run.h"
#include "sys/platform.h"
#include "sys/registry.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::DirExists;
using qmtest::FileExists;
using qmtest::Narrow;

constexpr wchar_t kVendor[] = L"SOFTWARE\\Lanternfold\\Quillmark 8";

class InstallRunTest : public testing::Test {
 protected:
  void SetUp() override {
    qmtest::DeleteProductRegistry();
    RemoveShortcuts();
    ::CreateDirectoryW(package_.c_str(), nullptr);
    InstallSettings& s = installSettings;
    s.installMode = 1;
    s.installType = 0;
    s.desktopIcon = 1;
    s.autoStart = 0;
    s.installDir = installDir_;
    s.sourceDir = package_;
    s.groupName = L"QmEngine Run Group";
    s.defaultDirUsed = 1;
    s.newVersion = {8, 5, 3, 0};
    s.sfxFolder.clear();
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace_.c_str());
  }
  void TearDown() override {
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
    WaitForStandins();
    qmtest::DeleteProductRegistry();
    RemoveShortcuts();
    qmtest::ForgetPendingRenamesUnder(root_.path());
  }
  static void RemoveShortcuts() {
    const std::wstring programs = ShellFolderPath(CSIDL_PROGRAMS);
    for (const wchar_t* group : {L"QmEngine Run Group", L"QmEngine Old Group", L"QmEngine New"})
      qmtest::RemoveTree(programs + L"\\" + group);
    ::DeleteFileW((ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk").c_str());
  }
  // Stand-ins started with -regonly end at once; their folder goes after them.
  void WaitForStandins() {
    std::string lines = qmtest::ReadFileBytes(trace_);
    for (size_t at = 0; at < lines.size();) {
      DWORD pid = std::strtoul(lines.c_str() + at, nullptr, 10);
      UniqueHandle process(::OpenProcess(SYNCHRONIZE, FALSE, pid));
      if (process) ::WaitForSingleObject(process.get(), 10000);
      size_t end = lines.find('\n', at);
      at = end == std::string::npos ? lines.size() : end + 1;
    }
  }
  // Waits up to tenths / 10 seconds for the trace to name event.
  std::string TraceWith(const std::string& event, int tenths = 100) {
    std::string lines;
    for (int i = 0; i < tenths && lines.find(event) == std::string::npos; ++i) {
      ::Sleep(100);
      lines = qmtest::ReadFileBytes(trace_);
    }
    return lines;
  }
  std::vector<std::string> Journal() const { return qmtest::ReadLines(installDir_ + L"\\QmkUnInst.log"); }
  void PutPackageFile(const std::wstring& name, const std::string& bytes) {
    ASSERT_TRUE(qmtest::WriteFileBytes(package_ + L"\\" + name, bytes));
  }
  // Uses the stand-in product as the package's executable when it is built.
  bool PutStandinProduct() {
    const std::wstring standin = qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe";
    if (::CopyFileW(standin.c_str(), (package_ + L"\\Qmkview8.exe").c_str(), FALSE)) return true;
    PutPackageFile(L"Qmkview8.exe", "program");
    return false;
  }
  bool AnyRegistryEntry() const {
    return RegKeyExists(HKEY_LOCAL_MACHINE, kVendor) ||
           RegKeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Quillmark 8") ||
           RegKeyExists(HKEY_LOCAL_MACHINE,
                        L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Qmkview8.exe") ||
           RegKeyExists(HKEY_CLASSES_ROOT, L"Quillmark.8") ||
           RegKeyExists(HKEY_CLASSES_ROOT, L"Applications\\Qmkview8.exe") ||
           !ReadRegString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"Quillmark.8").empty();
  }

  qmtest::SettingsRestorer restorer_;
  qmtest::TempDir root_{L"qm engine run"};
  std::wstring package_ = root_ / L"package";
  std::wstring installDir_ = root_ / L"Programs\\Quillmark 8";
  std::wstring trace_ = root_ / L"trace.log";
};

// A fresh current-user run: files, the journal (script, line end, group and
// shortcuts), registry, imported settings and the product's -regonly start.
TEST_F(InstallRunTest, FreshCurrentUserInstall) {
  const bool standin = PutStandinProduct();
  PutPackageFile(L"Qmkview8Man.chm", "help");
  const std::wstring sfx = root_ / L"sfx";
  ::CreateDirectoryW(sfx.c_str(), nullptr);
  ASSERT_TRUE(qmtest::WriteFileBytes(sfx + L"\\Qmkview8.ini", "[settings]"));
  installSettings.sfxFolder = sfx;
  // The package's script lacks a final line break.
  ASSERT_TRUE(qmtest::WriteFileBytes(package_ + L"\\QmkUnInst.log",
                                     "File Copy: Qmkview8.exe\r\nMake Dir: data\r\nFile Copy: Qmkview8Man.chm"));

  EXPECT_EQ(RunInstall(), 0);

  EXPECT_TRUE(FileExists(installDir_ + L"\\Qmkview8.exe"));
  EXPECT_TRUE(FileExists(installDir_ + L"\\Qmkview8Man.chm"));
  EXPECT_TRUE(DirExists(installDir_ + L"\\data"));
  EXPECT_EQ(qmtest::ReadFileBytes(installDir_ + L"\\Qmkview8.ini"), "[settings]");
  const std::wstring group = ShellFolderPath(CSIDL_PROGRAMS) + L"\\QmEngine Run Group";
  const std::wstring desktop = ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk";
  EXPECT_TRUE(FileExists(group + L"\\Quillmark 8.lnk"));
  EXPECT_TRUE(FileExists(desktop));
  EXPECT_EQ(Journal(), (std::vector<std::string>{
                           "File Copy: Qmkview8.exe", "Make Dir: data", "File Copy: Qmkview8Man.chm",
                           "Made Dir: " + Narrow(group), "Shell Link: " + Narrow(group) + "\\Quillmark 8.lnk",
                           "Shell Link: " + Narrow(group) + "\\Quillmark 8 Help.lnk",
                           "Shell Link: " + Narrow(desktop)}));
  EXPECT_EQ(ReadRegString(HKEY_LOCAL_MACHINE, kVendor, L"Path"), installDir_);
  EXPECT_EQ(ReadRegString(HKEY_LOCAL_MACHINE, kVendor, L"AllUsers"), L"A");
  if (!standin) GTEST_SKIP() << "stand-in product not built: -regonly not checked";
  std::string trace = TraceWith("regonly");
  EXPECT_NE(trace.find("regonly " + Narrow(installDir_) + "\\Qmkview8.exe"), std::string::npos) << trace;
}

// A package script that ends with a line break leaves one empty line before
// setup's own entries.
TEST_F(InstallRunTest, JournalGetsOneEmptyLineAfterScript) {
  PutPackageFile(L"Qmkview8.exe", "program");
  installSettings.desktopIcon = 0;
  ASSERT_TRUE(qmtest::WriteLines(package_ + L"\\QmkUnInst.log", {"File Copy: Qmkview8.exe"}));
  RunInstall();
  const std::wstring group = ShellFolderPath(CSIDL_PROGRAMS) + L"\\QmEngine Run Group";
  std::vector<std::string> journal = Journal();
  ASSERT_GE(journal.size(), 3u);
  EXPECT_EQ(journal[0], "File Copy: Qmkview8.exe");
  EXPECT_EQ(journal[1], "");
  EXPECT_EQ(journal[2], "Made Dir: " + Narrow(group));
}

// A portable run copies files and journal and imports settings, but makes no
// shortcut, writes no registry value and does not start the product.
TEST_F(InstallRunTest, PortableInstallTouchesNoSystemPlace) {
  const bool standin = PutStandinProduct();
  const std::wstring sfx = root_ / L"sfx";
  ::CreateDirectoryW(sfx.c_str(), nullptr);
  ASSERT_TRUE(qmtest::WriteFileBytes(sfx + L"\\Qmkview8.reg", "REGEDIT4"));
  installSettings.sfxFolder = sfx;
  installSettings.installType = 2;
  installSettings.autoStart = 1;
  ASSERT_TRUE(qmtest::WriteLines(package_ + L"\\QmkUnInst.log", {"File Copy: Qmkview8.exe"}));

  EXPECT_EQ(RunInstall(), 0);
  EXPECT_TRUE(FileExists(installDir_ + L"\\Qmkview8.exe"));
  EXPECT_EQ(qmtest::ReadFileBytes(installDir_ + L"\\Qmkview8.reg"), "REGEDIT4");
  EXPECT_EQ(Journal(), (std::vector<std::string>{"File Copy: Qmkview8.exe", ""}));
  EXPECT_FALSE(DirExists(ShellFolderPath(CSIDL_PROGRAMS) + L"\\QmEngine Run Group"));
  EXPECT_FALSE(FileExists(ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk"));
  EXPECT_FALSE(FileExists(ShellFolderPath(CSIDL_STARTUP) + L"\\Quillmark 8.lnk"));
  EXPECT_FALSE(AnyRegistryEntry());
  if (!standin) GTEST_SKIP() << "stand-in product not built: -regonly not checked";
  EXPECT_EQ(TraceWith("regonly", 20).find("regonly"), std::string::npos);
}

// Reinstalling into the same folder with another group name: the old group
// and shortcuts named by both old journals go first, the files that the new
// script declares obsolete are deleted before the copy pass.
TEST_F(InstallRunTest, ReinstallReplacesGroupAndObsoleteFiles) {
  PutPackageFile(L"Qmkview8.exe", "program one");
  PutPackageFile(L"legacy.txt", "legacy");
  PutPackageFile(L"stale.dat", "stale");
  ASSERT_TRUE(qmtest::WriteLines(package_ + L"\\QmkUnInst.log",
                                 {"File Copy: Qmkview8.exe", "File Copy: legacy.txt", "File Copy: stale.dat",
                                  "Make Dir: data"}));
  installSettings.groupName = L"QmEngine Old Group";
  RunInstall();
  const std::wstring programs = ShellFolderPath(CSIDL_PROGRAMS);
  ASSERT_TRUE(FileExists(programs + L"\\QmEngine Old Group\\Quillmark 8.lnk"));
  ASSERT_TRUE(FileExists(installDir_ + L"\\legacy.txt"));
  // A journal of an earlier version names a shortcut of its own.
  const std::wstring olderLink = root_ / L"older version.lnk";
  ASSERT_TRUE(qmtest::WriteFileBytes(olderLink, "link"));
  ASSERT_TRUE(qmtest::WriteLines(installDir_ + L"\\install.log", {"Shell Link: " + Narrow(olderLink)}));

  const std::wstring package2 = root_ / L"package two";
  ::CreateDirectoryW(package2.c_str(), nullptr);
  ASSERT_TRUE(qmtest::WriteFileBytes(package2 + L"\\Qmkview8.exe", "program two"));
  ASSERT_TRUE(qmtest::WriteFileBytes(package2 + L"\\fresh.dat", "fresh"));
  ASSERT_TRUE(qmtest::WriteLines(package2 + L"\\QmkUnInst.log",
                                 {"File Del: legacy.txt | replaced by fresh.dat", "File Del: *.dat",
                                  "File Copy: Qmkview8.exe", "File Copy: fresh.dat", "Make Dir: data"}));
  installSettings.sourceDir = package2;
  installSettings.groupName = L"QmEngine New/Group";
  installSettings.defaultDirUsed = 0;
  RunInstall();

  EXPECT_FALSE(DirExists(programs + L"\\QmEngine Old Group"));
  EXPECT_FALSE(FileExists(olderLink));
  const std::wstring group = programs + L"\\QmEngine New\\Group";
  EXPECT_TRUE(FileExists(group + L"\\Quillmark 8.lnk"));
  EXPECT_TRUE(FileExists(ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk"));
  EXPECT_FALSE(FileExists(installDir_ + L"\\legacy.txt"));
  EXPECT_FALSE(FileExists(installDir_ + L"\\stale.dat"));
  EXPECT_EQ(qmtest::ReadFileBytes(installDir_ + L"\\fresh.dat"), "fresh");
  EXPECT_EQ(qmtest::ReadFileBytes(installDir_ + L"\\Qmkview8.exe"), "program two");
  EXPECT_TRUE(DirExists(installDir_ + L"\\data"));
  std::vector<std::string> madeDirs;
  for (const std::string& line : Journal())
    if (line.rfind("Made Dir: ", 0) == 0) madeDirs.push_back(line);
  EXPECT_EQ(madeDirs, std::vector<std::string>{"Made Dir: " + Narrow(group)});
}

// A fresh installation into the default folder leaves whatever an old journal
// there names alone.
TEST_F(InstallRunTest, DefaultFolderSkipsCleanup) {
  PutPackageFile(L"Qmkview8.exe", "program");
  PutPackageFile(L"kept.txt", "new");
  ASSERT_TRUE(qmtest::WriteLines(package_ + L"\\QmkUnInst.log", {"File Del: kept.txt", "File Copy: Qmkview8.exe"}));
  ::CreateDirectoryW((root_ / L"Programs").c_str(), nullptr);
  ::CreateDirectoryW(installDir_.c_str(), nullptr);
  const std::wstring link = root_ / L"someone.lnk";
  ASSERT_TRUE(qmtest::WriteFileBytes(link, "link"));
  ASSERT_TRUE(qmtest::WriteFileBytes(installDir_ + L"\\kept.txt", "old"));
  ASSERT_TRUE(qmtest::WriteLines(installDir_ + L"\\QmkUnInst.log", {"Shell Link: " + Narrow(link)}));
  installSettings.defaultDirUsed = 1;
  installSettings.desktopIcon = 0;

  RunInstall();
  EXPECT_TRUE(FileExists(link));
  EXPECT_EQ(qmtest::ReadFileBytes(installDir_ + L"\\kept.txt"), "old");
}

}  // namespace
