#include "uninstall/uninstall.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <memory>
#include <random>
#include <set>
#include <string>

#include "app/product.h"
#include "installlog/install_log.h"
#include "sys/handles.h"
#include "sys/platform.h"
#include "sys/registry.h"
#include "tests/support/test_support.h"
#include "tests/uninstall/uninstall_test_support.h"

namespace {

using qmtest::DirExists;
using qmtest::FileExists;
using qmtest::TempDir;
using qmtest::WriteFileBytes;
using namespace uninstalltest;

void ListFiles(const std::wstring& folder, const std::wstring& relative, std::set<std::wstring>& out) {
  WIN32_FIND_DATAW data;
  UniqueFindHandle find(::FindFirstFileW((folder + L"\\*").c_str(), &data));
  if (!find) return;
  do {
    std::wstring name = data.cFileName;
    if (name == L"." || name == L"..") continue;
    std::wstring rel = relative.empty() ? name : relative + L"\\" + name;
    if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      out.insert(rel + L"\\");
      ListFiles(folder + L"\\" + name, rel, out);
    } else {
      out.insert(rel);
    }
  } while (::FindNextFileW(find.get(), &data));
}

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
  void TearDown() override { ForgetPendingUnder(root_.path()); }

  std::wstring At(const std::wstring& relative) const { return root_.path() + L"\\" + relative; }
  void Touch(const std::wstring& relative) {
    std::wstring path = At(relative);
    for (size_t slash = path.find(L'\\', root_.path().size() + 1); slash != std::wstring::npos;
         slash = path.find(L'\\', slash + 1))
      ::CreateDirectoryW(path.substr(0, slash).c_str(), nullptr);
    if (path.back() != L'\\') {
      ASSERT_TRUE(WriteFileBytes(path, "data"));
    }
  }
  std::wstring WriteLog(const std::string& bytes, const wchar_t* name = L"QmkUnInst.log") {
    std::wstring path = install_ + name;
    EXPECT_TRUE(WriteFileBytes(path, bytes));
    return path;
  }
  std::string Narrow(const std::wstring& text) const { return EncodeLogText(text); }

  TempDir root_{L"qm uninst"};
  std::wstring install_;
};

