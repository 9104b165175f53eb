#include "sys/action_log.h"

#include <cwchar>

#include "sys/handles.h"

namespace {

struct ActionLog {
  UniqueFileHandle file;
  std::wstring path;
};

ActionLog& Log() {
  static ActionLog log;
  return log;
}

std::string Utf8(const std::wstring& text) {
  if (text.empty()) return std::string();
  int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                   nullptr, nullptr);
  std::string bytes(size > 0 ? size : 0, '\0');
  if (size > 0)
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(), size, nullptr,
                          nullptr);
  return bytes;
}

std::wstring SystemText(DWORD error) {
  wchar_t* buffer = nullptr;
  DWORD length = ::FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
      0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
  std::wstring text(buffer ? buffer : L"", length);
  if (buffer) ::LocalFree(buffer);
  while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n' || text.back() == L' ')) text.pop_back();
  return text;
}

}  // namespace

bool OpenActionLog(const std::wstring& path) {
  wchar_t full[MAX_PATH] = {};
  DWORD length = ::GetFullPathNameW(path.c_str(), MAX_PATH, full, nullptr);
  if (length == 0 || length >= MAX_PATH) return false;
  // Appending keeps what an earlier run (or the uninstaller that started the
  // worker) wrote; each write lands at the end, whoever else writes.
  UniqueFileHandle file(::CreateFileW(full, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  Log().file = std::move(file);
  Log().path = full;
  return true;
}

const std::wstring& ActionLogPath() { return Log().path; }

void LogAction(const std::wstring& text) {
  if (!Log().file) return;
  const DWORD error = ::GetLastError();
  SYSTEMTIME now;
  ::GetLocalTime(&now);
  wchar_t stamp[32];
  std::swprintf(stamp, 32, L"%04u-%02u-%02u %02u:%02u:%02u.%03u ", now.wYear, now.wMonth, now.wDay, now.wHour,
                now.wMinute, now.wSecond, now.wMilliseconds);
  std::wstring line = stamp + text;
  for (wchar_t& c : line)
    if (c == L'\r' || c == L'\n') c = L' ';  // one line per action, whatever the text holds
  std::string bytes = Utf8(line + L"\r\n");
  DWORD written = 0;
  ::WriteFile(Log().file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  ::SetLastError(error);
}

void LogFailure(const std::wstring& text, DWORD error) {
  if (!Log().file) return;
  LogAction(text + L": failed, error " + std::to_wstring(error) + L": " + SystemText(error));
  ::SetLastError(error);
}

BOOL LogResult(BOOL ok, const std::wstring& text) {
  const DWORD error = ::GetLastError();
  if (ok)
    LogAction(text + L": ok");
  else
    LogFailure(text, error);
  ::SetLastError(error);
  return ok;
}

namespace {
bool NothingToDo(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND || error == ERROR_ALREADY_EXISTS;
}
BOOL LogUnlessNothingToDo(BOOL ok, const std::wstring& text) {
  if (!ok && NothingToDo(::GetLastError())) return ok;
  return LogResult(ok, text);
}
}  // namespace

BOOL LoggedDeleteFile(const std::wstring& path) {
  return LogUnlessNothingToDo(::DeleteFileW(path.c_str()), L"delete file " + path);
}

BOOL LoggedRemoveDirectory(const std::wstring& path) {
  // A folder that still holds something is left alone, which is no action.
  BOOL removed = ::RemoveDirectoryW(path.c_str());
  if (!removed && ::GetLastError() == ERROR_DIR_NOT_EMPTY) return removed;
  return LogUnlessNothingToDo(removed, L"remove folder " + path);
}

BOOL LoggedCreateDirectory(const std::wstring& path) {
  return LogUnlessNothingToDo(::CreateDirectoryW(path.c_str(), nullptr), L"make folder " + path);
}

BOOL LoggedCopyFile(const std::wstring& source, const std::wstring& target) {
  return LogResult(::CopyFileW(source.c_str(), target.c_str(), FALSE), L"copy file " + source + L" -> " + target);
}

void LogOutcomeLine(const std::wstring& outcome, bool restartNeeded, int exitCode) {
  LogAction(L"outcome: " + outcome + L"; restart needed: " + (restartNeeded ? L"yes" : L"no") + L"; exit code " +
            std::to_wstring(exitCode));
}

LONG LogRegistryDeletion(LONG status, const std::wstring& what) {
  if (status == ERROR_SUCCESS)
    LogAction(L"delete registry " + what + L": ok");
  else if (status != ERROR_FILE_NOT_FOUND)
    LogFailure(L"delete registry " + what, static_cast<DWORD>(status));
  return status;
}

const wchar_t* RootName(HKEY root) {
  if (root == HKEY_LOCAL_MACHINE) return L"HKLM";
  if (root == HKEY_CURRENT_USER) return L"HKCU";
  if (root == HKEY_CLASSES_ROOT) return L"HKCR";
  if (root == HKEY_USERS) return L"HKU";
  return L"(key)";
}
