#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "product/product.h"
#include "instances/instance_manager.h"
#include "instances/running_copies.h"
#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace {

constexpr wchar_t kClientList[] = L"QM_LIST_CLIENT";

std::wstring Named(const std::wstring& list, const wchar_t* what) { return L"Local\\" + list + what; }

// Started as a list client (the variable names a list), this program joins the
// list, reports through "<list>.ready" and leaves once "<list>.go" is set;
// exit code 0 when it found itself listed exactly once.
const bool listClient = [] {
  wchar_t list[256] = {};
  if (!::GetEnvironmentVariableW(kClientList, list, 256)) return false;
  bool listedOnce = false;
  {
    COXInstanceManager registry(list, 1024, TRUE);
    std::vector<DWORD> ids;
    listedOnce = registry.ReadInstanceIds(ids) && std::count(ids.begin(), ids.end(), ::GetCurrentProcessId()) == 1;
    UniqueHandle ready(::OpenSemaphoreW(SEMAPHORE_MODIFY_STATE, FALSE, Named(list, L".ready").c_str()));
    UniqueHandle go(::OpenEventW(SYNCHRONIZE, FALSE, Named(list, L".go").c_str()));
    ::ReleaseSemaphore(ready.get(), 1, nullptr);
    ::WaitForSingleObject(go.get(), 120000);
  }
  ::ExitProcess(listedOnce ? 0 : 3);
}();

// A list name no other test program uses.
std::wstring ListName(const wchar_t* tag) { return L"QmTest." + std::to_wstring(::GetCurrentProcessId()) + tag; }

std::vector<DWORD> Ids(COXInstanceManager& list) {
  std::vector<DWORD> ids;
  EXPECT_TRUE(list.ReadInstanceIds(ids));
  return ids;
}

// Posted messages in [first, last] waiting in this thread's queue, removed.
std::vector<MSG> TakePosted(UINT first = 0, UINT last = 0xFFFF) {
  std::vector<MSG> messages;
  MSG message;
  while (::PeekMessageW(&message, nullptr, first, last, PM_REMOVE | PM_QS_POSTMESSAGE)) messages.push_back(message);
  return messages;
}

// One started process; ended on destruction if still running.
struct ChildProcess {
  bool Start(std::wstring commandLine) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info = {};
    bool started = ::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                    &startup, &info);
    process.reset(info.hProcess);
    UniqueHandle thread(info.hThread);
    id = info.dwProcessId;
    return started;
  }
  ~ChildProcess() {
    if (process && ::TerminateProcess(process.get(), 99)) ::WaitForSingleObject(process.get(), INFINITE);
  }
  // The exit code once it has ended; 259 (still active) when it runs on for a minute.
  DWORD ExitCode() const {
    DWORD code = 259;
    if (::WaitForSingleObject(process.get(), 60000) == WAIT_OBJECT_0) ::GetExitCodeProcess(process.get(), &code);
    return code;
  }
  UniqueHandle process;
  DWORD id = 0;
};

// Stand-in product copies on one list, tracing into a file of the test's own.
class StandinTest : public testing::Test {
 public:
  void SetUp() override { ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace_.c_str()); }
  void TearDown() override { ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr); }
  // Starts the stand-in with options; true once it traced "started" (window made, list joined).
  bool Start(ChildProcess& copy, const std::wstring& options = L"") {
    const std::wstring program = qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe";
    return copy.Start(L"\"" + program + L"\" -list \"" + list_ + L"\" " + options) && Traced(copy.id, "started", 30000);
  }
  // Whether pid traced a line "<pid> <event>[ <args>]", waiting up to timeoutMs for it.
  bool Traced(DWORD pid, const std::string& event, DWORD timeoutMs = 0) const {
    const std::string line = std::to_string(pid) + " " + event;
    for (const ULONGLONG end = ::GetTickCount64() + timeoutMs;; ::Sleep(20)) {
      const std::string text = qmtest::ReadFileBytes(trace_);
      for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) {
        const char after = text.c_str()[at + line.size()];
        if ((at == 0 || text[at - 1] == '\n') && (after == ' ' || after == '\r')) return true;
      }
      if (::GetTickCount64() >= end) return false;
    }
  }

 protected:
  qmtest::TempDir dir_{L"qm standin"};
  std::wstring trace_ = dir_ / L"trace.log", list_ = ListName(L".copies");
};

