// Agreement page: the text of "agreement.txt" from the current directory,
// answered with the frame's Next and Cancel relabelled "Yes" and "No".
#pragma once
#include <string>

#include "ui/dialog.h"

class CAgreementDlg : public CDialog {
 public:
  explicit CAgreementDlg(HWND parent = nullptr);
  BOOL Create(UINT templateId, HWND parent) override;

 protected:
  void DoDataExchange(CDataExchange& dx) override;
  BOOL OnInitDialog() override;

 private:
  CControl textBox_;
  std::wstring text_;
};

// The file read as raw UTF-16LE: size/2 units, an odd last byte dropped, a
// byte-order mark kept. Empty when the file cannot be opened.
std::wstring ReadAgreementText(const wchar_t* path);
