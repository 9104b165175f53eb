#include "uninstall/registry_cleanup.h"

#include <shlobj.h>

#include <array>
#include <cwchar>
#include <iterator>
#include <string>

#include "product/product.h"
#include "sys/action_log.h"
#include "sys/platform.h"
#include "sys/registry.h"
#include "sys/safe_load.h"

ShellChangeNotifyFn pShellChangeNotify = ::SHChangeNotify;

namespace {

constexpr DWORD kKeyNameChars = 512;
constexpr DWORD kHandlerBytes = 1024;

constexpr wchar_t kUserChoice[] = L"UserChoice";
constexpr wchar_t kNativeMessagingHosts[] = L"SOFTWARE\\Mozilla\\NativeMessagingHosts";

std::wstring Format(const wchar_t* format, const wchar_t* a, const wchar_t* b = nullptr) {
  wchar_t buffer[kKeyNameChars] = {};
  _snwprintf(buffer, kKeyNameChars - 1, format, a, b);
  return buffer;
}

// A string value of key (at most 1024 bytes); false when it cannot be read.
bool ReadHandler(HKEY key, const wchar_t* name, std::wstring& text) {
  wchar_t buffer[kHandlerBytes / sizeof(wchar_t) + 1] = {};
  DWORD size = kHandlerBytes;
  if (::RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size) != ERROR_SUCCESS)
    return false;
  text = buffer;
  return true;
}

// A key in another registry view needs RegDeleteKeyExW, which 32-bit XP lacks:
// bound late so that the program still loads there.
bool DeleteKey(HKEY root, const wchar_t* subKey, REGSAM view) {
  using RegDeleteKeyExFn = LONG(WINAPI*)(HKEY, LPCWSTR, REGSAM, DWORD);
  static const auto regDeleteKeyEx = LateBound<RegDeleteKeyExFn>(L"advapi32.dll", "RegDeleteKeyExW");
  const std::wstring what = std::wstring(L"key ") + RootName(root) + L"\\" + subKey;
  if (view && regDeleteKeyEx) return LogRegistryDeletion(regDeleteKeyEx(root, subKey, view, 0), what) == ERROR_SUCCESS;
  return LogRegistryDeletion(::RegDeleteKeyW(root, subKey), what) == ERROR_SUCCESS;
}

bool Contains(const std::wstring& text, const wchar_t* part) { return text.find(part) != std::wstring::npos; }

void RemoveVendorEntries(HKEY root, const std::wstring& productKey, const std::wstring& makerKey,
                         const std::wstring& applicationKey) {
  DeleteKeyTree(root, productKey.c_str());
  DeleteKeyIfLeaf(root, makerKey.c_str());
  DeleteKeyTree(root, applicationKey.c_str());
}

void RemoveFromEveryProfile(const std::wstring& productKey, const std::wstring& makerKey,
                            const std::wstring& applicationKey) {
  ForEachProfile([&](HKEY profile) { RemoveVendorEntries(profile, productKey, makerKey, applicationKey); });
}

void RemoveNativeMessagingHost(HKEY root) {
  REGSAM view = IsWow64() ? KEY_WOW64_64KEY : 0;
  CKey hosts;
  if (hosts.Open(root, kNativeMessagingHosts, KEY_ALL_ACCESS | view) != ERROR_SUCCESS) return;
  DeleteKeyTree(hosts.get(), kNativeMessagingHost, view);
}

struct Association {
  bool product = false;
  std::wstring saved;
};
using Associations = std::array<Association, std::size(kImageExtensions)>;

// Where the handlers live: the per-user file-extension key with its
// "Application" value, else the classes root with its default value.
bool OpenAssociationRoot(CKey& root, const wchar_t*& handlerName) {
  if (root.Open(HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\FileExts",
                KEY_ALL_ACCESS) == ERROR_SUCCESS) {
    handlerName = L"Application";
    return true;
  }
  handlerName = nullptr;
  return root.Open(HKEY_CLASSES_ROOT, nullptr, KEY_ALL_ACCESS) == ERROR_SUCCESS;
}

void SurveyAssociation(HKEY extension, const wchar_t* handlerName, Association& association) {
  std::wstring handler;
  if (!IsVistaOrLater()) {
    if (!ReadHandler(extension, handlerName, handler) || handler.empty()) return;
    if (Contains(handler, kProductExe)) {
      association.product = true;
      std::wstring previous;
      if (ReadHandler(extension, kSavedHandlerValue, previous)) association.saved = previous;
    } else {
      association.saved = handler;
    }
    return;
  }
  CKey choice;
  if (choice.Open(extension, kUserChoice, KEY_READ) == ERROR_SUCCESS &&
      ReadHandler(choice.get(), L"Progid", handler) && Contains(handler, kApplicationsTarget))
    association.product = true;
}

