// The start-up decisions, as functions of the command line and of the
// executable's own path: the option scan, the removal-worker test, the role
// choice and the install mode of each role.
#pragma once
#include <string>
#include <vector>

#include "product/settings.h"

// What the option scan of the whole command line finds.
struct StartupOptions {
  InstallMode installMode = InstallMode::kSilent;  // "-v": interactive; "-sconf"
  std::wstring sfxFolder;         // folder part of "-sfxname=" (empty if none)
  bool silentSwitchSeen = false;  // "-s" seen before the scan stopped
};

// Scans argv[1..] in order: "-v" (kInteractive) and "-sconf"
// (kSilentThenFinishPage) end the scan, "-s" sets silentSwitchSeen, "-sfxname=<path>" (prefix case
// significant) sets sfxFolder. Anything else is ignored.
StartupOptions ScanOptions(const std::vector<std::wstring>& argv);
// Folder of the package path given to "-sfxname=": one trailing backslash
// dropped, then cut before the last backslash. Empty when the last backslash
// is the first character or there is none.
std::wstring SfxFolderOf(const std::wstring& packagePath);

// Takes "-log=<file>", "-suppressmsgboxes", "-norestart" and
// "-restartexitcode=N" (names in any case, anywhere after argv[0]) out of
// argv, so that every other decision sees the command line as without them.
// A "-restartexitcode=" without a whole number is taken out and ignored.
DeploymentOptions TakeDeploymentOptions(std::vector<std::wstring>& argv);

// True when argv[1] is exactly "-delself" and argv[2] exists.
bool IsRemovalWorkerStart(const std::vector<std::wstring>& argv);
// True for the setup role: argv[1] is "-install" (any case), or the
// lower-cased executable path contains "setup.exe".
bool ChooseSetupRole(const std::vector<std::wstring>& argv, const std::wstring& executablePath);
// The mode a role runs in: setup is interactive unless "-s" or "-sconf" was
// seen; the uninstaller keeps the scanned mode.
InstallMode InstallModeForRole(bool setupRole, const StartupOptions& options);
// True when the question before closing running copies is skipped: at least
// three entries (program included) and any of argv[2..] is "/s" or "-s" (any
// case). A lone first argument is not looked at.
bool SkipCloseQuestion(const std::vector<std::wstring>& argv);
