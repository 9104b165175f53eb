// The small window that shows how far unpacking has come. It appears only on
// a visible desktop, only when allowed (not in silent mode), and only once
// unpacking has taken longer than a moment; a quick unpack shows nothing.
#pragma once
#include <windows.h>

#include <cstdint>
#include <string>

#include "sfx/cabinet.h"

class ProgressWindow : public UnpackProgress {
 public:
  ProgressWindow(uint64_t total, bool allowed);
  ~ProgressWindow() override;
  ProgressWindow(const ProgressWindow&) = delete;
  ProgressWindow& operator=(const ProgressWindow&) = delete;

  void Advance(uint64_t bytes) override;

 private:
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  void Open();
  void Paint(HDC dc, const RECT& client) const;
  int Percent() const;

  uint64_t total_;
  uint64_t done_ = 0;
  bool allowed_;
  DWORD started_;
  int shownPercent_ = -1;
  std::wstring text_;
  HWND window_ = nullptr;  // destroyed with this object
};

// True when this process's window station is the one shown on the screen.
bool DesktopIsVisible();
