// The one way this program shows a message box: no owner window, caption
// string 2. Tests can answer it without a window.
#pragma once
#include <windows.h>
#include <functional>
#include <string>

// Shows text with style (a style without an icon gets MB_ICONEXCLAMATION); returns the button pressed (IDOK, IDYES, ...).
int AppMessageBox(const std::wstring& text, UINT style);
// The same with the text of string id.
int AppMessageBox(UINT stringId, UINT style);

// Test seam: while set, the responder is asked instead of a window and its
// result is returned. Pass an empty function to show real boxes again.
using MessageBoxResponder = std::function<int(const std::wstring& text, UINT style)>;
void SetMessageBoxResponder(MessageBoxResponder responder);
