#include <windows.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include "sys/platform.h"
#include "tests/wizard/wizard_driver.h"

namespace {

using wiztest::Driver;
using wiztest::RunDriven;

const wchar_t kCaption[] = L"Quillmark Setup";
const wchar_t kNext[] = L"&Next >";
const wchar_t kConfirmCancel[] = L"Do you really want to cancel Quillmark setup?";
const UINT kExclamation = MB_OK | MB_ICONEXCLAMATION;

// The page lies inside the client area above the buttons, beside the picture
// or (picture hidden) at the frame's corner.
void ExpectPagePlaced(const Driver& d, bool besidePicture) {
  RECT page = d.Rect(d.Page()), picture = d.Rect(d.Item(IDC_PICTURE)), client = {};
  ::GetClientRect(d.frame, &client);
  EXPECT_EQ(page.left, besidePicture ? picture.right + 4 : 4);
  EXPECT_EQ(page.top, besidePicture ? picture.top : 4);
  EXPECT_LE(page.right, client.right);
  EXPECT_LT(page.bottom, d.Rect(d.Item(IDOK)).top);
  EXPECT_EQ(wiztest::Visible(d.Item(IDC_PICTURE)), besidePicture);
}

// The version line of the welcome page; the copyright line after it must end
// in the current year.
std::wstring WelcomeVersionLine(const Driver& d) {
  std::wstring text = d.ItemText(IDC_WELCOME_VERSION) + L"\n";
  size_t lineEnd = text.find(L'\n'), yearEnd = text.find(L'\n', lineEnd + 1);
  SYSTEMTIME now = {};
  ::GetLocalTime(&now);
  EXPECT_TRUE(yearEnd != std::wstring::npos && yearEnd >= lineEnd + 5 &&
              text.substr(yearEnd - 4, 4) == std::to_wstring(now.wYear)) << qmtest::Narrow(text);
  return text.substr(0, lineEnd);
}

using SetupFrameTest = wiztest::WizardTest;

// Every page with the default choices: caption, labels, Back and placement;
// the welcome line of a beta build; "agreement.txt" shown as raw UTF-16LE (BOM
// kept, odd last byte dropped) with nothing selected;
// Cancel's real question (string 11) answered No on screen keeps the page; Back
// page by page from the ready page; one install; the finished page, where a
// ticked "Run Quillmark" sets runAfter (what starts the product after setup).
TEST_F(SetupFrameTest, DefaultWalkVisitsEveryPageAndInstallsOnce) {
  installSettings.newVersion = {8, 5, 3, 7};
  ASSERT_TRUE(qmtest::WriteFileBytes(work_ / L"agreement.txt",
                                     std::string("\xFF\xFE" "A\0g\0r\0e\0e\0\x0A\x04" "Z", 15)));
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    EXPECT_EQ(WelcomeVersionLine(d), L"Quillmark ver. 8.05.03 Beta 7");
    for (std::wstring kind : {L"welcome", L"agreement", L"folder", L"group", L"start"}) {
      SCOPED_TRACE(qmtest::Narrow(kind));
      ASSERT_EQ(d.PageKind(), kind);
      bool agreement = kind == L"agreement";
      EXPECT_EQ(wiztest::Text(d.frame), agreement ? L"Please accept the License Agreement" : kCaption);
      EXPECT_EQ(d.ItemText(IDOK), agreement ? L"Yes" : kNext);
      EXPECT_EQ(d.ItemText(IDCANCEL), agreement ? L"No" : L"Cancel");
      EXPECT_EQ(wiztest::Visible(d.Item(IDC_BACK)), kind != L"welcome");
      ExpectPagePlaced(d, !agreement);
      if (agreement) {
        HWND text = d.Item(IDC_AGREEMENT_TEXT);
        EXPECT_EQ(wiztest::Text(text), L"\xFEFF" L"Agree\x040A");
        DWORD start = 1, end = 0;
        ::SendMessageW(text, EM_GETSEL, reinterpret_cast<WPARAM>(&start), reinterpret_cast<LPARAM>(&end));
        EXPECT_EQ(start, end);
        d.PostClick(IDCANCEL);
        HWND box = d.WaitForDialog();
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(wiztest::Text(::GetDlgItem(box, 0xFFFF)), kConfirmCancel);
        ::PostMessageW(::GetDlgItem(box, IDNO), BM_CLICK, 0, 0);
        for (int wait = 0; wait < 100 && ::IsWindow(box); ++wait) ::Sleep(50);
        EXPECT_EQ(d.PageKind(), L"agreement");
      }
      if (kind != L"start") d.Click(IDOK);
    }
    EXPECT_EQ(d.ItemText(IDC_READY), L"You are now ready to install Quillmark.");
    EXPECT_TRUE(wiztest::Visible(d.Item(IDC_READY_HINT)));
    EXPECT_FALSE(wiztest::Visible(d.Item(IDC_INSTALLING)));
    EXPECT_FALSE(wiztest::Visible(d.Item(IDC_RUN_AFTER)));
    for (const wchar_t* kind : {L"group", L"folder", L"agreement", L"welcome"}) {
      d.Click(IDC_BACK);
      EXPECT_EQ(d.PageKind(), kind);
    }
    EXPECT_FALSE(wiztest::Visible(d.Item(IDC_BACK)));
    EXPECT_EQ(d.ItemText(IDOK), kNext);
    d.NextUntil(L"start");
    EXPECT_EQ(wiztest::installCalls, 0);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"start");
    EXPECT_EQ(wiztest::installCalls, 1);
    EXPECT_FALSE(wiztest::Enabled(d.Item(IDC_BACK)));
    EXPECT_FALSE(wiztest::Enabled(d.Item(IDCANCEL)));
    EXPECT_TRUE(wiztest::Enabled(d.Item(IDOK)));
    EXPECT_EQ(d.ItemText(IDC_READY), L"Quillmark 8.05.03 has been successfully installed.");
    EXPECT_EQ(d.ItemText(IDC_READY_HINT), L"Press the Finish button to exit this installation.");
    EXPECT_FALSE(wiztest::Visible(d.Item(IDC_INSTALLING)));
    EXPECT_EQ(d.ItemText(IDC_RUN_AFTER), L"Run Quillmark");
    EXPECT_TRUE(wiztest::Visible(d.Item(IDC_RUN_AFTER)));
    EXPECT_FALSE(wiztest::Checked(d.Item(IDC_RUN_AFTER)));
    d.Click(IDC_RUN_AFTER);
    // With the install done, the close box no longer cancels.
    ::SendMessageW(d.frame, WM_CLOSE, 0, 0);
    ASSERT_TRUE(::IsWindow(d.frame));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.runAfter, 1);
  EXPECT_EQ(installSettings.installType, 1);
  EXPECT_EQ(wiztest::installCalls, 1);
}

