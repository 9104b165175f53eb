#include "sys/platform.h"

#include <shlobj.h>
#include <tlhelp32.h>

#include "sys/handles.h"
#include "sys/registry.h"
#include "sys/safe_load.h"

OSVERSIONINFOEXW windowsVersion = {};
IsWow64ProcessFn pIsWow64Process = nullptr;

namespace {

using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOEXW*);
using GetModuleFileNameExFn = DWORD(WINAPI*)(HANDLE, HMODULE, LPWSTR, DWORD);

// Filled before anything else asks: the version tests of install and removal
// and the WOW64 test rely on it.
struct PlatformFacts {
  PlatformFacts() {
    pIsWow64Process = LateBound<IsWow64ProcessFn>(L"kernel32", "IsWow64Process");
    ReadWindowsVersion(&windowsVersion);
  }
} platformFacts;

struct ShellFolderFallback {
  int csidl;
  const wchar_t* valueName;
  HKEY hive;
};

const ShellFolderFallback kFallbacks[] = {
    {CSIDL_DESKTOP, L"Desktop", HKEY_CURRENT_USER},
    {CSIDL_PROGRAMS, L"Programs", HKEY_CURRENT_USER},
    {CSIDL_PERSONAL, L"Personal", HKEY_CURRENT_USER},
    {CSIDL_STARTUP, L"Startup", HKEY_CURRENT_USER},
    {CSIDL_COMMON_PROGRAMS, L"Common Programs", HKEY_LOCAL_MACHINE},
    {CSIDL_COMMON_STARTUP, L"Common Startup", HKEY_LOCAL_MACHINE},
    {CSIDL_COMMON_DESKTOPDIRECTORY, L"Common Desktop", HKEY_LOCAL_MACHINE},
    {CSIDL_APPDATA, L"AppData", HKEY_CURRENT_USER},
    {CSIDL_COMMON_APPDATA, L"Common AppData", HKEY_LOCAL_MACHINE},
    {CSIDL_MYPICTURES, L"MyPictures", HKEY_CURRENT_USER},
    {CSIDL_COMMON_DOCUMENTS, L"Common Documents", HKEY_LOCAL_MACHINE},
    {CSIDL_COMMON_PICTURES, L"CommonPictures", HKEY_LOCAL_MACHINE},
};

constexpr wchar_t kShellFoldersKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";

}  // namespace

std::wstring ShellFolderFromRegistry(int csidl) {
  // A selector without an entry reads the key's default value of the user's hive.
  HKEY hive = HKEY_CURRENT_USER;
  const wchar_t* valueName = nullptr;
  for (const auto& fallback : kFallbacks) {
    if (fallback.csidl == csidl) {
      hive = fallback.hive;
      valueName = fallback.valueName;
      break;
    }
  }
  return ReadRegString(hive, kShellFoldersKey, valueName);
}

std::wstring ShellFolderPath(int csidl) {
  wchar_t path[MAX_PATH] = {};
  if (SUCCEEDED(::SHGetFolderPathW(nullptr, csidl | CSIDL_FLAG_CREATE, nullptr, SHGFP_TYPE_CURRENT, path)))
    return path;
  return ShellFolderFromRegistry(csidl);
}

BOOL ReadWindowsVersion(OSVERSIONINFOEXW* record) {
  ZeroMemory(record, sizeof *record);
  record->dwOSVersionInfoSize = sizeof *record;
  auto rtlGetVersion = LateBound<RtlGetVersionFn>(L"ntdll.dll", "RtlGetVersion");
  if (!rtlGetVersion) return FALSE;
  return rtlGetVersion(record) == 0;
}

BOOL IsVistaOrLater() { return windowsVersion.dwMajorVersion >= 6; }

BOOL IsWindows8OrLater() {
  return windowsVersion.dwMajorVersion > 6 ||
         (windowsVersion.dwMajorVersion == 6 && windowsVersion.dwMinorVersion >= 2);
}

BOOL IsWow64() { return IsProcessWow64(nullptr); }

BOOL IsProcessWow64(HANDLE process) {
  // Older systems lack the function: it was looked up, not imported.
  if (!pIsWow64Process) return FALSE;
  BOOL wow64 = FALSE;
  pIsWow64Process(process ? process : ::GetCurrentProcess(), &wow64);
  return wow64;
}

std::wstring ProgramFilesDir() {
  std::wstring folder =
      ReadRegString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion", L"ProgramFilesDir");
  if (folder.empty()) {
    wchar_t windows[MAX_PATH] = {};
    ::GetWindowsDirectoryW(windows, MAX_PATH);
    folder = windows;
    size_t slash = folder.find(L'\\');
    folder = (slash == std::wstring::npos ? std::wstring() : folder.substr(0, slash + 1)) + L"Program Files";
  }
  if (!folder.empty() && folder.back() == L'\\') folder.pop_back();
  return folder;
}

DWORD ParentProcessId(wchar_t* path, DWORD size) {
  UniqueFileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return 0;
  DWORD parent = 0;
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more; more = ::Process32NextW(snapshot.get(), &entry)) {
    if (entry.th32ProcessID == ::GetCurrentProcessId()) {
      parent = entry.th32ParentProcessID;
      break;
    }
  }
  if (!path || size == 0) return parent;

  // Windows 7 has it in kernel32; earlier systems only in psapi.
  auto moduleFileName = LateBound<GetModuleFileNameExFn>(L"kernel32.dll", "K32GetModuleFileNameExW");
  UniqueModule psapi;
  if (!moduleFileName) {
    psapi.reset(LoadSystemLibrary(L"Psapi.dll"));
    moduleFileName = LateBound<GetModuleFileNameExFn>(psapi.get(), "GetModuleFileNameExW");
    if (!moduleFileName) return parent;
  }
  UniqueHandle process(::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, parent));
  if (process) moduleFileName(process.get(), nullptr, path, size);
  return parent;
}
