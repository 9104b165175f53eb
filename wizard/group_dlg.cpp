#include "wizard/group_dlg.h"

#include <shlobj.h>

#include <cwctype>

#include "product/settings.h"
#include "res/resource.h"
#include "sys/paths.h"
#include "sys/platform.h"
#include "ui/message_box.h"

namespace {

std::wstring Trimmed(const std::wstring& text) {
  size_t first = 0, last = text.size();
  while (first < last && std::iswspace(text[first])) ++first;
  while (last > first && std::iswspace(text[last - 1])) --last;
  return text.substr(first, last - first);
}

// The folder's own name (behind its last backslash), lower-cased.
std::wstring LoweredFolderName(int csidl) {
  std::wstring path = ShellFolderPath(csidl);
  size_t slash = path.rfind(L'\\');
  return LowerCase(slash == std::wstring::npos ? path : path.substr(slash + 1));
}

}  // namespace

CGroupDlg::CGroupDlg(HWND parent) : CDialog(IDD_GROUP, parent) {}

void CGroupDlg::DoDataExchange(CDataExchange& dx) {
  DDX_Control(dx, IDC_GROUP_NAME, nameBox_);
  DDX_Check(dx, IDC_AUTOSTART, autoStart_);
  DDX_Check(dx, IDC_DESKTOP_ICON, desktopIcon_);
  DDX_Text(dx, IDC_GROUP_NAME, groupName_);
}

BOOL CGroupDlg::OnInitDialog() {
  CDialog::OnInitDialog();
  autoStart_ = installSettings.autoStart;
  desktopIcon_ = installSettings.desktopIcon;
  groupName_ = installSettings.groupName;
  UpdateData(FALSE);
  return TRUE;
}

BOOL CGroupDlg::DestroyWindow() {
  if (!UpdateData(TRUE)) return 0;
  groupName_ = Trimmed(groupName_);
  if (groupName_.size() < 3) {
    AppMessageBox(IDS_GROUP_TOO_SHORT, MB_OK | MB_ICONEXCLAMATION);
    return 0;
  }
  // A group named like a start-up folder would put the shortcuts into it.
  std::wstring name = LowerCase(groupName_);
  if (name == LoweredFolderName(CSIDL_STARTUP) || name == LoweredFolderName(CSIDL_COMMON_STARTUP)) {
    AppMessageBox(IDS_GROUP_IS_STARTUP, MB_OK | MB_ICONEXCLAMATION);
    return 0;
  }
  installSettings.autoStart = autoStart_;
  installSettings.desktopIcon = desktopIcon_;
  installSettings.groupName = groupName_;
  return CDialog::DestroyWindow();
}
