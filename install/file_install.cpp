#include "install/file_install.h"

#include <windows.h>

#include <cwchar>

#include "installlog/install_log.h"
#include "product/settings.h"
#include "sys/action_log.h"
#include "sys/deferred_ops.h"
#include "sys/handles.h"
#include "sys/paths.h"
#include "sys/platform.h"
#include "sys/safe_load.h"

namespace {

std::wstring ForwardToBackslashes(std::wstring path) {
  for (wchar_t& c : path)
    if (c == L'/') c = L'\\';
  return path;
}

// True when the system already has the entry's DLL. Only the system folder is
// asked, and only as data: a same-named DLL planted beside setup (or the
// package's own copy) is never found, and no DLL's code runs.
bool SystemHasLibrary(const std::wstring& argument) {
  const std::wstring name = SplitRenaming(argument).source;
  if (!SystemFolderHasLibrary(name)) return false;
  LogAction(L"skip file " + name + L": the system folder has it");
  return true;
}

void CopyEntry(const std::wstring& argument, const std::wstring& targetFolder) {
  if (argument.find(L'>') == std::wstring::npos) {
    CopyMatchingFiles(argument, installSettings.sourceDir, targetFolder);
    return;
  }
  FileArgument names = SplitRenaming(argument);
  InstallOneFile(names.source.c_str(), installSettings.sourceDir, targetFolder,
                 names.target.c_str());
}

// Creates every level of folder; levels that exist fail harmlessly.
void CreateFolderChain(const std::wstring& folder) {
  static const wchar_t kTrimmed[] = L" \t\r\n\\";
  size_t first = folder.find_first_not_of(kTrimmed);
  if (first == std::wstring::npos) return;
  size_t last = folder.find_last_not_of(kTrimmed);
  std::wstring trimmed = folder.substr(first, last - first + 1);
  for (size_t slash = trimmed.find(L'\\', 1); slash != std::wstring::npos;
       slash = trimmed.find(L'\\', slash + 1))
    LoggedCreateDirectory(trimmed.substr(0, slash));
  LoggedCreateDirectory(trimmed);
}

}  // namespace

void RunInstallScript(const std::wstring& scriptPath) {
  const BOOL wow64 = IsWow64();
  LogReader script(scriptPath);
  if (!script.IsOpen()) return;
  const bool portable = installSettings.Type() == InstallType::kPortable;
  const std::wstring& installDir = installSettings.installDir;
  // The kinds are told apart by their prefixes: a line is an entry of one at most.
  ForEachEntry(script, {kFileCopy, kFileCopyX64, kFileCopyPrt, kFileCopyInd, kMakeDir},
               [&](const wchar_t* kind, const std::wstring& argument) {
                 if (kind == kFileCopy) {
                   CopyEntry(argument, installDir);
                 } else if (kind == kFileCopyX64) {
                   if (wow64 || portable) CopyEntry(argument, installDir);
                 } else if (kind == kFileCopyPrt) {
                   if (portable) CopyEntry(argument, ParentFolder(installDir));
                 } else if (kind == kFileCopyInd) {
                   if (portable || !SystemHasLibrary(argument)) CopyEntry(argument, installDir);
                 } else {
                   LoggedCreateDirectory(JoinPath(installDir, argument));
                 }
               });
}

int CopyMatchingFiles(const std::wstring& pattern, const std::wstring& sourceFolder,
                      const std::wstring& targetFolder) {
  const std::wstring searchPath = JoinFolder(sourceFolder) + pattern;
  WIN32_FIND_DATAW found;
  UniqueFindHandle find(::FindFirstFileW(searchPath.c_str(), &found));
  if (!find) return 0;

  // A sub-folder in the pattern lands in the same sub-folder of the target.
  std::wstring target = ForwardToBackslashes(JoinFolder(ForwardToBackslashes(targetFolder)) + pattern);
  target.erase(target.rfind(L'\\') + 1);
  if (!PathExists(target)) CreateFolderChain(target);

  std::wstring source = sourceFolder;
  if (pattern.find(L'\\') != std::wstring::npos) source = searchPath.substr(0, searchPath.rfind(L'\\'));

  int copied = 0;
  do {
    if (std::wcscmp(found.cFileName, L".") == 0 || std::wcscmp(found.cFileName, L"..") == 0) continue;
    if (!InstallOneFile(found.cFileName, source, target, nullptr)) break;
    ++copied;
  } while (::FindNextFileW(find.get(), &found));
  return copied;
}

int InstallOneFile(const wchar_t* name, const std::wstring& sourceFolder,
                   const std::wstring& targetFolder, const wchar_t* targetName) {
  const std::wstring source = JoinFolder(sourceFolder);
  const std::wstring target = JoinFolder(targetFolder);
  const bool sameFolder = ::_wcsicmp(source.c_str(), target.c_str()) == 0;
  if (sameFolder && !targetName) {
    LogAction(L"skip file " + source + name + L": source and target folder are the same");
    return 1;
  }

  const std::wstring src = source + name;
  if (!PathExists(src)) {
    LogFailure(L"copy file " + src, ERROR_FILE_NOT_FOUND);
    return 0;
  }
  const std::wstring dst = target + (targetName ? targetName : name);

  if (sameFolder) {
    if (!PathExists(src)) return PathExists(dst) ? 1 : 0;
    if (PathExists(dst) && !LoggedDeleteFile(dst)) return 1;
  }

  if (PathExists(dst)) {
    DWORD attributes = ::GetFileAttributesW(dst.c_str());
    ::SetFileAttributesW(dst.c_str(), attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY |
                                                                      FILE_ATTRIBUTE_HIDDEN));
    if (!LoggedDeleteFile(dst)) {
      // In use: move it aside, or failing that replace it at the next restart.
      std::wstring old = dst + L".old";
      if (PathExists(old) && !LoggedDeleteFile(old)) {
        DeleteAtReboot(old.c_str());
        old += L"2";
        LoggedDeleteFile(old);
      }
      if (LogResult(::MoveFileW(dst.c_str(), old.c_str()), L"rename aside " + dst + L" -> " + old)) {
        DeleteAtReboot(old.c_str());
      } else {
        // The deferred move does not replace a file, so the deletion of the
        // target is queued first.
        DeleteAtReboot(dst.c_str());
        std::wstring fresh = dst + L".new";
        LoggedDeleteFile(fresh);
        if (LoggedCopyFile(src, fresh)) ReplaceAtReboot(fresh.c_str(), dst.c_str());
      }
    }
  }
  return LoggedCopyFile(src, dst) ? 1 : 0;
}