// A journal of every entry kind removes exactly what it names, in the right folders.
TEST_F(RemovalTest, JournalRemovesExactlyItsEntries) {
  for (const wchar_t* file :
       {L"Quillmark 8\\Qmkview8.exe", L"Quillmark 8\\libind.dll", L"Quillmark 8\\src.bin", L"Quillmark 8\\b.dll",
        L"Quillmark 8\\c.txt", L"Quillmark 8\\x64\\ThumbDqm64.dll", L"Quillmark 8\\x64\\other64.dll",
        L"portable.ini", L"Quillmark 8\\portable.ini", L"Quillmark 8\\Overwritten.dat", L"Quillmark 8\\a.tmp",
        L"Quillmark 8\\b.tmp", L"Quillmark 8\\keep.txt", L"Quillmark 8\\mine.txt", L"Quillmark 8\\data\\",
        L"links\\Quillmark 8.lnk", L"links\\other.lnk", L"menu\\Group\\Quillmark 8\\", L"neighbour.txt",
        L"Quillmark 8\\Read Only.txt", L"Quillmark 8\\x", L"Quillmark 8\\y.dll"})
    Touch(file);
  ::SetFileAttributesW(At(L"Quillmark 8\\Read Only.txt").c_str(),
                       FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  std::string log =
      "File Copy: Qmkview8.exe\r\n"
      "File Copy ind: libind.dll\r\n"
      "File Copy: src.bin > b.dll\r\n"
      "File Copy: x -> y.dll\r\n"
      "File Copy: c.txt | shipped for the help viewer\r\n"
      "File Copy x64: x64\\ThumbDqm64.dll\r\n"
      "File Copy prt: portable.ini\r\n"
      "File Overwrite: Overwritten.dat\r\n"
      "File Del: *.tmp\r\n"
      "File Copy: Read Only.txt\r\n"
      "Make Dir: data\r\n"
      "\r\n"
      "Shell Link: " + Narrow(At(L"links\\Quillmark 8.lnk")) + "\r\n"
      "Made Dir: " + Narrow(At(L"menu\\Group\\Quillmark 8")) + "\r\n";
  std::wstring logPath = WriteLog(log);
  RemoveLoggedLinks(logPath);
  RemoveLoggedFiles(logPath, install_, nullptr);

  std::set<std::wstring> expected = {
      L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log", L"Quillmark 8\\src.bin", L"Quillmark 8\\x64\\",
      L"Quillmark 8\\x64\\other64.dll", L"Quillmark 8\\portable.ini", L"Quillmark 8\\keep.txt",
      L"Quillmark 8\\mine.txt", L"Quillmark 8\\x", L"links\\", L"links\\other.lnk", L"neighbour.txt"};
  EXPECT_EQ(Tree(root_.path()), expected);
  EXPECT_EQ(PendingDeletionsUnder(root_.path()), 0u);
}

// With one prefix given only that kind is removed in the file pass; "Make Dir: " still runs.
TEST_F(RemovalTest, OnlyPrefixLimitsTheFilePass) {
  for (const wchar_t* file : {L"Quillmark 8\\a.dll", L"Quillmark 8\\old.dll", L"Quillmark 8\\data\\"}) Touch(file);
  std::wstring logPath = WriteLog("File Copy: a.dll\nFile Del: old.dll\nMake Dir: data\n");
  RemoveLoggedFiles(logPath, install_, kFileDel);
  EXPECT_TRUE(FileExists(install_ + L"a.dll"));
  EXPECT_FALSE(FileExists(install_ + L"old.dll"));
  EXPECT_FALSE(DirExists(install_ + L"data"));
}

// A file held open without delete sharing is left and queued for deletion at restart.
TEST_F(RemovalTest, FileInUseIsQueuedForRestart) {
  Touch(L"Quillmark 8\\busy.dll");
  Touch(L"Quillmark 8\\free.dll");
  std::wstring busy = install_ + L"busy.dll";
  UniqueFileHandle held(::CreateFileW(busy.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(held);
  EXPECT_EQ(DeleteMatchingFiles(install_, L"*.dll"), 1);
  EXPECT_TRUE(FileExists(busy));
  EXPECT_FALSE(FileExists(install_ + L"free.dll"));
  EXPECT_TRUE(IsPendingDeletion(busy));
  EXPECT_EQ(PendingDeletionsUnder(root_.path()), 1u);
}

// Patterns: sub-folder part, no match, missing folder; "." and ".." never touched.
TEST_F(RemovalTest, DeleteMatchingFilesPatterns) {
  for (const wchar_t* file : {L"Quillmark 8\\x64\\a.dll", L"Quillmark 8\\x64\\b.dll", L"Quillmark 8\\x64\\c.txt",
                              L"Quillmark 8\\sub\\inner.txt", L"Quillmark 8\\top.txt"})
    Touch(file);
  EXPECT_EQ(DeleteMatchingFiles(install_, L"x64\\*.dll"), 2);
  EXPECT_TRUE(FileExists(install_ + L"x64\\c.txt"));
  EXPECT_EQ(DeleteMatchingFiles(install_, L"*.none"), 0);
  EXPECT_EQ(DeleteMatchingFiles(install_ + L"missing", L"*.*"), 0);
  // Without a trailing backslash the folder is joined with one.
  EXPECT_EQ(DeleteMatchingFiles(root_.path() + L"\\Quillmark 8", L"*.*"), 1);
  EXPECT_FALSE(FileExists(install_ + L"top.txt"));
  // A sub-folder matched by the pattern cannot go now: it is left to the restart.
  EXPECT_TRUE(FileExists(install_ + L"sub\\inner.txt"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"sub"));
  EXPECT_FALSE(IsPendingDeletion(install_));
  EXPECT_FALSE(IsPendingDeletion(root_.path()));
}

// A "Make Dir: " parent listed before its sub-folder is left to the restart; the sub-folder goes.
TEST_F(RemovalTest, MakeDirOrderMatters) {
  Touch(L"Quillmark 8\\data\\sub\\");
  Touch(L"Quillmark 8\\empty\\");
  std::wstring logPath = WriteLog("Make Dir: data\r\nMake Dir: data\\sub\r\nMake Dir: empty\r\nMake Dir: gone\r\n");
  RemoveLoggedFiles(logPath, install_, nullptr);
  EXPECT_TRUE(DirExists(install_ + L"data"));
  EXPECT_FALSE(DirExists(install_ + L"data\\sub"));
  EXPECT_FALSE(DirExists(install_ + L"empty"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"data"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"gone"));  // a folder that is not there is queued all the same
  EXPECT_FALSE(IsPendingDeletion(install_ + L"data\\sub"));
}

// "Made Dir: " removes the folder and its parents up to the first one that is not empty.
TEST_F(RemovalTest, MadeDirClimbsWhileEmpty) {
  Touch(L"start\\keep.txt");
  Touch(L"start\\Programs\\Vendor\\Quillmark 8\\");
  std::wstring logPath = WriteLog("Made Dir: " + Narrow(At(L"start\\Programs\\Vendor\\Quillmark 8")) + "\r\n");
  RemoveLoggedLinks(logPath);
  EXPECT_FALSE(DirExists(At(L"start\\Programs")));
  EXPECT_TRUE(FileExists(At(L"start\\keep.txt")));
}

// Line edge cases, with LF and with CR LF line ends alike.
TEST_F(RemovalTest, LineEdgeCases) {
  for (const char* end : {"\n", "\r\n"}) {
    SCOPED_TRACE(end[0] == '\r' ? "CR LF" : "LF");
    for (const wchar_t* file : {L"Quillmark 8\\lower.txt", L"Quillmark 8\\trail.txt", L"Quillmark 8\\a.dll",
                                L"Quillmark 8\\renamed.dll", L"Quillmark 8\\long.txt", L"Quillmark 8\\split.txt",
                                L"Quillmark 8\\nosplit.txt", L"Quillmark 8\\tab name.txt"})
      Touch(file);
    std::string e = end;
    std::string log = "file copy: lower.txt" + e + "File Copy: trail.txt   \t" + e + "File Copy: a.dll > renamed.dll   " +
                      e + "File Copy: long.txt" + std::string(589, 'x') + e + std::string(511, '-') +
                      "File Del: split.txt" + e + std::string(510, '-') + "File Del: nosplit.txt" + e +
                      "File Copy: tab name.txt\t" + e + "File Copy: " + e + "File Del:" + e;
    std::wstring logPath = WriteLog(log, L"edge.log");
    RemoveLoggedFiles(logPath, install_, nullptr);
    EXPECT_TRUE(FileExists(install_ + L"lower.txt"));
    EXPECT_FALSE(FileExists(install_ + L"trail.txt"));
    EXPECT_TRUE(FileExists(install_ + L"a.dll"));
    EXPECT_FALSE(FileExists(install_ + L"renamed.dll"));
    EXPECT_TRUE(FileExists(install_ + L"long.txt"));
    EXPECT_FALSE(FileExists(install_ + L"split.txt"));
    EXPECT_TRUE(FileExists(install_ + L"nosplit.txt"));
    EXPECT_FALSE(FileExists(install_ + L"tab name.txt"));
    EXPECT_EQ(PendingDeletionsUnder(root_.path()), 0u);
  }
}

// A "Make Dir: " line with nothing after the prefix is no entry: an empty installation folder stays.
TEST_F(RemovalTest, PrefixOnlyMakeDirLeavesTheFolder) {
  std::wstring logPath = At(L"outside.log");
  ASSERT_TRUE(WriteFileBytes(logPath, "Make Dir: \r\nMade Dir: \r\n"));
  RemoveLoggedFiles(logPath, install_, nullptr);
  RemoveLoggedLinks(logPath);
  EXPECT_TRUE(DirExists(install_));
  EXPECT_EQ(PendingDeletionsUnder(root_.path()), 0u);
}

// A log of random bytes crashes nothing and touches nothing but its one real entry.
TEST_F(RemovalTest, RandomBytesTouchOnlyRealEntries) {
  for (const wchar_t* file : {L"Quillmark 8\\target.txt", L"Quillmark 8\\a.dll", L"Quillmark 8\\b.exe",
                              L"Quillmark 8\\x64\\c.dll", L"sibling.txt"})
    Touch(file);
  std::mt19937 random(7351);
  auto noise = [&](size_t n) {
    std::string bytes(n, '\0');
    for (char& b : bytes) b = static_cast<char>(random() & 0xFF);
    return bytes;
  };
  std::wstring logPath = WriteLog(noise(30000) + "\nFile Del: target.txt\r\n" + noise(30000));
  RemoveLoggedLinks(logPath);
  RemoveLoggedFiles(logPath, install_, nullptr);
  std::set<std::wstring> expected = {L"Quillmark 8\\", L"Quillmark 8\\QmkUnInst.log", L"Quillmark 8\\a.dll",
                                     L"Quillmark 8\\b.exe", L"Quillmark 8\\x64\\", L"Quillmark 8\\x64\\c.dll",
                                     L"sibling.txt"};
  EXPECT_EQ(Tree(root_.path()), expected);
}

// Shortcuts journalled under Cyrillic and CJK folders are found and removed.
TEST_F(RemovalTest, WideShortcutPathsRoundTrip) {
  std::wstring cyrillic = L"\u041f\u043e\u043b\u044c\u0437\u043e\u0432\u0430\u0442\u0435\u043b\u044c\\Desktop\\";
  std::wstring cjk = L"\u7528\u6237\\\u684c\u9762\\";
  Touch(cyrillic + L"Quillmark 8.lnk");
  Touch(cjk + L"Quillmark 8.lnk");
  Touch(cjk + L"\u8282\u76ee\\Quillmark 8\\");
  std::wstring journal = install_ + kJournalName;
  AppendLogLine(journal, L"File Copy: keep.txt");
  AppendLogLine(journal, L"");
  AppendLogLine(journal, std::wstring(kShellLink) + At(cyrillic + L"Quillmark 8.lnk"));
  AppendLogLine(journal, std::wstring(kShellLink) + At(cjk + L"Quillmark 8.lnk"));
  AppendLogLine(journal, std::wstring(kMadeDir) + At(cjk + L"\u8282\u76ee\\Quillmark 8"));
  RemoveLoggedLinks(journal);
  EXPECT_FALSE(FileExists(At(cyrillic + L"Quillmark 8.lnk")));
  EXPECT_FALSE(FileExists(At(cjk + L"Quillmark 8.lnk")));
  EXPECT_FALSE(DirExists(At(cjk + L"\u8282\u76ee")));
  EXPECT_FALSE(DirExists(At(L"\u7528\u6237")));  // emptied parents go as well
  EXPECT_TRUE(DirExists(At(L"\u041f\u043e\u043b\u044c\u0437\u043e\u0432\u0430\u0442\u0435\u043b\u044c\\Desktop")));
}

// A missing log is skipped silently.
TEST_F(RemovalTest, MissingLogDoesNothing) {
  Touch(L"Quillmark 8\\a.dll");
  RemoveLoggedLinks(install_ + L"none.log");
  RemoveLoggedFiles(install_ + L"none.log", install_, nullptr);
  EXPECT_TRUE(FileExists(install_ + L"a.dll"));
}

// ---------------------------------------------------------------------------
// The whole procedure over an installed tree, the shared shell folders and the
// profiles under HKEY_USERS.

constexpr wchar_t kShellFolders[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";

// Profiles that the tests add under HKEY_USERS.
constexpr wchar_t kBareProfile[] = L"S-1-5-21-9-9-9-1234";
constexpr wchar_t kCjkProfile[] = L"S-1-5-21-9-9-9-1235";

class UninstallProcedureTest : public RemovalTest {
 protected:
  void SetUp() override {
    RemovalTest::SetUp();
    trace_ = At(L"trace.log");
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace_.c_str());
    for (const wchar_t* name : {L"Desktop", L"Startup", L"Programs"})
      savedDefault_.push_back(GetString(HKEY_USERS, std::wstring(L".Default\\") + kShellFolders, name));
  }
  void TearDown() override {
    const wchar_t* names[] = {L"Desktop", L"Startup", L"Programs"};
    for (size_t i = 0; i < 3; ++i) {
      std::wstring key = std::wstring(L".Default\\") + kShellFolders;
      if (savedDefault_[i] == L"<missing>") {
        CKey k;
        if (k.Open(HKEY_USERS, key.c_str(), KEY_ALL_ACCESS) == ERROR_SUCCESS) ::RegDeleteValueW(k.get(), names[i]);
      } else {
        SetString(HKEY_USERS, key, names[i], savedDefault_[i]);
      }
    }
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
    DropKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold");
    DropKey(HKEY_USERS, kBareProfile);
    DropKey(HKEY_USERS, kCjkProfile);
    RemovalTest::TearDown();
  }

  // Points the .Default profile's shell folders at a folder of the test.
  std::wstring UseDefaultProfileUnder(const std::wstring& relative) {
    std::wstring base = At(relative);
    std::wstring key = std::wstring(L".Default\\") + kShellFolders;
    EXPECT_TRUE(SetString(HKEY_USERS, key, L"Desktop", base + L"\\Desktop"));
    EXPECT_TRUE(SetString(HKEY_USERS, key, L"Startup", base + L"\\Startup"));
    EXPECT_TRUE(SetString(HKEY_USERS, key, L"Programs", base + L"\\Programs"));
    return base;
  }

  void InstallProduct() {
    std::wstring standin = qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe";
    ASSERT_TRUE(::CopyFileW(standin.c_str(), (install_ + kProductExe).c_str(), FALSE));
    for (const wchar_t* file : {L"Quillmark 8\\Qmkview8Man.chm", L"Quillmark 8\\ThumbDqm32.dll",
                                L"Quillmark 8\\x64\\ThumbDqm64.dll", L"Quillmark 8\\old.dll", L"Quillmark 8\\data\\"})
      Touch(file);
    WriteLog("File Copy: old.dll\r\nFile Copy: install.log\r\n", L"install.log");
    WriteLog("File Copy: Qmkview8.exe\r\nFile Copy: Qmkview8Man.chm\r\nFile Copy: ThumbDqm32.dll\r\n"
             "File Copy x64: x64\\ThumbDqm64.dll\r\nMake Dir: data");
    AppendLogLine(install_ + kJournalName, L"");
  }

  std::wstring trace_;
  std::vector<std::wstring> savedDefault_;
};

// A complete installation goes: files, folders, journals, shortcuts in shared and profile folders, vendor key.
TEST_F(UninstallProcedureTest, RemovesACompleteInstallation) {
  InstallProduct();
  std::wstring commonStartup = ShellFolderPath(CSIDL_COMMON_STARTUP);
  std::wstring commonDesktop = ShellFolderPath(CSIDL_COMMON_DESKTOPDIRECTORY);
  std::wstring commonPrograms = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
  ASSERT_GT(commonStartup.size(), 4u);
  ASSERT_GT(commonDesktop.size(), 4u);
  ASSERT_GT(commonPrograms.size(), 4u);
  std::wstring userDesktop = ReadRegString(HKEY_CURRENT_USER, kShellFolders, L"Desktop");
  ASSERT_FALSE(userDesktop.empty());
  std::wstring profile = UseDefaultProfileUnder(L"\u041f\u0440\u043e\u0444\u0438\u043b\u044c");
  for (const wchar_t* file : {L"\\Desktop\\Quillmark 8.lnk", L"\\Startup\\Quillmark 8.lnk",
                              L"\\Programs\\Quillmark 8\\Quillmark 8.lnk", L"\\Programs\\Quillmark 8\\Help.lnk",
                              L"\\Programs\\Other.lnk"})
    Touch(L"\u041f\u0440\u043e\u0444\u0438\u043b\u044c" + std::wstring(file));

  std::wstring group = commonPrograms + L"\\Quillmark 8";
  ::CreateDirectoryW(group.c_str(), nullptr);
  const std::wstring made[] = {commonStartup + L"\\Quillmark 8.lnk", commonDesktop + L"\\Quillmark 8.lnk",
                               group + L"\\Quillmark 8.lnk", group + L"\\Uninstall.lnk",
                               userDesktop + L"\\Quillmark 8.lnk"};
  for (const std::wstring& path : made) ASSERT_TRUE(WriteFileBytes(path, "lnk")) << qmtest::Narrow(path);
  std::wstring otherShortcut = commonDesktop + L"\\Another Program.lnk";
  ASSERT_TRUE(WriteFileBytes(otherShortcut, "lnk"));
  AppendLogLine(install_ + kJournalName, std::wstring(kMadeDir) + group);
  AppendLogLine(install_ + kJournalName, std::wstring(kShellLink) + group + L"\\Quillmark 8.lnk");
  ASSERT_TRUE(WriteRegString(HKEY_LOCAL_MACHINE, kVendorKey, L"Path", install_.c_str()));

  UninstallProcedure(install_);

  std::string trace = qmtest::ReadFileBytes(trace_);
  EXPECT_NE(trace.find(" unregonly "), std::string::npos) << trace;
  EXPECT_NE(trace.find("Quillmark 8\\Qmkview8.exe"), std::string::npos) << trace;
  EXPECT_FALSE(DirExists(install_));
  EXPECT_EQ(PendingDeletionsUnder(root_.path()), 0u);
  for (const std::wstring& path : made) EXPECT_FALSE(FileExists(path)) << qmtest::Narrow(path);
  EXPECT_FALSE(DirExists(group));
  EXPECT_TRUE(FileExists(otherShortcut));
  EXPECT_FALSE(FileExists(profile + L"\\Desktop\\Quillmark 8.lnk"));
  EXPECT_FALSE(FileExists(profile + L"\\Startup\\Quillmark 8.lnk"));
  EXPECT_FALSE(DirExists(profile + L"\\Programs\\Quillmark 8"));
  EXPECT_TRUE(FileExists(profile + L"\\Programs\\Other.lnk"));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold"));
  ::DeleteFileW(otherShortcut.c_str());
}

// A profile with CJK shell folders is followed; one without a Shell Folders key is skipped.
TEST_F(UninstallProcedureTest, FollowsEveryProfile) {
  const std::wstring bare = kBareProfile, cjkProfile = kCjkProfile;
  ASSERT_TRUE(MakeKey(HKEY_USERS, bare + L"\\Software"));
  std::wstring base = At(L"\u7528\u6237\u914d\u7f6e");
  std::wstring key = cjkProfile + L"\\" + kShellFolders;
  ASSERT_TRUE(SetString(HKEY_USERS, key, L"Desktop", base + L"\\Desktop"));
  ASSERT_TRUE(SetString(HKEY_USERS, key, L"Startup", base + L"\\Startup"));
  ASSERT_TRUE(SetString(HKEY_USERS, key, L"Programs", base + L"\\Programs"));
  for (const wchar_t* file : {L"\\Desktop\\Quillmark 8.lnk", L"\\Startup\\Quillmark 8.lnk",
                              L"\\Programs\\Quillmark 8\\\u5e2e\u52a9.lnk"})
    Touch(L"\u7528\u6237\u914d\u7f6e" + std::wstring(file));
  UninstallProcedure(install_);
  EXPECT_FALSE(FileExists(base + L"\\Desktop\\Quillmark 8.lnk"));
  EXPECT_FALSE(FileExists(base + L"\\Startup\\Quillmark 8.lnk"));
  EXPECT_FALSE(DirExists(base + L"\\Programs\\Quillmark 8"));
  EXPECT_TRUE(DirExists(base + L"\\Programs"));
}

// A user's own file keeps the installation folder; without an x32 folder it is not queued,
// while the missing x64 folder is queued all the same.
TEST_F(UninstallProcedureTest, UserFileKeepsTheFolder) {
  InstallProduct();
  ::DeleteFileW((install_ + L"x64\\ThumbDqm64.dll").c_str());
  ::RemoveDirectoryW((install_ + L"x64").c_str());
  Touch(L"Quillmark 8\\My Capture.qm8");
  UninstallProcedure(install_);
  EXPECT_EQ(Tree(install_), (std::set<std::wstring>{L"My Capture.qm8"}));
  EXPECT_FALSE(IsPendingDeletion(install_));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"x64"));
  EXPECT_EQ(PendingDeletionsUnder(root_.path()), 1u);
}

// An x32 folder that cannot go is queued, and then so is the installation folder.
TEST_F(UninstallProcedureTest, BusyX32QueuesTheInstallationFolder) {
  Touch(L"Quillmark 8\\x32\\helper32.dll");
  UninstallProcedure(install_);
  EXPECT_TRUE(FileExists(install_ + L"x32\\helper32.dll"));
  EXPECT_TRUE(IsPendingDeletion(install_ + L"x32"));
  EXPECT_TRUE(IsPendingDeletion(install_));
  EXPECT_FALSE(DirExists(install_ + L"x64"));
}

}  // namespace
