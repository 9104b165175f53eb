// Program group page: the Start-menu group name and the auto-start and
// desktop-icon options.
#pragma once
#include <string>

#include "ui/dialog.h"

class CGroupDlg : public CDialog {
 public:
  explicit CGroupDlg(HWND parent = nullptr);

  // Refuses (after string 23 or 24) a name shorter than 3 characters or one
  // that names a start-up folder; otherwise stores the choices and destroys
  // the page.
  BOOL DestroyWindow() override;

 protected:
  void DoDataExchange(CDataExchange& dx) override;
  BOOL OnInitDialog() override;

 private:
  CControl nameBox_;
  int autoStart_ = 0;
  int desktopIcon_ = 0;
  std::wstring groupName_;
};
