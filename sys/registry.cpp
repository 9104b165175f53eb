#include "sys/registry.h"

#include "sys/action_log.h"

LONG CKey::Open(HKEY root, const wchar_t* subkey, REGSAM access) {
  key_.reset();
  return ::RegOpenKeyExW(root, subkey, 0, access, key_.put());
}

LONG CKey::Create(HKEY root, const wchar_t* subkey) {
  key_.reset();
  return ::RegCreateKeyW(root, subkey, key_.put());
}

std::wstring ReadRegString(HKEY root, const wchar_t* subkey, const wchar_t* name) {
  // The data limit is 260 bytes, not characters: longer values read as empty.
  wchar_t buffer[MAX_PATH + 1] = {};
  CKey key;
  if (key.Open(root, subkey, KEY_READ) != ERROR_SUCCESS) return std::wstring();
  DWORD size = MAX_PATH;
  if (::RegQueryValueExW(key.get(), name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size) !=
      ERROR_SUCCESS) {
    buffer[0] = L'\0';
  }
  // Data need not be terminated; the spare slot keeps the string bounded.
  buffer[MAX_PATH / sizeof(wchar_t)] = L'\0';
  return std::wstring(buffer);
}

ULONGLONG ReadRegQword(HKEY root, const wchar_t* subkey, const wchar_t* name) {
  ULONGLONG value = 0;
  CKey key;
  if (key.Open(root, subkey, KEY_READ) != ERROR_SUCCESS) return 0;
  DWORD size = 0;
  if (::RegQueryValueExW(key.get(), name, nullptr, nullptr, nullptr, &size) == ERROR_SUCCESS &&
      size == sizeof value) {
    if (::RegQueryValueExW(key.get(), name, nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size) !=
        ERROR_SUCCESS)
      value = 0;
  }
  return value;
}

BOOL RegKeyExists(HKEY root, const wchar_t* subkey) {
  CKey key;
  return key.Open(root, subkey, KEY_READ) == ERROR_SUCCESS;
}

namespace {
BOOL WriteRegValue(HKEY root, const wchar_t* subkey, const wchar_t* name, DWORD type,
                   const void* data, DWORD size, const std::wstring& shown) {
  const std::wstring action = std::wstring(L"set registry value ") + RootName(root) + L"\\" + subkey + L"\\" +
                              (name && *name ? name : L"(default)") + L" = " + shown;
  CKey key;
  LONG status = key.Create(root, subkey);
  if (status == ERROR_SUCCESS)
    status = ::RegSetValueExW(key.get(), name, 0, type, static_cast<const BYTE*>(data), size);
  if (status != ERROR_SUCCESS) {
    LogFailure(action, static_cast<DWORD>(status));
    return FALSE;
  }
  LogAction(action);
  return TRUE;
}
}  // namespace

BOOL WriteRegString(HKEY root, const wchar_t* subkey, const wchar_t* name, const wchar_t* text) {
  DWORD size = static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t));
  return WriteRegValue(root, subkey, name, REG_SZ, text, size, L"\"" + std::wstring(text) + L"\"");
}

BOOL WriteRegDword(HKEY root, const wchar_t* subkey, const wchar_t* name, DWORD value) {
  return WriteRegValue(root, subkey, name, REG_DWORD, &value, sizeof value, L"dword " + std::to_wstring(value));
}

BOOL WriteRegBinary(HKEY root, const wchar_t* subkey, const wchar_t* name, const void* data, DWORD size) {
  return WriteRegValue(root, subkey, name, REG_BINARY, data, size, std::to_wstring(size) + L" bytes");
}

BOOL WriteRegQword(HKEY root, const wchar_t* subkey, const wchar_t* name, ULONGLONG value) {
  return WriteRegBinary(root, subkey, name, &value, sizeof value);
}

void ForEachProfile(const std::function<void(HKEY profile)>& action) {
  // Profile names are security identifiers; 512 characters hold any of them.
  constexpr DWORD kProfileNameChars = 512;
  wchar_t name[kProfileNameChars] = {};
  for (DWORD index = 0; ::RegEnumKeyW(HKEY_USERS, index, name, kProfileNameChars) == ERROR_SUCCESS; ++index) {
    CKey profile;
    if (profile.Open(HKEY_USERS, name, KEY_ALL_ACCESS) != ERROR_SUCCESS) continue;
    action(profile.get());
  }
}
