#include "wizard/agreement_dlg.h"

#include <algorithm>

#include "product/product.h"
#include "res/resource.h"
#include "sys/handles.h"

std::wstring ReadAgreementText(const wchar_t* path) {
  UniqueFileHandle file(::CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return std::wstring();
  LARGE_INTEGER size = {};
  if (!::GetFileSizeEx(file.get(), &size) || size.QuadPart <= 1) return std::wstring();
  // The file is not converted: two bytes make one character.
  std::wstring text(static_cast<size_t>(size.QuadPart / 2), L'\0');
  size_t filled = 0;
  while (filled < text.size()) {
    DWORD wanted = static_cast<DWORD>(std::min<size_t>((text.size() - filled) * 2, 1u << 20));
    DWORD read = 0;
    if (!::ReadFile(file.get(), &text[filled], wanted, &read, nullptr) || read == 0) break;
    filled += read / 2;
  }
  text.resize(filled);
  return text;
}

CAgreementDlg::CAgreementDlg(HWND parent) : CDialog(IDD_AGREEMENT, parent) {}

BOOL CAgreementDlg::Create(UINT templateId, HWND parent) {
  return CDialog::Create(templateId, parent);
}

void CAgreementDlg::DoDataExchange(CDataExchange& dx) {
  DDX_Control(dx, IDC_AGREEMENT_TEXT, textBox_);
}

BOOL CAgreementDlg::OnInitDialog() {
  CDialog::OnInitDialog();
  text_ = ReadAgreementText(kAgreementFile);
  textBox_.SetText(text_);
  textBox_.Send(EM_SETSEL, static_cast<WPARAM>(-1), 0);
  textBox_.Send(EM_SCROLLCARET);
  // The frame leaves this page where it is; it sits at the top left, over the
  // place of the hidden picture.
  ::SetWindowPos(GetSafeHwnd(), HWND_TOP, 4, 4, 0, 0, SWP_NOSIZE | SWP_SHOWWINDOW);
  return TRUE;
}
