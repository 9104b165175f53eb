// Helper of the end-to-end scripts; prints its findings as UTF-8 lines.
//   e2e_probe answer <button id> [timeout ms]
//       waits for a message box captioned "Quillmark Setup", prints its text,
//       presses the button; exit code 0, or 1 when no box came.
//   e2e_probe resolve <lnk file>
//       prints the shortcut's target, working folder and arguments, one a line.
//   e2e_probe kill <pid>
//       terminates the process (a product started by setup).
//   e2e_probe hold <file> <flag file>
//       holds the file open against deletion and renaming, creates the flag
//       file, and lets go once the flag file is deleted (at most 10 minutes).
// Window commands, for walking a wizard as a user would. A window is given by
// the decimal handle that "find" or "owned" printed; a control by its id,
// looked for among all the window's descendants (the pages are child dialogs
// of the frame), visible ones first. Exit code 1 when the window or control
// is not there (or, for "click", hidden or disabled), with the reason on stderr.
//   e2e_probe find <title> <timeout ms> [child id]
//       waits for a visible top-level window with that title (and a direct
//       child of that id) and prints its handle.
//   e2e_probe owned <window> <timeout ms>
//       waits for a visible top-level window owned by the window (a message
//       box, a folder browser) and prints its handle.
//   e2e_probe dump <window>
//       prints "caption<TAB>text", then one line per descendant control:
//       depth, id, class, visible, enabled, check state, text (tab-separated,
//       line breaks in the text written as \n).
//   e2e_probe text <window> <id>          prints the control's text.
//   e2e_probe wait-text <window> <id> <timeout ms> <text>
//       waits until a visible control of that id shows exactly the text (line
//       breaks written as \n); prints what it showed last, written the same way.
//   e2e_probe click <window> <id>         clicks a visible, enabled button.
//   e2e_probe settext <window> <id> <text>
//   e2e_probe select-folder <browser> <folder> [timeout ms]
//       selects the folder in a folder browser, as the browser's own callback
//       would (BFFM_SETSELECTIONW, the path placed in the browser's process),
//       until the browser's folder box names it.
#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sys/handles.h"

namespace {

constexpr UINT kSendTimeoutMs = 5000;

void PrintLine(const std::wstring& text) {
  std::string bytes(text.size() * 3, '\0');
  bytes.resize(::WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), bytes.data(),
                                     static_cast<int>(bytes.size()), nullptr, nullptr));
  std::printf("%s\n", bytes.c_str());
  std::fflush(stdout);
}

void Complain(const std::wstring& text) {
  std::string bytes(text.size() * 3, '\0');
  bytes.resize(::WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), bytes.data(),
                                     static_cast<int>(bytes.size()), nullptr, nullptr));
  std::fprintf(stderr, "e2e_probe: %s\n", bytes.c_str());
}

HWND ParseWindow(const wchar_t* text) {
  return reinterpret_cast<HWND>(static_cast<uintptr_t>(std::wcstoull(text, nullptr, 10)));
}

std::wstring HandleText(HWND window) {
  return std::to_wstring(reinterpret_cast<uintptr_t>(window));
}

// Another process's window text; a hung window gives an empty one.
std::wstring TextOf(HWND window) {
  DWORD_PTR length = 0;
  if (!::SendMessageTimeoutW(window, WM_GETTEXTLENGTH, 0, 0, SMTO_ABORTIFHUNG, kSendTimeoutMs, &length))
    return std::wstring();
  std::wstring text(length + 1, L'\0');
  DWORD_PTR copied = 0;
  if (!::SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                             SMTO_ABORTIFHUNG, kSendTimeoutMs, &copied))
    return std::wstring();
  text.resize(copied < text.size() ? copied : text.size() - 1);
  return text;
}

std::wstring ClassOf(HWND window) {
  wchar_t name[256] = {};
  ::GetClassNameW(window, name, 256);
  return name;
}

bool IsButton(HWND window) { return _wcsicmp(ClassOf(window).c_str(), L"Button") == 0; }

// Check state of a button; -1 for other controls.
int CheckOf(HWND window) {
  if (!IsButton(window)) return -1;
  DWORD_PTR state = 0;
  ::SendMessageTimeoutW(window, BM_GETCHECK, 0, 0, SMTO_ABORTIFHUNG, kSendTimeoutMs, &state);
  return static_cast<int>(state);
}

struct Descendant {
  HWND window;
  int depth;
};

// Every descendant of root, parents before their children.
void CollectDescendants(HWND root, int depth, std::vector<Descendant>& out) {
  for (HWND child = ::GetWindow(root, GW_CHILD); child; child = ::GetWindow(child, GW_HWNDNEXT)) {
    out.push_back({child, depth});
    CollectDescendants(child, depth + 1, out);
  }
}

