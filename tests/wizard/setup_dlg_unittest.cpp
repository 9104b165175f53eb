#include <windows.h>

#include <gtest/gtest.h>

#include <commctrl.h>
#include <shlobj.h>

#include "app/settings.h"
#include "install/install_run.h"
#include "tests/support/test_support.h"
#include "tests/wizard/wizard_driver.h"
#include "tests/wizard/wizard_test_fixture.h"

namespace {

using wiztest::Driver;
using wiztest::RunDriven;
using wiztest::WizardTest;

constexpr int kBack = 3;
constexpr int kPicture = 1002;

const wchar_t kCaption[] = L"Quillmark Setup";
const wchar_t kConfirmCancel[] = L"Do you really want to cancel Quillmark setup?";

// Next from the welcome page until the page of the given kind shows.
void NextUntil(const Driver& driver, const std::wstring& kind) {
  for (int step = 0; step < 6 && driver.PageKind() != kind; ++step) driver.Click(IDOK);
}

using SetupFrameTest = WizardTest;

// Walking forward with every default: each page's look, the frame's labels,
// the page placement, one install at the ready page, and Finish.
TEST_F(SetupFrameTest, DefaultWalkVisitsEveryPageAndInstallsOnce) {
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    EXPECT_EQ(d.PageKind(), L"welcome");
    EXPECT_EQ(d.Caption(), kCaption);
    EXPECT_FALSE(Driver::Visible(d.FrameItem(kBack)));
    EXPECT_TRUE(Driver::Visible(d.FrameItem(kPicture)));
    EXPECT_EQ(d.FrameText(IDOK), L"&Next >");
    EXPECT_EQ(d.FrameText(IDCANCEL), L"Cancel");
    RECT picture = d.FrameItemRect(kPicture), page = d.PageRect();
    EXPECT_EQ(page.left, picture.right + 4);
    EXPECT_EQ(page.top, picture.top);
    // The whole page lies inside the frame's client area, above the buttons.
    RECT client = {};
    ::GetClientRect(d.frame(), &client);
    EXPECT_LE(page.right, client.right);
    EXPECT_LT(page.bottom, d.FrameItemRect(IDOK).top);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"agreement");
    EXPECT_EQ(d.Caption(), L"Please accept the License Agreement");
    EXPECT_EQ(d.FrameText(IDOK), L"Yes");
    EXPECT_EQ(d.FrameText(IDCANCEL), L"No");
    EXPECT_TRUE(Driver::Visible(d.FrameItem(kBack)));
    EXPECT_FALSE(Driver::Visible(d.FrameItem(kPicture)));
    page = d.PageRect();
    EXPECT_EQ(page.left, 4);
    EXPECT_EQ(page.top, 4);
    EXPECT_LE(page.right, client.right);
    EXPECT_LT(page.bottom, d.FrameItemRect(IDOK).top);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"folder");
    EXPECT_EQ(d.Caption(), kCaption);
    EXPECT_EQ(d.FrameText(IDOK), L"&Next >");
    EXPECT_EQ(d.FrameText(IDCANCEL), L"Cancel");
    EXPECT_TRUE(Driver::Visible(d.FrameItem(kPicture)));
    EXPECT_EQ(d.PageRect().left, d.FrameItemRect(kPicture).right + 4);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"group");
    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"start");
    EXPECT_EQ(d.PageText(1010), L"You are now ready to install Quillmark.");
    EXPECT_TRUE(Driver::Visible(d.PageItem(1011)));
    EXPECT_FALSE(Driver::Visible(d.PageItem(1009)));
    EXPECT_FALSE(Driver::Visible(d.PageItem(1012)));
    EXPECT_EQ(wiztest::installCalls, 0);

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"start");
    EXPECT_EQ(wiztest::installCalls, 1);
    EXPECT_FALSE(Driver::Enabled(d.FrameItem(kBack)));
    EXPECT_FALSE(Driver::Enabled(d.FrameItem(IDCANCEL)));
    EXPECT_TRUE(Driver::Enabled(d.FrameItem(IDOK)));
    EXPECT_EQ(d.FrameText(IDOK), L"&Finish >");
    EXPECT_EQ(d.PageText(1010), L"Quillmark 8.05.03 has been successfully installed.");
    EXPECT_EQ(d.PageText(1011), L"Press the Finish button to exit this installation.");
    EXPECT_FALSE(Driver::Visible(d.PageItem(1009)));
    EXPECT_TRUE(Driver::Visible(d.PageItem(1012)));
    EXPECT_EQ(d.PageText(1012), L"Run Quillmark");
    EXPECT_FALSE(Driver::Checked(d.PageItem(1012)));

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

