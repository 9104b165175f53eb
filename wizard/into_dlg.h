// Welcome page: product name, the version being installed, copyright.
#pragma once
#include "ui/dialog.h"

class CIntoDlg : public CDialog {
 public:
  explicit CIntoDlg(HWND parent = nullptr);

 protected:
  void DoDataExchange(CDataExchange& dx) override;
  BOOL OnInitDialog() override;

 private:
  CControl versionText_;
};
