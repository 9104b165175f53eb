// The wizard frame: picture, etched line, Back/Next/Cancel, and one page at a
// time (a modeless child dialog) that it creates, validates and replaces.
#pragma once
#include <windows.h>
#include <memory>
#include <string>
#include <type_traits>

#include "ui/dialog.h"
#include "wizard/wizard.h"

// What the installing step calls; RunInstall unless a test puts its own here.
using InstallRunner = int (*)();
extern InstallRunner pInstallRun;

class CSetupDlg : public CDialog {
 public:
  explicit CSetupDlg(HWND parent = nullptr);
  ~CSetupDlg() override;

  // Set before DoModal to start elsewhere: the frame opens the page after
  // index (WizardPage::kReady: the finished page).
  void SetPageIndex(WizardPage index) { pageIndex_ = index; }
  WizardPage PageIndex() const { return pageIndex_; }
  // The page on screen; null between pages.
  CDialog* CurrentPage() const { return page_.get(); }

 protected:
  void DoDataExchange(CDataExchange& dx) override;
  BOOL OnInitDialog() override;
  void OnOK() override;
  void OnCancel() override;
  bool OnClicked(int id) override;

 private:
  void SetFrameIcon();
  void FitPicture();
  void NextPage();
  void PreviousPage();
  // Creates the page for the current index; false leaves the frame without one.
  bool CreatePage();
  void EnterAgreement();
  void RunInstallStep();
  void FinishWizard();
  void PlacePage();
  void CommonTail();

  CControl cancel_;
  CControl picture_;
  CControl back_;
  CControl next_;
  WizardPage pageIndex_ = WizardPage::kNone;
  std::unique_ptr<CDialog> page_;
  std::wstring savedCaption_;

  struct BitmapDeleter {
    void operator()(HBITMAP bitmap) const { ::DeleteObject(bitmap); }
  };
  // The wizard picture scaled once to the picture control's size.
  std::unique_ptr<std::remove_pointer_t<HBITMAP>, BitmapDeleter> fittedPicture_;
};