// Back from each page lands on the page before; the welcome page hides Back.
TEST_F(SetupFrameTest, BackReturnsPageByPage) {
  qmtest::MessageBoxRecorder boxes;
  boxes.Answer(IDYES);
  INT_PTR result = RunDriven(-1, &boxes, [](Driver& d) {
    NextUntil(d, L"start");
    ASSERT_EQ(d.PageKind(), L"start");
    const wchar_t* expected[] = {L"group", L"folder", L"agreement", L"welcome"};
    for (const wchar_t* kind : expected) {
      d.Click(kBack);
      EXPECT_EQ(d.PageKind(), kind);
    }
    EXPECT_FALSE(Driver::Visible(d.FrameItem(kBack)));
    EXPECT_EQ(d.FrameText(IDOK), L"&Next >");
    d.Click(IDCANCEL);
  });
  EXPECT_EQ(result, IDCANCEL);
  EXPECT_EQ(wiztest::installCalls, 0);
}

// A portable install skips the group page both ways, offers no run box and
// shows where the 'StartQM8' icon is: the parent of the install folder.
TEST_F(SetupFrameTest, PortableSkipsGroupPageAndShowsStartHint) {
  installSettings.installType = 2;
  std::wstring parent = dest_.path();
  INT_PTR result = RunDriven(-1, nullptr, [&](Driver& d) {
    NextUntil(d, L"folder");
    ASSERT_EQ(d.PageKind(), L"folder");
    EXPECT_TRUE(Driver::Checked(d.PageItem(1003)));
    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"start");
    d.Click(kBack);
    ASSERT_EQ(d.PageKind(), L"folder");
    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"start");
    d.Click(IDOK);
    EXPECT_EQ(wiztest::installCalls, 1);
    EXPECT_TRUE(Driver::Visible(d.PageItem(1009)));
    EXPECT_EQ(d.PageText(1009),
              L"To run portable Quillmark, double-click 'StartQM8' icon located at:\n" + parent);
    EXPECT_FALSE(Driver::Visible(d.PageItem(1012)));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.installType, 2);
  EXPECT_EQ(installSettings.runAfter, 0);
}

// Finish reads the run box: checked by the user it asks to start the product.
TEST_F(SetupFrameTest, CheckedRunBoxSetsRunAfter) {
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    NextUntil(d, L"start");
    d.Click(IDOK);
    ASSERT_EQ(d.FrameText(IDOK), L"&Finish >");
    ::SendMessageW(d.PageItem(1012), BM_CLICK, 0, 0);
    EXPECT_TRUE(Driver::Checked(d.PageItem(1012)));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.runAfter, 1);
}

// An install that needs a restart turns the box into the checked restart box
// and says why; Finish then asks for the restart, unless the user unticks it.
TEST_F(SetupFrameTest, RestartNeededOffersCheckedRestartBox) {
  wiztest::restartAfterInstall = true;
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    NextUntil(d, L"start");
    d.Click(IDOK);
    EXPECT_EQ(d.PageText(1012), L"Restart the computer when I click \"Finish\"");
    EXPECT_TRUE(Driver::Checked(d.PageItem(1012)));
    EXPECT_TRUE(Driver::Visible(d.PageItem(1012)));
    EXPECT_EQ(d.PageText(1011),
              L"It is necessary to restart your computer before using the product, otherwise it "
              L"may not work correctly.");
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.runAfter, 1);

  installSettings.restartNeeded = 0;
  result = RunDriven(-1, nullptr, [](Driver& d) {
    NextUntil(d, L"start");
    d.Click(IDOK);
    ::SendMessageW(d.PageItem(1012), BM_CLICK, 0, 0);
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.runAfter, 0);
}

