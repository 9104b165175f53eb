#include "wizard/install_mode.h"

#include "install/install_run.h"
#include "install/registration.h"
#include "product/exit_codes.h"
#include "product/product.h"
#include "sys/action_log.h"
#include "sys/paths.h"
#include "sys/platform.h"
#include "sys/process.h"
#include "sys/privileges.h"
#include "wizard/version_info.h"
#include "wizard/wizard.h"

namespace {

void ChooseDestination(const std::vector<std::wstring>& argv, InstallSettings& settings) {
  settings.installDir = ExistingInstallFolder();
  settings.sourceDir = OwnModuleFolder();
  if (std::optional<std::wstring> folder = ParseInstallOptions(argv, settings))
    settings.installDir = *folder;
  if (settings.installDir.empty()) {
    settings.installDir = JoinPath(ProgramFilesDir(), kProductName);
    settings.defaultDirUsed = 1;
  }
}

}  // namespace

void RunUnattendedInstall(InstallSettings& settings) {
  // A fresh install without a folder is always for all users, whatever the
  // options asked for.
  if (settings.defaultDirUsed == 1) settings.SetType(InstallType::kAllUsers);
  RunInstall();
  // From the ready page the frame moves on to the finished one.
  if (settings.installMode == InstallMode::kSilentThenFinishPage) RunWizard(WizardPage::kReady);
}

bool RunAfterSetup(const InstallSettings& settings) {
  if (settings.runAfter != 1) return false;
  if (settings.restartNeeded) {
    if (deploymentOptions.noRestart) {
      // Nor is the product started: its files are not all in place yet.
      LogAction(L"restart needed, not restarting (-norestart); the product is not started");
      return false;
    }
    LogAction(L"restarting Windows");
    RestartWindows();
    return true;
  }
  // The bare path, unquoted, is the command line the product always got.
  const std::wstring product = JoinPath(settings.installDir, kProductExe);
  StartProcess(product, product, settings.installDir.c_str());
  return false;
}

int RunInstallModeEntry(const std::vector<std::wstring>& argv) {
  InstallSettings& settings = installSettings;
  ChooseDestination(argv, settings);
  settings.groupName = kProductName;
  if (settings.defaultDirUsed == 0) {
    if (!AdoptExistingInstallation(settings)) return kExitOk;
  } else {
    settings.newVersion = ReadFileVersion(JoinPath(settings.sourceDir, kProductExe));
  }
  if (PackageIsDamaged(settings)) {
    SetupDamagedAbort();
    return kExitCancelled;
  }
  if (settings.installMode == InstallMode::kInteractive) {
    if (RunWizard(WizardPage::kNone) != IDOK) return kExitCancelled;
  } else {
    RunUnattendedInstall(settings);
  }
  ::SetCurrentDirectoryW(settings.installDir.c_str());
  const bool restarting = RunAfterSetup(settings);
  if (settings.restartNeeded && !restarting && deploymentOptions.restartExitCode)
    return *deploymentOptions.restartExitCode;
  return kExitOk;
}
