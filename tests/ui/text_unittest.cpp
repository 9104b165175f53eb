#include <gtest/gtest.h>

#include "res/resource.h"
#include "tests/support/test_support.h"
#include "ui/message_box.h"
#include "ui/strings.h"

// Strings load by number from our own module (an unknown number gives an empty
// text); %s takes a wide string as the table's formats expect, alongside %d and
// %02d, and a result longer than the first buffer is not cut.
TEST(Strings, LoadAndFormat) {
  EXPECT_EQ(LoadStr(IDS_CAPTION), L"Quillmark Setup");
  EXPECT_EQ(LoadStr(9999), L"");
  EXPECT_EQ(FormatStr(L"%s ver. %d.%02d.%02d %s", L"Quillmark", 8, 5, 3, L"Beta 7"),
            L"Quillmark ver. 8.05.03 Beta 7");
  EXPECT_EQ(FormatStr(LoadStr(IDS_PORTABLE_RUN_HINT).c_str(), L"E:\\Apps"),
            L"To run portable Quillmark, double-click 'StartQM8' icon located at:\nE:\\Apps");
  const std::wstring longText(3000, L'x');
  EXPECT_EQ(FormatStr(L"[%s]", longText.c_str()), L"[" + longText + L"]");
}

// The entry answers through the responder; a style without an icon gets the exclamation mark.
TEST(AppMessageBox, ResponderSeesTextAndFrameworkIcon) {
  qmtest::MessageBoxRecorder boxes;
  boxes.Answer(IDNO);
  EXPECT_EQ(AppMessageBox(IDS_CONFIRM_CANCEL, MB_YESNO | MB_ICONQUESTION), IDNO);
  EXPECT_EQ(AppMessageBox(L"plain", MB_OK), IDOK);
  ASSERT_EQ(boxes.shown().size(), 2u);
  EXPECT_EQ(boxes.shown()[0].text, L"Do you really want to cancel Quillmark setup?");
  EXPECT_EQ(boxes.shown()[0].style, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION));
  EXPECT_EQ(boxes.shown()[1].style, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
}

// Suppressed boxes show nothing, ask no one and take the style's default
// button: the uninstall confirmation (default No) declines, the close question
// goes on, a plain message is OK.
TEST(AppMessageBox, SuppressedTakesTheDefaultButton) {
  qmtest::MessageBoxRecorder boxes;
  SuppressMessageBoxes(true);
  struct Case { UINT style; int answer; } cases[] = {
      {MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2, IDNO}, {MB_YESNO | MB_ICONWARNING, IDYES},
      {MB_OK | MB_ICONERROR, IDOK}, {MB_OKCANCEL | MB_DEFBUTTON2, IDCANCEL},
      {MB_YESNOCANCEL | MB_DEFBUTTON3, IDCANCEL}, {MB_RETRYCANCEL, IDRETRY}};
  for (const Case& c : cases) EXPECT_EQ(AppMessageBox(L"question", c.style), c.answer) << c.style;
  SuppressMessageBoxes(false);
  EXPECT_TRUE(boxes.shown().empty());
}
