#include "uninstall/uninstall.h"

#include <windows.h>
#include <shlobj.h>

#include <string_view>

#include "installlog/install_log.h"
#include "installlog/journal_passes.h"
#include "product/product.h"
#include "sys/action_log.h"
#include "sys/deferred_ops.h"
#include "sys/paths.h"
#include "sys/platform.h"
#include "sys/process.h"
#include "sys/registry.h"
#include "uninstall/registry_cleanup.h"

namespace {

constexpr wchar_t kShellFoldersKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
constexpr DWORD kShellFolderValueBytes = 1024;

void RemoveProgramGroup(const std::wstring& programsFolder) {
  std::wstring group = JoinFolder(JoinPath(programsFolder, kProductName));
  DeleteMatchingFiles(group, L"*.*");
  LoggedRemoveDirectory(group);
}

std::wstring ShortcutIn(const std::wstring& folder) {
  return JoinPath(folder, kProductName) + L".lnk";
}

void RemoveProductFolders(const std::wstring& installFolder) {
  std::wstring x64 = JoinPath(installFolder, L"x64");
  if (!LoggedRemoveDirectory(x64)) DeleteAtReboot(x64.c_str());
  std::wstring x32 = JoinPath(installFolder, L"x32");
  if (!LoggedRemoveDirectory(x32) && PathExists(x32)) DeleteAtReboot(x32.c_str());
  // The x32 test is how the folder removal has always decided; kept as it is.
  if (!LoggedRemoveDirectory(installFolder) && PathExists(x32)) DeleteAtReboot(installFolder.c_str());
  if (std::wstring_view(kProductName).find(L'\\') != std::wstring_view::npos) {
    std::wstring parent = installFolder;
    while (!parent.empty() && parent.back() == L'\\') parent.pop_back();
    parent = ParentFolder(parent);
    if (!LoggedRemoveDirectory(parent)) DeleteAtReboot(parent.c_str());
  }
}

void RemoveCommonShortcuts() {
  std::wstring startup = ShellFolderPath(CSIDL_COMMON_STARTUP);
  if (startup.size() > 4) LoggedDeleteFile(ShortcutIn(startup));
  std::wstring desktop = ShellFolderPath(CSIDL_COMMON_DESKTOPDIRECTORY);
  if (desktop.size() > 4) LoggedDeleteFile(ShortcutIn(desktop));
  std::wstring programs = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
  if (programs.size() > 4) RemoveProgramGroup(programs);
}

std::wstring ReadShellFolder(HKEY shellFolders, const wchar_t* name) {
  wchar_t buffer[kShellFolderValueBytes / sizeof(wchar_t) + 1] = {};
  DWORD size = kShellFolderValueBytes;
  if (::RegQueryValueExW(shellFolders, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size) !=
      ERROR_SUCCESS)
    return std::wstring();
  return buffer;
}

void RemoveProfileShortcuts(HKEY profile) {
  CKey shellFolders;
  if (shellFolders.Open(profile, kShellFoldersKey, KEY_READ) != ERROR_SUCCESS) return;
  std::wstring startup = ReadShellFolder(shellFolders.get(), L"Startup");
  if (!startup.empty()) LoggedDeleteFile(ShortcutIn(startup));
  std::wstring desktop = ReadShellFolder(shellFolders.get(), L"Desktop");
  if (!desktop.empty()) LoggedDeleteFile(ShortcutIn(desktop));
  std::wstring programs = ReadShellFolder(shellFolders.get(), L"Programs");
  shellFolders.Close();
  if (!programs.empty()) RemoveProgramGroup(programs);
}

}  // namespace

void UninstallProcedure(const std::wstring& installFolder) {
  const std::wstring product = installFolder + kProductExe;
  RunAndWait(product.c_str(), (L"\"" + product + L"\" -unregonly").c_str(), installFolder.c_str(), 5000);
  RemoveRegistryEntries(kMakerWord, kProductName, kProductName, kProductExe);
  RestoreFileAssociations();
  const std::wstring logs[] = {installFolder + kOldJournalName, installFolder + kJournalName};
  for (const std::wstring& log : logs) RemoveLoggedLinks(log);
  for (const std::wstring& log : logs) RemoveLoggedFiles(log, installFolder, nullptr);
  DeleteMatchingFiles(installFolder, kJournalName);
  // Hold no handle on the installation folder while removing it.
  ::SetCurrentDirectoryW(L"\\");
  RemoveProductFolders(installFolder);
  RemoveCommonShortcuts();
  ForEachProfile(RemoveProfileShortcuts);
}
