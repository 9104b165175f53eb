#include "sfx/cabinet.h"

#include <fcntl.h>
#include <fdi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "sys/handles.h"
#include "sys/safe_load.h"

namespace {

// The name FDI is given for the cabinet; our open callback maps it onto the
// cabinet's range of the single file.
char kCabinetName[] = "payload.cab";
char kNoFolder[] = "";

constexpr const wchar_t* kDeviceNames[] = {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"};
constexpr const wchar_t* kNumberedDevices[] = {L"COM", L"LPT"};

// One open file as FDI sees it: the cabinet (a window onto the single file,
// not owned) or a file being unpacked (owned).
struct Stream {
  HANDLE file = INVALID_HANDLE_VALUE;
  bool owned = false;
  uint64_t base = 0;
  uint64_t length = 0;  // the cabinet's; reads stop there
  uint64_t position = 0;
};

struct UnpackJob {
  HANDLE file;
  uint64_t offset;
  uint64_t size;
  std::wstring folder;
  UnpackProgress* progress;
};
// FDI's open callback gets no context; unpacking is single-threaded.
UnpackJob* currentJob = nullptr;

Stream* AsStream(INT_PTR handle) { return reinterpret_cast<Stream*>(handle); }

bool IsDeviceName(const std::wstring& part) {
  std::wstring stem = part.substr(0, part.find(L'.'));
  for (const wchar_t* device : kDeviceNames)
    if (_wcsicmp(stem.c_str(), device) == 0) return true;
  for (const wchar_t* device : kNumberedDevices)
    if (stem.size() == 4 && _wcsnicmp(stem.c_str(), device, 3) == 0 && stem[3] >= L'1' && stem[3] <= L'9')
      return true;
  return false;
}

bool IsSafePart(const std::wstring& part) {
  if (part.empty() || part == L"." || part == L".." || part.back() == L'.' || part.back() == L' ') return false;
  for (wchar_t c : part)
    if (c < 32 || c == L':') return false;
  return !IsDeviceName(part);
}

std::wstring WideName(const char* name, bool utf8) {
  UINT codePage = utf8 ? CP_UTF8 : CP_ACP;
  int length = ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, name, -1, nullptr, 0);
  if (length <= 1) return std::wstring();
  std::wstring wide(static_cast<size_t>(length), L'\0');
  ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, name, -1, wide.data(), length);
  wide.resize(static_cast<size_t>(length - 1));
  return wide;
}

// Creates every folder between the unpack folder and the file.
void CreateParents(const std::wstring& folder, const std::wstring& relative) {
  for (size_t slash = relative.find(L'\\'); slash != std::wstring::npos; slash = relative.find(L'\\', slash + 1))
    ::CreateDirectoryW((folder + L"\\" + relative.substr(0, slash)).c_str(), nullptr);
}

FNALLOC(Allocate) { return std::malloc(cb); }
FNFREE(Free) { std::free(pv); }

FNOPEN(OpenCabinet) {
  (void)oflag;
  (void)pmode;
  if (!currentJob || std::strcmp(pszFile, kCabinetName) != 0) return -1;
  return reinterpret_cast<INT_PTR>(new Stream{currentJob->file, false, currentJob->offset, currentJob->size, 0});
}

FNREAD(ReadStream) {
  Stream* stream = AsStream(hf);
  if (!stream->owned) {
    uint64_t left = stream->position < stream->length ? stream->length - stream->position : 0;
    if (cb > left) cb = static_cast<UINT>(left);
  }
  OVERLAPPED at = {};
  uint64_t where = stream->base + stream->position;
  at.Offset = static_cast<DWORD>(where);
  at.OffsetHigh = static_cast<DWORD>(where >> 32);
  DWORD read = 0;
  if (cb > 0 && !::ReadFile(stream->file, pv, cb, &read, &at)) return static_cast<UINT>(-1);
  stream->position += read;
  return read;
}

FNWRITE(WriteStream) {
  Stream* stream = AsStream(hf);
  DWORD written = 0;
  if (!stream->owned || !::WriteFile(stream->file, pv, cb, &written, nullptr) || written != cb)
    return static_cast<UINT>(-1);
  stream->position += written;
  if (currentJob) currentJob->progress->Advance(written);
  return written;
}

