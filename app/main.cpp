// Entry of setup.exe: the setup program, the installed uninstaller and the
// removal worker are all this one executable.
#include <windows.h>

#include "app/product.h"
#include "app/setup_app.h"
#include "instances/instance_manager.h"

// Constructed in this order before wWinMain runs. The application object only
// keeps a reference to the registry; the registry registers this process on
// construction and takes it off the list when destroyed, on every normal exit
// including the removal worker's exit(0).
extern COXInstanceManager theInstanceRegistry;
CSetupApp theApp(theInstanceRegistry);
COXInstanceManager theInstanceRegistry(kInstanceListName, kInstanceSharedDataSize, TRUE);

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int) { return theApp.Run(); }
