// The module whose resources the resource tests inspect.
#pragma once
#include <windows.h>

#include "tests/support/test_support.h"

namespace qmtest {

// The built setup.exe beside the test program, mapped as data only (nothing
// of it runs); null when it cannot be loaded.
inline HMODULE ResourceModule() {
  static HMODULE module = ::GetModuleHandleW(nullptr);
  return module;
}

}  // namespace qmtest
