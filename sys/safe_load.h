// Loading code only from the system folder. setup.exe runs elevated from a
// Downloads folder, and its removal worker from the temporary folder: a DLL
// or program planted beside either must never be loaded or started.
#pragma once
#include <windows.h>

#include <string>

// Limits the DLL search of the whole process, system DLLs' own later loads
// included, to the system folder (the side-by-side assemblies of the manifest
// still apply). Where the system lacks that switch, takes the current folder
// out of the search and makes path searches look in the current folder last.
// Called before the C runtime starts: uses nothing but kernel32.
void RestrictDllSearch();

// The system folder with "\" and name appended; empty when the system folder
// cannot be read. A 32-bit process on 64-bit Windows is redirected from this
// path to the 32-bit system folder by the file system itself.
std::wstring SystemFolderPath(const wchar_t* name);

// Loads the DLL name from the system folder, never from elsewhere. Null on
// failure (GetLastError tells why); the caller frees it (UniqueModule).
HMODULE LoadSystemLibrary(const wchar_t* name);

// The function name that module exports, as the pointer type Fn; null when
// module is null or lacks it. Bound late so that a system without the
// function still loads the program.
template <typename Fn>
Fn LateBound(HMODULE module, const char* name) {
  return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(module, name))) : nullptr;
}

// The same from a DLL the process has mapped already (kernel32, advapi32):
// nothing is loaded and nothing has to be freed. Null when it is not mapped.
template <typename Fn>
Fn LateBound(const wchar_t* mappedModule, const char* name) {
  return LateBound<Fn>(::GetModuleHandleW(mappedModule), name);
}

// True when the system folder holds a loadable DLL called name. Maps it as
// data only: none of its code runs.
bool SystemFolderHasLibrary(const std::wstring& name);
