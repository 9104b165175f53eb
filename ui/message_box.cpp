#include "ui/message_box.h"

#include "res/resource.h"
#include "sys/action_log.h"
#include "ui/strings.h"

namespace {

MessageBoxResponder& Responder() {
  static MessageBoxResponder responder;
  return responder;
}

bool& Suppressed() {
  static bool suppressed = false;
  return suppressed;
}

const wchar_t* AnswerName(int answer) {
  switch (answer) {
    case IDOK: return L"OK";
    case IDCANCEL: return L"Cancel";
    case IDABORT: return L"Abort";
    case IDRETRY: return L"Retry";
    case IDIGNORE: return L"Ignore";
    case IDYES: return L"Yes";
    case IDNO: return L"No";
    case IDTRYAGAIN: return L"Try Again";
    case IDCONTINUE: return L"Continue";
    default: return L"none";
  }
}

}  // namespace

void SetMessageBoxResponder(MessageBoxResponder responder) {
  Responder() = std::move(responder);
}

void SuppressMessageBoxes(bool suppress) { Suppressed() = suppress; }

int DefaultAnswer(UINT style) {
  const UINT defaultButton = style & MB_DEFMASK;
  const int position = defaultButton == MB_DEFBUTTON2 ? 1 : defaultButton == MB_DEFBUTTON3 ? 2 : 0;
  auto pick = [position](std::initializer_list<int> buttons) {
    return static_cast<size_t>(position) < buttons.size() ? buttons.begin()[position] : buttons.begin()[0];
  };
  switch (style & MB_TYPEMASK) {
    case MB_OKCANCEL: return pick({IDOK, IDCANCEL});
    case MB_ABORTRETRYIGNORE: return pick({IDABORT, IDRETRY, IDIGNORE});
    case MB_YESNOCANCEL: return pick({IDYES, IDNO, IDCANCEL});
    case MB_YESNO: return pick({IDYES, IDNO});
    case MB_RETRYCANCEL: return pick({IDRETRY, IDCANCEL});
    case MB_CANCELTRYCONTINUE: return pick({IDCANCEL, IDTRYAGAIN, IDCONTINUE});
    default: return IDOK;
  }
}

int AppMessageBox(const std::wstring& text, UINT style) {
  // A box whose style names no icon gets the exclamation mark.
  if ((style & MB_ICONMASK) == 0) style |= MB_ICONEXCLAMATION;
  if (Suppressed()) {
    const int answer = DefaultAnswer(style);
    LogAction(L"message box: \"" + text + L"\", answered " + AnswerName(answer) + L" (automatic)");
    return answer;
  }
  int answer = 0;
  if (Responder()) {
    answer = Responder()(text, style);
  } else {
    std::wstring caption = LoadStr(IDS_CAPTION);
    answer = ::MessageBoxW(nullptr, text.c_str(), caption.c_str(), style);
  }
  LogAction(L"message box: \"" + text + L"\", answered " + AnswerName(answer) + L" (given)");
  return answer;
}

int AppMessageBox(UINT stringId, UINT style) {
  return AppMessageBox(LoadStr(stringId), style);
}

bool MessageBoxesSuppressed() { return Suppressed(); }
