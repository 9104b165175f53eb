#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "app/product.h"
#include "instances/instance_manager.h"
#include "sys/platform.h"
#include "tests/app/app_test_util.h"
#include "tests/support/test_support.h"

using qmtest::Narrow;

// The installed uninstaller, started without arguments from a folder with blanks:
// closes the running product without asking, relaunches from a "uni*.tmp" copy,
// and that worker removes the installation and queues its own file for deletion.
TEST(UninstallerRole, HandsOverToTemporaryWorker) {
  COXInstanceManager list(kInstanceListName, kInstanceSharedDataSize, FALSE);
  apptest::TraceFile trace;
  apptest::InstalledCopy copy;
  // regsvr32 is looked for in the worker's current folder before the system's.
  qmtest::TempDir tools(L"qm tools");
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\app_probe.exe").c_str(), (tools / L"regsvr32.exe").c_str(), FALSE));

  apptest::Started product = apptest::StartProcess(
      L"\"" + qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe\" -ignoreclose");
  ASSERT_TRUE(product.process.valid());
  ASSERT_TRUE(apptest::WaitUntil([&] { return list.ReadInstanceCount() == 1; }, 20000));
  apptest::WaitUntil([&] { return trace.Has("started"); }, 10000);

  apptest::Started uninstaller = apptest::StartProcess(L"\"" + copy.uninstaller() + L"\"", tools.path().c_str());
  ASSERT_TRUE(uninstaller.process.valid());
  apptest::Started worker = apptest::WaitForChild(uninstaller.id, 2000);
  EXPECT_EQ(apptest::WaitForExit(uninstaller.process.get(), 60000), 0);
  ASSERT_TRUE(worker.process.valid()) << "no removal worker was started";

  // The worker runs from a "uni*.tmp" copy in the temporary folder.
  const std::wstring workerPath = apptest::ProcessImagePath(worker.process.get());
  const std::wstring temp = apptest::TempFolder();
  ASSERT_GT(workerPath.size(), temp.size() + 7);
  EXPECT_TRUE(apptest::SamePath(workerPath.substr(0, temp.size()), temp)) << Narrow(workerPath);
  std::wstring name = workerPath.substr(temp.size());
  EXPECT_TRUE(_wcsnicmp(name.c_str(), L"uni", 3) == 0 && _wcsicmp(name.c_str() + name.size() - 4, L".tmp") == 0)
      << Narrow(name);

  EXPECT_EQ(apptest::WaitForExit(worker.process.get(), 120000), 0);
  EXPECT_EQ(apptest::WaitForExit(product.process.get(), 10000), 0);

  // The running product was asked to close, then ended by force; the worker
  // got the folder right: it ran the installed product to unregister.
  std::string traced = trace.Read();
  EXPECT_NE(traced.find(std::to_string(product.id) + " close1001"), std::string::npos) << traced;
  EXPECT_EQ(traced.find(std::to_string(product.id) + " ended"), std::string::npos) << traced;
  EXPECT_NE(traced.find("unregonly " + Narrow(copy.folder()) + "\\Qmkview8.exe"), std::string::npos) << traced;

  // regsvr32 unregistered the extension of this platform, with the quoted path.
  std::wstring dll = IsWow64() ? L"x64\\ThumbDqm64.dll" : L"ThumbDqm32.dll";
  std::string regsvr32 = qmtest::ReadFileBytes(tools / L"regsvr32.log");
  EXPECT_NE(regsvr32.find(Narrow(copy.folder() + L"|regsvr32.exe /s /u \"" + copy.folder() + L"\\" + dll + L"\"")),
            std::string::npos)
      << regsvr32;

  EXPECT_TRUE(copy.Gone());
  std::vector<std::wstring> pending = apptest::PendingOperations();
  apptest::ForgetPending({workerPath});
  int at = apptest::FindPending(pending, workerPath);
  ASSERT_GE(at, 0) << "the worker's own file is not queued for deletion";
  EXPECT_EQ(pending[at + 1], L"");
  EXPECT_TRUE(qmtest::FileExists(workerPath));
  ::DeleteFileW(workerPath.c_str());

  // Both left the instance list on their way out.
  std::vector<DWORD> ids;
  list.ReadInstanceIds(ids);
  EXPECT_EQ(std::count(ids.begin(), ids.end(), uninstaller.id), 0);
  EXPECT_EQ(std::count(ids.begin(), ids.end(), worker.id), 0);
}

// A worker started by hand for an uninstaller that is gone ends with 0, queues
// its own file and leaves the files next to the named folder alone.
TEST(UninstallerRole, WorkerForMissingUninstallerEndsWithZero) {
  qmtest::TempDir dir(L"qm worker");
  const std::wstring worker = dir / L"worker copy.exe";
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\setup.exe").c_str(), worker.c_str(), FALSE));
  ASSERT_TRUE(qmtest::WriteFileBytes(dir / L"keep.txt", "keep"));

  apptest::Started started =
      apptest::StartProcess(L"\"" + worker + L"\" -delself \"" + (dir / L"gone\\QmkUnInst.exe") + L"\" -s");
  ASSERT_TRUE(started.process.valid());
  EXPECT_EQ(apptest::WaitForExit(started.process.get(), 120000), 0);
  EXPECT_TRUE(qmtest::FileExists(dir / L"keep.txt"));
  EXPECT_GE(apptest::FindPending(apptest::PendingOperations(), worker), 0);
  apptest::ForgetPending({worker});
}
