#include <windows.h>
#include <commctrl.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/wizard/wizard_driver.h"
#include "ui/dialog.h"
#include "wizard/folder_dlg.h"

namespace {

using wiztest::Driver;

const wchar_t kSavedHint[] = L"To install into a different folder, click Browse, and select another one.";
const UINT kExclamation = MB_OK | MB_ICONEXCLAMATION;

// The destination page alone, inside a hidden frame window on this thread.
class FolderPageTest : public wiztest::WizardTest {
 protected:
  void OpenPage() {
    page_.reset();
    ASSERT_TRUE(frame_.GetSafeHwnd() || frame_.Create(IDD_SETUP, nullptr));
    page_ = std::make_unique<CFolderDlg>(frame_.GetSafeHwnd());
    ASSERT_TRUE(page_->Create(IDD_FOLDER, frame_.GetSafeHwnd()));
  }
  void TearDown() override {
    page_.reset();
    frame_.DestroyWindow();
    wiztest::WizardTest::TearDown();
  }
  std::wstring Text(int id) const { return wiztest::Text(::GetDlgItem(page_->GetSafeHwnd(), id)); }
  void Click(int id) const { ::SendMessageW(::GetDlgItem(page_->GetSafeHwnd(), id), BM_CLICK, 0, 0); }

  CDialog frame_{IDD_SETUP};
  std::unique_ptr<CFolderDlg> page_;
  qmtest::MessageBoxRecorder boxes_;
};

// A picked folder: empty or holding this generation's program it is used as
// it stands; with other content or as a drive root it gets "Quillmark 8"
// (one backslash); one holding an older generation is refused with string 14.
TEST_F(FolderPageTest, ChosenFolderRules) {
  const struct {
    std::vector<const wchar_t*> files;
    const wchar_t* suffix;  // null: refused
    bool driveRoot = false;
  } cases[] = {{{}, L""},
               {{L"notes.txt"}, L"\\Quillmark 8"},
               {{L"Qmkview8.exe", L"other.dll"}, L""},
               {{}, L"Quillmark 8", true},
               {{L"Qmkview6.exe"}, nullptr},
               {{L"Qmkview5.exe", L"notes.txt"}, nullptr}};
  OpenPage();
  for (const auto& c : cases) {
    qmtest::TempDir folder(L"picked");
    for (const wchar_t* file : c.files) ASSERT_TRUE(qmtest::WriteFileBytes(folder / file, "x"));
    std::wstring picked = c.driveRoot ? L"C:\\" : folder.path();
    SCOPED_TRACE(qmtest::Narrow(picked + L" " + (c.files.empty() ? L"" : c.files[0])));
    std::wstring expected = c.suffix ? picked + c.suffix : installSettings.installDir;
    size_t boxesBefore = boxes_.shown().size();
    page_->ApplyChosenFolder(picked);
    EXPECT_EQ(installSettings.installDir, expected);
    EXPECT_EQ(Text(IDC_DEST_FOLDER), expected);
    ASSERT_EQ(boxes_.shown().size(), boxesBefore + (c.suffix ? 0 : 1));
    if (c.suffix) continue;
    EXPECT_EQ(boxes_.shown().back().text, L"Quillmark ver. 8 can not be installed into the same folder where the "
                                          L"older version is. Please select a different folder.");
    EXPECT_EQ(boxes_.shown().back().style, kExclamation);
  }
}

// The hint names an existing copy only when an installation was found at start
// and its folder holds the program. Portable shows no folder (the page refuses
// to close, string 27) until one is browsed for, then always with "Quillmark 8"
// appended, kept across type changes.
TEST_F(FolderPageTest, HintsAndPortableFolder) {
  ASSERT_TRUE(::CreateDirectoryW(installSettings.installDir.c_str(), nullptr));
  ASSERT_TRUE(qmtest::WriteFileBytes(installSettings.installDir + L"\\Qmkview8.exe", "x"));
  OpenPage();
  EXPECT_EQ(Text(IDC_FOLDER_HINT), kSavedHint);
  installSettings.defaultDirUsed = 0;
  OpenPage();
  EXPECT_EQ(Text(IDC_FOLDER_HINT), L"This folder already contains a previous copy of Quillmark 8. To upgrade or "
                                   L"re-install that copy, please do not change the destination folder.");

  Click(IDC_TYPE_PORTABLE);
  EXPECT_EQ(Text(IDC_DEST_FOLDER), L"");
  EXPECT_EQ(Text(IDC_FOLDER_HINT),
            L"Click the Browse button and select a folder on a removable disk/USB key or network drive.");
  EXPECT_FALSE(page_->DestroyWindow());
  ASSERT_EQ(boxes_.shown().size(), 1u);
  EXPECT_EQ(boxes_.shown()[0].text,
            L"Please click BROWSE button first and select the folder for portable installation.");
  EXPECT_EQ(boxes_.shown()[0].style, kExclamation);
  qmtest::TempDir stick(L"stick");
  page_->ApplyChosenFolder(stick.path());
  std::wstring chosen = stick.path() + L"\\Quillmark 8";
  EXPECT_EQ(installSettings.installDir, chosen);
  Click(IDC_TYPE_USER);
  EXPECT_EQ(Text(IDC_DEST_FOLDER), chosen);
  EXPECT_EQ(Text(IDC_FOLDER_HINT), kSavedHint);
  Click(IDC_TYPE_PORTABLE);
  EXPECT_EQ(Text(IDC_DEST_FOLDER), chosen);
  EXPECT_TRUE(page_->DestroyWindow());
  EXPECT_EQ(installSettings.installType, 2);
}

// A name typed into the browser that is no folder: string 13, browser stays open.
TEST_F(FolderPageTest, BrowserRefusesTypedNameThatIsNoFolder) {
  EXPECT_EQ(BrowseFolderCallback(nullptr, BFFM_VALIDATEFAILEDW, reinterpret_cast<LPARAM>(L"no such"), 0), 1);
  ASSERT_EQ(boxes_.shown().size(), 1u);
  EXPECT_EQ(boxes_.shown()[0].text,
            L"You have entered and invalid folder name. Please correct.\nIf you want to create a new folder, "
            L"select its parent folder in the list and click \"Make New Foilder\" button.");
  EXPECT_EQ(boxes_.shown()[0].style, kExclamation);
}

// The tree's selected item text once the browser has walked down to name (it
// goes one level at a time); "" when it never does.
std::wstring SettledSelection(HWND browser, const std::wstring& name) {
  HWND tree = ::FindWindowExW(browser, nullptr, WC_TREEVIEWW, nullptr);
  wchar_t text[MAX_PATH] = {};
  for (int wait = 0; tree && wait < 200 && name != text; ++wait, ::Sleep(50)) {
    TVITEMW item = {};
    item.mask = TVIF_TEXT;
    item.hItem = reinterpret_cast<HTREEITEM>(::SendMessageW(tree, TVM_GETNEXTITEM, TVGN_CARET, 0));
    item.pszText = text;
    item.cchTextMax = MAX_PATH;
    if (!item.hItem || !::SendMessageW(tree, TVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item))) text[0] = 0;
  }
  return text;
}

