#include "ui/dialog.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "res/resource.h"

namespace {

// The frame template shown modally: after init the Back button's text is
// changed and one command is posted; a click ends the dialog with 42.
class ScriptedDialog : public CDialog {
 public:
  explicit ScriptedDialog(int command) : CDialog(IDD_SETUP), command_(command) {}
  std::wstring backText = L"Pushed";
  int clicked = 0, initCount = 0;
  HWND windowDuringInit = nullptr;

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
    clicked = id;
    EndDialog(42);
    return true;
  }

 private:
  int command_;
};

// Modal: OnInitDialog runs once with the window, which is gone after; a click
// reaches OnClicked by id and ends with its EndDialog value; IDOK saves the
// controls into the members, IDCANCEL does not; a missing template fails.
TEST(DialogTest, ModalEndsAndExchangesOnOkOnly) {
  struct Case { int command; INT_PTR result; const wchar_t* backText; int clicked; };
  const Case cases[] = {{IDC_BACK, 42, L"Pushed", IDC_BACK}, {IDOK, IDOK, L"Changed", 0},
                        {IDCANCEL, IDCANCEL, L"Pushed", 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.command);
    ScriptedDialog dialog(c.command);
    EXPECT_EQ(dialog.DoModal(), c.result);
    EXPECT_EQ(dialog.backText, c.backText);
    EXPECT_EQ(dialog.clicked, c.clicked);
    EXPECT_EQ(dialog.initCount, 1);
    EXPECT_NE(dialog.windowDuringInit, nullptr);
    EXPECT_FALSE(::IsWindow(dialog.windowDuringInit));
    EXPECT_EQ(dialog.GetSafeHwnd(), nullptr);
  }
  CDialog missing(9999);
  EXPECT_EQ(missing.DoModal(), -1);
  EXPECT_FALSE(missing.Create(9999, nullptr));
}

// A page of the group template that can refuse to close and throw from a click.
class GroupPage : public CDialog {
 public:
  CControl missing;
  int missingId = 0;  // a control id to bind that the template lacks
  bool refuseToClose = false, throwOnClick = false;
  std::vector<int> clicks;
  BOOL DestroyWindow() override { return refuseToClose ? 0 : CDialog::DestroyWindow(); }

 protected:
  void DoDataExchange(CDataExchange& dx) override {
    if (missingId) DDX_Control(dx, missingId, missing);
  }
  bool OnClicked(int id) override {
    clicks.push_back(id);
    if (throwOnClick) throw std::runtime_error("handler failed");
    return true;
  }
};

// Modeless: clicks reach OnClicked by id, IDOK and IDCANCEL do not end a page,
// a handler's exception stays inside the dialog procedure, and a control id the
// template lacks fails the exchange; a page that refuses keeps its window, one
// that agrees loses it, and a page object that dies first takes its window along.
TEST(DialogTest, ModelessPage) {
  CDialog host;
  ASSERT_TRUE(host.Create(IDD_SETUP, nullptr));
  GroupPage page;
  ASSERT_TRUE(page.Create(IDD_GROUP, host.GetSafeHwnd()));
  HWND window = page.GetSafeHwnd();
  ::SendMessageW(page.GetDlgItem(IDC_AUTOSTART), BM_CLICK, 0, 0);
  ::SendMessageW(window, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
  ::SendMessageW(window, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
  page.throwOnClick = true;
  ::SendMessageW(page.GetDlgItem(IDC_DESKTOP_ICON), BM_CLICK, 0, 0);
  EXPECT_EQ(page.clicks, (std::vector<int>{IDC_AUTOSTART, IDC_DESKTOP_ICON}));
  EXPECT_TRUE(page.UpdateData(TRUE));
  page.missingId = 4242;
  EXPECT_FALSE(page.UpdateData(TRUE));

  page.refuseToClose = true;
  EXPECT_FALSE(page.DestroyWindow());
  EXPECT_TRUE(::IsWindow(window));
  page.refuseToClose = false;
  EXPECT_TRUE(page.DestroyWindow());
  EXPECT_FALSE(::IsWindow(window));
  EXPECT_EQ(page.GetSafeHwnd(), nullptr);
  {
    GroupPage shortLived;
    ASSERT_TRUE(shortLived.Create(IDD_GROUP, host.GetSafeHwnd()));
    window = shortLived.GetSafeHwnd();
  }
  EXPECT_FALSE(::IsWindow(window));
  host.DestroyWindow();
}

}  // namespace
