#include "instances/instance_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/instances/standin_process.h"

namespace {

using qmtest::Ids;
using qmtest::LocalWindow;
using qmtest::TakePosted;
using qmtest::UniqueListName;

// Ids no real process has (real ones are multiples of 4).
DWORD FakeId(DWORD n) { return 0x80000001u + 4 * n; }
std::vector<DWORD> FakeIds(std::initializer_list<DWORD> ns) {
  std::vector<DWORD> ids;
  for (DWORD n : ns) ids.push_back(FakeId(n));
  return ids;
}

// The rounding keeps its odd rule: exact multiples shrink to the quotient.
TEST(InstanceBlockSize, RoundsAsTheSharedLayoutExpects) {
  EXPECT_EQ(RoundInstanceBlockSize(4008, 65536), 65536u);
  EXPECT_EQ(RoundInstanceBlockSize(1, 65536), 65536u);
  EXPECT_EQ(RoundInstanceBlockSize(65536, 65536), 1u);
  EXPECT_EQ(RoundInstanceBlockSize(131072, 65536), 2u);
  EXPECT_EQ(RoundInstanceBlockSize(70000, 65536), 65537u);
  EXPECT_EQ(RoundInstanceBlockSize(4008, 4096), 4096u);
}

// The named objects other programs open, the fresh header, and the shared
// data block right after the rounded list block (one byte for a size of one
// granule), untouched by list operations.
TEST(InstanceManager, NamedObjectsAndLayout) {
  std::wstring name = UniqueListName(L"objects");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  for (const wchar_t* prefix : {L"Local\\COXInstanceManager_InstanceList_Mutex_",
                                L"Local\\COXInstanceManager_Additional_Mutex_"})
    EXPECT_TRUE(UniqueHandle(::OpenMutexW(SYNCHRONIZE, FALSE, (prefix + name).c_str())).valid());
  UniqueMapView view = qmtest::MapInstanceList(name);
  ASSERT_TRUE(view.valid());
  DWORD* words = static_cast<DWORD*>(view.get());
  DWORD* ids = words + 2;
  EXPECT_EQ(words[0], 1u);  // limit
  EXPECT_EQ(words[1], 1u);  // count
  EXPECT_EQ(ids[0], ::GetCurrentProcessId());
  EXPECT_EQ(ids[1], 0u);
  EXPECT_FALSE(list.HasOtherInstances());

  EXPECT_EQ(list.SharedDataSize(), 65536u);
  auto* data = static_cast<unsigned char*>(list.SharedDataView());
  ASSERT_NE(data, nullptr);
  std::memcpy(data, "marker", 6);
  EXPECT_EQ(std::memcmp(reinterpret_cast<unsigned char*>(words) + 65536, "marker", 6), 0);
  list.RegisterProcess(FakeId(1));
  list.UnregisterProcess(FakeId(1));
  EXPECT_EQ(std::memcmp(data, "marker", 6), 0);
  TakePosted();

  std::wstring granuleName = UniqueListName(L"granule");
  COXInstanceManager granule(granuleName.c_str(), 65536, FALSE);
  EXPECT_EQ(granule.SharedDataSize(), 1u);
  EXPECT_NE(granule.SharedDataView(), nullptr);
}

// A second manager of the same name attaches without resetting and ends by
// removing this process's (first) entry; another name is a separate list.
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
  EXPECT_EQ(Ids(first), FakeIds({7}));
  TakePosted();
}

// Removal from the middle keeps the order; the former last id stays behind
// the count and a zero lands one slot past it; of equal ids only the first
// goes.
TEST(InstanceManager, RemovalKeepsOrderAndLeavesTheStaleSlot) {
  std::wstring name = UniqueListName(L"remove");
  COXInstanceManager list(name.c_str(), 1024, FALSE);
  for (DWORD n = 1; n <= 4; ++n) ASSERT_TRUE(list.RegisterProcess(FakeId(n)));
  UniqueMapView view = qmtest::MapInstanceList(name);
  ASSERT_TRUE(view.valid());
  DWORD* words = static_cast<DWORD*>(view.get());
  DWORD* ids = words + 2;
  ids[4] = 0xDEADBEEF;

  EXPECT_TRUE(list.UnregisterProcess(FakeId(2)));
  EXPECT_EQ(Ids(list), FakeIds({1, 3, 4}));
  EXPECT_EQ(ids[3], FakeId(4));
  EXPECT_EQ(ids[4], 0u);

  ASSERT_TRUE(list.RegisterProcess(FakeId(3)));
  EXPECT_TRUE(list.UnregisterProcess(FakeId(3)));
  EXPECT_EQ(Ids(list), FakeIds({1, 4, 3}));
  EXPECT_FALSE(list.UnregisterProcess(FakeId(2)));
  for (DWORD n : {1, 4, 3}) EXPECT_TRUE(list.UnregisterProcess(FakeId(n)));
  EXPECT_EQ(list.ReadInstanceCount(), 0);
  EXPECT_TRUE(Ids(list).empty());
  TakePosted();
}

