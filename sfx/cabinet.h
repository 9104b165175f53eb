// Unpacking the package's cabinet with the system's own cabinet library,
// which is loaded from the system folder when needed (it is no KnownDLL).
#pragma once
#include <windows.h>

#include <cstdint>
#include <string>

// Told how many bytes have been written so far, after every write.
class UnpackProgress {
 public:
  virtual ~UnpackProgress() = default;
  virtual void Advance(uint64_t bytes) = 0;
};

// Unpacks the cabinet at [offset, offset + size) of file (open for reading)
// into folder, which exists. False when the library cannot be loaded, the
// cabinet is malformed, a name would lead out of the folder or name a device,
// or a file cannot be written; what was written is then left for the caller
// to remove with the folder.
bool UnpackCabinet(HANDLE file, uint64_t offset, uint64_t size, const std::wstring& folder,
                   UnpackProgress& progress);

// The packed name as a path below the folder ('/' taken as '\'), or empty
// when it is absolute, names a drive or a stream, holds an empty, "." or ".."
// part, a control character, a part ending in a dot or blank, or a device name.
std::wstring SafeRelativePath(const std::wstring& name);