// Portable and a restart: the restart box is checked but hidden, and Finish
// still reads it.
TEST_F(SetupFrameTest, PortableRestartReadsHiddenBox) {
  installSettings.installType = 2;
  wiztest::restartAfterInstall = true;
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    NextUntil(d, L"start");
    d.Click(IDOK);
    EXPECT_FALSE(Driver::Visible(d.PageItem(1012)));
    EXPECT_TRUE(Driver::Checked(d.PageItem(1012)));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(installSettings.runAfter, 1);
}

// With the index preset to 4 the frame opens on the finished page and does
// not install again.
TEST_F(SetupFrameTest, PresetIndexOpensFinishedPageWithoutInstalling) {
  installSettings.installMode = 2;
  installSettings.newVersion = {8, 12, 7, 0};
  INT_PTR result = RunDriven(4, nullptr, [](Driver& d) {
    ASSERT_EQ(d.PageKind(), L"start");
    EXPECT_EQ(d.PageText(1010), L"Quillmark 8.12.07 has been successfully installed.");
    EXPECT_EQ(d.FrameText(IDOK), L"&Finish >");
    EXPECT_FALSE(Driver::Enabled(d.FrameItem(kBack)));
    EXPECT_FALSE(Driver::Enabled(d.FrameItem(IDCANCEL)));
    EXPECT_TRUE(Driver::Visible(d.PageItem(1012)));
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(wiztest::installCalls, 0);
}

// Cancel asks string 11 as a Yes/No question defaulting to No; No stays (on
// the agreement page with its "Yes"/"No" labels intact), Yes ends the wizard.
TEST_F(SetupFrameTest, CancelAsksAndOnlyYesEnds) {
  qmtest::MessageBoxRecorder boxes;
  INT_PTR result = RunDriven(-1, &boxes, [&](Driver& d) {
    boxes.Answer(IDNO);
    d.Click(IDCANCEL);
    ASSERT_EQ(boxes.shown().size(), 1u);
    EXPECT_EQ(boxes.shown()[0].text, kConfirmCancel);
    EXPECT_EQ(boxes.shown()[0].style, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2));
    EXPECT_EQ(d.PageKind(), L"welcome");

    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"agreement");
    boxes.Answer(IDNO);
    d.Click(IDCANCEL);
    ASSERT_EQ(boxes.shown().size(), 2u);
    EXPECT_EQ(boxes.shown()[1].text, kConfirmCancel);
    EXPECT_EQ(d.PageKind(), L"agreement");
    EXPECT_EQ(d.FrameText(IDOK), L"Yes");
    EXPECT_EQ(d.FrameText(IDCANCEL), L"No");

    boxes.Answer(IDYES);
    d.Click(IDCANCEL);
  });
  EXPECT_EQ(result, IDCANCEL);
  EXPECT_EQ(boxes.shown().size(), 3u);
}

// The same question as a real message box on screen, answered by clicking.
TEST_F(SetupFrameTest, RealCancelQuestionIsAnsweredOnScreen) {
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"agreement");
    d.PostClick(IDCANCEL);
    HWND box = d.WaitForMessageBox();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(Driver::MessageBoxText(box), kConfirmCancel);
    ASSERT_NE(::GetDlgItem(box, IDYES), nullptr);
    ASSERT_NE(::GetDlgItem(box, IDNO), nullptr);
    ::PostMessageW(::GetDlgItem(box, IDNO), BM_CLICK, 0, 0);
    for (int wait = 0; wait < 100 && ::IsWindow(box); ++wait) ::Sleep(50);
    EXPECT_FALSE(::IsWindow(box));
    EXPECT_EQ(d.PageKind(), L"agreement");
    EXPECT_EQ(d.FrameText(IDCANCEL), L"No");

    d.PostClick(IDCANCEL);
    box = d.WaitForMessageBox();
    ASSERT_NE(box, nullptr);
    ::PostMessageW(::GetDlgItem(box, IDYES), BM_CLICK, 0, 0);
    for (int wait = 0; wait < 100 && ::IsWindow(d.frame()); ++wait) ::Sleep(50);
  });
  EXPECT_EQ(result, IDCANCEL);
}

