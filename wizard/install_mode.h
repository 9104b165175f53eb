// The setup role: fills InstallSettings, checks the package, runs the wizard
// or the unattended install, then starts the product or restarts.
#pragma once
#include <string>
#include <vector>

// argv[0] is the program. Returns 0 after a completed run or a declined
// version prompt, 1 when the wizard was cancelled. A damaged package ends the
// process with exit code 1.
int RunInstallModeEntry(const std::vector<std::wstring>& argv);
