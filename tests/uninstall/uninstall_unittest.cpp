#include "uninstall/uninstall.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <set>

#include "installlog/install_log.h"
#include "installlog/journal_passes.h"
#include "product/product.h"
#include "sys/handles.h"
#include "sys/registry.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::PendingUnder;
using Tree = std::set<std::wstring>;

// An installation in a temporary folder: root\Quillmark 8\ is the
// installation folder, with its trailing backslash as the worker passes it.
class RemovalTest : public ::testing::Test {
 protected:
  // Creates root\relative for each; a name ending in '\' is a folder.
  void Touch(std::initializer_list<std::wstring> relatives) {
    std::error_code error;
    for (const std::wstring& relative : relatives)
      if (relative.back() == L'\\') std::filesystem::create_directories(root_ / relative, error);
      else ASSERT_TRUE(qmtest::WriteFileBytes(root_ / relative, "data"));
  }
  // Every file and folder (ending in '\') below root\relative, relative to it.
  Tree Left(const std::wstring& relative = L"") const {
    Tree left;
    std::error_code error;
    const std::wstring base = root_ / relative;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(base, error))
      left.insert(entry.path().wstring().substr(base.size() + (base.back() == L'\\' ? 0 : 1)) +
                  (entry.is_directory() ? L"\\" : L""));
    return left;
  }
  std::wstring WriteLog(const std::string& bytes, const wchar_t* name = kJournalName) {
    EXPECT_TRUE(qmtest::WriteFileBytes(install_ + name, bytes));
    return install_ + name;
  }
  std::string Journalled(const std::wstring& relative) { return EncodeLogText(root_ / relative); }

  qmtest::TempDir root_{L"qm uninst"};
  std::wstring install_ = root_ / L"Quillmark 8\\";
};

