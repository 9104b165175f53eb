#include "instances/instance_manager.h"

#include <cstring>

#include "instances/running_copies.h"

DWORD RoundInstanceBlockSize(DWORD size, DWORD granularity) {
  if (granularity == 0) return size;
  if (size % granularity == 0) return size / granularity;
  return size / granularity + granularity;
}

// One list operation: the view is mapped before the mutex is taken and
// unmapped before it is released. valid() is false when there is no mapping
// or the view could not be mapped; nothing is locked then.
class COXInstanceManager::ListAccess {
 public:
  ListAccess(HANDLE mapping, DWORD size, HANDLE mutex) : mutex_(mutex) {
    if (mapping)
      view_.reset(::MapViewOfFile(mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, size));
    if (!view_) return;
    DWORD wait = ::WaitForSingleObject(mutex_, INFINITE);
    locked_ = wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED;
  }
  ~ListAccess() {
    view_.reset();
    if (locked_) ::ReleaseMutex(mutex_);
  }
  ListAccess(const ListAccess&) = delete;
  ListAccess& operator=(const ListAccess&) = delete;

  bool valid() const { return view_.valid(); }
  DWORD* words() const { return static_cast<DWORD*>(view_.get()); }
  DWORD& limit() const { return words()[0]; }
  DWORD& count() const { return words()[1]; }
  DWORD* ids() const { return words() + 2; }

 private:
  HANDLE mutex_;
  UniqueMapView view_;
  bool locked_ = false;
};

COXInstanceManager::COXInstanceManager(const wchar_t* name, unsigned sharedDataSize,
                                       int registerSelf)
    : name_(name ? name : L""), sharedDataSize_(sharedDataSize) {
  listMutex_.reset(::CreateMutexW(nullptr, FALSE, (kInstanceListMutexPrefix + name_).c_str()));
  sharedDataMutex_.reset(::CreateMutexW(nullptr, FALSE, (kAdditionalMutexPrefix + name_).c_str()));
  listBlockSize_ = kInstanceListBlockSize;

  SYSTEM_INFO system = {};
  ::GetSystemInfo(&system);
  listBlockSize_ = RoundInstanceBlockSize(listBlockSize_, system.dwAllocationGranularity);
  sharedDataSize_ = RoundInstanceBlockSize(sharedDataSize_, system.dwAllocationGranularity);

  mapping_.reset(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_COMMIT, 0,
                                      listBlockSize_ + sharedDataSize_,
                                      (kInstanceFileMapPrefix + name_).c_str()));
  if (::GetLastError() != ERROR_ALREADY_EXISTS) {
    ListAccess list(mapping_.get(), listBlockSize_, listMutex_.get());
    if (list.valid()) {
      list.limit() = 1;
      list.count() = 0;
      std::memset(list.ids(), 0, kMaxInstances * sizeof(DWORD));
    }
  }
  if (registerSelf) RegisterProcess(::GetCurrentProcessId());
}

COXInstanceManager::~COXInstanceManager() {
  UnregisterProcess(::GetCurrentProcessId());
  // The members release the shared data view, the mapping and the mutexes.
}

BOOL COXInstanceManager::RegisterProcess(DWORD processId) {
  ListAccess list(mapping_.get(), listBlockSize_, listMutex_.get());
  if (!list.valid()) return FALSE;
  if (list.count() >= kMaxInstances) return FALSE;
  // The window lookup is passed on unchecked: without a window the message
  // lands in this thread's own queue.
  for (DWORD i = 0; i < list.count(); ++i)
    ::PostMessageW(FindProcessMainWindow(list.ids()[i]), InstanceStartedMessage, 0,
                   static_cast<LPARAM>(processId));
  list.ids()[list.count()] = processId;
  ++list.count();
  return TRUE;
}

