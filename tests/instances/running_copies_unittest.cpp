#include "instances/running_copies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "instances/instance_manager.h"
#include "tests/instances/standin_process.h"

namespace {

using qmtest::ChildProcess;
using qmtest::Ids;
using qmtest::LocalWindow;
using qmtest::StandinTrace;
using qmtest::StartStandin;
using qmtest::TakePosted;
using qmtest::UniqueListName;

// The sweep's pause, lengthened so that a copy surely handles its close request
// before the termination; records the pauses asked for.
std::vector<DWORD> pauses;
void WINAPI PatientPause(DWORD milliseconds) {
  pauses.push_back(milliseconds);
  ::Sleep(1500);
}

// Only an unowned, non-tool window of the process whose title opens with the
// product name (and is not one of the two system window titles) is its main window.
TEST(FindProcessMainWindow, MatchesOnlyUnownedProductTitledWindows) {
  LocalWindow owner(L"Owner of the dialog");
  struct Case {
    const wchar_t* title;
    DWORD exStyle;
    bool owned, found;
  };
  const Case cases[] = {
      {L"Quillmark 8 - picture.qmk", 0, false, true}, {L"QuillmarkX", 0, false, true},
      {L"My Quillmark 8", 0, false, false},           {L"quillmark 8", 0, false, false},
      {L"", 0, false, false},                         {L"Quill", 0, false, false},
      {L"DDE Server Window", 0, false, false},        {L"OleMainThreadWndName", 0, false, false},
      {L"Quillmark tool", WS_EX_TOOLWINDOW, false, false}, {L"Quillmark owned", 0, true, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(qmtest::Narrow(c.title));
    LocalWindow window(c.title, c.exStyle, c.owned ? owner.get() : nullptr);
    ASSERT_NE(window.get(), nullptr);
    EXPECT_EQ(FindProcessMainWindow(::GetCurrentProcessId()), c.found ? window.get() : nullptr);
    EXPECT_EQ(FindProcessMainWindow(0x7FFFFFF1u), nullptr);
  }
}

// Surplus closing asks copies with a plain WM_CLOSE from the newest on until
// the surplus is met, skipping disabled windows; what is left falls to this
// process's own window.
TEST(WriteInstanceLimit, ClosesTheNewestCopiesBeyondTheLimit) {
  LocalWindow own(L"Quillmark own window");
  StandinTrace trace;
  std::wstring name = UniqueListName(L"surplus");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  ChildProcess older, newer;
  ASSERT_TRUE(StartStandin(older, trace, name));
  ASSERT_TRUE(StartStandin(newer, trace, name));
  EXPECT_TRUE(list.WriteInstanceLimit(2, TRUE));
  ASSERT_TRUE(newer.WaitEnded());
  EXPECT_TRUE(trace.Has(newer.id, "close 0"));
  EXPECT_FALSE(older.WaitEnded(300));
  EXPECT_EQ(Ids(list), (std::vector<DWORD>{::GetCurrentProcessId(), older.id}));
  EXPECT_TRUE(TakePosted(WM_CLOSE, WM_CLOSE).empty());

  HWND olderWindow = FindProcessMainWindow(older.id);
  ASSERT_NE(olderWindow, nullptr);
  ::EnableWindow(olderWindow, FALSE);
  EXPECT_TRUE(list.WriteInstanceLimit(1, TRUE));
  EXPECT_FALSE(older.WaitEnded(300));
  std::vector<MSG> closes = TakePosted(WM_CLOSE, WM_CLOSE);
  ASSERT_EQ(closes.size(), 1u);
  EXPECT_EQ(closes[0].hwnd, own.get());
  EXPECT_EQ(closes[0].wParam, 0u);
}

// The sweep visits the first count-1 entries, skipping this process (first
// here, so the last copy is spared): each copy gets WM_CLOSE 1001, 10 ms, and
// is terminated, also when it ignores the request or has no qualifying window
// (the request then goes to no window, into this thread's queue). Terminated
// copies stay listed.
TEST(CloseRunningCopies, ClosesAndTerminatesTheFirstCountMinusOne) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"sweep");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  ChildProcess plain, stubborn, tool, spared;
  ASSERT_TRUE(StartStandin(plain, trace, name));
  ASSERT_TRUE(StartStandin(stubborn, trace, name, L"-ignoreclose"));
  ASSERT_TRUE(StartStandin(tool, trace, name, L"-toolwindow"));
  ASSERT_TRUE(StartStandin(spared, trace, name));
  TakePosted();

  pSweepPause = PatientPause;
  CloseRunningCopies(list, list.ReadInstanceCount() - 1);
  pSweepPause = ::Sleep;
  EXPECT_EQ(pauses, std::vector<DWORD>(3, 10));
  for (ChildProcess* copy : {&plain, &stubborn, &tool}) {
    ASSERT_TRUE(copy->WaitEnded());
    EXPECT_EQ(copy->ExitCode(), 0u);
    EXPECT_EQ(trace.Has(copy->id, "close1001"), copy != &tool);
  }
  EXPECT_FALSE(trace.Has(stubborn.id, "ended"));
  std::vector<MSG> unaddressed = TakePosted(WM_CLOSE, WM_CLOSE);
  ASSERT_EQ(unaddressed.size(), 1u);
  EXPECT_EQ(unaddressed[0].hwnd, nullptr);
  EXPECT_EQ(unaddressed[0].wParam, 1001u);
  EXPECT_FALSE(spared.WaitEnded(500));
  EXPECT_FALSE(trace.Has(spared.id, "close"));
  std::vector<DWORD> left = Ids(list);
  for (ChildProcess* copy : {&stubborn, &tool}) EXPECT_EQ(std::count(left.begin(), left.end(), copy->id), 1);
}

// The loop runs at least once even for a count of 0, and a count past the
// list's end stops at the end (real 10 ms pause: the copies end either way).
TEST(CloseRunningCopies, RunsOnceForZeroAndStopsAtTheListsEnd) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"sweep-bounds");
  ChildProcess first, second;
  ASSERT_TRUE(StartStandin(first, trace, name));
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  ASSERT_TRUE(StartStandin(second, trace, name));
  CloseRunningCopies(list, 0);
  ASSERT_TRUE(first.WaitEnded());
  EXPECT_FALSE(second.WaitEnded(300));
  CloseRunningCopies(list, 50);
  EXPECT_TRUE(second.WaitEnded());
  TakePosted();
}

// The stand-ins' windows hear of copies joining (1946) and leaving (1947) the
// list, with the id that joined or left.
TEST(InstanceNotifications, ReachTheStandinsWindows) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"notify-standin");
  std::string self = std::to_string(::GetCurrentProcessId());
  ChildProcess copy, second;
  ASSERT_TRUE(StartStandin(copy, trace, name));
  {
    COXInstanceManager list(name.c_str(), 1024, TRUE);
    EXPECT_TRUE(trace.Has(copy.id, "msg1946 " + self, 30000));
    ASSERT_TRUE(StartStandin(second, trace, name));
    EXPECT_TRUE(trace.Has(copy.id, "msg1946 " + std::to_string(second.id), 30000));
    TakePosted();
  }
  for (ChildProcess* listener : {&copy, &second})
    EXPECT_TRUE(trace.Has(listener->id, "msg1947 " + self, 30000)) << listener->id;
}

}  // namespace
