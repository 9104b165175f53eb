#include <gtest/gtest.h>

#include "app/startup.h"

namespace {
using Args = std::vector<std::wstring>;
}

// Without options the scan leaves the defaults and never looks at the program name.
TEST(ScanOptions, DefaultsAndProgramNameIgnored) {
  StartupOptions options = ScanOptions({L"-v"});
  EXPECT_EQ(options.installMode, 1);
  EXPECT_TRUE(options.sfxFolder.empty());
  EXPECT_FALSE(options.silentSwitchSeen);
  options = ScanOptions({L"setup.exe", L"unknown", L"-x"});
  EXPECT_EQ(options.installMode, 1);
  EXPECT_FALSE(options.silentSwitchSeen);
}

// "-v", "-s" and "-sconf" match whole arguments in any case.
TEST(ScanOptions, ModeOptionsIgnoreCase) {
  EXPECT_EQ(ScanOptions({L"p", L"-V"}).installMode, 0);
  EXPECT_EQ(ScanOptions({L"p", L"-v"}).installMode, 0);
  EXPECT_EQ(ScanOptions({L"p", L"-SConf"}).installMode, 2);
  EXPECT_TRUE(ScanOptions({L"p", L"-S"}).silentSwitchSeen);
  EXPECT_EQ(ScanOptions({L"p", L"-s"}).installMode, 1);
  EXPECT_EQ(ScanOptions({L"p", L"-vv"}).installMode, 1);
  EXPECT_FALSE(ScanOptions({L"p", L"-silent"}).silentSwitchSeen);
  EXPECT_FALSE(ScanOptions({L"p", L"/s"}).silentSwitchSeen);
}

// The scan stops at "-v" and at "-sconf": later options are not seen.
TEST(ScanOptions, StopsAtVerboseAndSconf) {
  StartupOptions options = ScanOptions({L"p", L"-v", L"-sfxname=C:\\x\\y.exe"});
  EXPECT_EQ(options.installMode, 0);
  EXPECT_TRUE(options.sfxFolder.empty());

  options = ScanOptions({L"p", L"-v", L"-s", L"-sconf"});
  EXPECT_EQ(options.installMode, 0);
  EXPECT_FALSE(options.silentSwitchSeen);

  options = ScanOptions({L"p", L"-sconf", L"-v", L"-s"});
  EXPECT_EQ(options.installMode, 2);
  EXPECT_FALSE(options.silentSwitchSeen);

  // Options before the stop are kept.
  options = ScanOptions({L"p", L"-s", L"-sfxname=C:\\Pkg\\p.exe", L"-sconf"});
  EXPECT_EQ(options.installMode, 2);
  EXPECT_TRUE(options.silentSwitchSeen);
  EXPECT_EQ(options.sfxFolder, L"C:\\Pkg");
}

// "-sfxname=" gives the folder of the package path, by its cutting rules.
TEST(ScanOptions, SfxNameFolder) {
  EXPECT_EQ(ScanOptions({L"p", L"-sfxname=C:\\Pkg\\setup.exe"}).sfxFolder, L"C:\\Pkg");
  EXPECT_EQ(ScanOptions({L"p", L"-sfxname=C:\\x\\"}).sfxFolder, L"C:");
  EXPECT_EQ(ScanOptions({L"p", L"-sfxname=y.exe"}).sfxFolder, L"");
  EXPECT_EQ(ScanOptions({L"p", L"-sfxname=\\y.exe"}).sfxFolder, L"");
  EXPECT_EQ(ScanOptions({L"p", L"-sfxname="}).sfxFolder, L"");
  EXPECT_EQ(ScanOptions({L"p", L"-sfxname=D:\\a b\\c d\\pkg.exe"}).sfxFolder, L"D:\\a b\\c d");
  // Only one trailing backslash is dropped.
  EXPECT_EQ(ScanOptions({L"p", L"-sfxname=C:\\x\\\\"}).sfxFolder, L"C:\\x");
  // The last one wins; the scan goes on after it.
  StartupOptions options = ScanOptions({L"p", L"-sfxname=C:\\a\\1.exe", L"-sfxname=C:\\b\\2.exe", L"-s"});
  EXPECT_EQ(options.sfxFolder, L"C:\\b");
  EXPECT_TRUE(options.silentSwitchSeen);
}

// The "-sfxname=" prefix is case-significant and must start the argument.
TEST(ScanOptions, SfxNamePrefixExact) {
  EXPECT_EQ(ScanOptions({L"p", L"-SFXNAME=C:\\a\\b.exe"}).sfxFolder, L"");
  EXPECT_EQ(ScanOptions({L"p", L"x-sfxname=C:\\a\\b.exe"}).sfxFolder, L"");
  EXPECT_EQ(ScanOptions({L"p", L"-sfxname C:\\a\\b.exe"}).sfxFolder, L"");
}

