// The install log: one line format for the package's install script, the
// installation's journal and an earlier version's journal.
//
// Bytes and characters. A log is 8-bit text: bytes 0-255 stand one to one for
// the characters 0-255, whatever the system's code page. Names with a
// character above 255 cannot be said that way, so such a line is written as
// UTF-8 instead. A line read back is taken as UTF-8 only when its bytes are
// valid UTF-8 and the decoded text holds a character above 255; otherwise it
// is read byte for byte. Old 8-bit scripts therefore read exactly as before,
// and every name round-trips but two kinds that no real path holds: text with
// unpaired UTF-16 surrogates (written as U+FFFD), and pure 8-bit text whose
// bytes happen to spell UTF-8 for a character above 255 (such as "\xE4\xBD\xA0").
//
// Line model. A physical line ends at LF; CR LF counts as LF. The physical
// line (its LF included) is first decoded as above, as a whole, and then cut
// into lines of at most 511 UTF-16 units, as a 512-unit read buffer would take
// it: a longer physical line is read as several lines, and a line of exactly
// 511 units is followed by one holding only its line end. A surrogate pair is
// never torn: a piece that would end inside one ends a unit early. Each line
// then ends at its first NUL, and trailing characters of code 32 or less are
// cut, scanning backwards; the first character is never cut (an empty
// physical line thus reads as "\n", which is no entry).
#pragma once
#include <functional>
#include <string>
#include <vector>

#include "sys/handles.h"

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

// Characters per line read, the terminator of the read buffer not counted.
inline constexpr size_t kLogLineLimit = 511;

// Reads a log line by line under the line model above. The log is opened for
// reading only and shared for reading, writing and deletion (a log that lists
// itself can then be deleted at once); a log that cannot be opened reads as
// empty.
class LogReader {
 public:
  explicit LogReader(const std::wstring& path);
  ~LogReader();
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;
  bool IsOpen() const { return file_.valid(); }
  // false at the end of the log.
  bool Next(std::wstring& line);
  // Back to the first line.
  void Rewind();
  // Where the last line came from: its physical line (from 1), and whether it
  // continues that physical line (a piece after the first 511 units).
  size_t LineNumber() const { return lineNumber_; }
  bool Continued() const { return continued_; }

 private:
  bool ReadPhysicalLine();
  int ReadByte();  // -1 at the end

  UniqueFileHandle file_;
  std::string buffer_;      // bytes read ahead from the file
  size_t bufferPos_ = 0;
  std::wstring physical_;   // decoded physical line being handed out
  size_t position_ = 0;     // next unit of physical_ to hand out
  size_t lineNumber_ = 0;
  bool continued_ = false;
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

// Appends text and a line end (CR LF; an LF inside text also becomes CR LF;
// text ends at a NUL). Silently does nothing when the log cannot be opened.
void AppendLogLine(const std::wstring& logPath, const std::wstring& text);
// Every pass over a log goes through these.
// Reads the rest of reader and, for each line in file order, calls action with
// every kind among kinds that the line is an entry of (the kinds are tried in
// their order) and the entry's argument. kind is the very pointer of kinds.
// Does nothing when the log is not open.
using EntryAction = std::function<void(const wchar_t* kind, const std::wstring& argument)>;
void ForEachEntry(LogReader& reader, const std::vector<const wchar_t*>& kinds, const EntryAction& action);
// Opens logPath and calls action with the argument of every entry of kind
// prefix, in file order. Does nothing when the log cannot be opened.
void ForEachEntry(const std::wstring& logPath, const wchar_t* prefix,
                  const std::function<void(const std::wstring& argument)>& action);

// The bytes that stand for text in a log: one byte a character when every
// character is below 256, UTF-8 otherwise. No line end is added.
std::string EncodeLogText(const std::wstring& text);
// The characters of one physical line's bytes: UTF-8 when valid and holding a
// character above 255, otherwise byte for byte.
std::wstring DecodeLogText(const std::string& bytes);
