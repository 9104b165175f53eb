#include "installlog/install_log.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using qmtest::TempDir;
using Lines = std::vector<std::wstring>;

Lines ReadAll(const std::wstring& path) {
  LogReader reader(path);
  Lines lines;
  for (std::wstring line; reader.Next(line);) lines.push_back(line);
  return lines;
}

Lines LinesOf(const std::string& bytes) {
  TempDir dir(L"qmlog");
  qmtest::WriteFileBytes(dir / L"log", bytes);
  return ReadAll(dir / L"log");
}

// Trailing codes <= 32 cut but never the first; LF = CR LF; NUL ends the text; 511-character pieces.
TEST(InstallLogReader, LineModel) {
  struct Case { std::string bytes; Lines lines; };
  const Case cases[] = {
      {"File Copy: a.dll > b.dll   \t\x01\r\n\r\n \t \r\nx\ry\r\nlast",
       {L"File Copy: a.dll > b.dll", L"\n", L" ", L"x\ry", L"last"}},
      {std::string("abc\0def\nnext\n", 13), {L"abc", L"next"}},
      {"", {}},
      {"File Copy: " + std::string(589, 'x') + "\r\nnext\r\n",
       {L"File Copy: " + std::wstring(500, L'x'), std::wstring(89, L'x'), L"next"}},
      {std::string(510, 'a') + "\nb\n", {std::wstring(510, L'a'), L"b"}},
      {std::string(511, 'a') + "\r\nb\n", {std::wstring(511, L'a'), L"\n", L"b"}},
      {std::string(511, ' ') + "File Del: z.tmp\n", {L" ", L"File Del: z.tmp"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes.substr(0, 30));
    EXPECT_EQ(LinesOf(c.bytes), c.lines);
  }
}

// Appended lines end in CR LF (also one inside the text) and at a NUL.
TEST(InstallLogWriter, AppendsCrLfLines) {
  TempDir dir(L"qmlog");
  qmtest::WriteFileBytes(dir / L"log", "Shell Link: a\r\nShell Link: c");
  AppendLogLine(dir / L"log", L"");
  AppendLogLine(dir / L"log", std::wstring(L"Shell Link: d\nMade Dir: e\0cut", 29));
  EXPECT_EQ(qmtest::ReadFileBytes(dir / L"log"), "Shell Link: a\r\nShell Link: c\r\nShell Link: d\r\nMade Dir: e\r\n");
}

// 8-bit lines byte for byte, wider ones as UTF-8 (511 decoded units a piece); non-UTF-8 forms as bytes.
TEST(InstallLogEncoding, EightBitAndWideNamesRoundTrip) {
  TempDir dir(L"qmlog");
  const std::wstring latin = L"Shell Link: C:\\Users\\Ren\u00e9e\\\u00c3\u00a9\u00ff.lnk";
  const std::wstring cyrillic = L"Shell Link: C:\\users\\\u041f\u043e\u043b\u044c\\Desktop\\Quillmark 8.lnk";
  const std::wstring cjk = L"Made Dir: C:\\users\\\u7528\u6237\\\u684c\u9762\\caf\u00e9";
  const std::wstring astral = L"Shell Link: C:\\\U0001F4F7\\x.lnk";
  for (const std::wstring& line : {latin, cyrillic, cjk, astral}) AppendLogLine(dir / L"j.log", line);
  const std::string bytes = qmtest::ReadFileBytes(dir / L"j.log");
  EXPECT_EQ(bytes.rfind("Shell Link: C:\\Users\\Ren\xe9" "e\\\xc3\xa9\xff.lnk\r\n", 0), 0u);
  EXPECT_NE(bytes.find("\xd0\x9f\xd0\xbe"), std::string::npos);
  EXPECT_NE(bytes.find("\\caf\xc3\xa9\r\n"), std::string::npos);
  EXPECT_EQ(ReadAll(dir / L"j.log"), (Lines{latin, cyrillic, cjk, astral}));

  EXPECT_EQ(DecodeLogText("\xd0\x9f\xff"), (std::wstring{0xd0, 0x9f, 0xff}));
  EXPECT_EQ(DecodeLogText("\xe0\x80\xaf\xd0\x9f"), (std::wstring{0xe0, 0x80, 0xaf, 0xd0, 0x9f}));
  EXPECT_EQ(DecodeLogText("\xed\xa0\x80\xd0\x9f"), (std::wstring{0xed, 0xa0, 0x80, 0xd0, 0x9f}));
  EXPECT_EQ(EncodeLogText(std::wstring{L'a', static_cast<wchar_t>(0xd800), L'b'}), "a\xef\xbf\xbd" "b");
  AppendLogLine(dir / L"w.log", std::wstring(600, L'\u0416'));
  EXPECT_EQ(ReadAll(dir / L"w.log"), (Lines{std::wstring(511, L'\u0416'), std::wstring(89, L'\u0416')}));
  AppendLogLine(dir / L"k.log", std::wstring(510, L'a') + L"\U0001F4F7b");
  EXPECT_EQ(ReadAll(dir / L"k.log"), (Lines{std::wstring(510, L'a'), L"\U0001F4F7b"}));
}

}  // namespace
