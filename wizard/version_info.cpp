#include "wizard/version_info.h"

#include <windows.h>

#include <vector>

#include "sys/handles.h"
#include "sys/safe_load.h"

namespace {

// version.dll is not one of the DLLs Windows always takes from its own folder,
// so it is loaded here, from the system folder, rather than imported.
struct VersionApi {
  using SizeFn = DWORD(WINAPI*)(LPCWSTR, LPDWORD);
  using InfoFn = BOOL(WINAPI*)(LPCWSTR, DWORD, DWORD, LPVOID);
  using QueryFn = BOOL(WINAPI*)(LPCVOID, LPCWSTR, LPVOID*, PUINT);
  UniqueModule module{LoadSystemLibrary(L"version.dll")};
  SizeFn size = LateBound<SizeFn>(module.get(), "GetFileVersionInfoSizeW");
  InfoFn info = LateBound<InfoFn>(module.get(), "GetFileVersionInfoW");
  QueryFn query = LateBound<QueryFn>(module.get(), "VerQueryValueW");
  bool Complete() const { return size && info && query; }
};

}  // namespace

VersionQuad ReadFileVersion(const std::wstring& path) {
  VersionQuad version;
  const VersionApi api;
  if (!api.Complete()) return version;
  DWORD handle = 0;
  DWORD size = api.size(path.c_str(), &handle);
  if (size == 0) return version;
  std::vector<BYTE> block(size);
  if (!api.info(path.c_str(), 0, size, block.data())) return version;
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  if (!api.query(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) || !fixed ||
      length < sizeof(VS_FIXEDFILEINFO))
    return version;
  version.major = HIWORD(fixed->dwFileVersionMS);
  version.minor = LOWORD(fixed->dwFileVersionMS);
  version.release = HIWORD(fixed->dwFileVersionLS);
  version.build = LOWORD(fixed->dwFileVersionLS);
  return version;
}
