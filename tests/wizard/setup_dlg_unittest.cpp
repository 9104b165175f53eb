#include <windows.h>

#include <gtest/gtest.h>

#include <functional>

#include "app/settings.h"
#include "tests/support/test_support.h"
#include "tests/wizard/wizard_driver.h"

namespace {

using wiztest::Driver;
using wiztest::RunDriven;

const wchar_t kCaption[] = L"Quillmark Setup";
const wchar_t kConfirmCancel[] = L"Do you really want to cancel Quillmark setup?";

// The page sits inside the client area, above the buttons, and either beside
// the picture (left, top given) or at the frame's corner.
void ExpectPagePlaced(const Driver& d, bool besidePicture) {
  RECT page = d.Rect(d.Page()), picture = d.Rect(d.FrameItem(IDC_PICTURE)), client = {};
  ::GetClientRect(d.frame(), &client);
  EXPECT_EQ(page.left, besidePicture ? picture.right + 4 : 4);
  EXPECT_EQ(page.top, besidePicture ? picture.top : 4);
  EXPECT_LE(page.right, client.right);
  EXPECT_LT(page.bottom, d.Rect(d.FrameItem(IDOK)).top);
  EXPECT_EQ(Driver::Visible(d.FrameItem(IDC_PICTURE)), besidePicture);
}

void ExpectFrameLabels(const Driver& d, const wchar_t* next, const wchar_t* cancel) {
  EXPECT_EQ(d.FrameText(IDOK), next);
  EXPECT_EQ(d.FrameText(IDCANCEL), cancel);
}

using SetupFrameTest = wiztest::WizardTest;

// Walking forward with every default: each page's look, labels and
// placement, Back page by page from the ready page, one install, Finish.
TEST_F(SetupFrameTest, DefaultWalkVisitsEveryPageAndInstallsOnce) {
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    EXPECT_EQ(d.PageKind(), L"welcome");
    EXPECT_EQ(d.Caption(), kCaption);
    EXPECT_FALSE(Driver::Visible(d.FrameItem(IDC_BACK)));
    ExpectFrameLabels(d, L"&Next >", L"Cancel");
    ExpectPagePlaced(d, true);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"agreement");
    EXPECT_EQ(d.Caption(), L"Please accept the License Agreement");
    ExpectFrameLabels(d, L"Yes", L"No");
    EXPECT_TRUE(Driver::Visible(d.FrameItem(IDC_BACK)));
    ExpectPagePlaced(d, false);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"folder");
    EXPECT_EQ(d.Caption(), kCaption);
    ExpectFrameLabels(d, L"&Next >", L"Cancel");
    ExpectPagePlaced(d, true);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"group");
    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"start");
    EXPECT_EQ(d.PageText(IDC_READY), L"You are now ready to install Quillmark.");
    EXPECT_TRUE(Driver::Visible(d.PageItem(IDC_READY_HINT)));
    EXPECT_FALSE(Driver::Visible(d.PageItem(IDC_INSTALLING)));
    EXPECT_FALSE(Driver::Visible(d.PageItem(IDC_RUN_AFTER)));

    for (const wchar_t* kind : {L"group", L"folder", L"agreement", L"welcome"}) {
      d.Click(IDC_BACK);
      EXPECT_EQ(d.PageKind(), kind);
    }
    EXPECT_FALSE(Driver::Visible(d.FrameItem(IDC_BACK)));
    ExpectFrameLabels(d, L"&Next >", L"Cancel");
    d.NextUntil(L"start");
    EXPECT_EQ(wiztest::installCalls, 0);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"start");
    EXPECT_EQ(wiztest::installCalls, 1);
    EXPECT_FALSE(Driver::Enabled(d.FrameItem(IDC_BACK)));
    EXPECT_FALSE(Driver::Enabled(d.FrameItem(IDCANCEL)));
    EXPECT_TRUE(Driver::Enabled(d.FrameItem(IDOK)));
    EXPECT_EQ(d.FrameText(IDOK), L"&Finish >");
    EXPECT_EQ(d.PageText(IDC_READY), L"Quillmark 8.05.03 has been successfully installed.");
    EXPECT_EQ(d.PageText(IDC_READY_HINT), L"Press the Finish button to exit this installation.");
    EXPECT_FALSE(Driver::Visible(d.PageItem(IDC_INSTALLING)));
    EXPECT_TRUE(Driver::Visible(d.PageItem(IDC_RUN_AFTER)));
    EXPECT_EQ(d.PageText(IDC_RUN_AFTER), L"Run Quillmark");
    EXPECT_FALSE(Driver::Checked(d.PageItem(IDC_RUN_AFTER)));

    // With the install done, the close box no longer cancels.
    ::SendMessageW(d.frame(), WM_CLOSE, 0, 0);
    ASSERT_TRUE(::IsWindow(d.frame()));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.runAfter, 0);
  EXPECT_EQ(installSettings.installType, 1);
  EXPECT_EQ(installSettings.groupName, L"Quillmark 8");
  EXPECT_EQ(wiztest::installCalls, 1);
}