// 1000 ids fill the list: the 1001st fails, changes nothing and posts
// nothing; removal from a full list zeroes the word after the id list.
TEST(InstanceManager, FullListRefusesAndRemovalZeroesPastTheList) {
  std::wstring name = UniqueListName(L"full");
  COXInstanceManager list(name.c_str(), 1024, FALSE);
  UniqueMapView view = qmtest::MapInstanceList(name);
  ASSERT_TRUE(view.valid());
  DWORD* words = static_cast<DWORD*>(view.get());
  DWORD* ids = words + 2;
  // Filled directly: registering each would post to every listed id.
  for (DWORD n = 0; n < 999; ++n) ids[n] = FakeId(n);
  words[1] = 999;
  ASSERT_TRUE(list.RegisterProcess(FakeId(999)));
  EXPECT_EQ(TakePosted(InstanceStartedMessage, InstanceStartedMessage).size(), 999u);
  EXPECT_EQ(list.ReadInstanceCount(), 1000);

  std::vector<DWORD> before(words, words + 1003);
  EXPECT_FALSE(list.RegisterProcess(FakeId(1000)));
  EXPECT_EQ(std::vector<DWORD>(words, words + 1003), before);
  EXPECT_TRUE(TakePosted(InstanceStartedMessage, InstanceEndedMessage).empty());

  words[1002] = 0xDEADBEEF;  // offset 4008, just after the id list
  EXPECT_TRUE(list.UnregisterProcess(FakeId(500)));
  EXPECT_EQ(words[1002], 0u);
  EXPECT_EQ(words[1], 999u);
  EXPECT_EQ(ids[499], FakeId(499));
  EXPECT_EQ(ids[500], FakeId(501));
  EXPECT_EQ(ids[998], FakeId(999));
  EXPECT_EQ(ids[999], FakeId(999));
  EXPECT_EQ(TakePosted(InstanceEndedMessage, InstanceEndedMessage).size(), 999u);
  EXPECT_TRUE(list.RegisterProcess(FakeId(1000)));
  TakePosted();
}

// 1946 goes to each other listed process's window (or, without one, to this
// thread's queue) with the new id; 1947 likewise with the removed id; the
// first entry and a failed removal tell nobody.
TEST(InstanceManager, PostsStartedAndEndedToListedWindows) {
  LocalWindow window(L"Quillmark test listener");
  ASSERT_NE(window.get(), nullptr);
  std::wstring name = UniqueListName(L"notify");
  TakePosted();
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  EXPECT_TRUE(TakePosted().empty());

  struct Step {
    bool add;
    DWORD id;
    std::vector<HWND> targets;  // in list order; null: this thread's queue
  };
  const Step steps[] = {{true, FakeId(1), {window.get()}},
                        {true, FakeId(2), {window.get(), nullptr}},
                        {false, FakeId(9), {}},
                        {false, FakeId(1), {window.get(), nullptr}},
                        {false, FakeId(2), {window.get()}}};
  for (const Step& step : steps) {
    SCOPED_TRACE(testing::Message() << (step.add ? "add " : "remove ") << std::hex << step.id);
    if (step.add)
      ASSERT_TRUE(list.RegisterProcess(step.id));
    else
      EXPECT_EQ(list.UnregisterProcess(step.id) != FALSE, !step.targets.empty());
    std::vector<MSG> posted = TakePosted(InstanceStartedMessage, InstanceEndedMessage);
    ASSERT_EQ(posted.size(), step.targets.size());
    for (size_t i = 0; i < posted.size(); ++i) {
      EXPECT_EQ(posted[i].hwnd, step.targets[i]);
      EXPECT_EQ(posted[i].message, step.add ? InstanceStartedMessage : InstanceEndedMessage);
      EXPECT_EQ(posted[i].wParam, 0u);
      EXPECT_EQ(static_cast<DWORD>(posted[i].lParam), step.id);
    }
  }
}

