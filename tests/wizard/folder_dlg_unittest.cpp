#include <windows.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "app/settings.h"
#include "res/resource.h"
#include "tests/support/test_support.h"
#include "tests/wizard/wizard_test_fixture.h"
#include "ui/dialog.h"
#include "wizard/folder_dlg.h"

namespace {

const wchar_t kOlderGeneration[] =
    L"Quillmark ver. 8 can not be installed into the same folder where the older version is. "
    L"Please select a different folder.";
const wchar_t kSavedHint[] =
    L"To install into a different folder, click Browse, and select another one.";
const wchar_t kHasCopyHint[] =
    L"This folder already contains a previous copy of Quillmark 8. To upgrade or re-install that "
    L"copy, please do not change the destination folder.";
const wchar_t kPortableHint[] =
    L"Click the Browse button and select a folder on a removable disk/USB key or network drive.";

// The destination page alone, inside a hidden frame window on this thread.
class FolderPageTest : public wiztest::WizardTest {
 protected:
  void OpenPage() {
    ASSERT_TRUE(frame_.Create(IDD_SETUP, nullptr));
    page_ = std::make_unique<CFolderDlg>(frame_.GetSafeHwnd());
    ASSERT_TRUE(page_->Create(IDD_FOLDER, frame_.GetSafeHwnd()));
  }
  void TearDown() override {
    page_.reset();
    frame_.DestroyWindow();
    wiztest::WizardTest::TearDown();
  }
  std::wstring Text(int id) const {
    wchar_t buffer[1024] = {};
    ::GetDlgItemTextW(page_->GetSafeHwnd(), id, buffer, 1024);
    return buffer;
  }
  void Click(int id) const { ::SendMessageW(::GetDlgItem(page_->GetSafeHwnd(), id), BM_CLICK, 0, 0); }

