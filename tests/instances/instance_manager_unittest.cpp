#include "instances/instance_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/instances/standin_process.h"

namespace {

using qmtest::RawInstanceList;
using qmtest::TakePosted;
using qmtest::UniqueListName;

// Ids no real process has (real ones are multiples of 4).
DWORD FakeId(DWORD n) { return 0x80000001u + 4 * n; }

std::vector<DWORD> Ids(COXInstanceManager& list) {
  std::vector<DWORD> ids;
  EXPECT_TRUE(list.ReadInstanceIds(ids));
  return ids;
}

// A top-level window of this process titled like the product, so that
// FindProcessMainWindow(this process) finds it.
class ProductTitledWindow {
 public:
  explicit ProductTitledWindow(const wchar_t* title = L"Quillmark test listener") {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = ::DefWindowProcW;
    windowClass.hInstance = ::GetModuleHandleW(nullptr);
    windowClass.lpszClassName = L"QmInstanceTestWindow";
    ::RegisterClassW(&windowClass);
    window_ = ::CreateWindowExW(0, windowClass.lpszClassName, title, WS_OVERLAPPEDWINDOW, 0, 0, 100,
                                100, nullptr, nullptr, windowClass.hInstance, nullptr);
  }
  ~ProductTitledWindow() { ::DestroyWindow(window_); }
  HWND get() const { return window_; }

