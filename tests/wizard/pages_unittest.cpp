// The wizard's rules that the end-to-end walk (tests/e2e/setup_wizard.sh)
// does not try, on real windows of this thread: pages on their own inside a
// hidden frame, and the frame itself opened on its finished page.
#include <windows.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "product/settings.h"
#include "res/resource.h"
#include "sys/platform.h"
#include "tests/support/test_support.h"
#include "ui/dialog.h"
#include "wizard/folder_dlg.h"
#include "wizard/group_dlg.h"
#include "wizard/setup_dlg.h"

namespace {

constexpr wchar_t kSavedHint[] = L"To install into a different folder, click Browse, and select another one.";
constexpr wchar_t kIsStartup[] = L"Error: Can not install shortcuts into this group, please select a different name.";

std::wstring Text(HWND window) {
  wchar_t text[2048] = {};
  ::GetWindowTextW(window, text, 2048);
  return text;
}

// Fresh settings of a default all-users install in a temporary folder, the
// message boxes recorded, and a hidden frame for one page at a time.
class PageTest : public testing::Test {
 protected:
  void SetUp() override {
    installSettings = InstallSettings();
    installSettings.installMode = InstallMode::kInteractive;
    installSettings.installDir = dest_ / L"Quillmark 8";
    installSettings.groupName = L"Quillmark 8";
    installSettings.defaultDirUsed = 1;
    ASSERT_TRUE(frame_.Create(IDD_SETUP, nullptr));
  }
  template <typename Page>
  void Open(UINT templateId) {
    page_ = std::make_unique<Page>(frame_.GetSafeHwnd());
    ASSERT_TRUE(page_->Create(templateId, frame_.GetSafeHwnd()));
  }
  HWND Item(int id) const { return ::GetDlgItem(page_->GetSafeHwnd(), id); }
  void Click(int id) const { ::SendMessageW(Item(id), BM_CLICK, 0, 0); }
  bool Checked(int id) const { return ::SendMessageW(Item(id), BM_GETCHECK, 0, 0) == BST_CHECKED; }
  // The last box shown, an exclamation, was text, and it was the count-th.
  void ExpectBox(size_t count, const std::wstring& text) const {
    ASSERT_EQ(boxes_.shown().size(), count);
    EXPECT_EQ(boxes_.shown().back().text, text);
    EXPECT_EQ(boxes_.shown().back().style, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
  }

  qmtest::SettingsRestorer restorer_;
  qmtest::MessageBoxRecorder boxes_;
  qmtest::TempDir dest_{L"wizard dest"};
  CDialog frame_{IDD_SETUP};
  std::unique_ptr<CDialog> page_;
};

// A picked folder that is empty or holds this generation's program is used as
// it stands; with other content, or a drive root, it gets "\Quillmark 8"; one
// holding an older generation is refused with string 14.
TEST_F(PageTest, ChosenFolderRules) {
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
  Open<CFolderDlg>(IDD_FOLDER);
  size_t boxes = 0;
  for (const auto& c : cases) {
    qmtest::TempDir folder(L"picked");
    for (const wchar_t* file : c.files) ASSERT_TRUE(qmtest::WriteFileBytes(folder / file, "x"));
    const std::wstring picked = c.driveRoot ? L"C:\\" : folder.path();
    SCOPED_TRACE(qmtest::Narrow(picked + L" " + (c.files.empty() ? L"" : c.files[0])));
    const std::wstring expected = c.suffix ? picked + c.suffix : installSettings.installDir;
    static_cast<CFolderDlg&>(*page_).ApplyChosenFolder(picked);
    EXPECT_EQ(installSettings.installDir, expected);
    EXPECT_EQ(Text(Item(IDC_DEST_FOLDER)), expected);
    if (!c.suffix)
      ExpectBox(++boxes, L"Quillmark ver. 8 can not be installed into the same folder where the older version is. "
                         L"Please select a different folder.");
  }
  EXPECT_EQ(boxes_.shown().size(), boxes);
}

// The hint names an existing copy only when an installation was found at
// start and its folder holds the program. A folder browsed for the portable
// type gets "Quillmark 8" and stays shown across type changes.
TEST_F(PageTest, FolderHintsAndPortableFolder) {
  ASSERT_TRUE(qmtest::WriteFileBytes(installSettings.installDir + L"\\Qmkview8.exe", "x"));
  Open<CFolderDlg>(IDD_FOLDER);
  EXPECT_EQ(Text(Item(IDC_FOLDER_HINT)), kSavedHint);
  installSettings.defaultDirUsed = 0;
  Open<CFolderDlg>(IDD_FOLDER);
  EXPECT_EQ(Text(Item(IDC_FOLDER_HINT)), L"This folder already contains a previous copy of Quillmark 8. To upgrade or "
                                         L"re-install that copy, please do not change the destination folder.");
  Click(IDC_TYPE_PORTABLE);
  qmtest::TempDir stick(L"stick");
  static_cast<CFolderDlg&>(*page_).ApplyChosenFolder(stick.path());
  const std::wstring chosen = stick.path() + L"\\Quillmark 8";
  EXPECT_EQ(installSettings.installDir, chosen);
  Click(IDC_TYPE_USER);
  EXPECT_EQ(Text(Item(IDC_DEST_FOLDER)) + L"|" + Text(Item(IDC_FOLDER_HINT)), chosen + L"|" + kSavedHint);
  Click(IDC_TYPE_PORTABLE);
  EXPECT_EQ(Text(Item(IDC_DEST_FOLDER)), chosen);
  EXPECT_TRUE(page_->DestroyWindow());
  EXPECT_EQ(installSettings.Type(), InstallType::kPortable);
  EXPECT_TRUE(boxes_.shown().empty());
}

std::wstring UpperFolderName(int csidl) {
  std::wstring path = ShellFolderPath(csidl), name = path.substr(path.rfind(L'\\') + 1);
  ::CharUpperBuffW(name.data(), static_cast<DWORD>(name.size()));
  return name;
}

// The group page starts from the settings; it refuses two letters within
// blanks (string 23) and either start-up folder's name in any case (string
// 24), and takes a nested group ending in that name, or three letters stored
// without their blanks, with the boxes as left.
TEST_F(PageTest, GroupNameRules) {
  const struct { std::wstring name; const wchar_t *message, *stored; } cases[] = {
      {L"  ab  ", L"Error: Please enter a valid group name, minimum 3 letters", nullptr},
      {UpperFolderName(CSIDL_STARTUP), kIsStartup, nullptr},
      {UpperFolderName(CSIDL_COMMON_STARTUP), kIsStartup, nullptr},
      {L"Tools\\" + UpperFolderName(CSIDL_STARTUP), nullptr, nullptr},
      {L" \tabc  ", nullptr, L"abc"}};
  installSettings.groupName = L"My Tools";
  size_t boxes = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(qmtest::Narrow(c.name));
    Open<CGroupDlg>(IDD_GROUP);
    EXPECT_EQ(Text(Item(IDC_GROUP_NAME)), L"My Tools");
    EXPECT_FALSE(Checked(IDC_AUTOSTART));
    EXPECT_TRUE(Checked(IDC_DESKTOP_ICON));
    Click(IDC_AUTOSTART);
    Click(IDC_DESKTOP_ICON);
    ::SetWindowTextW(Item(IDC_GROUP_NAME), c.name.c_str());
    EXPECT_EQ(page_->DestroyWindow() != FALSE, c.message == nullptr);
    if (c.message) {
      ExpectBox(++boxes, c.message);
      EXPECT_EQ(installSettings.groupName, L"My Tools");
      continue;
    }
    EXPECT_EQ(installSettings.groupName, c.stored ? c.stored : c.name);
    EXPECT_EQ(installSettings.autoStart, 1);
    EXPECT_EQ(installSettings.desktopIcon, 0);
    installSettings.groupName = L"My Tools";
    installSettings.autoStart = 0;
    installSettings.desktopIcon = 1;
  }
  EXPECT_EQ(boxes_.shown().size(), boxes);
}

// The frame opened on the finished page, as after "-sconf": with a restart
// pending its box offers the restart, checked, with the restart hint; Finish
// stores the box in runAfter, also a box unticked, or hidden for a portable
// install; Cancel is greyed and the close box asks nothing.
TEST_F(PageTest, FinishedPageOffersTheRestart) {
  const struct { InstallType type; bool untick; int runAfter; } cases[] = {
      {InstallType::kAllUsers, false, 1}, {InstallType::kAllUsers, true, 0}, {InstallType::kPortable, false, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(c.type) << c.untick);
    installSettings.installMode = InstallMode::kSilentThenFinishPage;
    installSettings.SetType(c.type);
    installSettings.restartNeeded = 1;
    CSetupDlg frame;
    frame.SetPageIndex(WizardPage::kReady);
    ASSERT_TRUE(frame.Create(IDD_SETUP, nullptr));
    auto item = [&](int id) {
      HWND own = ::GetDlgItem(frame.GetSafeHwnd(), id);
      return own ? own : frame.CurrentPage()->GetDlgItem(id);
    };
    EXPECT_EQ(Text(item(IDOK)), L"&Finish >");
    EXPECT_FALSE(::IsWindowEnabled(item(IDCANCEL)));
    EXPECT_EQ(Text(item(IDC_RUN_AFTER)), L"Restart the computer when I click \"Finish\"");
    EXPECT_EQ((::GetWindowLongW(item(IDC_RUN_AFTER), GWL_STYLE) & WS_VISIBLE) != 0, c.type != InstallType::kPortable);  // frame hidden
    EXPECT_EQ(::SendMessageW(item(IDC_RUN_AFTER), BM_GETCHECK, 0, 0), BST_CHECKED);
    EXPECT_EQ(Text(item(IDC_READY_HINT)), L"It is necessary to restart your computer before using the product, "
                                          L"otherwise it may not work correctly.");
    ::SendMessageW(frame.GetSafeHwnd(), WM_CLOSE, 0, 0);
    if (c.untick) ::SendMessageW(item(IDC_RUN_AFTER), BM_CLICK, 0, 0);
    ::SendMessageW(frame.GetSafeHwnd(), WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
    EXPECT_EQ(installSettings.runAfter, c.runAfter);
  }
  EXPECT_TRUE(boxes_.shown().empty());
}

}  // namespace
