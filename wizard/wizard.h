// The setup wizard frame, shown modally.
#pragma once
#include <windows.h>

// presetIndex -1 opens the welcome page; 4 opens the finished page after an
// unattended install, without installing again. IDOK at Finish, IDCANCEL when
// the user cancelled, -1 when the frame could not be made.
INT_PTR RunWizard(int presetIndex);
