#include "tests/wizard/wizard_driver.h"

#include <gtest/gtest.h>

#include <thread>

#include "wizard/wizard.h"

namespace wiztest {
namespace {

struct Search {
  HWND exclude = nullptr;
  const wchar_t* caption = nullptr;
  HWND found = nullptr;
};

BOOL CALLBACK FindDialog(HWND window, LPARAM param) {
  auto* search = reinterpret_cast<Search*>(param);
  wchar_t className[16] = {};
  ::GetClassNameW(window, className, 16);
  if (window == search->exclude || wcscmp(className, L"#32770") != 0 || !::IsWindowVisible(window))
    return TRUE;
  if (search->caption && Driver::Text(window) != search->caption) return TRUE;
  search->found = window;
  return FALSE;
}

HWND FindThreadDialog(DWORD thread, HWND exclude, const wchar_t* caption) {
  Search search{exclude, caption, nullptr};
  ::EnumThreadWindows(thread, &FindDialog, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

// Cancel answered Yes, or Finish where Cancel is disabled; real message
// boxes (no recorder) are answered Yes or OK on screen.
void ForceClose(const Driver& driver, qmtest::MessageBoxRecorder* recorder) {
  for (int attempt = 0; attempt < 40 && ::IsWindow(driver.frame()); ++attempt) {
    if (recorder) recorder->Answer(IDYES);
    ::PostMessageW(driver.frame(), WM_COMMAND, MAKEWPARAM(attempt % 2 ? IDOK : IDCANCEL, BN_CLICKED), 0);
    if (HWND box = recorder ? nullptr : driver.WaitForDialog(L"Quillmark Setup", 500)) {
      HWND yes = ::GetDlgItem(box, IDYES);
      ::PostMessageW(yes ? yes : ::GetDlgItem(box, IDOK), BM_CLICK, 0, 0);
    }
    ::Sleep(250);
  }
}

}  // namespace

std::wstring Driver::Text(HWND window) {
  if (!window) return std::wstring();
  wchar_t buffer[2048] = {};
  int length = ::GetWindowTextW(window, buffer, 2048);
  return std::wstring(buffer, length > 0 ? static_cast<size_t>(length) : 0);
}

std::wstring Driver::PageKind() const {
  if (!Page()) return L"";
  if (PageItem(IDC_BROWSE)) return L"folder";
  if (PageItem(IDC_RUN_AFTER)) return L"start";
  if (PageItem(IDC_AUTOSTART)) return L"group";
  if (PageItem(IDC_AGREEMENT_TEXT)) return L"agreement";
  if (PageItem(IDC_WELCOME_VERSION)) return L"welcome";
  return L"?";
}

HWND Driver::WaitForDialog(const wchar_t* caption, DWORD timeoutMs) const {
  for (DWORD waited = 0; waited <= timeoutMs; waited += 50) {
    if (HWND box = FindThreadDialog(wizardThread_, frame_, caption)) return box;
    ::Sleep(50);
  }
  return nullptr;
}

RECT Driver::Rect(HWND window) const {
  RECT rect = {};
  ::GetWindowRect(window, &rect);
  ::MapWindowPoints(nullptr, frame_, reinterpret_cast<POINT*>(&rect), 2);
  return rect;
}

INT_PTR RunDriven(int presetIndex, qmtest::MessageBoxRecorder* recorder,
                  const std::function<void(Driver&)>& drive) {
  DWORD wizardThread = ::GetCurrentThreadId();
  std::thread driverThread([&] {
    HWND frame = nullptr;
    for (int wait = 0; !frame && wait < 400; ++wait) {
      ::Sleep(50);
      frame = FindThreadDialog(wizardThread, nullptr, nullptr);
    }
    if (!frame) {
      ADD_FAILURE() << "the wizard frame did not appear";
      return;
    }
    // Let the frame finish opening its first page.
    ::SendMessageW(frame, WM_NULL, 0, 0);
    Driver driver(frame, wizardThread);
    drive(driver);
    ForceClose(driver, recorder);
  });
  INT_PTR result = RunWizard(presetIndex);
  driverThread.join();
  return result;
}

static int CountingInstall() {
  ++installCalls;
  if (restartAfterInstall) installSettings.restartNeeded = 1;
  return 0;
}

void WizardTest::SetUp() {
  installSettings = InstallSettings{};
  installSettings.installMode = 0;
  installSettings.installType = 1;
  installSettings.installDir = dest_.path() + L"\\Quillmark 8";
  installSettings.groupName = L"Quillmark 8";
  installSettings.defaultDirUsed = 1;
  installSettings.newVersion = {8, 5, 3, 0};
  installCalls = 0;
  restartAfterInstall = false;
  savedRunner_ = pInstallRun;
  pInstallRun = &CountingInstall;
  wchar_t current[MAX_PATH] = {};
  ::GetCurrentDirectoryW(MAX_PATH, current);
  savedDirectory_ = current;
  ::SetCurrentDirectoryW(work_.path().c_str());
}

void WizardTest::TearDown() {
  pInstallRun = savedRunner_;
  ::SetCurrentDirectoryW(savedDirectory_.c_str());
}

}  // namespace wiztest
