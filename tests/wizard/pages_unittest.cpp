#include <windows.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/settings.h"
#include "sys/platform.h"
#include "tests/wizard/wizard_driver.h"

namespace {

using wiztest::Driver;

using PagesTest = wiztest::WizardTest;

// Welcome: a build part other than 0 adds "Beta <build>" to the version line,
// a released version leaves a trailing blank; the copyright line ends in the
// current year. Agreement: "agreement.txt" is raw UTF-16LE; missing it gives
// an empty box; the byte-order mark stays and an odd last byte is dropped;
// the box is read-only with nothing selected; "Yes" goes on to the folder.
TEST_F(PagesTest, WelcomeVersionAndAgreementText) {
  struct Case {
    VersionQuad version;
    const wchar_t* versionLine;
    std::string agreementFile;  // empty: none
    std::wstring agreement;
  };
  const Case cases[] = {
      {{8, 5, 3, 7}, L"Quillmark ver. 8.05.03 Beta 7", "", L""},
      {{8, 10, 0, 0}, L"Quillmark ver. 8.10.00 ",
       std::string("\xFF\xFE" "A\0g\0r\0e\0e\0\x0A\x04" "Z", 15), L"\xFEFF" L"Agree\x040A"},
  };
  SYSTEMTIME now = {};
  ::GetLocalTime(&now);
  for (const Case& c : cases) {
    SCOPED_TRACE(qmtest::Narrow(c.versionLine));
    installSettings.newVersion = c.version;
    if (!c.agreementFile.empty()) {
      ASSERT_TRUE(qmtest::WriteFileBytes(work_ / L"agreement.txt", c.agreementFile));
    }
    qmtest::MessageBoxRecorder boxes;
    boxes.Answer(IDYES);
    wiztest::RunDriven(-1, &boxes, [&](Driver& d) {
      ASSERT_EQ(d.PageKind(), L"welcome");
      std::wstring text = d.PageText(IDC_WELCOME_VERSION) + L"\n";
      size_t lineEnd = text.find(L'\n'), yearEnd = text.find(L'\n', lineEnd + 1);
      EXPECT_EQ(text.substr(0, lineEnd), c.versionLine);
      ASSERT_NE(yearEnd, std::wstring::npos);
      ASSERT_GE(yearEnd, lineEnd + 5);
      EXPECT_EQ(text.substr(yearEnd - 4, 4), std::to_wstring(now.wYear));

      d.Click(IDOK);
      ASSERT_EQ(d.PageKind(), L"agreement");
      HWND box = d.PageItem(IDC_AGREEMENT_TEXT);
      wchar_t buffer[256] = {};
      LRESULT length = ::SendMessageW(box, WM_GETTEXT, 256, reinterpret_cast<LPARAM>(buffer));
      EXPECT_EQ(std::wstring(buffer, static_cast<size_t>(length)), c.agreement);
      const LONG_PTR styles = ES_READONLY | ES_MULTILINE | WS_VSCROLL;
      EXPECT_EQ(::GetWindowLongPtrW(box, GWL_STYLE) & styles, styles);
      DWORD start = 1, end = 0;
      ::SendMessageW(box, EM_GETSEL, reinterpret_cast<WPARAM>(&start), reinterpret_cast<LPARAM>(&end));
      EXPECT_EQ(start, end);
      d.Click(IDOK);
      EXPECT_EQ(d.PageKind(), L"folder");
      d.Click(IDCANCEL);
    });
  }
}

std::wstring UpperFolderName(int csidl) {
  std::wstring path = ShellFolderPath(csidl);
  std::wstring name = path.substr(path.rfind(L'\\') + 1);
  ::CharUpperBuffW(name.data(), static_cast<DWORD>(name.size()));
  return name;
}

// The group page starts from the settings; Next refuses two letters within blanks
// (string 23) and either start-up folder's name in any case (string 24), but
// takes a nested group ending in that name, and three letters within blanks
// stored without them; the two boxes are stored when the page is left.
TEST_F(PagesTest, GroupNameRulesAndBoxes) {
  const wchar_t* tooShort = L"Error: Please enter a valid group name, minimum 3 letters";
  const wchar_t* isStartup =
      L"Error: Can not install shortcuts into this group, please select a different name.";
  std::wstring user = UpperFolderName(CSIDL_STARTUP);
  ASSERT_GE(user.size(), 3u);
  struct Case {
    std::wstring name;
    const wchar_t* message;  // null: accepted, the ready page follows
  };
  const Case cases[] = {{L"  ab  ", tooShort},
                        {user, isStartup},
                        {UpperFolderName(CSIDL_COMMON_STARTUP), isStartup},
                        {L"Tools\\" + user, nullptr},
                        {L" \tabc  ", nullptr}};
  installSettings.groupName = L"My Tools";
  installSettings.autoStart = 0;
  installSettings.desktopIcon = 1;
  qmtest::MessageBoxRecorder boxes;
  wiztest::RunDriven(-1, &boxes, [&](Driver& d) {
    d.NextUntil(L"group");
    ASSERT_EQ(d.PageKind(), L"group");
    EXPECT_EQ(d.PageText(IDC_GROUP_NAME), L"My Tools");
    EXPECT_FALSE(Driver::Checked(d.PageItem(IDC_AUTOSTART)));
    EXPECT_TRUE(Driver::Checked(d.PageItem(IDC_DESKTOP_ICON)));
    d.ClickPage(IDC_AUTOSTART);
    d.ClickPage(IDC_DESKTOP_ICON);
    for (const Case& c : cases) {
      SCOPED_TRACE(qmtest::Narrow(c.name));
      if (d.PageKind() != L"group") d.Click(IDC_BACK);
      size_t before = boxes.shown().size();
      d.SetPageText(IDC_GROUP_NAME, c.name);
      d.Click(IDOK);
      EXPECT_EQ(d.PageKind(), c.message ? L"group" : L"start");
      ASSERT_EQ(boxes.shown().size(), before + (c.message ? 1 : 0));
      if (!c.message) continue;
      EXPECT_EQ(boxes.shown().back().text, c.message);
      EXPECT_EQ(boxes.shown().back().style, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
    }
    boxes.Answer(IDYES);
    d.Click(IDCANCEL);
  });
  EXPECT_EQ(installSettings.groupName, L"abc");
  EXPECT_EQ(installSettings.autoStart, 1);
  EXPECT_EQ(installSettings.desktopIcon, 0);
}

}  // namespace
