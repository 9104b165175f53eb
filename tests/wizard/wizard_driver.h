// Drives the real wizard like a user: the wizard runs modally on the test's
// main thread while a second thread finds its windows, reads controls and
// clicks buttons. WizardTest prepares a fresh install into a temporary
// folder with an install step that only counts (and can ask for a restart).
#pragma once
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>

#include "app/settings.h"
#include "res/resource.h"
#include "tests/support/test_support.h"
#include "wizard/setup_dlg.h"

namespace wiztest {

class Driver {
 public:
  Driver(HWND frame, DWORD wizardThread) : frame_(frame), wizardThread_(wizardThread) {}

  HWND frame() const { return frame_; }
  // The page on screen (a child dialog of the frame); null when none.
  HWND Page() const { return ::FindWindowExW(frame_, nullptr, L"#32770", nullptr); }
  // "welcome", "agreement", "folder", "group", "start", or "" without a page.
  std::wstring PageKind() const;

  HWND FrameItem(int id) const { return ::GetDlgItem(frame_, id); }
  HWND PageItem(int id) const { return Page() ? ::GetDlgItem(Page(), id) : nullptr; }
  std::wstring FrameText(int id) const { return Text(FrameItem(id)); }
  std::wstring PageText(int id) const { return Text(PageItem(id)); }
  std::wstring Caption() const { return Text(frame_); }
  static std::wstring Text(HWND window);
  static bool Visible(HWND window) { return window && ::IsWindowVisible(window); }
  static bool Enabled(HWND window) { return window && ::IsWindowEnabled(window); }
  static bool Checked(HWND window) {
    return window && ::SendMessageW(window, BM_GETCHECK, 0, 0) == BST_CHECKED;
  }
  // A window's rectangle in the frame's client coordinates.
  RECT Rect(HWND window) const;

  // Clicks and returns once the wizard has handled the click.
  void Click(int frameId) const { ::SendMessageW(FrameItem(frameId), BM_CLICK, 0, 0); }
  void ClickPage(int pageId) const { ::SendMessageW(PageItem(pageId), BM_CLICK, 0, 0); }
  void SetPageText(int pageId, const std::wstring& text) const {
    ::SendMessageW(PageItem(pageId), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
  }
  // Clicks without waiting (for clicks that open a real message box).
  void PostClick(int frameId) const { ::PostMessageW(FrameItem(frameId), BM_CLICK, 0, 0); }
  // Next from where it stands until the page of the given kind shows.
  void NextUntil(const std::wstring& kind) const {
    for (int step = 0; step < 6 && PageKind() != kind; ++step) Click(IDOK);
  }

  // A visible dialog of the wizard's thread other than the frame: a real
  // message box (caption "Quillmark Setup") or, without a caption, any such
  // as the folder browser; null when none appeared within timeoutMs.
  HWND WaitForDialog(const wchar_t* caption = L"Quillmark Setup", DWORD timeoutMs = 10000) const;
  // The message text of a real message box.
  static std::wstring MessageBoxText(HWND box) { return Text(::GetDlgItem(box, 0xFFFF)); }

 private:
  HWND frame_;
  DWORD wizardThread_;
};

// Runs RunWizard(presetIndex) on this thread and drive on a second thread
// once the frame is up. If the wizard is still open when drive returns (a
// failed assertion, say), it is closed by force: Cancel answered Yes through
// recorder when given, else Finish. Returns RunWizard's result.
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
