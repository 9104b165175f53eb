#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <string>
#include <vector>

#include "app/deferred_ops.h"
#include "app/settings.h"
#include "tests/app/app_test_util.h"
#include "tests/support/test_support.h"

namespace {

using namespace apptest;

// Keeps the machine's WININIT.INI aside for a test and puts it back after.
class WininitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    wchar_t folder[MAX_PATH] = {};
    ::GetWindowsDirectoryW(folder, MAX_PATH);
    path_ = std::wstring(folder) + L"\\wininit.ini";
    existed_ = qmtest::FileExists(path_);
    if (existed_) saved_ = qmtest::ReadFileBytes(path_);
    ::SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_NORMAL);
    ::DeleteFileW(path_.c_str());
  }
  void TearDown() override {
    ::RemoveDirectoryW(path_.c_str());
    ::SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_NORMAL);
    ::DeleteFileW(path_.c_str());
    if (existed_) qmtest::WriteFileBytes(path_, saved_);
    FlushProfiles();
  }
  // The profile functions cache files; this writes the cache out.
  static void FlushProfiles() { ::WritePrivateProfileStringW(nullptr, nullptr, nullptr, L"WININIT.INI"); }
  // The [rename] section as the profile functions hand it out.
  static std::vector<std::wstring> RenameLines() {
    std::vector<wchar_t> buffer(16384, L'\0');
    DWORD length = ::GetPrivateProfileSectionW(L"rename", buffer.data(), 16384, L"WININIT.INI");
    std::vector<std::wstring> lines;
    for (const wchar_t* line = buffer.data(); line < buffer.data() + length && *line; line += wcslen(line) + 1)
      lines.emplace_back(line);
    return lines;
  }

  std::wstring path_;
  bool existed_ = false;
  std::string saved_;
};

// A fresh copy of the probe program in a folder with a blank.
struct ChildProgram {
  ChildProgram() : dir(L"qm run wait"), exe(dir / L"child.exe") {
    EXPECT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\app_probe.exe").c_str(), exe.c_str(), FALSE));
  }
  ~ChildProgram() { WaitForEnd(); }
  std::wstring CommandLine(const std::wstring& arguments) const { return L"\"" + exe + L"\" " + arguments; }
  // Only an ended child's file can be deleted.
  bool WaitForEnd() const {
    for (int i = 0; i < 200; ++i, ::Sleep(50))
      if (!qmtest::FileExists(exe) || ::DeleteFileW(exe.c_str())) return true;
    return false;
  }
  qmtest::TempDir dir;
  std::wstring exe;
};

