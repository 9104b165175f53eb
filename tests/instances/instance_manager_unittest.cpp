#include "instances/instance_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "tests/instances/standin_process.h"

namespace {

using qmtest::Ids;
using qmtest::TakePosted;
using qmtest::UniqueListName;

// Ids no real process has (real ones are multiples of 4).
DWORD FakeId(DWORD n) { return 0x80000001u + 4 * n; }

// Takes the 1946/1947 notices waiting here and checks that there are count of
// them, each sent to no window (the listed ids have none) about id.
void ExpectUnaddressedNotices(UINT message, DWORD id, size_t count) {
  std::vector<MSG> posted = TakePosted(InstanceStartedMessage, InstanceEndedMessage);
  EXPECT_EQ(posted.size(), count);
  EXPECT_TRUE(std::all_of(posted.begin(), posted.end(), [&](const MSG& m) {
    return !m.hwnd && m.message == message && m.wParam == 0 && static_cast<DWORD>(m.lParam) == id;
  }));
}

// The rounding keeps its odd rule: exact multiples shrink to the quotient.
TEST(InstanceBlockSize, RoundsAsTheSharedLayoutExpects) {
  EXPECT_EQ(RoundInstanceBlockSize(4008, 65536), 65536u);
  EXPECT_EQ(RoundInstanceBlockSize(65536, 65536), 1u);
  EXPECT_EQ(RoundInstanceBlockSize(131072, 65536), 2u);
  EXPECT_EQ(RoundInstanceBlockSize(70000, 65536), 65537u);
  EXPECT_EQ(RoundInstanceBlockSize(4008, 4096), 4096u);
}

// The names and layout other programs rely on: the two mutexes, the list
// block (limit 1, count, ids) and the shared data right after the rounded list
// block. 1000 ids fill the list: the 1001st fails, changes nothing and posts
// nothing. Removal keeps the order, leaves the former last id behind the count
// and zeroes one slot past it (for a full list, the word after the id list).
// The other listed ids, windowless here, are told through this thread's queue.
TEST(InstanceManager, LayoutFullListAndTheRemovalQuirks) {
  std::wstring name = UniqueListName(L"full");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  for (const wchar_t* prefix : {L"Local\\COXInstanceManager_InstanceList_Mutex_",
                                L"Local\\COXInstanceManager_Additional_Mutex_"})
    EXPECT_TRUE(UniqueHandle(::OpenMutexW(SYNCHRONIZE, FALSE, (prefix + name).c_str())).valid());
  UniqueMapView view = qmtest::MapInstanceList(name);
  ASSERT_TRUE(view.valid());
  auto* words = static_cast<DWORD*>(view.get());
  DWORD* ids = words + 2;
  EXPECT_EQ(std::vector<DWORD>(words, words + 4), (std::vector<DWORD>{1, 1, ::GetCurrentProcessId(), 0}));
  EXPECT_EQ(list.SharedDataSize(), 65536u);
  std::memcpy(list.SharedDataView(), "marker", 6);
  EXPECT_EQ(std::memcmp(reinterpret_cast<char*>(words) + 65536, "marker", 6), 0);

  // Filled directly: registering each would post to every listed id.
  for (DWORD n = 1; n < 999; ++n) ids[n] = FakeId(n);
  words[1] = 999;
  ASSERT_TRUE(list.RegisterProcess(FakeId(999)));
  ExpectUnaddressedNotices(InstanceStartedMessage, FakeId(999), 999);

  std::vector<DWORD> before(words, words + 1003);
  EXPECT_FALSE(list.RegisterProcess(FakeId(1000)));
  EXPECT_EQ(std::vector<DWORD>(words, words + 1003), before);
  ExpectUnaddressedNotices(0, 0, 0);

  words[1002] = 0xDEADBEEF;  // offset 4008, just after the id list
  EXPECT_TRUE(list.UnregisterProcess(FakeId(500)));
  ExpectUnaddressedNotices(InstanceEndedMessage, FakeId(500), 999);
  EXPECT_EQ(words[1], 999u);
  EXPECT_EQ(words[1002], 0u);
  EXPECT_EQ(std::vector<DWORD>(ids + 499, ids + 501), (std::vector<DWORD>{FakeId(499), FakeId(501)}));
  EXPECT_EQ(ids[999], FakeId(999));
  EXPECT_FALSE(list.UnregisterProcess(FakeId(500)));
  ExpectUnaddressedNotices(0, 0, 0);

  EXPECT_TRUE(list.UnregisterProcess(::GetCurrentProcessId()));
  TakePosted();
  EXPECT_EQ(ids[998], FakeId(999));
  EXPECT_EQ(ids[999], 0u);
}

// The limit is exceeded only when count > limit; bringing forward restores
// another entry's minimised window, here this process's own id listed twice.
TEST(InstanceManager, LimitAndBringForward) {
  qmtest::LocalWindow window(L"Quillmark test listener");
  std::wstring name = UniqueListName(L"limit");
  COXInstanceManager list(name.c_str(), 1024, TRUE);
  EXPECT_FALSE(list.IsLimitExceeded(FALSE));
  ::ShowWindow(window.get(), SW_MINIMIZE);
  ASSERT_TRUE(::IsIconic(window.get()));
  ASSERT_TRUE(list.WriteInstanceLimit(0, FALSE));
  EXPECT_TRUE(list.IsLimitExceeded(TRUE));  // only this process: nothing brought forward
  EXPECT_TRUE(::IsIconic(window.get()));
  ASSERT_TRUE(list.RegisterProcess(::GetCurrentProcessId()));
  ASSERT_TRUE(list.WriteInstanceLimit(2, FALSE));
  EXPECT_FALSE(list.IsLimitExceeded(TRUE));
  EXPECT_TRUE(::IsIconic(window.get()));
  ASSERT_TRUE(list.WriteInstanceLimit(1, FALSE));
  EXPECT_TRUE(list.IsLimitExceeded(TRUE));
  EXPECT_FALSE(::IsIconic(window.get()));
  list.UnregisterProcess(::GetCurrentProcessId());
  TakePosted();
}

// Processes joining, churning and leaving one list at the same time leave
// it consistent: every live id once, the order of joining kept, the list's
// maker still first; a list of another name sees none of it.
TEST(InstanceManager, ManyProcessesKeepTheListConsistent) {
  // A few real processes: enough to contend for the list's lock, few enough
  // that a loaded machine starts them all well within the waits below.
  constexpr int kClients = 6;
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
    // Wine in a fresh prefix has refused a start of this burst now and then;
    // a second try keeps that out of what the test is about.
    bool started = false;
    DWORD error = 0;
    for (int attempt = 0; attempt < 3 && !started; ++attempt) {
      started = clients.back()->Start(exe + L"\"" + waves[i % 2] + L"\" 20", CREATE_SUSPENDED);
      if (!started) error = ::GetLastError(), ::Sleep(200);
    }
    ASSERT_TRUE(started) << "client " << i << " not started, error " << error;
    if (error) std::fprintf(stderr, "client %d started on a later try (error %lu)\n", i, error);
  }
  for (auto& client : clients) ::ResumeThread(client->thread.get());
  for (int i = 0; i < kClients; ++i)
    ASSERT_EQ(::WaitForSingleObject(readySemaphore.get(), 60000), WAIT_OBJECT_0) << "only " << i << " ready";
  std::wstring otherName = UniqueListName(L"other");
  EXPECT_EQ(COXInstanceManager(otherName.c_str(), 1024, FALSE).ReadInstanceCount(), 0);

  std::vector<DWORD> all = Ids(list), expected = {::GetCurrentProcessId()};
  for (auto& client : clients) expected.push_back(client->id);
  ASSERT_EQ(all.size(), expected.size());
  EXPECT_EQ(all[0], ::GetCurrentProcessId());
  EXPECT_TRUE(std::is_permutation(all.begin(), all.end(), expected.begin(), expected.end()));

  for (int wave = 0; wave < 2; ++wave) {
    ::SetEvent(release[wave].get());
    for (int i = wave; i < kClients; i += 2) {
      ASSERT_TRUE(clients[i]->WaitEnded(120000));
      EXPECT_EQ(clients[i]->ExitCode(), 0u) << "client " << i;
      std::erase(all, clients[i]->id);
    }
    EXPECT_EQ(Ids(list), all);
  }
  EXPECT_EQ(all, std::vector<DWORD>{::GetCurrentProcessId()});
  TakePosted();
}

}  // namespace
