#include "wizard/folder_dlg.h"

#include <shlobj.h>

#include <algorithm>
#include <iterator>

#include "product/product.h"
#include "product/settings.h"
#include "res/resource.h"
#include "sys/handles.h"
#include "sys/paths.h"
#include "ui/message_box.h"
#include "ui/strings.h"

namespace {

// Set once a folder was browsed for while the portable type was selected, so
// that switching types back and forth keeps showing it.
bool portableFolderChosen = false;

bool FolderHasEntries(const std::wstring& folder) {
  WIN32_FIND_DATAW data;
  UniqueFindHandle find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &data));
  if (!find) return false;
  do {
    if (wcscmp(data.cFileName, L".") != 0 && wcscmp(data.cFileName, L"..") != 0) return true;
  } while (::FindNextFileW(find.get(), &data));
  return false;
}

}  // namespace

int CALLBACK BrowseFolderCallback(HWND browser, UINT message, LPARAM, LPARAM) {
  if (message == BFFM_INITIALIZED) {
    ::SendMessageW(browser, BFFM_SETSELECTIONW, TRUE,
                   reinterpret_cast<LPARAM>(installSettings.installDir.c_str()));
  } else if (message == BFFM_VALIDATEFAILEDW) {
    AppMessageBox(IDS_INVALID_FOLDER, MB_OK | MB_ICONEXCLAMATION);
    return 1;
  }
  return 0;
}

CFolderDlg::CFolderDlg(HWND parent) : CDialog(IDD_FOLDER, parent) {}

void CFolderDlg::DoDataExchange(CDataExchange& dx) {
  DDX_Control(dx, IDC_DEST_FOLDER, destination_);
  DDX_Radio(dx, IDC_TYPE_USER, typeIndex_);
}

BOOL CFolderDlg::OnInitDialog() {
  CDialog::OnInitDialog();
  portableFolderChosen = false;
  savedHint_ = CControl(GetDlgItem(IDC_FOLDER_HINT)).GetText();
  Refresh();
  destination_.SetText(installSettings.installDir);
  typeIndex_ = installSettings.installType;
  UpdateData(FALSE);
  return TRUE;
}

bool CFolderDlg::OnClicked(int id) {
  switch (id) {
    case IDC_BROWSE: Browse(); return true;
    case IDC_TYPE_USER:
    case IDC_TYPE_ALL:
    case IDC_TYPE_PORTABLE: Refresh(); return true;
    default: return false;
  }
}

BOOL CFolderDlg::DestroyWindow() {
  if (destination_.GetText().empty()) {
    AppMessageBox(IDS_PORTABLE_NO_FOLDER, MB_OK | MB_ICONEXCLAMATION);
    return 0;
  }
  UpdateData(TRUE);
  installSettings.installType = typeIndex_;
  return CDialog::DestroyWindow();
}

void CFolderDlg::Refresh() {
  UpdateData(TRUE);
  CControl hint(GetDlgItem(IDC_FOLDER_HINT));
  if (SelectedType() != InstallType::kPortable) {
    destination_.SetText(installSettings.installDir);
    bool hasCopy = installSettings.defaultDirUsed == 0 &&
                   PathExists(JoinPath(installSettings.installDir, kProductExe));
    hint.SetText(hasCopy ? LoadStr(IDS_FOLDER_HAS_COPY) : savedHint_);
  } else {
    if (!portableFolderChosen) destination_.SetText(std::wstring());
    hint.SetText(LoadStr(IDS_PORTABLE_HINT));
  }
}

void CFolderDlg::Browse() {
  // The browser can only preselect a folder that exists.
  ::CreateDirectoryW(installSettings.installDir.c_str(), nullptr);
  HRESULT com = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  std::wstring title = LoadStr(IDS_BROWSE_TITLE);
  BROWSEINFOW info = {};
  info.hwndOwner = GetSafeHwnd();
  info.lpszTitle = title.c_str();
  info.ulFlags = BIF_RETURNONLYFSDIRS | BIF_EDITBOX | BIF_VALIDATE | BIF_NEWDIALOGSTYLE;
  info.lpfn = &BrowseFolderCallback;
  LPITEMIDLIST chosen = ::SHBrowseForFolderW(&info);
  ::RemoveDirectoryW(installSettings.installDir.c_str());

  wchar_t path[MAX_PATH] = {};
  if (chosen && ::SHGetPathFromIDListW(chosen, path) && path[0]) ApplyChosenFolder(path);

  if (chosen) {
    ComPtr<IMalloc> allocator;
    if (SUCCEEDED(::SHGetMalloc(allocator.put()))) allocator->Free(chosen);
  }
  if (SUCCEEDED(com)) ::CoUninitialize();
}

void CFolderDlg::ApplyChosenFolder(std::wstring path) {
  // A folder just made in the browser and left empty does not survive.
  ::RemoveDirectoryW(path.c_str());
  if (std::any_of(std::begin(kOlderGenerationExes), std::end(kOlderGenerationExes),
                  [&](const wchar_t* exe) { return PathExists(JoinPath(path, exe)); })) {
    AppMessageBox(IDS_OLDER_GENERATION, MB_OK | MB_ICONEXCLAMATION);
    return;
  }
  UpdateData(TRUE);
  bool append;
  if (SelectedType() == InstallType::kPortable)
    append = true;
  else if (PathExists(JoinPath(path, kProductExe)))
    append = false;
  else
    append = FolderHasEntries(path);
  if (append) path = JoinPath(path, kProductName);

  installSettings.installDir = path;
  destination_.SetText(path);
  if (SelectedType() == InstallType::kPortable) portableFolderChosen = true;
  Refresh();
}
