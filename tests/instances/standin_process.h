// Helpers for the instance tests: stand-in product processes, their trace
// file, windows of this process, and the raw view of an instance list.
#pragma once
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "instances/instance_manager.h"
#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace qmtest {

// A list name no other test (or test run) uses.
inline std::wstring UniqueListName(const wchar_t* tag) {
  static unsigned counter = 0;
  return std::wstring(L"QmTest.") + tag + L"." + std::to_wstring(::GetCurrentProcessId()) + L"." +
         std::to_wstring(++counter);
}

inline std::vector<DWORD> Ids(COXInstanceManager& list) {
  std::vector<DWORD> ids;
  EXPECT_TRUE(list.ReadInstanceIds(ids));
  return ids;
}

// Posted messages in [first, last] waiting in this thread's queue, removed.
inline std::vector<MSG> TakePosted(UINT first = 0, UINT last = 0xFFFF) {
  std::vector<MSG> messages;
  MSG message;
  while (::PeekMessageW(&message, nullptr, first, last, PM_REMOVE | PM_QS_POSTMESSAGE)) messages.push_back(message);
  return messages;
}

// A top-level window of this process, destroyed with the object.
class LocalWindow {
 public:
  explicit LocalWindow(const wchar_t* title, DWORD exStyle = 0, HWND owner = nullptr) {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = ::DefWindowProcW;
    windowClass.hInstance = ::GetModuleHandleW(nullptr);
    windowClass.lpszClassName = L"QmInstanceTestWindow";
    ::RegisterClassW(&windowClass);
    window_ = ::CreateWindowExW(exStyle, windowClass.lpszClassName, title, WS_OVERLAPPEDWINDOW, 0,
                                0, 100, 100, owner, nullptr, windowClass.hInstance, nullptr);
  }
  ~LocalWindow() { ::DestroyWindow(window_); }
  HWND get() const { return window_; }

 private:
  HWND window_ = nullptr;
};

// One started process; terminated on destruction if still running.
class ChildProcess {
 public:
  bool Start(const std::wstring& commandLine, DWORD flags = 0) {
    std::wstring buffer = commandLine;
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessW(nullptr, buffer.data(), nullptr, nullptr, FALSE, flags, nullptr, nullptr,
                          &startup, &info))
      return false;
    process_.reset(info.hProcess);
    thread_.reset(info.hThread);
    id_ = info.dwProcessId;
    return true;
  }
  ~ChildProcess() {
    if (process_ && Running()) ::TerminateProcess(process_.get(), 99);
    if (process_) ::WaitForSingleObject(process_.get(), 5000);
  }
  DWORD id() const { return id_; }
  HANDLE thread() const { return thread_.get(); }
  bool Running() const { return ::WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT; }
  bool WaitEnded(DWORD timeoutMs = 30000) const {
    return ::WaitForSingleObject(process_.get(), timeoutMs) == WAIT_OBJECT_0;
  }
  DWORD ExitCode() const {
    DWORD code = 0;
    ::GetExitCodeProcess(process_.get(), &code);
    return code;
  }

 private:
  UniqueHandle process_, thread_;
  DWORD id_ = 0;
};

// The stand-in's trace file ("<pid> <event> [<args>]" lines), made per test
// and named to the children through QM_TRACE_FILE.
class StandinTrace {
 public:
  StandinTrace() { ::SetEnvironmentVariableW(L"QM_TRACE_FILE", path_.c_str()); }
  ~StandinTrace() { ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr); }

  // The lines of one process without the pid, in order.
  std::vector<std::string> Events(DWORD pid) const {
    std::vector<std::string> events;
    std::istringstream text(ReadFileBytes(path_));
    std::string row, prefix = std::to_string(pid) + " ";
    while (std::getline(text, row)) {
      if (!row.empty() && row.back() == '\r') row.pop_back();
      if (row.compare(0, prefix.size(), prefix) == 0) events.push_back(row.substr(prefix.size()));
    }
    return events;
  }
  // Whether pid traced a line that is event, or starts with event and a blank.
  bool Has(DWORD pid, const std::string& event) const {
    for (const std::string& line : Events(pid))
      if (line == event || line.compare(0, event.size() + 1, event + " ") == 0) return true;
    return false;
  }
  // Polls Has until it holds, up to timeoutMs.
  bool WaitFor(DWORD pid, const std::string& event, DWORD timeoutMs = 30000) const {
    for (DWORD waited = 0; !Has(pid, event); waited += 20) {
      if (waited >= timeoutMs) return false;
      ::Sleep(20);
    }
    return true;
  }

 private:
  TempDir dir_{L"qmtrace"};
  std::wstring path_ = dir_ / L"trace.log";
};

// Starts the 8.5.3.0 stand-in on list with extra options and waits until it
// traced "started" (window made, list joined).
inline bool StartStandin(ChildProcess& child, const StandinTrace& trace, const std::wstring& list,
                         const std::wstring& options = std::wstring()) {
  return child.Start(L"\"" + BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe\" -list \"" + list +
                     L"\" " + options) &&
         trace.WaitFor(child.id(), "started");
}

// The list block of an instance list, mapped directly: words [0] limit,
// [1] count, [2..1001] ids; an invalid view when there is no such list.
inline UniqueMapView MapInstanceList(const std::wstring& name) {
  UniqueHandle mapping(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE,
                                          (L"Local\\COXInstanceManager_FileMap_" + name).c_str()));
  return UniqueMapView(mapping ? ::MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0) : nullptr);
}

}  // namespace qmtest
