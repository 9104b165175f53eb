// The install log: one line format for the package's install script, the
// installation's journal and an earlier version's journal.
#pragma once
#include <cstdio>
#include <functional>
#include <string>

// Entry kinds: a line is an entry of a kind exactly when it begins with the
// prefix, compared case-sensitively, trailing blank included.
inline constexpr wchar_t kFileCopy[] = L"File Copy: ";
inline constexpr wchar_t kFileCopyX64[] = L"File Copy x64: ";
inline constexpr wchar_t kFileCopyPrt[] = L"File Copy prt: ";
inline constexpr wchar_t kFileCopyInd[] = L"File Copy ind: ";
inline constexpr wchar_t kFileOverwrite[] = L"File Overwrite: ";
inline constexpr wchar_t kFileDel[] = L"File Del: ";
inline constexpr wchar_t kMakeDir[] = L"Make Dir: ";
inline constexpr wchar_t kShellLink[] = L"Shell Link: ";
inline constexpr wchar_t kMadeDir[] = L"Made Dir: ";

// Reads a log line by line under the line model (at most 511 characters a
// line, trailing characters of code 32 or less cut, the first one kept).
// A log that cannot be opened reads as empty.
class LogReader {
 public:
  explicit LogReader(const std::wstring& path);
  ~LogReader();
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;
  bool IsOpen() const { return file_ != nullptr; }
  // false at the end of the log.
  bool Next(std::wstring& line);
  void Rewind();

 private:
  FILE* file_ = nullptr;
};

// The argument of line for prefix, or false when line is no such entry.
bool EntryArgument(const std::wstring& line, const wchar_t* prefix, std::wstring& argument);

// A renaming argument "a > b": source before the first '>' (trailing blanks
// trimmed), target after it (leading blanks trimmed). Without '>', both are
// the argument itself and renaming is false.
struct FileArgument {
  std::wstring source;
  std::wstring target;
  bool renaming = false;
};
FileArgument SplitRenaming(const std::wstring& argument);
// Everything from the first " | " on cut off.
std::wstring CutComment(const std::wstring& argument);

// Appends text and a line end; silently does nothing when the log cannot be opened.
void AppendLogLine(const std::wstring& logPath, const std::wstring& text);
// Calls action with the argument of every entry of kind prefix, in file order.
void ForEachEntry(const std::wstring& logPath, const wchar_t* prefix,
                  const std::function<void(const std::wstring& argument)>& action);
