#include "installlog/install_log.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/test_support.h"

namespace {

using qmtest::ReadFileBytes;
using qmtest::TempDir;
using qmtest::WriteFileBytes;
using Lines = std::vector<std::wstring>;

Lines ReadAll(const std::wstring& path) {
  LogReader reader(path);
  Lines lines;
  std::wstring line;
  while (reader.Next(line)) lines.push_back(line);
  return lines;
}

Lines LinesOf(const std::string& bytes) {
  TempDir dir(L"qmlog");
  WriteFileBytes(dir / L"log", bytes);
  return ReadAll(dir / L"log");
}

// Entry kinds are told apart by their exact, case-sensitive prefix, trailing
// blank included, and no blank beyond it is skipped; renaming splits at the
// first '>' trimming around it; " | " cuts a comment.
TEST(InstallLogEntry, PrefixesRenamingAndComment) {
  std::wstring argument;
  for (const wchar_t* kind : {kFileCopy, kFileCopyX64, kFileCopyPrt, kFileCopyInd, kFileOverwrite, kFileDel,
                              kMakeDir, kShellLink, kMadeDir}) {
    ASSERT_TRUE(EntryArgument(std::wstring(kind) + L"a b.dll", kind, argument)) << kind;
    EXPECT_EQ(argument, L"a b.dll");
  }
  for (const wchar_t* line : {L"file copy: x.dll", L"File Copy:x.dll", L" File Copy: x.dll",
                              L"File Copy x64: x.dll", L"File Copy:"})
    EXPECT_FALSE(EntryArgument(line, kFileCopy, argument)) << line;
  ASSERT_TRUE(EntryArgument(L"File Del:   x.tmp", kFileDel, argument));
  EXPECT_EQ(argument, L"  x.tmp");

  struct Case { const wchar_t *argument, *source, *target; bool renaming; };
  for (const Case& c : {Case{L"a.dll", L"a.dll", L"a.dll", false}, Case{L"a.dll  >   b.dll", L"a.dll", L"b.dll", true},
                        Case{L"x -> y.dll > z.dll", L"x -", L"y.dll > z.dll", true}}) {
    FileArgument split = SplitRenaming(c.argument);
    EXPECT_EQ(split.source, c.source);
    EXPECT_EQ(split.target, c.target);
    EXPECT_EQ(split.renaming, c.renaming);
  }
  EXPECT_EQ(CutComment(L"a.txt | extra | more"), L"a.txt");
  EXPECT_EQ(CutComment(L"a|b.txt"), L"a|b.txt");
  EXPECT_EQ(CutComment(L"a.txt  | x"), L"a.txt ");
}

// Trailing characters of code 32 or less go, the first never (an empty line
// keeps its line end); LF and CR LF read alike; a prefix alone is then no
// entry; a NUL ends the line's text.
TEST(InstallLogReader, TrimsAndAcceptsBothLineEnds) {
  Lines expected = {L"File Copy: a.dll > b.dll", L"\n", L" ", L"x\ry", L"last"};
  EXPECT_EQ(LinesOf("File Copy: a.dll > b.dll   \t\x01\r\n\r\n \t \r\nx\ry\r\nlast"), expected);
  EXPECT_EQ(LinesOf("File Copy: a.dll > b.dll   \t\x01\n\n \t \nx\ry\nlast"), expected);
  Lines prefixOnly = LinesOf("File Copy: \r\n");
  ASSERT_EQ(prefixOnly.size(), 1u);
  std::wstring argument;
  EXPECT_FALSE(EntryArgument(prefixOnly[0], kFileCopy, argument));
  EXPECT_EQ(LinesOf(std::string("abc\0def\nnext\n", 13)), (Lines{L"abc", L"next"}));
  EXPECT_TRUE(LinesOf("").empty());
}

// A physical line is read in pieces of 511 characters, its line end counting
// as one; whatever follows the 511th character starts a line of its own.
TEST(InstallLogReader, SplitsLongLinesAt511) {
  EXPECT_EQ(LinesOf("File Copy: " + std::string(589, 'x') + "\r\nnext\r\n"),
            (Lines{L"File Copy: " + std::wstring(500, L'x'), std::wstring(89, L'x'), L"next"}));
  EXPECT_EQ(LinesOf(std::string(510, 'a') + "\nb\n"), (Lines{std::wstring(510, L'a'), L"b"}));
  EXPECT_EQ(LinesOf(std::string(511, 'a') + "\r\nb\n"), (Lines{std::wstring(511, L'a'), L"\n", L"b"}));
  EXPECT_EQ(LinesOf(std::string(511, ' ') + "File Del: z.tmp\n"), (Lines{L" ", L"File Del: z.tmp"}));
}

// ForEachEntry hands out one kind's arguments in order (the removal passes
// prove Rewind); a missing log reads as empty and ForEachEntry calls nothing.
TEST(InstallLogReader, ForEachEntryAndMissingLog) {
  TempDir dir(L"qmlog");
  WriteFileBytes(dir / L"log", "Shell Link: a\r\nMade Dir: b\r\nShell Link: c\r\n");
  Lines links;
  ForEachEntry(dir / L"log", kShellLink, [&](const std::wstring& a) { links.push_back(a); });
  EXPECT_EQ(links, (Lines{L"a", L"c"}));
  LogReader missing(dir / L"none.log");
  std::wstring line;
  EXPECT_FALSE(missing.IsOpen());
  EXPECT_FALSE(missing.Next(line));
  ForEachEntry(dir / L"none.log", kShellLink, [&](const std::wstring&) { ADD_FAILURE(); });
}

// 8-bit text is written and read one byte a character (even bytes that spell
// UTF-8 for a character below 256), with CR LF line ends.
TEST(InstallLogEncoding, EightBitBytesOneToOne) {
  TempDir dir(L"qmlog");
  std::wstring latin = L"Shell Link: C:\\Users\\Ren\u00e9e\\D\u00e9sktop\\\u00c3\u00a9\u00ff.lnk";
  AppendLogLine(dir / L"j.log", latin);
  AppendLogLine(dir / L"j.log", L"two\nlines");
  EXPECT_EQ(ReadFileBytes(dir / L"j.log"),
            "Shell Link: C:\\Users\\Ren\xe9" "e\\D\xe9sktop\\\xc3\xa9\xff.lnk\r\ntwo\r\nlines\r\n");
  EXPECT_EQ(ReadAll(dir / L"j.log"), (Lines{latin, L"two", L"lines"}));
  EXPECT_EQ(LinesOf("File Copy: caf\xe9.txt > \xc3\xa9t\xe9.txt\r\n"),
            (Lines{L"File Copy: caf\u00e9.txt > \u00c3\u00a9t\u00e9.txt"}));
  for (int b = 1; b < 256; ++b)
    EXPECT_EQ(DecodeLogText(std::string("x") + static_cast<char>(b) + "y"),
              (std::wstring{L'x', static_cast<wchar_t>(b), L'y'})) << b;
}

// Names with characters above 255 (Cyrillic, CJK, astral) are written as UTF-8
// and read back unchanged; invalid, overlong and surrogate forms read byte for
// byte; an unpaired surrogate is written as U+FFFD.
TEST(InstallLogEncoding, WideNamesRoundTrip) {
  TempDir dir(L"qmlog");
  std::wstring cyrillic =
      L"Shell Link: C:\\users\\\u041f\u043e\u043b\u044c\u0437\u043e\u0432\u0430\u0442\u0435\u043b\u044c\\Desktop\\Quillmark 8.lnk";
  std::wstring cjk = L"Made Dir: C:\\users\\\u7528\u6237\\\u684c\u9762\\caf\u00e9";
  std::wstring astral = L"Shell Link: C:\\\U0001F4F7\\x.lnk";
  for (const std::wstring& line : {cyrillic, std::wstring(L"plain \u00e9"), cjk, astral})
    AppendLogLine(dir / L"j.log", line);
  std::string bytes = ReadFileBytes(dir / L"j.log");
  EXPECT_NE(bytes.find("\xd0\x9f\xd0\xbe"), std::string::npos);   // UTF-8 Cyrillic
  EXPECT_NE(bytes.find("plain \xe9\r\n"), std::string::npos);     // untouched 8-bit line
  EXPECT_NE(bytes.find("\\caf\xc3\xa9\r\n"), std::string::npos);  // é of a wide line is UTF-8 too
  EXPECT_EQ(ReadAll(dir / L"j.log"), (Lines{cyrillic, L"plain \u00e9", cjk, astral}));

  EXPECT_EQ(DecodeLogText("\xd0\x9f\xff"), (std::wstring{0xd0, 0x9f, 0xff}));
  EXPECT_EQ(DecodeLogText("\xe0\x80\xaf\xd0\x9f"), (std::wstring{0xe0, 0x80, 0xaf, 0xd0, 0x9f}));
  EXPECT_EQ(DecodeLogText("\xed\xa0\x80\xd0\x9f"), (std::wstring{0xed, 0xa0, 0x80, 0xd0, 0x9f}));
  EXPECT_EQ(EncodeLogText(std::wstring{L'a', static_cast<wchar_t>(0xd800), L'b'}), "a\xef\xbf\xbd" "b");
}

// The 511 limit counts decoded UTF-16 units of a UTF-8 line and never tears a surrogate pair.
TEST(InstallLogEncoding, LimitCountsDecodedUnits) {
  TempDir dir(L"qmlog");
  AppendLogLine(dir / L"j.log", std::wstring(600, L'\u0416'));
  EXPECT_EQ(ReadAll(dir / L"j.log"), (Lines{std::wstring(511, L'\u0416'), std::wstring(89, L'\u0416')}));
  AppendLogLine(dir / L"k.log", std::wstring(510, L'a') + L"\U0001F4F7b");
  EXPECT_EQ(ReadAll(dir / L"k.log"), (Lines{std::wstring(510, L'a'), L"\U0001F4F7b"}));
}

// Appending creates the log, adds to its end and keeps no handle; text ends at
// a NUL; an unreachable log is ignored.
TEST(InstallLogWriter, AppendsAndIgnoresUnreachableLog) {
  TempDir dir(L"qmlog");
  WriteFileBytes(dir / L"j.log", "File Copy: a.dll");
  AppendLogLine(dir / L"j.log", L"");
  AppendLogLine(dir / L"j.log", std::wstring(L"Shell Link: C:\\x.lnk\0cut", 24));
  EXPECT_EQ(ReadFileBytes(dir / L"j.log"), "File Copy: a.dll\r\nShell Link: C:\\x.lnk\r\n");
  EXPECT_TRUE(::DeleteFileW((dir / L"j.log").c_str()));
  AppendLogLine(dir / L"no such folder\\j.log", L"x");
  EXPECT_FALSE(qmtest::DirExists(dir / L"no such folder"));
}

// Random bytes never crash the reader, and every line keeps within the limit.
TEST(InstallLogReader, RandomBytesStayWithinLimit) {
  std::mt19937 random(20260401);
  for (int round = 0; round < 20; ++round) {
    std::string bytes(static_cast<size_t>(random() % 20000), '\0');
    for (char& b : bytes) b = static_cast<char>(random() & 0xFF);
    for (const std::wstring& line : LinesOf(bytes)) {
      EXPECT_LE(line.size(), kLogLineLimit);
      EXPECT_EQ(line.find(L'\0'), std::wstring::npos);
    }
  }
}

}  // namespace
