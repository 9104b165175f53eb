// COXInstanceManager: a cross-process list of the ids of the running programs
// that opened it under the same name (named mutexes, paging-file mapping).
#pragma once
#include <windows.h>
#include <string>
#include <vector>

inline constexpr UINT InstanceStartedMessage = 1946;  // 0x079A, lParam = new id
inline constexpr UINT InstanceEndedMessage = 1947;    // 0x079B, lParam = removed id
inline constexpr unsigned kMaxInstances = 1000;

class COXInstanceManager {
 public:
  // Creates or opens the mutexes and the mapping for name; registers the
  // current process when registerSelf is non-zero.
  COXInstanceManager(const wchar_t* name, unsigned sharedDataSize, int registerSelf);
  // Unregisters the current process and releases everything.
  virtual ~COXInstanceManager();
  COXInstanceManager(const COXInstanceManager&) = delete;
  COXInstanceManager& operator=(const COXInstanceManager&) = delete;

  // All list operations return 0 / FALSE when the list cannot be mapped.
  BOOL RegisterProcess(DWORD processId);    // FALSE when 1000 ids are listed
  BOOL UnregisterProcess(DWORD processId);  // FALSE when the id was not listed
  int ReadInstanceCount();
  BOOL ReadInstanceIds(std::vector<DWORD>& ids);  // exactly count ids, list order
  int ReadInstanceLimit();
  BOOL WriteInstanceLimit(int limit, BOOL closeSurplus);
  BOOL IsLimitExceeded(BOOL bringForward);
  BOOL HasOtherInstances();
  void* SharedDataView();      // mapped on first call; null without a mapping
  HANDLE SharedDataMutex();    // for callers that use the shared data block
  DWORD SharedDataSize() const;

 private:
  // (members: see instance_manager.cpp owner)
};
