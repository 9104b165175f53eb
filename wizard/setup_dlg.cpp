#include "wizard/setup_dlg.h"

#include <new>
#include <utility>

#include "install/install_run.h"
#include "product/product.h"
#include "product/settings.h"
#include "res/resource.h"
#include "ui/app.h"
#include "ui/message_box.h"
#include "ui/strings.h"
#include "wizard/agreement_dlg.h"
#include "wizard/folder_dlg.h"
#include "wizard/group_dlg.h"
#include "wizard/into_dlg.h"
#include "wizard/start_dlg.h"

InstallRunner pInstallRun = &RunInstall;

namespace {

// The template texts of Next and Cancel, kept so that the agreement page's
// "Yes"/"No" can be undone on every other page.
std::wstring nextButtonText;
std::wstring cancelButtonText;

// The page steps away from page.
WizardPage Advanced(WizardPage page, int steps) {
  return static_cast<WizardPage>(static_cast<int>(page) + steps);
}

// Replaces every occurrence of what in text by with.
std::wstring ReplaceAll(std::wstring text, const std::wstring& what, const std::wstring& with) {
  if (what.empty()) return text;
  for (size_t at = text.find(what); at != std::wstring::npos; at = text.find(what, at + with.size()))
    text.replace(at, what.size(), with);
  return text;
}

// installDir's parent: one trailing backslash dropped, then cut at the last one.
std::wstring ParentOfInstallDir() {
  std::wstring folder = installSettings.installDir;
  if (!folder.empty() && folder.back() == L'\\') folder.pop_back();
  size_t slash = folder.rfind(L'\\');
  return slash == std::wstring::npos ? folder : folder.substr(0, slash);
}

template <typename Page>
std::unique_ptr<CDialog> NewPage(HWND frame) {
  return std::unique_ptr<CDialog>(new (std::nothrow) Page(frame));
}

}  // namespace

CSetupDlg::CSetupDlg(HWND parent) : CDialog(IDD_SETUP, parent) {}

CSetupDlg::~CSetupDlg() = default;

void CSetupDlg::DoDataExchange(CDataExchange& dx) {
  DDX_Control(dx, IDCANCEL, cancel_);
  DDX_Control(dx, IDC_PICTURE, picture_);
  DDX_Control(dx, IDC_BACK, back_);
  DDX_Control(dx, IDOK, next_);
}

BOOL CSetupDlg::OnInitDialog() {
  CDialog::OnInitDialog();
  if (CWinApp* app = CWinApp::Current()) app->SetMainWindow(GetSafeHwnd());
  SetFrameIcon();
  FitPicture();
  nextButtonText = next_.GetText();
  cancelButtonText = cancel_.GetText();
  SetWindowText(LoadStr(IDS_CAPTION));
  NextPage();
  return FALSE;  // the page procedure has set the focus
}

void CSetupDlg::SetFrameIcon() {
  // Shared icons belong to the system; nothing to free.
  for (auto [which, metric] : {std::pair{ICON_BIG, SM_CXICON}, std::pair{ICON_SMALL, SM_CXSMICON}}) {
    int size = ::GetSystemMetrics(metric);
    HANDLE icon = ::LoadImageW(ResourceModule(), MAKEINTRESOURCEW(IDI_SETUP), IMAGE_ICON, size, size,
                               LR_SHARED);
    if (icon) ::SendMessageW(GetSafeHwnd(), WM_SETICON, which, reinterpret_cast<LPARAM>(icon));
  }
}