// The control of that id: a visible one before a hidden one; buttonsOnly
// skips other classes (the frame's picture shares its id with a radio button).
HWND FindControl(HWND root, int id, bool buttonsOnly) {
  std::vector<Descendant> all;
  CollectDescendants(root, 1, all);
  HWND hidden = nullptr;
  for (const Descendant& d : all) {
    if (::GetDlgCtrlID(d.window) != id || (buttonsOnly && !IsButton(d.window))) continue;
    if (::IsWindowVisible(d.window)) return d.window;
    if (!hidden) hidden = d.window;
  }
  return hidden;
}

// Polls ready() until it holds or timeoutMs of wall time have passed (a
// window that is busy can hold up a single poll for a while).
bool WaitFor(DWORD timeoutMs, auto&& ready) {
  const ULONGLONG end = ::GetTickCount64() + timeoutMs;
  for (;;) {
    if (ready()) return true;
    if (::GetTickCount64() >= end) return false;
    ::Sleep(100);
  }
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

int Hold(const wchar_t* path, const wchar_t* flag) {
  UniqueFileHandle file(::CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file) return 1;
  UniqueFileHandle(::CreateFileW(flag, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  WaitFor(600000, [&] { return ::GetFileAttributesW(flag) == INVALID_FILE_ATTRIBUTES; });
  return 0;
}

int Find(const std::wstring& title, DWORD timeoutMs, int childId) {
  HWND found = nullptr;
  bool ok = WaitFor(timeoutMs, [&] {
    for (HWND w = ::FindWindowExW(nullptr, nullptr, nullptr, title.c_str()); w;
         w = ::FindWindowExW(nullptr, w, nullptr, title.c_str())) {
      if (!::IsWindowVisible(w)) continue;
      if (childId != 0 && !::GetDlgItem(w, childId)) continue;
      found = w;
      return true;
    }
    return false;
  });
  if (!ok) {
    Complain(L"no window titled \"" + title + L"\"");
    return 1;
  }
  PrintLine(HandleText(found));
  return 0;
}

int Owned(HWND owner, DWORD timeoutMs) {
  HWND found = nullptr;
  bool ok = WaitFor(timeoutMs, [&] {
    for (HWND w = ::GetTopWindow(nullptr); w; w = ::GetWindow(w, GW_HWNDNEXT)) {
      // A dialog given a child window as its owner is owned by that child's top window.
      HWND by = ::GetWindow(w, GW_OWNER);
      if (by && w != owner && ::GetAncestor(by, GA_ROOT) == owner && ::IsWindowVisible(w)) {
        found = w;
        return true;
      }
    }
    return false;
  });
  if (!ok) {
    Complain(L"no window owned by " + HandleText(owner));
    return 1;
  }
  PrintLine(HandleText(found));
  return 0;
}

std::wstring Escaped(const std::wstring& text) {
  std::wstring out;
  for (wchar_t c : text) {
    if (c == L'\n') out += L"\\n";
    else if (c == L'\r') out += L"\\r";
    else if (c == L'\t') out += L"\\t";
    else out += c;
  }
  return out;
}

int Dump(HWND root) {
  if (!::IsWindow(root)) return 1;
  PrintLine(L"caption\t" + Escaped(TextOf(root)));
  std::vector<Descendant> all;
  CollectDescendants(root, 1, all);
  for (const Descendant& d : all) {
    PrintLine(std::to_wstring(d.depth) + L"\t" + std::to_wstring(::GetDlgCtrlID(d.window)) + L"\t" +
              ClassOf(d.window) + L"\t" + (::IsWindowVisible(d.window) ? L"1" : L"0") + L"\t" +
              (::IsWindowEnabled(d.window) ? L"1" : L"0") + L"\t" + std::to_wstring(CheckOf(d.window)) +
              L"\t" + Escaped(TextOf(d.window)));
  }
  return 0;
}

int Text(HWND root, int id) {
  HWND control = FindControl(root, id, false);
  if (!control) {
    Complain(L"no control " + std::to_wstring(id));
    return 1;
  }
  PrintLine(TextOf(control));
  return 0;
}

int WaitText(HWND root, int id, DWORD timeoutMs, const std::wstring& expected) {
  std::wstring last;
  bool ok = WaitFor(timeoutMs, [&] {
    HWND control = FindControl(root, id, false);
    if (!control || !::IsWindowVisible(control)) return false;
    last = Escaped(TextOf(control));
    return last == expected;
  });
  PrintLine(last);
  return ok ? 0 : 1;
}

int Click(HWND root, int id) {
  HWND button = FindControl(root, id, true);
  if (!button) {
    Complain(L"no button " + std::to_wstring(id));
    return 1;
  }
  // A user can click neither a hidden nor a greyed button.
  if (!::IsWindowVisible(button) || !::IsWindowEnabled(button)) {
    Complain(L"button " + std::to_wstring(id) + L" is hidden or disabled");
    return 1;
  }
  // Posted: the click may run a long step (the install) or a modal loop.
  return ::PostMessageW(button, BM_CLICK, 0, 0) ? 0 : 1;
}

int SetText(HWND root, int id, const std::wstring& text) {
  HWND control = FindControl(root, id, false);
  if (!control) {
    Complain(L"no control " + std::to_wstring(id));
    return 1;
  }
  DWORD_PTR result = 0;
  return ::SendMessageTimeoutW(control, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()),
                               SMTO_ABORTIFHUNG, kSendTimeoutMs, &result) && result
             ? 0
             : 1;
}

// Sends the selection once; the path goes into the browser's process, since
// the message carries a pointer.
bool SendSelection(HWND browser, HANDLE process, const std::wstring& folder) {
  SIZE_T bytes = (folder.size() + 1) * sizeof(wchar_t);
  void* remote = ::VirtualAllocEx(process, nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
  if (!remote) return false;
  DWORD_PTR result = 0;
  BOOL sent = ::WriteProcessMemory(process, remote, folder.c_str(), bytes, nullptr) &&
              ::SendMessageTimeoutW(browser, BFFM_SETSELECTIONW, TRUE, reinterpret_cast<LPARAM>(remote),
                                    SMTO_ABORTIFHUNG, kSendTimeoutMs, &result);
  ::VirtualFreeEx(process, remote, 0, MEM_RELEASE);
  return sent != FALSE;
}

// The browser's folder box, which names the selected folder.
HWND FolderBox(HWND browser) {
  std::vector<Descendant> all;
  CollectDescendants(browser, 1, all);
  for (const Descendant& d : all)
    if (_wcsicmp(ClassOf(d.window).c_str(), L"Edit") == 0) return d.window;
  return nullptr;
}

int SelectFolder(HWND browser, const std::wstring& folder, DWORD timeoutMs) {
  DWORD pid = 0;
  ::GetWindowThreadProcessId(browser, &pid);
  UniqueHandle process(::OpenProcess(PROCESS_VM_OPERATION | PROCESS_VM_WRITE, FALSE, pid));
  if (!process) {
    Complain(L"cannot open the browser's process");
    return 1;
  }
  size_t slash = folder.find_last_of(L'\\');
  std::wstring name = slash == std::wstring::npos ? folder : folder.substr(slash + 1);
  // A browser that is still filling its tree may not find the folder yet: the
  // selection is sent again until the folder box names it.
  std::wstring shown;
  bool ok = WaitFor(timeoutMs, [&] {
    if (!SendSelection(browser, process.get(), folder)) return false;
    ::Sleep(300);
    shown = TextOf(FolderBox(browser));
    return _wcsicmp(shown.c_str(), name.c_str()) == 0;
  });
  if (!ok) Complain(L"the browser shows \"" + shown + L"\", not \"" + name + L"\"");
  return ok ? 0 : 1;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 3) return 2;
  std::wstring command = argv[1];
  auto number = [&](int at) { return at < argc ? static_cast<int>(std::wcstol(argv[at], nullptr, 10)) : 0; };
  if (command == L"answer")
    return Answer(number(2), argc > 3 ? std::wcstoul(argv[3], nullptr, 10) : 30000);
  if (command == L"resolve") return Resolve(argv[2]);
  if (command == L"kill") return Kill(std::wcstoul(argv[2], nullptr, 10));
  if (command == L"hold" && argc > 3) return Hold(argv[2], argv[3]);
  if (command == L"find" && argc > 3) return Find(argv[2], number(3), number(4));
  if (command == L"owned" && argc > 3) return Owned(ParseWindow(argv[2]), number(3));
  if (command == L"dump") return Dump(ParseWindow(argv[2]));
  if (command == L"text" && argc > 3) return Text(ParseWindow(argv[2]), number(3));
  if (command == L"wait-text" && argc > 5) return WaitText(ParseWindow(argv[2]), number(3), number(4), argv[5]);
  if (command == L"click" && argc > 3) return Click(ParseWindow(argv[2]), number(3));
  if (command == L"settext" && argc > 4) return SetText(ParseWindow(argv[2]), number(3), argv[4]);
  if (command == L"select-folder" && argc > 3)
    return SelectFolder(ParseWindow(argv[2]), argv[3], argc > 4 ? number(4) : 10000);
  return 2;
}
