// COXInstanceManager: a cross-process list of the ids of the running programs
// that opened it under the same name (named mutexes, paging-file mapping).
#pragma once
#include <windows.h>
#include <string>
#include <vector>

#include "sys/handles.h"

inline constexpr UINT InstanceStartedMessage = 1946;  // 0x079A, lParam = new id
inline constexpr UINT InstanceEndedMessage = 1947;    // 0x079B, lParam = removed id
inline constexpr unsigned kMaxInstances = 1000;
// Header (limit, count) and the id list: 8 + 1000 * 4 bytes.
inline constexpr DWORD kInstanceListBlockSize = 8 + kMaxInstances * 4;

// Prefixes of the kernel-object names; the registry name follows directly.
inline constexpr wchar_t kInstanceListMutexPrefix[] = L"Local\\COXInstanceManager_InstanceList_Mutex_";
inline constexpr wchar_t kAdditionalMutexPrefix[] = L"Local\\COXInstanceManager_Additional_Mutex_";
inline constexpr wchar_t kInstanceFileMapPrefix[] = L"Local\\COXInstanceManager_FileMap_";

// The block-size rounding the list has always used: a size that is an exact
// multiple of granularity shrinks to its quotient; any other size becomes
// size / granularity + granularity. Other programs sharing the list compute
// the same layout, so the rule is kept as it is.
DWORD RoundInstanceBlockSize(DWORD size, DWORD granularity);

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

  const std::wstring& Name() const { return name_; }

 private:
  class ListAccess;  // maps the list block, then holds the list mutex

  // Declaration order gives the release order on destruction: the shared
  // data view, the mapping, then the mutexes.
  std::wstring name_;
  DWORD listBlockSize_ = kInstanceListBlockSize;
  DWORD sharedDataSize_ = 0;
  UniqueHandle listMutex_;
  UniqueHandle sharedDataMutex_;
  UniqueHandle mapping_;
  UniqueMapView sharedDataView_;
};
