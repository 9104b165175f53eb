#include "install/registration.h"

#include <windows.h>

#include <string_view>
#include <vector>

#include "install/file_install.h"
#include "product/product.h"
#include "product/settings.h"
#include "res/resource.h"
#include "sys/handles.h"
#include "sys/paths.h"
#include "sys/platform.h"
#include "sys/process.h"
#include "sys/registry.h"
#include "sys/safe_load.h"
#include "ui/strings.h"

namespace {

void DropTrailingBackslash(std::wstring& path) {
  if (!path.empty() && path.back() == L'\\') path.pop_back();
}

}  // namespace

std::wstring OpenCommand() {
  return L"\"" + JoinPath(installSettings.installDir, kProductExe) + L"\" \"%1\"";
}

std::wstring AssociationTarget() {
  return IsWindows8OrLater() ? std::wstring(kProgId) : std::wstring(kApplicationsTarget);
}

void WriteRegistryEntries() {
  const InstallSettings& s = installSettings;
  const VersionQuad& v = s.newVersion;
  const std::wstring openCommand = OpenCommand();
  const std::wstring target = AssociationTarget();
  const std::wstring productPath = JoinPath(s.installDir, kProductExe);
  const std::wstring uninstallerPath = JoinPath(s.installDir, kUninstallerExe);

  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"AllUsers", s.Type() == InstallType::kAllUsers ? L"B" : L"A");
  WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path", s.installDir.c_str());
  WriteRegString(HKEY_CLASSES_ROOT, kDocumentOpenCommandKey, nullptr, openCommand.c_str());
  for (const wchar_t* extension : kImageExtensions)
    WriteRegString(HKEY_LOCAL_MACHINE, kFileAssociationsKey, extension, target.c_str());
  WriteRegString(HKEY_LOCAL_MACHINE, kRegisteredApplicationsKey, kProgId, kCapabilitiesKey);
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPathKey, nullptr, productPath.c_str());
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPathKey, L"Path", s.installDir.c_str());

  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"Contact", L"Support");
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"DisplayName", LoadStr(IDS_PRODUCT_NAME).c_str());
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"InstallLocation", s.installDir.c_str());
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"DisplayVersion",
                 FormatStr(L"%d.%02d.%02d", v.major, v.minor, v.release).c_str());
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"VersionMajor", FormatStr(L"%d", v.major).c_str());
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"VersionMinor", FormatStr(L"%d", v.minor).c_str());
  WriteRegDword(HKEY_LOCAL_MACHINE, kUninstallKey, L"MajorVersion", v.major);
  WriteRegDword(HKEY_LOCAL_MACHINE, kUninstallKey, L"MinorVersion", v.minor);
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"Publisher", kPublisher);
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"UninstallString", uninstallerPath.c_str());
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"URLInfoAbout", kMakerHomePage);
  WriteRegString(HKEY_CLASSES_ROOT, kApplicationOpenCommandKey, nullptr, openCommand.c_str());

  // What deployment tools and the list of installed programs read besides:
  // the uninstaller is silent without arguments.
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"QuietUninstallString", (L"\"" + uninstallerPath + L"\"").c_str());
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"DisplayIcon", productPath.c_str());
  WriteRegDword(HKEY_LOCAL_MACHINE, kUninstallKey, L"EstimatedSize", FolderSizeKiB(s.installDir));
  WriteRegString(HKEY_LOCAL_MACHINE, kUninstallKey, L"InstallDate", TodayAsYyyymmdd().c_str());
  WriteRegDword(HKEY_LOCAL_MACHINE, kUninstallKey, L"NoModify", 1);
  WriteRegDword(HKEY_LOCAL_MACHINE, kUninstallKey, L"NoRepair", 1);
}

DWORD FolderSizeKiB(const std::wstring& folder) {
  ULONGLONG bytes = 0;
  std::vector<std::wstring> pending = {folder};
  while (!pending.empty()) {
    const std::wstring current = pending.back();
    pending.pop_back();
    WIN32_FIND_DATAW found;
    UniqueFindHandle find(::FindFirstFileW((current + L"\\*").c_str(), &found));
    if (!find) continue;
    do {
      const std::wstring_view name(found.cFileName);
      if (name == L"." || name == L"..") continue;
      if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
        pending.push_back(current + L"\\" + found.cFileName);
      else
        bytes += (static_cast<ULONGLONG>(found.nFileSizeHigh) << 32) | found.nFileSizeLow;
    } while (::FindNextFileW(find.get(), &found));
  }
  const ULONGLONG kib = (bytes + 1023) / 1024;
  return kib > MAXDWORD ? MAXDWORD : static_cast<DWORD>(kib);
}

std::wstring TodayAsYyyymmdd() {
  SYSTEMTIME today;
  ::GetLocalTime(&today);
  return FormatStr(L"%04u%02u%02u", today.wYear, today.wMonth, today.wDay);
}

std::wstring ThumbnailExtensionIn(const std::wstring& folder, BOOL wow64, BOOL vistaOrLater) {
  if (wow64) return vistaOrLater ? folder + kThumbDll64 : std::wstring();
  return folder + (vistaOrLater ? kThumbDll32 : kThumbDllXP32);
}

std::wstring ThumbnailExtensionPath() {
  return ThumbnailExtensionIn(JoinFolder(installSettings.installDir), IsWow64(), IsVistaOrLater());
}

bool RegisterThumbnailExtension() {
  std::wstring dll = ThumbnailExtensionPath();
  if (dll.size() <= 4) return false;
  std::wstring commandLine = std::wstring(kRegsvr32Exe) + L" /s \"" + dll + L"\"";
  return RunAndWait(SystemFolderPath(kRegsvr32Exe).c_str(), commandLine.c_str(), installSettings.installDir.c_str(),
                    0) != FALSE;
}

void ImportSettings() {
  if (installSettings.sfxFolder.empty()) return;
  InstallOneFile(kSideSettingsIni, installSettings.sfxFolder, installSettings.installDir, nullptr);
  InstallOneFile(kSideSettingsReg, installSettings.sfxFolder, installSettings.installDir, nullptr);
}

bool StartProductRegistration() {
  const std::wstring product = JoinPath(installSettings.installDir, kProductExe);
  const std::wstring commandLine = L"\"" + product + L"\" -regonly";
  return RunAndWait(product.c_str(), commandLine.c_str(), installSettings.installDir.c_str(), 0) != FALSE;
}

std::wstring ExistingInstallFolder() {
  std::wstring folder = ReadRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path");
  if (folder.empty()) {
    std::wstring productPath = ReadRegString(HKEY_LOCAL_MACHINE, kAppPathKey, nullptr);
    size_t at = productPath.find(std::wstring(L"\\") + kProductExe);
    if (at != std::wstring::npos) folder = productPath.substr(0, at);
  }
  DropTrailingBackslash(folder);
  return folder;
}