// A portable install skips the group page both ways, hides the run box (but
// Finish reads it: a pending restart still restarts) and shows where the
// 'StartQM8' icon is: the parent of the install folder. (Also: a released
// version's welcome line ends in a blank; no "agreement.txt", an empty box.)
TEST_F(SetupFrameTest, PortableSkipsGroupPageAndShowsStartHint) {
  installSettings.installType = 2;
  wiztest::restartAfterInstall = true;
  installSettings.newVersion = {8, 10, 0, 0};
  INT_PTR result = RunDriven(-1, nullptr, [&](Driver& d) {
    EXPECT_EQ(WelcomeVersionLine(d), L"Quillmark ver. 8.10.00 ");
    d.NextUntil(L"agreement");
    EXPECT_EQ(d.ItemText(IDC_AGREEMENT_TEXT), L"");
    d.NextUntil(L"folder");
    EXPECT_TRUE(wiztest::Checked(d.Item(IDC_TYPE_PORTABLE)));
    for (const wchar_t* kind : {L"start", L"folder", L"start"}) {
      d.Click(d.PageKind() == L"start" ? IDC_BACK : IDOK);
      ASSERT_EQ(d.PageKind(), kind);
    }
    d.Click(IDOK);
    EXPECT_EQ(wiztest::installCalls, 1);
    EXPECT_TRUE(wiztest::Visible(d.Item(IDC_INSTALLING)));
    EXPECT_EQ(d.ItemText(IDC_INSTALLING),
              L"To run portable Quillmark, double-click 'StartQM8' icon located at:\n" + dest_.path());
    EXPECT_FALSE(wiztest::Visible(d.Item(IDC_RUN_AFTER)));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.installType, 2);
  EXPECT_EQ(installSettings.runAfter, 1);
}

// With a restart pending the finished page's box offers the restart, checked,
// with the restart hint: left checked, Finish sets runAfter (the restart);
// unticked, it does not.
TEST_F(SetupFrameTest, FinishedPageBoxSetsRunAfter) {
  wiztest::restartAfterInstall = true;
  for (bool untick : {false, true}) {
    SCOPED_TRACE(untick ? "unticked" : "left");
    installSettings.restartNeeded = 0;
    INT_PTR result = RunDriven(-1, nullptr, [&](Driver& d) {
      d.NextUntil(L"start");
      d.Click(IDOK);
      ASSERT_EQ(d.ItemText(IDOK), L"&Finish >");
      EXPECT_EQ(d.ItemText(IDC_RUN_AFTER), L"Restart the computer when I click \"Finish\"");
      EXPECT_TRUE(wiztest::Visible(d.Item(IDC_RUN_AFTER)));
      EXPECT_TRUE(wiztest::Checked(d.Item(IDC_RUN_AFTER)));
      EXPECT_EQ(d.ItemText(IDC_READY_HINT),
                L"It is necessary to restart your computer before using the product, otherwise it may not work "
                L"correctly.");
      if (untick) d.Click(IDC_RUN_AFTER);
      d.Click(IDOK);
    });
    EXPECT_EQ(result, IDOK);
    EXPECT_EQ(installSettings.runAfter, untick ? 0 : 1);
  }
}

std::wstring UpperFolderName(int csidl) {
  std::wstring path = ShellFolderPath(csidl), name = path.substr(path.rfind(L'\\') + 1);
  ::CharUpperBuffW(name.data(), static_cast<DWORD>(name.size()));
  return name;
}

// The group page starts from the settings; Next refuses two letters within
// blanks (string 23) and either start-up folder's name in any case (string 24),
// takes a nested group ending in that name and three letters within blanks
// stored without them; the boxes are stored when the page is left. Back
// refused (string 23) keeps the page but lowers the index by two: Next then
// opens the folder page. Cancel asks string 11, default No; No stays.
TEST_F(SetupFrameTest, GroupNameRulesAndBoxes) {
  const wchar_t* tooShort = L"Error: Please enter a valid group name, minimum 3 letters";
  const wchar_t* isStartup = L"Error: Can not install shortcuts into this group, please select a different name.";
  std::wstring user = UpperFolderName(CSIDL_STARTUP);
  ASSERT_GE(user.size(), 3u);
  const struct {
    std::wstring name;
    const wchar_t* message;  // null: accepted, the ready page follows
  } cases[] = {{L"  ab  ", tooShort},
               {user, isStartup},
               {UpperFolderName(CSIDL_COMMON_STARTUP), isStartup},
               {L"Tools\\" + user, nullptr},
               {L" \tabc  ", nullptr}};
  installSettings.groupName = L"My Tools";
  installSettings.desktopIcon = 1;
  qmtest::MessageBoxRecorder boxes;
  RunDriven(-1, &boxes, [&](Driver& d) {
    d.NextUntil(L"group");
    EXPECT_EQ(d.ItemText(IDC_GROUP_NAME), L"My Tools");
    EXPECT_FALSE(wiztest::Checked(d.Item(IDC_AUTOSTART)));
    EXPECT_TRUE(wiztest::Checked(d.Item(IDC_DESKTOP_ICON)));
    d.Click(IDC_AUTOSTART);
    d.Click(IDC_DESKTOP_ICON);
    for (const auto& c : cases) {
      SCOPED_TRACE(qmtest::Narrow(c.name));
      if (d.PageKind() != L"group") d.Click(IDC_BACK);
      size_t before = boxes.shown().size();
      d.SetItemText(IDC_GROUP_NAME, c.name);
      d.Click(IDOK);
      EXPECT_EQ(d.PageKind(), c.message ? L"group" : L"start");
      ASSERT_EQ(boxes.shown().size(), before + (c.message ? 1 : 0));
      if (!c.message) continue;
      EXPECT_EQ(boxes.shown().back().text, c.message);
      EXPECT_EQ(boxes.shown().back().style, kExclamation);
    }
    d.Click(IDC_BACK);
    d.SetItemText(IDC_GROUP_NAME, L"ab");
    d.Click(IDC_BACK);
    EXPECT_EQ(boxes.shown().back().text, tooShort);
    EXPECT_EQ(d.PageKind(), L"group");
    d.SetItemText(IDC_GROUP_NAME, L"abc");
    d.Click(IDOK);
    EXPECT_EQ(d.PageKind(), L"folder");
    boxes.Answer(IDNO);
    d.Click(IDCANCEL);
    EXPECT_EQ(boxes.shown().back().text, kConfirmCancel);
    EXPECT_EQ(boxes.shown().back().style, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2));
    EXPECT_EQ(d.PageKind(), L"folder");
  });
  EXPECT_EQ(installSettings.groupName, L"abc");
  EXPECT_EQ(installSettings.autoStart, 1);
  EXPECT_EQ(installSettings.desktopIcon, 0);
}

}  // namespace
