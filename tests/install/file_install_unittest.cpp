#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cwctype>
#include <vector>

#include "app/settings.h"
#include "install/file_install.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::DirExists;
using qmtest::FileExists;
using qmtest::ReadFileBytes;
using qmtest::WriteFileBytes;

std::wstring Upper(std::wstring text) {
  std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return std::towupper(c); });
  return text;
}

std::wstring OwnExecutable() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

// The names FindFirstFileW hands out for pattern in folder, in its order.
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

class FileInstallTest : public testing::Test {
 protected:
  FileInstallTest() {
    ::CreateDirectoryW(src_.c_str(), nullptr);
    ::CreateDirectoryW(dst_.c_str(), nullptr);
  }
  void TearDown() override { qmtest::ForgetPendingRenamesUnder(root_.path()); }

  qmtest::SettingsRestorer restorer_;
  qmtest::TempDir root_{L"qm engine files"};
  std::wstring src_ = root_ / L"package";
  std::wstring dst_ = root_ / L"Quillmark 8";
};

// Same folder (spelled in other letter case) and no new name: success without
// touching anything, even for a name that is not there.
TEST_F(FileInstallTest, SameFolderWithoutNewNameDoesNothing) {
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\a.txt", "one"));
  EXPECT_NE(InstallOneFile(L"a.txt", src_, Upper(src_) + L"\\", nullptr), 0);
  EXPECT_NE(InstallOneFile(L"missing.txt", src_, src_, nullptr), 0);
  EXPECT_FALSE(FileExists(src_ + L"\\missing.txt"));
  EXPECT_EQ(ReadFileBytes(src_ + L"\\a.txt"), "one");
  EXPECT_EQ(FoundNames(src_, L"*").size(), 1u);
}

// Same folder with a new name copies under that name, replacing the old file.
TEST_F(FileInstallTest, SameFolderWithNewNameCopies) {
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\a.txt", "new"));
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\b.txt", "old"));
  EXPECT_NE(InstallOneFile(L"a.txt", src_, src_, L"b.txt"), 0);
  EXPECT_EQ(ReadFileBytes(src_ + L"\\b.txt"), "new");
  EXPECT_EQ(ReadFileBytes(src_ + L"\\a.txt"), "new");
}

// A missing source fails and creates nothing.
TEST_F(FileInstallTest, MissingSourceFails) {
  EXPECT_EQ(InstallOneFile(L"none.txt", src_, dst_, nullptr), 0);
  EXPECT_EQ(InstallOneFile(L"none.txt", src_, dst_, L"other.txt"), 0);
  EXPECT_TRUE(FoundNames(dst_, L"*").empty());
}

