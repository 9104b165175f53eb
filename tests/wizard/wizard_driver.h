// Drives the real wizard like a user: the wizard runs modally on the test's
// main thread while a second thread finds its windows, reads controls and
// clicks buttons.
#pragma once
#include <windows.h>

#include <functional>
#include <string>

#include "tests/support/test_support.h"

namespace wiztest {

class Driver {
 public:
  Driver(HWND frame, DWORD wizardThread) : frame_(frame), wizardThread_(wizardThread) {}

  HWND frame() const { return frame_; }
  // The page on screen (a child dialog of the frame); null when none.
  HWND Page() const;
  // "welcome", "agreement", "folder", "group", "start", or "" without a page.
  std::wstring PageKind() const;

  HWND FrameItem(int id) const { return ::GetDlgItem(frame_, id); }
  HWND PageItem(int id) const;
  std::wstring FrameText(int id) const { return Text(FrameItem(id)); }
  std::wstring PageText(int id) const { return Text(PageItem(id)); }
  std::wstring Caption() const { return Text(frame_); }
  static std::wstring Text(HWND window);
  static bool Visible(HWND window) { return window && ::IsWindowVisible(window); }
  static bool Enabled(HWND window) { return window && ::IsWindowEnabled(window); }
  static bool Checked(HWND window) {
    return window && ::SendMessageW(window, BM_GETCHECK, 0, 0) == BST_CHECKED;
  }

  // Clicks a frame button and returns once the wizard has handled the click.
  void Click(int frameId) const;
  void ClickPage(int pageId) const;
  void SetPageText(int pageId, const std::wstring& text) const;
  // Clicks without waiting (for clicks that open a real message box).
  void PostClick(int frameId) const;

  // A real message box of the wizard's thread (caption "Quillmark Setup",
  // not the frame); null when none appeared within timeoutMs.
  HWND WaitForMessageBox(DWORD timeoutMs = 10000) const;
  // The message text of a real message box.
  static std::wstring MessageBoxText(HWND box);

  // The page's window rectangle in the frame's client coordinates.
  RECT PageRect() const;
  RECT FrameItemRect(int id) const;

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

}  // namespace wiztest
