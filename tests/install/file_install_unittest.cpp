#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <vector>

#include "install/file_install.h"
#include "product/settings.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::DirExists;
using qmtest::FileExists;
using qmtest::FindPendingRename;
using qmtest::ReadFileBytes;
using qmtest::WriteFileBytes;
using Names = std::vector<std::wstring>;

// The file names FindFirstFileW hands out for pattern in folder, in its order or sorted without case.
Names FoundNames(const std::wstring& folder, const std::wstring& pattern, bool sorted = true) {
  Names names;
  WIN32_FIND_DATAW found;
  UniqueFindHandle find(::FindFirstFileW((folder + L"\\" + pattern).c_str(), &found));
  while (find) {
    if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.push_back(found.cFileName);
    if (!::FindNextFileW(find.get(), &found)) break;
  }
  auto less = [](auto& a, auto& b) { return ::_wcsicmp(a.c_str(), b.c_str()) < 0; };
  if (sorted) std::sort(names.begin(), names.end(), less);
  return names;
}

// Maps a PE file as an image, as the loader does for a running program or a
// loaded DLL: the file then cannot be deleted but can be renamed.
struct ImageHold {
  explicit ImageHold(const std::wstring& path)
      : file(qmtest::HoldFile(path, FILE_SHARE_READ | FILE_SHARE_DELETE)),
        mapping(file ? ::CreateFileMappingW(file.get(), nullptr, PAGE_READONLY | SEC_IMAGE, 0, 0, nullptr) : nullptr),
        view(mapping ? ::MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0) : nullptr) {}
  ~ImageHold() {
    if (view) ::UnmapViewOfFile(view);
  }
  UniqueFileHandle file;
  UniqueHandle mapping;
  void* view;
};

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

