#include "ui/dialog.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "res/resource.h"

namespace {

std::wstring ItemText(HWND dialog, int id) {
  wchar_t buffer[256] = {};
  ::GetDlgItemTextW(dialog, id, buffer, 256);
  return buffer;
}

// The frame template shown modally: after init the Back button's text is
// changed and one command is posted; a click ends the dialog with 42.
class ScriptedDialog : public CDialog {
 public:
  explicit ScriptedDialog(int command) : CDialog(IDD_SETUP), command_(command) {}
  std::wstring backText = L"Pushed";
  std::vector<int> clicks;
  HWND windowDuringInit = nullptr;
  int initCount = 0;

 protected:
  void DoDataExchange(CDataExchange& dx) override { DDX_Text(dx, IDC_BACK, backText); }
  BOOL OnInitDialog() override {
    ++initCount;
    CDialog::OnInitDialog();
    windowDuringInit = GetSafeHwnd();
    ::SetDlgItemTextW(GetSafeHwnd(), IDC_BACK, L"Changed");
    ::PostMessageW(GetSafeHwnd(), WM_COMMAND, MAKEWPARAM(command_, BN_CLICKED), 0);
    return TRUE;
  }
  bool OnClicked(int id) override {
    clicks.push_back(id);
    EndDialog(42);
    return true;
  }

 private:
  int command_;
};

// Modal: OnInitDialog runs once with the window, which is gone after; a click
// reaches OnClicked by id and ends with its EndDialog value; IDOK saves the
// controls into the members, IDCANCEL does not.
TEST(DialogTest, ModalEndsAndExchangesOnOkOnly) {
  struct Case {
    int command;
    INT_PTR result;
    const wchar_t* backText;
    std::vector<int> clicks;
  };
  const Case cases[] = {{IDC_BACK, 42, L"Pushed", {IDC_BACK}},
                        {IDOK, IDOK, L"Changed", {}},
                        {IDCANCEL, IDCANCEL, L"Pushed", {}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.command);
    ScriptedDialog dialog(c.command);
    EXPECT_EQ(dialog.DoModal(), c.result);
    EXPECT_EQ(dialog.backText, c.backText);
    EXPECT_EQ(dialog.clicks, c.clicks);
    EXPECT_EQ(dialog.initCount, 1);
    EXPECT_NE(dialog.windowDuringInit, nullptr);
    EXPECT_FALSE(::IsWindow(dialog.windowDuringInit));
    EXPECT_EQ(dialog.GetSafeHwnd(), nullptr);
  }
  // A template that does not exist gives -1 modally and FALSE modelessly.
  CDialog missing(9999);
  EXPECT_EQ(missing.DoModal(), -1);
  EXPECT_FALSE(missing.Create(9999, nullptr));
  EXPECT_EQ(missing.GetSafeHwnd(), nullptr);
}

// A page of the group template with every kind of exchange.
class GroupPage : public CDialog {
 public:
  CControl name;
  std::wstring nameText;
  int autoStart = 0, desktopIcon = 0;
  int missingId = 0;  // a control id to bind that the template lacks
  bool refuseToClose = false, throwOnClick = false;
  std::vector<int> clicks;

  BOOL DestroyWindow() override { return refuseToClose ? 0 : CDialog::DestroyWindow(); }

 protected:
  void DoDataExchange(CDataExchange& dx) override {
    DDX_Control(dx, IDC_GROUP_NAME, name);
    DDX_Text(dx, IDC_GROUP_NAME, nameText);
    DDX_Check(dx, IDC_AUTOSTART, autoStart);
    DDX_Check(dx, IDC_DESKTOP_ICON, desktopIcon);
    CControl missing;
    if (missingId) DDX_Control(dx, missingId, missing);
  }
  bool OnClicked(int id) override {
    clicks.push_back(id);
    if (throwOnClick) throw std::runtime_error("handler failed");
    return true;
  }
};

class ModelessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.Create(IDD_SETUP, nullptr));
    ASSERT_TRUE(page_.Create(IDD_GROUP, host_.GetSafeHwnd()));
    window_ = page_.GetSafeHwnd();
  }
  void TearDown() override { host_.DestroyWindow(); }
  CDialog host_;
  GroupPage page_;
  HWND window_ = nullptr;
};

