#include "sys/deferred_ops.h"

#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

#include "product/settings.h"
#include "sys/action_log.h"

namespace {
constexpr size_t kSectionChars = 16384;  // 32768 bytes
}  // namespace

BOOL AppendWininitDeletion(const wchar_t* path) {
  // The profile functions find WININIT.INI in the Windows folder by themselves.
  std::vector<wchar_t> section(kSectionChars, L'\0');
  DWORD length = ::GetPrivateProfileSectionW(L"rename", section.data(), kSectionChars, L"WININIT.INI");
  size_t pathLength = wcslen(path);
  if (2 * (length + pathLength) + 10 >= kSectionChars * sizeof(wchar_t)) {
    // No graceful way on: the list would not fit the section buffer.
    ::TerminateProcess(::GetCurrentProcess(), 3);
    std::abort();
  }
  std::wstring line = std::wstring(L"NUL=") + path;
  wmemcpy(section.data() + length, line.c_str(), line.size() + 1);
  section[length + line.size() + 1] = L'\0';
  return ::WritePrivateProfileSectionW(L"rename", section.data(), L"WININIT.INI");
}

BOOL DeleteAtReboot(const wchar_t* path) {
  const std::wstring action = std::wstring(L"schedule deletion at restart: ") + path;
  if (BOOL moved = ::MoveFileExW(path, nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)) return LogResult(moved, action);
  return LogResult(AppendWininitDeletion(path), action + L" (WININIT.INI)");
}

BOOL ReplaceAtReboot(const wchar_t* source, const wchar_t* target) {
  // Without MOVEFILE_REPLACE_EXISTING: the caller queues the target's deletion first.
  BOOL result = LogResult(::MoveFileExW(source, target, MOVEFILE_DELAY_UNTIL_REBOOT),
                          std::wstring(L"schedule replacement at restart: ") + source + L" -> " + target);
  if (!result)
    result = LogResult(AppendWininitDeletion(source),
                       std::wstring(L"schedule deletion at restart: ") + source + L" (WININIT.INI)");
  installSettings.restartNeeded = result ? 1 : 0;
  return result;
}
