#include "sfx/progress_window.h"

#include "res/resource.h"
#include "ui/strings.h"

namespace {

constexpr wchar_t kWindowClass[] = L"QuillmarkSfxProgress";
constexpr DWORD kShowAfterMs = 700;
// Client area and bar, in pixels at 96 DPI.
constexpr int kWidth = 360, kHeight = 86, kMargin = 14, kBarTop = 44, kBarHeight = 18;
constexpr int kBaseDpi = 96;

int Scaled(int value, int dpi) { return ::MulDiv(value, dpi, kBaseDpi); }

int ScreenDpi() {
  HDC screen = ::GetDC(nullptr);
  int dpi = screen ? ::GetDeviceCaps(screen, LOGPIXELSY) : kBaseDpi;
  if (screen) ::ReleaseDC(nullptr, screen);
  return dpi > 0 ? dpi : kBaseDpi;
}

}  // namespace

bool DesktopIsVisible() {
  USEROBJECTFLAGS flags = {};
  DWORD needed = 0;
  return ::GetUserObjectInformationW(::GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof flags, &needed) &&
         (flags.dwFlags & WSF_VISIBLE) != 0;
}

ProgressWindow::ProgressWindow(uint64_t total, bool allowed)
    : total_(total), allowed_(allowed), started_(::GetTickCount()) {}

ProgressWindow::~ProgressWindow() {
  if (window_) ::DestroyWindow(window_);
}

int ProgressWindow::Percent() const {
  if (total_ == 0) return 100;
  return static_cast<int>((done_ >= total_ ? total_ : done_) * 100 / total_);
}

void ProgressWindow::Advance(uint64_t bytes) {
  done_ += bytes;
  if (!window_) {
    if (!allowed_ || ::GetTickCount() - started_ < kShowAfterMs) return;
    allowed_ = false;  // one try
    Open();
    if (!window_) return;
  }
  if (Percent() != shownPercent_) {
    shownPercent_ = Percent();
    ::InvalidateRect(window_, nullptr, FALSE);
  }
  MSG message;
  while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
}

void ProgressWindow::Open() {
  HINSTANCE instance = ::GetModuleHandleW(nullptr);
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = WindowProc;
  windowClass.hInstance = instance;
  windowClass.hCursor = ::LoadCursorW(nullptr, IDC_WAIT);
  windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
  windowClass.hIcon = ::LoadIconW(instance, MAKEINTRESOURCEW(IDI_SETUP));
  windowClass.lpszClassName = kWindowClass;
  ::RegisterClassW(&windowClass);
  text_ = LoadStr(IDS_SFX_UNPACKING);
  const DWORD style = WS_POPUP | WS_CAPTION | WS_BORDER;
  const int dpi = ScreenDpi();
  RECT frame = {0, 0, Scaled(kWidth, dpi), Scaled(kHeight, dpi)};
  ::AdjustWindowRectEx(&frame, style, FALSE, 0);
  const int width = frame.right - frame.left, height = frame.bottom - frame.top;
  RECT work = {};
  ::SystemParametersInfoW(SPI_GETWORKAREA, 0, &work, 0);
  window_ = ::CreateWindowExW(0, kWindowClass, LoadStr(IDS_CAPTION).c_str(), style,
                              work.left + (work.right - work.left - width) / 2,
                              work.top + (work.bottom - work.top - height) / 2, width, height, nullptr, nullptr,
                              instance, this);
  if (window_) ::ShowWindow(window_, SW_SHOWNORMAL);
}

void ProgressWindow::Paint(HDC dc, const RECT& client) const {
  const int dpi = ScreenDpi();
  const int margin = Scaled(kMargin, dpi);
  HGDIOBJ oldFont = ::SelectObject(dc, ::GetStockObject(DEFAULT_GUI_FONT));
  ::SetBkMode(dc, TRANSPARENT);
  ::SetTextColor(dc, ::GetSysColor(COLOR_BTNTEXT));
  RECT textBox = {margin, margin, client.right - margin, Scaled(kBarTop, dpi) - 4};
  ::DrawTextW(dc, text_.c_str(), static_cast<int>(text_.size()), &textBox, DT_SINGLELINE | DT_END_ELLIPSIS);
  ::SelectObject(dc, oldFont);
  RECT bar = {margin, Scaled(kBarTop, dpi), client.right - margin, Scaled(kBarTop + kBarHeight, dpi)};
  ::FillRect(dc, &bar, ::GetSysColorBrush(COLOR_WINDOW));
  ::FrameRect(dc, &bar, ::GetSysColorBrush(COLOR_BTNSHADOW));
  RECT filled = bar;
  ::InflateRect(&filled, -2, -2);
  filled.right = filled.left + ::MulDiv(filled.right - filled.left, Percent(), 100);
  ::FillRect(dc, &filled, ::GetSysColorBrush(COLOR_HIGHLIGHT));
}

LRESULT CALLBACK ProgressWindow::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_NCCREATE) {
    auto* create = reinterpret_cast<CREATESTRUCTW*>(lParam);
    ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(create->lpCreateParams));
  }
  auto* self = reinterpret_cast<const ProgressWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
  switch (message) {
    case WM_PAINT: {
      PAINTSTRUCT paint;
      HDC dc = ::BeginPaint(window, &paint);
      RECT client = {};
      ::GetClientRect(window, &client);
      if (self) self->Paint(dc, client);
      ::EndPaint(window, &paint);
      return 0;
    }
    case WM_CLOSE:
      return 0;  // unpacking cannot be stopped half-way; setup offers the cancel
    default:
      return ::DefWindowProcW(window, message, wParam, lParam);
  }
}
