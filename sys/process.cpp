#include "sys/process.h"

#include "product/settings.h"
#include "sys/action_log.h"

namespace {
constexpr size_t kCommandChars = 520;
}  // namespace

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

BOOL RunAndWait(const wchar_t* application, const wchar_t* commandLine, const wchar_t* workingFolder,
                DWORD timeoutMs) {
  // The command line always went through a 520-character buffer.
  std::wstring text(commandLine);
  if (text.size() > kCommandChars - 1) text.resize(kCommandChars - 1);
  if (!workingFolder)
    workingFolder = installSettings.installDir.empty() ? nullptr : installSettings.installDir.c_str();
  UniqueHandle process = StartProcess(application, text, workingFolder);
  if (!process) return 0;
  if (timeoutMs != 0) {
    DWORD code = STILL_ACTIVE;
    if (::WaitForSingleObject(process.get(), timeoutMs) == WAIT_OBJECT_0) ::GetExitCodeProcess(process.get(), &code);
    LogAction(std::wstring(application) +
              (code == STILL_ACTIVE ? L": still running after " + std::to_wstring(timeoutMs) + L" ms, left running"
                                    : L": ended with exit code " + std::to_wstring(code)));
  }
  return TRUE;
}
