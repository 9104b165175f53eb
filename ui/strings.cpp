#include "ui/strings.h"

#include <cstdarg>
#include <cwchar>
#include <vector>

namespace {
HMODULE resourceModule = nullptr;
}

void SetResourceModule(HMODULE module) { resourceModule = module; }

HMODULE ResourceModule() {
  return resourceModule ? resourceModule : ::GetModuleHandleW(nullptr);
}

std::wstring LoadStr(UINT id) {
  // LoadStringW with a zero length hands out a pointer into the resource itself.
  const wchar_t* text = nullptr;
  int length = ::LoadStringW(ResourceModule(), id, reinterpret_cast<LPWSTR>(&text), 0);
  if (length <= 0 || !text) return std::wstring();
  return std::wstring(text, static_cast<size_t>(length));
}

std::wstring FormatStr(const wchar_t* format, ...) {
  std::vector<wchar_t> buffer(512);
  for (;;) {
    va_list args;
    va_start(args, format);
    // The runtime's own formatter: its %s takes a wide string, as the
    // string-table formats expect (the standard one would take a narrow one).
    int written = _vsnwprintf(buffer.data(), buffer.size() - 1, format, args);
    va_end(args);
    if (written >= 0 && static_cast<size_t>(written) < buffer.size() - 1)
      return std::wstring(buffer.data(), static_cast<size_t>(written));
    if (buffer.size() > (1u << 20)) return std::wstring();
    buffer.resize(buffer.size() * 2);
  }
}
