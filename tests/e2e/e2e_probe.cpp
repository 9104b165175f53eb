// Helper of the end-to-end scripts; prints its findings as UTF-8 lines. Exit
// code 0, or 1 when the window, control or box is not there (or, for "click",
// hidden or disabled). Waits poll the real window, up to the milliseconds given.
//   answer <button id> [ms]   presses the button of the next message box captioned
//                             "Quillmark Setup" and prints the box's text
//   resolve <lnk file>        prints target, working folder and arguments
//   sddl <path>               prints the access list of a file or folder (SDDL)
//   hold <file> <flag file>   holds the file open against deletion and renaming,
//                             creates the flag file, prints "held", and lets go
//                             once the flag file is deleted
// A window is the decimal handle that "find" printed; a control an id among its
// descendants (the pages are child dialogs of the frame), visible ones first.
//   find <title> <ms>         waits for a visible top-level window with that title
//   dump <window>             "caption<TAB>text", then per control: depth, id, class,
//                             visible, enabled, check state, text (\n for line breaks)
//   wait-text <window> <id> <ms> <text>   until the control shows the text
//   click <window> <id>       clicks a visible, enabled button
//   command <window> <id>     sends the window the command of that button
//   select-folder <browser> <folder> <ms>   selects the folder in a folder browser
//                             as its own callback would, until its folder box names it
#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>
#include <aclapi.h>
#include <sddl.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sys/handles.h"

namespace {

void Print(const std::wstring& text) {
  std::string bytes(text.size() * 3 + 1, '\0');
  bytes.resize(::WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), bytes.data(),
                                     static_cast<int>(bytes.size()), nullptr, nullptr));
  std::printf("%s\n", bytes.c_str());
}

// Another process's window text, line breaks written as \n unless raw; a hung
// window gives an empty one.
std::wstring TextOf(HWND window, bool raw = false) {
  wchar_t text[4096] = {};
  DWORD_PTR copied = 0;
  ::SendMessageTimeoutW(window, WM_GETTEXT, 4096, reinterpret_cast<LPARAM>(text), SMTO_ABORTIFHUNG, 5000, &copied);
  std::wstring escaped;
  if (raw) return text;
  for (wchar_t c : std::wstring(text)) escaped += c == L'\n' ? L"\\n" : c == L'\r' ? L"" : std::wstring(1, c);
  return escaped;
}

std::wstring ClassOf(HWND window) {
  wchar_t name[256] = {};
  ::GetClassNameW(window, name, 256);
  return name;
}

// Every descendant of root with its depth, parents before their children.
void Descendants(HWND root, int depth, std::vector<std::pair<HWND, int>>& out) {
  for (HWND child = ::GetWindow(root, GW_CHILD); child; child = ::GetWindow(child, GW_HWNDNEXT)) {
    out.push_back({child, depth});
    Descendants(child, depth + 1, out);
  }
}

// The control of that id; buttonsOnly skips other classes (the frame's
// picture shares its id with a radio button).
HWND Control(HWND root, int id, bool buttonsOnly = false) {
  std::vector<std::pair<HWND, int>> all;
  Descendants(root, 1, all);
  HWND hidden = nullptr;
  for (auto [window, depth] : all) {
    if (::GetDlgCtrlID(window) != id || (buttonsOnly && _wcsicmp(ClassOf(window).c_str(), L"Button") != 0)) continue;
    if (::IsWindowVisible(window)) return window;
    if (!hidden) hidden = window;
  }
  return hidden;
}

bool WaitFor(DWORD timeoutMs, auto&& ready) {
  for (const ULONGLONG end = ::GetTickCount64() + timeoutMs;; ::Sleep(100)) {
    if (ready()) return true;
    if (::GetTickCount64() >= end) return false;
  }
}

