#include "install/shortcuts.h"

#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>

#include "installlog/install_log.h"
#include "product/product.h"
#include "product/settings.h"
#include "res/resource.h"
#include "sys/action_log.h"
#include "sys/handles.h"
#include "sys/paths.h"
#include "sys/platform.h"
#include "ui/message_box.h"
#include "ui/strings.h"

namespace {

// COM stays initialised for the life of the process once a shortcut was asked for.
bool comInitialized = false;

std::wstring JournalPath() { return JoinPath(installSettings.installDir, kJournalName); }

std::wstring UnquotedTarget(const std::wstring& target) {
  std::wstring text = (!target.empty() && target.front() == L'"') ? target.substr(1) : target;
  if (text.size() > 511) text.resize(511);
  if (!text.empty() && text.back() == L'"') text.pop_back();
  return text;
}

std::wstring TrimmedGroupName(std::wstring name) {
  for (wchar_t& c : name)
    if (c == L'/') c = L'\\';
  static const wchar_t kTrimmed[] = L" \t\r\n\\";
  size_t first = name.find_first_not_of(kTrimmed);
  if (first == std::wstring::npos) return std::wstring();
  return name.substr(first, name.find_last_not_of(kTrimmed) - first + 1);
}

void CreateProductShortcut(const std::wstring& folder, const std::wstring& pictures) {
  CreateShellLink(JoinPath(installSettings.installDir, kProductExe),
                  JoinPath(folder, LoadStr(IDS_PRODUCT_NAME) + L".lnk"), L"", SW_SHOWNORMAL, nullptr,
                  pictures.c_str());
}

std::wstring ProgramsFolder() {
  if (installSettings.Type() == InstallType::kAllUsers) {
    std::wstring common = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
    if (common.size() >= 4) return common;
    installSettings.SetType(InstallType::kCurrentUser);
  }
  return ShellFolderPath(CSIDL_PROGRAMS);
}

void CreateProgramGroup(const std::wstring& programs, const std::wstring& pictures) {
  const std::wstring group = TrimmedGroupName(installSettings.groupName);
  for (size_t slash = group.find(L'\\', 1); slash != std::wstring::npos; slash = group.find(L'\\', slash + 1))
    LoggedCreateDirectory(JoinPath(programs, group.substr(0, slash)));
  const std::wstring groupFolder = JoinPath(programs, group);
  LoggedCreateDirectory(groupFolder);
  AppendLogLine(JournalPath(), kMadeDir + groupFolder);

  if (!PathExists(groupFolder)) return;
  CreateShellLink(JoinPath(installSettings.installDir, kProductExe),
                  JoinPath(groupFolder, LoadStr(IDS_PRODUCT_NAME) + L".lnk"), L"", SW_SHOWNORMAL, nullptr,
                  pictures.c_str());
  CreateShellLink(JoinPath(installSettings.installDir, kHelpFile),
                  JoinPath(groupFolder, LoadStr(IDS_HELP_SHORTCUT) + L".lnk"), L"", SW_SHOWNORMAL, nullptr,
                  nullptr);
}

}  // namespace

HRESULT CreateShellLink(const std::wstring& target, const std::wstring& linkPath,
                        const std::wstring& description, int showCommand,
                        const wchar_t* arguments, const wchar_t* workingFolder) {
  if (!comInitialized) {
    ::CoInitialize(nullptr);
    comInitialized = true;
  }
  ComPtr<IShellLinkW> link;
  HRESULT result = ::CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                      link.put_void());
  if (FAILED(result)) return result;
  ComPtr<IPersistFile> file;
  result = link->QueryInterface(IID_IPersistFile, file.put_void());
  if (FAILED(result)) return result;

  result = link->SetPath(UnquotedTarget(target).c_str());
  if (FAILED(result)) AppMessageBox(L"SetPath failed!", MB_OK);
  result = link->SetDescription(description.c_str());
  if (FAILED(result)) AppMessageBox(L"SetDescription failed!", MB_OK);
  const std::wstring path = linkPath.substr(0, MAX_PATH - 1);
  if (showCommand != SW_SHOWNORMAL) result = link->SetShowCmd(showCommand);
  if (arguments) result = link->SetArguments(arguments);
  if (workingFolder) result = link->SetWorkingDirectory(workingFolder);

  result = file->Save(path.c_str(), TRUE);
  const std::wstring action = L"save shortcut " + path + L" -> " + target;
  if (SUCCEEDED(result)) {
    LogAction(action + L": ok");
    AppendLogLine(JournalPath(), kShellLink + path);
  } else {
    LogFailure(action, static_cast<DWORD>(result));
  }
  // The persist-file interface goes before the link object.
  file.reset();
  link.reset();
  return result;
}

void CreateGroupAndShortcuts() {
  const std::wstring programs = ProgramsFolder();
  const bool allUsers = installSettings.Type() == InstallType::kAllUsers;
  const std::wstring pictures = ShellFolderPath(CSIDL_MYPICTURES);
  CreateProgramGroup(programs, pictures);
  if (installSettings.desktopIcon)
    CreateProductShortcut(ShellFolderPath(allUsers ? CSIDL_COMMON_DESKTOPDIRECTORY : CSIDL_DESKTOP), pictures);
  if (installSettings.autoStart)
    CreateProductShortcut(ShellFolderPath(allUsers ? CSIDL_COMMON_STARTUP : CSIDL_STARTUP), pictures);
}
