#include "ui/message_box.h"

#include "res/resource.h"
#include "ui/strings.h"

namespace {
MessageBoxResponder& Responder() {
  static MessageBoxResponder responder;
  return responder;
}
}  // namespace

void SetMessageBoxResponder(MessageBoxResponder responder) {
  Responder() = std::move(responder);
}

int AppMessageBox(const std::wstring& text, UINT style) {
  // A box whose style names no icon gets the exclamation mark.
  if ((style & MB_ICONMASK) == 0) style |= MB_ICONEXCLAMATION;
  if (Responder()) return Responder()(text, style);
  std::wstring caption = LoadStr(IDS_CAPTION);
  return ::MessageBoxW(nullptr, text.c_str(), caption.c_str(), style);
}

int AppMessageBox(UINT stringId, UINT style) {
  return AppMessageBox(LoadStr(stringId), style);
}
