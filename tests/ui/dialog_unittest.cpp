#include "ui/dialog.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "res/resource.h"

namespace {

constexpr int kBack = IDC_BACK;

std::wstring ItemText(HWND dialog, int id) {
  wchar_t buffer[256] = {};
  ::GetDlgItemTextW(dialog, id, buffer, 256);
  return buffer;
}

// The frame template shown modally; what happens inside is scripted by the test.
class ScriptedDialog : public CDialog {
 public:
  ScriptedDialog() : CDialog(IDD_SETUP) {}
  std::wstring backText = L"Pushed";
  std::vector<int> clicks;
  HWND windowDuringInit = nullptr;
  int initCount = 0;
  std::wstring changeTo;        // written into the Back button after init
  int commandAfterInit = 0;     // posted to the dialog after init
  INT_PTR endOnClick = 0;       // EndDialog value when a click arrives

 protected:
  void DoDataExchange(CDataExchange& dx) override { DDX_Text(dx, kBack, backText); }
  BOOL OnInitDialog() override {
    ++initCount;
    CDialog::OnInitDialog();
    windowDuringInit = GetSafeHwnd();
    if (!changeTo.empty()) ::SetDlgItemTextW(GetSafeHwnd(), kBack, changeTo.c_str());
    ::PostMessageW(GetSafeHwnd(), WM_COMMAND, MAKEWPARAM(commandAfterInit, BN_CLICKED), 0);
    return TRUE;
  }
  bool OnClicked(int id) override {
    clicks.push_back(id);
    if (endOnClick) EndDialog(endOnClick);
    return true;
  }
};

// A modal dialog runs OnInitDialog once with its window, dispatches a click by
// id, and returns the value given to EndDialog; the window is gone after.
TEST(DialogTest, ModalReturnsEndDialogValue) {
  ScriptedDialog dialog;
  dialog.commandAfterInit = kBack;
  dialog.endOnClick = 42;
  EXPECT_EQ(dialog.DoModal(), 42);
  EXPECT_EQ(dialog.initCount, 1);
  EXPECT_NE(dialog.windowDuringInit, nullptr);
  EXPECT_FALSE(::IsWindow(dialog.windowDuringInit));
  EXPECT_EQ(dialog.GetSafeHwnd(), nullptr);
  EXPECT_EQ(dialog.clicks, std::vector<int>{kBack});
}

// IDOK saves the controls into the members and ends with IDOK; IDCANCEL ends
// with IDCANCEL and leaves the members alone.
TEST(DialogTest, OkSavesAndCancelDoesNot) {
  ScriptedDialog ok;
  ok.changeTo = L"Changed";
  ok.commandAfterInit = IDOK;
  EXPECT_EQ(ok.DoModal(), IDOK);
  EXPECT_EQ(ok.backText, L"Changed");

  ScriptedDialog cancel;
  cancel.changeTo = L"Changed";
  cancel.commandAfterInit = IDCANCEL;
  EXPECT_EQ(cancel.DoModal(), IDCANCEL);
  EXPECT_EQ(cancel.backText, L"Pushed");
}

// A template that does not exist gives -1 modally and FALSE modelessly.
TEST(DialogTest, MissingTemplateFails) {
  CDialog modal(9999);
  EXPECT_EQ(modal.DoModal(), -1);
  CDialog modeless;
  EXPECT_FALSE(modeless.Create(9999, nullptr));
  EXPECT_EQ(modeless.GetSafeHwnd(), nullptr);
}

// A page of the group template with every kind of exchange.
class GroupPage : public CDialog {
 public:
  CControl name;
  std::wstring nameText;
  int autoStart = 0;
  int desktopIcon = 0;
  int missingId = 0;  // a control id to bind that the template lacks
  bool refuseToClose = false;
  bool throwOnClick = false;
  std::vector<int> clicks;

  BOOL DestroyWindow() override { return refuseToClose ? 0 : CDialog::DestroyWindow(); }

 protected:
  void DoDataExchange(CDataExchange& dx) override {
    DDX_Control(dx, IDC_GROUP_NAME, name);
    DDX_Text(dx, IDC_GROUP_NAME, nameText);
    DDX_Check(dx, IDC_AUTOSTART, autoStart);
    DDX_Check(dx, IDC_DESKTOP_ICON, desktopIcon);
    if (missingId) {
      CControl missing;
      DDX_Control(dx, missingId, missing);
    }
  }
  bool OnClicked(int id) override {
    clicks.push_back(id);
    if (throwOnClick) throw std::runtime_error("handler failed");
    return true;
  }
};

class ModelessTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host_.Create(IDD_SETUP, nullptr)); }
  void TearDown() override { host_.DestroyWindow(); }
  HWND host() const { return host_.GetSafeHwnd(); }
  CDialog host_;
};

// Text and check states go into the controls and come back changed; the
// bound control wrapper reaches the same edit box.
TEST_F(ModelessTest, DataExchangeRoundTrip) {
  GroupPage page;
  ASSERT_TRUE(page.Create(IDD_GROUP, host()));
  HWND window = page.GetSafeHwnd();
  EXPECT_EQ(::GetParent(window), host());
  page.nameText = L"Group one";
  page.autoStart = 1;
  page.desktopIcon = 0;
  ASSERT_TRUE(page.UpdateData(FALSE));
  EXPECT_EQ(ItemText(window, IDC_GROUP_NAME), L"Group one");
  EXPECT_EQ(::IsDlgButtonChecked(window, IDC_AUTOSTART), BST_CHECKED);
  EXPECT_EQ(::IsDlgButtonChecked(window, IDC_DESKTOP_ICON), BST_UNCHECKED);
  EXPECT_EQ(page.name.GetText(), L"Group one");

  page.name.SetText(L"Group two");
  ::CheckDlgButton(window, IDC_AUTOSTART, BST_UNCHECKED);
  ::CheckDlgButton(window, IDC_DESKTOP_ICON, BST_CHECKED);
  ASSERT_TRUE(page.UpdateData(TRUE));
  EXPECT_EQ(page.nameText, L"Group two");
  EXPECT_EQ(page.autoStart, 0);
  EXPECT_EQ(page.desktopIcon, 1);
}

