#include <gtest/gtest.h>
#include <windows.h>

#include "sys/deferred_ops.h"
#include "sys/process.h"
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

}  // namespace

// The child runs in the folder given with the command line as given, and is
// waited for; a program that does not exist, or is not named by its full
// path, is not started.
TEST(RunAndWait, WaitsForTheChildInTheFolderGiven) {
  qmtest::TempDir dir(L"qm run wait");
  const std::wstring self = qmtest::SelfPath(), log = dir / L"child.log";
  const std::wstring commandLine = L"\"" + self + L"\" -unregonly";
  ::SetEnvironmentVariableW(kChildLog, log.c_str());
  EXPECT_TRUE(RunAndWait(self.c_str(), commandLine.c_str(), dir.path().c_str(), 60000));
  ::SetEnvironmentVariableW(kChildLog, nullptr);
  EXPECT_EQ(qmtest::ReadFileBytes(log), qmtest::Narrow(dir.path() + L"|" + commandLine));
  EXPECT_FALSE(RunAndWait(L"C:\\no such folder\\none.exe", L"none.exe -x", dir.path().c_str(), 5000));
  EXPECT_FALSE(RunAndWait(L"child.exe", L"child.exe", dir.path().c_str(), 5000));
}