long long ElapsedMs(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace

// A scheduled deletion is a pending pair with an empty target; a replacement
// names source and target and sets restartNeeded; neither touches the files.
TEST(DeleteAtReboot, QueuesDeletionAndReplacement) {
  qmtest::TempDir dir(L"qm defer");
  std::wstring file = dir / L"in use.dll", source = dir / L"new.dll", target = dir / L"old.dll";
  ASSERT_TRUE(qmtest::WriteFileBytes(file, "x") && qmtest::WriteFileBytes(source, "new") &&
              qmtest::WriteFileBytes(target, "old"));
  installSettings.restartNeeded = 0;
  EXPECT_TRUE(DeleteAtReboot(file.c_str()));
  EXPECT_TRUE(ReplaceAtReboot(source.c_str(), target.c_str()));
  EXPECT_EQ(installSettings.restartNeeded, 1);
  std::vector<std::wstring> entries = PendingOperations();
  ForgetPending({file, source});
  int at = FindPending(entries, file);
  ASSERT_GE(at, 0);
  EXPECT_EQ(entries[at + 1], L"");
  at = FindPending(entries, source);
  ASSERT_GE(at, 0);
  std::wstring queuedTarget = entries[at + 1];
  if (!queuedTarget.empty() && queuedTarget[0] == L'!') queuedTarget.erase(0, 1);
  EXPECT_TRUE(SamePath(queuedTarget, L"\\??\\" + target)) << qmtest::Narrow(entries[at + 1]);
  EXPECT_TRUE(qmtest::FileExists(file));
  EXPECT_EQ(qmtest::ReadFileBytes(target), "old");
}

// The fallback adds "NUL=" + path behind the lines already in [rename].
TEST_F(WininitTest, FallbackKeepsExistingLines) {
  ASSERT_TRUE(qmtest::WriteFileBytes(path_, "[rename]\r\nC:\\keep\\a.txt=C:\\keep\\b.txt\r\nNUL=C:\\keep\\old.txt\r\n"));
  EXPECT_TRUE(AppendWininitDeletion(L"C:\\some folder\\gone.txt"));
  EXPECT_EQ(RenameLines(), (std::vector<std::wstring>{L"C:\\keep\\a.txt=C:\\keep\\b.txt", L"NUL=C:\\keep\\old.txt",
                                                 L"NUL=C:\\some folder\\gone.txt"}));
  FlushProfiles();
  std::string text = qmtest::ReadFileBytes(path_);
  size_t added = text.find("NUL=C:\\some folder\\gone.txt");
  EXPECT_TRUE(added != std::string::npos && text.find("NUL=C:\\keep\\old.txt") < added &&
              text.find("C:\\keep\\a.txt=C:\\keep\\b.txt") < text.find("NUL=C:\\keep\\old.txt"))
      << text;
}

// Without a WININIT.INI the fallback creates it; a deletion the pending list cannot take lands there.
TEST_F(WininitTest, DeleteFallsBackToNewWininit) {
  EXPECT_TRUE(DeleteAtReboot(L""));
  EXPECT_EQ(RenameLines(), std::vector<std::wstring>{L"NUL="});
  EXPECT_TRUE(AppendWininitDeletion(L"C:\\x\\z.tmp"));
  EXPECT_EQ(RenameLines(), (std::vector<std::wstring>{L"NUL=", L"NUL=C:\\x\\z.tmp"}));
}

// When both ways fail, restartNeeded is cleared, even after an earlier success.
TEST_F(WininitTest, FailedReplacementClearsRestartNeeded) {
  installSettings.restartNeeded = 1;
  // An empty source cannot be queued, and a WININIT.INI that is a folder cannot be written.
  ASSERT_TRUE(::CreateDirectoryW(path_.c_str(), nullptr));
  EXPECT_FALSE(ReplaceAtReboot(L"", L"C:\\x\\old.dll"));
  EXPECT_EQ(installSettings.restartNeeded, 0);
  ::RemoveDirectoryW(path_.c_str());
}

// A [rename] list that would outgrow its buffer ends the process at once, writing nothing.
TEST_F(WininitTest, OverlongSectionStopsTheProcess) {
  std::string section = "[rename]\r\n";
  for (int i = 0; section.size() < 20000; ++i) section += "NUL=C:\\old\\file" + std::to_string(i) + ".tmp\r\n";
  ASSERT_TRUE(qmtest::WriteFileBytes(path_, section));
  // The empty path cannot be queued as a pending deletion, so the fallback runs.
  int code = qmtest::RunProcess(L"\"" + qmtest::BinDir() + L"\\app_defer.exe\" delete \"\"", 60000);
  EXPECT_TRUE(code != 0 && code != 1 && code != -1) << code;
  EXPECT_EQ(qmtest::ReadFileBytes(path_), section);
}

// Timeout 0 returns at once with the child still running; a timeout bounds the
// wait, and a child that ends sooner ends it sooner.
TEST(RunAndWait, WaitsAtMostTheTimeout) {
  ChildProgram child;
  auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(RunAndWait(child.CommandLine(L"-sleep 4000").c_str(), child.dir.path().c_str(), 0));
  EXPECT_LT(ElapsedMs(start), 1500);
  EXPECT_TRUE(child.WaitForEnd());
  EXPECT_GE(ElapsedMs(start), 3000);

  ChildProgram bounded;
  start = std::chrono::steady_clock::now();
  EXPECT_TRUE(RunAndWait(bounded.CommandLine(L"-sleep 4000").c_str(), nullptr, 700));
  EXPECT_GE(ElapsedMs(start), 650);
  EXPECT_LT(ElapsedMs(start), 3000);

  start = std::chrono::steady_clock::now();
  EXPECT_TRUE(RunAndWait(bounded.CommandLine(L"-sleep 500").c_str(), nullptr, 30000));
  EXPECT_GE(ElapsedMs(start), 450);
  EXPECT_LT(ElapsedMs(start), 20000);
}

// The child runs in the folder given, else in installDir; a missing program is reported at once.
TEST(RunAndWait, WorkingFolderAndFailure) {
  ChildProgram child;
  qmtest::TempDir given(L"qm given dir"), install(L"qm install dir");
  EXPECT_TRUE(RunAndWait(child.CommandLine(L"one").c_str(), given.path().c_str(), 30000));
  installSettings.installDir = install.path();
  EXPECT_TRUE(RunAndWait(child.CommandLine(L"two").c_str(), nullptr, 30000));
  installSettings.installDir.clear();
  std::string log = qmtest::ReadFileBytes(child.dir / L"child.log");
  for (auto [folder, arguments] : {std::pair{given.path(), L"one"}, std::pair{install.path(), L"two"}})
    EXPECT_NE(log.find(qmtest::Narrow(folder + L"|" + child.CommandLine(arguments))), std::string::npos) << log;

  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(RunAndWait(L"\"C:\\no such folder\\none.exe\" -x", nullptr, 5000));
  EXPECT_LT(ElapsedMs(start), 2000);
}
