// CSetupApp: the application object. Its InitInstance scans the command line,
// picks the role (setup, uninstaller, removal worker) and runs it.
#pragma once
#include <windows.h>

#include <string>
#include <vector>

#include "ui/app.h"

class COXInstanceManager;

// The last line of the action log: the outcome, whether a restart is needed,
// and the exit code.
void LogOutcome(int exitCode);

class CSetupApp : public CWinApp {
 public:
  // registry: the instance list this process is registered in; it must
  // outlive InitInstance (it may be constructed after this object).
  explicit CSetupApp(COXInstanceManager& registry);

  // Command line and executable path to decide on; by default those of the
  // running process.
  void SetCommandLine(std::vector<std::wstring> argv, std::wstring executablePath);

  // TRUE after the setup role's "aborted" message; FALSE after the
  // uninstaller handed over to the worker (when that failed) or the user
  // declined; otherwise the install-mode entry's value. The removal worker
  // never returns. The exit code is set on every path (product/exit_codes.h).
  BOOL InitInstance() override;

  // Caption of the boxes shown here (string 2), loaded by InitInstance.
  const std::wstring& Caption() const { return caption_; }

 protected:
  // The other subsystems' work, one call each, so that the decisions above can
  // be exercised without installing or removing anything.
  virtual void RunRemovalWorkerRole(const std::vector<std::wstring>& argv);
  virtual void CloseCopies(int otherCopies);
  virtual INT_PTR StartRemovalWorker();
  virtual int RunInstallMode(const std::vector<std::wstring>& argv);

 private:
  void StartDeploymentOptions();
  BOOL ChooseAndRunRole();
  BOOL RunUninstallerRole(int otherCopies);
  BOOL RunSetupRole(int otherCopies);
  bool AskToCloseCopies(int otherCopies);
  BOOL FinishSetupRole();
  BOOL FinishUninstallerRole();

  COXInstanceManager& registry_;
  std::vector<std::wstring> argv_;
  std::wstring executablePath_;
  bool commandLineSet_ = false;
  std::wstring caption_;
};
