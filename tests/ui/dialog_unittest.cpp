#include "ui/dialog.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "res/resource.h"

namespace {

// The frame template with the Back button's text bound. After init the text is
// changed and an optional command posted; a click is recorded, ends a modal
// dialog with 42; the dialog can refuse to close and bind an id
// the template lacks.
class TestDialog : public CDialog {
 public:
  explicit TestDialog(int command = 0) : CDialog(IDD_SETUP), command_(command) {}
  std::wstring backText = L"Pushed";
  std::vector<int> clicks;
  int initCount = 0, missingId = 0;
  HWND windowDuringInit = nullptr;
  bool refuseToClose = false;
  BOOL DestroyWindow() override { return refuseToClose ? 0 : CDialog::DestroyWindow(); }

 protected:
  void DoDataExchange(CDataExchange& dx) override {
    DDX_Text(dx, IDC_BACK, backText);
    CControl missing;
    if (missingId) DDX_Control(dx, missingId, missing);
  }
  BOOL OnInitDialog() override {
    ++initCount;
    CDialog::OnInitDialog();
    windowDuringInit = GetSafeHwnd();
    ::SetDlgItemTextW(GetSafeHwnd(), IDC_BACK, L"Changed");
    if (command_) ::PostMessageW(GetSafeHwnd(), WM_COMMAND, MAKEWPARAM(command_, BN_CLICKED), 0);
    return TRUE;
  }
  bool OnClicked(int id) override {
    clicks.push_back(id);
    if (IsModal()) EndDialog(42);
    return true;
  }

 private:
  int command_;
};

// Modal: OnInitDialog runs once with the window, which is gone after; a click
// reaches OnClicked by id and ends with its EndDialog value; IDOK saves the
// controls into the members, IDCANCEL does not; a missing template fails.
TEST(DialogTest, ModalEndsAndExchangesOnOkOnly) {
  struct Case { int command; INT_PTR result; const wchar_t* backText; std::vector<int> clicks; };
  const Case cases[] = {{IDC_BACK, 42, L"Pushed", {IDC_BACK}}, {IDOK, IDOK, L"Changed", {}},
                        {IDCANCEL, IDCANCEL, L"Pushed", {}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.command);
    TestDialog dialog(c.command);
    EXPECT_EQ(dialog.DoModal(), c.result);
    EXPECT_EQ(dialog.backText, c.backText);
    EXPECT_EQ(dialog.clicks, c.clicks);
    EXPECT_EQ(dialog.initCount, 1);
    EXPECT_NE(dialog.windowDuringInit, nullptr);
    EXPECT_FALSE(::IsWindow(dialog.windowDuringInit));
    EXPECT_EQ(dialog.GetSafeHwnd(), nullptr);
  }
  CDialog missing(9999);
  EXPECT_EQ(missing.DoModal(), -1);
  EXPECT_FALSE(missing.Create(9999, nullptr));
}

// Modeless: clicks reach OnClicked by id, IDOK and IDCANCEL do not end it, a
// control id the
// template lacks fails the exchange; a dialog that refuses to close keeps its
// window, one that agrees loses it, and an object that dies first takes its window along.
TEST(DialogTest, Modeless) {
  TestDialog page;
  ASSERT_TRUE(page.Create(IDD_SETUP, nullptr));
  HWND window = page.GetSafeHwnd();
  ::SendMessageW(page.GetDlgItem(IDC_BACK), BM_CLICK, 0, 0);
  ::SendMessageW(window, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
  ::SendMessageW(window, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
  ::SendMessageW(page.GetDlgItem(IDC_BACK), BM_CLICK, 0, 0);
  EXPECT_EQ(page.clicks, (std::vector<int>{IDC_BACK, IDC_BACK}));
  EXPECT_TRUE(::IsWindow(window));
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
    TestDialog shortLived;
    ASSERT_TRUE(shortLived.Create(IDD_SETUP, nullptr));
    window = shortLived.GetSafeHwnd();
  }
  EXPECT_FALSE(::IsWindow(window));
}

}  // namespace
