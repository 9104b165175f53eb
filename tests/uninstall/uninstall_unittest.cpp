#include "uninstall/uninstall.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <set>
#include <string>

#include "installlog/install_log.h"
#include "installlog/journal_passes.h"
#include "product/product.h"
#include "sys/handles.h"
#include "sys/registry.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::FileExists;
using qmtest::PendingUnder;
using qmtest::WriteFileBytes;

bool IsPendingDeletion(const std::wstring& path) { return qmtest::FindPendingRename(path, L"") >= 0; }

// Every file and folder (ending in '\') below folder, relative to it.
std::set<std::wstring> Tree(const std::wstring& folder) {
  std::set<std::wstring> out;
  std::error_code error;
  const size_t skip = folder.size() + (folder.back() == L'\\' ? 0 : 1);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, error))
    out.insert(entry.path().wstring().substr(skip) + (entry.is_directory() ? L"\\" : L""));
  return out;
}

// An installed tree in a temporary folder: root\Quillmark 8\ is the
// installation folder (with its trailing backslash, as the worker passes it).
class RemovalTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(::CreateDirectoryW(install_.c_str(), nullptr)); }
  void TearDown() override { qmtest::ForgetPendingUnder(root_.path()); }

  std::wstring At(const std::wstring& relative) const { return root_ / relative; }
  // Creates root\relative with its folders; a name ending in '\' is a folder.
  void Touch(std::initializer_list<std::wstring> relatives) {
    for (const std::wstring& relative : relatives) {
      std::filesystem::create_directories(std::filesystem::path(At(relative)).parent_path());
      if (relative.back() != L'\\') {
        ASSERT_TRUE(WriteFileBytes(At(relative), "data"));
      }
    }
  }
  std::wstring WriteLog(const std::string& bytes, const wchar_t* name = kJournalName) {
    EXPECT_TRUE(WriteFileBytes(install_ + name, bytes));
    return install_ + name;
  }
  static std::string Narrow(const std::wstring& text) { return EncodeLogText(text); }

  qmtest::TempDir root_{L"qm uninst"};
  std::wstring install_ = root_.path() + L"\\Quillmark 8\\";
};

// A journal of every entry kind (renamings, also before trailing blanks, " | "
// comments, wildcards, an x64 sub-folder entry, a "prt" entry) removes exactly
// what it names, read-only and hidden files included.
TEST_F(RemovalTest, JournalRemovesExactlyItsEntries) {
  Touch({L"Quillmark 8\\Qmkview8.exe", L"Quillmark 8\\libind.dll", L"Quillmark 8\\src.bin", L"Quillmark 8\\b.dll",
         L"Quillmark 8\\c.txt", L"Quillmark 8\\x64\\ThumbDqm64.dll", L"Quillmark 8\\x64\\other64.dll",
         L"portable.ini", L"Quillmark 8\\portable.ini", L"Quillmark 8\\Overwritten.dat", L"Quillmark 8\\a.tmp",
         L"Quillmark 8\\b.tmp", L"Quillmark 8\\keep.txt", L"Quillmark 8\\data\\", L"links\\Quillmark 8.lnk",
         L"links\\other.lnk", L"menu\\Group\\Quillmark 8\\", L"neighbour.txt", L"Quillmark 8\\Read Only.txt",
         L"Quillmark 8\\x", L"Quillmark 8\\y.dll"});
  ::SetFileAttributesW(At(L"Quillmark 8\\Read Only.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  std::wstring logPath = WriteLog(
      "File Copy: Qmkview8.exe\r\nFile Copy ind: libind.dll\r\nFile Copy: src.bin > b.dll \t\r\n"
      "File Copy: x -> y.dll\r\nFile Copy: c.txt | shipped for the help viewer\r\n"
      "File Copy x64: x64\\ThumbDqm64.dll\r\nFile Copy prt: portable.ini\r\nFile Overwrite: Overwritten.dat\r\n"
      "File Del: *.tmp\r\nFile Copy: Read Only.txt\r\nMake Dir: data\r\n\r\n"
      "Shell Link: " + Narrow(At(L"links\\Quillmark 8.lnk")) + "\r\n"
      "Made Dir: " + Narrow(At(L"menu\\Group\\Quillmark 8")) + "\r\n");
  RemoveLoggedLinks(logPath);
  RemoveLoggedFiles(logPath, install_, nullptr);

  EXPECT_EQ(Tree(root_.path()),
            (std::set<std::wstring>{L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log", L"Quillmark 8\\src.bin",
                                    L"Quillmark 8\\x64\\", L"Quillmark 8\\x64\\other64.dll",
                                    L"Quillmark 8\\portable.ini", L"Quillmark 8\\keep.txt", L"Quillmark 8\\x",
                                    L"links\\", L"links\\other.lnk", L"neighbour.txt"}));
  EXPECT_EQ(PendingUnder(root_.path()), 0u);
}

// Patterns with a sub-folder part, without a match, in a missing folder or one
// without a trailing backslash; what cannot go now (a sub-folder, a file held
// open without delete sharing) is queued for deletion at restart.
TEST_F(RemovalTest, DeleteMatchingFilesQueuesWhatIsInUse) {
  Touch({L"Quillmark 8\\x64\\a.dll", L"Quillmark 8\\x64\\b.dll", L"Quillmark 8\\x64\\c.txt",
         L"Quillmark 8\\sub\\inner.txt", L"Quillmark 8\\top.txt"});
  EXPECT_EQ(DeleteMatchingFiles(install_, L"x64\\*.dll"), 2);
  EXPECT_TRUE(FileExists(install_ + L"x64\\c.txt"));
  EXPECT_EQ(DeleteMatchingFiles(install_ + L"missing", L"*.*"), 0);
  EXPECT_EQ(DeleteMatchingFiles(root_.path() + L"\\Quillmark 8", L"*.*"), 1);
  EXPECT_FALSE(FileExists(install_ + L"top.txt"));
  EXPECT_TRUE(FileExists(install_ + L"sub\\inner.txt"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"sub"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"x64"));

  Touch({L"Quillmark 8\\busy.dll", L"Quillmark 8\\free.dll"});
  UniqueFileHandle held = qmtest::HoldFile(install_ + L"busy.dll", FILE_SHARE_READ);
  ASSERT_TRUE(held);
  EXPECT_EQ(DeleteMatchingFiles(install_, L"*.dll"), 1);
  EXPECT_TRUE(FileExists(install_ + L"busy.dll"));
  EXPECT_FALSE(FileExists(install_ + L"free.dll"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"busy.dll"));
  EXPECT_FALSE(IsPendingDeletion(install_));
  EXPECT_EQ(PendingUnder(root_.path()), 3u);
}

// With one kind given, as the install run does, only that kind goes in the
// file pass and the "Make Dir: " pass still runs: a parent listed before its
// sub-folder is left to the restart while the sub-folder goes, and a folder
// that is not there is queued all the same.
TEST_F(RemovalTest, OneKindAndMakeDirOrder) {
  Touch({L"Quillmark 8\\a.dll", L"Quillmark 8\\old.dll", L"Quillmark 8\\data\\sub\\", L"Quillmark 8\\empty\\"});
  RemoveLoggedFiles(WriteLog("File Copy: a.dll\r\nFile Del: old.dll\r\nMake Dir: data\r\nMake Dir: data\\sub\r\n"
                             "Make Dir: empty\r\nMake Dir: gone\r\n"),
                    install_, kFileDel);
  EXPECT_EQ(Tree(install_), (std::set<std::wstring>{L"a.dll", L"data\\", L"QmkUnInst.log"}));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"data"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"gone"));
  EXPECT_EQ(PendingUnder(root_.path()), 2u);
}

