#include "installlog/install_log.h"

#include <windows.h>

#include "sys/handles.h"

namespace {

void AppendUtf8(std::string& out, char32_t code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | (code >> 6));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | (code >> 12));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (code >> 18));
    out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

bool IsHighSurrogate(wchar_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(wchar_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

std::string ToUtf8(const std::wstring& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t code = text[i];
    if (IsHighSurrogate(text[i]) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
      code = 0x10000 + ((code - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (IsHighSurrogate(text[i]) || IsLowSurrogate(text[i])) {
      code = 0xFFFD;
    }
    AppendUtf8(out, code);
  }
  return out;
}

// Strict UTF-8 (no overlong forms, no surrogates, nothing above U+10FFFF).
// False when bytes are not UTF-8 or hold no character above 255: the line is
// then 8-bit text.
bool DecodeWideUtf8(const std::string& bytes, std::wstring& text) {
  text.clear();
  bool above255 = false;
  size_t i = 0;
  while (i < bytes.size()) {
    unsigned char lead = static_cast<unsigned char>(bytes[i]);
    char32_t code;
    size_t extra;
    char32_t minimum;
    if (lead < 0x80) {
      code = lead, extra = 0, minimum = 0;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
      code = lead & 0x1F, extra = 1, minimum = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      code = lead & 0x0F, extra = 2, minimum = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      code = lead & 0x07, extra = 3, minimum = 0x10000;
    } else {
      return false;
    }
    if (i + extra >= bytes.size()) return false;
    for (size_t k = 1; k <= extra; ++k) {
      unsigned char next = static_cast<unsigned char>(bytes[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      code = (code << 6) | (next & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    if (code > 0xFF) above255 = true;
    if (code >= 0x10000) {
      code -= 0x10000;
      text += static_cast<wchar_t>(0xD800 + (code >> 10));
      text += static_cast<wchar_t>(0xDC00 + (code & 0x3FF));
    } else {
      text += static_cast<wchar_t>(code);
    }
    i += extra + 1;
  }
  return above255;
}

// The end of the text a 512-unit read buffer holds, starting at begin.
size_t PieceEnd(const std::wstring& text, size_t begin) {
  size_t end = begin + kLogLineLimit;
  if (end >= text.size()) return text.size();
  if (IsHighSurrogate(text[end - 1]) && IsLowSurrogate(text[end])) --end;
  return end;
}

std::wstring TrimLine(std::wstring line) {
  size_t nul = line.find(L'\0');
  if (nul != std::wstring::npos) line.resize(nul);
  size_t length = line.size();
  while (length > 1 && line[length - 1] <= 32) --length;
  line.resize(length);
  return line;
}

}  // namespace

std::string EncodeLogText(const std::wstring& text) {
  for (wchar_t c : text)
    if (c > 0xFF) return ToUtf8(text);
  std::string bytes;
  bytes.reserve(text.size());
  for (wchar_t c : text) bytes += static_cast<char>(static_cast<unsigned char>(c));
  return bytes;
}

std::wstring DecodeLogText(const std::string& bytes) {
  std::wstring text;
  if (DecodeWideUtf8(bytes, text)) return text;
  text.clear();
  text.reserve(bytes.size());
  for (char b : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(b));
  return text;
}

LogReader::LogReader(const std::wstring& path)
    : file_(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {}

LogReader::~LogReader() = default;

int LogReader::ReadByte() {
  if (bufferPos_ >= buffer_.size()) {
    buffer_.resize(4096);
    DWORD read = 0;
    if (!::ReadFile(file_.get(), buffer_.data(), static_cast<DWORD>(buffer_.size()), &read, nullptr)) read = 0;
    buffer_.resize(read);
    bufferPos_ = 0;
    if (read == 0) return -1;
  }
  return static_cast<unsigned char>(buffer_[bufferPos_++]);
}

bool LogReader::ReadPhysicalLine() {
  std::string bytes;
  int c;
  while ((c = ReadByte()) >= 0) {
    // CR LF reads as LF; a CR elsewhere is an ordinary character.
    if (c == '\r') {
      int next = ReadByte();
      if (next == '\n')
        c = '\n';
      else if (next >= 0)
        --bufferPos_;
    }
    bytes += static_cast<char>(c);
    if (c == '\n') break;
  }
  if (bytes.empty()) return false;
  physical_ = DecodeLogText(bytes);
  position_ = 0;
  ++lineNumber_;
  return true;
}

bool LogReader::Next(std::wstring& line) {
  if (!file_) return false;
  if (position_ >= physical_.size() && !ReadPhysicalLine()) return false;
  continued_ = position_ > 0;
  size_t end = PieceEnd(physical_, position_);
  line = TrimLine(physical_.substr(position_, end - position_));
  position_ = end;
  return true;
}

void LogReader::Rewind() {
  if (!file_) return;
  ::SetFilePointer(file_.get(), 0, nullptr, FILE_BEGIN);
  buffer_.clear();
  bufferPos_ = 0;
  physical_.clear();
  position_ = 0;
  lineNumber_ = 0;
  continued_ = false;
}

bool EntryArgument(const std::wstring& line, const wchar_t* prefix, std::wstring& argument) {
  std::wstring_view head(prefix);
  if (line.size() < head.size() || line.compare(0, head.size(), head) != 0) return false;
  argument = line.substr(head.size());
  return true;
}

FileArgument SplitRenaming(const std::wstring& argument) {
  FileArgument result;
  size_t arrow = argument.find(L'>');
  if (arrow == std::wstring::npos) {
    result.source = result.target = argument;
    return result;
  }
  result.renaming = true;
  result.source = argument.substr(0, arrow);
  while (!result.source.empty() && result.source.back() == L' ') result.source.pop_back();
  size_t start = argument.find_first_not_of(L' ', arrow + 1);
  result.target = start == std::wstring::npos ? std::wstring() : argument.substr(start);
  return result;
}

std::wstring CutComment(const std::wstring& argument) {
  size_t bar = argument.find(L" | ");
  return bar == std::wstring::npos ? argument : argument.substr(0, bar);
}

void AppendLogLine(const std::wstring& logPath, const std::wstring& text) {
  std::wstring line(text.c_str());
  line += L'\n';
  std::string bytes;
  for (char b : EncodeLogText(line)) {
    if (b == '\n') bytes += '\r';
    bytes += b;
  }
  UniqueFileHandle file(::CreateFileW(logPath.c_str(), FILE_APPEND_DATA,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return;
  DWORD written = 0;
  ::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

void ForEachEntry(LogReader& reader, const std::vector<const wchar_t*>& kinds, const EntryAction& action) {
  std::wstring line, argument;
  while (reader.Next(line))
    for (const wchar_t* kind : kinds)
      if (EntryArgument(line, kind, argument)) action(kind, argument);
}

void ForEachEntry(const std::wstring& logPath, const wchar_t* prefix,
                  const std::function<void(const std::wstring& argument)>& action) {
  LogReader reader(logPath);
  ForEachEntry(reader, {prefix}, [&](const wchar_t*, const std::wstring& argument) { action(argument); });
}
