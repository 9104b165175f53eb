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

std::vector<std::wstring> ReadAll(const std::wstring& path) {
  LogReader reader(path);
  std::vector<std::wstring> lines;
  std::wstring line;
  while (reader.Next(line)) lines.push_back(line);
  return lines;
}

std::vector<std::wstring> LinesOf(const std::string& bytes) {
  TempDir dir(L"qmlog");
  WriteFileBytes(dir / L"log", bytes);
  return ReadAll(dir / L"log");
}

// Every entry kind is told apart by its exact, case-sensitive prefix, trailing blank included.
TEST(InstallLogEntry, PrefixesMatchExactly) {
  std::wstring argument;
  const wchar_t* kinds[] = {kFileCopy, kFileCopyX64, kFileCopyPrt, kFileCopyInd, kFileOverwrite,
                            kFileDel,  kMakeDir,     kShellLink,   kMadeDir};
  for (const wchar_t* kind : kinds) {
    ASSERT_TRUE(EntryArgument(std::wstring(kind) + L"a b.dll", kind, argument)) << kind;
    EXPECT_EQ(argument, L"a b.dll");
  }
  EXPECT_FALSE(EntryArgument(L"file copy: x.dll", kFileCopy, argument));
  EXPECT_FALSE(EntryArgument(L"File Copy:x.dll", kFileCopy, argument));
  EXPECT_FALSE(EntryArgument(L" File Copy: x.dll", kFileCopy, argument));
  EXPECT_FALSE(EntryArgument(L"File Copy x64: x.dll", kFileCopy, argument));
  EXPECT_FALSE(EntryArgument(L"File Copy:", kFileCopy, argument));
  // No blank beyond the prefix is skipped.
  ASSERT_TRUE(EntryArgument(L"File Del:   x.tmp", kFileDel, argument));
  EXPECT_EQ(argument, L"  x.tmp");
}

// Renaming splits at the first '>', trimming around it; " | " cuts a comment.
TEST(InstallLogEntry, RenamingAndComment) {
  FileArgument plain = SplitRenaming(L"a.dll");
  EXPECT_FALSE(plain.renaming);
  EXPECT_EQ(plain.source, L"a.dll");
  EXPECT_EQ(plain.target, L"a.dll");

  FileArgument renamed = SplitRenaming(L"a.dll  >   b.dll");
  EXPECT_TRUE(renamed.renaming);
  EXPECT_EQ(renamed.source, L"a.dll");
  EXPECT_EQ(renamed.target, L"b.dll");

  FileArgument arrow = SplitRenaming(L"x -> y.dll > z.dll");
  EXPECT_EQ(arrow.source, L"x -");
  EXPECT_EQ(arrow.target, L"y.dll > z.dll");

  EXPECT_EQ(CutComment(L"a.txt | extra | more"), L"a.txt");
  EXPECT_EQ(CutComment(L"a|b.txt"), L"a|b.txt");
  EXPECT_EQ(CutComment(L"a.txt  | x"), L"a.txt ");
}

// Trailing characters of code 32 or less go, the first character never (so an empty line
// keeps its line end); LF and CR LF read alike.
TEST(InstallLogReader, TrimsAndAcceptsBothLineEnds) {
  std::vector<std::wstring> expected = {L"File Copy: a.dll > b.dll", L"\n", L" ", L"x\ry", L"last"};
  EXPECT_EQ(LinesOf("File Copy: a.dll > b.dll   \t\x01\r\n\r\n \t \r\nx\ry\r\nlast"), expected);
  EXPECT_EQ(LinesOf("File Copy: a.dll > b.dll   \t\x01\n\n \t \nx\ry\nlast"), expected);
  // A prefix alone loses its trailing blank and is then no entry.
  std::vector<std::wstring> prefixOnly = LinesOf("File Copy: \r\n");
  ASSERT_EQ(prefixOnly.size(), 1u);
  std::wstring argument;
  EXPECT_FALSE(EntryArgument(prefixOnly[0], kFileCopy, argument));
  // A NUL ends the line's text; the rest of that physical line is dropped.
  EXPECT_EQ(LinesOf(std::string("abc\0def\nnext\n", 13)), (std::vector<std::wstring>{L"abc", L"next"}));
  EXPECT_TRUE(LinesOf("").empty());
}

