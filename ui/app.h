// The application object: one per process. InitInstance decides what the
// process does; Run turns its outcome into the process exit code.
#pragma once
#include <windows.h>
#include <string>
#include <vector>

// The command line split as the C runtime splits it; [0] is the program.
std::vector<std::wstring> ProcessArguments();
// Full path of the running executable.
std::wstring ModulePath();

class CWinApp {
 public:
  CWinApp();
  virtual ~CWinApp();
  CWinApp(const CWinApp&) = delete;
  CWinApp& operator=(const CWinApp&) = delete;

  // TRUE keeps the process in the message loop while a main window exists;
  // with no main window (the usual case here) the process ends at once.
  virtual BOOL InitInstance() { return FALSE; }
  // Runs InitInstance and, if asked, the message loop; returns the exit code.
  int Run();

  void SetExitCode(int code) { exitCode_ = code; }
  int ExitCode() const { return exitCode_; }
  void SetMainWindow(HWND window) { mainWindow_ = window; }
  HWND MainWindow() const { return mainWindow_; }

  static CWinApp* Current();

 private:
  int exitCode_ = 0;
  HWND mainWindow_ = nullptr;
};
