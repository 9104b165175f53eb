// The steps of the install-mode entry that gather what it needs: options,
// the existing installation, versions, and the package check.
#include <windows.h>
#include <shellapi.h>
#include <shlobj.h>

#include "installlog/install_log.h"
#include "product/exit_codes.h"
#include "product/product.h"
#include "res/resource.h"
#include "sys/action_log.h"
#include "sys/handles.h"
#include "sys/paths.h"
#include "sys/platform.h"
#include "sys/registry.h"
#include "ui/app.h"
#include "ui/message_box.h"
#include "ui/strings.h"
#include "wizard/install_mode.h"
#include "wizard/version_info.h"

ShellExecuteFn pShellExecuteW = ::ShellExecuteW;
ExitProcessFn pExitProcess = ::ExitProcess;

namespace {

// The shortcut the start-up folders hold when auto-start is on.
std::wstring StartupLinkIn(const std::wstring& folder) {
  return JoinPath(folder, kProductName) + L".lnk";
}

bool EqualsNoCase(const std::wstring& a, const wchar_t* b) {
  return ::lstrcmpiW(a.c_str(), b) == 0;
}

bool EndsWith(const std::wstring& text, wchar_t c) { return !text.empty() && text.back() == c; }

// A write test of folder: creates a temporary file and removes it again.
// Nobody looks at its outcome.
void ProbeFolderWithTempFile(const std::wstring& folder) {
  wchar_t name[MAX_PATH] = {};
  if (!::GetTempFileNameW(folder.c_str(), L"h5t", 0, name)) return;
  UniqueFileHandle file(::CreateFileW(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return;  // the temporary file stays where it is
  file.reset();
  ::DeleteFileW(name);
}

}  // namespace

std::wstring OwnModuleFolder() {
  return ParentFolder(ModulePath());
}

std::wstring CleanFolderArgument(std::wstring argument) {
  if (EndsWith(argument, L'"')) argument.pop_back();
  if (EndsWith(argument, L'\\') || EndsWith(argument, L'/')) argument.pop_back();
  return argument;
}

std::optional<std::wstring> ParseInstallOptions(const std::vector<std::wstring>& argv,
                                                InstallSettings& settings) {
  std::optional<std::wstring> folder;
  for (size_t i = 1; i < argv.size(); ++i) {
    const std::wstring& arg = argv[i];
    bool hasNext = i + 1 < argv.size();
    // "-inst..." options are case-sensitive, the others are not; the
    // argument after a folder option is examined as an option as well.
    if (arg.rfind(L"-inst", 0) == 0) {
      if (arg == L"-instport") {
        settings.SetType(InstallType::kPortable);
        if (hasNext) folder = CleanFolderArgument(argv[i + 1]);
      } else if (arg == L"-instdir") {
        if (hasNext) folder = CleanFolderArgument(argv[i + 1]);
      }
    } else if (EqualsNoCase(arg, L"-runafter")) {
      settings.runAfter = 1;
    } else if (EqualsNoCase(arg, L"-allusers")) {
      if (settings.Type() == InstallType::kCurrentUser) settings.SetType(InstallType::kAllUsers);
    } else if (EqualsNoCase(arg, L"-autostart")) {
      settings.autoStart = 1;
    } else if (EqualsNoCase(arg, L"-nodeskico")) {
      settings.desktopIcon = 0;
    }
  }
  return folder;
}

bool ConfirmVersionChange(InstallMode installMode, const VersionQuad& installed,
                          const VersionQuad& newVersion) {
  if (installMode != InstallMode::kInteractive) return true;
  unsigned oldNumber = VersionNumber(installed), newNumber = VersionNumber(newVersion);
  if (newNumber > oldNumber) return true;
  std::wstring text;
  if (newNumber < oldNumber) {
    text = FormatStr(LoadStr(IDS_OLDER_VERSION).c_str(), installed.major, installed.minor,
                     installed.release, installed.build, newVersion.major, newVersion.minor,
                     newVersion.release, newVersion.build);
  } else {
    text = FormatStr(LoadStr(IDS_SAME_VERSION).c_str(), newVersion.major, newVersion.minor,
                     newVersion.release, newVersion.build);
  }
  return AppMessageBox(text, MB_YESNO | MB_ICONQUESTION) == IDYES;
}

int ExistingInstallType() {
  const bool allUsers = ReadRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers") == L"B";
  return static_cast<int>(allUsers ? InstallType::kAllUsers : InstallType::kCurrentUser);
}

std::wstring RecoverGroupFromLog(const std::wstring& logPath, std::wstring programsFolder,
                                 std::wstring startupFolder, std::wstring groupName) {
  programsFolder = LowerCase(JoinFolder(programsFolder));
  startupFolder = LowerCase(startupFolder);
  ForEachEntry(logPath, kShellLink, [&](const std::wstring& linkPath) {
    std::wstring lowered = LowerCase(linkPath);
    if (lowered.rfind(programsFolder, 0) != 0) return;
    if (lowered.find(startupFolder) != std::wstring::npos) return;
    std::wstring rest = linkPath.substr(programsFolder.size());
    if (EndsWith(rest, L'\\')) rest.pop_back();
    size_t slash = rest.find_last_of(L'\\');
    groupName = slash == std::wstring::npos || slash == 0 ? std::wstring() : rest.substr(0, slash);
  });
  return groupName;
}

std::wstring RecoverGroupName(const std::wstring& installDir, int installType,
                              const std::wstring& groupName) {
  std::wstring logPath = JoinPath(installDir, kJournalName);
  if (!LogReader(logPath).IsOpen()) logPath = JoinPath(installDir, kOldJournalName);
  if (!LogReader(logPath).IsOpen()) return groupName;
  std::wstring programs, startup;
  if (static_cast<InstallType>(installType) == InstallType::kAllUsers) {
    programs = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
    startup = ShellFolderPath(CSIDL_COMMON_STARTUP);
  } else if (static_cast<InstallType>(installType) == InstallType::kCurrentUser) {
    programs = ShellFolderPath(CSIDL_PROGRAMS);
    startup = ShellFolderPath(CSIDL_STARTUP);
  }
  return RecoverGroupFromLog(logPath, programs, startup, groupName);
}

int DetectAutoStart(const std::wstring& commonStartup, const std::wstring& userStartup) {
  if (commonStartup.size() > 4) ProbeFolderWithTempFile(commonStartup);
  if (commonStartup.size() > 4 && PathExists(StartupLinkIn(commonStartup))) return 1;
  if (userStartup.size() >= 5 && PathExists(StartupLinkIn(userStartup))) return 1;
  return 0;
}

bool AdoptExistingInstallation(InstallSettings& settings) {
  VersionQuad installed = ReadFileVersion(JoinPath(settings.installDir, kProductExe));
  settings.newVersion = ReadFileVersion(JoinPath(settings.sourceDir, kProductExe));
  if (!ConfirmVersionChange(settings.installMode, installed, settings.newVersion)) return false;
  if (settings.Type() != InstallType::kPortable) settings.installType = ExistingInstallType();
  settings.groupName = RecoverGroupName(settings.installDir, settings.installType, settings.groupName);
  settings.autoStart = DetectAutoStart(ShellFolderPath(CSIDL_COMMON_STARTUP),
                                       ShellFolderPath(CSIDL_STARTUP));
  return true;
}

bool PackageIsDamaged(const InstallSettings& settings) {
  return settings.newVersion.major == 0 ||
         !PathExists(JoinPath(settings.sourceDir, kJournalName));
}

void SetupDamagedAbort() {
  AppMessageBox(IDS_PACKAGE_DAMAGED, MB_OK | MB_ICONERROR);
  // An unattended run that answers its boxes itself opens no browser either.
  if (!MessageBoxesSuppressed()) pShellExecuteW(nullptr, L"open", kMakerHomePage, nullptr, nullptr, SW_SHOW);
  LogOutcomeLine(L"the package is damaged", false, kExitCancelled);
  pExitProcess(1);
}
