// Ready page, and after the install the finished page: the frame acts on its
// controls; the page itself adds nothing.
#pragma once
#include "ui/dialog.h"

class CStartDlg : public CDialog {
 public:
  explicit CStartDlg(HWND parent = nullptr);
};
