// Entry of setup.exe: the setup program, the installed uninstaller and the
// removal worker are all this one executable.
#include <windows.h>

#include "app/setup_app.h"
#include "instances/instance_manager.h"
#include "product/product.h"
#include "sys/safe_load.h"

// Constructed in this order before wWinMain runs. The application object only
// keeps a reference to the registry; the registry registers this process on
// construction and takes it off the list when destroyed, on every normal exit
// including the removal worker's exit(0).
extern COXInstanceManager theInstanceRegistry;
CSetupApp theApp(theInstanceRegistry);
COXInstanceManager theInstanceRegistry(kInstanceListName, kInstanceSharedDataSize, TRUE);

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int) { return theApp.Run(); }

// The image's entry point (set by the linker): the DLL search is restricted
// before the C runtime or any static object runs, since whatever loads a DLL
// later (the runtime, the shell, a system DLL's own imports) would otherwise
// look in the program's folder first: a Downloads folder, or the temporary
// folder of the removal worker.
extern "C" int WinMainCRTStartup();
extern "C" int SetupEntry() {
  RestrictDllSearch();
  return WinMainCRTStartup();
}
