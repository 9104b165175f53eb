#include "app/setup_app.h"

#include "app/removal_worker.h"
#include "app/startup.h"
#include "instances/instance_manager.h"
#include "instances/running_copies.h"
#include "product/exit_codes.h"
#include "product/settings.h"
#include "sys/action_log.h"
#include "res/resource.h"
#include "ui/message_box.h"
#include "ui/strings.h"
#include "wizard/install_mode.h"

namespace {

// What an exit code tells a deployment tool, for the last line of the log.
std::wstring OutcomeText(int code) {
  if (deploymentOptions.restartExitCode && code == *deploymentOptions.restartExitCode && code != kExitOk)
    return L"completed, restart needed";
  switch (code) {
    case kExitOk: return L"completed";
    case kExitCancelled: return L"cancelled, or the package is damaged";
    case kExitDeclined: return L"declined";
    case kExitWorkerNotStarted: return L"the removal worker could not be started";
    default: return L"ended";
  }
}

// The command line as this process decides on it (deployment options included).
std::wstring JoinArguments(const std::vector<std::wstring>& argv, const std::wstring& executablePath) {
  std::wstring text = executablePath;
  for (size_t i = 1; i < argv.size(); ++i) text += L" " + argv[i];
  return text;
}

// The boxes shown here were always built in fixed buffers: 128 characters for
// the caption, 256 for a message, terminator included.
constexpr size_t kCaptionChars = 127;
constexpr size_t kMessageChars = 255;

std::wstring Clipped(std::wstring text, size_t limit) {
  if (text.size() > limit) text.resize(limit);
  return text;
}

}  // namespace

CSetupApp::CSetupApp(COXInstanceManager& registry) : registry_(registry) {}

void CSetupApp::SetCommandLine(std::vector<std::wstring> argv, std::wstring executablePath) {
  argv_ = std::move(argv);
  executablePath_ = std::move(executablePath);
  commandLineSet_ = true;
}

BOOL CSetupApp::InitInstance() {
  if (!commandLineSet_) SetCommandLine(ProcessArguments(), ModulePath());
  StartDeploymentOptions();
  const BOOL result = ChooseAndRunRole();
  LogOutcome(ExitCode());
  return result;
}

void CSetupApp::StartDeploymentOptions() {
  const std::wstring commandLine = JoinArguments(argv_, executablePath_);
  deploymentOptions = TakeDeploymentOptions(argv_);
  if (!deploymentOptions.logPath.empty()) OpenActionLog(deploymentOptions.logPath);
  SuppressMessageBoxes(deploymentOptions.suppressMessageBoxes);
  LogAction(L"command line: " + commandLine);
}

BOOL CSetupApp::ChooseAndRunRole() {
  installSettings.installMode = InstallMode::kSilent;
  const StartupOptions options = ScanOptions(argv_);
  installSettings.installMode = options.installMode;
  installSettings.sfxFolder = options.sfxFolder;

  if (IsRemovalWorkerStart(argv_)) {
    LogAction(L"role: removal worker");
    RunRemovalWorkerRole(argv_);
    SetExitCode(kExitOk);
    return FALSE;
  }

  SetResourceModule(::GetModuleHandleW(nullptr));
  caption_ = Clipped(LoadStr(IDS_CAPTION), kCaptionChars);

  const bool setupRole = ChooseSetupRole(argv_, executablePath_);
  installSettings.installMode = InstallModeForRole(setupRole, options);
  LogAction(std::wstring(L"role: ") + (setupRole ? L"setup" : L"uninstaller") + L", mode " +
            std::to_wstring(static_cast<int>(installSettings.installMode)));
  if (!setupRole && installSettings.installMode == InstallMode::kInteractive) {
    int answer = AppMessageBox(Clipped(LoadStr(IDS_CONFIRM_UNINSTALL), kMessageChars),
                               MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2);
    if (answer != IDYES) {
      SetExitCode(kExitDeclined);
      return FALSE;
    }
  }

  const int otherCopies = registry_.ReadInstanceCount() - 1;
  if (otherCopies < 1) return setupRole ? FinishSetupRole() : FinishUninstallerRole();
  return setupRole ? RunSetupRole(otherCopies) : RunUninstallerRole(otherCopies);
}

BOOL CSetupApp::RunUninstallerRole(int otherCopies) {
  // Removing the product is what the user asked for: no second question.
  CloseCopies(otherCopies);
  return FinishUninstallerRole();
}

BOOL CSetupApp::RunSetupRole(int otherCopies) {
  if (!SkipCloseQuestion(argv_) && !AskToCloseCopies(otherCopies)) {
    AppMessageBox(LoadStr(IDS_SETUP_ABORTED), MB_ICONINFORMATION);
    SetExitCode(kExitDeclined);
    // No main window exists, so the framework ends the process at once.
    return TRUE;
  }
  CloseCopies(otherCopies);
  return FinishSetupRole();
}

bool CSetupApp::AskToCloseCopies(int otherCopies) {
  std::wstring question =
      otherCopies == 1 ? LoadStr(IDS_CLOSE_ONE_COPY)
                       : FormatStr(LoadStr(IDS_CLOSE_COPIES).c_str(), otherCopies);
  return AppMessageBox(Clipped(std::move(question), kMessageChars), MB_YESNO | MB_ICONWARNING) == IDYES;
}

BOOL CSetupApp::FinishSetupRole() {
  int result = RunInstallMode(argv_);
  SetExitCode(result);
  return result;
}

BOOL CSetupApp::FinishUninstallerRole() {
  // On success the worker has taken over and this process has already ended.
  StartRemovalWorker();
  SetExitCode(kExitWorkerNotStarted);
  return FALSE;
}

void CSetupApp::RunRemovalWorkerRole(const std::vector<std::wstring>& argv) { RunRemovalWorker(argv); }

void CSetupApp::CloseCopies(int otherCopies) { CloseRunningCopies(registry_, otherCopies); }

INT_PTR CSetupApp::StartRemovalWorker() { return LaunchRemovalWorker(); }

void LogOutcome(int exitCode) {
  LogOutcomeLine(OutcomeText(exitCode), installSettings.restartNeeded != 0, exitCode);
}

int CSetupApp::RunInstallMode(const std::vector<std::wstring>& argv) { return RunInstallModeEntry(argv); }
