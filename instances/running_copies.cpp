#include "instances/running_copies.h"

#include <cwchar>
#include <vector>

#include "instances/instance_manager.h"
#include "product/product.h"
#include "sys/handles.h"

namespace {

struct WindowSearch {
  DWORD processId;
  HWND found;
};

BOOL CALLBACK MatchProductWindow(HWND window, LPARAM param) {
  auto* search = reinterpret_cast<WindowSearch*>(param);
  DWORD owner = 0;
  ::GetWindowThreadProcessId(window, &owner);
  if (owner != search->processId) return TRUE;
  if (::GetWindow(window, GW_OWNER)) return TRUE;
  if (::GetWindowLongW(window, GWL_EXSTYLE) & WS_EX_TOOLWINDOW) return TRUE;
  wchar_t title[512] = {};
  ::GetWindowTextW(window, title, 512);
  if (std::wcscmp(title, L"DDE Server Window") == 0) return TRUE;
  if (std::wcscmp(title, L"OleMainThreadWndName") == 0) return TRUE;
  if (std::wcsstr(title, kProductWord) != title) return TRUE;
  search->found = window;
  return FALSE;
}

}  // namespace

void(WINAPI* pSweepPause)(DWORD milliseconds) = ::Sleep;

HWND FindProcessMainWindow(DWORD processId) {
  WindowSearch search = {processId, nullptr};
  ::EnumWindows(MatchProductWindow, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

BOOL CloseProcessWindow(DWORD processId) {
  HWND window = FindProcessMainWindow(processId);
  if (!window || !::IsWindowEnabled(window)) return FALSE;
  ::PostMessageW(window, WM_CLOSE, 0, 0);
  return TRUE;
}

void BringProcessWindowForward(DWORD processId) {
  HWND window = FindProcessMainWindow(processId);
  if (!window) return;
  ::SetForegroundWindow(window);
  if (::GetWindowLongW(window, GWL_STYLE) & WS_MINIMIZE) ::ShowWindow(window, SW_RESTORE);
}

void CloseRunningCopies(COXInstanceManager& registry, int otherCopies) {
  std::vector<DWORD> ids;
  if (!registry.ReadInstanceIds(ids)) return;
  DWORD self = ::GetCurrentProcessId();
  // Only the first otherCopies entries: this process is taken to be the last
  // one registered. Copies that ended since the count was read leave the list
  // shorter; the sweep stops there.
  int index = 0;
  do {
    if (static_cast<size_t>(index) >= ids.size()) break;
    DWORD id = ids[static_cast<size_t>(index)];
    if (id == self) continue;
    // Posted unchecked: a copy without a qualifying window is terminated anyway.
    ::PostMessageW(FindProcessMainWindow(id), WM_CLOSE, kCloseWithoutAskingParam, 0);
    pSweepPause(10);
    UniqueHandle process(::OpenProcess(PROCESS_TERMINATE, FALSE, id));
    if (process) ::TerminateProcess(process.get(), 0);
  } while (++index < otherCopies);
}
