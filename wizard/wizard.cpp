#include "wizard/wizard.h"

#include <commctrl.h>

#include "sys/safe_load.h"
#include "ui/app.h"
#include "wizard/setup_dlg.h"

namespace {

// The common controls library is loaded only when the wizard is shown: its
// start-up registers window classes, which an unattended run never needs and
// which would otherwise bring up the desktop for every silent install. The
// bare name is what lets the manifest's side-by-side assembly (version 6)
// answer; the process-wide search restriction keeps a planted copy out.
void InitWizardControls() {
  HMODULE comctl = ::LoadLibraryW(L"comctl32.dll");
  if (!comctl) return;
  using InitFn = BOOL(WINAPI*)(const INITCOMMONCONTROLSEX*);
  auto init = LateBound<InitFn>(comctl, "InitCommonControlsEx");
  INITCOMMONCONTROLSEX controls = {sizeof controls, ICC_STANDARD_CLASSES | ICC_WIN95_CLASSES};
  if (init) init(&controls);
  // Stays loaded: the wizard's windows use its classes until the process ends.
}

}  // namespace

INT_PTR RunWizard(WizardPage preset) {
  InitWizardControls();

  CSetupDlg frame(nullptr);
  if (preset > WizardPage::kNone) frame.SetPageIndex(preset);
  INT_PTR result = frame.DoModal();
  if (CWinApp* app = CWinApp::Current()) app->SetMainWindow(nullptr);
  return result;
}

INT_PTR RunWizard(int presetIndex) { return RunWizard(static_cast<WizardPage>(presetIndex)); }