// The sweep's pause, made long enough for each visited copy to handle its
// close request before it is terminated: it waits for the copy's trace of it.
const StandinTest* sweepTrace = nullptr;
std::vector<DWORD> expectedVisits;  // 0: a copy without a main window
std::vector<bool> closeRequestsSeen;
void WINAPI PatientPause(DWORD milliseconds) {
  const size_t visit = closeRequestsSeen.size();
  bool seen = milliseconds == 10 && visit < expectedVisits.size();
  if (seen && expectedVisits[visit]) seen = sweepTrace->Traced(expectedVisits[visit], "close1001", 30000);
  closeRequestsSeen.push_back(seen);
}

}  // namespace

// What the product shares with setup: the names of the list's mutexes and
// mapping, the block (limit 1, count, ids in the order of joining) and the
// shared data right after the rounded block. Listed ids without a window are
// told of joins and leaves through this thread's queue; a leave keeps the order.
TEST(InstanceList, SharedNamesAndLayout) {
  COXInstanceManager list(kInstanceListName, kInstanceSharedDataSize, TRUE);
  for (const wchar_t* name : {L"Local\\COXInstanceManager_InstanceList_Mutex_Lanternfold.Quillmark-DX.v4",
                              L"Local\\COXInstanceManager_Additional_Mutex_Lanternfold.Quillmark-DX.v4"})
    EXPECT_TRUE(UniqueHandle(::OpenMutexW(SYNCHRONIZE, FALSE, name)).valid());
  UniqueHandle mapping(
      ::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, L"Local\\COXInstanceManager_FileMap_Lanternfold.Quillmark-DX.v4"));
  UniqueMapView view(mapping ? ::MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0) : nullptr);
  ASSERT_TRUE(view.valid());
  const auto* words = static_cast<const DWORD*>(view.get());
  const DWORD self = ::GetCurrentProcessId(), a = 0x80000001u, b = 0x80000005u;  // real ids are multiples of 4
  ASSERT_TRUE(list.RegisterProcess(a) && list.RegisterProcess(b) && list.UnregisterProcess(a));
  EXPECT_EQ(std::vector<DWORD>(words, words + 4), (std::vector<DWORD>{1, 2, self, b}));
  std::vector<std::pair<UINT, DWORD>> told;
  for (const MSG& m : TakePosted(InstanceStartedMessage, InstanceEndedMessage))
    told.push_back({m.message, static_cast<DWORD>(m.lParam)});
  EXPECT_EQ(told, (std::vector<std::pair<UINT, DWORD>>{
                      {1946, a}, {1946, b}, {1946, b}, {1947, a}, {1947, a}}));
  EXPECT_EQ(list.SharedDataSize(), 65536u);
  std::memcpy(list.SharedDataView(), "marker", 6);
  EXPECT_EQ(std::memcmp(reinterpret_cast<const char*>(words) + 65536, "marker", 6), 0);
}

