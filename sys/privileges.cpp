#include "sys/privileges.h"

#include <cstdio>

#include "sys/handles.h"
#include "sys/safe_load.h"

// advapi32 is already mapped: the registry helpers import it.
LookupPrivilegeValueFn pLookupPrivilegeValue =
    LateBound<LookupPrivilegeValueFn>(L"advapi32.dll", "LookupPrivilegeValueW");
AdjustTokenPrivilegesFn pAdjustTokenPrivileges =
    LateBound<AdjustTokenPrivilegesFn>(L"advapi32.dll", "AdjustTokenPrivileges");
OpenProcessTokenFn pOpenProcessToken = LateBound<OpenProcessTokenFn>(L"advapi32.dll", "OpenProcessToken");

ExitWindowsFn pExitWindowsEx = ::ExitWindowsEx;

BOOL SetTokenPrivilege(HANDLE token, const wchar_t* privilege, BOOL enable) {
  if (!pLookupPrivilegeValue || !pAdjustTokenPrivileges) return FALSE;

  LUID luid = {};
  if (!pLookupPrivilegeValue(nullptr, privilege, &luid)) {
    std::printf("LookupPrivilegeValue error: %u\n", static_cast<unsigned>(::GetLastError()));
    return FALSE;
  }

  TOKEN_PRIVILEGES privileges = {};
  privileges.PrivilegeCount = 1;
  privileges.Privileges[0].Luid = luid;
  privileges.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;

  if (!pAdjustTokenPrivileges(token, FALSE, &privileges, sizeof(TOKEN_PRIVILEGES), nullptr,
                              nullptr)) {
    std::printf("AdjustTokenPrivileges error: %u\n", static_cast<unsigned>(::GetLastError()));
    return FALSE;
  }
  // The adjustment "succeeds" for a privilege the token does not hold at all.
  if (::GetLastError() == ERROR_NOT_ALL_ASSIGNED) {
    std::printf("The token does not have the specified privilege. \n");
    return FALSE;
  }
  return TRUE;
}

void RestartWindows() {
  if (pOpenProcessToken) {
    UniqueHandle token;
    if (pOpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, token.put()) && token)
      SetTokenPrivilege(token.get(), SE_SHUTDOWN_NAME, TRUE);
  }
  // Asked for even without the privilege: Windows decides, and a refusal is silent.
  pExitWindowsEx(EWX_REBOOT, SHTDN_REASON_FLAG_PLANNED | SHTDN_REASON_MAJOR_APPLICATION |
                                 SHTDN_REASON_MINOR_INSTALLATION);
}
