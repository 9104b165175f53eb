#include "tests/wizard/wizard_driver.h"

#include <thread>
#include <utility>

#include "wizard/wizard.h"

namespace wiztest {
namespace {

struct Search {
  HWND exclude;
  const wchar_t* caption;
  HWND found = nullptr;
};

BOOL CALLBACK FindDialog(HWND window, LPARAM param) {
  auto* search = reinterpret_cast<Search*>(param);
  wchar_t className[16] = {};
  ::GetClassNameW(window, className, 16);
  if (window == search->exclude || wcscmp(className, L"#32770") != 0 || !::IsWindowVisible(window) ||
      (search->caption && Text(window) != search->caption))
    return TRUE;
  search->found = window;
  return FALSE;
}

HWND FindThreadDialog(DWORD thread, HWND exclude, const wchar_t* caption) {
  Search search{exclude, caption};
  ::EnumThreadWindows(thread, &FindDialog, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

// Cancel answered Yes, or Finish where Cancel is disabled; without a recorder
// a real message box is answered Yes (or OK) on screen.
void ForceClose(const Driver& driver, qmtest::MessageBoxRecorder* recorder) {
  for (int attempt = 0; attempt < 40 && ::IsWindow(driver.frame); ++attempt) {
    if (recorder) recorder->Answer(IDYES);
    ::PostMessageW(driver.frame, WM_COMMAND, MAKEWPARAM(attempt % 2 ? IDOK : IDCANCEL, BN_CLICKED), 0);
    if (HWND box = recorder ? nullptr : driver.WaitForDialog(L"Quillmark Setup", 500))
      ::PostMessageW(::GetDlgItem(box, IDYES) ? ::GetDlgItem(box, IDYES) : ::GetDlgItem(box, IDOK), BM_CLICK, 0, 0);
    ::Sleep(250);
  }
}

int CountingInstall() {
  ++installCalls;
  if (restartAfterInstall) installSettings.restartNeeded = 1;
  return 0;
}

}  // namespace

std::wstring Text(HWND window) {
  wchar_t buffer[2048] = {};
  int length = window ? ::GetWindowTextW(window, buffer, 2048) : 0;
  return std::wstring(buffer, length > 0 ? static_cast<size_t>(length) : 0);
}

std::wstring Driver::PageKind() const {
  HWND page = Page();
  if (!page) return L"";
  for (auto [id, kind] : {std::pair{IDC_BROWSE, L"folder"}, std::pair{IDC_RUN_AFTER, L"start"},
                          std::pair{IDC_AUTOSTART, L"group"}, std::pair{IDC_AGREEMENT_TEXT, L"agreement"},
                          std::pair{IDC_WELCOME_VERSION, L"welcome"}})
    if (::GetDlgItem(page, id)) return kind;
  return L"?";
}

HWND Driver::WaitForDialog(const wchar_t* caption, DWORD timeoutMs) const {
  for (DWORD waited = 0; waited <= timeoutMs; waited += 50, ::Sleep(50))
    if (HWND box = FindThreadDialog(wizardThread, frame, caption)) return box;
  return nullptr;
}

RECT Driver::Rect(HWND window) const {
  RECT rect = {};
  ::GetWindowRect(window, &rect);
  ::MapWindowPoints(nullptr, frame, reinterpret_cast<POINT*>(&rect), 2);
  return rect;
}

INT_PTR RunDriven(int presetIndex, qmtest::MessageBoxRecorder* recorder,
                  const std::function<void(Driver&)>& drive) {
  DWORD wizardThread = ::GetCurrentThreadId();
  std::thread driverThread([&] {
    Driver driver{nullptr, wizardThread};
    for (int wait = 0; !driver.frame && wait < 400; ++wait, ::Sleep(50))
      driver.frame = FindThreadDialog(wizardThread, nullptr, nullptr);
    if (!driver.frame) return ADD_FAILURE() << "the wizard frame did not appear", void();
    // Let the frame finish opening its first page.
    ::SendMessageW(driver.frame, WM_NULL, 0, 0);
    drive(driver);
    ForceClose(driver, recorder);
  });
  INT_PTR result = RunWizard(presetIndex);
  driverThread.join();
  return result;
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
  savedRunner_ = std::exchange(pInstallRun, &CountingInstall);
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
