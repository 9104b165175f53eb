#include "instances/running_copies.h"

#include <gtest/gtest.h>

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

// Lengthens the sweep's pause so that a copy surely handles its close request
// before the termination; records the pauses asked for.
class PatientSweep {
 public:
  PatientSweep() {
    requested().clear();
    pSweepPause = Pause;
  }
  ~PatientSweep() { pSweepPause = ::Sleep; }
  static std::vector<DWORD>& requested() {
    static std::vector<DWORD> pauses;
    return pauses;
  }

 private:
  static void WINAPI Pause(DWORD milliseconds) {
    requested().push_back(milliseconds);
    ::Sleep(1500);
  }
};

// Only an unowned, non-tool window whose title opens with the product name
// (and is not one of the two system window titles) is the main window.
TEST(FindProcessMainWindow, MatchesOnlyUnownedProductTitledWindows) {
  LocalWindow owner(L"Owner of the dialog");
  struct Case {
    const wchar_t* title;
    DWORD exStyle;
    bool owned, found;
  };
  const Case cases[] = {
      {L"Quillmark 8 - picture.qmk", 0, false, true}, {L"Quillmark", 0, false, true},
      {L"QuillmarkX", 0, false, true},                {L"My Quillmark 8", 0, false, false},
      {L" Quillmark 8", 0, false, false},             {L"quillmark 8", 0, false, false},
      {L"", 0, false, false},                         {L"DDE Server Window", 0, false, false},
      {L"OleMainThreadWndName", 0, false, false},     {L"Quill", 0, false, false},
      {L"Quillmark tool", WS_EX_TOOLWINDOW, false, false},
      {L"Quillmark owned", 0, true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(qmtest::Narrow(c.title));
    LocalWindow window(c.title, c.exStyle, c.owned ? owner.get() : nullptr);
    ASSERT_NE(window.get(), nullptr);
    EXPECT_EQ(FindProcessMainWindow(::GetCurrentProcessId()), c.found ? window.get() : nullptr);
  }
  // Another process's product window is not this process's.
  LocalWindow main(L"Quillmark main");
  EXPECT_EQ(FindProcessMainWindow(0x7FFFFFF1u), nullptr);
}

// CloseProcessWindow posts a plain WM_CLOSE to another process's window; the
// copy ends and leaves the list. Disabled or missing windows are not closed.
TEST(CloseProcessWindow, PostsPlainCloseToEnabledWindowsOnly) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"closewin");
  ChildProcess copy, tool;
  ASSERT_TRUE(StartStandin(copy, trace, name));
  ASSERT_TRUE(StartStandin(tool, trace, name, L"-toolwindow"));
  COXInstanceManager list(name.c_str(), 1024, FALSE);
  ASSERT_EQ(Ids(list), (std::vector<DWORD>{copy.id(), tool.id()}));

  HWND window = FindProcessMainWindow(copy.id());
  ASSERT_NE(window, nullptr);
  DWORD owner = 0;
  ::GetWindowThreadProcessId(window, &owner);
  EXPECT_EQ(owner, copy.id());
  ::EnableWindow(window, FALSE);
  EXPECT_FALSE(CloseProcessWindow(copy.id()));
  EXPECT_FALSE(CloseProcessWindow(tool.id()));
  ::EnableWindow(window, TRUE);
  EXPECT_TRUE(CloseProcessWindow(copy.id()));
  ASSERT_TRUE(copy.WaitEnded());
  EXPECT_TRUE(trace.Has(copy.id(), "close 0"));
  EXPECT_FALSE(trace.Has(copy.id(), "close1001"));
  EXPECT_EQ(Ids(list), std::vector<DWORD>{tool.id()});
  EXPECT_TRUE(tool.Running());
}

