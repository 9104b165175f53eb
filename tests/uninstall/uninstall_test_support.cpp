#include "tests/uninstall/uninstall_test_support.h"

#include <algorithm>

#include "sys/handles.h"

namespace uninstalltest {
namespace {

constexpr wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingValue[] = L"PendingFileRenameOperations";

std::wstring Normalize(std::wstring path) {
  if (path.rfind(L"\\??\\", 0) == 0) path.erase(0, 4);
  std::wstring out;
  for (wchar_t c : path) {
    if (c == L'/') c = L'\\';
    if (c == L'\\' && !out.empty() && out.back() == L'\\') continue;
    out += c;
  }
  while (out.size() > 3 && out.back() == L'\\') out.pop_back();
  if (!out.empty()) ::CharLowerBuffW(out.data(), static_cast<DWORD>(out.size()));
  return out;
}

bool IsUnder(const std::wstring& path, const std::wstring& folder) {
  std::wstring p = Normalize(path), f = Normalize(folder);
  return p == f || (p.size() > f.size() && p.compare(0, f.size(), f) == 0 && p[f.size()] == L'\\');
}

std::vector<std::wstring> ReadPendingList() {
  std::vector<std::wstring> items;
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_READ, key.put()) != ERROR_SUCCESS) return items;
  DWORD size = 0;
  if (::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) return items;
  std::wstring data(size / sizeof(wchar_t) + 2, L'\0');
  if (::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()), &size) !=
      ERROR_SUCCESS)
    return items;
  // Pairs of source and target; an empty target means deletion. Empty
  // strings are entries here, so the list is cut by its recorded size.
  size_t end = size / sizeof(wchar_t);
  for (size_t start = 0; start < end;) {
    size_t nul = data.find(L'\0', start);
    if (nul == std::wstring::npos || nul >= end) nul = end;
    items.push_back(data.substr(start, nul - start));
    start = nul + 1;
  }
  // Drop the list's final terminator, if counted as an entry.
  if (items.size() % 2 == 1 && items.back().empty()) items.pop_back();
  return items;
}

void WritePendingList(const std::vector<std::wstring>& items) {
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_ALL_ACCESS, key.put()) != ERROR_SUCCESS) return;
  if (items.empty()) {
    ::RegDeleteValueW(key.get(), kPendingValue);
    return;
  }
  std::wstring data;
  for (const std::wstring& item : items) data += item + L'\0';
  data += L'\0';
  ::RegSetValueExW(key.get(), kPendingValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(data.data()),
                   static_cast<DWORD>(data.size() * sizeof(wchar_t)));
}

std::vector<std::wstring> ReadWininitLines() {
  std::vector<wchar_t> section(16384, L'\0');
  DWORD length = ::GetPrivateProfileSectionW(L"rename", section.data(), 16384, L"WININIT.INI");
  std::vector<std::wstring> lines;
  for (size_t start = 0; start < length;) {
    std::wstring line(section.data() + start);
    lines.push_back(line);
    start += line.size() + 1;
  }
  return lines;
}

}  // namespace

std::vector<std::wstring> PendingDeletions() {
  std::vector<std::wstring> result;
  std::vector<std::wstring> items = ReadPendingList();
  for (size_t i = 0; i + 1 < items.size(); i += 2)
    if (items[i + 1].empty()) result.push_back(Normalize(items[i]));
  for (const std::wstring& line : ReadWininitLines())
    if (line.rfind(L"NUL=", 0) == 0) result.push_back(Normalize(line.substr(4)));
  return result;
}

bool IsPendingDeletion(const std::wstring& path) {
  std::vector<std::wstring> pending = PendingDeletions();
  return std::find(pending.begin(), pending.end(), Normalize(path)) != pending.end();
}

size_t PendingDeletionsUnder(const std::wstring& folder) {
  size_t count = 0;
  for (const std::wstring& path : PendingDeletions())
    if (IsUnder(path, folder)) ++count;
  return count;
}

void ForgetPendingUnder(const std::wstring& folder) {
  std::vector<std::wstring> items = ReadPendingList(), kept;
  for (size_t i = 0; i + 1 < items.size(); i += 2) {
    if (IsUnder(items[i], folder)) continue;
    kept.push_back(items[i]);
    kept.push_back(items[i + 1]);
  }
  if (kept.size() != items.size()) WritePendingList(kept);

  std::vector<std::wstring> lines = ReadWininitLines();
  std::wstring section;
  bool dropped = false;
  for (const std::wstring& line : lines) {
    if (line.rfind(L"NUL=", 0) == 0 && IsUnder(line.substr(4), folder)) {
      dropped = true;
      continue;
    }
    section += line + L'\0';
  }
  if (!dropped) return;
  if (section.empty())
    ::WritePrivateProfileStringW(L"rename", nullptr, nullptr, L"WININIT.INI");
  else
    ::WritePrivateProfileSectionW(L"rename", (section + L'\0').c_str(), L"WININIT.INI");
}

bool MakeKey(HKEY root, const std::wstring& path, REGSAM view) {
  UniqueRegKey key;
  if (::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, key.put(), nullptr) !=
      ERROR_SUCCESS)
    return false;
  const wchar_t value[] = L"x";
  return ::RegSetValueExW(key.get(), L"v", 0, REG_SZ, reinterpret_cast<const BYTE*>(value), sizeof value) ==
         ERROR_SUCCESS;
}

bool KeyExists(HKEY root, const std::wstring& path, REGSAM view) {
  UniqueRegKey key;
  return ::RegOpenKeyExW(root, path.c_str(), 0, KEY_READ | view, key.put()) == ERROR_SUCCESS;
}

void DropKey(HKEY root, const std::wstring& path, REGSAM view) {
  {
    UniqueRegKey key;
    if (::RegOpenKeyExW(root, path.c_str(), 0, KEY_ALL_ACCESS | view, key.put()) != ERROR_SUCCESS) return;
    wchar_t name[512];
    while (::RegEnumKeyW(key.get(), 0, name, 512) == ERROR_SUCCESS) {
      std::wstring child = name;
      DropKey(key.get(), child, view);
      if (KeyExists(key.get(), child, view)) break;
    }
  }
  ::RegDeleteKeyExW(root, path.c_str(), view, 0);
}

bool SetString(HKEY root, const std::wstring& path, const wchar_t* name, const std::wstring& value) {
  UniqueRegKey key;
  if (::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr) !=
      ERROR_SUCCESS)
    return false;
  return ::RegSetValueExW(key.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS;
}

std::wstring GetString(HKEY root, const std::wstring& path, const wchar_t* name) {
  UniqueRegKey key;
  if (::RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) return L"<missing>";
  wchar_t buffer[1024] = {};
  DWORD size = sizeof buffer - sizeof(wchar_t);
  if (::RegQueryValueExW(key.get(), name, nullptr, nullptr, reinterpret_cast<BYTE*>(buffer), &size) != ERROR_SUCCESS)
    return L"<missing>";
  return buffer;
}

}  // namespace uninstalltest
