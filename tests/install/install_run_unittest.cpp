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
using qmtest::ReadFileBytes;
using qmtest::WriteFileBytes;
using qmtest::WriteLines;

class InstallRunTest : public testing::Test {
 protected:
  void SetUp() override {
    qmtest::DeleteProductRegistry();
    RemoveShortcuts();
    ::CreateDirectoryW(package_.c_str(), nullptr);
    ::CreateDirectoryW(sfx_.c_str(), nullptr);
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
    s.sfxFolder = sfx_;
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace_.c_str());
  }
  void TearDown() override {
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
    qmtest::WaitForTracedProcesses(trace_);
    qmtest::DeleteProductRegistry();
    RemoveShortcuts();
    qmtest::ForgetPendingUnder(root_.path());
  }
  static void RemoveShortcuts() {
    for (const wchar_t* group : {L"QmEngine Run Group", L"QmEngine Old Group", L"QmEngine New"})
      qmtest::RemoveTree(ShellFolderPath(CSIDL_PROGRAMS) + L"\\" + group);
    ::DeleteFileW((ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk").c_str());
  }
  std::vector<std::string> Journal() const { return qmtest::ReadLines(installDir_ + L"\\QmkUnInst.log"); }
  void PutFiles(const std::wstring& folder, const std::vector<std::wstring>& names) {
    for (const std::wstring& name : names) ASSERT_TRUE(WriteFileBytes(folder + L"\\" + name, Narrow(name)));
  }

  qmtest::SettingsRestorer restorer_;
  qmtest::TempDir root_{L"qm engine run"};
  std::wstring package_ = root_ / L"package";
  std::wstring sfx_ = root_ / L"sfx";
  std::wstring installDir_ = root_ / L"Programs\\Quillmark 8";
  std::wstring trace_ = root_ / L"trace.log";
};

// A fresh current-user run into the default folder: an old journal there is
// left alone (its link and the file a "File Del: " entry names survive); files,
// prepared settings (only the product's), the journal (a script without a
// final line break gets no empty line, then group and shortcuts), registry.
TEST_F(InstallRunTest, FreshCurrentUserInstall) {
  PutFiles(package_, {L"Qmkview8.exe", L"Qmkview8Man.chm", L"kept.txt"});
  PutFiles(sfx_, {L"Qmkview8.ini", L"other.ini"});
  ASSERT_TRUE(WriteFileBytes(package_ + L"\\QmkUnInst.log",
                             "File Del: kept.txt\r\nFile Copy: Qmkview8.exe\r\nMake Dir: data\r\n"
                             "File Copy: Qmkview8Man.chm"));
  ::CreateDirectoryW((root_ / L"Programs").c_str(), nullptr);
  ::CreateDirectoryW(installDir_.c_str(), nullptr);
  const std::wstring link = root_ / L"someone.lnk";
  ASSERT_TRUE(WriteFileBytes(link, "link"));
  ASSERT_TRUE(WriteFileBytes(installDir_ + L"\\kept.txt", "old"));
  ASSERT_TRUE(WriteLines(installDir_ + L"\\QmkUnInst.log", {"Shell Link: " + Narrow(link)}));

  EXPECT_EQ(RunInstall(), 0);

  EXPECT_TRUE(FileExists(link));
  EXPECT_EQ(ReadFileBytes(installDir_ + L"\\kept.txt"), "old");
  EXPECT_TRUE(FileExists(installDir_ + L"\\Qmkview8.exe"));
  EXPECT_TRUE(FileExists(installDir_ + L"\\Qmkview8Man.chm"));
  EXPECT_TRUE(DirExists(installDir_ + L"\\data"));
  EXPECT_EQ(ReadFileBytes(installDir_ + L"\\Qmkview8.ini"), "Qmkview8.ini");
  EXPECT_FALSE(FileExists(installDir_ + L"\\other.ini"));
  const std::string group = Narrow(ShellFolderPath(CSIDL_PROGRAMS) + L"\\QmEngine Run Group");
  const std::wstring desktop = ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk";
  EXPECT_TRUE(FileExists(desktop));
  EXPECT_EQ(Journal(), (std::vector<std::string>{"File Del: kept.txt", "File Copy: Qmkview8.exe", "Make Dir: data",
                                                 "File Copy: Qmkview8Man.chm", "Made Dir: " + group,
                                                 "Shell Link: " + group + "\\Quillmark 8.lnk",
                                                 "Shell Link: " + group + "\\Quillmark 8 Help.lnk",
                                                 "Shell Link: " + Narrow(desktop)}));
  EXPECT_EQ(ReadRegString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold\\Quillmark 8", L"Path"), installDir_);
  EXPECT_EQ(ReadRegString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold\\Quillmark 8", L"AllUsers"), L"A");
}

// A portable run copies files and journal (one empty line after a script
// ending in a line break) and imports settings, but makes no shortcut, writes
// no registry value and does not start the product.
TEST_F(InstallRunTest, PortableInstallTouchesNoSystemPlace) {
  const std::wstring standin = qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe";
  const bool real = ::CopyFileW(standin.c_str(), (package_ + L"\\Qmkview8.exe").c_str(), FALSE);
  if (!real) PutFiles(package_, {L"Qmkview8.exe"});
  PutFiles(sfx_, {L"Qmkview8.reg"});
  installSettings.installType = 2;
  installSettings.autoStart = 1;
  ASSERT_TRUE(WriteLines(package_ + L"\\QmkUnInst.log", {"File Copy: Qmkview8.exe"}));

  EXPECT_EQ(RunInstall(), 0);
  EXPECT_TRUE(FileExists(installDir_ + L"\\Qmkview8.exe"));
  EXPECT_EQ(ReadFileBytes(installDir_ + L"\\Qmkview8.reg"), "Qmkview8.reg");
  EXPECT_EQ(Journal(), (std::vector<std::string>{"File Copy: Qmkview8.exe", ""}));
  EXPECT_FALSE(DirExists(ShellFolderPath(CSIDL_PROGRAMS) + L"\\QmEngine Run Group"));
  for (int csidl : {CSIDL_DESKTOP, CSIDL_STARTUP})
    EXPECT_FALSE(FileExists(ShellFolderPath(csidl) + L"\\Quillmark 8.lnk"));
  for (const wchar_t* key : {L"SOFTWARE\\Lanternfold\\Quillmark 8",
                             L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Quillmark 8",
                             L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Qmkview8.exe"})
    EXPECT_FALSE(RegKeyExists(HKEY_LOCAL_MACHINE, key)) << Narrow(key);
  EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, L"Quillmark.8"));
  EXPECT_FALSE(RegKeyExists(HKEY_CLASSES_ROOT, L"Applications\\Qmkview8.exe"));
  EXPECT_EQ(qmtest::GetString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"Quillmark.8"),
            L"<missing>");
  if (!real) GTEST_SKIP() << "stand-in product not built: -regonly not checked";
  EXPECT_EQ(qmtest::WaitForTrace(trace_, "regonly", 20).find("regonly"), std::string::npos);
}

// Reinstalling into the same folder with another group name: the old group
// and shortcuts named by both old journals go first, the files that the new
// script's "File Del: " entries name are deleted before the copy pass.
TEST_F(InstallRunTest, ReinstallReplacesGroupAndObsoleteFiles) {
  PutFiles(package_, {L"Qmkview8.exe", L"legacy.txt", L"stale.dat"});
  ASSERT_TRUE(WriteLines(package_ + L"\\QmkUnInst.log", {"File Copy: Qmkview8.exe", "File Copy: legacy.txt",
                                                          "File Copy: stale.dat", "Make Dir: data"}));
  installSettings.groupName = L"QmEngine Old Group";
  RunInstall();
  const std::wstring programs = ShellFolderPath(CSIDL_PROGRAMS);
  ASSERT_TRUE(FileExists(programs + L"\\QmEngine Old Group\\Quillmark 8.lnk"));
  ASSERT_TRUE(FileExists(installDir_ + L"\\legacy.txt"));
  // A journal of an earlier version names a shortcut of its own.
  const std::wstring olderLink = root_ / L"older version.lnk";
  ASSERT_TRUE(WriteFileBytes(olderLink, "link"));
  ASSERT_TRUE(WriteLines(installDir_ + L"\\install.log", {"Shell Link: " + Narrow(olderLink)}));

  const std::wstring package2 = root_ / L"package two";
  ::CreateDirectoryW(package2.c_str(), nullptr);
  PutFiles(package2, {L"Qmkview8.exe", L"fresh.dat"});
  ASSERT_TRUE(WriteLines(package2 + L"\\QmkUnInst.log",
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
  EXPECT_EQ(ReadFileBytes(installDir_ + L"\\fresh.dat"), "fresh.dat");
  EXPECT_TRUE(DirExists(installDir_ + L"\\data"));
  std::vector<std::string> madeDirs;
  for (const std::string& line : Journal())
    if (line.rfind("Made Dir: ", 0) == 0) madeDirs.push_back(line);
  EXPECT_EQ(madeDirs, std::vector<std::string>{"Made Dir: " + Narrow(group)});
}

}  // namespace
