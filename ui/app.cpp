#include "ui/app.h"

#include <shellapi.h>

#include "sys/handles.h"

namespace {
CWinApp* currentApp = nullptr;
}

std::vector<std::wstring> ProcessArguments() {
  std::vector<std::wstring> argv;
  int count = 0;
  LPWSTR* list = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (!list) return argv;
  for (int i = 0; i < count; ++i) argv.emplace_back(list[i]);
  ::LocalFree(list);
  return argv;
}

std::wstring ModulePath() {
  wchar_t path[MAX_PATH] = {};
  DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::wstring(path, length < MAX_PATH ? length : 0);
}

CWinApp::CWinApp() { currentApp = this; }

CWinApp::~CWinApp() {
  if (currentApp == this) currentApp = nullptr;
}

CWinApp* CWinApp::Current() { return currentApp; }

int CWinApp::Run() {
  if (!InitInstance()) return exitCode_;
  // Only a modeless main window would keep us here; the wizard is modal and
  // gone by now, so this normally falls straight through.
  MSG msg;
  while (mainWindow_ && ::IsWindow(mainWindow_) && ::GetMessageW(&msg, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&msg);
    ::DispatchMessageW(&msg);
  }
  return exitCode_;
}
