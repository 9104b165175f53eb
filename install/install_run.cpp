#include "install/install_run.h"

#include "install/file_install.h"
#include "install/registration.h"
#include "install/shortcuts.h"
#include "installlog/install_log.h"
#include "installlog/journal_passes.h"
#include "product/product.h"
#include "product/settings.h"
#include "sys/paths.h"

namespace {

// Old shortcuts and group folders go, then the files and folders that the new
// script declares obsolete; what the copy step needs is recreated by it.
void ClearEarlierInstallation() {
  const std::wstring& installDir = installSettings.installDir;
  RemoveLoggedLinks(JoinPath(installDir, kOldJournalName));
  RemoveLoggedLinks(JoinPath(installDir, kJournalName));
  RemoveLoggedFiles(JoinPath(installSettings.sourceDir, kJournalName), installDir, kFileDel);
}

}  // namespace

int RunInstall() {
  InstallSettings& s = installSettings;
  if (!s.defaultDirUsed) ClearEarlierInstallation();
  RunInstallScript(JoinPath(s.sourceDir, kJournalName));
  CopyMatchingFiles(kJournalName, s.sourceDir, s.installDir);
  // The shortcut entries that follow start on a line of their own.
  AppendLogLine(JoinPath(s.installDir, kJournalName), L"");
  if (s.Type() != InstallType::kPortable) {
    CreateGroupAndShortcuts();
    WriteRegistryEntries();
    RegisterThumbnailExtension();
  }
  ImportSettings();
  if (s.Type() == InstallType::kCurrentUser || s.Type() == InstallType::kAllUsers) StartProductRegistration();
  return 0;
}
