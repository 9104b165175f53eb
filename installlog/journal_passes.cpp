#include "installlog/journal_passes.h"

#include <windows.h>

#include <string_view>
#include <vector>

#include "installlog/install_log.h"
#include "sys/action_log.h"
#include "sys/deferred_ops.h"
#include "sys/handles.h"
#include "sys/paths.h"

namespace {

constexpr const wchar_t* kRemovedFileKinds[] = {kFileCopy,      kFileCopyX64, kFileCopyInd,
                                                kFileCopyPrt,   kFileOverwrite, kFileDel};

// What names in folder begin with: an empty folder is the current one.
std::wstring FolderPrefix(const std::wstring& folder) { return folder.empty() ? folder : JoinFolder(folder); }

void RemoveFolderAndEmptyParents(std::wstring folder) {
  while (LoggedRemoveDirectory(folder)) folder = ParentFolder(folder);
}

void RemoveFileEntries(LogReader& reader, const std::wstring& installFolder, const wchar_t* onlyPrefix) {
  std::vector<const wchar_t*> kinds;
  for (const wchar_t* kind : kRemovedFileKinds)
    if (!onlyPrefix || std::wstring_view(kind) == onlyPrefix) kinds.push_back(kind);
  ForEachEntry(reader, kinds, [&](const wchar_t* kind, const std::wstring& argument) {
    std::wstring base = kind == kFileCopyPrt ? ParentFolder(installFolder) : installFolder;
    DeleteMatchingFiles(base, SplitRenaming(CutComment(argument)).target);
  });
}

void RemoveMadeFolders(LogReader& reader, const std::wstring& installFolder) {
  ForEachEntry(reader, {kMakeDir}, [&](const wchar_t*, const std::wstring& argument) {
    std::wstring folder = JoinPath(installFolder, argument);
    if (!LoggedRemoveDirectory(folder)) DeleteAtReboot(folder.c_str());
  });
}

}  // namespace

int DeleteMatchingFiles(const std::wstring& folder, const std::wstring& pattern) {
  std::wstring base = FolderPrefix(folder);
  size_t lastSlash = pattern.rfind(L'\\');
  if (lastSlash != std::wstring::npos) base += pattern.substr(0, lastSlash + 1);
  WIN32_FIND_DATAW found;
  UniqueFindHandle search(::FindFirstFileW((FolderPrefix(folder) + pattern).c_str(), &found));
  if (!search) return 0;
  int deleted = 0;
  do {
    std::wstring_view name(found.cFileName);
    if (name == L"." || name == L"..") continue;
    std::wstring path = base + found.cFileName;
    // Only a file that is read-only or hidden needs the extra call.
    const DWORD cleared = found.dwFileAttributes & ~(FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    if (cleared != found.dwFileAttributes) ::SetFileAttributesW(path.c_str(), cleared);
    if (LoggedDeleteFile(path))
      ++deleted;
    else
      DeleteAtReboot(path.c_str());
  } while (::FindNextFileW(search.get(), &found));
  return deleted;
}

void RemoveLoggedLinks(const std::wstring& logPath) {
  LogReader reader(logPath);
  if (!reader.IsOpen()) return;
  ForEachEntry(reader, {kShellLink}, [](const wchar_t*, const std::wstring& link) { LoggedDeleteFile(link); });
  reader.Rewind();
  ForEachEntry(reader, {kMadeDir},
               [](const wchar_t*, const std::wstring& folder) { RemoveFolderAndEmptyParents(folder); });
}

void RemoveLoggedFiles(const std::wstring& logPath, const std::wstring& installFolder,
                       const wchar_t* onlyPrefix) {
  LogReader reader(logPath);
  if (!reader.IsOpen()) return;
  RemoveFileEntries(reader, installFolder, onlyPrefix);
  reader.Rewind();
  RemoveMadeFolders(reader, installFolder);
}