// The sweep closes with wParam 1001, pauses 10 ms per copy, skips this process
// and visits only count-1 entries: with this process first, the last copy
// keeps running.
TEST(CloseRunningCopies, VisitsOnlyTheFirstCountMinusOneEntries) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"sweep");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  ChildProcess a, b, c;
  for (ChildProcess* copy : {&a, &b, &c}) ASSERT_TRUE(StartStandin(*copy, trace, name));
  ASSERT_EQ(Ids(list), (std::vector<DWORD>{::GetCurrentProcessId(), a.id(), b.id(), c.id()}));
  TakePosted();

  PatientSweep patient;
  CloseRunningCopies(list, list.ReadInstanceCount() - 1);
  EXPECT_EQ(PatientSweep::requested(), (std::vector<DWORD>{10, 10}));
  for (ChildProcess* copy : {&a, &b}) {
    ASSERT_TRUE(copy->WaitEnded());
    EXPECT_EQ(copy->ExitCode(), 0u);
    EXPECT_TRUE(trace.Has(copy->id(), "close1001"));
  }
  EXPECT_FALSE(c.WaitEnded(500));
  EXPECT_FALSE(trace.Has(c.id(), "close1001"));
  EXPECT_FALSE(trace.Has(c.id(), "close"));
  // Both had their window, and this process was not asked: nothing queued here.
  EXPECT_TRUE(TakePosted(WM_CLOSE, WM_CLOSE).empty());
}

// Copies without a qualifying window (tool window, system title, only an
// owned product window), or ignoring the request, are still terminated; the
// close request for a windowless copy lands in this thread's queue.
// Terminated copies stay listed.
TEST(CloseRunningCopies, TerminatesCopiesWhoseWindowDoesNotQualify) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"sweep-terminate");
  ChildProcess stubborn, tool, dde, owned;
  ASSERT_TRUE(StartStandin(stubborn, trace, name, L"-ignoreclose"));
  ASSERT_TRUE(StartStandin(tool, trace, name, L"-toolwindow"));
  ASSERT_TRUE(StartStandin(dde, trace, name, L"-title \"DDE Server Window\""));
  ASSERT_TRUE(StartStandin(owned, trace, name, L"-owned-only"));
  COXInstanceManager list(name.c_str(), 1024, TRUE);  // this process last, as in setup
  ASSERT_EQ(list.ReadInstanceCount(), 5);
  TakePosted();

  PatientSweep patient;
  CloseRunningCopies(list, list.ReadInstanceCount() - 1);
  for (ChildProcess* copy : {&stubborn, &tool, &dde, &owned}) {
    ASSERT_TRUE(copy->WaitEnded());
    EXPECT_EQ(copy->ExitCode(), 0u);
    EXPECT_EQ(trace.Has(copy->id(), "close1001"), copy == &stubborn);
  }
  EXPECT_FALSE(trace.Has(stubborn.id(), "ended"));
  std::vector<MSG> unaddressed = TakePosted(WM_CLOSE, WM_CLOSE);
  ASSERT_EQ(unaddressed.size(), 3u);
  for (const MSG& message : unaddressed) {
    EXPECT_EQ(message.hwnd, nullptr);
    EXPECT_EQ(message.wParam, 1001u);
  }
  EXPECT_EQ(list.ReadInstanceCount(), 5);
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
  ASSERT_EQ(Ids(list), (std::vector<DWORD>{first.id(), ::GetCurrentProcessId(), second.id()}));

  CloseRunningCopies(list, 0);
  ASSERT_TRUE(first.WaitEnded());
  EXPECT_EQ(first.ExitCode(), 0u);
  EXPECT_TRUE(second.Running());
  CloseRunningCopies(list, 50);
  ASSERT_TRUE(second.WaitEnded());
  EXPECT_EQ(second.ExitCode(), 0u);
  TakePosted();
}

// Surplus closing walks from the newest entry and closes only the surplus.
TEST(WriteInstanceLimit, ClosesTheNewestCopiesBeyondTheLimit) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"surplus");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  ChildProcess older, newer;
  ASSERT_TRUE(StartStandin(older, trace, name));
  ASSERT_TRUE(StartStandin(newer, trace, name));
  EXPECT_TRUE(list.WriteInstanceLimit(2, TRUE));
  ASSERT_TRUE(newer.WaitEnded());
  EXPECT_TRUE(trace.Has(newer.id(), "close 0"));
  EXPECT_FALSE(older.WaitEnded(300));
  EXPECT_EQ(Ids(list), (std::vector<DWORD>{::GetCurrentProcessId(), older.id()}));
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
    EXPECT_TRUE(trace.WaitFor(copy.id(), "msg1946 " + self));
    ASSERT_TRUE(StartStandin(second, trace, name));
    EXPECT_TRUE(trace.WaitFor(copy.id(), "msg1946 " + std::to_string(second.id())));
    TakePosted();
  }
  for (ChildProcess* listener : {&copy, &second})
    EXPECT_TRUE(trace.WaitFor(listener->id(), "msg1947 " + self)) << listener->id();
}

}  // namespace
