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

// "-suppressmsgboxes": while on, no box is shown; each call returns the
// style's default button at once. Every box, shown or not, is written to the
// action log with its answer.
void SuppressMessageBoxes(bool suppress);
bool MessageBoxesSuppressed();
// The button a box of style answers by default (MB_DEFBUTTON1..3 of its type).
int DefaultAnswer(UINT style);

// Test seam: while set, the responder is asked instead of a window and its
// result is returned. Pass an empty function to show real boxes again.
using MessageBoxResponder = std::function<int(const std::wstring& text, UINT style)>;
void SetMessageBoxResponder(MessageBoxResponder responder);