BOOL COXInstanceManager::UnregisterProcess(DWORD processId) {
  ListAccess list(mapping_.get(), listBlockSize_, listMutex_.get());
  if (!list.valid()) return FALSE;
  DWORD count = list.count();
  if (count > kMaxInstances) count = kMaxInstances;  // a damaged header must not walk off the view
  DWORD* ids = list.ids();
  DWORD index = 0;
  while (index < count && ids[index] != processId) ++index;
  if (index == count) return FALSE;
  std::memmove(ids + index, ids + index + 1, (count - index - 1) * sizeof(DWORD));
  // The zero goes one slot past the former last entry, as the list has always
  // done; the former last id stays behind the new count.
  ids[count] = 0;
  list.count() = count - 1;
  for (DWORD i = 0; i < list.count(); ++i)
    ::PostMessageW(FindProcessMainWindow(ids[i]), InstanceEndedMessage, 0,
                   static_cast<LPARAM>(processId));
  return TRUE;
}

int COXInstanceManager::ReadInstanceCount() {
  ListAccess list(mapping_.get(), listBlockSize_, listMutex_.get());
  if (!list.valid()) return 0;
  return static_cast<int>(list.count());
}

BOOL COXInstanceManager::ReadInstanceIds(std::vector<DWORD>& ids) {
  ListAccess list(mapping_.get(), listBlockSize_, listMutex_.get());
  if (!list.valid()) return FALSE;
  DWORD count = list.count() > kMaxInstances ? kMaxInstances : list.count();
  ids.assign(list.ids(), list.ids() + count);
  return TRUE;
}

int COXInstanceManager::ReadInstanceLimit() {
  ListAccess list(mapping_.get(), listBlockSize_, listMutex_.get());
  if (!list.valid()) return 0;
  return static_cast<int>(list.limit());
}

BOOL COXInstanceManager::WriteInstanceLimit(int limit, BOOL closeSurplus) {
  std::vector<DWORD> ids;
  {
    ListAccess list(mapping_.get(), listBlockSize_, listMutex_.get());
    if (!list.valid()) return FALSE;
    list.limit() = static_cast<DWORD>(limit);
    DWORD count = list.count() > kMaxInstances ? kMaxInstances : list.count();
    ids.assign(list.ids(), list.ids() + count);
  }
  int surplus = static_cast<int>(ids.size()) - limit;
  if (!closeSurplus || surplus < 1) return TRUE;
  DWORD self = ::GetCurrentProcessId();
  for (size_t i = ids.size(); i-- > 0 && surplus >= 1;) {
    if (ids[i] == self) continue;
    if (CloseProcessWindow(ids[i])) --surplus;
  }
  if (surplus >= 1) CloseProcessWindow(self);
  return TRUE;
}

BOOL COXInstanceManager::IsLimitExceeded(BOOL bringForward) {
  ListAccess list(mapping_.get(), listBlockSize_, listMutex_.get());
  if (!list.valid()) return FALSE;
  DWORD count = list.count();
  BOOL exceeded = count > list.limit();
  if (exceeded && bringForward) {
    DWORD self = ::GetCurrentProcessId();
    DWORD chosen = count > 0 ? list.ids()[0] : 0;
    if (chosen == self && count >= 2) chosen = list.ids()[1];
    if ((chosen != self || count >= 2) && chosen != 0) BringProcessWindowForward(chosen);
  }
  return exceeded;
}

BOOL COXInstanceManager::HasOtherInstances() { return ReadInstanceCount() > 1; }

void* COXInstanceManager::SharedDataView() {
  if (sharedDataView_) return sharedDataView_.get();
  if (!mapping_) return nullptr;
  sharedDataView_.reset(::MapViewOfFile(mapping_.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0,
                                        listBlockSize_, sharedDataSize_));
  return sharedDataView_.get();
}

HANDLE COXInstanceManager::SharedDataMutex() { return sharedDataMutex_.get(); }

DWORD COXInstanceManager::SharedDataSize() const { return sharedDataSize_; }
