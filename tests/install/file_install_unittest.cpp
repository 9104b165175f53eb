#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <vector>

#include "app/settings.h"
#include "install/file_install.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::DirExists;
using qmtest::FileExists;
using qmtest::FindPendingRename;
using qmtest::ReadFileBytes;
using qmtest::WriteFileBytes;

std::wstring OwnExecutable() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

// The file names FindFirstFileW hands out for pattern in folder, in its order.
std::vector<std::wstring> FoundNames(const std::wstring& folder, const std::wstring& pattern) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW found;
  UniqueFindHandle find(::FindFirstFileW((folder + L"\\" + pattern).c_str(), &found));
  if (!find) return names;
  do {
    if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.push_back(found.cFileName);
  } while (::FindNextFileW(find.get(), &found));
  return names;
}

// The same names sorted without regard to case.
std::vector<std::wstring> SortedNames(const std::wstring& folder, const std::wstring& pattern) {
  std::vector<std::wstring> names = FoundNames(folder, pattern);
  std::sort(names.begin(), names.end(), [](auto& a, auto& b) { return ::_wcsicmp(a.c_str(), b.c_str()) < 0; });
  return names;
}

class FileInstallTest : public testing::Test {
 protected:
  FileInstallTest() {
    ::CreateDirectoryW(src_.c_str(), nullptr);
    ::CreateDirectoryW(dst_.c_str(), nullptr);
  }
  void TearDown() override { qmtest::ForgetPendingUnder(root_.path()); }

  qmtest::SettingsRestorer restorer_;
  qmtest::TempDir root_{L"qm engine files"};
  std::wstring src_ = root_ / L"package";
  std::wstring dst_ = root_ / L"Quillmark 8";
};

// Same folder (in other letter case): success without touching anything unless
// a new name asks for a copy; a missing source or script fails and makes nothing.
TEST_F(FileInstallTest, SameFolderAndMissingInputs) {
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\a.txt", "new"));
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\b.txt", "old"));
  std::wstring upper = src_;
  ::CharUpperBuffW(upper.data(), static_cast<DWORD>(upper.size()));
  EXPECT_NE(InstallOneFile(L"a.txt", src_, upper + L"\\", nullptr), 0);
  EXPECT_NE(InstallOneFile(L"missing.txt", src_, src_, nullptr), 0);
  EXPECT_EQ(FoundNames(src_, L"*").size(), 2u);
  EXPECT_NE(InstallOneFile(L"a.txt", src_, src_, L"b.txt"), 0);
  EXPECT_EQ(ReadFileBytes(src_ + L"\\b.txt"), "new");

  EXPECT_EQ(InstallOneFile(L"none.txt", src_, dst_, nullptr), 0);
  EXPECT_EQ(InstallOneFile(L"none.txt", src_, dst_, L"other.txt"), 0);
  installSettings.sourceDir = src_;
  installSettings.installDir = dst_ + L"\\inner";
  RunInstallScript(src_ + L"\\QmkUnInst.log");
  EXPECT_TRUE(FoundNames(dst_, L"*").empty());
  EXPECT_FALSE(DirExists(dst_ + L"\\inner"));
}

