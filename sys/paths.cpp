#include "sys/paths.h"

#include <windows.h>

bool PathExists(const std::wstring& path) {
  return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::wstring JoinFolder(const std::wstring& folder) {
  if (folder.empty()) return L"\\";
  wchar_t last = folder.back();
  return (last == L'\\' || last == L'/') ? folder : folder + L"\\";
}

std::wstring JoinPath(const std::wstring& folder, const std::wstring& name) { return JoinFolder(folder) + name; }

std::wstring LowerCase(std::wstring text) {
  if (!text.empty()) ::CharLowerBuffW(text.data(), static_cast<DWORD>(text.size()));
  return text;
}

std::wstring ParentFolder(std::wstring path) {
  if (!path.empty() && path.back() == L'\\') path.pop_back();
  const size_t slash = path.rfind(L'\\');
  return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash);
}
