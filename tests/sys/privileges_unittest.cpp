#include "sys/privileges.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace {

// Runs action with the C runtime's standard output sent to a file; returns what was written.
std::string CaptureStdout(const std::function<void()>& action) {
  qmtest::TempDir dir(L"qm stdout");
  std::fflush(stdout);
  int saved = _dup(1);
  int target = _wopen((dir / L"out.txt").c_str(), _O_WRONLY | _O_CREAT | _O_BINARY, 0600);
  _dup2(target, 1);
  action();
  std::fflush(stdout);
  _dup2(saved, 1);
  _close(saved);
  _close(target);
  return qmtest::ReadFileBytes(dir / L"out.txt");
}

UniqueHandle ProcessToken(DWORD access) {
  UniqueHandle token;
  EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), access, token.put()));
  return token;
}

// Whether the shutdown privilege is enabled in this process's token.
bool ShutdownEnabled() {
  LUID luid = {};
  ::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &luid);
  std::vector<BYTE> buffer(4096);
  DWORD size = 0;
  ::GetTokenInformation(ProcessToken(TOKEN_QUERY).get(), TokenPrivileges, buffer.data(), 4096, &size);
  const auto* held = reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer.data());
  for (DWORD i = 0; i < held->PrivilegeCount; ++i)
    if (held->Privileges[i].Luid.LowPart == luid.LowPart && held->Privileges[i].Luid.HighPart == luid.HighPart)
      return held->Privileges[i].Attributes & SE_PRIVILEGE_ENABLED;
  return false;
}

// A copy of the process token without the shutdown privilege.
UniqueHandle TokenWithoutShutdown() {
  LUID_AND_ATTRIBUTES removed = {};
  ::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &removed.Luid);
  UniqueHandle restricted;
  EXPECT_TRUE(::CreateRestrictedToken(ProcessToken(TOKEN_ALL_ACCESS).get(), 0, 0, nullptr, 1, &removed, 0,
                                      nullptr, restricted.put()));
  return restricted;
}

// What the stand-ins for ExitWindowsEx and OpenProcessToken saw.
struct ExitCall { UINT flags; DWORD reason; bool shutdownEnabled; };
std::vector<ExitCall> exitCalls;
std::vector<DWORD> openAccess;
HANDLE tokenToHandOut = nullptr;

BOOL WINAPI RecordExit(UINT flags, DWORD reason) {
  exitCalls.push_back({flags, reason, ShutdownEnabled()});
  return FALSE;  // a refused reboot must not matter
}
BOOL WINAPI HandOutToken(HANDLE process, DWORD access, PHANDLE token) {
  EXPECT_EQ(::GetCurrentProcess(), process);
  openAccess.push_back(access);
  return tokenToHandOut &&
         ::DuplicateHandle(process, tokenToHandOut, process, token, 0, FALSE, DUPLICATE_SAME_ACCESS);
}

// Puts the seams and the shutdown privilege's state back after each case.
class PrivilegeTest : public testing::Test {
 protected:
  void SetUp() override { pExitWindowsEx = RecordExit; }
  void TearDown() override {
    pOpenProcessToken = savedOpen_;
    pExitWindowsEx = savedExit_;
    SetTokenPrivilege(token_.get(), SE_SHUTDOWN_NAME, wasEnabled_);
  }
  UniqueHandle token_ = ProcessToken(TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY);
  BOOL wasEnabled_ = ShutdownEnabled();
  OpenProcessTokenFn savedOpen_ = pOpenProcessToken;
  ExitWindowsFn savedExit_ = pExitWindowsEx;
};

// Enabling and disabling succeed silently and switch the privilege; each failure
// returns FALSE with its own console line: an unknown name, a privilege the token
// lacks (the adjustment "succeeds"), a token opened without adjust rights.
TEST_F(PrivilegeTest, SetTokenPrivilege) {
  UniqueHandle restricted = TokenWithoutShutdown(), queryOnly = ProcessToken(TOKEN_QUERY);
  struct Case { HANDLE token; const wchar_t* name; BOOL enable, result; const char* output; };
  const Case cases[] = {
      {token_.get(), SE_SHUTDOWN_NAME, TRUE, TRUE, ""},
      {token_.get(), SE_SHUTDOWN_NAME, FALSE, TRUE, ""},
      {token_.get(), L"SeQuillPrivilege", TRUE, FALSE, "LookupPrivilegeValue error: 1313\n"},
      {restricted.get(), SE_SHUTDOWN_NAME, TRUE, FALSE, "The token does not have the specified privilege. \n"},
      {queryOnly.get(), SE_SHUTDOWN_NAME, TRUE, FALSE, "AdjustTokenPrivileges error: 5\n"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.enable << " " << c.output);
    BOOL result = !c.result;
    EXPECT_EQ(c.output, CaptureStdout([&] { result = SetTokenPrivilege(c.token, c.name, c.enable); }));
    EXPECT_EQ(c.result, result);
    EXPECT_EQ(c.enable && c.result, ShutdownEnabled());  // the failures leave it disabled
  }
}

// The restart enables the shutdown privilege (token opened for adjusting only) and
// asks for a planned reboot for an installation; a token without the privilege,
// a refused token or no token function still lead to the reboot request.
TEST_F(PrivilegeTest, RestartAlwaysAsksForTheReboot) {
  ASSERT_TRUE(SetTokenPrivilege(token_.get(), SE_SHUTDOWN_NAME, FALSE));
  EXPECT_EQ("", CaptureStdout([] { RestartWindows(); }));
  ASSERT_EQ(1u, exitCalls.size());
  EXPECT_TRUE(exitCalls[0].shutdownEnabled);

  UniqueHandle restricted = TokenWithoutShutdown();
  pOpenProcessToken = HandOutToken;
  tokenToHandOut = restricted.get();
  EXPECT_EQ("The token does not have the specified privilege. \n", CaptureStdout([] { RestartWindows(); }));
  tokenToHandOut = nullptr;
  EXPECT_EQ("", CaptureStdout([] { RestartWindows(); }));
  pOpenProcessToken = nullptr;
  RestartWindows();

  EXPECT_EQ((std::vector<DWORD>{TOKEN_ADJUST_PRIVILEGES, TOKEN_ADJUST_PRIVILEGES}), openAccess);
  ASSERT_EQ(4u, exitCalls.size());
  for (const ExitCall& call : exitCalls) {
    EXPECT_EQ(static_cast<UINT>(EWX_REBOOT), call.flags);
    EXPECT_EQ(0x80040002u, call.reason);
  }
}

}  // namespace