// A read-only, hidden target is replaced; folders ending in '/' or '\' are joined as they are.
TEST_F(FileInstallTest, ReadOnlyHiddenTargetIsReplaced) {
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\a.txt", "new"));
  ASSERT_TRUE(WriteFileBytes(dst_ + L"\\b.txt", "old"));
  ASSERT_TRUE(::SetFileAttributesW((dst_ + L"\\b.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
  EXPECT_NE(InstallOneFile(L"a.txt", src_ + L"/", dst_ + L"\\", L"b.txt"), 0);
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\b.txt"), "new");
  EXPECT_EQ(::GetFileAttributesW((dst_ + L"\\b.txt").c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
  EXPECT_EQ(FoundNames(dst_, L"*").size(), 1u);
}

// A target the loader holds (deletion refused, renaming allowed) goes to ".old",
// queued for deletion; a held ".old" is queued too and ".old2" taken instead.
TEST_F(FileInstallTest, TargetInUseIsMovedToOld) {
  const std::wstring target = dst_ + L"\\Qmkview8.exe";
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\Qmkview8.exe", "new program"));
  for (bool oldHeld : {false, true}) {
    SCOPED_TRACE(oldHeld ? "held .old" : "free .old");
    ASSERT_TRUE(::CopyFileW(OwnExecutable().c_str(), target.c_str(), FALSE));
    ASSERT_TRUE(!oldHeld || ::CopyFileW(OwnExecutable().c_str(), (target + L".old").c_str(), FALSE));
    qmtest::ImageHold hold(target);
    qmtest::ImageHold holdOld(target + L".old");
    ASSERT_TRUE(hold.held() && holdOld.held() == oldHeld);
    ASSERT_FALSE(::DeleteFileW(target.c_str())) << "the bench no longer refuses deleting a mapped image";

    EXPECT_NE(InstallOneFile(L"Qmkview8.exe", src_, dst_, nullptr), 0);
    EXPECT_EQ(ReadFileBytes(target), "new program");
    const std::wstring moved = target + (oldHeld ? L".old2" : L".old");
    EXPECT_TRUE(FileExists(moved));
    EXPECT_GE(FindPendingRename(moved, L""), 0);
    EXPECT_GE(FindPendingRename(target + L".old", L""), 0);
    EXPECT_FALSE(FileExists(target + L".new"));
    EXPECT_EQ(installSettings.restartNeeded, 0);
  }
}

// A target held open without delete sharing: ".new" is written, the target's
// deletion and then the ".new" renaming are queued, the restart is requested,
// the copy fails, and CopyMatchingFiles stops at that file.
TEST_F(FileInstallTest, TargetLockedAgainstRenameStopsTheCopyPass) {
  for (const wchar_t* name : {L"f1.txt", L"f2.txt", L"f3.txt", L"f4.txt"}) {
    ASSERT_TRUE(WriteFileBytes(src_ + L"\\" + name, "new"));
    ASSERT_TRUE(WriteFileBytes(dst_ + L"\\" + name, "old"));
  }
  std::vector<std::wstring> order = FoundNames(src_, L"*.txt");
  ASSERT_EQ(order.size(), 4u);
  const std::wstring locked = dst_ + L"\\" + order[1];
  UniqueFileHandle lock = qmtest::HoldFile(locked, FILE_SHARE_READ);
  ASSERT_TRUE(lock);
  installSettings.restartNeeded = 0;

  EXPECT_EQ(CopyMatchingFiles(L"*.txt", src_, dst_), 1);
  lock.reset();
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[0]), "new");
  EXPECT_EQ(ReadFileBytes(locked), "old");
  EXPECT_EQ(ReadFileBytes(locked + L".new"), "new");
  EXPECT_FALSE(FileExists(locked + L".old"));
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[2]), "old");
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[3]), "old");
  int deletion = FindPendingRename(locked, L"");
  ASSERT_GE(deletion, 0);
  EXPECT_GT(FindPendingRename(locked + L".new", locked), deletion);
  EXPECT_EQ(installSettings.restartNeeded, 1);
}

// A sub-folder pattern copies into the same sub-folder of a target whose folder
// chain is created ('/' taken as '\'); no match copies nothing and makes no folder.
TEST_F(FileInstallTest, CopyMatchingFilesSubFolderAndChain) {
  for (const wchar_t* name : {L"x64\\a.dll", L"x64\\b.dll", L"x64\\c.txt", L"top.dll"}) {
    ::CreateDirectoryW((src_ + L"\\x64").c_str(), nullptr);
    ASSERT_TRUE(WriteFileBytes(src_ + L"\\" + name, "data"));
  }
  EXPECT_EQ(CopyMatchingFiles(L"x64\\*.dll", src_, root_.path() + L"/deep/er/"), 2);
  EXPECT_EQ(SortedNames(root_ / L"deep\\er\\x64", L"*"), (std::vector<std::wstring>{L"a.dll", L"b.dll"}));
  EXPECT_TRUE(FoundNames(root_ / L"deep\\er", L"*").empty());
  EXPECT_EQ(CopyMatchingFiles(L"*.none", src_, root_ / L"never\\made"), 0);
  EXPECT_FALSE(DirExists(root_ / L"never"));
}

// One package script with every entry kind, run for each install type.
class InstallScriptTest : public FileInstallTest, public testing::WithParamInterface<int> {
 protected:
  void TearDown() override {
    ::SetDllDirectoryW(nullptr);
    FileInstallTest::TearDown();
  }
};

