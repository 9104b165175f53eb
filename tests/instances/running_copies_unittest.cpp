#include "instances/running_copies.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "instances/instance_manager.h"
#include "tests/instances/standin_process.h"

namespace {

using qmtest::ChildProcess;
using qmtest::StandinTrace;
using qmtest::StartStandin;
using qmtest::TakePosted;
using qmtest::UniqueListName;

std::vector<DWORD> Ids(COXInstanceManager& list) {
  std::vector<DWORD> ids;
  EXPECT_TRUE(list.ReadInstanceIds(ids));
  return ids;
}

std::wstring TitleOf(HWND window) {
  wchar_t title[512] = {};
  ::GetWindowTextW(window, title, 512);
  return title;
}

// A window of this process, destroyed with the object.
class LocalWindow {
 public:
  LocalWindow(const wchar_t* title, DWORD exStyle = 0, HWND owner = nullptr) {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = ::DefWindowProcW;
    windowClass.hInstance = ::GetModuleHandleW(nullptr);
    windowClass.lpszClassName = L"QmRunningCopiesTestWindow";
    ::RegisterClassW(&windowClass);
    window_ = ::CreateWindowExW(exStyle, windowClass.lpszClassName, title, WS_OVERLAPPEDWINDOW, 0,
                                0, 100, 100, owner, nullptr, windowClass.hInstance, nullptr);
  }
  ~LocalWindow() { ::DestroyWindow(window_); }
  HWND get() const { return window_; }

 private:
  HWND window_ = nullptr;
};

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

// Titles: the product name must open the title; the two system window titles
// and other texts are never the main window.
TEST(FindProcessMainWindow, MatchesOnlyTitlesStartingWithTheProductName) {
  const DWORD self = ::GetCurrentProcessId();
  for (const wchar_t* title : {L"Quillmark 8 - picture.qmk", L"Quillmark", L"QuillmarkX"}) {
    LocalWindow window(title);
    ASSERT_NE(window.get(), nullptr);
    EXPECT_EQ(FindProcessMainWindow(self), window.get()) << qmtest::Narrow(title);
  }
  for (const wchar_t* title : {L"My Quillmark 8", L" Quillmark 8", L"quillmark 8", L"",
                               L"DDE Server Window", L"OleMainThreadWndName", L"Quill"}) {
    LocalWindow window(title);
    ASSERT_NE(window.get(), nullptr);
    EXPECT_EQ(FindProcessMainWindow(self), nullptr) << qmtest::Narrow(title);
  }
}

// Owned windows and tool windows are skipped; an unowned sibling is found.
TEST(FindProcessMainWindow, SkipsOwnedAndToolWindows) {
  const DWORD self = ::GetCurrentProcessId();
  {
    LocalWindow tool(L"Quillmark tool", WS_EX_TOOLWINDOW);
    EXPECT_EQ(FindProcessMainWindow(self), nullptr);
  }
  LocalWindow owner(L"Owner of the dialog");
  {
    LocalWindow owned(L"Quillmark owned", 0, owner.get());
    ASSERT_NE(owned.get(), nullptr);
    EXPECT_EQ(FindProcessMainWindow(self), nullptr);
    LocalWindow main(L"Quillmark main");
    EXPECT_EQ(FindProcessMainWindow(self), main.get());
  }
  // Another process's product window is not this process's.
  EXPECT_EQ(FindProcessMainWindow(0x7FFFFFF1u), nullptr);
}

// The lookup works across processes, with the same filters.
TEST(FindProcessMainWindow, FindsTheStandinsWindowOnly) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"lookup");
  ChildProcess plain, tool, owned, dde, later;
  ASSERT_TRUE(StartStandin(plain, trace, name));
  ASSERT_TRUE(StartStandin(tool, trace, name, L"-toolwindow"));
  ASSERT_TRUE(StartStandin(owned, trace, name, L"-owned-only"));
  ASSERT_TRUE(StartStandin(dde, trace, name, L"-title \"DDE Server Window\""));
  ASSERT_TRUE(StartStandin(later, trace, name, L"-title \"Picture - Quillmark 8\""));

  HWND found = FindProcessMainWindow(plain.id());
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(TitleOf(found), L"Quillmark 8 - Stand-in");
  DWORD owner = 0;
  ::GetWindowThreadProcessId(found, &owner);
  EXPECT_EQ(owner, plain.id());
  EXPECT_EQ(FindProcessMainWindow(tool.id()), nullptr);
  EXPECT_EQ(FindProcessMainWindow(owned.id()), nullptr);
  EXPECT_EQ(FindProcessMainWindow(dde.id()), nullptr);
  EXPECT_EQ(FindProcessMainWindow(later.id()), nullptr);
}

