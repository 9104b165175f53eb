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