// x64 entries land only under WOW64 or for the portable type, "prt" only for
// the portable type into the parent folder, "ind" only when the system lacks
// the library; renamings and sub-folder patterns land right, the folder chain
// is made, and " | " belongs to the name in the copy pass.
TEST_P(InstallScriptTest, EveryEntryKindLandsWhereItShould) {
  const bool portable = GetParam() == 2;
  const bool wow64 = sizeof(void*) == 4;  // the 32-bit build runs on 64-bit Wine
  const std::wstring parent = root_ / L"Programs", installDir = parent + L"\\Quillmark 8";
  installSettings.sourceDir = src_;
  installSettings.installDir = installDir;
  installSettings.installType = GetParam();
  ::CreateDirectoryW((src_ + L"\\x64").c_str(), nullptr);
  ::CreateDirectoryW((src_ + L"\\docs").c_str(), nullptr);
  for (const wchar_t* name : {L"Qmkview8.exe", L"src.txt", L"tool64.bin", L"portable.ini", L"over.txt",
                              L"lower.txt", L"commented.txt", L"x64\\ThumbDqm64.dll", L"docs\\guide.txt",
                              L"docs\\notes.txt", L"docs\\skip.bin"})
    ASSERT_TRUE(WriteFileBytes(src_ + L"\\" + name, qmtest::Narrow(name)));
  // Would do harm if copied over the system's own: the library probe must skip it.
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\version.dll", "not a library"));
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\engine-fixtures\\qmengine_probe.dll").c_str(),
                          (src_ + L"\\qmengine_probe.dll").c_str(), FALSE));
  ASSERT_TRUE(qmtest::WriteLines(src_ + L"\\QmkUnInst.log",
                                 {"File Copy: Qmkview8.exe", "File Copy: src.txt > renamed.txt   ",
                                  "File Copy: docs\\*.txt", "File Copy x64: x64\\*.dll",
                                  "File Copy x64: tool64.bin > tool.bin", "File Copy prt: portable.ini",
                                  "File Copy ind: version.dll", "File Copy ind: qmengine_probe.dll",
                                  "File Overwrite: over.txt", "file copy: lower.txt",
                                  "File Copy: commented.txt | kept for the next version", "Make Dir: data",
                                  "Make Dir: data\\cache"}));
  // The library search offers the package folder first, as for setup.exe
  // started from it: the probe must park the package's copy.
  ASSERT_TRUE(::SetDllDirectoryW(src_.c_str()));
  HMODULE offered = ::LoadLibraryW(L"qmengine_probe.dll");
  ASSERT_TRUE(offered != nullptr);
  ::FreeLibrary(offered);

  RunInstallScript(src_ + L"\\QmkUnInst.log");

  const bool x64 = wow64 || portable;
  std::vector<std::wstring> expected = {L"qmengine_probe.dll", L"Qmkview8.exe", L"renamed.txt"};
  if (x64) expected.push_back(L"tool.bin");
  if (portable) expected.push_back(L"version.dll");
  EXPECT_EQ(SortedNames(installDir, L"*"), expected);
  EXPECT_EQ(ReadFileBytes(installDir + L"\\renamed.txt"), "src.txt");
  EXPECT_EQ(SortedNames(installDir + L"\\docs", L"*"), (std::vector<std::wstring>{L"guide.txt", L"notes.txt"}));
  EXPECT_EQ(FileExists(installDir + L"\\x64\\ThumbDqm64.dll"), x64);
  EXPECT_EQ(DirExists(installDir + L"\\x64"), x64);
  EXPECT_EQ(FileExists(parent + L"\\portable.ini"), portable);
  EXPECT_TRUE(DirExists(installDir + L"\\data\\cache"));
  // The package's copies are back under their names.
  EXPECT_TRUE(FileExists(src_ + L"\\qmengine_probe.dll"));
  EXPECT_TRUE(FileExists(src_ + L"\\version.dll"));
  EXPECT_TRUE(FoundNames(src_, L"*.toinst").empty());
}

std::string InstallTypeName(const testing::TestParamInfo<int>& info) {
  static const char* const kNames[] = {"CurrentUser", "AllUsers", "Portable"};
  return kNames[info.param];
}

INSTANTIATE_TEST_SUITE_P(InstallTypes, InstallScriptTest, testing::Values(0, 1, 2), InstallTypeName);

}  // namespace
