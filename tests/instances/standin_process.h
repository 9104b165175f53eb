// Helpers for the instance tests: stand-in product processes, their trace
// file, and the raw view of an instance list.
#pragma once
#include <windows.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "sys/handles.h"
#include "tests/support/test_support.h"

namespace qmtest {

// A list name no other test (or test run) uses.
inline std::wstring UniqueListName(const wchar_t* tag) {
  static unsigned counter = 0;
  return std::wstring(L"QmTest.") + tag + L"." + std::to_wstring(::GetCurrentProcessId()) + L"." +
         std::to_wstring(++counter);
}

inline std::wstring StandinPath(const wchar_t* folder = L"standin-8.5.3.0") {
  return BinDir() + L"\\" + folder + L"\\Qmkview8.exe";
}

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
    if (process_ && Running()) {
      ::TerminateProcess(process_.get(), 99);
      ::WaitForSingleObject(process_.get(), 5000);
    }
  }
  DWORD id() const { return id_; }
  HANDLE handle() const { return process_.get(); }
  HANDLE thread() const { return thread_.get(); }
  bool Running() const { return ::WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT; }
  bool WaitEnded(DWORD timeoutMs) const {
    return ::WaitForSingleObject(process_.get(), timeoutMs) == WAIT_OBJECT_0;
  }
  DWORD ExitCode() const {
    DWORD code = 0;
    ::GetExitCodeProcess(process_.get(), &code);
    return code;
  }

 private:
  UniqueHandle process_;
  UniqueHandle thread_;
  DWORD id_ = 0;
};

// The stand-in's trace file, made per test and named to the children
// through QM_TRACE_FILE.
class StandinTrace {
 public:
  StandinTrace() : path_(dir_ / L"trace.log") {
    ::SetEnvironmentVariableW(L"QM_TRACE_FILE", path_.c_str());
  }
  ~StandinTrace() { ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr); }

  struct Line {
    DWORD pid;
    std::string event;
    std::string args;
  };
  std::vector<Line> Lines() const {
    std::vector<Line> lines;
    std::istringstream text(ReadFileBytes(path_));
    std::string row;
    while (std::getline(text, row)) {
      if (!row.empty() && row.back() == '\r') row.pop_back();
      std::istringstream fields(row);
      Line line = {};
      fields >> line.pid >> line.event;
      std::getline(fields >> std::ws, line.args);
      lines.push_back(line);
    }
    return lines;
  }
  // Events of one process, in order.
  std::vector<std::string> Events(DWORD pid) const {
    std::vector<std::string> events;
    for (const Line& line : Lines())
      if (line.pid == pid) events.push_back(line.args.empty() ? line.event : line.event + " " + line.args);
    return events;
  }
  bool Has(DWORD pid, const std::string& event) const {
    std::vector<std::string> events = Events(pid);
    return std::find(events.begin(), events.end(), event) != events.end();
  }
  bool HasEvent(DWORD pid, const std::string& event) const {
    for (const Line& line : Lines())
      if (line.pid == pid && line.event == event) return true;
    return false;
  }
  // Polls until pid traced event (the event word alone), up to timeoutMs.
  bool WaitFor(DWORD pid, const std::string& event, DWORD timeoutMs = 30000) const {
    for (DWORD waited = 0;; waited += 20) {
      if (HasEvent(pid, event)) return true;
      if (waited >= timeoutMs) return false;
      ::Sleep(20);
    }
  }
  const std::wstring& path() const { return path_; }

 private:
  TempDir dir_{L"qmtrace"};
  std::wstring path_;
};

// Starts the stand-in on list with extra options and waits until it traced
// "started" (window made, list joined).
inline bool StartStandin(ChildProcess& child, const StandinTrace& trace, const std::wstring& list,
                         const std::wstring& options = std::wstring(),
                         const wchar_t* folder = L"standin-8.5.3.0") {
  std::wstring command = L"\"" + StandinPath(folder) + L"\" -list \"" + list + L"\"";
  if (!options.empty()) command += L" " + options;
  return child.Start(command) && trace.WaitFor(child.id(), "started");
}

// The list block of an instance list, mapped directly: [0] limit, [1] count,
// [2..1001] ids.
class RawInstanceList {
 public:
  explicit RawInstanceList(const std::wstring& name)
      : mapping_(::OpenFileMappingW(FILE_MAP_READ | FILE_MAP_WRITE, FALSE,
                                    (L"Local\\COXInstanceManager_FileMap_" + name).c_str())) {
    if (mapping_) view_.reset(::MapViewOfFile(mapping_.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
  }
  bool valid() const { return view_.valid(); }
  DWORD* words() const { return static_cast<DWORD*>(view_.get()); }
  DWORD& limit() const { return words()[0]; }
  DWORD& count() const { return words()[1]; }
  DWORD* ids() const { return words() + 2; }
  SIZE_T RegionSize() const {
    MEMORY_BASIC_INFORMATION info = {};
    ::VirtualQuery(view_.get(), &info, sizeof info);
    return info.RegionSize;
  }

 private:
  UniqueHandle mapping_;
  UniqueMapView view_;
};

// Posted messages in [first, last] waiting in this thread's queue, removed.
inline std::vector<MSG> TakePosted(UINT first, UINT last) {
  std::vector<MSG> messages;
  MSG message;
  while (::PeekMessageW(&message, nullptr, first, last, PM_REMOVE)) messages.push_back(message);
  return messages;
}

}  // namespace qmtest