  CDialog frame_{IDD_SETUP};
  std::unique_ptr<CFolderDlg> page_;
  qmtest::MessageBoxRecorder boxes_;
};

// An empty folder is used as it stands; a folder with content gets the
// product folder appended; a folder with this generation's program is kept.
TEST_F(FolderPageTest, ChosenFolderRules) {
  OpenPage();
  qmtest::TempDir empty(L"empty"), full(L"full"), current(L"current");
  ASSERT_TRUE(qmtest::WriteFileBytes(full / L"notes.txt", "x"));
  ASSERT_TRUE(qmtest::WriteFileBytes(current / L"Qmkview8.exe", "x"));
  ASSERT_TRUE(qmtest::WriteFileBytes(current / L"other.dll", "x"));

  page_->ApplyChosenFolder(empty.path());
  EXPECT_EQ(installSettings.installDir, empty.path());
  EXPECT_EQ(Text(1013), empty.path());

  page_->ApplyChosenFolder(full.path());
  EXPECT_EQ(installSettings.installDir, full.path() + L"\\Quillmark 8");
  EXPECT_EQ(Text(1013), full.path() + L"\\Quillmark 8");

  page_->ApplyChosenFolder(current.path());
  EXPECT_EQ(installSettings.installDir, current.path());
  EXPECT_TRUE(boxes_.shown().empty());
}

// A drive root gets the product folder without a doubled backslash.
TEST_F(FolderPageTest, DriveRootGetsSingleBackslash) {
  OpenPage();
  page_->ApplyChosenFolder(L"C:\\");
  EXPECT_EQ(installSettings.installDir, L"C:\\Quillmark 8");
}

// A folder holding an older generation is refused with string 14 and nothing
// changes.
TEST_F(FolderPageTest, OlderGenerationRefused) {
  OpenPage();
  std::wstring before = installSettings.installDir;
  for (const wchar_t* program : {L"Qmkview6.exe", L"Qmkview5.exe"}) {
    qmtest::TempDir old(L"old");
    ASSERT_TRUE(qmtest::WriteFileBytes(old / program, "x"));
    page_->ApplyChosenFolder(old.path());
    EXPECT_EQ(installSettings.installDir, before) << program;
    EXPECT_EQ(Text(1013), before) << program;
  }
  ASSERT_EQ(boxes_.shown().size(), 2u);
  EXPECT_EQ(boxes_.shown()[0].text, kOlderGeneration);
  EXPECT_EQ(boxes_.shown()[0].style, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
}

// Portable: no folder shown until one is browsed for, then always the product
// folder appended; the chosen folder survives switching types back and forth.
TEST_F(FolderPageTest, PortableFolderChoice) {
  OpenPage();
  Click(1003);
  EXPECT_EQ(Text(1013), L"");
  EXPECT_EQ(Text(1006), kPortableHint);
  EXPECT_FALSE(page_->DestroyWindow());
  ASSERT_EQ(boxes_.shown().size(), 1u);
  EXPECT_TRUE(::IsWindow(page_->GetSafeHwnd()));

  qmtest::TempDir stick(L"stick");
  page_->ApplyChosenFolder(stick.path());
  std::wstring chosen = stick.path() + L"\\Quillmark 8";
  EXPECT_EQ(installSettings.installDir, chosen);
  Click(1001);
  EXPECT_EQ(Text(1013), chosen);
  EXPECT_EQ(Text(1006), kSavedHint);
  Click(1003);
  EXPECT_EQ(Text(1013), chosen);

  EXPECT_TRUE(page_->DestroyWindow());
  EXPECT_EQ(installSettings.installType, 2);
}

// The hint warns about an existing copy only when an installation was found
// at start and its folder holds the program.
TEST_F(FolderPageTest, ExistingCopyHint) {
  ASSERT_TRUE(::CreateDirectoryW(installSettings.installDir.c_str(), nullptr));
  ASSERT_TRUE(qmtest::WriteFileBytes(installSettings.installDir + L"\\Qmkview8.exe", "x"));
  installSettings.defaultDirUsed = 1;
  OpenPage();
  EXPECT_EQ(Text(1006), kSavedHint);
  page_.reset();

  installSettings.defaultDirUsed = 0;
  page_ = std::make_unique<CFolderDlg>(frame_.GetSafeHwnd());
  ASSERT_TRUE(page_->Create(IDD_FOLDER, frame_.GetSafeHwnd()));
  EXPECT_EQ(Text(1006), kHasCopyHint);
  EXPECT_EQ(Text(1013), installSettings.installDir);
  EXPECT_TRUE(::SendMessageW(::GetDlgItem(page_->GetSafeHwnd(), 1002), BM_GETCHECK, 0, 0) == BST_CHECKED);
}

// The browser callback preselects installDir when the browser opens, and
// keeps the browser open after string 13 for a name that is not a folder.
TEST_F(FolderPageTest, BrowserCallback) {
  static std::wstring selected;
  static WPARAM selectedByPath = 0;
  selected.clear();
  struct Recorder {
    static LRESULT CALLBACK Proc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
      if (message == BFFM_SETSELECTIONW) {
        selectedByPath = wParam;
        selected = reinterpret_cast<const wchar_t*>(lParam);
        return 0;
      }
      return ::DefWindowProcW(window, message, wParam, lParam);
    }
  };
  HWND browser = ::CreateWindowW(L"STATIC", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
  ASSERT_NE(browser, nullptr);
  ::SetWindowLongPtrW(browser, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Recorder::Proc));

  EXPECT_EQ(BrowseFolderCallback(browser, BFFM_INITIALIZED, 0, 0), 0);
  EXPECT_EQ(selected, installSettings.installDir);
  EXPECT_EQ(selectedByPath, static_cast<WPARAM>(TRUE));
  EXPECT_TRUE(boxes_.shown().empty());

  EXPECT_EQ(BrowseFolderCallback(browser, BFFM_VALIDATEFAILEDW,
                                 reinterpret_cast<LPARAM>(L"no such"), 0), 1);
  ASSERT_EQ(boxes_.shown().size(), 1u);
  EXPECT_EQ(boxes_.shown()[0].text,
            L"You have entered and invalid folder name. Please correct.\nIf you want to create a "
            L"new folder, select its parent folder in the list and click \"Make New Foilder\" "
            L"button.");
  EXPECT_EQ(boxes_.shown()[0].style, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
  ::DestroyWindow(browser);
}

}  // namespace
