// Move-only owners for Win32 handles, keys, find handles, mapping views,
// modules and COM pointers: whatever is opened is closed on every path.
// Closing keeps the thread's last-error value, so that a caller can still ask
// GetLastError why the call before it failed.
#pragma once
#include <windows.h>
#include <objbase.h>
#include <utility>

template <typename Traits>
class UniqueAny {
 public:
  using pointer = typename Traits::type;
  UniqueAny() noexcept : value_(Traits::Invalid()) {}
  explicit UniqueAny(pointer value) noexcept : value_(value) {}
  UniqueAny(const UniqueAny&) = delete;
  UniqueAny& operator=(const UniqueAny&) = delete;
  UniqueAny(UniqueAny&& other) noexcept : value_(other.release()) {}
  UniqueAny& operator=(UniqueAny&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~UniqueAny() { reset(); }

  pointer get() const noexcept { return value_; }
  bool valid() const noexcept { return value_ != Traits::Invalid(); }
  explicit operator bool() const noexcept { return valid(); }
  pointer release() noexcept { return std::exchange(value_, Traits::Invalid()); }
  void reset(pointer value = Traits::Invalid()) noexcept {
    pointer old = std::exchange(value_, value);
    if (old == Traits::Invalid()) return;
    const DWORD error = ::GetLastError();
    Traits::Close(old);
    ::SetLastError(error);
  }
  // For out-parameters: closes what is held and hands out the slot.
  pointer* put() noexcept { reset(); return &value_; }

 private:
  pointer value_;
};

struct HandleTraits {  // processes, threads, mutexes, mappings, tokens
  using type = HANDLE;
  static type Invalid() { return nullptr; }
  static void Close(type h) { ::CloseHandle(h); }
};
struct FileHandleTraits {  // CreateFile, snapshots: INVALID_HANDLE_VALUE means none
  using type = HANDLE;
  static type Invalid() { return INVALID_HANDLE_VALUE; }
  static void Close(type h) { ::CloseHandle(h); }
};
struct FindHandleTraits {
  using type = HANDLE;
  static type Invalid() { return INVALID_HANDLE_VALUE; }
  static void Close(type h) { ::FindClose(h); }
};
struct RegKeyTraits {
  using type = HKEY;
  static type Invalid() { return nullptr; }
  static void Close(type k) { ::RegCloseKey(k); }
};
struct MapViewTraits {
  using type = void*;
  static type Invalid() { return nullptr; }
  static void Close(type v) { ::UnmapViewOfFile(v); }
};
struct ModuleTraits {  // LoadLibrary results only, never GetModuleHandle
  using type = HMODULE;
  static type Invalid() { return nullptr; }
  static void Close(type m) { ::FreeLibrary(m); }
};

using UniqueHandle = UniqueAny<HandleTraits>;
using UniqueFileHandle = UniqueAny<FileHandleTraits>;
using UniqueFindHandle = UniqueAny<FindHandleTraits>;
using UniqueRegKey = UniqueAny<RegKeyTraits>;
using UniqueMapView = UniqueAny<MapViewTraits>;
using UniqueModule = UniqueAny<ModuleTraits>;

// COM interface pointer owner (Release on destruction).
template <typename T>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  ComPtr& operator=(ComPtr&& other) noexcept {
    if (this != &other) { reset(); p_ = std::exchange(other.p_, nullptr); }
    return *this;
  }
  ~ComPtr() { reset(); }
  T* get() const { return p_; }
  T* operator->() const { return p_; }
  explicit operator bool() const { return p_ != nullptr; }
  void reset() { if (p_) { p_->Release(); p_ = nullptr; } }
  T** put() { reset(); return &p_; }
  void** put_void() { return reinterpret_cast<void**>(put()); }

 private:
  T* p_ = nullptr;
};
