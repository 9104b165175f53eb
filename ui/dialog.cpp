#include "ui/dialog.h"

#include <vector>

#include "ui/strings.h"

namespace {

std::wstring WindowText(HWND window) {
  if (!window) return std::wstring();
  int length = ::GetWindowTextLengthW(window);
  if (length <= 0) return std::wstring();
  std::vector<wchar_t> buffer(static_cast<size_t>(length) + 1);
  int read = ::GetWindowTextW(window, buffer.data(), length + 1);
  return std::wstring(buffer.data(), read > 0 ? static_cast<size_t>(read) : 0);
}

bool IsRadioButton(HWND window) {
  return (::SendMessageW(window, WM_GETDLGCODE, 0, 0) & DLGC_RADIOBUTTON) != 0;
}

}  // namespace

// ---- CControl

void CControl::Show(bool show) const {
  if (window_) ::ShowWindow(window_, show ? SW_SHOW : SW_HIDE);
}

bool CControl::IsVisible() const { return window_ && ::IsWindowVisible(window_); }

void CControl::Enable(bool enable) const {
  if (window_) ::EnableWindow(window_, enable ? TRUE : FALSE);
}

bool CControl::IsEnabled() const { return window_ && ::IsWindowEnabled(window_); }

std::wstring CControl::GetText() const { return WindowText(window_); }

void CControl::SetText(const std::wstring& text) const {
  if (window_) ::SetWindowTextW(window_, text.c_str());
}

int CControl::GetCheck() const {
  return window_ ? static_cast<int>(::SendMessageW(window_, BM_GETCHECK, 0, 0)) : 0;
}

void CControl::SetCheck(int state) const {
  if (window_) ::SendMessageW(window_, BM_SETCHECK, static_cast<WPARAM>(state), 0);
}

void CControl::SetFocus() const {
  if (window_) ::SetFocus(window_);
}

LRESULT CControl::Send(UINT message, WPARAM wParam, LPARAM lParam) const {
  return window_ ? ::SendMessageW(window_, message, wParam, lParam) : 0;
}

// ---- data exchange

HWND CDataExchange::Item(int id) {
  HWND item = dialog_ ? ::GetDlgItem(dialog_, id) : nullptr;
  if (!item) failed_ = true;
  return item;
}

void DDX_Control(CDataExchange& dx, int id, CControl& control) {
  if (HWND item = dx.Item(id)) control.Attach(item);
}

void DDX_Text(CDataExchange& dx, int id, std::wstring& value) {
  HWND item = dx.Item(id);
  if (!item) return;
  if (dx.Saving())
    value = WindowText(item);
  else
    ::SetWindowTextW(item, value.c_str());
}

void DDX_Check(CDataExchange& dx, int id, int& value) {
  HWND item = dx.Item(id);
  if (!item) return;
  if (dx.Saving())
    value = static_cast<int>(::SendMessageW(item, BM_GETCHECK, 0, 0));
  else
    ::SendMessageW(item, BM_SETCHECK, static_cast<WPARAM>(value), 0);
}

void DDX_Radio(CDataExchange& dx, int firstId, int& index) {
  HWND item = dx.Item(firstId);
  if (!item) return;
  if (dx.Saving()) index = -1;
  int position = 0;
  do {
    if (IsRadioButton(item)) {
      if (dx.Saving()) {
        if (::SendMessageW(item, BM_GETCHECK, 0, 0) == BST_CHECKED) index = position;
      } else {
        ::SendMessageW(item, BM_SETCHECK, position == index ? BST_CHECKED : BST_UNCHECKED, 0);
      }
      ++position;
    }
    item = ::GetWindow(item, GW_HWNDNEXT);
  } while (item && !(::GetWindowLongW(item, GWL_STYLE) & WS_GROUP));
}

// ---- CDialog

CDialog::CDialog(UINT templateId, HWND parent) : templateId_(templateId), parent_(parent) {}

CDialog::~CDialog() {
  // A modeless window outliving its object must not call back into it.
  if (window_ && ::IsWindow(window_)) {
    ::SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
    if (!modal_) ::DestroyWindow(window_);
  }
}

INT_PTR CDialog::DoModal() {
  modal_ = true;
  INT_PTR result = ::DialogBoxParamW(ResourceModule(), MAKEINTRESOURCEW(templateId_), parent_,
                                     &CDialog::DialogProc, reinterpret_cast<LPARAM>(this));
  modal_ = false;
  window_ = nullptr;
  return result;
}

BOOL CDialog::Create(UINT templateId, HWND parent) {
  templateId_ = templateId;
  parent_ = parent;
  modal_ = false;
  HWND window = ::CreateDialogParamW(ResourceModule(), MAKEINTRESOURCEW(templateId), parent,
                                     &CDialog::DialogProc, reinterpret_cast<LPARAM>(this));
  return window != nullptr;
}

BOOL CDialog::DestroyWindow() {
  if (!window_) return FALSE;
  return ::DestroyWindow(window_);
}

void CDialog::EndDialog(INT_PTR result) {
  if (window_) ::EndDialog(window_, result);
}

BOOL CDialog::UpdateData(BOOL save) {
  if (!window_) return FALSE;
  CDataExchange dx(window_, save != FALSE);
  DoDataExchange(dx);
  return dx.Failed() ? FALSE : TRUE;
}

HWND CDialog::GetDlgItem(int id) const { return window_ ? ::GetDlgItem(window_, id) : nullptr; }

std::wstring CDialog::GetWindowText() const { return WindowText(window_); }

void CDialog::SetWindowText(const std::wstring& text) const {
  if (window_) ::SetWindowTextW(window_, text.c_str());
}

BOOL CDialog::OnInitDialog() {
  UpdateData(FALSE);
  return TRUE;
}

void CDialog::OnOK() {
  // A modeless page has nothing to end; its owner decides when it goes.
  if (!modal_) return;
  if (!UpdateData(TRUE)) return;
  EndDialog(IDOK);
}

void CDialog::OnCancel() {
  if (modal_) EndDialog(IDCANCEL);
}

INT_PTR CDialog::OnMessage(UINT, WPARAM, LPARAM, bool& handled) {
  handled = false;
  return FALSE;
}

INT_PTR CDialog::HandleMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_INITDIALOG:
      return OnInitDialog();
    case WM_COMMAND: {
      int id = LOWORD(wParam);
      WORD code = HIWORD(wParam);
      // Menus and accelerators send code 0 or 1 with no control.
      bool click = code == BN_CLICKED || (lParam == 0 && code == 1);
      if (!click) break;
      if (id == IDOK) { OnOK(); return TRUE; }
      if (id == IDCANCEL) { OnCancel(); return TRUE; }
      if (OnClicked(id)) return TRUE;
      break;
    }
    case WM_NCDESTROY:
      ::SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
      window_ = nullptr;
      return FALSE;
    default:
      break;
  }
  bool handled = false;
  INT_PTR result = OnMessage(message, wParam, lParam, handled);
  return handled ? result : FALSE;
}

INT_PTR CALLBACK CDialog::DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept {
  // Nothing may unwind into the dialog manager: the program is built without
  // exceptions, and noexcept ends it should anything below ever throw.
  CDialog* self = nullptr;
  if (message == WM_INITDIALOG) {
    self = reinterpret_cast<CDialog*>(lParam);
    ::SetWindowLongPtrW(window, GWLP_USERDATA, lParam);
    if (self) self->window_ = window;
  } else {
    self = reinterpret_cast<CDialog*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
  }
  if (!self) return FALSE;
  return self->HandleMessage(message, wParam, lParam);
}
