#include "pkglint/package_lint.h"

#include <windows.h>

#include <cwchar>
#include <set>
#include <utility>

#include "installlog/install_log.h"
#include "product/product.h"
#include "sys/handles.h"
#include "sys/paths.h"

namespace {

constexpr const wchar_t* kScript = kJournalName;
constexpr unsigned char kUtf16LeMark[] = {0xFF, 0xFE};
constexpr wchar_t kHighestControl = 32;

struct EntryKind {
  const wchar_t* prefix;
  bool copies;        // copied from the package at install
  bool alwaysActed;   // on every install type and system
  bool journalOnly;   // written by setup itself, never by a package
};
const EntryKind kKinds[] = {
    {kFileCopy, true, true, false},       {kFileCopyX64, true, false, false},
    {kFileCopyPrt, true, false, false},   {kFileCopyInd, true, false, false},
    {kFileOverwrite, false, false, false}, {kFileDel, false, false, false},
    {kMakeDir, false, false, false},      {kShellLink, false, false, true},
    {kMadeDir, false, false, true},
};

bool HasWildcard(const std::wstring& name) { return name.find_first_of(L"*?") != std::wstring::npos; }

std::wstring Quoted(const std::wstring& text) { return L"\"" + text + L"\""; }

// True when the 8-bit text of line is also valid UTF-8 for characters that
// are not ASCII: typed as UTF-8 ("ü"), read by setup as two 8-bit characters.
bool LooksLikeUtf8(const std::wstring& line) {
  bool above127 = false;
  for (wchar_t c : line) {
    if (c > 0xFF) return false;
    if (c > 0x7F) above127 = true;
  }
  if (!above127) return false;
  std::string bytes = EncodeLogText(line);
  return ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), static_cast<int>(bytes.size()),
                               nullptr, 0) > 0;
}

class ScriptLinter {
 public:
  ScriptLinter(const std::wstring& packageDir, std::vector<Finding>& findings)
      : packageDir_(packageDir), findings_(findings) {}

  void Run() {
    LogReader reader(packageDir_ + L"\\" + kScript);
    std::wstring line;
    while (reader.Next(line)) {
      if (reader.Continued()) CheckContinuation(line, reader.LineNumber());
      CheckLine(line, reader.LineNumber());
    }
    if (!installedNames_.count(LowerCase(kUninstallerExe)))
      Add(Severity::kError, 0,
          L"no \"File Copy: \" entry installs QmkUnInst.exe, so the installed product could not be removed "
          L"(the usual entry: \"File Copy: setup.exe > QmkUnInst.exe\")");
    CheckFolderOrder();
  }

 private:
  void Add(Severity severity, size_t line, const std::wstring& text) {
    findings_.push_back({severity, kScript, line, text});
  }

  void CheckContinuation(const std::wstring& piece, size_t number) {
    if (number == lastLongLine_) return;
    for (wchar_t c : piece)
      if (c > kHighestControl) {
        lastLongLine_ = number;
        Add(Severity::kError, number,
            L"longer than the " + std::to_wstring(kLogLineLimit) +
                L" characters setup reads at a time: it reads the rest, from " + Quoted(piece.substr(0, 20)) +
                L", as a line of its own");
        return;
      }
  }

  void CheckLine(const std::wstring& line, size_t number) {
    std::wstring argument;
    for (const EntryKind& kind : kKinds) {
      if (!EntryArgument(line, kind.prefix, argument)) continue;
      if (LooksLikeUtf8(line))
        Add(Severity::kError, number,
            L"holds UTF-8 text, which setup and its 8-bit journal read as other characters (" + Quoted(argument) +
                L"): save the script as 8-bit text");
      if (kind.journalOnly)
        Add(Severity::kWarning, number,
            Quoted(kind.prefix) + L" lines are setup's own journal lines: in a package the uninstaller "
                                  L"deletes the path named");
      if (kind.copies) CheckCopy(kind, argument, number);
      if (kind.prefix == kMakeDir) folders_.emplace_back(number, argument);
      return;
    }
    CheckNearMiss(line, number);
  }

  // A line that was meant as an entry but that setup takes for a comment.
  void CheckNearMiss(const std::wstring& line, size_t number) {
    size_t start = 0;
    while (start < line.size() && line[start] <= kHighestControl) ++start;
    const std::wstring text = line.substr(start);
    for (const EntryKind& kind : kKinds) {
      const std::wstring prefix = kind.prefix;
      const std::wstring core = prefix.substr(0, prefix.size() - 1);  // without its blank
      if (_wcsnicmp(text.c_str(), core.c_str(), core.size()) != 0) continue;
      std::wstring reason;
      if (start > 0)
        reason = L"it begins with a blank";
      else if (text.compare(0, core.size(), core) != 0)
        reason = L"the kind is written in another case";
      else if (text.size() == core.size())
        reason = L"it holds the kind alone, with no name";
      else
        reason = L"the kind lacks its blank after the colon";
      Add(Severity::kError, number,
          L"setup ignores this line (" + reason + L"): an entry begins with exactly " + Quoted(prefix));
      return;
    }
  }

