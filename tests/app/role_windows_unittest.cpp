#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

#include "tests/app/app_test_util.h"
#include "tests/support/test_support.h"

namespace {

using apptest::InstalledCopy;

// The message box "Quillmark Setup" of the process, once it is up; null after timeoutMs.
HWND WaitForMessageBox(DWORD processId, DWORD timeoutMs) {
  HWND found = nullptr;
  apptest::WaitUntil([&] {
    for (HWND box = nullptr; (box = ::FindWindowExW(nullptr, box, L"#32770", L"Quillmark Setup"));) {
      DWORD owner = 0;
      ::GetWindowThreadProcessId(box, &owner);
      if (owner == processId && ::IsWindowVisible(box)) return (found = box) != nullptr;
    }
    return false;
  }, timeoutMs);
  return found;
}

// A message box keeps its text in the static control 0xFFFF.
std::wstring MessageText(HWND box) {
  wchar_t text[1024] = {};
  ::GetDlgItemTextW(box, 0xFFFF, text, 1024);
  return text;
}

void Press(HWND box, int button) {
  ::PostMessageW(box, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED), reinterpret_cast<LPARAM>(::GetDlgItem(box, button)));
}

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
  EXPECT_EQ(MessageText(box), apptest::kConfirmText);
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