// The folder rule on its own.
TEST(SfxFolderOf, CutsBeforeLastBackslash) {
  EXPECT_EQ(SfxFolderOf(L"C:\\Pkg\\setup.exe"), L"C:\\Pkg");
  EXPECT_EQ(SfxFolderOf(L"C:\\x\\"), L"C:");
  EXPECT_EQ(SfxFolderOf(L"\\"), L"");
  EXPECT_EQ(SfxFolderOf(L"a\\b"), L"a");
  EXPECT_EQ(SfxFolderOf(L""), L"");
}

// "-delself" must be the exact first argument with another one behind it.
TEST(IsRemovalWorkerStart, ExactFirstArgumentWithPath) {
  EXPECT_TRUE(IsRemovalWorkerStart({L"uni1.tmp", L"-delself", L"C:\\a b\\QmkUnInst.exe"}));
  EXPECT_TRUE(IsRemovalWorkerStart({L"uni1.tmp", L"-delself", L"x", L"-s"}));
  EXPECT_FALSE(IsRemovalWorkerStart({L"uni1.tmp", L"-delself"}));
  EXPECT_FALSE(IsRemovalWorkerStart({L"x.exe", L"-DELSELF", L"a", L"b"}));
  EXPECT_FALSE(IsRemovalWorkerStart({L"x.exe", L"a", L"-delself", L"b"}));
  EXPECT_FALSE(IsRemovalWorkerStart({L"x.exe"}));
  EXPECT_FALSE(IsRemovalWorkerStart({}));
}

// Setup role: first argument "-install" in any case, or "setup.exe" anywhere in
// the lower-cased path; anything else is the uninstaller.
TEST(ChooseSetupRole, InstallOptionOrFileName) {
  const std::wstring uninstaller = L"C:\\Program Files\\Quillmark 8\\QmkUnInst.exe";
  EXPECT_TRUE(ChooseSetupRole({uninstaller, L"-install"}, uninstaller));
  EXPECT_TRUE(ChooseSetupRole({uninstaller, L"-INSTALL"}, uninstaller));
  EXPECT_FALSE(ChooseSetupRole({uninstaller, L"-s", L"-install"}, uninstaller));
  EXPECT_FALSE(ChooseSetupRole({uninstaller}, uninstaller));
  EXPECT_FALSE(ChooseSetupRole({uninstaller, L"-installx"}, uninstaller));

  EXPECT_TRUE(ChooseSetupRole({L"x"}, L"D:\\Downloads\\Setup.EXE"));
  EXPECT_TRUE(ChooseSetupRole({L"x"}, L"D:\\Downloads\\qmk8setup.exe"));
  EXPECT_TRUE(ChooseSetupRole({L"x"}, L"D:\\setup.exe.d\\QmkUnInst.exe"));
  EXPECT_FALSE(ChooseSetupRole({L"x"}, L"D:\\Downloads\\setup_qmk.exe"));
  EXPECT_FALSE(ChooseSetupRole({L"x"}, L""));
  // "-DELSELF a b" is no worker; the usual choice follows.
  EXPECT_FALSE(ChooseSetupRole({uninstaller, L"-DELSELF", L"a", L"b"}, uninstaller));
}

// Setup is interactive unless "-s" or "-sconf"; the uninstaller keeps the scan's mode.
TEST(InstallModeForRole, PerRole) {
  auto mode = [](bool setupRole, Args argv) { return InstallModeForRole(setupRole, ScanOptions(argv)); };
  EXPECT_EQ(mode(true, {L"setup.exe"}), 0);
  EXPECT_EQ(mode(true, {L"setup.exe", L"-s"}), 1);
  EXPECT_EQ(mode(true, {L"setup.exe", L"-sconf"}), 2);
  EXPECT_EQ(mode(true, {L"setup.exe", L"-v"}), 0);
  EXPECT_EQ(mode(true, {L"x.exe", L"-install", L"/s"}), 0);
  EXPECT_EQ(mode(false, {L"QmkUnInst.exe"}), 1);
  EXPECT_EQ(mode(false, {L"QmkUnInst.exe", L"-v"}), 0);
  EXPECT_EQ(mode(false, {L"QmkUnInst.exe", L"-s"}), 1);
  EXPECT_EQ(mode(false, {L"QmkUnInst.exe", L"-sconf"}), 2);
}

// The close question is skipped only for "/s" or "-s" from the second argument
// on, with at least three entries.
TEST(SkipCloseQuestion, SecondArgumentOnward) {
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"-s"}));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"/s"}));
  EXPECT_TRUE(SkipCloseQuestion({L"x.exe", L"-install", L"/s"}));
  EXPECT_TRUE(SkipCloseQuestion({L"x.exe", L"-install", L"/S"}));
  EXPECT_TRUE(SkipCloseQuestion({L"x.exe", L"-install", L"-S"}));
  EXPECT_TRUE(SkipCloseQuestion({L"setup.exe", L"a", L"b", L"-s"}));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"-s", L"-runafter"}));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"-install", L"-sconf"}));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"-install", L"s"}));
  EXPECT_FALSE(SkipCloseQuestion({}));
}
