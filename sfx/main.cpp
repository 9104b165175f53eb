// The single-file package: this stub with the package behind it as one
// cabinet (layout: payload_format.h). It checks the package, unpacks it into
// a private temporary folder, runs setup.exe from there with "-sfxname=" and
// its own arguments, waits, removes the folder and ends with setup's code.
#include <windows.h>
#include <shellapi.h>

#include <string>

#include "product/exit_codes.h"
#include "product/product.h"
#include "res/resource.h"
#include "sfx/cabinet.h"
#include "sfx/crypto.h"
#include "sfx/payload.h"
#include "sfx/private_folder.h"
#include "sfx/progress_window.h"
#include "sys/handles.h"
#include "sys/process.h"
#include "sys/safe_load.h"
#include "ui/message_box.h"

extern "C" int WinMainCRTStartup();

// The image's entry point: the DLL search is narrowed to the system folder
// before the C runtime, or anything else, can load a library.
extern "C" int SfxEntry() {
  RestrictDllSearch();
  return WinMainCRTStartup();
}

namespace {

// Why the stub ends without setup's exit code (product/exit_codes.h).
enum class StubFailure { kDamaged, kNotUnpacked };

constexpr wchar_t kSfxOption[] = L"-sfxname=";
constexpr DWORD kLongestPath = 32768;

struct StubOptions {
  bool silent = false;                // "-s": no progress window
  bool suppressMessageBoxes = false;  // "-suppressmsgboxes": no box, no page opened
};

StubOptions ScanStubOptions() {
  StubOptions options;
  int count = 0;
  LPWSTR* argv = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (!argv) return options;
  for (int i = 1; i < count; ++i) {
    if (_wcsicmp(argv[i], L"-s") == 0) options.silent = true;
    if (_wcsicmp(argv[i], L"-suppressmsgboxes") == 0) options.suppressMessageBoxes = true;
  }
  ::LocalFree(argv);
  return options;
}

// The command line as given, less the program name (skipped the way the C
// runtime skips it), so that setup gets the arguments exactly as typed.
std::wstring ArgumentsAfterProgram(const wchar_t* commandLine) {
  const wchar_t* p = commandLine;
  if (*p == L'"') {
    for (++p; *p && *p != L'"'; ++p) {
    }
    if (*p) ++p;
  } else {
    while (*p && *p != L' ' && *p != L'\t') ++p;
  }
  while (*p == L' ' || *p == L'\t') ++p;
  return p;
}

// Full path of this executable; empty on failure.
std::wstring OwnPath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return std::wstring();
    if (length < path.size()) return path.substr(0, length);
    if (path.size() >= kLongestPath) return std::wstring();
    path.resize(path.size() * 2);
  }
}

int Fail(const StubOptions& options, StubFailure failure) {
  if (!options.suppressMessageBoxes) {
    if (failure == StubFailure::kDamaged) {
      // As setup does: the message, then the maker's page to download from.
      AppMessageBox(IDS_PACKAGE_DAMAGED, MB_OK | MB_ICONERROR);
      ::ShellExecuteW(nullptr, L"open", kMakerHomePage, nullptr, nullptr, SW_SHOW);
    } else {
      AppMessageBox(IDS_SFX_UNPACK_FAILED, MB_OK | MB_ICONERROR);
    }
  }
  return failure == StubFailure::kDamaged ? kExitCancelled : kExitNotUnpacked;
}

// Runs setup.exe of folder in that folder (it reads "agreement.txt" from its
// current folder) and waits for it; false when it could not be started.
bool RunSetup(const std::wstring& folder, const std::wstring& self, const std::wstring& arguments,
              DWORD& exitCode) {
  const std::wstring program = folder + L"\\" + kSetupExe;
  std::wstring commandLine = L"\"" + program + L"\" " + kSfxOption + L"\"" + self + L"\"";
  if (!arguments.empty()) commandLine += L" " + arguments;
  UniqueHandle process = StartProcess(program, commandLine, folder.c_str());
  if (!process) return false;
  ::WaitForSingleObject(process.get(), INFINITE);
  return ::GetExitCodeProcess(process.get(), &exitCode) != FALSE;
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, LPWSTR, int) {
  const StubOptions options = ScanStubOptions();
  const std::wstring self = OwnPath();
  CryptoProvider crypto;
  PrivateTempFolder folder;
  {
    UniqueFileHandle file(::CreateFileW(self.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    PayloadLocation payload;
    if (self.empty() || !file || !FindVerifiedPayload(file.get(), crypto, payload))
      return Fail(options, StubFailure::kDamaged);
    if (!folder.Create(crypto)) return Fail(options, StubFailure::kNotUnpacked);
    ProgressWindow progress(payload.unpackedSize, !options.silent && DesktopIsVisible());
    if (!UnpackCabinet(file.get(), payload.offset, payload.size, folder.path(), progress)) {
      folder.Remove();
      return Fail(options, StubFailure::kNotUnpacked);
    }
  }
  DWORD exitCode = 0;
  const bool ran = RunSetup(folder.path(), self, ArgumentsAfterProgram(::GetCommandLineW()), exitCode);
  folder.Remove();
  return ran ? static_cast<int>(exitCode) : Fail(options, StubFailure::kNotUnpacked);
}
