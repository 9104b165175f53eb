#include "uninstall/uninstall.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <random>
#include <set>
#include <string>

#include "app/product.h"
#include "installlog/install_log.h"
#include "sys/handles.h"
#include "sys/platform.h"
#include "sys/registry.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::DirExists;
using qmtest::FileExists;
using qmtest::FindPendingRename;
using qmtest::PendingUnder;
using qmtest::WriteFileBytes;

bool IsPendingDeletion(const std::wstring& path) { return FindPendingRename(path, L"") >= 0; }

void ListFiles(const std::wstring& folder, const std::wstring& relative, std::set<std::wstring>& out) {
  WIN32_FIND_DATAW data;
  UniqueFindHandle find(::FindFirstFileW((folder + L"\\*").c_str(), &data));
  if (!find) return;
  do {
    std::wstring name = data.cFileName;
    if (name == L"." || name == L"..") continue;
    std::wstring rel = relative.empty() ? name : relative + L"\\" + name;
    bool folderEntry = data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    out.insert(folderEntry ? rel + L"\\" : rel);
    if (folderEntry) ListFiles(folder + L"\\" + name, rel, out);
  } while (::FindNextFileW(find.get(), &data));
}

// Every file and folder (ending in '\') below folder, relative to it.
std::set<std::wstring> Tree(const std::wstring& folder) {
  std::set<std::wstring> out;
  ListFiles(folder, L"", out);
  return out;
}

// An installed tree in a temporary folder: root\Quillmark 8\ is the
// installation folder (with its trailing backslash, as the worker passes it).
class RemovalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    install_ = root_.path() + L"\\Quillmark 8\\";
    ASSERT_TRUE(::CreateDirectoryW(install_.c_str(), nullptr));
  }
  void TearDown() override { qmtest::ForgetPendingUnder(root_.path()); }

  std::wstring At(const std::wstring& relative) const { return root_ / relative; }
  // Creates root\relative with its folders; a name ending in '\' is a folder.
  void Touch(std::initializer_list<std::wstring> relatives) {
    for (const std::wstring& relative : relatives) {
      std::wstring path = At(relative);
      for (size_t slash = path.find(L'\\', root_.path().size() + 1); slash != std::wstring::npos;
           slash = path.find(L'\\', slash + 1))
        ::CreateDirectoryW(path.substr(0, slash).c_str(), nullptr);
      if (path.back() != L'\\') {
        ASSERT_TRUE(WriteFileBytes(path, "data"));
      }
    }
  }
  std::wstring WriteLog(const std::string& bytes, const wchar_t* name = L"QmkUnInst.log") {
    std::wstring path = install_ + name;
    EXPECT_TRUE(WriteFileBytes(path, bytes));
    return path;
  }
  static std::string Narrow(const std::wstring& text) { return EncodeLogText(text); }

  qmtest::TempDir root_{L"qm uninst"};
  std::wstring install_;
};