// Limit: exceeded only when count > limit; closing the surplus falls back to
// this process's own enabled window when the surplus entry has none; bringing
// forward restores another entry's minimised window (the same id listed twice
// counts as another one).
TEST(InstanceManager, LimitSurplusAndBringForward) {
  LocalWindow window(L"Quillmark test listener");
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
  TakePosted();

  EXPECT_TRUE(list.WriteInstanceLimit(1, TRUE));
  std::vector<MSG> closes = TakePosted(WM_CLOSE, WM_CLOSE);
  ASSERT_EQ(closes.size(), 1u);
  EXPECT_EQ(closes[0].hwnd, window.get());
  EXPECT_EQ(closes[0].wParam, 0u);
  ::EnableWindow(window.get(), FALSE);
  EXPECT_TRUE(list.WriteInstanceLimit(1, TRUE));
  ::EnableWindow(window.get(), TRUE);
  EXPECT_TRUE(list.WriteInstanceLimit(1, FALSE));
  EXPECT_TRUE(TakePosted(WM_CLOSE, WM_CLOSE).empty());

  ASSERT_TRUE(list.UnregisterProcess(FakeId(1)));
  ASSERT_TRUE(list.WriteInstanceLimit(0, FALSE));
  ::ShowWindow(window.get(), SW_MINIMIZE);
  ASSERT_TRUE(::IsIconic(window.get()));
  EXPECT_TRUE(list.IsLimitExceeded(TRUE));  // only this process: nothing brought forward
  EXPECT_TRUE(::IsIconic(window.get()));
  ASSERT_TRUE(list.RegisterProcess(::GetCurrentProcessId()));
  ASSERT_TRUE(list.WriteInstanceLimit(1, FALSE));
  EXPECT_TRUE(list.IsLimitExceeded(FALSE));
  EXPECT_TRUE(::IsIconic(window.get()));
  EXPECT_TRUE(list.IsLimitExceeded(TRUE));
  EXPECT_FALSE(::IsIconic(window.get()));
  list.UnregisterProcess(::GetCurrentProcessId());
  TakePosted(InstanceStartedMessage, InstanceEndedMessage);
}

// 50 processes joining, churning and leaving one list at the same time leave
// it consistent: every live id once, the order of joining kept.
TEST(InstanceManager, ManyProcessesKeepTheListConsistent) {
  constexpr int kClients = 50;
  std::wstring name = UniqueListName(L"many");
  COXInstanceManager list(name.c_str(), 1024, TRUE);  // made before the clients join
  std::wstring ready = L"Local\\" + name + L".ready", waves[2] = {ready + L"A", ready + L"B"};
  UniqueHandle readySemaphore(::CreateSemaphoreW(nullptr, 0, kClients, ready.c_str()));
  UniqueHandle release[2] = {UniqueHandle(::CreateEventW(nullptr, TRUE, FALSE, waves[0].c_str())),
                             UniqueHandle(::CreateEventW(nullptr, TRUE, FALSE, waves[1].c_str()))};
  ASSERT_TRUE(readySemaphore && release[0] && release[1]);

  std::vector<std::unique_ptr<qmtest::ChildProcess>> clients;
  std::wstring exe = L"\"" + qmtest::BinDir() + L"\\instance_client.exe\" \"" + name + L"\" \"" + ready + L"\" ";
  for (int i = 0; i < kClients; ++i) {
    clients.push_back(std::make_unique<qmtest::ChildProcess>());
    ASSERT_TRUE(clients.back()->Start(exe + L"\"" + waves[i % 2] + L"\" 20", CREATE_SUSPENDED));
  }
  for (auto& client : clients) ::ResumeThread(client->thread());
  // A client that found the list damaged ends early: fail at once then.
  for (int readyCount = 0, rounds = 0; readyCount < kClients; ++rounds) {
    ASSERT_LT(rounds, 1000) << "only " << readyCount << " clients ready";
    if (::WaitForSingleObject(readySemaphore.get(), 200) == WAIT_OBJECT_0) {
      ++readyCount;
      continue;
    }
    for (int i = 0; i < kClients; ++i)
      ASSERT_TRUE(clients[i]->Running()) << "client " << i << " ended with " << clients[i]->ExitCode();
  }

  std::vector<DWORD> all = Ids(list), expected = {::GetCurrentProcessId()};
  for (auto& client : clients) expected.push_back(client->id());
  ASSERT_EQ(list.ReadInstanceCount(), kClients + 1);
  EXPECT_EQ(all[0], ::GetCurrentProcessId());
  EXPECT_TRUE(std::is_permutation(all.begin(), all.end(), expected.begin(), expected.end()));

  for (int wave = 0; wave < 2; ++wave) {
    ::SetEvent(release[wave].get());
    for (int i = wave; i < kClients; i += 2) {
      ASSERT_TRUE(clients[i]->WaitEnded(120000));
      EXPECT_EQ(clients[i]->ExitCode(), 0u) << "client " << i;
      std::erase(all, clients[i]->id());
    }
    EXPECT_EQ(Ids(list), all);
  }
  EXPECT_EQ(all, std::vector<DWORD>{::GetCurrentProcessId()});
  TakePosted();
}

}  // namespace