  void CheckCopy(const EntryKind& kind, const std::wstring& argument, size_t number) {
    // The copy pass tells a renaming entry by its '>' alone.
    if (argument.find(L'>') != std::wstring::npos) {
      FileArgument names = SplitRenaming(argument);
      if (HasWildcard(names.source) || HasWildcard(names.target)) {
        Add(Severity::kError, number,
            L"a renaming entry names one file, so setup takes the wildcard literally and copies nothing");
        return;
      }
      if (CheckSource(names.source, number) && kind.alwaysActed) installedNames_.insert(LowerCase(names.target));
      return;
    }
    WIN32_FIND_DATAW found;
    UniqueFindHandle find(::FindFirstFileW((packageDir_ + L"\\" + argument).c_str(), &found));
    if (!find) {
      Add(Severity::kError, number,
          Quoted(argument) + (HasWildcard(argument) ? L" matches nothing in the package" : L" is not in the package"));
      return;
    }
    const bool inSubFolder = argument.find(L'\\') != std::wstring::npos;
    do {
      if (std::wcscmp(found.cFileName, L".") == 0 || std::wcscmp(found.cFileName, L"..") == 0) continue;
      if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        Add(Severity::kError, number,
            Quoted(argument) + L" meets the folder " + Quoted(found.cFileName) +
                L": setup's copy of this entry stops there, and the files found after it are not copied");
        return;
      }
      if (kind.alwaysActed && !inSubFolder) installedNames_.insert(LowerCase(found.cFileName));
    } while (::FindNextFileW(find.get(), &found));
  }

  // True when name is a file of the package.
  bool CheckSource(const std::wstring& name, size_t number) {
    DWORD attributes = ::GetFileAttributesW((packageDir_ + L"\\" + name).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
      Add(Severity::kError, number, Quoted(name) + L" is not in the package");
      return false;
    }
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) {
      Add(Severity::kError, number, Quoted(name) + L" is a folder: setup copies files only");
      return false;
    }
    return true;
  }

  // The uninstaller removes "Make Dir: " folders in file order.
  void CheckFolderOrder() {
    for (size_t i = 0; i < folders_.size(); ++i)
      for (size_t j = i + 1; j < folders_.size(); ++j) {
        const std::wstring parent = LowerCase(folders_[i].second) + L"\\";
        if (LowerCase(folders_[j].second).compare(0, parent.size(), parent) != 0) continue;
        Add(Severity::kWarning, folders_[i].first,
            Quoted(folders_[i].second) + L" is listed before its sub-folder " + Quoted(folders_[j].second) +
                L" (line " + std::to_wstring(folders_[j].first) +
                L"): the uninstaller finds it still full and leaves it until the next restart");
        break;
      }
  }

  const std::wstring packageDir_;
  std::vector<Finding>& findings_;
  std::set<std::wstring> installedNames_;                  // lower case
  std::vector<std::pair<size_t, std::wstring>> folders_;   // "Make Dir: " lines
  size_t lastLongLine_ = 0;
};

bool FileExists(const std::wstring& path) {
  DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

// Setup reads the product's version and calls a package without one damaged.
void CheckProductVersion(const std::wstring& packageDir, std::vector<Finding>& findings) {
  const std::wstring path = packageDir + L"\\" + kProductExe;
  std::wstring problem;
  DWORD handle = 0;
  DWORD size = FileExists(path) ? ::GetFileVersionInfoSizeW(path.c_str(), &handle) : 0;
  std::vector<BYTE> block(size);
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  if (!FileExists(path))
    problem = L"is missing";
  else if (size == 0 || !::GetFileVersionInfoW(path.c_str(), 0, size, block.data()) ||
           !::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) || !fixed ||
           length < sizeof(VS_FIXEDFILEINFO))
    problem = L"has no version resource";
  else if (HIWORD(fixed->dwFileVersionMS) == 0)
    problem = L"has the major version 0";
  if (!problem.empty())
    findings.push_back({Severity::kError, kProductExe, 0, problem + L": setup would call the package damaged"});
}

void CheckAgreement(const std::wstring& packageDir, std::vector<Finding>& findings) {
  UniqueFileHandle file(::CreateFileW((packageDir + L"\\" + kAgreementFile).c_str(), GENERIC_READ, FILE_SHARE_READ,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  unsigned char mark[sizeof kUtf16LeMark] = {};
  DWORD read = 0;
  LARGE_INTEGER size = {};
  bool utf16 = file && ::GetFileSizeEx(file.get(), &size) && size.QuadPart % 2 == 0 &&
               ::ReadFile(file.get(), mark, sizeof mark, &read, nullptr) && read == sizeof mark &&
               mark[0] == kUtf16LeMark[0] && mark[1] == kUtf16LeMark[1];
  if (!utf16)
    findings.push_back({Severity::kError, kAgreementFile, 0,
                        file ? L"is not UTF-16LE text with its byte-order mark: the wizard would show it garbled"
                             : L"is missing: the wizard's agreement page would be empty"});
}

}  // namespace

std::vector<Finding> LintPackage(const std::wstring& packageDir) {
  std::vector<Finding> findings;
  if (!FileExists(packageDir + L"\\" + kScript)) {
    findings.push_back({Severity::kError, kScript, 0, L"is missing: setup would call the package damaged"});
  } else {
    ScriptLinter(packageDir, findings).Run();
  }
  if (!FileExists(packageDir + L"\\" + kSetupExe))
    findings.push_back({Severity::kError, kSetupExe, 0, L"is missing: the package has no setup program"});
  CheckProductVersion(packageDir, findings);
  CheckAgreement(packageDir, findings);
  return findings;
}