// Back from a page that refuses to be left keeps that page but lowers the
// index by two: the next Next opens the page before the one on screen.
TEST_F(SetupFrameTest, BackFromRefusingPageLowersIndexByTwo) {
  qmtest::MessageBoxRecorder boxes;
  INT_PTR result = RunDriven(-1, &boxes, [&](Driver& d) {
    NextUntil(d, L"group");
    ASSERT_EQ(d.PageKind(), L"group");
    d.SetPageText(1000, L"ab");
    d.Click(kBack);
    ASSERT_EQ(boxes.shown().size(), 1u);
    EXPECT_EQ(boxes.shown()[0].text, L"Error: Please enter a valid group name, minimum 3 letters");
    EXPECT_EQ(d.PageKind(), L"group");
    d.SetPageText(1000, L"abc");
    d.Click(IDOK);
    EXPECT_EQ(d.PageKind(), L"folder");
    boxes.Answer(IDYES);
    d.Click(IDCANCEL);
  });
  EXPECT_EQ(result, IDCANCEL);
}

// The same on the destination page: portable chosen without a folder refuses
// Back with string 27; once a type with a folder is chosen, Next opens the
// agreement page.
TEST_F(SetupFrameTest, BackFromFolderPageWithoutFolder) {
  qmtest::MessageBoxRecorder boxes;
  INT_PTR result = RunDriven(-1, &boxes, [&](Driver& d) {
    NextUntil(d, L"folder");
    ASSERT_EQ(d.PageKind(), L"folder");
    d.ClickPage(1003);
    EXPECT_EQ(d.PageText(1013), L"");
    d.Click(kBack);
    ASSERT_EQ(boxes.shown().size(), 1u);
    EXPECT_EQ(boxes.shown()[0].text,
              L"Please click BROWSE button first and select the folder for portable installation.");
    EXPECT_EQ(boxes.shown()[0].style, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
    EXPECT_EQ(d.PageKind(), L"folder");
    d.ClickPage(1001);
    d.Click(IDOK);
    EXPECT_EQ(d.PageKind(), L"agreement");
    boxes.Answer(IDYES);
    d.Click(IDCANCEL);
  });
  EXPECT_EQ(result, IDCANCEL);
  EXPECT_EQ(installSettings.installType, 0);
}

// The real install run behind the ready page: a tiny portable package lands
// in the chosen folder and the 'StartQM8' file in its parent.
TEST_F(SetupFrameTest, RealInstallRunCopiesPackage) {
  qmtest::TempDir package(L"wizard package");
  ASSERT_TRUE(qmtest::WriteFileBytes(package / L"QmkUnInst.log",
                                     "File Copy: readme.txt\r\nFile Copy prt: StartQM8.txt\r\n"));
  ASSERT_TRUE(qmtest::WriteFileBytes(package / L"readme.txt", "hello"));
  ASSERT_TRUE(qmtest::WriteFileBytes(package / L"StartQM8.txt", "start"));
  installSettings.sourceDir = package.path();
  installSettings.installType = 2;
  installSettings.defaultDirUsed = 0;
  pInstallRun = &RunInstall;
  std::wstring folder = installSettings.installDir;
  INT_PTR result = RunDriven(-1, nullptr, [](Driver& d) {
    NextUntil(d, L"start");
    d.Click(IDOK);
    EXPECT_EQ(d.FrameText(IDOK), L"&Finish >");
    d.Click(IDOK);
  });
  EXPECT_EQ(result, IDOK);
  EXPECT_EQ(qmtest::ReadFileBytes(folder + L"\\readme.txt"), "hello");
  EXPECT_TRUE(qmtest::FileExists(folder + L"\\QmkUnInst.log"));
  EXPECT_EQ(qmtest::ReadFileBytes(dest_ / L"StartQM8.txt"), "start");
}

}  // namespace