int Resolve(const wchar_t* linkPath) {
  ::CoInitialize(nullptr);
  ComPtr<IShellLinkW> link;
  ComPtr<IPersistFile> file;
  if (FAILED(::CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, link.put_void())) ||
      FAILED(link->QueryInterface(IID_IPersistFile, file.put_void())) || FAILED(file->Load(linkPath, STGM_READ)))
    return 1;
  wchar_t target[MAX_PATH] = {}, folder[MAX_PATH] = {}, arguments[1024] = {};
  link->GetPath(target, MAX_PATH, nullptr, SLGP_RAWPATH);
  link->GetWorkingDirectory(folder, MAX_PATH);
  link->GetArguments(arguments, 1024);
  for (const wchar_t* line : {target, folder, arguments}) Print(line);
  return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 3) return 2;
  const std::wstring command = argv[1];
  auto number = [&](int at) { return at < argc ? static_cast<DWORD>(std::wcstoul(argv[at], nullptr, 10)) : 0; };
  HWND window = reinterpret_cast<HWND>(static_cast<uintptr_t>(std::wcstoull(argv[2], nullptr, 10)));
  HWND found = nullptr;
  if (command == L"answer") {
    // A message box keeps its text in the static control 0xFFFF; the wizard
    // frame, which has the same caption, has none.
    if (!WaitFor(argc > 3 ? number(3) : 30000, [&] {
          for (found = nullptr; (found = ::FindWindowExW(nullptr, found, L"#32770", L"Quillmark Setup"));)
            if (::GetDlgItem(found, 0xFFFF)) return true;
          return false;
        }))
      return 1;
    Print(TextOf(::GetDlgItem(found, 0xFFFF), true));
    return ::PostMessageW(found, WM_COMMAND, MAKEWPARAM(number(2), BN_CLICKED), 0) ? 0 : 1;
  }
  if (command == L"resolve") return Resolve(argv[2]);
  if (command == L"sddl") {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    wchar_t* text = nullptr;
    if (::GetNamedSecurityInfoW(argv[2], SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                                nullptr, &descriptor) != ERROR_SUCCESS)
      return 1;
    const bool ok = ::ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                                          DACL_SECURITY_INFORMATION, &text, nullptr);
    if (ok) Print(text);
    ::LocalFree(text);
    ::LocalFree(descriptor);
    return ok ? 0 : 1;
  }
  if (command == L"hold" && argc > 3) {
    UniqueFileHandle file(::CreateFileW(argv[2], GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!file) return 1;
    UniqueFileHandle(::CreateFileW(argv[3], GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    Print(L"held");
    std::fflush(stdout);
    WaitFor(600000, [&] { return ::GetFileAttributesW(argv[3]) == INVALID_FILE_ATTRIBUTES; });
    return 0;
  }
  if (command == L"find" && argc > 3) {
    if (!WaitFor(number(3), [&] { return (found = ::FindWindowW(nullptr, argv[2])) && ::IsWindowVisible(found); }))
      return 1;
    Print(std::to_wstring(reinterpret_cast<uintptr_t>(found)));
    return 0;
  }
  if (command == L"dump") {
    if (!::IsWindow(window)) return 1;
    Print(L"caption\t" + TextOf(window));
    std::vector<std::pair<HWND, int>> all;
    Descendants(window, 1, all);
    for (auto [control, depth] : all) {
      DWORD_PTR check = static_cast<DWORD_PTR>(-1);
      if (_wcsicmp(ClassOf(control).c_str(), L"Button") == 0)
        ::SendMessageTimeoutW(control, BM_GETCHECK, 0, 0, SMTO_ABORTIFHUNG, 5000, &check);
      Print(std::to_wstring(depth) + L"\t" + std::to_wstring(::GetDlgCtrlID(control)) + L"\t" + ClassOf(control) +
            L"\t" + (::IsWindowVisible(control) ? L"1" : L"0") + L"\t" + (::IsWindowEnabled(control) ? L"1" : L"0") +
            L"\t" + std::to_wstring(static_cast<int>(check)) + L"\t" + TextOf(control));
    }
    return 0;
  }
  if (command == L"wait-text" && argc > 5) {
    std::wstring shown;
    bool ok = WaitFor(number(4), [&] {
      HWND control = Control(window, static_cast<int>(number(3)));
      return control && ::IsWindowVisible(control) && (shown = TextOf(control)) == argv[5];
    });
    Print(shown);
    return ok ? 0 : 1;
  }
  if (command == L"click" && argc > 3) {
    HWND button = Control(window, static_cast<int>(number(3)), true);
    // A user can click neither a hidden nor a greyed button. Posted: the click
    // may run a long step (the install) or a modal loop.
    return button && ::IsWindowVisible(button) && ::IsWindowEnabled(button) && ::PostMessageW(button, BM_CLICK, 0, 0)
               ? 0 : 1;
  }
  if (command == L"command" && argc > 3)
    return ::PostMessageW(window, WM_COMMAND, MAKEWPARAM(number(3), BN_CLICKED), 0) ? 0 : 1;
  if (command == L"select-folder" && argc > 4) {
    // The path goes into the browser's process, since the message carries a
    // pointer; a browser still filling its tree may not find it at first.
    DWORD pid = 0;
    ::GetWindowThreadProcessId(window, &pid);
    UniqueHandle process(::OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_WRITE, FALSE, pid));
    const std::wstring folder = argv[3], name = folder.substr(folder.find_last_of(L'\\') + 1);
    const SIZE_T bytes = (folder.size() + 1) * sizeof(wchar_t);
    void* remote = process ? ::VirtualAllocEx(process.get(), nullptr, bytes, MEM_COMMIT, PAGE_READWRITE) : nullptr;
    if (!remote || !::WriteProcessMemory(process.get(), remote, folder.c_str(), bytes, nullptr)) return 1;
    const bool ok = WaitFor(number(4), [&] {
      DWORD_PTR result = 0;
      ::SendMessageTimeoutW(window, BFFM_SETSELECTIONW, TRUE, reinterpret_cast<LPARAM>(remote), SMTO_ABORTIFHUNG,
                            5000, &result);
      return _wcsicmp(TextOf(::FindWindowExW(window, nullptr, L"Edit", nullptr)).c_str(), name.c_str()) == 0;
    });
    ::VirtualFreeEx(process.get(), remote, 0, MEM_RELEASE);
    return ok ? 0 : 1;
  }
  return 2;
}
