#include <gtest/gtest.h>

#include "tests/support/test_support.h"
#include "ui/message_box.h"

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

// A box keeps the icon its style names; one that names none gets the
// exclamation mark. The person is asked and their answer returned.
TEST(AppMessageBox, IconAndAnswer) {
  qmtest::MessageBoxRecorder boxes;
  boxes.Answer(IDNO);
  boxes.Answer(IDOK);
  boxes.Answer(IDOK);
  EXPECT_EQ(AppMessageBox(L"close them?", MB_YESNO | MB_ICONQUESTION), IDNO);
  EXPECT_EQ(AppMessageBox(L"failed", MB_OK | MB_ICONERROR), IDOK);
  EXPECT_EQ(AppMessageBox(L"note", MB_OK), IDOK);
  ASSERT_EQ(boxes.shown().size(), 3u);
  EXPECT_EQ(boxes.shown()[0].text, L"close them?");
  EXPECT_EQ(boxes.shown()[0].style, static_cast<UINT>(MB_YESNO | MB_ICONQUESTION));
  EXPECT_EQ(boxes.shown()[1].style, static_cast<UINT>(MB_OK | MB_ICONERROR));
  EXPECT_EQ(boxes.shown()[2].style, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
}
