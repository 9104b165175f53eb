// Helper of the end-to-end scripts; prints its findings as UTF-8 lines.
//   e2e_probe answer <button id> [timeout ms]
//       waits for a message box captioned "Quillmark Setup", prints its text,
//       presses the button; exit code 0, or 1 when no box came.
//   e2e_probe resolve <lnk file>
//       prints the shortcut's target, working folder and arguments, one a line.
//   e2e_probe kill <pid>
//       terminates the process (a product started by setup).
#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "sys/handles.h"

namespace {

void PrintLine(const std::wstring& text) {
  std::string bytes(text.size() * 3, '\0');
  bytes.resize(::WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), bytes.data(),
                                     static_cast<int>(bytes.size()), nullptr, nullptr));
  std::printf("%s\n", bytes.c_str());
  std::fflush(stdout);
}

int Answer(int button, DWORD timeoutMs) {
  for (DWORD waited = 0; waited < timeoutMs; waited += 100, ::Sleep(100)) {
    HWND box = ::FindWindowW(L"#32770", L"Quillmark Setup");
    if (!box) continue;
    // A message box keeps its text in the static control 0xFFFF.
    wchar_t text[4096] = {};
    ::GetDlgItemTextW(box, 0xFFFF, text, 4096);
    PrintLine(text);
    ::PostMessageW(box, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED), 0);
    return 0;
  }
  return 1;
}

int Resolve(const wchar_t* linkPath) {
  if (FAILED(::CoInitialize(nullptr))) return 2;
  int result = 1;
  {
    ComPtr<IShellLinkW> link;
    ComPtr<IPersistFile> file;
    if (SUCCEEDED(::CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                     link.put_void())) &&
        SUCCEEDED(link->QueryInterface(IID_IPersistFile, file.put_void())) &&
        SUCCEEDED(file->Load(linkPath, STGM_READ))) {
      wchar_t target[MAX_PATH] = {}, folder[MAX_PATH] = {}, arguments[1024] = {};
      link->GetPath(target, MAX_PATH, nullptr, SLGP_RAWPATH);
      link->GetWorkingDirectory(folder, MAX_PATH);
      link->GetArguments(arguments, 1024);
      for (const wchar_t* line : {target, folder, arguments}) PrintLine(line);
      result = 0;
    }
  }
  ::CoUninitialize();
  return result;
}

int Kill(DWORD pid) {
  UniqueHandle process(::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid));
  if (!process) return 1;
  ::TerminateProcess(process.get(), 0);
  ::WaitForSingleObject(process.get(), 5000);
  return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 3) return 2;
  std::wstring command = argv[1];
  if (command == L"answer")
    return Answer(std::wcstol(argv[2], nullptr, 10),
                  argc > 3 ? std::wcstoul(argv[3], nullptr, 10) : 30000);
  if (command == L"resolve") return Resolve(argv[2]);
  if (command == L"kill") return Kill(std::wcstoul(argv[2], nullptr, 10));
  return 2;
}
