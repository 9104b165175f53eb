#include <gtest/gtest.h>
#include <windows.h>

#include "app/deferred_ops.h"
#include "tests/support/test_support.h"

namespace {

constexpr wchar_t kChildLog[] = L"QM_CHILD_LOG";

// Started as a child (the variable names a log), this program ends half a
// second late, so that a parent that does not wait finds no log yet, and
// writes "<current folder>|<command line>" into the log.
const bool child = [] {
  wchar_t log[MAX_PATH] = {}, folder[MAX_PATH] = {};
  if (!::GetEnvironmentVariableW(kChildLog, log, MAX_PATH)) return false;
  ::Sleep(500);
  ::GetCurrentDirectoryW(MAX_PATH, folder);
  qmtest::WriteFileBytes(log, qmtest::Narrow(std::wstring(folder) + L"|" + ::GetCommandLineW()));
  ::ExitProcess(0);
}();

// Keeps the machine's WININIT.INI aside for a test and puts it back after.
class WininitFallback : public ::testing::Test {
 protected:
  void SetUp() override { ::DeleteFileW(path_.c_str()); }
  void TearDown() override {
    ::DeleteFileW(path_.c_str());
    if (!saved_.empty()) qmtest::WriteFileBytes(path_, saved_);
    Flush();
  }
  // The profile functions cache files; this writes the cache out.
  static void Flush() { ::WritePrivateProfileStringW(nullptr, nullptr, nullptr, L"WININIT.INI"); }

  std::wstring path_ = [] {
    wchar_t folder[MAX_PATH] = {};
    ::GetWindowsDirectoryW(folder, MAX_PATH);
    return std::wstring(folder) + L"\\wininit.ini";
  }();
  std::string saved_ = qmtest::ReadFileBytes(path_);
};

}  // namespace

// The child runs in the folder given with the command line as given, and is
// waited for; a program that does not exist is reported.
TEST(RunAndWait, WaitsForTheChildInTheFolderGiven) {
  qmtest::TempDir dir(L"qm run wait");
  const std::wstring log = dir / L"child.log", commandLine = L"\"" + qmtest::SelfPath() + L"\" -unregonly";
  ::SetEnvironmentVariableW(kChildLog, log.c_str());
  EXPECT_TRUE(RunAndWait(commandLine.c_str(), dir.path().c_str(), 60000));
  ::SetEnvironmentVariableW(kChildLog, nullptr);
  EXPECT_EQ(qmtest::ReadFileBytes(log), qmtest::Narrow(dir.path() + L"|" + commandLine));
  EXPECT_FALSE(RunAndWait(L"\"C:\\no such folder\\none.exe\" -x", dir.path().c_str(), 5000));
}

// A deletion the pending list cannot take (the empty path) goes to the
// [rename] section of WININIT.INI as "NUL=" + path, behind the lines there.
TEST_F(WininitFallback, KeepsTheLinesAlreadyThere) {
  const std::string existing = "[rename]\r\nC:\\keep\\a.txt=C:\\keep\\b.txt\r\nNUL=C:\\keep\\old.txt\r\n";
  ASSERT_TRUE(qmtest::WriteFileBytes(path_, existing));
  EXPECT_TRUE(DeleteAtReboot(L""));
  EXPECT_TRUE(AppendWininitDeletion(L"C:\\some folder\\gone.txt"));
  Flush();
  EXPECT_EQ(qmtest::ReadFileBytes(path_), existing + "NUL=\r\nNUL=C:\\some folder\\gone.txt\r\n");
}
