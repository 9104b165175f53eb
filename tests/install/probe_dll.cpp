// A DLL that no system has: the install script's library probe must not find it.
#include <windows.h>

extern "C" __declspec(dllexport) int QmEngineProbe() { return 8; }

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) { return TRUE; }