// A journal of every entry kind (renamings, " | " comments, wildcards, an x64
// sub-folder entry, a "prt" entry) removes exactly what it names.
TEST_F(RemovalTest, JournalRemovesExactlyItsEntries) {
  Touch({L"Quillmark 8\\Qmkview8.exe", L"Quillmark 8\\libind.dll", L"Quillmark 8\\src.bin", L"Quillmark 8\\b.dll",
         L"Quillmark 8\\c.txt", L"Quillmark 8\\x64\\ThumbDqm64.dll", L"Quillmark 8\\x64\\other64.dll",
         L"portable.ini", L"Quillmark 8\\portable.ini", L"Quillmark 8\\Overwritten.dat", L"Quillmark 8\\a.tmp",
         L"Quillmark 8\\b.tmp", L"Quillmark 8\\keep.txt", L"Quillmark 8\\data\\", L"links\\Quillmark 8.lnk",
         L"links\\other.lnk", L"menu\\Group\\Quillmark 8\\", L"neighbour.txt", L"Quillmark 8\\Read Only.txt",
         L"Quillmark 8\\x", L"Quillmark 8\\y.dll"});
  ::SetFileAttributesW(At(L"Quillmark 8\\Read Only.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  std::wstring logPath = WriteLog(
      "File Copy: Qmkview8.exe\r\nFile Copy ind: libind.dll\r\nFile Copy: src.bin > b.dll\r\n"
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

// With one prefix given only that kind goes in the file pass, "Make Dir: " still
// runs; a missing log does nothing.
TEST_F(RemovalTest, OnlyPrefixLimitsTheFilePass) {
  Touch({L"Quillmark 8\\a.dll", L"Quillmark 8\\old.dll", L"Quillmark 8\\data\\"});
  RemoveLoggedLinks(install_ + L"none.log");
  RemoveLoggedFiles(install_ + L"none.log", install_, nullptr);
  EXPECT_EQ(Tree(install_).size(), 3u);
  RemoveLoggedFiles(WriteLog("File Copy: a.dll\nFile Del: old.dll\nMake Dir: data\n"), install_, kFileDel);
  EXPECT_EQ(Tree(install_), (std::set<std::wstring>{L"a.dll", L"QmkUnInst.log"}));
}

// Patterns with a sub-folder part, without a match, in a missing folder or one
// without a trailing backslash; what cannot go now (a sub-folder, a file held
// open without delete sharing) is queued for deletion at restart.
TEST_F(RemovalTest, DeleteMatchingFilesQueuesWhatIsInUse) {
  Touch({L"Quillmark 8\\x64\\a.dll", L"Quillmark 8\\x64\\b.dll", L"Quillmark 8\\x64\\c.txt",
         L"Quillmark 8\\sub\\inner.txt", L"Quillmark 8\\top.txt"});
  EXPECT_EQ(DeleteMatchingFiles(install_, L"x64\\*.dll"), 2);
  EXPECT_TRUE(FileExists(install_ + L"x64\\c.txt"));
  EXPECT_EQ(DeleteMatchingFiles(install_, L"*.none"), 0);
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

// A "Make Dir: " parent listed before its sub-folder is left to the restart
// while the sub-folder goes; a folder that is not there is queued all the same.
TEST_F(RemovalTest, MakeDirOrderMatters) {
  Touch({L"Quillmark 8\\data\\sub\\", L"Quillmark 8\\empty\\"});
  RemoveLoggedFiles(WriteLog("Make Dir: data\r\nMake Dir: data\\sub\r\nMake Dir: empty\r\nMake Dir: gone\r\n"),
                    install_, nullptr);
  EXPECT_EQ(Tree(install_), (std::set<std::wstring>{L"data\\", L"QmkUnInst.log"}));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"data"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"gone"));
  EXPECT_EQ(PendingUnder(root_.path()), 2u);
}

// Line edge cases with LF and CR LF: lower-case prefix, trailing blanks before
// a renaming split, a 600-character line, a line cut after 511 characters, and
// prefix-only lines (an empty installation folder stays).
TEST_F(RemovalTest, LineEdgeCases) {
  for (const std::string e : {"\n", "\r\n"}) {
    SCOPED_TRACE(e.size() == 2 ? "CR LF" : "LF");
    Touch({L"Quillmark 8\\lower.txt", L"Quillmark 8\\trail.txt", L"Quillmark 8\\a.dll", L"Quillmark 8\\renamed.dll",
           L"Quillmark 8\\long.txt", L"Quillmark 8\\split.txt", L"Quillmark 8\\nosplit.txt",
           L"Quillmark 8\\tab name.txt"});
    std::wstring logPath = At(L"edge.log");
    ASSERT_TRUE(WriteFileBytes(logPath, "file copy: lower.txt" + e + "File Copy: trail.txt   \t" + e +
                                            "File Copy: a.dll > renamed.dll   " + e + "File Copy: long.txt" +
                                            std::string(589, 'x') + e + std::string(511, '-') +
                                            "File Del: split.txt" + e + std::string(510, '-') +
                                            "File Del: nosplit.txt" + e + "File Copy: tab name.txt\t" + e +
                                            "File Copy: " + e + "File Del:" + e + "Make Dir: " + e +
                                            "Made Dir: " + e));
    RemoveLoggedFiles(logPath, install_, nullptr);
    RemoveLoggedLinks(logPath);
    EXPECT_EQ(Tree(install_),
              (std::set<std::wstring>{L"lower.txt", L"a.dll", L"long.txt", L"nosplit.txt"}));
    EXPECT_EQ(PendingUnder(root_.path()), 0u);
  }
}

// A log of random bytes crashes nothing and touches nothing but its one real entry.
TEST_F(RemovalTest, RandomBytesTouchOnlyRealEntries) {
  Touch({L"Quillmark 8\\target.txt", L"Quillmark 8\\a.dll", L"Quillmark 8\\x64\\c.dll", L"sibling.txt"});
  std::mt19937 random(7351);
  auto noise = [&](size_t n) {
    std::string bytes(n, '\0');
    for (char& b : bytes) b = static_cast<char>(random() & 0xFF);
    return bytes;
  };
  std::wstring logPath = WriteLog(noise(30000) + "\nFile Del: target.txt\r\n" + noise(30000));
  RemoveLoggedLinks(logPath);
  RemoveLoggedFiles(logPath, install_, nullptr);
  EXPECT_EQ(Tree(root_.path()), (std::set<std::wstring>{L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log",
                                                        L"Quillmark 8\\a.dll", L"Quillmark 8\\x64\\",
                                                        L"Quillmark 8\\x64\\c.dll", L"sibling.txt"}));
}

// Shortcuts journalled under Cyrillic and CJK folders are found and removed;
// "Made Dir: " takes the emptied parents up to the first one that is not empty.
TEST_F(RemovalTest, WideShortcutPathsRoundTrip) {
  const std::wstring cyrillic = L"\u041f\u043e\u043b\u044c\u0437\u043e\u0432\u0430\u0442\u0435\u043b\u044c\\Desktop";
  const std::wstring cjk = L"\u7528\u6237\\\u684c\u9762";
  Touch({cyrillic + L"\\Quillmark 8.lnk", cjk + L"\\Quillmark 8.lnk",
         cjk + L"\\\u8282\u76ee\\Quillmark 8\\"});
  std::wstring journal = install_ + kJournalName;
  AppendLogLine(journal, L"File Copy: keep.txt");
  AppendLogLine(journal, L"");
  AppendLogLine(journal, std::wstring(kShellLink) + At(cyrillic + L"\\Quillmark 8.lnk"));
  AppendLogLine(journal, std::wstring(kShellLink) + At(cjk + L"\\Quillmark 8.lnk"));
  AppendLogLine(journal, std::wstring(kMadeDir) + At(cjk + L"\\\u8282\u76ee\\Quillmark 8"));
  RemoveLoggedLinks(journal);
  EXPECT_EQ(Tree(root_.path()), (std::set<std::wstring>{L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log",
                                                        L"\u041f\u043e\u043b\u044c\u0437\u043e\u0432\u0430\u0442\u0435\u043b\u044c\\",
                                                        cyrillic + L"\\"}));
}

// ---------------------------------------------------------------------------
// The whole procedure over an installed tree, the shared shell folders and the
// profiles under HKEY_USERS.

constexpr wchar_t kShellFolders[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
// Profiles that the tests add under HKEY_USERS: one without shell folders, one with CJK ones.
constexpr wchar_t kBareProfile[] = L"S-1-5-21-9-9-9-1234";
constexpr wchar_t kCjkProfile[] = L"S-1-5-21-9-9-9-1235";

class UninstallProcedureTest : public RemovalTest {
 protected:
  void SetUp() override {
    RemovalTest::SetUp();
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace_.c_str());
  }
  void TearDown() override {
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
    qmtest::DropKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold");
    qmtest::DropKey(HKEY_USERS, kBareProfile);
    qmtest::DropKey(HKEY_USERS, kCjkProfile);
    RemovalTest::TearDown();
  }
  void InstallProduct() {
    std::wstring standin = qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe";
    ASSERT_TRUE(::CopyFileW(standin.c_str(), (install_ + kProductExe).c_str(), FALSE));
    Touch({L"Quillmark 8\\Qmkview8Man.chm", L"Quillmark 8\\ThumbDqm32.dll", L"Quillmark 8\\x64\\ThumbDqm64.dll",
           L"Quillmark 8\\old.dll", L"Quillmark 8\\data\\"});
    WriteLog("File Copy: old.dll\r\nFile Copy: install.log\r\n", L"install.log");
    WriteLog("File Copy: Qmkview8.exe\r\nFile Copy: Qmkview8Man.chm\r\nFile Copy: ThumbDqm32.dll\r\n"
             "File Copy x64: x64\\ThumbDqm64.dll\r\nMake Dir: data\r\n\r\n");
  }

  std::wstring trace_ = At(L"trace.log");
};

// A complete installation goes: the product unregisters, files, folders and
// journals go, the product's shortcuts in the shared folders and in every
// profile (a CJK one followed, one without shell folders skipped), the vendor key.
TEST_F(UninstallProcedureTest, RemovesACompleteInstallation) {
  InstallProduct();
  const std::wstring commonPrograms = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
  const std::wstring commonDesktop = ShellFolderPath(CSIDL_COMMON_DESKTOPDIRECTORY);
  const std::wstring group = commonPrograms + L"\\Quillmark 8";
  ASSERT_GT(commonPrograms.size(), 4u);
  ::CreateDirectoryW(group.c_str(), nullptr);
  const std::wstring made[] = {ShellFolderPath(CSIDL_COMMON_STARTUP) + L"\\Quillmark 8.lnk",
                               commonDesktop + L"\\Quillmark 8.lnk", group + L"\\Quillmark 8.lnk",
                               group + L"\\Uninstall.lnk",
                               ReadRegString(HKEY_CURRENT_USER, kShellFolders, L"Desktop") + L"\\Quillmark 8.lnk"};
  for (const std::wstring& path : made) ASSERT_TRUE(WriteFileBytes(path, "lnk")) << qmtest::Narrow(path);
  const std::wstring otherShortcut = commonDesktop + L"\\Another Program.lnk";
  ASSERT_TRUE(WriteFileBytes(otherShortcut, "lnk"));
  AppendLogLine(install_ + kJournalName, std::wstring(kMadeDir) + group);
  AppendLogLine(install_ + kJournalName, std::wstring(kShellLink) + group + L"\\Quillmark 8.lnk");
  ASSERT_TRUE(WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path", install_.c_str()));
  ASSERT_TRUE(qmtest::MakeKey(HKEY_USERS, std::wstring(kBareProfile) + L"\\Software"));
  const std::wstring profileName = L"\u7528\u6237\u914d\u7f6e", profile = At(profileName);
  const std::wstring key = std::wstring(kCjkProfile) + L"\\" + kShellFolders;
  for (const wchar_t* name : {L"Desktop", L"Startup", L"Programs"})
    ASSERT_TRUE(WriteRegString(HKEY_USERS, key.c_str(), name, (profile + L"\\" + name).c_str()));
  Touch({profileName + L"\\Desktop\\Quillmark 8.lnk", profileName + L"\\Startup\\Quillmark 8.lnk",
         profileName + L"\\Programs\\Quillmark 8\\\u5e2e\u52a9.lnk", profileName + L"\\Programs\\Other.lnk"});

  UninstallProcedure(install_);

  std::string trace = qmtest::ReadFileBytes(trace_);
  EXPECT_NE(trace.find(" unregonly "), std::string::npos) << trace;
  EXPECT_NE(trace.find("Quillmark 8\\Qmkview8.exe"), std::string::npos) << trace;
  EXPECT_FALSE(DirExists(install_));
  EXPECT_EQ(PendingUnder(root_.path()), 0u);
  for (const std::wstring& path : made) EXPECT_FALSE(FileExists(path)) << qmtest::Narrow(path);
  EXPECT_FALSE(DirExists(group));
  EXPECT_TRUE(FileExists(otherShortcut));
  ::DeleteFileW(otherShortcut.c_str());
  EXPECT_EQ(Tree(profile), (std::set<std::wstring>{L"Desktop\\", L"Startup\\", L"Programs\\",
                                                   L"Programs\\Other.lnk"}));
  EXPECT_FALSE(qmtest::KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold"));
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
  EXPECT_FALSE(DirExists(install_ + L"x64"));
}

}  // namespace