// A physical line is read in pieces of 511 characters, its line end counting as one.
TEST(InstallLogReader, SplitsLongLinesAt511) {
  std::string six = "File Copy: " + std::string(589, 'x');
  std::vector<std::wstring> lines = LinesOf(six + "\r\nnext\r\n");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].size(), 511u);
  EXPECT_EQ(lines[1], std::wstring(89, L'x'));
  EXPECT_EQ(lines[2], L"next");

  // 510 characters and the line end fit one read; 511 leave the line end alone.
  EXPECT_EQ(LinesOf(std::string(510, 'a') + "\nb\n").size(), 2u);
  std::vector<std::wstring> exact = LinesOf(std::string(511, 'a') + "\r\nb\n");
  ASSERT_EQ(exact.size(), 3u);
  EXPECT_EQ(exact[1], L"\n");
  EXPECT_EQ(exact[2], L"b");

  // Whatever follows the 511th character starts a line of its own.
  std::vector<std::wstring> carried = LinesOf(std::string(511, ' ') + "File Del: z.tmp\n");
  ASSERT_EQ(carried.size(), 2u);
  EXPECT_EQ(carried[0], L" ");
  EXPECT_EQ(carried[1], L"File Del: z.tmp");
}

// Rewind starts over; a missing log reads as empty and ForEachEntry then calls nothing.
TEST(InstallLogReader, RewindAndMissingLog) {
  TempDir dir(L"qmlog");
  WriteFileBytes(dir / L"log", "Shell Link: a\r\nMade Dir: b\r\nShell Link: c\r\n");
  LogReader reader(dir / L"log");
  ASSERT_TRUE(reader.IsOpen());
  std::wstring line;
  while (reader.Next(line)) {
  }
  reader.Rewind();
  ASSERT_TRUE(reader.Next(line));
  EXPECT_EQ(line, L"Shell Link: a");

  std::vector<std::wstring> links;
  ForEachEntry(dir / L"log", kShellLink, [&](const std::wstring& a) { links.push_back(a); });
  EXPECT_EQ(links, (std::vector<std::wstring>{L"a", L"c"}));

  LogReader missing(dir / L"none.log");
  EXPECT_FALSE(missing.IsOpen());
  EXPECT_FALSE(missing.Next(line));
  int calls = 0;
  ForEachEntry(dir / L"none.log", kShellLink, [&](const std::wstring&) { ++calls; });
  EXPECT_EQ(calls, 0);
}

// 8-bit text is written and read one byte a character, with CR LF line ends.
TEST(InstallLogEncoding, EightBitBytesOneToOne) {
  TempDir dir(L"qmlog");
  std::wstring latin = L"Shell Link: C:\\Users\\Ren\u00e9e\\D\u00e9sktop\\\u00c3\u00a9\u00ff.lnk";
  AppendLogLine(dir / L"j.log", latin);
  AppendLogLine(dir / L"j.log", L"two\nlines");
  EXPECT_EQ(ReadFileBytes(dir / L"j.log"),
            "Shell Link: C:\\Users\\Ren\xe9" "e\\D\xe9sktop\\\xc3\xa9\xff.lnk\r\ntwo\r\nlines\r\n");
  std::vector<std::wstring> lines = ReadAll(dir / L"j.log");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], latin);

  // An old script's bytes, even ones that spell UTF-8 for a character below 256.
  std::string script = "File Copy: caf\xe9.txt > \xc3\xa9t\xe9.txt\r\n";
  std::vector<std::wstring> read = LinesOf(script);
  ASSERT_EQ(read.size(), 1u);
  EXPECT_EQ(read[0], L"File Copy: caf\u00e9.txt > \u00c3\u00a9t\u00e9.txt");
  for (int b = 1; b < 256; ++b) {
    if (b == '\n' || b == '\r') continue;
    std::string one = std::string("x") + static_cast<char>(b) + "y";
    EXPECT_EQ(DecodeLogText(one), (std::wstring{L'x', static_cast<wchar_t>(b), L'y'})) << b;
  }
}