// A portable install skips the group page both ways, offers no run box and
// shows where the 'StartQM8' icon is: the parent of the install folder.
TEST_F(SetupFrameTest, PortableSkipsGroupPageAndShowsStartHint) {
  installSettings.installType = 2;
  std::wstring parent = dest_.path();
  INT_PTR result = RunDriven(-1, nullptr, [&](Driver& d) {
    d.NextUntil(L"folder");
    ASSERT_EQ(d.PageKind(), L"folder");
    EXPECT_TRUE(Driver::Checked(d.PageItem(IDC_TYPE_PORTABLE)));
    for (const wchar_t* kind : {L"start", L"folder", L"start"}) {
      d.Click(d.PageKind() == L"start" ? IDC_BACK : IDOK);
      ASSERT_EQ(d.PageKind(), kind);
    }
    d.Click(IDOK);
    EXPECT_EQ(wiztest::installCalls, 1);
    EXPECT_TRUE(Driver::Visible(d.PageItem(IDC_INSTALLING)));
    EXPECT_EQ(d.PageText(IDC_INSTALLING),
              L"To run portable Quillmark, double-click 'StartQM8' icon located at:\n" + parent);
    EXPECT_FALSE(Driver::Visible(d.PageItem(IDC_RUN_AFTER)));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.installType, 2);
  EXPECT_EQ(installSettings.runAfter, 0);
}

// The finished page's box: "Run Quillmark" ticked by the user, or the restart
// box (checked, with the restart hint) left or unticked; portable hides it but
// Finish still reads it.
TEST_F(SetupFrameTest, FinishedPageBoxSetsRunAfter) {
  struct Case {
    int type;
    bool restart, click, visible;
    const wchar_t* label;
    int runAfter;
  };
  const wchar_t* restartLabel = L"Restart the computer when I click \"Finish\"";
  const Case cases[] = {
      {1, false, true, true, L"Run Quillmark", 1},
      {1, true, false, true, restartLabel, 1},
      {1, true, true, true, restartLabel, 0},
      {2, true, false, false, restartLabel, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "type " << c.type << " restart " << c.restart
                                    << " click " << c.click);
    installSettings.installType = c.type;
    installSettings.restartNeeded = 0;
    wiztest::restartAfterInstall = c.restart;
    INT_PTR result = RunDriven(-1, nullptr, [&](Driver& d) {
      d.NextUntil(L"start");
      d.Click(IDOK);
      ASSERT_EQ(d.FrameText(IDOK), L"&Finish >");
      HWND box = d.PageItem(IDC_RUN_AFTER);
      EXPECT_EQ(Driver::Text(box), c.label);
      EXPECT_EQ(Driver::Visible(box), c.visible);
      EXPECT_EQ(Driver::Checked(box), c.restart);
      if (c.restart) {
        EXPECT_EQ(d.PageText(IDC_READY_HINT),
                  L"It is necessary to restart your computer before using the product, otherwise "
                  L"it may not work correctly.");
      }
      if (c.click) d.ClickPage(IDC_RUN_AFTER);
      d.Click(IDOK);
    });
    EXPECT_EQ(result, IDOK);
    EXPECT_EQ(installSettings.runAfter, c.runAfter);
  }
}

// With the index preset to 4 the frame opens on the finished page and does
// not install again.
TEST_F(SetupFrameTest, PresetIndexOpensFinishedPageWithoutInstalling) {
  installSettings.installMode = 2;
  installSettings.newVersion = {8, 12, 7, 0};
  INT_PTR result = RunDriven(4, nullptr, [](Driver& d) {
    ASSERT_EQ(d.PageKind(), L"start");
    EXPECT_EQ(d.PageText(IDC_READY), L"Quillmark 8.12.07 has been successfully installed.");
    EXPECT_EQ(d.FrameText(IDOK), L"&Finish >");
    EXPECT_FALSE(Driver::Enabled(d.FrameItem(IDC_BACK)));
    EXPECT_FALSE(Driver::Enabled(d.FrameItem(IDCANCEL)));
    EXPECT_TRUE(Driver::Visible(d.PageItem(IDC_RUN_AFTER)));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(wiztest::installCalls, 0);
}

// Cancel asks string 11 in a real message box on screen, answered by clicking:
// No stays on the page with its labels, Yes ends the wizard.
TEST_F(SetupFrameTest, RealCancelQuestionIsAnsweredOnScreen) {
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"agreement");
    d.PostClick(IDCANCEL);
    HWND box = d.WaitForDialog();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(Driver::MessageBoxText(box), kConfirmCancel);
    ASSERT_NE(::GetDlgItem(box, IDYES), nullptr);
    ASSERT_NE(::GetDlgItem(box, IDNO), nullptr);
    ::PostMessageW(::GetDlgItem(box, IDNO), BM_CLICK, 0, 0);
    for (int wait = 0; wait < 100 && ::IsWindow(box); ++wait) ::Sleep(50);
    EXPECT_FALSE(::IsWindow(box));
    EXPECT_EQ(d.PageKind(), L"agreement");
    ExpectFrameLabels(d, L"Yes", L"No");

    d.PostClick(IDCANCEL);
    box = d.WaitForDialog();
    ASSERT_NE(box, nullptr);
    ::PostMessageW(::GetDlgItem(box, IDYES), BM_CLICK, 0, 0);
    for (int wait = 0; wait < 100 && ::IsWindow(d.frame()); ++wait) ::Sleep(50);
  });
  EXPECT_EQ(result, IDCANCEL);
}

