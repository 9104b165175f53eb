#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "instances/instance_manager.h"
#include "product/product.h"
#include "res/resource.h"
#include "sys/handles.h"
#include "tests/app/app_test_util.h"
#include "tests/support/test_support.h"
#include "ui/strings.h"

namespace {

// An installation as the install run leaves it, in a folder whose path holds
// blanks: QmkUnInst.exe (a copy of setup.exe), a readme and the journal naming
// it; and a file of the user's next to it.
struct InstalledCopy {
  InstalledCopy() {
    EXPECT_TRUE(::CreateDirectoryW(folder.c_str(), nullptr) &&
                ::CopyFileW((qmtest::BinDir() + L"\\setup.exe").c_str(), uninstaller.c_str(), FALSE) &&
                qmtest::WriteFileBytes(folder + L"\\readme.txt", "read me\r\n") &&
                qmtest::WriteFileBytes(folder + L"\\QmkUnInst.log", "File Copy: readme.txt\r\n\r\n") &&
                qmtest::WriteFileBytes(root / L"keep.txt", "keep"));
  }
  // Nothing of the installation is left, not even its folder; the user's file is.
  bool Gone() const {
    return ::GetFileAttributesW(folder.c_str()) == INVALID_FILE_ATTRIBUTES &&
           qmtest::ReadFileBytes(root / L"keep.txt") == "keep";
  }
  qmtest::TempDir root{L"qm app"};
  const std::wstring folder = root / L"Quillmark 8", uninstaller = folder + L"\\QmkUnInst.exe";
};

// Polls done() every 20 ms; false when it still fails after timeoutMs.
bool WaitUntil(const std::function<bool()>& done, DWORD timeoutMs) {
  for (DWORD waited = 0; waited < timeoutMs; waited += 20, ::Sleep(20))
    if (done()) return true;
  return done();
}

// Paths of the "uni*.tmp" files of the temporary folder.
std::vector<std::wstring> WorkerFiles() {
  wchar_t temp[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, temp);
  std::vector<std::wstring> paths;
  WIN32_FIND_DATAW data;
  UniqueFindHandle find(::FindFirstFileW((std::wstring(temp) + L"uni*.tmp").c_str(), &data));
  for (bool more = bool(find); more; more = ::FindNextFileW(find.get(), &data))
    paths.push_back(temp + std::wstring(data.cFileName));
  return paths;
}

// Runs commandLine and answers the message box "Quillmark Setup" it shows with
// button, after whileShown(); the box's text (empty when none came) and the exit code.
std::pair<std::wstring, int> AnswerMessageBox(const std::wstring& commandLine, int button,
                                              const std::function<void()>& whileShown = {}) {
  std::future<int> exitCode = std::async(std::launch::async, [=] { return qmtest::RunProcess(commandLine, 120000); });
  HWND box = nullptr;
  wchar_t text[1024] = {};
  auto shown = [&] { return (box = ::FindWindowW(L"#32770", L"Quillmark Setup")) && ::IsWindowVisible(box); };
  if (WaitUntil(shown, 60000)) {
    // A message box keeps its text in the static control 0xFFFF.
    ::GetDlgItemTextW(box, 0xFFFF, text, 1024);
    if (whileShown) whileShown();
    ::PostMessageW(box, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED), LPARAM(::GetDlgItem(box, button)));
  }
  return {text, exitCode.get()};
}

}  // namespace

// The installed uninstaller, started without arguments, hands over to a
// "uni*.tmp" copy of itself in the temporary folder; that worker removes the
// installation and nothing next to it, queues its own file for deletion, and
// both leave the instance list. Run by hand again for the uninstaller now
// gone, the worker ends with 0 and touches nothing.
TEST(UninstallerRole, HandsOverToTemporaryWorker) {
  COXInstanceManager list(kInstanceListName, kInstanceSharedDataSize, FALSE);
  const int listed = list.ReadInstanceCount();
  InstalledCopy copy;
  const std::vector<std::wstring> before = WorkerFiles();
  EXPECT_EQ(qmtest::RunProcess(L"\"" + copy.uninstaller + L"\""), 0);
  std::wstring worker;
  for (const std::wstring& path : WorkerFiles())
    if (std::find(before.begin(), before.end(), path) == before.end()) worker = path;
  ASSERT_FALSE(worker.empty()) << "no uni*.tmp copy was made";
  EXPECT_TRUE(WaitUntil([&] { return copy.Gone() && list.ReadInstanceCount() == listed; }, 120000));
  EXPECT_EQ(apptest::PendingTarget(worker), L"");

  EXPECT_EQ(qmtest::RunProcess(L"\"" + worker + L"\" -delself \"" + copy.uninstaller + L"\" -s", 120000), 0);
  EXPECT_TRUE(copy.Gone());
  apptest::ForgetPending({worker});
  ::DeleteFileW(worker.c_str());
}

// "-v": the real confirmation box (string 6); No ends with code 2 and changes nothing.
TEST(UninstallerWindows, ConfirmationDeclinedChangesNothing) {
  SetResourceModule(::GetModuleHandleW(nullptr));
  InstalledCopy copy;
  auto [text, exitCode] = AnswerMessageBox(L"\"" + copy.uninstaller + L"\" -v", IDNO);
  EXPECT_EQ(text, LoadStr(IDS_CONFIRM_UNINSTALL));
  EXPECT_EQ(exitCode, 2);
  EXPECT_TRUE(qmtest::FileExists(copy.uninstaller) && qmtest::FileExists(copy.folder + L"\\readme.txt") &&
              qmtest::FileExists(copy.folder + L"\\QmkUnInst.log"));
}

// A worker started by hand with "-v" reports the removal (string 20) once it is over.
TEST(UninstallerWindows, WorkerByHandWithVerboseReports) {
  SetResourceModule(::GetModuleHandleW(nullptr));
  InstalledCopy copy;
  const std::wstring worker = copy.root / L"worker.exe";
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\setup.exe").c_str(), worker.c_str(), FALSE));
  auto [text, exitCode] = AnswerMessageBox(L"\"" + worker + L"\" -delself \"" + copy.uninstaller + L"\" -v", IDOK,
                                           [&] { EXPECT_TRUE(copy.Gone()); });
  apptest::ForgetPending({worker});
  EXPECT_EQ(text, LoadStr(IDS_UNINSTALLED));
  EXPECT_EQ(exitCode, 0);
}