// CloseProcessWindow posts a plain WM_CLOSE; the copy ends and leaves the
// list. Disabled or missing windows are not closed.
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
  ::EnableWindow(window, FALSE);
  EXPECT_FALSE(CloseProcessWindow(copy.id()));
  EXPECT_FALSE(CloseProcessWindow(tool.id()));
  ::EnableWindow(window, TRUE);
  EXPECT_TRUE(CloseProcessWindow(copy.id()));
  ASSERT_TRUE(copy.WaitEnded(30000));
  EXPECT_TRUE(trace.Has(copy.id(), "close 0"));
  EXPECT_FALSE(trace.HasEvent(copy.id(), "close1001"));
  EXPECT_EQ(Ids(list), std::vector<DWORD>{tool.id()});
  EXPECT_TRUE(tool.Running());
}

// The sweep closes with wParam 1001 and visits only count-1 entries: with
// this process listed first, the last copy keeps running.
TEST(CloseRunningCopies, VisitsOnlyTheFirstCountMinusOneEntries) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"sweep");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  ChildProcess a, b, c;
  ASSERT_TRUE(StartStandin(a, trace, name));
  ASSERT_TRUE(StartStandin(b, trace, name));
  ASSERT_TRUE(StartStandin(c, trace, name));
  ASSERT_EQ(Ids(list), (std::vector<DWORD>{::GetCurrentProcessId(), a.id(), b.id(), c.id()}));
  TakePosted(0, 0xFFFF);

  PatientSweep patient;
  CloseRunningCopies(list, list.ReadInstanceCount() - 1);
  EXPECT_EQ(PatientSweep::requested(), (std::vector<DWORD>{10, 10}));
  ASSERT_TRUE(a.WaitEnded(30000));
  ASSERT_TRUE(b.WaitEnded(30000));
  EXPECT_EQ(a.ExitCode(), 0u);
  EXPECT_EQ(b.ExitCode(), 0u);
  EXPECT_TRUE(trace.Has(a.id(), "close1001"));
  EXPECT_TRUE(trace.Has(b.id(), "close1001"));
  EXPECT_FALSE(c.WaitEnded(500));
  EXPECT_FALSE(trace.HasEvent(c.id(), "close1001"));
  EXPECT_FALSE(trace.HasEvent(c.id(), "close"));
  // Both had their window: nothing reached this thread's queue.
  EXPECT_TRUE(TakePosted(WM_CLOSE, WM_CLOSE).empty());
}

// Copies without a qualifying window, or ignoring the request, are still
// terminated; the close request for a windowless copy lands in this
// thread's queue. Terminated copies stay listed.
TEST(CloseRunningCopies, TerminatesCopiesWhoseWindowDoesNotQualify) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"sweep-terminate");
  ChildProcess stubborn, tool, dde;
  ASSERT_TRUE(StartStandin(stubborn, trace, name, L"-ignoreclose"));
  ASSERT_TRUE(StartStandin(tool, trace, name, L"-toolwindow"));
  ASSERT_TRUE(StartStandin(dde, trace, name, L"-title \"DDE Server Window\""));
  COXInstanceManager list(name.c_str(), 1024, TRUE);  // this process last, as in setup
  ASSERT_EQ(list.ReadInstanceCount(), 4);
  TakePosted(0, 0xFFFF);

  PatientSweep patient;
  CloseRunningCopies(list, list.ReadInstanceCount() - 1);
  for (ChildProcess* copy : {&stubborn, &tool, &dde}) {
    ASSERT_TRUE(copy->WaitEnded(30000));
    EXPECT_EQ(copy->ExitCode(), 0u);
  }
  // The stubborn copy got the request but ended only by termination.
  EXPECT_TRUE(trace.Has(stubborn.id(), "close1001"));
  EXPECT_FALSE(trace.HasEvent(stubborn.id(), "ended"));
  EXPECT_FALSE(trace.HasEvent(tool.id(), "close1001"));
  EXPECT_FALSE(trace.HasEvent(dde.id(), "close1001"));
  std::vector<MSG> unaddressed = TakePosted(WM_CLOSE, WM_CLOSE);
  ASSERT_EQ(unaddressed.size(), 2u);
  for (const MSG& message : unaddressed) {
    EXPECT_EQ(message.hwnd, nullptr);
    EXPECT_EQ(message.wParam, 1001u);
  }
  EXPECT_EQ(list.ReadInstanceCount(), 4);
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
  ASSERT_TRUE(first.WaitEnded(30000));
  EXPECT_EQ(first.ExitCode(), 0u);
  EXPECT_TRUE(second.Running());

  CloseRunningCopies(list, 50);  // fewer ids than that: no fault, the rest visited
  ASSERT_TRUE(second.WaitEnded(30000));
  EXPECT_EQ(second.ExitCode(), 0u);
  TakePosted(0, 0xFFFF);
}