// Back from a page that refuses to be left (strings 23, 27) keeps that page but
// lowers the index by two: after the fix, Next opens the page before the one
// on screen. Cancel there asks string 11.
TEST_F(SetupFrameTest, BackFromRefusingPageLowersIndexByTwo) {
  struct Case {
    const wchar_t* page;
    std::function<void(const Driver&)> spoil, fix;
    const wchar_t* message;
    UINT style;
    const wchar_t* afterNext;
  };
  const Case cases[] = {
      {L"group", [](const Driver& d) { d.SetPageText(IDC_GROUP_NAME, L"ab"); },
       [](const Driver& d) { d.SetPageText(IDC_GROUP_NAME, L"abc"); },
       L"Error: Please enter a valid group name, minimum 3 letters", MB_OK | MB_ICONEXCLAMATION,
       L"folder"},
      // Portable chosen without a folder: nothing shown to install into.
      {L"folder", [](const Driver& d) { d.ClickPage(IDC_TYPE_PORTABLE); },
       [](const Driver& d) { d.ClickPage(IDC_TYPE_USER); },
       L"Please click BROWSE button first and select the folder for portable installation.",
       MB_OK | MB_ICONEXCLAMATION, L"agreement"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(qmtest::Narrow(c.page));
    qmtest::MessageBoxRecorder boxes;
    INT_PTR result = RunDriven(-1, &boxes, [&](Driver& d) {
      d.NextUntil(c.page);
      ASSERT_EQ(d.PageKind(), c.page);
      c.spoil(d);
      d.Click(IDC_BACK);
      ASSERT_EQ(boxes.shown().size(), 1u);
      EXPECT_EQ(boxes.shown()[0].text, c.message);
      EXPECT_EQ(boxes.shown()[0].style, c.style);
      EXPECT_EQ(d.PageKind(), c.page);
      c.fix(d);
      d.Click(IDOK);
      EXPECT_EQ(d.PageKind(), c.afterNext);
      // Cancel asks a Yes/No question defaulting to No; only Yes ends.
      boxes.Answer(IDNO);
      d.Click(IDCANCEL);
      EXPECT_EQ(boxes.shown().back().text, kConfirmCancel);
      EXPECT_EQ(boxes.shown().back().style, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2));
      EXPECT_EQ(d.PageKind(), c.afterNext);
      boxes.Answer(IDYES);
      d.Click(IDCANCEL);
    });
    EXPECT_EQ(result, IDCANCEL);
    EXPECT_EQ(boxes.shown().size(), 3u);
  }
  EXPECT_EQ(wiztest::installCalls, 0);
  EXPECT_EQ(installSettings.installType, 0);
}

}  // namespace
