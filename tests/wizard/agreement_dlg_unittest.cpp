#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/support/test_support.h"
#include "tests/wizard/wizard_driver.h"
#include "tests/wizard/wizard_test_fixture.h"

namespace {

using wiztest::Driver;
using wiztest::RunDriven;

using AgreementPageTest = wiztest::WizardTest;

// The agreement box of the page that shows after the welcome page.
struct AgreementView {
  std::wstring text;
  LONG_PTR style = 0;
  DWORD selectionStart = 1, selectionEnd = 0;
  std::wstring pageAfterYes;
};

AgreementView ShowAgreement() {
  AgreementView view;
  qmtest::MessageBoxRecorder boxes;
  boxes.Answer(IDYES);
  RunDriven(-1, &boxes, [&](Driver& d) {
    d.Click(IDOK);
    ASSERT_EQ(d.PageKind(), L"agreement");
    HWND box = d.PageItem(1000);
    wchar_t buffer[256] = {};
    int length = static_cast<int>(::SendMessageW(box, WM_GETTEXT, 256, reinterpret_cast<LPARAM>(buffer)));
    view.text.assign(buffer, length > 0 ? static_cast<size_t>(length) : 0);
    view.style = ::GetWindowLongPtrW(box, GWL_STYLE);
    ::SendMessageW(box, EM_GETSEL, reinterpret_cast<WPARAM>(&view.selectionStart),
                   reinterpret_cast<LPARAM>(&view.selectionEnd));
    d.Click(IDOK);
    view.pageAfterYes = d.PageKind();
    d.Click(IDCANCEL);
  });
  return view;
}

// Without "agreement.txt" the box is empty and read-only, and "Yes" proceeds.
TEST_F(AgreementPageTest, MissingFileGivesEmptyBox) {
  AgreementView view = ShowAgreement();
  EXPECT_EQ(view.text, L"");
  EXPECT_TRUE(view.style & ES_READONLY);
  EXPECT_TRUE(view.style & ES_MULTILINE);
  EXPECT_TRUE(view.style & WS_VSCROLL);
  EXPECT_EQ(view.pageAfterYes, L"folder");
}

// The file is raw UTF-16LE: the byte-order mark stays as the first character
// and an odd last byte is dropped; nothing is selected.
TEST_F(AgreementPageTest, OddLengthDropsLastByteAndKeepsMark) {
  ASSERT_TRUE(qmtest::WriteFileBytes(work_ / L"agreement.txt",
                                     std::string("\xFF\xFE" "A\0g\0r\0e\0e\0\x0A\x04" "Z", 15)));
  AgreementView view = ShowAgreement();
  EXPECT_EQ(view.text, std::wstring(L"\xFEFF" L"Agree\x040A"));
  EXPECT_EQ(view.selectionStart, view.selectionEnd);
  EXPECT_EQ(view.pageAfterYes, L"folder");
}

}  // namespace
