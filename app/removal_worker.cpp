#include "app/removal_worker.h"

#include <cstdlib>

#include "install/registration.h"
#include "product/exit_codes.h"
#include "product/product.h"
#include "product/settings.h"
#include "res/resource.h"
#include "sys/action_log.h"
#include "sys/deferred_ops.h"
#include "sys/platform.h"
#include "sys/process.h"
#include "sys/safe_load.h"
#include "ui/message_box.h"
#include "ui/app.h"
#include "uninstall/uninstall.h"

namespace {

constexpr DWORD kUninstallerExitWaitMs = 1000;
constexpr DWORD kRegsvr32TimeoutMs = 5000;

// A fresh, empty "uni*.tmp" in the temporary folder; the system picks the name.
std::wstring NewTemporaryFile() {
  wchar_t folder[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, folder);
  wchar_t file[MAX_PATH] = {};
  ::GetTempFileNameW(folder, L"uni", 0, file);
  return file;
}

// Starts program with commandLine and ends this process with 0, as an exec
// would. Leaving through exit() instead of the C runtime's exec (which skips
// static destructors) takes this process off the instance list at once.
INT_PTR ReplaceProcess(const std::wstring& program, const std::wstring& commandLine) {
  if (!StartProcess(program, commandLine, nullptr)) return -1;
  LogOutcomeLine(L"handed over to the removal worker", false, kExitOk);
  std::exit(0);
}

}  // namespace

std::wstring QuoteIfBlank(const std::wstring& path) {
  if (path.find_first_of(L" \t") == std::wstring::npos) return path;
  std::wstring quoted = L"\"" + path + L"\"";
  // Built in a 260-character buffer.
  if (quoted.size() > MAX_PATH - 1) quoted.resize(MAX_PATH - 1);
  return quoted;
}

std::wstring RemovalWorkerCommandLine(const std::wstring& workerPath,
                                      const std::wstring& uninstallerPath, InstallMode installMode) {
  // The exec joins its arguments with blanks and quotes nothing itself.
  std::wstring commandLine = QuoteIfBlank(workerPath) + L" -delself " + QuoteIfBlank(uninstallerPath);
  if (installMode != InstallMode::kInteractive) commandLine += L" -s";
  return commandLine;
}

INT_PTR LaunchRemovalWorker() {
  std::wstring worker = NewTemporaryFile();
  std::wstring self = ModulePath();
  // Not checked: a failed copy makes the start below fail, or start an empty
  // file, and that failure is what the caller gets.
  LoggedCopyFile(self, worker);
  std::wstring commandLine = RemovalWorkerCommandLine(worker, self, installSettings.installMode);
  // One log covers the whole removal.
  if (!ActionLogPath().empty()) commandLine += L" -log=\"" + ActionLogPath() + L"\"";
  return ReplaceProcess(worker, commandLine);
}

std::wstring InstallFolderOf(const std::wstring& uninstallerPath) {
  size_t driveLength = uninstallerPath.size() >= 2 && uninstallerPath[1] == L':' ? 2 : 0;
  size_t lastSeparator = uninstallerPath.find_last_of(L"\\/");
  if (lastSeparator == std::wstring::npos || lastSeparator < driveLength)
    return uninstallerPath.substr(0, driveLength);
  return uninstallerPath.substr(0, lastSeparator + 1);
}

std::wstring ThumbnailDllToUnregister(const std::wstring& installFolder, BOOL wow64, BOOL vistaOrLater) {
  return ThumbnailExtensionIn(installFolder, wow64, vistaOrLater);
}

std::wstring UnregisterCommandLine(const std::wstring& dllPath) {
  return std::wstring(kRegsvr32Exe) + L" /s /u \"" + dllPath + L"\"";
}

void RunRemovalWorker(const std::vector<std::wstring>& argv) {
  // Give the uninstaller that started us time to end, so its file can go.
  ::Sleep(kUninstallerExitWaitMs);
  std::wstring self = ModulePath();
  ::DeleteAtReboot(self.c_str());

  const std::wstring uninstaller = argv.size() >= 3 ? argv[2] : std::wstring();
  const std::wstring installFolder = InstallFolderOf(uninstaller);
  std::wstring dll = ThumbnailDllToUnregister(installFolder, IsWow64(), IsVistaOrLater());
  if (dll.size() > 4)
    RunAndWait(SystemFolderPath(kRegsvr32Exe).c_str(), UnregisterCommandLine(dll).c_str(), installFolder.c_str(),
               kRegsvr32TimeoutMs);

  // Tried once; the journal names it again for the procedure below.
  LoggedDeleteFile(uninstaller);
  UninstallProcedure(installFolder);

  // The worker's own scan leaves installMode silent unless "-v" is among its
  // arguments, which the uninstaller never passes: only a worker started by
  // hand reports.
  if (installSettings.installMode == InstallMode::kInteractive) AppMessageBox(IDS_UNINSTALLED, MB_OK);
  LogOutcomeLine(L"removed", installSettings.restartNeeded != 0, kExitOk);
  std::exit(0);
}
