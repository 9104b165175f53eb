#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "tests/app/app_test_util.h"
#include "tests/support/test_support.h"

namespace {

using apptest::InstalledCopy;

struct FoundBox {
  DWORD processId;
  HWND box;
};

BOOL CALLBACK FindBoxOf(HWND window, LPARAM data) {
  auto* found = reinterpret_cast<FoundBox*>(data);
  DWORD owner = 0;
  ::GetWindowThreadProcessId(window, &owner);
  wchar_t className[64] = {}, caption[128] = {};
  ::GetClassNameW(window, className, 64);
  ::GetWindowTextW(window, caption, 128);
  if (owner == found->processId && wcscmp(className, L"#32770") == 0 && wcscmp(caption, L"Quillmark Setup") == 0 &&
      ::IsWindowVisible(window)) {
    found->box = window;
    return FALSE;
  }
  return TRUE;
}

// The message box the process shows, once it is up; null after timeoutMs.
HWND WaitForMessageBox(DWORD processId, DWORD timeoutMs) {
  for (DWORD waited = 0; waited < timeoutMs; waited += 50) {
    FoundBox found = {processId, nullptr};
    ::EnumWindows(FindBoxOf, reinterpret_cast<LPARAM>(&found));
    if (found.box) return found.box;
    ::Sleep(50);
  }
  return nullptr;
}

BOOL CALLBACK CollectStaticText(HWND child, LPARAM data) {
  wchar_t className[32] = {}, text[1024] = {};
  ::GetClassNameW(child, className, 32);
  ::GetWindowTextW(child, text, 1024);
  auto* longest = reinterpret_cast<std::wstring*>(data);
  if (_wcsicmp(className, L"Static") == 0 && wcslen(text) > longest->size()) *longest = text;
  return TRUE;
}

// The message of a message box: its longest static text.
std::wstring MessageText(HWND box) {
  std::wstring text;
  ::EnumChildWindows(box, CollectStaticText, reinterpret_cast<LPARAM>(&text));
  return text;
}

void Press(HWND box, int button) {
  ::PostMessageW(box, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED), reinterpret_cast<LPARAM>(::GetDlgItem(box, button)));
}

const wchar_t kConfirmText[] = L"This will completely uninstall Quillmark 8.\nDo you want to continue?";
const wchar_t kUninstalledText[] =
    L"Quillmark 8 has been completely uninstalled from this computer.\n\nIf some Quillmark files could not be "
    L"deleted at this time, they will be removed upon the reboot of this computer.";

}  // namespace

// "-v": the real confirmation box, No preselected; No ends with code 2 and changes nothing.
TEST(UninstallerWindows, ConfirmationDeclinedChangesNothing) {
  InstalledCopy copy;
  std::vector<std::wstring> before = apptest::TempFilesMatching(L"uni*.tmp");
  apptest::Started uninstaller = apptest::StartProcess(L"\"" + copy.uninstaller() + L"\" -v");
  ASSERT_TRUE(uninstaller.process.valid());
  HWND box = WaitForMessageBox(uninstaller.id, 30000);
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(MessageText(box), kConfirmText);
  ASSERT_NE(::GetDlgItem(box, IDYES), nullptr);
  ASSERT_NE(::GetDlgItem(box, IDNO), nullptr);
  EXPECT_EQ(::GetDlgItem(box, IDCANCEL), nullptr);
  EXPECT_TRUE(::GetWindowLongW(::GetDlgItem(box, IDNO), GWL_STYLE) & BS_DEFPUSHBUTTON);
  EXPECT_FALSE(::GetWindowLongW(::GetDlgItem(box, IDYES), GWL_STYLE) & BS_DEFPUSHBUTTON);
  Press(box, IDNO);
  EXPECT_EQ(apptest::WaitForExit(uninstaller.process.get(), 30000), 2);
  EXPECT_TRUE(copy.Intact());
  EXPECT_EQ(apptest::TempFilesMatching(L"uni*.tmp"), before);
  EXPECT_TRUE(apptest::ChildrenOf(uninstaller.id).empty());
}

// "-v" answered Yes: the installation goes, and the worker (given no "-v") ends without a message.
TEST(UninstallerWindows, ConfirmedRemovalEndsSilently) {
  InstalledCopy copy;
  apptest::Started uninstaller = apptest::StartProcess(L"\"" + copy.uninstaller() + L"\" -V");
  ASSERT_TRUE(uninstaller.process.valid());
  HWND box = WaitForMessageBox(uninstaller.id, 30000);
  ASSERT_NE(box, nullptr);
  // The worker is started before this process ends: find it while we can.
  Press(box, IDYES);
  UniqueHandle worker;
  DWORD workerId = 0;
  for (int i = 0; i < 300 && !worker; ++i) {
    for (const apptest::ProcessEntry& child : apptest::ChildrenOf(uninstaller.id)) {
      worker.reset(::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, child.id));
      workerId = child.id;
    }
    if (!worker) ::Sleep(20);
  }
  EXPECT_EQ(apptest::WaitForExit(uninstaller.process.get(), 30000), 0);
  ASSERT_TRUE(worker.valid());
  std::wstring workerPath = apptest::ProcessImagePath(worker.get());
  // A message box would keep the worker waiting: it must end on its own.
  EXPECT_EQ(WaitForMessageBox(workerId, 4000), nullptr);
  EXPECT_EQ(apptest::WaitForExit(worker.get(), 120000), 0);
  EXPECT_TRUE(copy.Gone());
  apptest::ForgetPending({workerPath});
  ::DeleteFileW(workerPath.c_str());
}

// A worker started by hand with "-v" reports the removal with string 20.
TEST(UninstallerWindows, WorkerByHandWithVerboseReports) {
  InstalledCopy copy;
  qmtest::TempDir dir(L"qm hand worker");
  const std::wstring worker = dir / L"worker.exe";
  ASSERT_TRUE(::CopyFileW((qmtest::BinDir() + L"\\setup.exe").c_str(), worker.c_str(), FALSE));
  apptest::Started started =
      apptest::StartProcess(L"\"" + worker + L"\" -delself \"" + copy.uninstaller() + L"\" -v");
  ASSERT_TRUE(started.process.valid());
  HWND box = WaitForMessageBox(started.id, 120000);
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(MessageText(box), kUninstalledText);
  EXPECT_NE(::GetDlgItem(box, IDOK), nullptr);
  EXPECT_EQ(::GetDlgItem(box, IDCANCEL), nullptr);
  // The removal is over before the report.
  EXPECT_TRUE(copy.Gone());
  Press(box, IDOK);
  EXPECT_EQ(apptest::WaitForExit(started.process.get(), 30000), 0);
  apptest::ForgetPending({worker});
}
