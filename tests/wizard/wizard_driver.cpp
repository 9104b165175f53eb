#include "tests/wizard/wizard_driver.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

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

BOOL CALLBACK CollectStatics(HWND window, LPARAM param) {
  wchar_t className[16] = {};
  ::GetClassNameW(window, className, 16);
  if (_wcsicmp(className, L"Static") == 0)
    reinterpret_cast<std::vector<HWND>*>(param)->push_back(window);
  return TRUE;
}

// Cancel answered Yes, or Finish where Cancel is disabled; real message
// boxes (no recorder) are answered Yes or OK on screen.
void ForceClose(const Driver& driver, qmtest::MessageBoxRecorder* recorder) {
  for (int attempt = 0; attempt < 40 && ::IsWindow(driver.frame()); ++attempt) {
    if (recorder) recorder->Answer(IDYES);
    ::PostMessageW(driver.frame(), WM_COMMAND, MAKEWPARAM(attempt % 2 ? IDOK : IDCANCEL, BN_CLICKED), 0);
    if (HWND box = recorder ? nullptr : driver.WaitForMessageBox(500)) {
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

HWND Driver::Page() const { return ::FindWindowExW(frame_, nullptr, L"#32770", nullptr); }

HWND Driver::PageItem(int id) const {
  HWND page = Page();
  return page ? ::GetDlgItem(page, id) : nullptr;
}

std::wstring Driver::PageKind() const {
  if (!Page()) return L"";
  if (PageItem(1005)) return L"folder";
  if (PageItem(1012)) return L"start";
  if (PageItem(1008)) return L"group";
  if (PageItem(1000)) return L"agreement";
  if (PageItem(1003)) return L"welcome";
  return L"?";
}

void Driver::Click(int frameId) const { ::SendMessageW(FrameItem(frameId), BM_CLICK, 0, 0); }

void Driver::ClickPage(int pageId) const { ::SendMessageW(PageItem(pageId), BM_CLICK, 0, 0); }

void Driver::SetPageText(int pageId, const std::wstring& text) const {
  ::SendMessageW(PageItem(pageId), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
}

void Driver::PostClick(int frameId) const { ::PostMessageW(FrameItem(frameId), BM_CLICK, 0, 0); }

HWND Driver::WaitForMessageBox(DWORD timeoutMs) const {
  for (DWORD waited = 0; waited <= timeoutMs; waited += 50) {
    if (HWND box = FindThreadDialog(wizardThread_, frame_, L"Quillmark Setup")) return box;
    ::Sleep(50);
  }
  return nullptr;
}

std::wstring Driver::MessageBoxText(HWND box) {
  std::vector<HWND> statics;
  ::EnumChildWindows(box, &CollectStatics, reinterpret_cast<LPARAM>(&statics));
  std::wstring longest;
  for (HWND item : statics) {
    std::wstring text = Text(item);
    if (text.size() > longest.size()) longest = text;
  }
  return longest;
}

RECT Driver::PageRect() const {
  RECT rect = {};
  ::GetWindowRect(Page(), &rect);
  ::MapWindowPoints(nullptr, frame_, reinterpret_cast<POINT*>(&rect), 2);
  return rect;
}

RECT Driver::FrameItemRect(int id) const {
  RECT rect = {};
  ::GetWindowRect(FrameItem(id), &rect);
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

}  // namespace wiztest
