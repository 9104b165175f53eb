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

namespace {

using apptest::InstalledCopy;

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Waits until the list holds count ids (or gives up after timeoutMs).
bool WaitForCount(COXInstanceManager& list, int count, DWORD timeoutMs) {
  for (DWORD waited = 0; waited < timeoutMs; waited += 50) {
    if (list.ReadInstanceCount() == count) return true;
    ::Sleep(50);
  }
  return false;
}

// The temporary copy the uninstaller started, found by its parent.
struct Worker {
  UniqueHandle process;
  DWORD id = 0;
  std::wstring path;
};
Worker FindWorker(DWORD uninstallerId) {
  Worker worker;
  for (const apptest::ProcessEntry& child : apptest::ChildrenOf(uninstallerId)) {
    worker.process.reset(::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, child.id));
    if (!worker.process) continue;
    worker.id = child.id;
    worker.path = apptest::ProcessImagePath(worker.process.get());
    break;
  }
  return worker;
}

}  // namespace

// The installed uninstaller, started without arguments from a folder with blanks:
// closes the running product without asking, relaunches from a "uni*.tmp" copy,
// and that worker removes the installation and queues its own file for deletion.
TEST(UninstallerRole, HandsOverToTemporaryWorker) {
  COXInstanceManager list(kInstanceListName, kInstanceSharedDataSize, FALSE);
  qmtest::TempDir traceDir(L"qm trace");
  const std::wstring trace = traceDir / L"trace.log";
  ASSERT_TRUE(::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace.c_str()));

  InstalledCopy copy;
  // regsvr32 is looked for in the worker's current folder before the system's.
  qmtest::TempDir tools(L"qm tools");
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\app_probe.exe").c_str(), (tools / L"regsvr32.exe").c_str(), FALSE));

  apptest::Started product = apptest::StartProcess(
      L"\"" + qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe\" -ignoreclose");
  ASSERT_TRUE(product.process.valid());
  ASSERT_TRUE(WaitForCount(list, 1, 20000));
  for (int i = 0; i < 200 && !Contains(qmtest::ReadFileBytes(trace), "started"); ++i) ::Sleep(50);

  apptest::Started uninstaller = apptest::StartProcess(L"\"" + copy.uninstaller() + L"\"", tools.path().c_str());
  ASSERT_TRUE(uninstaller.process.valid());
  Worker worker;
  for (int i = 0; i < 100 && !worker.process; ++i) {
    worker = FindWorker(uninstaller.id);
    if (!worker.process) ::Sleep(20);
  }
  const int uninstallerExit = apptest::WaitForExit(uninstaller.process.get(), 60000);
  if (uninstallerExit == -2) apptest::EndProcessTree(uninstaller.id);
  EXPECT_EQ(uninstallerExit, 0);
  if (!worker.process) apptest::EndProcessTree(product.id);
  ASSERT_TRUE(worker.process.valid()) << "no removal worker was started";

  // The worker runs from a "uni*.tmp" copy in the temporary folder.
  const std::wstring temp = apptest::TempFolder();
  ASSERT_GT(worker.path.size(), temp.size());
  EXPECT_TRUE(apptest::SamePath(worker.path.substr(0, temp.size()), temp)) << qmtest::Narrow(worker.path);
  std::wstring name = worker.path.substr(temp.size());
  EXPECT_EQ(_wcsnicmp(name.c_str(), L"uni", 3), 0) << qmtest::Narrow(name);
  EXPECT_TRUE(name.size() > 4 && _wcsicmp(name.c_str() + name.size() - 4, L".tmp") == 0) << qmtest::Narrow(name);

  const int workerExit = apptest::WaitForExit(worker.process.get(), 120000);
  if (workerExit == -2) apptest::EndProcessTree(worker.id);
  EXPECT_EQ(workerExit, 0);
  const int productExit = apptest::WaitForExit(product.process.get(), 10000);
  if (productExit == -2) apptest::EndProcessTree(product.id);
  EXPECT_EQ(productExit, 0);

  // The running product was asked to close, then ended by force.
  std::string traced = qmtest::ReadFileBytes(trace);
  EXPECT_TRUE(Contains(traced, std::to_string(product.id) + " close1001")) << traced;
  EXPECT_FALSE(Contains(traced, std::to_string(product.id) + " ended")) << traced;
  // The worker got the folder right: it ran the installed product to unregister.
  EXPECT_TRUE(Contains(traced, "unregonly " + qmtest::Narrow(copy.folder()) + "\\Qmkview8.exe")) << traced;

  // regsvr32 unregistered the extension of this platform, with the unquoted path.
  std::wstring dll = IsWow64() ? L"x64\\ThumbDqm64.dll" : L"ThumbDqm32.dll";
  std::string regsvr32 = qmtest::ReadFileBytes(tools / L"regsvr32.log");
  EXPECT_TRUE(Contains(regsvr32, qmtest::Narrow(copy.folder() + L"|regsvr32.exe /s /u \"" + copy.folder() +
                                                  L"\\" + dll + L"\"")))
      << regsvr32;

  EXPECT_TRUE(copy.Gone());
  std::vector<std::wstring> pending = apptest::PendingOperations();
  int at = apptest::FindPending(pending, worker.path);
  ASSERT_GE(at, 0) << "the worker's own file is not queued for deletion";
  EXPECT_EQ(pending[at + 1], L"");
  EXPECT_TRUE(qmtest::FileExists(worker.path));

  // Both left the instance list on their way out.
  std::vector<DWORD> ids;
  list.ReadInstanceIds(ids);
  EXPECT_EQ(std::count(ids.begin(), ids.end(), uninstaller.id), 0);
  EXPECT_EQ(std::count(ids.begin(), ids.end(), worker.id), 0);

  apptest::ForgetPending({worker.path});
  ::DeleteFileW(worker.path.c_str());
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
}

// A worker started by hand for an uninstaller that is gone ends with 0, queues
// its own file and leaves the files next to the named folder alone.
TEST(UninstallerRole, WorkerForMissingUninstallerEndsWithZero) {
  qmtest::TempDir dir(L"qm worker");
  const std::wstring worker = dir / L"worker copy.exe";
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\setup.exe").c_str(), worker.c_str(), FALSE));
  const std::wstring keep = dir / L"keep.txt";
  ASSERT_TRUE(qmtest::WriteFileBytes(keep, "keep"));

  const std::wstring missing = dir / L"gone\\QmkUnInst.exe";
  apptest::Started started = apptest::StartProcess(L"\"" + worker + L"\" -delself \"" + missing + L"\" -s");
  ASSERT_TRUE(started.process.valid());
  const int exitCode = apptest::WaitForExit(started.process.get(), 120000);
  if (exitCode == -2) apptest::EndProcessTree(started.id);
  EXPECT_EQ(exitCode, 0);
  EXPECT_TRUE(qmtest::FileExists(keep));
  int at = apptest::FindPending(apptest::PendingOperations(), worker);
  EXPECT_GE(at, 0);
  apptest::ForgetPending({worker});
}
