#include <gtest/gtest.h>

#include "app/startup.h"

namespace {
using Args = std::vector<std::wstring>;
}

// The scan: mode options ignore case and stop it, "-sfxname=" is exact and cut
// to its folder, the last one wins; and the mode each role then runs in.
TEST(ScanOptions, ModesFolderAndRoleModes) {
  struct Case {
    Args argv;
    int mode;
    bool silent;
    const wchar_t* sfxFolder;
    int setupMode;
  } cases[] = {
      {{L"-v"}, 1, false, L"", 0},  // the program name is never an option
      {{L"setup.exe", L"unknown", L"-x"}, 1, false, L"", 0},
      {{L"p", L"-V"}, 0, false, L"", 0},
      {{L"p", L"-SConf"}, 2, false, L"", 2},
      {{L"p", L"-S"}, 1, true, L"", 1},
      {{L"p", L"-vv"}, 1, false, L"", 0},
      {{L"p", L"-silent"}, 1, false, L"", 0},
      {{L"x.exe", L"-install", L"/s"}, 1, false, L"", 0},
      {{L"p", L"-v", L"-sfxname=C:\\x\\y.exe"}, 0, false, L"", 0},
      {{L"p", L"-v", L"-s", L"-sconf"}, 0, false, L"", 0},
      {{L"p", L"-sconf", L"-v", L"-s"}, 2, false, L"", 2},
      {{L"p", L"-s", L"-sfxname=C:\\Pkg\\p.exe", L"-sconf"}, 2, true, L"C:\\Pkg", 2},
      {{L"p", L"-sfxname=C:\\x\\"}, 1, false, L"C:", 0},
      {{L"p", L"-sfxname=y.exe"}, 1, false, L"", 0},
      {{L"p", L"-sfxname=\\y.exe"}, 1, false, L"", 0},
      {{L"p", L"-sfxname="}, 1, false, L"", 0},
      {{L"p", L"-sfxname=D:\\a b\\c d\\pkg.exe"}, 1, false, L"D:\\a b\\c d", 0},
      {{L"p", L"-sfxname=C:\\x\\\\"}, 1, false, L"C:\\x", 0},  // one backslash dropped
      {{L"p", L"-sfxname=C:\\a\\1.exe", L"-sfxname=C:\\b\\2.exe", L"-s"}, 1, true, L"C:\\b", 1},
      {{L"p", L"-SFXNAME=C:\\a\\b.exe"}, 1, false, L"", 0},
      {{L"p", L"x-sfxname=C:\\a\\b.exe"}, 1, false, L"", 0},
      {{L"p", L"-sfxname C:\\a\\b.exe"}, 1, false, L"", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.argv));
    StartupOptions options = ScanOptions(c.argv);
    EXPECT_EQ(options.installMode, c.mode);
    EXPECT_EQ(options.silentSwitchSeen, c.silent);
    EXPECT_EQ(options.sfxFolder, c.sfxFolder);
    EXPECT_EQ(InstallModeForRole(true, options), c.setupMode);
    EXPECT_EQ(InstallModeForRole(false, options), c.mode);
  }
}

// The worker needs exactly "-delself" first and a path behind it; setup is "-install" first
// ("-INSTALL" and "-DELSELF a b" are in the application's table), or "setup.exe" in the lower-cased path.
TEST(ChooseSetupRole, WorkerInstallOptionOrFileName) {
  EXPECT_TRUE(IsRemovalWorkerStart({L"uni1.tmp", L"-delself", L"C:\\a b\\QmkUnInst.exe"}));
  EXPECT_TRUE(IsRemovalWorkerStart({L"uni1.tmp", L"-delself", L"x", L"-s"}));
  EXPECT_FALSE(IsRemovalWorkerStart({L"uni1.tmp", L"-delself"}));
  EXPECT_FALSE(IsRemovalWorkerStart({L"x.exe", L"-DELSELF", L"a", L"b"}));
  EXPECT_FALSE(IsRemovalWorkerStart({L"x.exe", L"a", L"-delself", L"b"}));
  EXPECT_FALSE(IsRemovalWorkerStart({}));

  const std::wstring uninstaller = L"C:\\Program Files\\Quillmark 8\\QmkUnInst.exe";
  EXPECT_FALSE(ChooseSetupRole({uninstaller, L"-s", L"-install"}, uninstaller));
  EXPECT_FALSE(ChooseSetupRole({uninstaller}, uninstaller));
  EXPECT_FALSE(ChooseSetupRole({uninstaller, L"-installx"}, uninstaller));
  EXPECT_TRUE(ChooseSetupRole({L"x"}, L"D:\\Downloads\\Setup.EXE"));
  EXPECT_TRUE(ChooseSetupRole({L"x"}, L"D:\\Downloads\\qmk8setup.exe"));
  EXPECT_TRUE(ChooseSetupRole({L"x"}, L"D:\\setup.exe.d\\QmkUnInst.exe"));
  EXPECT_FALSE(ChooseSetupRole({L"x"}, L"D:\\Downloads\\setup_qmk.exe"));
  EXPECT_FALSE(ChooseSetupRole({L"x"}, L""));
}

// The close question is skipped only for "/s" or "-s" from the second argument
// on, with at least three entries.
TEST(SkipCloseQuestion, SecondArgumentOnward) {
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"-s"}));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"/s"}));
  EXPECT_TRUE(SkipCloseQuestion({L"x.exe", L"-install", L"/S"}));
  EXPECT_TRUE(SkipCloseQuestion({L"x.exe", L"-install", L"-S"}));
  EXPECT_TRUE(SkipCloseQuestion({L"setup.exe", L"a", L"b", L"-s"}));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"-s", L"-runafter"}));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"-install", L"s"}));
  EXPECT_FALSE(SkipCloseQuestion({}));
}
