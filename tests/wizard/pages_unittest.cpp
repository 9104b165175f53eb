#include <windows.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <string>

#include "app/settings.h"
#include "sys/platform.h"
#include "tests/wizard/wizard_driver.h"
#include "tests/wizard/wizard_test_fixture.h"

namespace {

using wiztest::Driver;
using wiztest::RunDriven;

using GroupPageTest = wiztest::WizardTest;

const wchar_t kTooShort[] = L"Error: Please enter a valid group name, minimum 3 letters";
const wchar_t kIsStartup[] =
    L"Error: Can not install shortcuts into this group, please select a different name.";

std::wstring UpperFolderName(int csidl) {
  std::wstring path = ShellFolderPath(csidl);
  std::wstring name = path.substr(path.rfind(L'\\') + 1);
  ::CharUpperBuffW(name.data(), static_cast<DWORD>(name.size()));
  return name;
}

// Tries each name in turn on the group page; returns the page kind after each
// Next and leaves the wizard with Cancel.
std::vector<std::wstring> TryNames(qmtest::MessageBoxRecorder& boxes,
                                   const std::vector<std::wstring>& names) {
  std::vector<std::wstring> kinds;
  RunDriven(-1, &boxes, [&](Driver& d) {
    for (int step = 0; step < 3; ++step) d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"group");
    for (const std::wstring& name : names) {
      if (d.PageKind() != L"group") d.Click(3);
      d.SetPageText(1000, name);
      d.Click(IDOK);
      kinds.push_back(d.PageKind());
    }
    boxes.Answer(IDYES);
    d.Click(IDCANCEL);
  });
  return kinds;
}

// Two letters within blanks are refused with string 23; three letters within
// blanks are accepted and stored without the blanks.
TEST_F(GroupPageTest, ShortNameRefusedAndNameTrimmed) {
  qmtest::MessageBoxRecorder boxes;
  std::vector<std::wstring> kinds = TryNames(boxes, {L"  ab  ", L" \tabc  "});
  ASSERT_EQ(kinds.size(), 2u);
  EXPECT_EQ(kinds[0], L"group");
  EXPECT_EQ(kinds[1], L"start");
  ASSERT_GE(boxes.shown().size(), 1u);
  EXPECT_EQ(boxes.shown()[0].text, kTooShort);
  EXPECT_EQ(boxes.shown()[0].style, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
  EXPECT_EQ(installSettings.groupName, L"abc");
}

// The name of either start-up folder, in any letter case, is refused with
// string 24; a nested group ending in that name is fine.
TEST_F(GroupPageTest, StartupFolderNameRefused) {
  qmtest::MessageBoxRecorder boxes;
  std::wstring user = UpperFolderName(CSIDL_STARTUP);
  std::wstring common = UpperFolderName(CSIDL_COMMON_STARTUP);
  ASSERT_GE(user.size(), 3u);
  std::vector<std::wstring> kinds = TryNames(boxes, {user, common, L"Tools\\" + user});
  ASSERT_EQ(kinds.size(), 3u);
  EXPECT_EQ(kinds[0], L"group");
  EXPECT_EQ(kinds[1], L"group");
  EXPECT_EQ(kinds[2], L"start");
  ASSERT_GE(boxes.shown().size(), 2u);
  EXPECT_EQ(boxes.shown()[0].text, kIsStartup);
  EXPECT_EQ(boxes.shown()[1].text, kIsStartup);
  EXPECT_EQ(installSettings.groupName, L"Tools\\" + user);
}

// The page starts from the settings and stores the two boxes when left.
TEST_F(GroupPageTest, CheckBoxesComeFromAndGoToSettings) {
  installSettings.groupName = L"My Tools";
  installSettings.autoStart = 0;
  installSettings.desktopIcon = 1;
  qmtest::MessageBoxRecorder boxes;
  RunDriven(-1, &boxes, [&](Driver& d) {
    for (int step = 0; step < 3; ++step) d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"group");
    EXPECT_EQ(d.PageText(1000), L"My Tools");
    EXPECT_FALSE(Driver::Checked(d.PageItem(1008)));
    EXPECT_TRUE(Driver::Checked(d.PageItem(1009)));
    d.ClickPage(1008);
    d.ClickPage(1009);
    d.Click(IDOK);
    EXPECT_EQ(d.PageKind(), L"start");
    boxes.Answer(IDYES);
    d.Click(IDCANCEL);
  });
  EXPECT_EQ(installSettings.autoStart, 1);
  EXPECT_EQ(installSettings.desktopIcon, 0);
  EXPECT_EQ(installSettings.groupName, L"My Tools");
}

}  // namespace