FNCLOSE(CloseStream) {
  Stream* stream = AsStream(hf);
  if (stream->owned) ::CloseHandle(stream->file);
  delete stream;
  return 0;
}

FNSEEK(SeekStream) {
  Stream* stream = AsStream(hf);
  int64_t origin = 0;
  if (seektype == SEEK_CUR) origin = static_cast<int64_t>(stream->position);
  if (seektype == SEEK_END) origin = static_cast<int64_t>(stream->length);
  int64_t target = origin + dist;
  if (target < 0) return -1;
  stream->position = static_cast<uint64_t>(target);
  if (stream->owned) {
    LARGE_INTEGER to = {};
    to.QuadPart = target;
    if (!::SetFilePointerEx(stream->file, to, nullptr, FILE_BEGIN)) return -1;
  }
  return static_cast<LONG>(target);
}

INT_PTR CreateUnpackedFile(const UnpackJob& job, PFDINOTIFICATION note) {
  std::wstring relative = SafeRelativePath(WideName(note->psz1, (note->attribs & _A_NAME_IS_UTF) != 0));
  if (relative.empty()) return -1;
  CreateParents(job.folder, relative);
  // A new file only: a name packed twice is a damaged cabinet.
  HANDLE file = ::CreateFileW((job.folder + L"\\" + relative).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return -1;
  return reinterpret_cast<INT_PTR>(new Stream{file, true, 0, 0, 0});
}

// Keeps the packed time stamp, so the installed files carry the release's dates.
void FinishUnpackedFile(PFDINOTIFICATION note) {
  FILETIME local = {}, utc = {};
  if (::DosDateTimeToFileTime(note->date, note->time, &local) && ::LocalFileTimeToFileTime(&local, &utc))
    ::SetFileTime(AsStream(note->hf)->file, nullptr, nullptr, &utc);
  CloseStream(note->hf);
}

FNFDINOTIFY(Notify) {
  UnpackJob* job = static_cast<UnpackJob*>(pfdin->pv);
  switch (fdint) {
    case fdintCOPY_FILE:
      return CreateUnpackedFile(*job, pfdin);
    case fdintCLOSE_FILE_INFO:
      FinishUnpackedFile(pfdin);
      return TRUE;
    case fdintNEXT_CABINET:
      return -1;  // the package is one cabinet
    default:
      return 0;
  }
}

using FdiCreateFn = decltype(&FDICreate);
using FdiCopyFn = decltype(&FDICopy);
using FdiDestroyFn = decltype(&FDIDestroy);


}  // namespace

std::wstring SafeRelativePath(const std::wstring& name) {
  std::wstring path = name;
  for (wchar_t& c : path)
    if (c == L'/') c = L'\\';
  size_t start = 0;
  for (;;) {
    size_t slash = path.find(L'\\', start);
    if (!IsSafePart(path.substr(start, slash == std::wstring::npos ? std::wstring::npos : slash - start)))
      return std::wstring();
    if (slash == std::wstring::npos) return path;
    start = slash + 1;
  }
}

bool UnpackCabinet(HANDLE file, uint64_t offset, uint64_t size, const std::wstring& folder,
                   UnpackProgress& progress) {
  UniqueModule library(LoadSystemLibrary(L"cabinet.dll"));
  auto fdiCreate = LateBound<FdiCreateFn>(library.get(), "FDICreate");
  auto fdiCopy = LateBound<FdiCopyFn>(library.get(), "FDICopy");
  auto fdiDestroy = LateBound<FdiDestroyFn>(library.get(), "FDIDestroy");
  if (!library || !fdiCreate || !fdiCopy || !fdiDestroy) return false;
  ERF error = {};
  HFDI context = fdiCreate(Allocate, Free, OpenCabinet, ReadStream, WriteStream, CloseStream, SeekStream,
                           cpuUNKNOWN, &error);
  if (!context) return false;
  UnpackJob job{file, offset, size, folder, &progress};
  currentJob = &job;
  BOOL unpacked = fdiCopy(context, kCabinetName, kNoFolder, 0, Notify, nullptr, &job);
  currentJob = nullptr;
  fdiDestroy(context);
  return unpacked != FALSE;
}