// With this process alone in the list the sweep does nothing to it.
TEST(CloseRunningCopies, SkipsTheCurrentProcess) {
  std::wstring name = UniqueListName(L"sweep-self");
  LocalWindow window(L"Quillmark self");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  TakePosted(0, 0xFFFF);
  CloseRunningCopies(list, 1);
  EXPECT_TRUE(TakePosted(WM_CLOSE, WM_CLOSE).empty());
  EXPECT_EQ(list.ReadInstanceCount(), 1);
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
  ASSERT_TRUE(newer.WaitEnded(30000));
  EXPECT_TRUE(trace.Has(newer.id(), "close 0"));
  EXPECT_FALSE(older.WaitEnded(300));
  EXPECT_EQ(Ids(list), (std::vector<DWORD>{::GetCurrentProcessId(), older.id()}));
}

// The product's windows hear of copies joining and leaving the list.
TEST(InstanceNotifications, ReachTheStandinsWindow) {
  StandinTrace trace;
  std::wstring name = UniqueListName(L"notify-standin");
  ChildProcess copy, second;
  ASSERT_TRUE(StartStandin(copy, trace, name));
  {
    COXInstanceManager list(name.c_str(), 1024, TRUE);
    ASSERT_TRUE(trace.WaitFor(copy.id(), "msg1946"));
    EXPECT_TRUE(trace.Has(copy.id(), "msg1946 " + std::to_string(::GetCurrentProcessId())));
    ASSERT_TRUE(StartStandin(second, trace, name));
    ASSERT_TRUE(trace.WaitFor(copy.id(), "msg1946"));
    for (DWORD waited = 0; waited < 10000 && !trace.Has(copy.id(), "msg1946 " + std::to_string(second.id()));
         waited += 20)
      ::Sleep(20);
    EXPECT_TRUE(trace.Has(copy.id(), "msg1946 " + std::to_string(second.id())));
    TakePosted(0, 0xFFFF);
  }
  // This process left: both copies are told.
  for (ChildProcess* listener : {&copy, &second})
    EXPECT_TRUE(trace.WaitFor(listener->id(), "msg1947")) << listener->id();
  EXPECT_TRUE(trace.Has(second.id(), "msg1947 " + std::to_string(::GetCurrentProcessId())));
}

// The stand-in's one-shot modes end at once with a trace line naming the exe.
TEST(Standin, RegOnlyAndUnregOnlyTraceAndEnd) {
  StandinTrace trace;
  for (const wchar_t* mode : {L"-regonly", L"-unregonly"}) {
    ChildProcess run;
    ASSERT_TRUE(run.Start(L"\"" + qmtest::StandinPath(L"standin-8.6.0.0") + L"\" " + mode));
    ASSERT_TRUE(run.WaitEnded(30000));
    EXPECT_EQ(run.ExitCode(), 0u);
    std::vector<std::string> events = trace.Events(run.id());
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0], qmtest::Narrow(mode + 1) + " " + qmtest::Narrow(qmtest::StandinPath(L"standin-8.6.0.0")));
  }
}

}  // namespace