// Text and check states go into the controls and come back changed; the
// bound control wrapper reaches the same edit box; a control id the
// template lacks makes the exchange fail; an unbound wrapper is inert.
TEST_F(ModelessTest, DataExchangeRoundTrip) {
  EXPECT_EQ(::GetParent(window_), host_.GetSafeHwnd());
  page_.nameText = L"Group one";
  page_.autoStart = 1;
  ASSERT_TRUE(page_.UpdateData(FALSE));
  EXPECT_EQ(ItemText(window_, IDC_GROUP_NAME), L"Group one");
  EXPECT_EQ(::IsDlgButtonChecked(window_, IDC_AUTOSTART), BST_CHECKED);
  EXPECT_EQ(::IsDlgButtonChecked(window_, IDC_DESKTOP_ICON), BST_UNCHECKED);
  EXPECT_EQ(page_.name.GetText(), L"Group one");

  page_.name.SetText(L"Group two");
  ::CheckDlgButton(window_, IDC_AUTOSTART, BST_UNCHECKED);
  ::CheckDlgButton(window_, IDC_DESKTOP_ICON, BST_CHECKED);
  ASSERT_TRUE(page_.UpdateData(TRUE));
  EXPECT_EQ(page_.nameText, L"Group two");
  EXPECT_EQ(page_.autoStart, 0);
  EXPECT_EQ(page_.desktopIcon, 1);

  page_.missingId = 4242;
  EXPECT_FALSE(page_.UpdateData(TRUE));
  // A wrapper bound to nothing does nothing.
  CControl unbound;
  unbound.SetText(L"x");
  unbound.SetCheck(BST_CHECKED);
  EXPECT_EQ(unbound.GetText(), L"");
  EXPECT_EQ(unbound.GetCheck(), 0);
}

// The radio group index: one button checked per index, -1 for none, and the
// user's choice read back.
TEST_F(ModelessTest, RadioGroupIndex) {
  struct RadioPage : CDialog {
    int index = 2;
    void DoDataExchange(CDataExchange& dx) override { DDX_Radio(dx, IDC_TYPE_USER, index); }
  } page;
  ASSERT_TRUE(page.Create(IDD_FOLDER, host_.GetSafeHwnd()));
  HWND window = page.GetSafeHwnd();
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
  page_.refuseToClose = true;
  EXPECT_FALSE(page_.DestroyWindow());
  EXPECT_TRUE(::IsWindow(window_));
  page_.refuseToClose = false;
  EXPECT_TRUE(page_.DestroyWindow());
  EXPECT_FALSE(::IsWindow(window_));
  EXPECT_EQ(page_.GetSafeHwnd(), nullptr);

  HWND orphan = nullptr;
  {
    GroupPage shortLived;
    ASSERT_TRUE(shortLived.Create(IDD_GROUP, host_.GetSafeHwnd()));
    orphan = shortLived.GetSafeHwnd();
  }
  EXPECT_FALSE(::IsWindow(orphan));
}

// Button clicks reach OnClicked by id; IDOK and IDCANCEL do not end a page;
// an exception thrown by a handler stays inside the dialog procedure.
TEST_F(ModelessTest, ClicksAndExceptions) {
  ::SendMessageW(::GetDlgItem(window_, IDC_AUTOSTART), BM_CLICK, 0, 0);
  EXPECT_EQ(page_.clicks, std::vector<int>{IDC_AUTOSTART});
  ::SendMessageW(window_, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
  ::SendMessageW(window_, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
  EXPECT_TRUE(::IsWindow(window_));

  page_.throwOnClick = true;
  ::SendMessageW(::GetDlgItem(window_, IDC_DESKTOP_ICON), BM_CLICK, 0, 0);
  EXPECT_EQ(page_.clicks.size(), 2u);
  EXPECT_TRUE(::IsWindow(window_));
}

}  // namespace
