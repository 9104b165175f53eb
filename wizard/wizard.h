// The setup wizard frame, shown modally.
#pragma once
#include <windows.h>

// The frame's pages by index, in the order Next walks them. The frame stands
// on one index and moves on by one as it opens the next page.
enum class WizardPage : int {
  kNone = -1,     // before the first page
  kWelcome = 0,
  kAgreement = 1,
  kFolder = 2,    // install type and destination
  kGroup = 3,     // program group; a portable install skips it
  kReady = 4,
  kInstall = 5,   // the install runs, then the same page shows the finish
  kEnd = 6,       // Finish pressed: the frame ends
};

// preset: the page the frame stands on before it opens the next one.
// WizardPage::kNone opens the welcome page; kReady opens the finished page
// after an unattended install, without installing again. IDOK at Finish,
// IDCANCEL when the user cancelled, -1 when the frame could not be made.
INT_PTR RunWizard(WizardPage preset);
// The same with the page's index (-1 for none).
INT_PTR RunWizard(int presetIndex);