 private:
  HWND window_ = nullptr;
};

// The rounding keeps its odd rule: exact multiples shrink to the quotient.
TEST(InstanceBlockSize, RoundsAsTheSharedLayoutExpects) {
  EXPECT_EQ(RoundInstanceBlockSize(4008, 65536), 65536u);
  EXPECT_EQ(RoundInstanceBlockSize(1024, 65536), 65536u);
  EXPECT_EQ(RoundInstanceBlockSize(65536, 65536), 1u);
  EXPECT_EQ(RoundInstanceBlockSize(131072, 65536), 2u);
  EXPECT_EQ(RoundInstanceBlockSize(70000, 65536), 65537u);
  EXPECT_EQ(RoundInstanceBlockSize(1, 65536), 65536u);
  EXPECT_EQ(RoundInstanceBlockSize(4008, 4096), 4096u);
}

// The named objects, the mapping's layout and length, and the fresh header.
TEST(InstanceManager, CreatesNamedObjectsAndInitialisesTheList) {
  std::wstring name = UniqueListName(L"objects");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  UniqueHandle listMutex(::OpenMutexW(SYNCHRONIZE, FALSE,
                                      (L"Local\\COXInstanceManager_InstanceList_Mutex_" + name).c_str()));
  UniqueHandle dataMutex(::OpenMutexW(SYNCHRONIZE, FALSE,
                                      (L"Local\\COXInstanceManager_Additional_Mutex_" + name).c_str()));
  EXPECT_TRUE(listMutex.valid());
  EXPECT_TRUE(dataMutex.valid());
  EXPECT_NE(list.SharedDataMutex(), nullptr);

  RawInstanceList raw(name);
  ASSERT_TRUE(raw.valid());
  EXPECT_EQ(raw.limit(), 1u);
  EXPECT_EQ(raw.count(), 1u);
  EXPECT_EQ(raw.ids()[0], ::GetCurrentProcessId());
  EXPECT_EQ(raw.ids()[1], 0u);
  EXPECT_GE(raw.RegionSize(), 131072u);
  EXPECT_EQ(list.SharedDataSize(), 65536u);
  EXPECT_EQ(list.ReadInstanceCount(), 1);
  EXPECT_EQ(list.ReadInstanceLimit(), 1);
  EXPECT_FALSE(list.HasOtherInstances());
}

// The shared data block lies right after the rounded list block.
TEST(InstanceManager, SharedDataViewFollowsTheListBlock) {
  std::wstring name = UniqueListName(L"shared");
  COXInstanceManager list(name.c_str(), 1024, FALSE);
  auto* data = static_cast<unsigned char*>(list.SharedDataView());
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(list.SharedDataView(), data);
  std::memcpy(data, "marker", 6);
  RawInstanceList raw(name);
  ASSERT_TRUE(raw.valid());
  EXPECT_EQ(std::memcmp(reinterpret_cast<unsigned char*>(raw.words()) + 65536, "marker", 6), 0);
  // The list operations never touch the shared block.
  list.RegisterProcess(FakeId(1));
  EXPECT_EQ(std::memcmp(data, "marker", 6), 0);
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

// A size that is an exact multiple of the granularity leaves a one-byte block.
TEST(InstanceManager, SharedDataOfOneGranuleShrinksToOneByte) {
  std::wstring name = UniqueListName(L"granule");
  COXInstanceManager list(name.c_str(), 65536, TRUE);
  EXPECT_EQ(list.SharedDataSize(), 1u);
  EXPECT_NE(list.SharedDataView(), nullptr);
  EXPECT_EQ(list.ReadInstanceCount(), 1);
}

// A second manager of the same name attaches without resetting; another name
// is a separate list.
TEST(InstanceManager, SameNameAttachesOtherNameIsIndependent) {
  std::wstring name = UniqueListName(L"attach");
  COXInstanceManager first(name.c_str(), 1024, TRUE);
  ASSERT_TRUE(first.WriteInstanceLimit(5, FALSE));
  ASSERT_TRUE(first.RegisterProcess(FakeId(7)));
  {
    COXInstanceManager second(name.c_str(), 1024, FALSE);
    EXPECT_EQ(second.ReadInstanceLimit(), 5);
    EXPECT_EQ(Ids(second), (std::vector<DWORD>{::GetCurrentProcessId(), FakeId(7)}));
    std::memcpy(first.SharedDataView(), "both", 4);
    EXPECT_EQ(std::memcmp(second.SharedDataView(), "both", 4), 0);

    std::wstring otherName = UniqueListName(L"attach-other");
    COXInstanceManager other(otherName.c_str(), 1024, FALSE);
    EXPECT_EQ(other.ReadInstanceCount(), 0);
    EXPECT_EQ(other.ReadInstanceLimit(), 1);
    ASSERT_TRUE(other.RegisterProcess(FakeId(8)));
    EXPECT_EQ(first.ReadInstanceCount(), 2);
  }
  // The second manager did not register itself, so its end removes nothing
  // but this process's first entry.
  EXPECT_EQ(Ids(first), (std::vector<DWORD>{FakeId(7)}));
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

// The destructor takes the process's own entry out of the list.
TEST(InstanceManager, DestructorUnregistersTheProcess) {
  std::wstring name = UniqueListName(L"dtor");
  COXInstanceManager keeper(name.c_str(), 1024, FALSE);
  ASSERT_TRUE(keeper.RegisterProcess(FakeId(1)));
  {
    COXInstanceManager self(name.c_str(), 1024, TRUE);
    EXPECT_EQ(Ids(keeper), (std::vector<DWORD>{FakeId(1), ::GetCurrentProcessId()}));
  }
  EXPECT_EQ(Ids(keeper), (std::vector<DWORD>{FakeId(1)}));
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

// Removal from the middle keeps the order; the former last id stays behind
// the count and a zero lands one slot past it.
TEST(InstanceManager, RemovalKeepsOrderAndLeavesTheStaleSlot) {
  std::wstring name = UniqueListName(L"remove");
  COXInstanceManager list(name.c_str(), 1024, FALSE);
  for (DWORD n = 1; n <= 4; ++n) ASSERT_TRUE(list.RegisterProcess(FakeId(n)));
  RawInstanceList raw(name);
  ASSERT_TRUE(raw.valid());
  raw.ids()[4] = 0xDEADBEEF;

  EXPECT_TRUE(list.UnregisterProcess(FakeId(2)));
  EXPECT_EQ(Ids(list), (std::vector<DWORD>{FakeId(1), FakeId(3), FakeId(4)}));
  EXPECT_EQ(raw.ids()[3], FakeId(4));
  EXPECT_EQ(raw.ids()[4], 0u);

  EXPECT_TRUE(list.UnregisterProcess(FakeId(1)));
  EXPECT_TRUE(list.UnregisterProcess(FakeId(4)));
  EXPECT_EQ(Ids(list), (std::vector<DWORD>{FakeId(3)}));
  EXPECT_FALSE(list.UnregisterProcess(FakeId(4)));
  EXPECT_TRUE(list.UnregisterProcess(FakeId(3)));
  EXPECT_EQ(list.ReadInstanceCount(), 0);
  EXPECT_TRUE(Ids(list).empty());
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

// Only the first of two equal ids is removed.
TEST(InstanceManager, RemovesTheFirstOfEqualIds) {
  std::wstring name = UniqueListName(L"dup");
  COXInstanceManager list(name.c_str(), 1024, FALSE);
  for (DWORD id : {FakeId(1), FakeId(2), FakeId(1)}) ASSERT_TRUE(list.RegisterProcess(id));
  EXPECT_TRUE(list.UnregisterProcess(FakeId(1)));
  EXPECT_EQ(Ids(list), (std::vector<DWORD>{FakeId(2), FakeId(1)}));
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

// 1000 ids fill the list: the 1001st fails, changes nothing and posts
// nothing; removal from a full list zeroes the word after the id list.
TEST(InstanceManager, FullListRefusesAndRemovalZeroesPastTheList) {
  std::wstring name = UniqueListName(L"full");
  COXInstanceManager list(name.c_str(), 1024, FALSE);
  RawInstanceList raw(name);
  ASSERT_TRUE(raw.valid());
  // Filled directly: registering each would post to every listed id.
  for (DWORD n = 0; n < 999; ++n) raw.ids()[n] = FakeId(n);
  raw.count() = 999;
  ASSERT_TRUE(list.RegisterProcess(FakeId(999)));
  EXPECT_EQ(TakePosted(InstanceStartedMessage, InstanceStartedMessage).size(), 999u);
  EXPECT_EQ(list.ReadInstanceCount(), 1000);

  std::vector<unsigned char> before(reinterpret_cast<unsigned char*>(raw.words()),
                                    reinterpret_cast<unsigned char*>(raw.words()) + 4012);
  EXPECT_FALSE(list.RegisterProcess(FakeId(1000)));
  EXPECT_EQ(std::memcmp(before.data(), raw.words(), before.size()), 0);
  EXPECT_TRUE(TakePosted(InstanceStartedMessage, InstanceEndedMessage).empty());

  raw.words()[1002] = 0xDEADBEEF;  // offset 4008, just after the id list
  EXPECT_TRUE(list.UnregisterProcess(FakeId(500)));
  EXPECT_EQ(raw.words()[1002], 0u);
  EXPECT_EQ(raw.count(), 999u);
  EXPECT_EQ(raw.ids()[499], FakeId(499));
  EXPECT_EQ(raw.ids()[500], FakeId(501));
  EXPECT_EQ(raw.ids()[998], FakeId(999));
  EXPECT_EQ(raw.ids()[999], FakeId(999));
  EXPECT_EQ(TakePosted(InstanceEndedMessage, InstanceEndedMessage).size(), 999u);
  EXPECT_TRUE(list.RegisterProcess(FakeId(1000)));
  EXPECT_EQ(list.ReadInstanceCount(), 1000);
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

// 1946 goes to each listed process's window (or, without one, to this
// thread's queue) with the new id; 1947 likewise with the removed id.
TEST(InstanceManager, PostsStartedAndEndedToListedWindows) {
  ProductTitledWindow window;
  ASSERT_NE(window.get(), nullptr);
  std::wstring name = UniqueListName(L"notify");
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
  COXInstanceManager list(name.c_str(), 1024, TRUE);  // first entry: nobody to tell
  EXPECT_TRUE(TakePosted(InstanceStartedMessage, InstanceEndedMessage).empty());

  ASSERT_TRUE(list.RegisterProcess(FakeId(1)));
  std::vector<MSG> posted = TakePosted(InstanceStartedMessage, InstanceEndedMessage);
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0].hwnd, window.get());
  EXPECT_EQ(posted[0].message, InstanceStartedMessage);
  EXPECT_EQ(posted[0].wParam, 0u);
  EXPECT_EQ(static_cast<DWORD>(posted[0].lParam), FakeId(1));

  ASSERT_TRUE(list.RegisterProcess(FakeId(2)));
  posted = TakePosted(InstanceStartedMessage, InstanceEndedMessage);
  ASSERT_EQ(posted.size(), 2u);
  EXPECT_EQ(posted[0].hwnd, window.get());
  EXPECT_EQ(posted[1].hwnd, nullptr);  // FakeId(1) has no window
  for (const MSG& message : posted) EXPECT_EQ(static_cast<DWORD>(message.lParam), FakeId(2));

  EXPECT_FALSE(list.UnregisterProcess(FakeId(9)));
  EXPECT_TRUE(TakePosted(InstanceStartedMessage, InstanceEndedMessage).empty());

  ASSERT_TRUE(list.UnregisterProcess(FakeId(1)));
  posted = TakePosted(InstanceStartedMessage, InstanceEndedMessage);
  ASSERT_EQ(posted.size(), 2u);
  EXPECT_EQ(posted[0].hwnd, window.get());
  EXPECT_EQ(posted[0].message, InstanceEndedMessage);
  EXPECT_EQ(posted[1].hwnd, nullptr);
  for (const MSG& message : posted) EXPECT_EQ(static_cast<DWORD>(message.lParam), FakeId(1));

  ASSERT_TRUE(list.UnregisterProcess(FakeId(2)));
  ASSERT_TRUE(list.UnregisterProcess(::GetCurrentProcessId()));  // the only one left
  posted = TakePosted(InstanceStartedMessage, InstanceEndedMessage);
  ASSERT_EQ(posted.size(), 1u);  // removing FakeId(2) told this process only
  EXPECT_EQ(static_cast<DWORD>(posted[0].lParam), FakeId(2));
}

// Limit: written and read back; exceeded only when count > limit; closing
// the surplus falls back to this process's own window.
TEST(InstanceManager, LimitAndSurplusClosing) {
  ProductTitledWindow window;
  std::wstring name = UniqueListName(L"limit");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  EXPECT_FALSE(list.IsLimitExceeded(FALSE));
  ASSERT_TRUE(list.RegisterProcess(FakeId(1)));
  EXPECT_TRUE(list.HasOtherInstances());
  EXPECT_TRUE(list.IsLimitExceeded(FALSE));
  EXPECT_TRUE(list.WriteInstanceLimit(2, TRUE));
  EXPECT_EQ(list.ReadInstanceLimit(), 2);
  EXPECT_FALSE(list.IsLimitExceeded(FALSE));
  EXPECT_TRUE(TakePosted(WM_CLOSE, WM_CLOSE).empty());

  // FakeId(1) has no window to close, so the surplus of one closes this process.
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
  EXPECT_TRUE(list.WriteInstanceLimit(1, TRUE));
  std::vector<MSG> closes = TakePosted(WM_CLOSE, WM_CLOSE);
  ASSERT_EQ(closes.size(), 1u);
  EXPECT_EQ(closes[0].hwnd, window.get());
  EXPECT_EQ(closes[0].wParam, 0u);

  // A disabled window is not closed.
  ::EnableWindow(window.get(), FALSE);
  EXPECT_TRUE(list.WriteInstanceLimit(1, TRUE));
  EXPECT_TRUE(TakePosted(WM_CLOSE, WM_CLOSE).empty());
  ::EnableWindow(window.get(), TRUE);
  EXPECT_TRUE(list.WriteInstanceLimit(1, FALSE));
  EXPECT_TRUE(TakePosted(WM_CLOSE, WM_CLOSE).empty());
}

// Bringing forward restores a minimised window of another listed entry, and
// leaves things alone when only this process is listed or the flag is off.
TEST(InstanceManager, BringForwardRestoresTheOtherEntrysWindow) {
  ProductTitledWindow window;
  std::wstring name = UniqueListName(L"forward");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  ASSERT_TRUE(list.WriteInstanceLimit(0, FALSE));
  ::ShowWindow(window.get(), SW_MINIMIZE);
  ASSERT_TRUE(::IsIconic(window.get()));

  EXPECT_TRUE(list.IsLimitExceeded(TRUE));  // only this process: nothing brought forward
  EXPECT_TRUE(::IsIconic(window.get()));

  // The same id twice: the second entry counts as another one.
  ASSERT_TRUE(list.RegisterProcess(::GetCurrentProcessId()));
  ASSERT_TRUE(list.WriteInstanceLimit(1, FALSE));
  EXPECT_TRUE(list.IsLimitExceeded(FALSE));
  EXPECT_TRUE(::IsIconic(window.get()));
  EXPECT_TRUE(list.IsLimitExceeded(TRUE));
  EXPECT_FALSE(::IsIconic(window.get()));
  list.UnregisterProcess(::GetCurrentProcessId());
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

// Many processes joining, churning and leaving one list at the same time
// leave it consistent: every live id once, the order of joining kept.
TEST(InstanceManager, ManyProcessesKeepTheListConsistent) {
  constexpr int kClients = 50;
  std::wstring name = UniqueListName(L"many");
  COXInstanceManager list(name.c_str(), 1024, TRUE);  // made before the clients join
  std::wstring readyName = L"Local\\" + name + L".ready";
  std::wstring waveA = L"Local\\" + name + L".waveA", waveB = L"Local\\" + name + L".waveB";
  UniqueHandle ready(::CreateSemaphoreW(nullptr, 0, kClients, readyName.c_str()));
  UniqueHandle releaseA(::CreateEventW(nullptr, TRUE, FALSE, waveA.c_str()));
  UniqueHandle releaseB(::CreateEventW(nullptr, TRUE, FALSE, waveB.c_str()));
  ASSERT_TRUE(ready && releaseA && releaseB);

  std::vector<std::unique_ptr<qmtest::ChildProcess>> clients;
  std::wstring exe = L"\"" + qmtest::BinDir() + L"\\instance_client.exe\" \"" + name + L"\" \"" +
                     readyName + L"\" ";
  for (int i = 0; i < kClients; ++i) {
    auto client = std::make_unique<qmtest::ChildProcess>();
    ASSERT_TRUE(client->Start(exe + L"\"" + (i % 2 ? waveB : waveA) + L"\" 20", CREATE_SUSPENDED));
    clients.push_back(std::move(client));
  }
  for (auto& client : clients) ::ResumeThread(client->thread());
  // A client that found the list damaged ends early: fail at once then.
  for (int readyCount = 0, rounds = 0; readyCount < kClients; ++rounds) {
    ASSERT_LT(rounds, 1000) << "only " << readyCount << " clients ready";
    DWORD wait = ::WaitForSingleObject(ready.get(), 200);
    if (wait == WAIT_OBJECT_0) {
      ++readyCount;
      continue;
    }
    ASSERT_EQ(wait, static_cast<DWORD>(WAIT_TIMEOUT));
    for (int i = 0; i < kClients; ++i)
      ASSERT_TRUE(clients[i]->Running()) << "client " << i << " ended with " << clients[i]->ExitCode();
  }

  std::vector<DWORD> all = Ids(list);
  ASSERT_EQ(list.ReadInstanceCount(), kClients + 1);
  ASSERT_EQ(all.size(), static_cast<size_t>(kClients + 1));
  EXPECT_EQ(all[0], ::GetCurrentProcessId());
  std::vector<DWORD> expected = {::GetCurrentProcessId()};
  for (auto& client : clients) expected.push_back(client->id());
  std::vector<DWORD> sortedAll = all, sortedExpected = expected;
  std::sort(sortedAll.begin(), sortedAll.end());
  std::sort(sortedExpected.begin(), sortedExpected.end());
  EXPECT_EQ(sortedAll, sortedExpected);

  ::SetEvent(releaseA.get());
  std::vector<DWORD> left;
  for (int i = 0; i < kClients; ++i) {
    if (i % 2) continue;
    ASSERT_TRUE(clients[i]->WaitEnded(120000));
    EXPECT_EQ(clients[i]->ExitCode(), 0u) << "client " << i;
    left.push_back(clients[i]->id());
  }
  std::vector<DWORD> remaining;
  for (DWORD id : all)
    if (std::find(left.begin(), left.end(), id) == left.end()) remaining.push_back(id);
  EXPECT_EQ(Ids(list), remaining);
  EXPECT_EQ(list.ReadInstanceCount(), kClients / 2 + 1);

  ::SetEvent(releaseB.get());
  for (int i = 1; i < kClients; i += 2) {
    ASSERT_TRUE(clients[i]->WaitEnded(120000));
    EXPECT_EQ(clients[i]->ExitCode(), 0u) << "client " << i;
  }
  EXPECT_EQ(Ids(list), std::vector<DWORD>{::GetCurrentProcessId()});
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

}  // namespace
