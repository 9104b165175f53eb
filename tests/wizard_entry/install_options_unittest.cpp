// The unattended options and the folder argument of the setup role.
#include <gtest/gtest.h>

#include <optional>

#include "tests/support/test_support.h"
#include "wizard/install_mode.h"

// One trailing quote goes first, then one trailing backslash or slash; only one of each.
TEST(CleanFolderArgument, RemovesOneQuoteThenOneSeparator) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"D:\\Apps\\\"", L"D:\\Apps"}, {L"D:\\Apps\\\\", L"D:\\Apps\\"}, {L"D:\\Apps/", L"D:\\Apps"},
      {L"D:\\Apps\"\"", L"D:\\Apps\""}, {L"D:\\Apps", L"D:\\Apps"},     {L"\"", L""}, {L"", L""},
  };
  for (auto [argument, cleaned] : cases) EXPECT_EQ(CleanFolderArgument(argument), cleaned) << qmtest::Narrow(argument);
}

// Each option's effect on the folder, the install type and the flags: "-inst" options are
// case-sensitive and take the next argument (itself still an option), the last folder wins,
// the others ignore case, "-allusers" turns only type 0 into 1, argv[0] is never an option.
TEST(ParseInstallOptions, OptionTable) {
  const struct {
    std::vector<std::wstring> argv;
    int typeBefore;
    std::optional<std::wstring> folder;
    int type, runAfter, autoStart, desktopIcon;
  } cases[] = {
      {{L"-s", L"-instdir", L"D:\\Apps\""}, 1, L"D:\\Apps", 1, 0, 0, 1},
      {{L"-instdir"}, 1, std::nullopt, 1, 0, 0, 1},
      {{L"-instport"}, 1, std::nullopt, 2, 0, 0, 1},
      {{L"-INSTPORT", L"E:\\x", L"-InstDir", L"F:\\y", L"-install", L"-instdirx", L"G:\\z"}, 1, std::nullopt, 1,
       0, 0, 1},
      {{L"-RunAfter", L"-AUTOSTART", L"-NoDeskIco"}, 1, std::nullopt, 1, 1, 1, 0},
      {{L"-runafterx", L"autostart", L"/nodeskico"}, 1, std::nullopt, 1, 0, 0, 1},
      {{L"-ALLUSERS"}, 0, std::nullopt, 1, 0, 0, 1},
      {{L"-instport", L"E:\\p", L"-allusers"}, 0, L"E:\\p", 2, 0, 0, 1},
      {{L"-instdir", L"D:\\First", L"-instdir", L"-runafter"}, 1, L"-runafter", 1, 1, 0, 1},
      {{L"-instdir", L"-instport", L"E:\\Last\\"}, 1, L"E:\\Last", 2, 0, 0, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.argv));
    std::vector<std::wstring> argv{L"-runafter"};
    argv.insert(argv.end(), c.argv.begin(), c.argv.end());
    InstallSettings settings;
    settings.installType = c.typeBefore;
    EXPECT_EQ(ParseInstallOptions(argv, settings), c.folder);
    EXPECT_EQ(settings.installType, c.type);
    EXPECT_EQ(settings.runAfter, c.runAfter);
    EXPECT_EQ(settings.autoStart, c.autoStart);
    EXPECT_EQ(settings.desktopIcon, c.desktopIcon);
  }
}
