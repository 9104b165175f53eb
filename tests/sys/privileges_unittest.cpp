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

// Runs action with the C runtime's standard output sent to a file and returns
// what was written there.
std::string CaptureStdout(const std::function<void()>& action) {
  qmtest::TempDir dir(L"qm stdout");
  const std::wstring file = dir / L"out.txt";
  std::fflush(stdout);
  int saved = _dup(1);
  int target = _wopen(file.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, 0600);
  EXPECT_GE(target, 0);
  _dup2(target, 1);
  action();
  std::fflush(stdout);
  _dup2(saved, 1);
  _close(saved);
  _close(target);
  return qmtest::ReadFileBytes(file);
}

// Attributes of one privilege in token; -1 when the token does not hold it.
long long PrivilegeAttributes(HANDLE token, const wchar_t* name) {
  LUID luid = {};
  if (!::LookupPrivilegeValueW(nullptr, name, &luid)) return -1;
  DWORD size = 0;
  ::GetTokenInformation(token, TokenPrivileges, nullptr, 0, &size);
  std::vector<BYTE> buffer(size);
  if (!::GetTokenInformation(token, TokenPrivileges, buffer.data(), size, &size)) return -1;
  auto* privileges = reinterpret_cast<TOKEN_PRIVILEGES*>(buffer.data());
  for (DWORD i = 0; i < privileges->PrivilegeCount; ++i) {
    const LUID& held = privileges->Privileges[i].Luid;
    if (held.LowPart == luid.LowPart && held.HighPart == luid.HighPart)
      return privileges->Privileges[i].Attributes;
  }
  return -1;
}

bool Enabled(HANDLE token, const wchar_t* name) {
  long long attributes = PrivilegeAttributes(token, name);
  return attributes >= 0 && (attributes & SE_PRIVILEGE_ENABLED);
}

UniqueHandle ProcessToken(DWORD access) {
  UniqueHandle token;
  EXPECT_TRUE(::OpenProcessToken(::GetCurrentProcess(), access, token.put()));
  return token;
}

// A copy of the process token from which the shutdown privilege is removed.
UniqueHandle TokenWithoutShutdown() {
  UniqueHandle process = ProcessToken(TOKEN_ALL_ACCESS);
  LUID_AND_ATTRIBUTES removed = {};
  EXPECT_TRUE(::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &removed.Luid));
  UniqueHandle restricted;
  EXPECT_TRUE(::CreateRestrictedToken(process.get(), 0, 0, nullptr, 1, &removed, 0, nullptr,
                                      restricted.put()));
  return restricted;
}

// Puts the late-bound pointers and the shutdown privilege's state back after each case.
class PrivilegeTest : public testing::Test {
 protected:
  void SetUp() override {
    token_ = ProcessToken(TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY);
    wasEnabled_ = Enabled(token_.get(), SE_SHUTDOWN_NAME);
  }
  void TearDown() override {
    pLookupPrivilegeValue = savedLookup_;
    pAdjustTokenPrivileges = savedAdjust_;
    pOpenProcessToken = savedOpen_;
    pExitWindowsEx = savedExit_;
    LUID luid = {};
    ::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &luid);
    TOKEN_PRIVILEGES state = {1, {{luid, wasEnabled_ ? static_cast<DWORD>(SE_PRIVILEGE_ENABLED) : 0u}}};
    ::AdjustTokenPrivileges(token_.get(), FALSE, &state, sizeof state, nullptr, nullptr);
  }

  UniqueHandle token_;
  bool wasEnabled_ = false;
  LookupPrivilegeValueFn savedLookup_ = pLookupPrivilegeValue;
  AdjustTokenPrivilegesFn savedAdjust_ = pAdjustTokenPrivileges;
  OpenProcessTokenFn savedOpen_ = pOpenProcessToken;
  ExitWindowsFn savedExit_ = pExitWindowsEx;
};

// The token functions are found at start-up and the reboot goes to the real call by default.
TEST_F(PrivilegeTest, LateBoundFunctionsResolved) {
  EXPECT_NE(nullptr, pLookupPrivilegeValue);
  EXPECT_NE(nullptr, pAdjustTokenPrivileges);
  EXPECT_NE(nullptr, pOpenProcessToken);
  EXPECT_NE(nullptr, pExitWindowsEx);
}

// Enabling sets the privilege's enabled attribute, disabling clears it; nothing is printed.
TEST_F(PrivilegeTest, EnablesAndDisables) {
  std::string output = CaptureStdout([&] {
    EXPECT_TRUE(SetTokenPrivilege(token_.get(), SE_SHUTDOWN_NAME, TRUE));
    EXPECT_TRUE(Enabled(token_.get(), SE_SHUTDOWN_NAME));
    EXPECT_TRUE(SetTokenPrivilege(token_.get(), SE_SHUTDOWN_NAME, FALSE));
    EXPECT_FALSE(Enabled(token_.get(), SE_SHUTDOWN_NAME));
    EXPECT_GE(PrivilegeAttributes(token_.get(), SE_SHUTDOWN_NAME), 0);  // still held
  });
  EXPECT_EQ("", output);
}

// An unknown privilege name fails at the lookup with its error code on standard output.
TEST_F(PrivilegeTest, UnknownPrivilegeName) {
  BOOL result = TRUE;
  std::string output =
      CaptureStdout([&] { result = SetTokenPrivilege(token_.get(), L"SeQuillPrivilege", TRUE); });
  EXPECT_FALSE(result);
  EXPECT_EQ("LookupPrivilegeValue error: 1313\n", output);
}

