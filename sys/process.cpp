#include "sys/process.h"

#include "sys/action_log.h"

bool IsAbsolutePath(const std::wstring& path) {
  if (path.size() >= 3 && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/')) return true;
  return path.size() >= 3 && path[0] == L'\\' && path[1] == L'\\';
}

UniqueHandle StartProcess(const std::wstring& application, const std::wstring& commandLine,
                          const wchar_t* workingFolder) {
  const std::wstring action = L"start " + application + L" with command line: " + commandLine;
  if (!IsAbsolutePath(application)) {
    LogFailure(action, ERROR_BAD_PATHNAME);
    ::SetLastError(ERROR_BAD_PATHNAME);
    return UniqueHandle();
  }
  std::wstring buffer = commandLine;  // CreateProcessW may write into it
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!LogResult(::CreateProcessW(application.c_str(), buffer.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                  workingFolder, &startup, &process),
                 action))
    return UniqueHandle();
  UniqueHandle thread(process.hThread);
  return UniqueHandle(process.hProcess);
}