// A log of random bytes around a few real entries crashes nothing and touches
// only those: lower-case and prefix-only lines are no entries, and a line past
// 511 characters goes on as a line of its own.
TEST_F(RemovalTest, RandomBytesAndOddLinesTouchOnlyRealEntries) {
  Touch({L"Quillmark 8\\target.txt", L"Quillmark 8\\split.txt", L"Quillmark 8\\a.dll", L"Quillmark 8\\x64\\c.dll",
         L"sibling.txt"});
  std::mt19937 random(7351);
  auto noise = [&](size_t n) {
    std::string bytes(n, '\0');
    for (char& b : bytes) b = static_cast<char>(random() & 0xFF);
    return bytes;
  };
  std::wstring logPath = WriteLog(noise(30000) + "\nFile Del: target.txt\r\nfile del: a.dll\n" +
                                  std::string(511, '-') + "File Del: split.txt\nFile Del:\nMake Dir: \r\nMade Dir: \n" +
                                  noise(30000));
  RemoveLoggedLinks(logPath);
  RemoveLoggedFiles(logPath, install_, nullptr);
  EXPECT_EQ(Tree(root_.path()), (std::set<std::wstring>{L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log",
                                                        L"Quillmark 8\\a.dll", L"Quillmark 8\\x64\\",
                                                        L"Quillmark 8\\x64\\c.dll", L"sibling.txt"}));
  EXPECT_EQ(PendingUnder(root_.path()), 0u);
}

