#include "tests/app/app_test_util.h"

#include <windows.h>

namespace apptest {
namespace {

constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingValue[] = L"PendingFileRenameOperations";

// The value as stored: source, target, source, target, ...
std::vector<std::wstring> PendingOperations() {
  DWORD size = 0;
  if (::RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingValue, RRF_RT_REG_MULTI_SZ, nullptr, nullptr,
                     &size) != ERROR_SUCCESS)
    return {};
  std::wstring data(size / sizeof(wchar_t), L'\0');
  ::RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingValue, RRF_RT_REG_MULTI_SZ, nullptr, data.data(), &size);
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
  if (kept.empty()) ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingValue);
  else
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingValue, REG_MULTI_SZ, kept.c_str(),
                      static_cast<DWORD>((kept.size() + 1) * sizeof(wchar_t)));
}

}  // namespace apptest
