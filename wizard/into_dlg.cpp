#include "wizard/into_dlg.h"

#include <ctime>

#include "product/settings.h"
#include "res/resource.h"
#include "ui/strings.h"

namespace {

int CurrentLocalYear() {
  __time64_t now = _time64(nullptr);
  struct tm* local = _localtime64(&now);
  return local ? local->tm_year + 1900 : 0;
}

}  // namespace

CIntoDlg::CIntoDlg(HWND parent) : CDialog(IDD_INTRO, parent) {}

void CIntoDlg::DoDataExchange(CDataExchange& dx) {
  DDX_Control(dx, IDC_WELCOME_VERSION, versionText_);
}

BOOL CIntoDlg::OnInitDialog() {
  CDialog::OnInitDialog();
  // The template text of the static is the format.
  std::wstring format = versionText_.GetText();
  const VersionQuad& version = installSettings.newVersion;
  std::wstring beta;
  if (version.build != 0) beta = FormatStr(L"Beta %d", static_cast<int>(version.build));
  std::wstring product = LoadStr(IDS_PRODUCT_SHORT);
  versionText_.SetText(FormatStr(format.c_str(), product.c_str(), static_cast<int>(version.major),
                                 static_cast<int>(version.minor), static_cast<int>(version.release),
                                 beta.c_str(), CurrentLocalYear()));
  return TRUE;
}
