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
// the others ignore case, "-allusers" turns only a current-user type into all users, argv[0] is never an option.
TEST(ParseInstallOptions, OptionTable) {
  constexpr InstallType kUser = InstallType::kCurrentUser, kAll = InstallType::kAllUsers,
                        kPortable = InstallType::kPortable;
  const struct {
    std::vector<std::wstring> argv;
    InstallType typeBefore;
    std::optional<std::wstring> folder;
    InstallType type;
    int runAfter, autoStart, desktopIcon;
  } cases[] = {
      {{L"-s", L"-instdir", L"D:\\Apps\""}, kAll, L"D:\\Apps", kAll, 0, 0, 1},
      {{L"-instdir"}, kAll, std::nullopt, kAll, 0, 0, 1},
      {{L"-instport"}, kAll, std::nullopt, kPortable, 0, 0, 1},
      {{L"-INSTPORT", L"E:\\x", L"-InstDir", L"F:\\y", L"-install", L"-instdirx", L"G:\\z"}, kAll, std::nullopt, kAll,
       0, 0, 1},
      {{L"-RunAfter", L"-AUTOSTART", L"-NoDeskIco"}, kAll, std::nullopt, kAll, 1, 1, 0},
      {{L"-runafterx", L"autostart", L"/nodeskico"}, kAll, std::nullopt, kAll, 0, 0, 1},
      {{L"-ALLUSERS"}, kUser, std::nullopt, kAll, 0, 0, 1},
      {{L"-instport", L"E:\\p", L"-allusers"}, kUser, L"E:\\p", kPortable, 0, 0, 1},
      {{L"-instdir", L"D:\\First", L"-instdir", L"-runafter"}, kAll, L"-runafter", kAll, 1, 0, 1},
      {{L"-instdir", L"-instport", L"E:\\Last\\"}, kAll, L"E:\\Last", kPortable, 0, 0, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.argv));
    std::vector<std::wstring> argv{L"-runafter"};
    argv.insert(argv.end(), c.argv.begin(), c.argv.end());
    InstallSettings settings;
    settings.SetType(c.typeBefore);
    EXPECT_EQ(ParseInstallOptions(argv, settings), c.folder);
    EXPECT_EQ(settings.Type(), c.type);
    EXPECT_EQ(settings.runAfter, c.runAfter);
    EXPECT_EQ(settings.autoStart, c.autoStart);
    EXPECT_EQ(settings.desktopIcon, c.desktopIcon);
  }
}
