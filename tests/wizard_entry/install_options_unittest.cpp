// The unattended options and the folder argument of the setup role.
#include <gtest/gtest.h>

#include "wizard/install_mode.h"

namespace {

std::vector<std::wstring> Args(std::initializer_list<const wchar_t*> rest) {
  std::vector<std::wstring> argv{L"C:\\pkg\\setup.exe"};
  for (const wchar_t* arg : rest) argv.emplace_back(arg);
  return argv;
}

InstallSettings Fresh() { return InstallSettings{}; }

}  // namespace

// One trailing quote goes first, then one trailing backslash or slash; only one of each.
TEST(CleanFolderArgument, RemovesOneQuoteThenOneSeparator) {
  EXPECT_EQ(CleanFolderArgument(L"D:\\Apps\""), L"D:\\Apps");
  EXPECT_EQ(CleanFolderArgument(L"D:\\Apps\\\""), L"D:\\Apps");
  EXPECT_EQ(CleanFolderArgument(L"D:\\Apps\\\\"), L"D:\\Apps\\");
  EXPECT_EQ(CleanFolderArgument(L"D:\\Apps/"), L"D:\\Apps");
  EXPECT_EQ(CleanFolderArgument(L"D:\\Apps\"\""), L"D:\\Apps\"");
  EXPECT_EQ(CleanFolderArgument(L"D:\\Apps"), L"D:\\Apps");
  EXPECT_EQ(CleanFolderArgument(L"\""), L"");
  EXPECT_EQ(CleanFolderArgument(L""), L"");
}

// "-instport" makes the type portable and takes the cleaned folder behind it.
TEST(ParseInstallOptions, InstportTakesFolderAndPortableType) {
  InstallSettings settings = Fresh();
  auto folder = ParseInstallOptions(Args({L"-instport", L"E:\\Portable\\\""}), settings);
  ASSERT_TRUE(folder.has_value());
  EXPECT_EQ(*folder, L"E:\\Portable");
  EXPECT_EQ(settings.installType, 2);
}

// "-instdir" takes the folder and leaves the type alone.
TEST(ParseInstallOptions, InstdirKeepsType) {
  InstallSettings settings = Fresh();
  auto folder = ParseInstallOptions(Args({L"-s", L"-instdir", L"D:\\Apps\""}), settings);
  ASSERT_TRUE(folder.has_value());
  EXPECT_EQ(*folder, L"D:\\Apps");
  EXPECT_EQ(settings.installType, 1);
}

// A folder option as the last argument gives no folder; "-instport" still makes the type portable.
TEST(ParseInstallOptions, FolderOptionAtTheEnd) {
  InstallSettings settings = Fresh();
  EXPECT_FALSE(ParseInstallOptions(Args({L"-instdir"}), settings).has_value());
  EXPECT_EQ(settings.installType, 1);
  EXPECT_FALSE(ParseInstallOptions(Args({L"-instport"}), settings).has_value());
  EXPECT_EQ(settings.installType, 2);
}

// The "-inst" options are case-sensitive and exact; other "-inst..." words are ignored.
TEST(ParseInstallOptions, InstOptionsAreCaseSensitive) {
  InstallSettings settings = Fresh();
  auto folder = ParseInstallOptions(
      Args({L"-INSTPORT", L"E:\\x", L"-InstDir", L"F:\\y", L"-install", L"-instdirx", L"G:\\z"}),
      settings);
  EXPECT_FALSE(folder.has_value());
  EXPECT_EQ(settings.installType, 1);
}

// The other options ignore case and set their field.
TEST(ParseInstallOptions, OtherOptionsIgnoreCase) {
  InstallSettings settings = Fresh();
  ParseInstallOptions(Args({L"-RunAfter", L"-AUTOSTART", L"-NoDeskIco"}), settings);
  EXPECT_EQ(settings.runAfter, 1);
  EXPECT_EQ(settings.autoStart, 1);
  EXPECT_EQ(settings.desktopIcon, 0);
  EXPECT_EQ(settings.installType, 1);

  InstallSettings untouched = Fresh();
  ParseInstallOptions(Args({L"-runafterx", L"autostart", L"/nodeskico"}), untouched);
  EXPECT_EQ(untouched.runAfter, 0);
  EXPECT_EQ(untouched.autoStart, 0);
  EXPECT_EQ(untouched.desktopIcon, 1);
}

// "-allusers" only turns a current-user type into all users.
TEST(ParseInstallOptions, AllusersOnlyFromTypeZero) {
  InstallSettings user = Fresh();
  user.installType = 0;
  ParseInstallOptions(Args({L"-ALLUSERS"}), user);
  EXPECT_EQ(user.installType, 1);

  InstallSettings portable = Fresh();
  ParseInstallOptions(Args({L"-instport", L"E:\\p", L"-allusers"}), portable);
  EXPECT_EQ(portable.installType, 2);
}

// The last folder wins, and a folder argument is examined as an option too.
TEST(ParseInstallOptions, LastFolderWinsAndFoldersAreOptionsToo) {
  InstallSettings settings = Fresh();
  auto folder =
      ParseInstallOptions(Args({L"-instdir", L"D:\\First", L"-instdir", L"-runafter"}), settings);
  ASSERT_TRUE(folder.has_value());
  EXPECT_EQ(*folder, L"-runafter");
  EXPECT_EQ(settings.runAfter, 1);

  InstallSettings chained = Fresh();
  folder = ParseInstallOptions(Args({L"-instdir", L"-instport", L"E:\\Last\\"}), chained);
  ASSERT_TRUE(folder.has_value());
  EXPECT_EQ(*folder, L"E:\\Last");
  EXPECT_EQ(chained.installType, 2);
}

// argv[0] is the program and never an option, even when it spells one.
TEST(ParseInstallOptions, ProgramNameIsNotAnOption) {
  InstallSettings settings = Fresh();
  std::vector<std::wstring> argv{L"-runafter", L"-nodeskico"};
  ParseInstallOptions(argv, settings);
  EXPECT_EQ(settings.runAfter, 0);
  EXPECT_EQ(settings.desktopIcon, 0);
}