// Names with characters above 255 are written as UTF-8 and read back unchanged.
TEST(InstallLogEncoding, WideNamesRoundTrip) {
  TempDir dir(L"qmlog");
  std::wstring cyrillic = L"Shell Link: C:\\users\\\u041f\u043e\u043b\u044c\u0437\u043e\u0432\u0430\u0442\u0435\u043b\u044c\\Desktop\\Quillmark 8.lnk";
  std::wstring cjk = L"Made Dir: C:\\users\\\u7528\u6237\\\u684c\u9762\\caf\u00e9";
  std::wstring astral = L"Shell Link: C:\\\U0001F4F7\\x.lnk";
  AppendLogLine(dir / L"j.log", cyrillic);
  AppendLogLine(dir / L"j.log", L"plain \u00e9");
  AppendLogLine(dir / L"j.log", cjk);
  AppendLogLine(dir / L"j.log", astral);
  std::string bytes = ReadFileBytes(dir / L"j.log");
  EXPECT_NE(bytes.find("\xd0\x9f\xd0\xbe"), std::string::npos);          // UTF-8 Cyrillic
  EXPECT_NE(bytes.find("plain \xe9\r\n"), std::string::npos);            // untouched 8-bit line
  EXPECT_NE(bytes.find("\\caf\xc3\xa9\r\n"), std::string::npos);         // é of a wide line is UTF-8 too
  EXPECT_EQ(ReadAll(dir / L"j.log"), (std::vector<std::wstring>{cyrillic, L"plain \u00e9", cjk, astral}));

  // Invalid UTF-8 with high bytes reads byte for byte.
  EXPECT_EQ(DecodeLogText("\xd0\x9f\xff"), (std::wstring{0xd0, 0x9f, 0xff}));
  // Overlong and surrogate forms are not UTF-8.
  EXPECT_EQ(DecodeLogText("\xe0\x80\xaf\xd0\x9f"), (std::wstring{0xe0, 0x80, 0xaf, 0xd0, 0x9f}));
  EXPECT_EQ(DecodeLogText("\xed\xa0\x80\xd0\x9f"), (std::wstring{0xed, 0xa0, 0x80, 0xd0, 0x9f}));
  // An unpaired surrogate is written as U+FFFD.
  EXPECT_EQ(EncodeLogText(std::wstring{L'a', static_cast<wchar_t>(0xd800), L'b'}), "a\xef\xbf\xbd" "b");
}

// The 511 limit counts decoded UTF-16 units of a UTF-8 line and never tears a surrogate pair.
TEST(InstallLogEncoding, LimitCountsDecodedUnits) {
  TempDir dir(L"qmlog");
  std::wstring zhe(600, L'\u0416');
  AppendLogLine(dir / L"j.log", zhe);
  std::vector<std::wstring> lines = ReadAll(dir / L"j.log");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], std::wstring(511, L'\u0416'));
  EXPECT_EQ(lines[1], std::wstring(89, L'\u0416'));

  std::wstring pair = L"\U0001F4F7";
  AppendLogLine(dir / L"k.log", std::wstring(510, L'a') + pair + L"b");
  lines = ReadAll(dir / L"k.log");
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], std::wstring(510, L'a'));
  EXPECT_EQ(lines[1], pair + L"b");
}

// Appending creates the log, adds to its end and keeps no handle; an unreachable log is ignored.
TEST(InstallLogWriter, AppendsAndIgnoresUnreachableLog) {
  TempDir dir(L"qmlog");
  WriteFileBytes(dir / L"j.log", "File Copy: a.dll");
  AppendLogLine(dir / L"j.log", L"");
  AppendLogLine(dir / L"j.log", L"Shell Link: C:\\x.lnk");
  EXPECT_EQ(ReadFileBytes(dir / L"j.log"), "File Copy: a.dll\r\nShell Link: C:\\x.lnk\r\n");
  EXPECT_TRUE(::DeleteFileW((dir / L"j.log").c_str()));

  AppendLogLine(dir / L"no such folder\\j.log", L"x");
  EXPECT_FALSE(qmtest::DirExists(dir / L"no such folder"));
  AppendLogLine(dir / L"cut.log", std::wstring(L"ab\0cd", 5));
  EXPECT_EQ(ReadFileBytes(dir / L"cut.log"), "ab\r\n");
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
