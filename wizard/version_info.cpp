#include "wizard/version_info.h"

#include <windows.h>

#include <vector>

VersionQuad ReadFileVersion(const std::wstring& path) {
  VersionQuad version;
  DWORD handle = 0;
  DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), &handle);
  if (size == 0) return version;
  std::vector<BYTE> block(size);
  if (!::GetFileVersionInfoW(path.c_str(), 0, size, block.data())) return version;
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  if (!::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) || !fixed ||
      length < sizeof(VS_FIXEDFILEINFO))
    return version;
  version.major = HIWORD(fixed->dwFileVersionMS);
  version.minor = LOWORD(fixed->dwFileVersionMS);
  version.release = HIWORD(fixed->dwFileVersionLS);
  version.build = LOWORD(fixed->dwFileVersionLS);
  return version;
}
