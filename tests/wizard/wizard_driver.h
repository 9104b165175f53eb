// Drives the real wizard like a user: the wizard runs modally on the test's
// main thread while a second thread finds its windows, reads controls and
// clicks. WizardTest prepares a fresh install into a temporary folder with an
// install step that only counts (and can ask for a restart).
#pragma once
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>

#include "product/settings.h"
#include "res/resource.h"
#include "tests/support/test_support.h"
#include "wizard/setup_dlg.h"

namespace wiztest {

std::wstring Text(HWND window);
inline bool Visible(HWND window) { return window && ::IsWindowVisible(window); }
inline bool Enabled(HWND window) { return window && ::IsWindowEnabled(window); }
inline bool Checked(HWND window) { return window && ::SendMessageW(window, BM_GETCHECK, 0, 0) == BST_CHECKED; }

struct Driver {
  HWND frame;
  DWORD wizardThread;

  // The page on screen (a child dialog of the frame); null when none.
  HWND Page() const { return ::FindWindowExW(frame, nullptr, L"#32770", nullptr); }
  // "welcome", "agreement", "folder", "group", "start", or "" without a page.
  std::wstring PageKind() const;
  // A control of the frame, else of the page.
  HWND Item(int id) const {
    HWND item = ::GetDlgItem(frame, id);
    return item || !Page() ? item : ::GetDlgItem(Page(), id);
  }
  std::wstring ItemText(int id) const { return Text(Item(id)); }
  // A window's rectangle in the frame's client coordinates.
  RECT Rect(HWND window) const;
  // Clicks and returns once the wizard has handled the click.
  void Click(int id) const { ::SendMessageW(Item(id), BM_CLICK, 0, 0); }
  // Clicks without waiting (for clicks that open a real dialog).
  void PostClick(int id) const { ::PostMessageW(Item(id), BM_CLICK, 0, 0); }
  void SetItemText(int id, const std::wstring& text) const {
    ::SendMessageW(Item(id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
  }
  // Next from where it stands until the page of the given kind shows.
  void NextUntil(const std::wstring& kind) const {
    for (int step = 0; step < 6 && PageKind() != kind; ++step) Click(IDOK);
  }
  // A visible dialog of the wizard's thread other than the frame with that
  // caption (any caption when null); null when none came within timeoutMs.
  HWND WaitForDialog(const wchar_t* caption = L"Quillmark Setup", DWORD timeoutMs = 10000) const;
};

// Runs RunWizard(presetIndex) on this thread and drive on a second thread
// once the frame is up. A wizard still open when drive returns (a failed
// assertion, say) is closed by force: Cancel answered Yes through recorder
// when given (else on screen), or Finish. Returns RunWizard's result.
INT_PTR RunDriven(int presetIndex, qmtest::MessageBoxRecorder* recorder,
                  const std::function<void(Driver&)>& drive);

inline std::atomic<int> installCalls{0};
inline std::atomic<bool> restartAfterInstall{false};

// Fresh settings, the counting install step, and a current folder without
// agreement.txt (work_).
class WizardTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  qmtest::TempDir dest_{L"wizard dest"};
  qmtest::TempDir work_{L"wizard work"};

 private:
  InstallRunner savedRunner_ = nullptr;
  std::wstring savedDirectory_;
};

}  // namespace wiztest
