#include "sys/safe_load.h"

#include "sys/paths.h"

void RestrictDllSearch() {
  // Windows 8, and 7 with its security update; looked up so that older
  // systems still start.
  using SetDefaultDllDirectoriesFn = BOOL(WINAPI*)(DWORD);
  using SetSearchPathModeFn = BOOL(WINAPI*)(DWORD);
  if (auto restrict = LateBound<SetDefaultDllDirectoriesFn>(L"kernel32.dll", "SetDefaultDllDirectories"))
    if (restrict(LOAD_LIBRARY_SEARCH_SYSTEM32)) return;
  ::SetDllDirectoryW(L"");
  if (auto safeMode = LateBound<SetSearchPathModeFn>(L"kernel32.dll", "SetSearchPathMode"))
    safeMode(BASE_SEARCH_PATH_ENABLE_SAFE_SEARCHMODE | BASE_SEARCH_PATH_PERMANENT);
}

std::wstring SystemFolderPath(const wchar_t* name) {
  wchar_t folder[MAX_PATH] = {};
  UINT length = ::GetSystemDirectoryW(folder, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return std::wstring();
  return JoinPath(std::wstring(folder, length), name);
}

HMODULE LoadSystemLibrary(const wchar_t* name) {
  if (HMODULE module = ::LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)) return module;
  // Systems without the search flags refuse them as an invalid parameter:
  // there a full path keeps the search out.
  if (::GetLastError() != ERROR_INVALID_PARAMETER) return nullptr;
  const std::wstring path = SystemFolderPath(name);
  return path.empty() ? nullptr : ::LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

bool SystemFolderHasLibrary(const std::wstring& name) {
  const std::wstring path = SystemFolderPath(name.c_str());
  if (path.empty()) return false;
  HMODULE image = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  if (!image) return false;
  ::FreeLibrary(image);
  return true;
}
