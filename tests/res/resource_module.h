// The module whose resources the resource tests inspect.
#pragma once
#include <windows.h>

#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace qmtest {

// The built setup.exe beside the test program, mapped as data only (nothing
// of it runs); null when it cannot be loaded.
inline HMODULE ResourceModule() {
  static const UniqueModule module(
      ::LoadLibraryExW((BinDir() + L"\\setup.exe").c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  return module.get();
}

}  // namespace qmtest
