// Texts of the string table, loaded by number from our own module.
#pragma once
#include <windows.h>
#include <string>

// The module whose resources are used (the running executable by default).
void SetResourceModule(HMODULE module);
HMODULE ResourceModule();
// The string under id; empty when it cannot be loaded (no check is made).
std::wstring LoadStr(UINT id);
// printf-style formatting into a wide string.
std::wstring FormatStr(const wchar_t* format, ...);