// A privilege the token lacks: the adjustment "succeeds" but the result is FALSE.
TEST_F(PrivilegeTest, PrivilegeNotHeld) {
  UniqueHandle restricted = TokenWithoutShutdown();
  ASSERT_TRUE(restricted);
  ASSERT_EQ(-1, PrivilegeAttributes(restricted.get(), SE_SHUTDOWN_NAME));
  BOOL result = TRUE;
  std::string output =
      CaptureStdout([&] { result = SetTokenPrivilege(restricted.get(), SE_SHUTDOWN_NAME, TRUE); });
  EXPECT_FALSE(result);
  EXPECT_EQ("The token does not have the specified privilege. \n", output);
}

// A token opened without adjust rights makes the adjustment itself fail.
TEST_F(PrivilegeTest, AdjustmentRefused) {
  UniqueHandle queryOnly = ProcessToken(TOKEN_QUERY);
  BOOL result = TRUE;
  std::string output =
      CaptureStdout([&] { result = SetTokenPrivilege(queryOnly.get(), SE_SHUTDOWN_NAME, TRUE); });
  EXPECT_FALSE(result);
  EXPECT_EQ("AdjustTokenPrivileges error: 5\n", output);
}

// Without either token function nothing is tried and nothing printed.
TEST_F(PrivilegeTest, MissingFunctions) {
  ASSERT_TRUE(SetTokenPrivilege(token_.get(), SE_SHUTDOWN_NAME, FALSE));
  pLookupPrivilegeValue = nullptr;
  std::string output = CaptureStdout(
      [&] { EXPECT_FALSE(SetTokenPrivilege(token_.get(), SE_SHUTDOWN_NAME, TRUE)); });
  pLookupPrivilegeValue = savedLookup_;
  pAdjustTokenPrivileges = nullptr;
  output += CaptureStdout(
      [&] { EXPECT_FALSE(SetTokenPrivilege(token_.get(), SE_SHUTDOWN_NAME, TRUE)); });
  EXPECT_EQ("", output);
  EXPECT_FALSE(Enabled(token_.get(), SE_SHUTDOWN_NAME));
}

// What the stand-in for ExitWindowsEx saw.
struct ExitCall {
  UINT flags;
  DWORD reason;
  bool shutdownEnabled;
};
std::vector<ExitCall> exitCalls;

BOOL WINAPI RecordExit(UINT flags, DWORD reason) {
  UniqueHandle token;
  ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.put());
  exitCalls.push_back({flags, reason, Enabled(token.get(), SE_SHUTDOWN_NAME)});
  return FALSE;  // a refused reboot must not matter
}

// What the stand-in for OpenProcessToken was asked, and the token it hands out.
struct OpenCall {
  HANDLE process;
  DWORD access;
};
std::vector<OpenCall> openCalls;
HANDLE tokenToHandOut = nullptr;

BOOL WINAPI HandOutToken(HANDLE process, DWORD access, PHANDLE token) {
  openCalls.push_back({process, access});
  return ::DuplicateHandle(::GetCurrentProcess(), tokenToHandOut, ::GetCurrentProcess(), token, 0, FALSE,
                           DUPLICATE_SAME_ACCESS);
}

BOOL WINAPI RefuseToken(HANDLE process, DWORD access, PHANDLE) {
  openCalls.push_back({process, access});
  ::SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

// The restart enables the shutdown privilege first and asks for a planned reboot for an installation.
TEST_F(PrivilegeTest, RestartEnablesShutdownAndReboots) {
  ASSERT_TRUE(SetTokenPrivilege(token_.get(), SE_SHUTDOWN_NAME, FALSE));
  exitCalls.clear();
  pExitWindowsEx = RecordExit;
  std::string output = CaptureStdout([] { RestartWindows(); });
  ASSERT_EQ(1u, exitCalls.size());
  EXPECT_EQ(static_cast<UINT>(EWX_REBOOT), exitCalls[0].flags);
  EXPECT_EQ(0x80040002u, exitCalls[0].reason);
  EXPECT_TRUE(exitCalls[0].shutdownEnabled);
  EXPECT_EQ("", output);
}

// A token without the privilege, or none at all, still leads to the reboot request.
TEST_F(PrivilegeTest, RestartWithoutPrivilegeStillAsks) {
  UniqueHandle restricted = TokenWithoutShutdown();
  ASSERT_TRUE(restricted);
  tokenToHandOut = restricted.get();
  openCalls.clear();
  exitCalls.clear();
  pOpenProcessToken = HandOutToken;
  pExitWindowsEx = RecordExit;
  std::string output = CaptureStdout([] { RestartWindows(); });
  ASSERT_EQ(1u, openCalls.size());
  EXPECT_EQ(::GetCurrentProcess(), openCalls[0].process);
  EXPECT_EQ(static_cast<DWORD>(TOKEN_ADJUST_PRIVILEGES), openCalls[0].access);
  EXPECT_EQ("The token does not have the specified privilege. \n", output);
  ASSERT_EQ(1u, exitCalls.size());
  EXPECT_EQ(static_cast<UINT>(EWX_REBOOT), exitCalls[0].flags);
  EXPECT_EQ(0x80040002u, exitCalls[0].reason);

  pOpenProcessToken = RefuseToken;
  output = CaptureStdout([] { RestartWindows(); });
  EXPECT_EQ(2u, openCalls.size());
  EXPECT_EQ(2u, exitCalls.size());
  EXPECT_EQ("", output);

  pOpenProcessToken = nullptr;
  RestartWindows();
  EXPECT_EQ(2u, openCalls.size());
  EXPECT_EQ(3u, exitCalls.size());
  tokenToHandOut = nullptr;
}

}  // namespace
