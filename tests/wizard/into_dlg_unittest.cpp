#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "app/settings.h"
#include "tests/wizard/wizard_driver.h"
#include "tests/wizard/wizard_test_fixture.h"

namespace {

using wiztest::Driver;
using wiztest::RunDriven;

using WelcomePageTest = wiztest::WizardTest;

std::wstring WelcomeVersionText() {
  std::wstring text;
  qmtest::MessageBoxRecorder boxes;
  boxes.Answer(IDYES);
  RunDriven(-1, &boxes, [&](Driver& d) {
    EXPECT_EQ(d.PageKind(), L"welcome");
    text = d.PageText(1003);
    d.Click(IDCANCEL);
  });
  return text;
}

std::wstring FirstLine(const std::wstring& text) { return text.substr(0, text.find(L'\n')); }

// A build part other than 0 adds "Beta <build>" behind the three-part
// version; the copyright line ends in the current year.
TEST_F(WelcomePageTest, BuildSevenShowsBetaText) {
  installSettings.newVersion = {8, 5, 3, 7};
  std::wstring text = WelcomeVersionText();
  EXPECT_EQ(FirstLine(text), L"Quillmark ver. 8.05.03 Beta 7");
  SYSTEMTIME now = {};
  ::GetLocalTime(&now);
  std::wstring copyright = text.substr(text.find(L'\n') + 1);
  copyright = FirstLine(copyright);
  EXPECT_EQ(copyright.substr(copyright.size() - 4), std::to_wstring(now.wYear)) << copyright;
}

// A released version leaves a trailing blank where the beta text would stand.
TEST_F(WelcomePageTest, ReleasedVersionHasNoBetaText) {
  installSettings.newVersion = {8, 10, 0, 0};
  EXPECT_EQ(FirstLine(WelcomeVersionText()), L"Quillmark ver. 8.10.00 ");
}

}  // namespace
