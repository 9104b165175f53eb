#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <vector>

#include "product/settings.h"
#include "install/file_install.h"
#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::PendingIndex;
using qmtest::ReadFileBytes;
using qmtest::WriteFileBytes;
using Names = std::vector<std::wstring>;

// The file names in folder matching pattern, in the file system's order or sorted without case.
Names FoundNames(const std::wstring& folder, const std::wstring& pattern = L"*", bool sorted = true) {
  Names names;
  WIN32_FIND_DATAW found;
  UniqueFindHandle find(::FindFirstFileW((folder + L"\\" + pattern).c_str(), &found));
  for (bool more = find.valid(); more; more = ::FindNextFileW(find.get(), &found))
    if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) names.push_back(found.cFileName);
  auto less = [](auto& a, auto& b) { return _wcsicmp(a.c_str(), b.c_str()) < 0; };
  if (sorted) std::sort(names.begin(), names.end(), less);
  return names;
}

UniqueFileHandle Open(const std::wstring& path, DWORD share) {
  return UniqueFileHandle(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr));
}

class FileInstallTest : public testing::Test {
 protected:
  void SetUp() override {
    ::CreateDirectoryW(src_.c_str(), nullptr);
    ::CreateDirectoryW(dst_.c_str(), nullptr);
  }

  qmtest::SettingsRestorer restorer_;
  qmtest::TempDir root_{L"qm install files"};
  std::wstring src_ = root_ / L"package", dst_ = root_ / L"Quillmark 8";
};

// A read-only, hidden target is replaced in place; a missing source copies
// nothing; the package folder as its own target keeps its file (any case of
// the path), unless a new name is asked for.
TEST_F(FileInstallTest, OneFileRules) {
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\a.txt", "new") && WriteFileBytes(dst_ + L"\\c.txt", "old"));
  ASSERT_TRUE(::SetFileAttributesW((dst_ + L"\\c.txt").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
  EXPECT_NE(InstallOneFile(L"a.txt", src_ + L"/", dst_ + L"\\", L"c.txt"), 0);
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\c.txt"), "new");
  EXPECT_EQ(InstallOneFile(L"none.txt", src_, dst_, nullptr), 0);
  EXPECT_EQ(FoundNames(dst_), Names{L"c.txt"});

  std::wstring upper = src_;
  ::CharUpperBuffW(upper.data(), static_cast<DWORD>(upper.size()));
  EXPECT_NE(InstallOneFile(L"a.txt", src_, upper + L"\\", nullptr), 0);
  EXPECT_EQ(ReadFileBytes(src_ + L"\\a.txt"), "new");
  EXPECT_NE(InstallOneFile(L"a.txt", src_, src_, L"b.txt"), 0);
  EXPECT_EQ(ReadFileBytes(src_ + L"\\b.txt"), "new");
}

// A target mapped as an image, as a running program is, cannot be deleted but
// can be renamed: it goes to ".old", queued for deletion, without a restart.
TEST_F(FileInstallTest, RunningTargetIsMovedAside) {
  const std::wstring target = dst_ + L"\\Qmkview8.exe";
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\Qmkview8.exe", "new program") &&
              ::CopyFileW(qmtest::SelfPath().c_str(), target.c_str(), FALSE));
  UniqueFileHandle file = Open(target, FILE_SHARE_READ | FILE_SHARE_DELETE);
  UniqueHandle image(::CreateFileMappingW(file.get(), nullptr, PAGE_READONLY | SEC_IMAGE, 0, 0, nullptr));
  UniqueMapView view(image ? ::MapViewOfFile(image.get(), FILE_MAP_READ, 0, 0, 0) : nullptr);
  ASSERT_TRUE(view.valid());
  ASSERT_FALSE(::DeleteFileW(target.c_str())) << "the bench no longer refuses deleting a mapped image";

  EXPECT_NE(InstallOneFile(L"Qmkview8.exe", src_, dst_, nullptr), 0);
  EXPECT_EQ(ReadFileBytes(target), "new program");
  EXPECT_TRUE(qmtest::FileExists(target + L".old"));
  EXPECT_GE(PendingIndex(target + L".old"), 0);
  EXPECT_EQ(installSettings.restartNeeded, 0);
}

class InstallScriptTest : public FileInstallTest, public testing::WithParamInterface<InstallType> {};

// Every entry kind: renamings, sub-folder patterns, the x64 rule (64-bit
// Windows or portable), "prt" (portable only, into the parent folder), "ind"
// (only what the system lacks, always when portable), exact prefixes, and the
// "Make Dir: " folder chain.
TEST_P(InstallScriptTest, EveryEntryKindLandsWhereItShould) {
  // The bench runs 32-bit programs under WOW64, that is on 64-bit Windows.
  const bool portable = GetParam() == InstallType::kPortable, x64 = portable || sizeof(void*) == 4;
  const std::wstring parent = root_ / L"Programs", installDir = parent + L"\\Quillmark 8";
  installSettings.sourceDir = src_;
  installSettings.installDir = installDir;
  installSettings.SetType(GetParam());
  for (const wchar_t* name : {L"Qmkview8.exe", L"src.txt", L"tool64.bin", L"portable.ini", L"over.txt", L"lower.txt",
                              L"commented.txt", L"x64\\ThumbDqm64.dll", L"docs\\guide.txt", L"docs\\notes.txt",
                              L"docs\\skip.bin", L"version.dll"})
    ASSERT_TRUE(WriteFileBytes(src_ + L"\\" + name, qmtest::Narrow(name)));
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\engine-fixtures\\qmengine_probe.dll").c_str(),
                          (src_ + L"\\qmengine_probe.dll").c_str(), FALSE));
  ASSERT_TRUE(WriteFileBytes(src_ + L"\\QmkUnInst.log",
                             "File Copy: Qmkview8.exe\r\nFile Copy: src.txt > renamed.txt   \r\n"
                             "File Copy: docs\\*.txt\r\nFile Copy x64: x64\\*.dll\r\n"
                             "File Copy x64: tool64.bin > tool.bin\r\nFile Copy prt: portable.ini\r\n"
                             "File Copy ind: version.dll\r\nFile Copy ind: qmengine_probe.dll\r\n"
                             "File Overwrite: over.txt\r\nfile copy: lower.txt\r\n"
                             "File Copy: commented.txt | kept for the next version\r\n"
                             "Make Dir: data\r\nMake Dir: data\\cache\r\n"));
  // The library search offers the package folder first, as for setup.exe
  // started from it: the probe must park the package's copy meanwhile.
  ASSERT_TRUE(::SetDllDirectoryW(src_.c_str()));
  RunInstallScript(src_ + L"\\QmkUnInst.log");
  ::SetDllDirectoryW(nullptr);

  Names expected = {L"qmengine_probe.dll", L"Qmkview8.exe", L"renamed.txt"};
  if (x64) expected.push_back(L"tool.bin");
  if (portable) expected.push_back(L"version.dll");
  EXPECT_EQ(FoundNames(installDir), expected);
  EXPECT_EQ(ReadFileBytes(installDir + L"\\renamed.txt"), "src.txt");
  EXPECT_EQ(FoundNames(installDir + L"\\docs"), (Names{L"guide.txt", L"notes.txt"}));
  EXPECT_EQ(FoundNames(installDir + L"\\x64"), x64 ? Names{L"ThumbDqm64.dll"} : Names{});
  EXPECT_EQ(qmtest::FileExists(parent + L"\\portable.ini"), portable);
  EXPECT_TRUE(qmtest::DirExists(installDir + L"\\data\\cache"));
  EXPECT_EQ(FoundNames(src_, L"*.dll*"), (Names{L"qmengine_probe.dll", L"version.dll"}));
}

