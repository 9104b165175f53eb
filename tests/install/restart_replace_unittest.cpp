// Run by restart_replace.sh: phase 1 before a Wine restart, phase 2 after it.
#include <gtest/gtest.h>
#include <windows.h>

#include <vector>

#include "app/settings.h"
#include "install/file_install.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::FindPendingRename;
using qmtest::ReadFileBytes;

std::wstring Folder() {
  wchar_t temp[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, temp);
  return std::wstring(temp) + L"qm engine restart";
}

// The four targets, in the order FindFirstFileW hands out their package files.
std::vector<std::wstring> Targets() {
  std::vector<std::wstring> targets;
  WIN32_FIND_DATAW found;
  UniqueFindHandle find(::FindFirstFileW((Folder() + L"\\package\\*.txt").c_str(), &found));
  for (bool more = find.valid(); more; more = ::FindNextFileW(find.get(), &found))
    targets.push_back(Folder() + L"\\" + found.cFileName);
  return targets;
}

// A target locked against renaming: ".new", deletion then renaming queued, copy pass stops there.
TEST(RestartReplace, Phase1QueuesReplacementAndStopsTheCopyPass) {
  qmtest::SettingsRestorer restorer;
  const std::wstring folder = Folder(), package = folder + L"\\package";
  qmtest::RemoveTree(folder);
  ASSERT_TRUE(::CreateDirectoryW(folder.c_str(), nullptr) && ::CreateDirectoryW(package.c_str(), nullptr));
  for (const wchar_t* name : {L"\\f1.txt", L"\\f2.txt", L"\\f3.txt", L"\\f4.txt"})
    ASSERT_TRUE(qmtest::WriteFileBytes(package + name, "new") && qmtest::WriteFileBytes(folder + name, "old"));
  const std::vector<std::wstring> targets = Targets();
  ASSERT_EQ(targets.size(), 4u);
  UniqueFileHandle lock = qmtest::HoldFile(targets[1], FILE_SHARE_READ);
  ASSERT_TRUE(lock);
  installSettings.restartNeeded = 0;

  EXPECT_EQ(CopyMatchingFiles(L"*.txt", package, folder), 1);
  lock.reset();
  EXPECT_EQ(ReadFileBytes(targets[0]) + ReadFileBytes(targets[1]) + ReadFileBytes(targets[1] + L".new") +
                ReadFileBytes(targets[2]) + ReadFileBytes(targets[3]),
            "newoldnewoldold");
  EXPECT_FALSE(qmtest::FileExists(targets[1] + L".old"));
  const int deletion = FindPendingRename(targets[1], L"");
  EXPECT_GE(deletion, 0);
  EXPECT_GT(FindPendingRename(targets[1] + L".new", targets[1]), deletion);
  EXPECT_EQ(installSettings.restartNeeded, 1);
}

// After the restart the new content is in place and nothing is pending for it.
TEST(RestartReplace, Phase2FindsNewContent) {
  const std::vector<std::wstring> targets = Targets();
  ASSERT_EQ(targets.size(), 4u);
  EXPECT_EQ(ReadFileBytes(targets[1]), "new");
  EXPECT_FALSE(qmtest::FileExists(targets[1] + L".new"));
  EXPECT_EQ(qmtest::PendingUnder(Folder()), 0u);
  qmtest::ForgetPendingUnder(Folder());
  EXPECT_TRUE(qmtest::RemoveTree(Folder()));
}

}  // namespace
