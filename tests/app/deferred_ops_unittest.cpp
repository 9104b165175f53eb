#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <string>

#include "product/settings.h"
#include "sys/deferred_ops.h"
#include "sys/process.h"
#include "tests/app/app_test_util.h"
#include "tests/support/test_support.h"

namespace {

// Keeps the machine's WININIT.INI aside for a test and puts it back after.
class DeferredOps : public ::testing::Test {
 protected:
  void SetUp() override {
    wchar_t folder[MAX_PATH] = {};
    ::GetWindowsDirectoryW(folder, MAX_PATH);
    path_ = std::wstring(folder) + L"\\wininit.ini";
    saved_ = qmtest::ReadFileBytes(path_);
    ::DeleteFileW(path_.c_str());
  }
  void TearDown() override {
    ::RemoveDirectoryW(path_.c_str());
    ::DeleteFileW(path_.c_str());
    if (!saved_.empty()) qmtest::WriteFileBytes(path_, saved_);
    Flush();
  }
  // The profile functions cache files; this writes the cache out.
  static void Flush() { ::WritePrivateProfileStringW(nullptr, nullptr, nullptr, L"WININIT.INI"); }

  std::wstring path_;
  std::string saved_;
};

}  // namespace

// A deletion is queued as a pending pair with an empty target, a replacement as
// source and target, neither touching the files; ReplaceAtReboot stores its
// result in restartNeeded, so a failure of both ways clears an earlier success.
TEST_F(DeferredOps, QueuesAndStoresResult) {
  qmtest::TempDir dir(L"qm defer");
  std::wstring file = dir / L"in use.dll", source = dir / L"new.dll", target = dir / L"old.dll";
  ASSERT_TRUE(qmtest::WriteFileBytes(file, "x") && qmtest::WriteFileBytes(source, "new") &&
              qmtest::WriteFileBytes(target, "old"));
  installSettings.restartNeeded = 0;
  EXPECT_TRUE(DeleteAtReboot(file.c_str()));
  EXPECT_TRUE(ReplaceAtReboot(source.c_str(), target.c_str()));
  EXPECT_EQ(installSettings.restartNeeded, 1);
  std::optional<std::wstring> deletion = apptest::PendingTarget(file), replacement = apptest::PendingTarget(source);
  apptest::ForgetPending({file, source});
  EXPECT_EQ(deletion, L"");
  // The system marks a target that may be replaced with a leading "!".
  EXPECT_TRUE(replacement == L"\\??\\" + target || replacement == L"!\\??\\" + target)
      << qmtest::Narrow(replacement.value_or(L"(none)"));
  EXPECT_TRUE(qmtest::FileExists(file));
  EXPECT_EQ(qmtest::ReadFileBytes(target), "old");

  // An empty source cannot be queued, and a WININIT.INI that is a folder cannot be written.
  ASSERT_TRUE(::CreateDirectoryW(path_.c_str(), nullptr));
  EXPECT_FALSE(ReplaceAtReboot(L"", L"C:\\x\\old.dll"));
  EXPECT_EQ(installSettings.restartNeeded, 0);
}

// The fallback adds "NUL=" + path behind the [rename] lines already there; a
// deletion the pending list cannot take (the empty path) lands there too.
TEST_F(DeferredOps, FallbackKeepsExistingLines) {
  const std::string existing = "[rename]\r\nC:\\keep\\a.txt=C:\\keep\\b.txt\r\nNUL=C:\\keep\\old.txt\r\n";
  ASSERT_TRUE(qmtest::WriteFileBytes(path_, existing));
  EXPECT_TRUE(DeleteAtReboot(L""));
  EXPECT_TRUE(AppendWininitDeletion(L"C:\\some folder\\gone.txt"));
  Flush();
  EXPECT_EQ(qmtest::ReadFileBytes(path_), existing + "NUL=\r\nNUL=C:\\some folder\\gone.txt\r\n");
}

// A [rename] list that would outgrow its buffer ends the process at once, writing nothing.
TEST_F(DeferredOps, OverlongSectionStopsTheProcess) {
  std::string section = "[rename]\r\n";
  for (int i = 0; section.size() < 20000; ++i) section += "NUL=C:\\old\\file" + std::to_string(i) + ".tmp\r\n";
  ASSERT_TRUE(qmtest::WriteFileBytes(path_, section));
  // The empty path cannot be queued as a pending deletion, so the fallback runs.
  int code = qmtest::RunProcess(L"\"" + qmtest::BinDir() + L"\\app_defer.exe\" delete \"\"", 60000);
  EXPECT_TRUE(code != 0 && code != 1 && code != -1) << code;
  EXPECT_EQ(qmtest::ReadFileBytes(path_), section);
}

// Timeout 0 returns at once, a timeout bounds the wait and a child that ends
// sooner ends it sooner; the child runs in the folder given, else in
// installDir; a missing program is reported at once.
TEST(RunAndWait, TimeoutFolderAndFailure) {
  qmtest::TempDir dir(L"qm run wait"), install(L"qm install dir");
  // A fresh copy of the probe, which logs "<current folder>|<command line>" next to itself.
  const std::wstring exe = dir / L"child.exe";
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\app_probe.exe").c_str(), exe.c_str(), FALSE));
  auto runMs = [&](const std::wstring& arguments, const wchar_t* folder, DWORD timeoutMs, BOOL started = TRUE) {
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(RunAndWait(started ? exe.c_str() : L"C:\\no such folder\\none.exe", arguments.c_str(), folder, timeoutMs), started) << qmtest::Narrow(arguments);
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
  };
  const std::wstring child = L"\"" + exe + L"\" -sleep ";
  EXPECT_LT(runMs(child + L"3000 given", dir.path().c_str(), 0), 1500);
  installSettings.installDir = install.path();
  long long bounded = runMs(child + L"4000 default", nullptr, 700), sooner = runMs(child + L"500", nullptr, 30000);
  installSettings.installDir.clear();
  EXPECT_TRUE(bounded >= 650 && bounded < 3000) << bounded;
  EXPECT_TRUE(sooner >= 450 && sooner < 20000) << sooner;
  EXPECT_LT(runMs(L"\"C:\\no such folder\\none.exe\" -x", nullptr, 5000, FALSE), 2000);

  // Only an ended child's file can be deleted.
  for (int i = 0; i < 200 && !::DeleteFileW(exe.c_str()); ++i) ::Sleep(50);
  std::string log = qmtest::ReadFileBytes(dir / L"child.log");
  EXPECT_NE(log.find(qmtest::Narrow(dir.path() + L"|" + child + L"3000 given")), std::string::npos) << log;
  EXPECT_NE(log.find(qmtest::Narrow(install.path() + L"|" + child + L"4000 default")), std::string::npos) << log;
}
