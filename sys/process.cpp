#include "sys/process.h"

#include "product/settings.h"

namespace {
constexpr size_t kCommandChars = 520;
}  // namespace

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

BOOL RunAndWait(const wchar_t* application, const wchar_t* commandLine, const wchar_t* workingFolder,
                DWORD timeoutMs) {
  // The command line always went through a 520-character buffer.
  std::wstring text(commandLine);
  if (text.size() > kCommandChars - 1) text.resize(kCommandChars - 1);
  if (!workingFolder)
    workingFolder = installSettings.installDir.empty() ? nullptr : installSettings.installDir.c_str();
  UniqueHandle process = StartProcess(application, text, workingFolder);
  if (!process) return 0;
  if (timeoutMs != 0) ::WaitForSingleObject(process.get(), timeoutMs);
  return TRUE;
}
