// The setup role: fills InstallSettings, checks the package, runs the wizard
// or the unattended install, then starts the product or restarts.
#pragma once
#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "product/settings.h"

// argv[0] is the program. Returns 0 after a completed run or a declined
// version prompt, 1 when the wizard was cancelled. A damaged package ends the
// process with exit code 1.
int RunInstallModeEntry(const std::vector<std::wstring>& argv);

// The pieces of the entry, in the order it uses them.

// Folder of the running executable, without the trailing backslash.
std::wstring OwnModuleFolder();
// A folder argument as given after "-instport"/"-instdir": one trailing double
// quote removed, then one trailing backslash or slash.
std::wstring CleanFolderArgument(std::wstring argument);
// Applies the unattended options of argv[1..] to settings. Returns the last
// folder argument, or nothing when no option was followed by one.
std::optional<std::wstring> ParseInstallOptions(const std::vector<std::wstring>& argv,
                                                InstallSettings& settings);
// Wizard mode only: asks strings 16/17 when newVersion is not greater than
// installed. false when the user answered anything but Yes.
bool ConfirmVersionChange(InstallMode installMode, const VersionQuad& installed,
                          const VersionQuad& newVersion);
// Install type of the existing installation: 1 when its "AllUsers" is
// exactly "B", else 0 (also when the value is missing).
int ExistingInstallType();
// The program group named by the last "Shell Link: " line of log that lies in
// programsFolder but not in startupFolder; groupName unchanged when no line
// matches or the log cannot be opened. The folders are compared lower-cased.
std::wstring RecoverGroupFromLog(const std::wstring& logPath, std::wstring programsFolder,
                                 std::wstring startupFolder, std::wstring groupName);
// The same for an installation folder: its journal, else the
// earlier version's, with the shell folders of installType.
std::wstring RecoverGroupName(const std::wstring& installDir, int installType,
                              const std::wstring& groupName);
// 1 when the product's shortcut lies in either start-up folder, else 0. Probes
// the common folder with a temporary "h5t" file first.
int DetectAutoStart(const std::wstring& commonStartup, const std::wstring& userStartup);
// Takes over what an existing installation (or a given folder) holds: the
// versions, the version prompt, its type, group and auto-start. false when
// the user declined the version prompt.
bool AdoptExistingInstallation(InstallSettings& settings);
// True when the package cannot be installed: no versioned product
// executable, or no install script in sourceDir.
bool PackageIsDamaged(const InstallSettings& settings);
// String 18, the maker's home page (not with "-suppressmsgboxes"), then the
// end of the process with code 1.
// Returns only when pExitProcess does (tests).
void SetupDamagedAbort();
// The unattended install: a fresh default install is always for all users;
// "-sconf" shows the finished page afterwards.
void RunUnattendedInstall(InstallSettings& settings);
// With runAfter: starts the product, or restarts Windows when a file waits for
// the restart (with "-norestart" neither). True when a restart was begun.
bool RunAfterSetup(const InstallSettings& settings);

// Seams: what leaves this process. Tests replace them so that no browser
// opens and the test program survives a damaged package.
using ShellExecuteFn = HINSTANCE(WINAPI*)(HWND, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, INT);
using ExitProcessFn = void(WINAPI*)(UINT);
extern ShellExecuteFn pShellExecuteW;
extern ExitProcessFn pExitProcess;