namespace {

// Clicks Browse and waits for the folder browser's window.
HWND OpenBrowser(const Driver& d) {
  ::PostMessageW(d.PageItem(1005), BM_CLICK, 0, 0);
  for (int wait = 0; wait < 200; ++wait) {
    ::Sleep(50);
    for (HWND candidate = ::FindWindowW(L"#32770", nullptr); candidate;
         candidate = ::FindWindowExW(nullptr, candidate, L"#32770", nullptr)) {
      DWORD pid = 0;
      ::GetWindowThreadProcessId(candidate, &pid);
      if (candidate != d.frame() && pid == ::GetCurrentProcessId() && ::IsWindowVisible(candidate))
        return candidate;
    }
  }
  return nullptr;
}

BOOL CALLBACK FindTree(HWND window, LPARAM found) {
  wchar_t className[32] = {};
  ::GetClassNameW(window, className, 32);
  if (wcscmp(className, WC_TREEVIEWW) != 0) return TRUE;
  *reinterpret_cast<HWND*>(found) = window;
  return FALSE;
}

// Waits until the browser's tree has settled on the folder called name; the
// browser walks down to a preselected folder one level at a time.
bool WaitForSelection(HWND browser, const std::wstring& name) {
  HWND tree = nullptr;
  ::EnumChildWindows(browser, &FindTree, reinterpret_cast<LPARAM>(&tree));
  for (int wait = 0; tree && wait < 200; ++wait) {
    wchar_t text[MAX_PATH] = {};
    TVITEMW item = {};
    item.mask = TVIF_TEXT;
    item.hItem = reinterpret_cast<HTREEITEM>(::SendMessageW(tree, TVM_GETNEXTITEM, TVGN_CARET, 0));
    item.pszText = text;
    item.cchTextMax = MAX_PATH;
    if (item.hItem && ::SendMessageW(tree, TVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item)) &&
        name == text)
      return true;
    ::Sleep(50);
  }
  return false;
}

// OK in the browser; returns once the page has handled the choice.
void CloseBrowser(const Driver& d, HWND browser) {
  ::PostMessageW(::GetDlgItem(browser, IDOK), BM_CLICK, 0, 0);
  for (int wait = 0; wait < 100 && ::IsWindow(browser); ++wait) ::Sleep(50);
  ::SendMessageW(d.frame(), WM_NULL, 0, 0);
}

// The real folder browser opens on installDir (made for that, removed after);
// taking it as offered keeps the empty folder as it is, and a folder with
// content picked in the browser comes back with "Quillmark 8" appended.
// (The folders lie outside the user profile: the browser's tree reaches the
// profile by two roads and does not always settle on a folder inside it.)
TEST_F(SetupFrameTest, BrowseWithRealFolderBrowser) {
  struct Folders {
    std::wstring root = L"C:\\qmbrowse." + std::to_wstring(::GetCurrentProcessId());
    ~Folders() { qmtest::RemoveTree(root); }
  } folders;
  ASSERT_TRUE(::CreateDirectoryW(folders.root.c_str(), nullptr));
  std::wstring chosen = folders.root + L"\\chosen";
  ASSERT_TRUE(::CreateDirectoryW(chosen.c_str(), nullptr));
  ASSERT_TRUE(qmtest::WriteFileBytes(chosen + L"\\keep.txt", "x"));
  installSettings.installDir = folders.root + L"\\Quillmark 8";
  std::wstring oldDir = installSettings.installDir;
  qmtest::MessageBoxRecorder boxes;
  RunDriven(-1, &boxes, [&](Driver& d) {
    NextUntil(d, L"folder");
    ASSERT_EQ(d.PageKind(), L"folder");

    HWND browser = OpenBrowser(d);
    ASSERT_NE(browser, nullptr);
    EXPECT_TRUE(qmtest::DirExists(oldDir));
    EXPECT_TRUE(WaitForSelection(browser, L"Quillmark 8"));
    CloseBrowser(d, browser);
    EXPECT_EQ(d.PageText(1013), oldDir);
    EXPECT_FALSE(qmtest::DirExists(oldDir));

    browser = OpenBrowser(d);
    ASSERT_NE(browser, nullptr);
    EXPECT_TRUE(WaitForSelection(browser, L"Quillmark 8"));
    ::SendMessageW(browser, BFFM_SETSELECTIONW, TRUE, reinterpret_cast<LPARAM>(chosen.c_str()));
    EXPECT_TRUE(WaitForSelection(browser, L"chosen"));
    CloseBrowser(d, browser);
    EXPECT_EQ(d.PageText(1013), chosen + L"\\Quillmark 8");
    boxes.Answer(IDYES);
    d.Click(IDCANCEL);
  });
  EXPECT_EQ(installSettings.installDir, chosen + L"\\Quillmark 8");
  EXPECT_EQ(boxes.shown().size(), 1u);
}

}  // namespace