// A read-only, hidden target is replaced; folders ending in '/' or '\' are joined as they are.
TEST_F(FileInstallTest, ReadOnlyHiddenTargetIsReplaced) {
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\a.txt", "new"));
  ASSERT_TRUE(WriteFileBytes(dst_ + L"\\b.txt", "old"));
  ASSERT_TRUE(::SetFileAttributesW((dst_ + L"\\b.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
  EXPECT_NE(InstallOneFile(L"a.txt", src_ + L"/", dst_ + L"\\", L"b.txt"), 0);
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\b.txt"), "new");
  EXPECT_EQ(::GetFileAttributesW((dst_ + L"\\b.txt").c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
  EXPECT_FALSE(FileExists(dst_ + L"\\b.txt.old"));
  EXPECT_FALSE(FileExists(dst_ + L"\\b.txt.new"));
}

// A target the loader holds (a running program: deletion refused, renaming
// allowed) goes to ".old", scheduled for deletion, and the new file comes in.
TEST_F(FileInstallTest, TargetInUseIsMovedToOld) {
  const std::wstring target = dst_ + L"\\Qmkview8.exe";
  ASSERT_TRUE(::CopyFileW(OwnExecutable().c_str(), target.c_str(), FALSE));
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\Qmkview8.exe", "new program"));
  qmtest::ImageHold hold(target);
  ASSERT_TRUE(hold.held());
  ASSERT_FALSE(::DeleteFileW(target.c_str())) << "the bench no longer refuses deleting a mapped image";

  EXPECT_NE(InstallOneFile(L"Qmkview8.exe", src_, dst_, nullptr), 0);
  EXPECT_EQ(ReadFileBytes(target), "new program");
  EXPECT_TRUE(FileExists(target + L".old"));
  EXPECT_GE(qmtest::FindPendingRename(target + L".old", L""), 0);
  EXPECT_FALSE(FileExists(target + L".new"));
  EXPECT_EQ(installSettings.restartNeeded, 0);
}

// An ".old" left behind that is held too is scheduled for deletion and the
// target moves to ".old2" instead.
TEST_F(FileInstallTest, HeldOldNameFallsBackToOld2) {
  const std::wstring target = dst_ + L"\\Qmkview8.exe";
  ASSERT_TRUE(::CopyFileW(OwnExecutable().c_str(), target.c_str(), FALSE));
  ASSERT_TRUE(::CopyFileW(OwnExecutable().c_str(), (target + L".old").c_str(), FALSE));
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\Qmkview8.exe", "new program"));
  qmtest::ImageHold holdTarget(target);
  qmtest::ImageHold holdOld(target + L".old");
  ASSERT_TRUE(holdTarget.held() && holdOld.held());

  EXPECT_NE(InstallOneFile(L"Qmkview8.exe", src_, dst_, nullptr), 0);
  EXPECT_EQ(ReadFileBytes(target), "new program");
  EXPECT_TRUE(FileExists(target + L".old2"));
  EXPECT_GE(qmtest::FindPendingRename(target + L".old", L""), 0);
  EXPECT_GE(qmtest::FindPendingRename(target + L".old2", L""), 0);
}

// A target locked against renaming: ".new" is written and queued to replace
// the target after the queued deletion of the target; the restart request is
// set and the call itself fails, as its last copy does.
TEST_F(FileInstallTest, TargetLockedAgainstRenameIsReplacedAtRestart) {
  const std::wstring target = dst_ + L"\\data.bin";
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\data.bin", "new"));
  ASSERT_TRUE(WriteFileBytes(target, "old"));
  installSettings.restartNeeded = 0;
  UniqueFileHandle lock = qmtest::HoldFile(target, FILE_SHARE_READ);
  ASSERT_TRUE(lock);

  EXPECT_EQ(InstallOneFile(L"data.bin", src_, dst_, nullptr), 0);
  lock.reset();
  EXPECT_EQ(ReadFileBytes(target), "old");
  EXPECT_EQ(ReadFileBytes(target + L".new"), "new");
  EXPECT_FALSE(FileExists(target + L".old"));
  int deletion = qmtest::FindPendingRename(target, L"");
  ASSERT_GE(deletion, 0);
  EXPECT_GT(qmtest::FindPendingRename(target + L".new", target), deletion);
  EXPECT_EQ(installSettings.restartNeeded, 1);
}

// A pattern with a sub-folder is looked up in that sub-folder and copied into
// the same sub-folder of a target whose folder chain is created ('/' taken as '\').
TEST_F(FileInstallTest, CopyMatchingFilesKeepsSubFolderAndCreatesChain) {
  ::CreateDirectoryW((src_ + L"\\x64").c_str(), nullptr);
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\x64\\a.dll", "a"));
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\x64\\b.dll", "b"));
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\x64\\c.txt", "c"));
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\top.dll", "top"));
  const std::wstring target = root_.path() + L"/deep/er/Quillmark 8/";

  EXPECT_EQ(CopyMatchingFiles(L"x64\\*.dll", src_, target), 2);
  const std::wstring landed = root_ / L"deep\\er\\Quillmark 8\\x64";
  EXPECT_EQ(ReadFileBytes(landed + L"\\a.dll"), "a");
  EXPECT_EQ(ReadFileBytes(landed + L"\\b.dll"), "b");
  EXPECT_FALSE(FileExists(landed + L"\\c.txt"));
  EXPECT_FALSE(FileExists(landed + L"\\top.dll"));
  EXPECT_FALSE(FileExists(root_ / L"deep\\er\\Quillmark 8\\a.dll"));
}

// No match: nothing copied and no folder made.
TEST_F(FileInstallTest, CopyMatchingFilesWithoutMatchMakesNothing) {
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\a.txt", "a"));
  EXPECT_EQ(CopyMatchingFiles(L"*.none", src_, root_ / L"never\\made"), 0);
  EXPECT_FALSE(DirExists(root_ / L"never"));
}

// The pass stops at the first file that fails: those after it stay as they were.
TEST_F(FileInstallTest, CopyMatchingFilesStopsAtFailingFile) {
  for (const wchar_t* name : {L"f1.txt", L"f2.txt", L"f3.txt", L"f4.txt"}) {
    ASSERT_TRUE(WriteFileBytes(src_ + L"\\" + name, "new"));
    ASSERT_TRUE(WriteFileBytes(dst_ + L"\\" + name, "old"));
  }
  std::vector<std::wstring> order = FoundNames(src_, L"*.txt");
  ASSERT_EQ(order.size(), 4u);
  UniqueFileHandle lock = qmtest::HoldFile(dst_ + L"\\" + order[1], FILE_SHARE_READ);
  ASSERT_TRUE(lock);

  EXPECT_EQ(CopyMatchingFiles(L"*.txt", src_, dst_), 1);
  lock.reset();
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[0]), "new");
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[1]), "old");
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[1] + L".new"), "new");
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[2]), "old");
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[3]), "old");
}

