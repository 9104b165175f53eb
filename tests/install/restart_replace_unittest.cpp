// Run by restart_replace.sh: phase 1 before a Wine restart, phase 2 after it.
#include <gtest/gtest.h>
#include <windows.h>

#include "app/settings.h"
#include "install/file_install.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

std::wstring Folder() {
  wchar_t temp[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, temp);
  return std::wstring(temp) + L"qm engine restart";
}

// A target locked against renaming gets its ".new" copy and both restart
// operations; the lock ends with this process.
TEST(RestartReplace, Phase1QueuesReplacement) {
  qmtest::SettingsRestorer restorer;
  const std::wstring folder = Folder(), target = folder + L"\\Qmkview8.exe";
  qmtest::RemoveTree(folder);
  ASSERT_TRUE(::CreateDirectoryW(folder.c_str(), nullptr));
  ASSERT_TRUE(::CreateDirectoryW((folder + L"\\package").c_str(), nullptr));
  ASSERT_TRUE(qmtest::WriteFileBytes(folder + L"\\package\\Qmkview8.exe", "version two"));
  ASSERT_TRUE(qmtest::WriteFileBytes(target, "version one"));
  UniqueFileHandle lock = qmtest::HoldFile(target, FILE_SHARE_READ);
  ASSERT_TRUE(lock);

  EXPECT_EQ(InstallOneFile(L"Qmkview8.exe", folder + L"\\package", folder, nullptr), 0);
  EXPECT_EQ(installSettings.restartNeeded, 1);
  EXPECT_GE(qmtest::FindPendingRename(target + L".new", target), 0);
}

// After the restart the new content is in place and nothing is pending for it.
TEST(RestartReplace, Phase2FindsNewContent) {
  const std::wstring folder = Folder(), target = folder + L"\\Qmkview8.exe";
  EXPECT_EQ(qmtest::ReadFileBytes(target), "version two");
  EXPECT_FALSE(qmtest::FileExists(target + L".new"));
  EXPECT_EQ(qmtest::PendingUnder(folder), 0u);
  qmtest::ForgetPendingUnder(folder);
  EXPECT_TRUE(qmtest::RemoveTree(folder));
}

}  // namespace
