#include "wizard/wizard.h"

#include <commctrl.h>

#include "ui/app.h"
#include "wizard/setup_dlg.h"

INT_PTR RunWizard(int presetIndex) {
  // Visual styles and the common control classes the templates use.
  INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_STANDARD_CLASSES | ICC_WIN95_CLASSES};
  ::InitCommonControlsEx(&controls);

  CSetupDlg frame(nullptr);
  if (presetIndex >= 0) frame.SetPageIndex(presetIndex);
  INT_PTR result = frame.DoModal();
  if (CWinApp* app = CWinApp::Current()) app->SetMainWindow(nullptr);
  return result;
}
