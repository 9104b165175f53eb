#include "sys/process.h"

bool IsAbsolutePath(const std::wstring& path) {
  if (path.size() >= 3 && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/')) return true;
  return path.size() >= 3 && path[0] == L'\\' && path[1] == L'\\';
}

UniqueHandle StartProcess(const std::wstring& application, const std::wstring& commandLine,
                          const wchar_t* workingFolder) {
  if (!IsAbsolutePath(application)) {
    ::SetLastError(ERROR_BAD_PATHNAME);
    return UniqueHandle();
  }
  std::wstring buffer = commandLine;  // CreateProcessW may write into it
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(application.c_str(), buffer.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        workingFolder, &startup, &process))
    return UniqueHandle();
  UniqueHandle thread(process.hThread);
  return UniqueHandle(process.hProcess);
}