// A journal of every entry kind (renamings, also before trailing blanks, " | "
// comments, wildcards, an x64 sub-folder entry, a "prt" entry beside the
// folder) removes exactly what it names, read-only and hidden files included,
// and a group's emptied parent folders.
TEST_F(RemovalTest, JournalRemovesExactlyItsEntries) {
  Touch({L"Quillmark 8\\Qmkview8.exe", L"Quillmark 8\\libind.dll", L"Quillmark 8\\src.bin", L"Quillmark 8\\b.dll",
         L"Quillmark 8\\c.txt", L"Quillmark 8\\x64\\ThumbDqm64.dll", L"Quillmark 8\\x64\\other64.dll",
         L"portable.ini", L"Quillmark 8\\portable.ini", L"Quillmark 8\\Overwritten.dat", L"Quillmark 8\\a.tmp",
         L"Quillmark 8\\b.tmp", L"Quillmark 8\\keep.txt", L"Quillmark 8\\data\\", L"links\\Quillmark 8.lnk",
         L"links\\other.lnk", L"menu\\Group\\Quillmark 8\\", L"neighbour.txt", L"Quillmark 8\\Read Only.txt",
         L"Quillmark 8\\x", L"Quillmark 8\\y.dll"});
  ::SetFileAttributesW((install_ + L"Read Only.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  std::wstring logPath = WriteLog(
      "File Copy: Qmkview8.exe\r\nFile Copy ind: libind.dll\r\nFile Copy: src.bin > b.dll \t\r\n"
      "File Copy: x -> y.dll\r\nFile Copy: c.txt | shipped for the help viewer\r\n"
      "File Copy x64: x64\\ThumbDqm64.dll\r\nFile Copy prt: portable.ini\r\nFile Overwrite: Overwritten.dat\r\n"
      "File Del: *.tmp\r\nFile Copy: Read Only.txt\r\nMake Dir: data\r\n\r\n"
      "Shell Link: " + Journalled(L"links\\Quillmark 8.lnk") + "\r\n"
      "Made Dir: " + Journalled(L"menu\\Group\\Quillmark 8") + "\r\n");
  RemoveLoggedLinks(logPath);
  RemoveLoggedFiles(logPath, install_, nullptr);

  EXPECT_EQ(Left(), (Tree{L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log", L"Quillmark 8\\src.bin",
                          L"Quillmark 8\\x64\\", L"Quillmark 8\\x64\\other64.dll", L"Quillmark 8\\portable.ini",
                          L"Quillmark 8\\keep.txt", L"Quillmark 8\\x", L"links\\", L"links\\other.lnk",
                          L"neighbour.txt"}));
  EXPECT_EQ(PendingUnder(root_.path()), 0u);
}

// Patterns with a sub-folder, without a match, in a missing folder or one
// without a trailing backslash; what cannot go now (a sub-folder, a file held
// open without delete sharing) is queued for deletion at restart.
TEST_F(RemovalTest, DeleteMatchingFilesQueuesWhatIsInUse) {
  Touch({L"Quillmark 8\\x64\\a.dll", L"Quillmark 8\\x64\\b.dll", L"Quillmark 8\\x64\\c.txt",
         L"Quillmark 8\\sub\\inner.txt", L"Quillmark 8\\top.txt", L"Quillmark 8\\busy.dll"});
  EXPECT_EQ(DeleteMatchingFiles(install_, L"x64\\*.dll"), 2);
  EXPECT_EQ(DeleteMatchingFiles(install_ + L"missing", L"*.*"), 0);
  UniqueFileHandle held(::CreateFileW((install_ + L"busy.dll").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(held);
  EXPECT_EQ(DeleteMatchingFiles(root_ / L"Quillmark 8", L"*.*"), 1);
  EXPECT_EQ(Left(L"Quillmark 8"), (Tree{L"x64\\", L"x64\\c.txt", L"sub\\", L"sub\\inner.txt", L"busy.dll"}));
  for (const wchar_t* queued : {L"sub", L"x64", L"busy.dll"})
    EXPECT_GE(qmtest::PendingIndex(install_ + queued), 0) << queued;
  EXPECT_EQ(PendingUnder(root_.path()), 3u);
}

// A journal of random bytes around a few real entries crashes nothing and
// touches only those: lower-case and prefix-only lines are no entries, and a
// line past 511 characters goes on as a line of its own.
TEST_F(RemovalTest, RandomBytesTouchOnlyRealEntries) {
  Touch({L"Quillmark 8\\target.txt", L"Quillmark 8\\split.txt", L"Quillmark 8\\a.dll", L"sibling.txt"});
  std::mt19937 random(7351);
  auto noise = [&] {
    std::string bytes(30000, '\0');
    for (char& b : bytes) b = static_cast<char>(random() & 0xFF);
    return bytes;
  };
  std::wstring logPath = WriteLog(noise() + "\nFile Del: target.txt\r\nfile del: a.dll\n" + std::string(511, '-') +
                                  "File Del: split.txt\nFile Del:\nMake Dir: \r\nMade Dir: \n" + noise());
  RemoveLoggedLinks(logPath);
  RemoveLoggedFiles(logPath, install_, nullptr);
  EXPECT_EQ(Left(), (Tree{L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log", L"Quillmark 8\\a.dll", L"sibling.txt"}));
  EXPECT_EQ(PendingUnder(root_.path()), 0u);
}

// The whole procedure, for what the end-to-end removals cannot show: a user's
// own file keeps the installation folder, which is then not queued (a missing
// x64 folder is, all the same); every profile under HKEY_USERS loses the
// product's shortcuts and group in its own shell folders (CJK ones followed,
// a profile without them skipped), other shortcuts stay.
TEST_F(RemovalTest, ProcedureKeepsUserFilesAndCleansEveryProfile) {
  constexpr wchar_t kBareProfile[] = L"S-1-5-21-9-9-9-1234", kCjkProfile[] = L"S-1-5-21-9-9-9-1235";
  const std::wstring profile = L"\u7528\u6237\u914d\u7f6e";
  const std::wstring key =
      std::wstring(kCjkProfile) + L"\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
  ASSERT_TRUE(WriteRegString(HKEY_USERS, (std::wstring(kBareProfile) + L"\\Software").c_str(), L"v", L"x"));
  for (const wchar_t* name : {L"Desktop", L"Startup", L"Programs"})
    ASSERT_TRUE(WriteRegString(HKEY_USERS, key.c_str(), name, (root_ / profile + L"\\" + name).c_str()));
  Touch({L"Quillmark 8\\ThumbDqm32.dll", L"Quillmark 8\\old.dll", L"Quillmark 8\\data\\",
         L"Quillmark 8\\My Capture.qm8", profile + L"\\Desktop\\Quillmark 8.lnk",
         profile + L"\\Startup\\Quillmark 8.lnk", profile + L"\\Programs\\Quillmark 8\\\u5e2e\u52a9.lnk",
         profile + L"\\Programs\\Other.lnk"});
  WriteLog("File Copy: old.dll\r\nFile Copy: install.log\r\n", kOldJournalName);
  WriteLog("File Copy: ThumbDqm32.dll\r\nFile Copy x64: x64\\ThumbDqm64.dll\r\nMake Dir: data\r\n\r\n");

  UninstallProcedure(install_);
  for (const wchar_t* added : {kBareProfile, kCjkProfile}) ::RegDeleteTreeW(HKEY_USERS, added);
  EXPECT_EQ(Left(), (Tree{L"Quillmark 8\\", L"Quillmark 8\\My Capture.qm8", profile + L"\\", profile + L"\\Desktop\\",
                          profile + L"\\Startup\\", profile + L"\\Programs\\", profile + L"\\Programs\\Other.lnk"}));
  EXPECT_GE(qmtest::PendingIndex(install_ + L"x64"), 0);
  EXPECT_EQ(PendingUnder(root_.path()), 1u);
}

}  // namespace
