// Install type and destination page: three install types, the folder browser
// and the rules for the chosen folder.
#pragma once
#include <windows.h>
#include <string>

#include "product/settings.h"
#include "ui/dialog.h"

class CFolderDlg : public CDialog {
 public:
  explicit CFolderDlg(HWND parent = nullptr);

  // Refuses to leave (after string 27) while no folder is shown; otherwise
  // stores the install type and destroys the page.
  BOOL DestroyWindow() override;
  // What Browse does with the folder the user picked: refuses a folder of an
  // older generation (string 14), else appends the product name where the folder
  // is not fit as it stands and makes the result installDir.
  void ApplyChosenFolder(std::wstring path);

 protected:
  void DoDataExchange(CDataExchange& dx) override;
  BOOL OnInitDialog() override;
  bool OnClicked(int id) override;

 private:
  void Refresh();
  void Browse();
  // The type of the checked radio button: they stand in the order of the types.
  InstallType SelectedType() const { return static_cast<InstallType>(typeIndex_); }

  std::wstring savedHint_;
  CControl destination_;
  int typeIndex_ = -1;
};

// The folder browser's callback: preselects installDir when it opens; string 13
// and 1 (stay open) for a typed name that is not a folder; 0 otherwise.
int CALLBACK BrowseFolderCallback(HWND browser, UINT message, LPARAM param, LPARAM data);