using FolderBrowserTest = wiztest::WizardTest;

// Browse makes installDir so that the real browser can open on it, and removes
// it after; OK as offered keeps the (empty) folder as it stands. (Outside the
// user profile: the tree reaches the profile by two roads and may not settle.)
TEST_F(FolderBrowserTest, BrowseOpensOnInstallDirAndKeepsItAsOffered) {
  std::wstring root = L"C:\\qmbrowse." + std::to_wstring(::GetCurrentProcessId());
  ASSERT_TRUE(::CreateDirectoryW(root.c_str(), nullptr));
  std::wstring offered = installSettings.installDir = root + L"\\Quillmark 8";
  qmtest::MessageBoxRecorder boxes;
  wiztest::RunDriven(-1, &boxes, [&](Driver& d) {
    d.NextUntil(L"folder");
    // Wine's browser now and then drops the preselection while it fills its
    // tree (it ends on another drive); such a browser is cancelled, Browse again.
    bool settled = false;
    for (int attempt = 0; attempt < 3 && !settled; ++attempt) {
      d.PostClick(IDC_BROWSE);
      HWND browser = d.WaitForDialog(nullptr);
      ASSERT_NE(browser, nullptr);
      EXPECT_TRUE(qmtest::DirExists(offered));
      settled = SettledSelection(browser, L"Quillmark 8") == L"Quillmark 8";
      ::PostMessageW(::GetDlgItem(browser, settled ? IDOK : IDCANCEL), BM_CLICK, 0, 0);
      for (int wait = 0; wait < 100 && ::IsWindow(browser); ++wait) ::Sleep(50);
      ::SendMessageW(d.frame, WM_NULL, 0, 0);
      EXPECT_FALSE(qmtest::DirExists(offered));
    }
    ASSERT_TRUE(settled) << "the browser never showed installDir selected";
    EXPECT_EQ(d.ItemText(IDC_DEST_FOLDER), offered);
  });
  EXPECT_EQ(installSettings.installDir, offered);
  qmtest::RemoveTree(root);
}

}  // namespace