// The current-user and all-users types copy alike; the portable type differs.
INSTANTIATE_TEST_SUITE_P(InstallTypes, InstallScriptTest,
                         testing::Values(InstallType::kAllUsers, InstallType::kPortable), [](const auto& info) {
                           return std::string(info.param == InstallType::kPortable ? "Portable" : "Installed");
                         });

// A target locked even against renaming gets a ".new" copy, its deletion and
// then the renaming queued (a deferred move replaces nothing), and the copy
// pass stops there: the files after it in the package's order keep their
// old content until the next setup.
TEST_F(FileInstallTest, LockedTargetIsReplacedAtRestart) {
  for (const wchar_t* name : {L"\\f1.txt", L"\\f2.txt", L"\\f3.txt"})
    ASSERT_TRUE(WriteFileBytes(src_ + name, "new") && WriteFileBytes(dst_ + name, "old"));
  const Names order = FoundNames(src_, L"*.txt", false);
  const std::wstring locked = dst_ + L"\\" + order[1];
  UniqueFileHandle lock = Open(locked, FILE_SHARE_READ);
  ASSERT_TRUE(lock);
  EXPECT_EQ(CopyMatchingFiles(L"*.txt", src_, dst_), 1);
  lock.reset();
  EXPECT_EQ(ReadFileBytes(dst_ + L"\\" + order[0]) + ReadFileBytes(locked) + ReadFileBytes(locked + L".new") +
                ReadFileBytes(dst_ + L"\\" + order[2]),
            "newoldnewold");
  const int deletion = PendingIndex(locked);
  EXPECT_GE(deletion, 0);
  EXPECT_GT(PendingIndex(locked + L".new", locked), deletion);
  EXPECT_EQ(installSettings.restartNeeded, 1);
}

}  // namespace
