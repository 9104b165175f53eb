// Helpers for the instance tests: stand-in product processes and their trace,
// windows of this process, and the raw view of an instance list.
#pragma once
#include <windows.h>

#include <gtest/gtest.h>

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
struct LocalWindow {
  explicit LocalWindow(const wchar_t* title, DWORD exStyle = 0, HWND owner = nullptr)
      : window(::CreateWindowExW(exStyle, L"STATIC", title, WS_OVERLAPPEDWINDOW, 0, 0, 100, 100, owner, nullptr,
                                 nullptr, nullptr)) {}
  ~LocalWindow() { ::DestroyWindow(window); }
  HWND get() const { return window; }
  HWND window;
};

// One started process; terminated on destruction if still running.
struct ChildProcess {
  bool Start(std::wstring commandLine, DWORD flags = 0) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, flags, nullptr, nullptr, &startup,
                          &info))
      return false;
    process.reset(info.hProcess);
    thread.reset(info.hThread);
    id = info.dwProcessId;
    return true;
  }
  ~ChildProcess() {
    if (process && ::TerminateProcess(process.get(), 99)) WaitEnded(5000);
  }
  bool WaitEnded(DWORD timeoutMs = 30000) const {
    return ::WaitForSingleObject(process.get(), timeoutMs) == WAIT_OBJECT_0;
  }
  DWORD ExitCode() const {
    DWORD code = 0;
    ::GetExitCodeProcess(process.get(), &code);
    return code;
  }

  UniqueHandle process, thread;
  DWORD id = 0;
};

// The stand-ins' trace file ("<pid> <event> [<args>]" lines), made per test
// and named to the children through QM_TRACE_FILE.
class StandinTrace {
 public:
  StandinTrace() { ::SetEnvironmentVariableW(L"QM_TRACE_FILE", path_.c_str()); }
  ~StandinTrace() { ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr); }

  // Whether pid traced a line that starts with event, then a blank or the
  // line end, waiting up to timeoutMs for it.
  bool Has(DWORD pid, const std::string& event, DWORD timeoutMs = 0) const {
    std::string line = '\n' + std::to_string(pid).append(" ").append(event);
    for (DWORD waited = 0;; waited += 20) {
      std::string text = '\n' + ReadFileBytes(path_).append("\n");
      for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1))
        if (std::string(" \r\n").find(text[at + line.size()]) != std::string::npos) return true;
      if (waited >= timeoutMs) return false;
      ::Sleep(20);
    }
  }

 private:
  TempDir dir_{L"qmtrace"};
  std::wstring path_ = dir_ / L"trace.log";
};

// Starts the 8.5.3.0 stand-in on list with extra options and waits until it
// traced "started" (window made, list joined).
inline bool StartStandin(ChildProcess& child, const StandinTrace& trace, const std::wstring& list,
                         const std::wstring& options = std::wstring()) {
  return child.Start(L"\"" + BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe\" -list \"" + list + L"\" " + options) &&
         trace.Has(child.id, "started", 30000);
}

// The words of an instance list's block, mapped directly: [0] limit, [1]
// count, [2..1001] ids; an invalid view when there is no such list.
inline UniqueMapView MapInstanceList(const std::wstring& name) {
  std::wstring mappingName = L"Local\\COXInstanceManager_FileMap_" + name;
  UniqueHandle mapping(::OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, mappingName.c_str()));
  return UniqueMapView(mapping ? ::MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0) : nullptr);
}

}  // namespace qmtest
