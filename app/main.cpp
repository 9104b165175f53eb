#include <windows.h>

// Entry point; the application object arrives with the start-up code.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int) { return 4; }