void CSetupDlg::FitPicture() {
  // The control would stretch the bitmap itself, but coarsely; a smoothed copy
  // of exactly its size looks right at any DPI.
  RECT box = {};
  ::GetClientRect(picture_.GetSafeHwnd(), &box);
  int width = box.right - box.left, height = box.bottom - box.top;
  if (width <= 0 || height <= 0) return;
  HBITMAP source = static_cast<HBITMAP>(::LoadImageW(ResourceModule(), MAKEINTRESOURCEW(IDB_WIZARD),
                                                     IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION));
  if (!source) return;
  BITMAP info = {};
  ::GetObjectW(source, sizeof info, &info);
  HDC screen = ::GetDC(nullptr);
  HDC from = ::CreateCompatibleDC(screen);
  HDC to = ::CreateCompatibleDC(screen);
  HBITMAP fitted = ::CreateCompatibleBitmap(screen, width, height);
  if (from && to && fitted) {
    HGDIOBJ oldFrom = ::SelectObject(from, source);
    HGDIOBJ oldTo = ::SelectObject(to, fitted);
    ::SetStretchBltMode(to, HALFTONE);
    ::SetBrushOrgEx(to, 0, 0, nullptr);
    ::StretchBlt(to, 0, 0, width, height, from, 0, 0, info.bmWidth, info.bmHeight, SRCCOPY);
    ::SelectObject(from, oldFrom);
    ::SelectObject(to, oldTo);
  }
  if (to) ::DeleteDC(to);
  if (from) ::DeleteDC(from);
  ::ReleaseDC(nullptr, screen);
  ::DeleteObject(source);
  if (!fitted) return;
  fittedPicture_.reset(fitted);
  RECT frame = {};
  ::GetWindowRect(picture_.GetSafeHwnd(), &frame);
  // The control hands back the bitmap it loaded from the template; it is ours now.
  HBITMAP previous = reinterpret_cast<HBITMAP>(
      picture_.Send(STM_SETIMAGE, IMAGE_BITMAP, reinterpret_cast<LPARAM>(fitted)));
  if (previous && previous != fitted) ::DeleteObject(previous);
  // Some static controls size themselves to a new image; keep the template's size.
  ::SetWindowPos(picture_.GetSafeHwnd(), nullptr, 0, 0, frame.right - frame.left,
                 frame.bottom - frame.top, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

void CSetupDlg::OnOK() { NextPage(); }

void CSetupDlg::OnCancel() {
  // Once the install has run only Finish is left; Escape and the close box
  // must not pretend the setup was cancelled.
  if (!cancel_.IsEnabled()) return;
  if (AppMessageBox(IDS_CONFIRM_CANCEL, MB_YESNO | MB_ICONQUESTION | MB_DEFBUTTON2) == IDYES)
    EndDialog(IDCANCEL);
}

bool CSetupDlg::OnClicked(int id) {
  if (id != IDC_BACK) return false;
  PreviousPage();
  return true;
}

void CSetupDlg::PreviousPage() {
  // The index drops before the page is asked to close: a page that refuses
  // stays on screen with the index already lowered.
  pageIndex_ = Advanced(pageIndex_, -2);
  if (pageIndex_ == WizardPage::kFolder && installSettings.Type() == InstallType::kPortable)
    pageIndex_ = WizardPage::kAgreement;
  NextPage();
}

void CSetupDlg::NextPage() {
  if (page_ && pageIndex_ < WizardPage::kInstall) {
    if (!page_->DestroyWindow()) return;
    page_.reset();
  }
  pageIndex_ = Advanced(pageIndex_, 1);
  if (pageIndex_ == WizardPage::kGroup && installSettings.Type() == InstallType::kPortable)
    pageIndex_ = Advanced(pageIndex_, 1);
  if (savedCaption_.empty()) savedCaption_ = GetWindowText();
  if (pageIndex_ != WizardPage::kAgreement) {
    next_.SetText(nextButtonText);
    cancel_.SetText(cancelButtonText);
  }
  if (pageIndex_ == WizardPage::kEnd) {
    FinishWizard();
    return;
  }
  CreatePage();
  if (pageIndex_ == WizardPage::kAgreement) {
    EnterAgreement();
    return;
  }
  if (pageIndex_ == WizardPage::kWelcome) back_.Show(false);
  if (pageIndex_ == WizardPage::kInstall) RunInstallStep();
  CommonTail();
}

bool CSetupDlg::CreatePage() {
  HWND frame = GetSafeHwnd();
  UINT templateId = 0;
  switch (pageIndex_) {
    case WizardPage::kWelcome: page_ = NewPage<CIntoDlg>(frame); templateId = IDD_INTRO; break;
    case WizardPage::kAgreement: page_ = NewPage<CAgreementDlg>(frame); templateId = IDD_AGREEMENT; break;
    case WizardPage::kFolder: page_ = NewPage<CFolderDlg>(frame); templateId = IDD_FOLDER; break;
    case WizardPage::kGroup: page_ = NewPage<CGroupDlg>(frame); templateId = IDD_GROUP; break;
    case WizardPage::kReady:
    case WizardPage::kInstall: page_ = NewPage<CStartDlg>(frame); templateId = IDD_START; break;
    default: page_.reset(); break;
  }
  if (page_ && !page_->Create(templateId, frame)) page_.reset();
  return page_ != nullptr;
}

void CSetupDlg::EnterAgreement() {
  next_.SetText(LoadStr(IDS_YES));
  cancel_.SetText(LoadStr(IDS_NO));
  back_.Show(true);
  picture_.Show(false);
  SetWindowText(LoadStr(IDS_ACCEPT_CAPTION));
}

void CSetupDlg::RunInstallStep() {
  CDialog* page = page_.get();
  auto item = [page](int id) { return CControl(page ? page->GetDlgItem(id) : nullptr); };
  item(IDC_READY).Show(false);
  item(IDC_READY_HINT).Show(false);
  item(IDC_INSTALLING).Show(true);
  // The install blocks the message loop: put the page up and paint it now.
  PlacePage();
  if (page) ::UpdateWindow(page->GetSafeHwnd());

  back_.Enable(false);
  next_.Enable(false);
  cancel_.Enable(false);
  if (installSettings.installMode == InstallMode::kInteractive) {
    ::SetCursor(::LoadCursorW(nullptr, IDC_WAIT));
    if (pInstallRun) pInstallRun();
    ::SetCursor(::LoadCursorW(nullptr, IDC_ARROW));
  }
  next_.Enable(true);

  CControl runAfter = item(IDC_RUN_AFTER);
  if (installSettings.restartNeeded == 1) {
    runAfter.SetText(LoadStr(IDS_RESTART_ON_FINISH));
    runAfter.SetCheck(BST_CHECKED);
  }
  next_.SetText(LoadStr(IDS_FINISH));
  if (installSettings.Type() != InstallType::kPortable) {
    item(IDC_INSTALLING).Show(false);
    runAfter.Show(true);
  } else {
    item(IDC_INSTALLING).SetText(
        FormatStr(LoadStr(IDS_PORTABLE_RUN_HINT).c_str(), ParentOfInstallDir().c_str()));
  }
  const VersionQuad& version = installSettings.newVersion;
  std::wstring versioned = FormatStr((std::wstring(kProductName) + L".%02d.%02d").c_str(),
                                     static_cast<int>(version.minor), static_cast<int>(version.release));
  item(IDC_READY).SetText(ReplaceAll(LoadStr(IDS_INSTALLED_OK), kProductName, versioned));
  item(IDC_READY_HINT).SetText(LoadStr(installSettings.restartNeeded == 1 ? IDS_RESTART_NEEDED
                                                                          : IDS_PRESS_FINISH));
  item(IDC_READY).Show(true);
  item(IDC_READY_HINT).Show(true);
  next_.SetFocus();
}

void CSetupDlg::FinishWizard() {
  // The box is read even when hidden: a portable install that needs a restart
  // restarts at Finish.
  HWND box = page_ ? page_->GetDlgItem(IDC_RUN_AFTER) : nullptr;
  installSettings.runAfter = CControl(box).GetCheck() == BST_CHECKED ? 1 : 0;
  EndDialog(IDOK);
}

void CSetupDlg::PlacePage() {
  if (!page_ || !page_->GetSafeHwnd()) return;
  RECT picture = {};
  ::GetWindowRect(picture_.GetSafeHwnd(), &picture);
  ::MapWindowPoints(nullptr, GetSafeHwnd(), reinterpret_cast<POINT*>(&picture), 2);
  ::SetWindowPos(page_->GetSafeHwnd(), HWND_TOP, picture.right + 4, picture.top, 0, 0,
                 SWP_NOSIZE | SWP_SHOWWINDOW);
}

void CSetupDlg::CommonTail() {
  SetWindowText(savedCaption_);
  picture_.Show(true);
  next_.Enable(true);
  next_.SetFocus();
  PlacePage();
}
