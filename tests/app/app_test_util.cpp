#include "tests/app/app_test_util.h"

#include <windows.h>

#include "sys/handles.h"

namespace apptest {
namespace {

constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingValue[] = L"PendingFileRenameOperations";

// The value as stored: source, target, source, target, ...
std::vector<std::wstring> PendingOperations() {
  UniqueRegKey key;
  DWORD size = 0;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_READ, key.put()) != ERROR_SUCCESS ||
      ::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
    return {};
  std::wstring data(size / sizeof(wchar_t), L'\0');
  ::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size);
  // Every entry ends with a null and the list with one more: drop that one so that empty targets survive.
  if (!data.empty() && data.back() == L'\0') data.pop_back();
  std::vector<std::wstring> entries;
  for (size_t start = 0, end; (end = data.find(L'\0', start)) != std::wstring::npos; start = end + 1)
    entries.push_back(data.substr(start, end - start));
  return entries;
}

bool IsSource(const std::wstring& entry, const std::wstring& path) {
  return _wcsicmp(entry.c_str(), (L"\\??\\" + path).c_str()) == 0;
}

}  // namespace

std::optional<std::wstring> PendingTarget(const std::wstring& source) {
  std::vector<std::wstring> entries = PendingOperations();
  for (size_t i = 0; i + 1 < entries.size(); i += 2)
    if (IsSource(entries[i], source)) return entries[i + 1];
  return std::nullopt;
}

void ForgetPending(const std::vector<std::wstring>& sources) {
  std::wstring kept;
  std::vector<std::wstring> entries = PendingOperations();
  for (size_t i = 0; i + 1 < entries.size(); i += 2) {
    bool ours = false;
    for (const std::wstring& source : sources) ours = ours || IsSource(entries[i], source);
    if (!ours) kept += entries[i] + L'\0' + entries[i + 1] + L'\0';
  }
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_ALL_ACCESS, key.put()) != ERROR_SUCCESS) return;
  if (kept.empty()) ::RegDeleteValueW(key.get(), kPendingValue);
  else
    ::RegSetValueExW(key.get(), kPendingValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(kept.c_str()),
                     static_cast<DWORD>((kept.size() + 1) * sizeof(wchar_t)));
}

}  // namespace apptest