// True when the type was the product's and has been handed back.
bool RestoreAssociation(HKEY extension, const wchar_t* handlerName, const Association& association) {
  bool changed = false;
  if (!IsVistaOrLater()) {
    std::wstring handler;
    if (ReadHandler(extension, handlerName, handler) && Contains(handler, kProductExe)) {
      changed = true;
      if (!association.saved.empty())
        ::RegSetValueExW(extension, handlerName, 0, REG_SZ, reinterpret_cast<const BYTE*>(association.saved.c_str()),
                         static_cast<DWORD>((association.saved.size() + 1) * sizeof(wchar_t)));
      else
        LogRegistryDeletion(::RegDeleteValueW(extension, handlerName), std::wstring(L"value ") + handlerName);
    }
  } else if (association.product) {
    LogRegistryDeletion(::RegDeleteKeyW(extension, kUserChoice), std::wstring(L"key ") + kUserChoice);
    changed = true;
  }
  LogRegistryDeletion(::RegDeleteValueW(extension, kSavedHandlerValue), std::wstring(L"value ") + kSavedHandlerValue);
  return changed;
}

}  // namespace

bool DeleteKeyTree(HKEY root, const wchar_t* subKey, REGSAM extraAccess) {
  CKey key;
  if (key.Open(root, subKey, KEY_ALL_ACCESS | extraAccess) == ERROR_SUCCESS) {
    wchar_t name[kKeyNameChars] = {};
    DWORD index = 0;
    while (::RegEnumKeyW(key.get(), index, name, kKeyNameChars) == ERROR_SUCCESS) {
      // A deleted key moves the list up: the same index names the next one.
      if (!DeleteKeyTree(key.get(), name, extraAccess)) ++index;
    }
    key.Close();
  }
  return DeleteKey(root, subKey, extraAccess & (KEY_WOW64_64KEY | KEY_WOW64_32KEY));
}

void DeleteKeyIfLeaf(HKEY root, const wchar_t* subKey) {
  CKey key;
  if (key.Open(root, subKey, KEY_ALL_ACCESS) != ERROR_SUCCESS) return;
  wchar_t name[kKeyNameChars] = {};
  bool hasSubKey = ::RegEnumKeyW(key.get(), 0, name, kKeyNameChars) == ERROR_SUCCESS;
  key.Close();
  if (!hasSubKey)
    LogRegistryDeletion(::RegDeleteKeyW(root, subKey), std::wstring(L"key ") + RootName(root) + L"\\" + subKey);
}

void RemoveRegistryEntries(const wchar_t* maker, const wchar_t* productKey, const wchar_t* uninstallName,
                           const wchar_t* exeName) {
  std::wstring product = Format(L"SOFTWARE\\%ls\\%ls", maker, productKey);
  std::wstring makerKey = Format(L"SOFTWARE\\%ls", maker);
  std::wstring application = Format(L"SOFTWARE\\Classes\\Applications\\%ls", exeName);

  DeleteKeyTree(HKEY_LOCAL_MACHINE, product.c_str());
  DeleteKeyTree(HKEY_CURRENT_USER, product.c_str());
  DeleteKeyIfLeaf(HKEY_LOCAL_MACHINE, makerKey.c_str());
  DeleteKeyIfLeaf(HKEY_CURRENT_USER, makerKey.c_str());
  DeleteKeyTree(HKEY_LOCAL_MACHINE, application.c_str());
  RemoveFromEveryProfile(product, makerKey, application);

  DeleteKeyTree(HKEY_CLASSES_ROOT, kOldDocumentProgId);
  DeleteKeyTree(HKEY_CLASSES_ROOT, kProgId);

  CKey uninstall;
  if (uninstall.Open(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall",
                     KEY_ALL_ACCESS) == ERROR_SUCCESS)
    LogRegistryDeletion(::RegDeleteKeyW(uninstall.get(), uninstallName),
                        std::wstring(L"key HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\") + uninstallName);
  uninstall.Close();

  CKey appPaths;
  if (appPaths.Open(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths",
                    KEY_ALL_ACCESS) == ERROR_SUCCESS)
    DeleteKeyTree(appPaths.get(), exeName);
  appPaths.Close();

  CKey registered;
  if (registered.Open(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", KEY_ALL_ACCESS) == ERROR_SUCCESS)
    LogRegistryDeletion(::RegDeleteValueW(registered.get(), kProgId),
                        std::wstring(L"value HKLM\\SOFTWARE\\RegisteredApplications\\") + kProgId);
  registered.Close();

  RemoveNativeMessagingHost(HKEY_LOCAL_MACHINE);
  RemoveNativeMessagingHost(HKEY_CURRENT_USER);
}

void RestoreFileAssociations() {
  CKey root;
  const wchar_t* handlerName = nullptr;
  if (!OpenAssociationRoot(root, handlerName)) return;

  Associations associations;
  for (size_t i = 0; i < std::size(kImageExtensions); ++i) {
    associations[i] = Association();
    CKey extension;
    if (extension.Open(root.get(), kImageExtensions[i], KEY_ALL_ACCESS) == ERROR_SUCCESS)
      SurveyAssociation(extension.get(), handlerName, associations[i]);
  }

  bool changed = false;
  for (size_t i = 0; i < std::size(kImageExtensions); ++i) {
    CKey extension;
    if (extension.Open(root.get(), kImageExtensions[i], KEY_ALL_ACCESS) == ERROR_SUCCESS &&
        RestoreAssociation(extension.get(), handlerName, associations[i]))
      changed = true;
  }

  if (changed) pShellChangeNotify(SHCNE_ASSOCCHANGED, SHCNF_IDLIST, nullptr, nullptr);
}