// Shortcuts journalled under Cyrillic and CJK folders are found and removed;
// "Made Dir: " takes the emptied parents up to the first one that is not empty.
TEST_F(RemovalTest, WideShortcutPathsRoundTrip) {
  const std::wstring user = L"\u041f\u043e\u043b\u044c\u0437\u043e\u0432\u0430\u0442\u0435\u043b\u044c";
  const std::wstring cyrillic = user + L"\\Desktop";
  const std::wstring cjk = L"\u7528\u6237\\\u684c\u9762";
  Touch({cyrillic + L"\\Quillmark 8.lnk", cjk + L"\\Quillmark 8.lnk", cjk + L"\\\u8282\u76ee\\Quillmark 8\\"});
  std::wstring journal = install_ + kJournalName;
  AppendLogLine(journal, L"File Copy: keep.txt");
  AppendLogLine(journal, L"");
  AppendLogLine(journal, std::wstring(kShellLink) + At(cyrillic + L"\\Quillmark 8.lnk"));
  AppendLogLine(journal, std::wstring(kShellLink) + At(cjk + L"\\Quillmark 8.lnk"));
  AppendLogLine(journal, std::wstring(kMadeDir) + At(cjk + L"\\\u8282\u76ee\\Quillmark 8"));
  RemoveLoggedLinks(journal);
  EXPECT_EQ(Tree(root_.path()), (std::set<std::wstring>{L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log",
                                                        user + L"\\", cyrillic + L"\\"}));
}

// ---------------------------------------------------------------------------
// The whole procedure (the installed package end to end is the e2e scripts'
// part): what they cannot show, other profiles and the folder deferral rules.

constexpr wchar_t kShellFolders[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
// Profiles that the tests add under HKEY_USERS: one without shell folders, one with CJK ones.
constexpr wchar_t kBareProfile[] = L"S-1-5-21-9-9-9-1234";
constexpr wchar_t kCjkProfile[] = L"S-1-5-21-9-9-9-1235";

class UninstallProcedureTest : public RemovalTest {
 protected:
  void TearDown() override {
    for (const wchar_t* profile : {kBareProfile, kCjkProfile}) qmtest::DropKey(HKEY_USERS, profile);
    RemovalTest::TearDown();
  }
  // The product's files (no program: its "-unregonly" run fails quietly) and
  // both journals, "install.log" naming a file of an earlier version.
  void InstallProduct() {
    Touch({L"Quillmark 8\\ThumbDqm32.dll", L"Quillmark 8\\x64\\ThumbDqm64.dll", L"Quillmark 8\\old.dll",
           L"Quillmark 8\\data\\"});
    WriteLog("File Copy: old.dll\r\nFile Copy: install.log\r\n", kOldJournalName);
    WriteLog("File Copy: ThumbDqm32.dll\r\nFile Copy x64: x64\\ThumbDqm64.dll\r\nMake Dir: data\r\n\r\n");
  }
};

// The installation goes entirely, and every profile under HKEY_USERS loses the
// product's shortcuts and group in its own shell folders (CJK ones followed,
// a profile without them skipped); other shortcuts stay.
TEST_F(UninstallProcedureTest, RemovesTheInstallationAndEveryProfilesShortcuts) {
  InstallProduct();
  ASSERT_TRUE(qmtest::MakeKey(HKEY_USERS, std::wstring(kBareProfile) + L"\\Software"));
  const std::wstring profile = L"\u7528\u6237\u914d\u7f6e";
  const std::wstring key = std::wstring(kCjkProfile) + L"\\" + kShellFolders;
  for (const wchar_t* name : {L"Desktop", L"Startup", L"Programs"})
    ASSERT_TRUE(WriteRegString(HKEY_USERS, key.c_str(), name, At(profile + L"\\" + name).c_str()));
  Touch({profile + L"\\Desktop\\Quillmark 8.lnk", profile + L"\\Startup\\Quillmark 8.lnk",
         profile + L"\\Programs\\Quillmark 8\\\u5e2e\u52a9.lnk", profile + L"\\Programs\\Other.lnk"});

  UninstallProcedure(install_);
  EXPECT_EQ(Tree(root_.path()), (std::set<std::wstring>{profile + L"\\", profile + L"\\Desktop\\",
                                                        profile + L"\\Startup\\", profile + L"\\Programs\\",
                                                        profile + L"\\Programs\\Other.lnk"}));
  EXPECT_EQ(PendingUnder(root_.path()), 0u);
}

// A user's own file keeps the installation folder, which is then not queued;
// a missing x64 folder is queued all the same.
TEST_F(UninstallProcedureTest, UserFileKeepsTheFolder) {
  InstallProduct();
  ::DeleteFileW((install_ + L"x64\\ThumbDqm64.dll").c_str());
  ::RemoveDirectoryW((install_ + L"x64").c_str());
  Touch({L"Quillmark 8\\My Capture.qm8"});
  UninstallProcedure(install_);
  EXPECT_EQ(Tree(install_), (std::set<std::wstring>{L"My Capture.qm8"}));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"x64"));
  EXPECT_EQ(PendingUnder(root_.path()), 1u);
}

// An x32 folder that cannot go is queued, and then so is the installation folder.
TEST_F(UninstallProcedureTest, BusyX32QueuesTheInstallationFolder) {
  Touch({L"Quillmark 8\\x32\\helper32.dll"});
  UninstallProcedure(install_);
  EXPECT_TRUE(FileExists(install_ + L"x32\\helper32.dll"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"x32"));
  EXPECT_TRUE(IsPendingDeletion(install_));
  EXPECT_FALSE(qmtest::DirExists(install_ + L"x64"));
}

}  // namespace