// Threads of this process churn invented ids through the list while a few
// other processes join it: every id stays listed exactly once, this process
// first; the clients leave it again.
TEST(InstanceList, ConcurrentJoinsAndLeavesKeepItConsistent) {
  const std::wstring name = ListName(L".burst");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  UniqueHandle ready(::CreateSemaphoreW(nullptr, 0, 8, Named(name, L".ready").c_str()));
  UniqueHandle go(::CreateEventW(nullptr, TRUE, FALSE, Named(name, L".go").c_str()));
  std::vector<std::unique_ptr<ChildProcess>> clients;
  ::SetEnvironmentVariableW(kClientList, name.c_str());
  for (int i = 0; i < 3; ++i) {
    clients.push_back(std::make_unique<ChildProcess>());
    ASSERT_TRUE(clients.back()->Start(L"\"" + qmtest::SelfPath() + L"\""));
  }
  ::SetEnvironmentVariableW(kClientList, nullptr);

  constexpr DWORD kThreads = 6, kRounds = 40;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (DWORD t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      for (DWORD round = 0; round <= kRounds; ++round) {
        const DWORD id = 0x80000001u + 0x10000u * t + 4 * round;
        if (!list.RegisterProcess(id) || (round < kRounds && !list.UnregisterProcess(id))) ++failures;
        TakePosted();
      }
    });
  for (std::thread& thread : threads) thread.join();
  for (size_t i = 0; i < clients.size(); ++i)
    ASSERT_EQ(::WaitForSingleObject(ready.get(), 60000), WAIT_OBJECT_0) << "only " << i << " clients ready";
  EXPECT_EQ(failures, 0);

  std::vector<DWORD> listed = Ids(list), expected = {::GetCurrentProcessId()};
  for (auto& client : clients) expected.push_back(client->id);
  for (DWORD t = 0; t < kThreads; ++t) expected.push_back(0x80000001u + 0x10000u * t + 4 * kRounds);
  ASSERT_EQ(listed.size(), expected.size());
  EXPECT_EQ(listed[0], ::GetCurrentProcessId());
  EXPECT_TRUE(std::is_permutation(listed.begin(), listed.end(), expected.begin()));

  ::SetEvent(go.get());
  for (auto& client : clients) EXPECT_EQ(client->ExitCode(), 0u) << "client " << client->id;
  std::erase_if(listed, [&](DWORD id) { return !(id & 1) && id != ::GetCurrentProcessId(); });
  EXPECT_EQ(Ids(list), listed);
  TakePosted();
}

// The sweep visits the first count entries but this process: each copy gets
// WM_CLOSE 1001 at its main window (without one the request lands in this
// thread's queue), the pause, and the end, also when it ignores the request;
// the copy behind them is spared; the ended ones stay listed. The copies'
// windows hear of every copy that joins the list.
TEST_F(StandinTest, SweepClosesAndEndsTheFirstCopies) {
  COXInstanceManager list(list_.c_str(), 1024, TRUE);
  ChildProcess plain, stubborn, tool, spared;
  ASSERT_TRUE(Start(plain) && Start(stubborn, L"-ignoreclose") && Start(tool, L"-toolwindow") && Start(spared));
  EXPECT_TRUE(Traced(plain.id, "msg1946 " + std::to_string(spared.id), 30000));
  TakePosted();

  sweepTrace = this;
  expectedVisits = {plain.id, stubborn.id, 0};
  pSweepPause = PatientPause;
  CloseRunningCopies(list, list.ReadInstanceCount() - 1);
  pSweepPause = ::Sleep;
  EXPECT_EQ(closeRequestsSeen, std::vector<bool>(3, true));
  for (ChildProcess* copy : {&plain, &stubborn, &tool}) ASSERT_EQ(copy->ExitCode(), 0u) << copy->id;
  EXPECT_FALSE(Traced(stubborn.id, "ended"));
  const std::vector<MSG> unaddressed = TakePosted(WM_CLOSE, WM_CLOSE);
  ASSERT_EQ(unaddressed.size(), 1u);
  EXPECT_EQ(unaddressed[0].hwnd, nullptr);
  EXPECT_EQ(unaddressed[0].wParam, 1001u);
  const std::vector<DWORD> left = Ids(list);
  for (const ChildProcess* copy : {&stubborn, &tool, &spared})
    EXPECT_EQ(std::count(left.begin(), left.end(), copy->id), 1) << copy->id;
}