// One package script with every entry kind, run for each install type.
class InstallScriptTest : public FileInstallTest, public testing::WithParamInterface<int> {
 protected:
  void SetUp() override {
    installSettings.sourceDir = src_;
    installSettings.installDir = installDir_;
    installSettings.installType = GetParam();
    ::CreateDirectoryW((src_ + L"\\x64").c_str(), nullptr);
    ::CreateDirectoryW((src_ + L"\\docs").c_str(), nullptr);
    for (const wchar_t* name : {L"Qmkview8.exe", L"src.txt", L"tool64.bin", L"portable.ini", L"over.txt",
                                L"lower.txt", L"commented.txt", L"x64\\ThumbDqm64.dll", L"docs\\guide.txt",
                                L"docs\\notes.txt", L"docs\\skip.bin"})
      ASSERT_TRUE(WriteFileBytes(src_ + L"\\" + name, qmtest::Narrow(name)));
    // Would do harm if copied over the system's own: a library probe must skip it.
    ASSERT_TRUE(WriteFileBytes(src_ + L"\\version.dll", "not a library"));
    ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\engine-fixtures\\qmengine_probe.dll").c_str(),
                            (src_ + L"\\qmengine_probe.dll").c_str(), FALSE));
    ASSERT_TRUE(qmtest::WriteLines(src_ + L"\\QmkUnInst.log", {
        "File Copy: Qmkview8.exe",
        "File Copy: src.txt > renamed.txt   ",
        "File Copy: docs\\*.txt",
        "File Copy x64: x64\\*.dll",
        "File Copy x64: tool64.bin > tool.bin",
        "File Copy prt: portable.ini",
        "File Copy ind: version.dll",
        "File Copy ind: qmengine_probe.dll",
        "File Overwrite: over.txt",
        "file copy: lower.txt",
        "File Copy: commented.txt | kept for the next version",
        "Make Dir: data",
        "Make Dir: data\\cache",
    }));
  }
  void TearDown() override {
    ::SetDllDirectoryW(nullptr);
    FileInstallTest::TearDown();
  }

  std::wstring parent_ = root_ / L"Programs";
  std::wstring installDir_ = parent_ + L"\\Quillmark 8";
};

// Each kind lands where its install type wants it; x64 entries only under
// WOW64 or for the portable type, "prt" only for the portable type into the
// parent folder, "ind" only when the system lacks the library.
TEST_P(InstallScriptTest, EveryEntryKindLandsWhereItShould) {
  const bool portable = GetParam() == 2;
#if defined(_WIN64)
  const bool wow64 = false;
#else
  const bool wow64 = true;  // the 32-bit build runs on 64-bit Wine
#endif
  // The library search offers the package folder first, as for setup.exe
  // started from it: the probe must park the package's copy.
  ASSERT_TRUE(::SetDllDirectoryW(src_.c_str()));
  HMODULE offered = ::LoadLibraryW(L"qmengine_probe.dll");
  ASSERT_TRUE(offered != nullptr);
  ::FreeLibrary(offered);
  ::CreateDirectoryW(parent_.c_str(), nullptr);

  RunInstallScript(src_ + L"\\QmkUnInst.log");

  EXPECT_TRUE(FileExists(installDir_ + L"\\Qmkview8.exe"));
  EXPECT_EQ(ReadFileBytes(installDir_ + L"\\renamed.txt"), "src.txt");
  EXPECT_FALSE(FileExists(installDir_ + L"\\src.txt"));
  EXPECT_TRUE(FileExists(installDir_ + L"\\docs\\guide.txt"));
  EXPECT_TRUE(FileExists(installDir_ + L"\\docs\\notes.txt"));
  EXPECT_FALSE(FileExists(installDir_ + L"\\docs\\skip.bin"));
  EXPECT_EQ(FileExists(installDir_ + L"\\x64\\ThumbDqm64.dll"), wow64 || portable);
  EXPECT_EQ(DirExists(installDir_ + L"\\x64"), wow64 || portable);
  EXPECT_EQ(ReadFileBytes(installDir_ + L"\\tool.bin"), (wow64 || portable) ? "tool64.bin" : "");
  EXPECT_EQ(FileExists(parent_ + L"\\portable.ini"), portable);
  EXPECT_FALSE(FileExists(installDir_ + L"\\portable.ini"));
  EXPECT_EQ(FileExists(installDir_ + L"\\version.dll"), portable);
  EXPECT_TRUE(FileExists(installDir_ + L"\\qmengine_probe.dll"));
  EXPECT_FALSE(FileExists(installDir_ + L"\\over.txt"));
  EXPECT_FALSE(FileExists(installDir_ + L"\\lower.txt"));
  // The copy pass takes " | " as part of the name.
  EXPECT_FALSE(FileExists(installDir_ + L"\\commented.txt"));
  EXPECT_TRUE(DirExists(installDir_ + L"\\data"));
  EXPECT_TRUE(DirExists(installDir_ + L"\\data\\cache"));
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

// A script that cannot be opened does nothing.
TEST_F(FileInstallTest, MissingScriptDoesNothing) {
  installSettings.sourceDir = src_;
  installSettings.installDir = dst_ + L"\\inner";
  RunInstallScript(src_ + L"\\QmkUnInst.log");
  EXPECT_FALSE(DirExists(dst_ + L"\\inner"));
}

}  // namespace