// A control id the template lacks makes UpdateData fail.
TEST_F(ModelessTest, MissingControlFailsExchange) {
  GroupPage page;
  page.missingId = 4242;
  ASSERT_TRUE(page.Create(IDD_GROUP, host()));
  EXPECT_FALSE(page.UpdateData(TRUE));
  page.missingId = 0;
  EXPECT_TRUE(page.UpdateData(TRUE));
}

// The radio group index: one button checked per index, -1 for none, and the
// user's choice read back.
TEST_F(ModelessTest, RadioGroupIndex) {
  struct RadioPage : CDialog {
    int index = -1;
    void DoDataExchange(CDataExchange& dx) override { DDX_Radio(dx, IDC_TYPE_USER, index); }
  } page;
  ASSERT_TRUE(page.Create(IDD_FOLDER, host()));
  HWND window = page.GetSafeHwnd();
  page.index = 2;
  page.UpdateData(FALSE);
  EXPECT_EQ(::IsDlgButtonChecked(window, IDC_TYPE_USER), BST_UNCHECKED);
  EXPECT_EQ(::IsDlgButtonChecked(window, IDC_TYPE_ALL), BST_UNCHECKED);
  EXPECT_EQ(::IsDlgButtonChecked(window, IDC_TYPE_PORTABLE), BST_CHECKED);

  page.index = -1;
  page.UpdateData(FALSE);
  page.index = 7;
  page.UpdateData(TRUE);
  EXPECT_EQ(page.index, -1);

  ::SendMessageW(::GetDlgItem(window, IDC_TYPE_ALL), BM_CLICK, 0, 0);
  page.UpdateData(TRUE);
  EXPECT_EQ(page.index, 1);
}

// A page that refuses keeps its window; once it agrees the window goes, and a
// page object that dies first takes its window with it.
TEST_F(ModelessTest, DestroyWindowRefusal) {
  GroupPage page;
  ASSERT_TRUE(page.Create(IDD_GROUP, host()));
  HWND window = page.GetSafeHwnd();
  page.refuseToClose = true;
  EXPECT_FALSE(page.DestroyWindow());
  EXPECT_TRUE(::IsWindow(window));
  page.refuseToClose = false;
  EXPECT_TRUE(page.DestroyWindow());
  EXPECT_FALSE(::IsWindow(window));
  EXPECT_EQ(page.GetSafeHwnd(), nullptr);

  HWND orphan = nullptr;
  {
    GroupPage shortLived;
    ASSERT_TRUE(shortLived.Create(IDD_GROUP, host()));
    orphan = shortLived.GetSafeHwnd();
  }
  EXPECT_FALSE(::IsWindow(orphan));
}

// Button clicks reach OnClicked by id; IDOK and IDCANCEL do not end a page;
// an exception thrown by a handler stays inside the dialog procedure.
TEST_F(ModelessTest, ClicksAndExceptions) {
  GroupPage page;
  ASSERT_TRUE(page.Create(IDD_GROUP, host()));
  HWND window = page.GetSafeHwnd();
  ::SendMessageW(::GetDlgItem(window, IDC_AUTOSTART), BM_CLICK, 0, 0);
  EXPECT_EQ(page.clicks, std::vector<int>{IDC_AUTOSTART});

  ::SendMessageW(window, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
  ::SendMessageW(window, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
  EXPECT_TRUE(::IsWindow(window));

  page.throwOnClick = true;
  ::SendMessageW(::GetDlgItem(window, IDC_DESKTOP_ICON), BM_CLICK, 0, 0);
  EXPECT_EQ(page.clicks.size(), 2u);
  EXPECT_TRUE(::IsWindow(window));
}

// The control wrapper: visibility, enabling, text and check state; unbound it
// does nothing.
TEST_F(ModelessTest, ControlWrapper) {
  CControl back(::GetDlgItem(host(), IDC_BACK));
  back.Show(false);
  EXPECT_FALSE(::GetWindowLongW(back.GetSafeHwnd(), GWL_STYLE) & WS_VISIBLE);
  back.Show(true);
  EXPECT_TRUE(::GetWindowLongW(back.GetSafeHwnd(), GWL_STYLE) & WS_VISIBLE);
  back.Enable(false);
  EXPECT_FALSE(back.IsEnabled());
  back.Enable(true);
  EXPECT_TRUE(back.IsEnabled());
  back.SetText(L"Earlier");
  EXPECT_EQ(ItemText(host(), IDC_BACK), L"Earlier");

  CControl unbound;
  unbound.SetText(L"x");
  unbound.SetCheck(BST_CHECKED);
  EXPECT_EQ(unbound.GetText(), L"");
  EXPECT_EQ(unbound.GetCheck(), 0);
  EXPECT_FALSE(unbound.IsVisible());
}

}  // namespace