// Same folder copies only to a new name; missing source or script makes nothing; read-only targets replaced.
TEST_F(FileInstallTest, SameFolderReadOnlyTargetAndMissingInputs) {
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
  installSettings.sourceDir = src_;
  installSettings.installDir = dst_ + L"\\inner";
  RunInstallScript(src_ + L"\\QmkUnInst.log");
  EXPECT_TRUE(FoundNames(dst_, L"*").empty());
  EXPECT_FALSE(DirExists(dst_ + L"\\inner"));

  ASSERT_TRUE(WriteFileBytes(dst_ + L"\\c.txt", "old"));
  ASSERT_TRUE(::SetFileAttributesW((dst_ + L"\\c.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
  EXPECT_NE(InstallOneFile(L"a.txt", src_ + L"/", dst_ + L"\\", L"c.txt"), 0);
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\c.txt"), "new");
  EXPECT_EQ(::GetFileAttributesW((dst_ + L"\\c.txt").c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
  EXPECT_EQ(FoundNames(dst_, L"*"), Names{L"c.txt"});
}

// A mapped target is renamed to ".old" (".old2" when that is held too), queued for deletion.
TEST_F(FileInstallTest, TargetInUseIsMovedToOld) {
  wchar_t self[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  const std::wstring target = dst_ + L"\\Qmkview8.exe";
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\Qmkview8.exe", "new program"));
  for (bool oldHeld : {false, true}) {
    SCOPED_TRACE(oldHeld ? "held .old" : "free .old");
    ASSERT_TRUE(::CopyFileW(self, target.c_str(), FALSE));
    ASSERT_TRUE(!oldHeld || ::CopyFileW(self, (target + L".old").c_str(), FALSE));
    ImageHold hold(target), holdOld(target + L".old");
    ASSERT_TRUE(hold.view && (holdOld.view != nullptr) == oldHeld);
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

class InstallScriptTest : public FileInstallTest, public testing::WithParamInterface<int> {};

// Every entry kind per install type: x64, prt and ind rules, renamings, sub-folder patterns, folder chain.
TEST_P(InstallScriptTest, EveryEntryKindLandsWhereItShould) {
  const bool portable = GetParam() == 2, x64 = portable || sizeof(void*) == 4;  // 32-bit runs under WOW64
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
  ::SetDllDirectoryW(nullptr);

  Names expected = {L"qmengine_probe.dll", L"Qmkview8.exe", L"renamed.txt"};
  if (x64) expected.push_back(L"tool.bin");
  if (portable) expected.push_back(L"version.dll");
  EXPECT_EQ(FoundNames(installDir, L"*"), expected);
  EXPECT_EQ(ReadFileBytes(installDir + L"\\renamed.txt"), "src.txt");
  EXPECT_EQ(FoundNames(installDir + L"\\docs", L"*"), (Names{L"guide.txt", L"notes.txt"}));
  EXPECT_EQ(FoundNames(installDir + L"\\x64", L"*"), x64 ? Names{L"ThumbDqm64.dll"} : Names{});
  EXPECT_EQ(DirExists(installDir + L"\\x64"), x64);
  EXPECT_EQ(FileExists(parent + L"\\portable.ini"), portable);
  EXPECT_TRUE(DirExists(installDir + L"\\data\\cache"));
  EXPECT_EQ(FoundNames(src_, L"*.dll*"), (Names{L"qmengine_probe.dll", L"version.dll"}));
}

// The current-user and all-users types copy alike; the portable type differs.
INSTANTIATE_TEST_SUITE_P(InstallTypes, InstallScriptTest, testing::Values(1, 2),
                         [](const auto& info) { return std::string(info.param == 2 ? "Portable" : "Installed"); });

// Run only by restart_replace.sh, before and after a Wine restart: a folder
// that outlives the test program, four targets in their package's find order.
std::wstring RestartFolder() {
  wchar_t temp[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, temp);
  return std::wstring(temp) + L"qm engine restart";
}
std::wstring RestartTarget(size_t i) {
  const Names names = FoundNames(RestartFolder() + L"\\package", L"*.txt", false);
  return names.size() == 4 ? RestartFolder() + L"\\" + names[i] : L"?";
}

// A target locked against renaming: ".new", deletion then renaming queued, copy pass stops there.
TEST(RestartReplace, DISABLED_Phase1QueuesReplacementAndStopsTheCopyPass) {
  qmtest::SettingsRestorer restorer;
  const std::wstring folder = RestartFolder(), package = folder + L"\\package";
  qmtest::RemoveTree(folder);
  ASSERT_TRUE(::CreateDirectoryW(folder.c_str(), nullptr) && ::CreateDirectoryW(package.c_str(), nullptr));
  for (const wchar_t* name : {L"\\f1.txt", L"\\f2.txt", L"\\f3.txt", L"\\f4.txt"})
    ASSERT_TRUE(WriteFileBytes(package + name, "new") && WriteFileBytes(folder + name, "old"));
  const std::wstring locked = RestartTarget(1);
  UniqueFileHandle lock = qmtest::HoldFile(locked, FILE_SHARE_READ);
  ASSERT_TRUE(lock);
  installSettings.restartNeeded = 0;

  EXPECT_EQ(CopyMatchingFiles(L"*.txt", package, folder), 1);
  lock.reset();
  EXPECT_EQ(ReadFileBytes(RestartTarget(0)) + ReadFileBytes(locked) + ReadFileBytes(locked + L".new") +
                ReadFileBytes(RestartTarget(2)) + ReadFileBytes(RestartTarget(3)),
            "newoldnewoldold");
  EXPECT_FALSE(FileExists(locked + L".old"));
  const int deletion = FindPendingRename(locked, L"");
  EXPECT_GE(deletion, 0);
  EXPECT_GT(FindPendingRename(locked + L".new", locked), deletion);
  EXPECT_EQ(installSettings.restartNeeded, 1);
}

// After the restart the new content is in place and nothing is pending for it.
TEST(RestartReplace, DISABLED_Phase2FindsNewContent) {
  EXPECT_EQ(ReadFileBytes(RestartTarget(1)), "new");
  EXPECT_FALSE(FileExists(RestartTarget(1) + L".new"));
  EXPECT_EQ(qmtest::PendingUnder(RestartFolder()), 0u);
  qmtest::ForgetPendingUnder(RestartFolder());
  EXPECT_TRUE(qmtest::RemoveTree(RestartFolder()));
}

}  // namespace
