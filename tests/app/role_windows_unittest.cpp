#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "app/product.h"
#include "instances/instance_manager.h"
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

const wchar_t kTwoCopiesText[] =
    L"2 instances of Quillmark are currently opened. ff you click \"Yes\" button, SETUP will try to close "
    L"them without saving any editing work you may have done. \n\nContinue installation?";
const wchar_t kAbortedText[] =
    L"Setup of Quillmark aborted. Please close other instances of Quillmark manually, saving any editing "
    L"work you have done in them, then restart this setup program.";
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
  const int workerExit = apptest::WaitForExit(worker.get(), 120000);
  if (workerExit == -2) apptest::EndProcessTree(workerId);
  EXPECT_EQ(workerExit, 0);
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

// Setup with two running copies asks first; No shows string 15, ends with code 2
// and leaves the copies running.
TEST(SetupWindows, CloseQuestionDeclinedLeavesCopiesRunning) {
  COXInstanceManager list(kInstanceListName, kInstanceSharedDataSize, FALSE);
  qmtest::TempDir traceDir(L"qm trace");
  const std::wstring trace = traceDir / L"trace.log";
  ASSERT_TRUE(::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace.c_str()));
  const std::wstring product = L"\"" + qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe\"";
  apptest::Started first = apptest::StartProcess(product), second = apptest::StartProcess(product);
  ASSERT_TRUE(first.process.valid() && second.process.valid());
  for (int i = 0; i < 400 && list.ReadInstanceCount() < 2; ++i) ::Sleep(50);
  ASSERT_EQ(list.ReadInstanceCount(), 2);

  apptest::Started setup = apptest::StartProcess(L"\"" + qmtest::BinDir() + L"\\setup.exe\"");
  ASSERT_TRUE(setup.process.valid());
  HWND question = WaitForMessageBox(setup.id, 30000);
  ASSERT_NE(question, nullptr);
  EXPECT_EQ(MessageText(question), kTwoCopiesText);
  EXPECT_NE(::GetDlgItem(question, IDNO), nullptr);
  Press(question, IDNO);
  // The refusal box replaces the question.
  HWND refusal = nullptr;
  for (int i = 0; i < 400 && !refusal; ++i) {
    HWND box = WaitForMessageBox(setup.id, 50);
    if (box && box != question && ::IsWindow(box)) refusal = box;
  }
  ASSERT_NE(refusal, nullptr);
  EXPECT_EQ(MessageText(refusal), kAbortedText);
  EXPECT_EQ(::GetDlgItem(refusal, IDNO), nullptr);
  Press(refusal, IDOK);
  EXPECT_EQ(apptest::WaitForExit(setup.process.get(), 30000), 2);

  EXPECT_EQ(apptest::WaitForExit(first.process.get(), 0), -2);
  EXPECT_EQ(apptest::WaitForExit(second.process.get(), 0), -2);
  EXPECT_EQ(qmtest::ReadFileBytes(trace).find("close"), std::string::npos);
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
}
