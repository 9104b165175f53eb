#include "tests/install/install_test_util.h"

#include <algorithm>
#include <sstream>

#include "install/registration.h"
#include "product/product.h"
#include "tests/support/test_support.h"

namespace qmtest {

namespace {

constexpr wchar_t kSessionManagerKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingValue[] = L"PendingFileRenameOperations";

// Compared form of a path: no "\??\" or "!" prefix, '/' as '\', no doubled or
// trailing '\', lower case.
std::wstring Normalize(const std::wstring& path) {
  std::wstring out;
  size_t start = path.rfind(L"\\??\\", 1) <= 1 ? path.find(L"\\??\\") + 4 : 0;
  for (wchar_t c : path.substr(start)) {
    if (c == L'/') c = L'\\';
    if (c != L'\\' || out.empty() || out.back() != L'\\') out += c;
  }
  while (out.size() > 3 && out.back() == L'\\') out.pop_back();
  ::CharLowerBuffW(out.data(), static_cast<DWORD>(out.size()));
  return out;
}

bool IsUnder(const std::wstring& path, const std::wstring& folder) {
  std::wstring p = Normalize(path), f = Normalize(folder);
  return p.compare(0, f.size(), f) == 0 && (p.size() == f.size() || p[f.size()] == L'\\');
}

// The raw list, two strings an operation; empty strings are entries, so the
// list is cut by its recorded size and the final terminator dropped.
std::vector<std::wstring> RawPendingList() {
  std::vector<std::wstring> list;
  UniqueRegKey key;
  DWORD size = 0;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManagerKey, 0, KEY_READ, key.put()) != ERROR_SUCCESS ||
      ::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS)
    return list;
  std::wstring data(size / sizeof(wchar_t) + 2, L'\0');
  if (::RegQueryValueExW(key.get(), kPendingValue, nullptr, nullptr, reinterpret_cast<BYTE*>(data.data()),
                         &size) != ERROR_SUCCESS)
    return list;
  data.resize(size / sizeof(wchar_t));
  for (size_t at = 0; at < data.size();) {
    size_t nul = std::min(data.find(L'\0', at), data.size());
    list.push_back(data.substr(at, nul - at));
    at = nul + 1;
  }
  if (list.size() % 2 == 1 && list.back().empty()) list.pop_back();
  return list;
}

}  // namespace

bool WriteLines(const std::wstring& path, const std::vector<std::string>& lines) {
  std::string bytes;
  for (const std::string& line : lines) bytes += line + "\r\n";
  return WriteFileBytes(path, bytes);
}

std::vector<std::string> ReadLines(const std::wstring& path) {
  std::vector<std::string> lines;
  std::istringstream bytes(ReadFileBytes(path));
  for (std::string line; std::getline(bytes, line);) lines.push_back(line.substr(0, line.find_last_not_of('\r') + 1));
  return lines;
}

int FindPendingRename(const std::wstring& source, const std::wstring& target, size_t start) {
  std::vector<std::wstring> list = RawPendingList();
  for (size_t i = start * 2; i + 1 < list.size(); i += 2)
    if (Normalize(list[i]) == Normalize(source) && Normalize(list[i + 1]) == Normalize(target))
      return static_cast<int>(i / 2);
  return -1;
}

size_t PendingUnder(const std::wstring& folder) {
  std::vector<std::wstring> list = RawPendingList();
  size_t count = 0;
  for (size_t i = 0; i + 1 < list.size(); i += 2) count += IsUnder(list[i], folder) ? 1 : 0;
  return count;
}

void ForgetPendingUnder(const std::wstring& folder) {
  std::vector<std::wstring> list = RawPendingList();
  std::wstring kept;
  for (size_t i = 0; i + 1 < list.size(); i += 2)
    if (!IsUnder(list[i], folder)) kept += list[i] + L'\0' + list[i + 1] + L'\0';
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManagerKey, 0, KEY_SET_VALUE, key.put()) != ERROR_SUCCESS)
    return;
  if (kept.empty()) {
    ::RegDeleteValueW(key.get(), kPendingValue);
    return;
  }
  kept += L'\0';
  ::RegSetValueExW(key.get(), kPendingValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(kept.data()),
                   static_cast<DWORD>(kept.size() * sizeof(wchar_t)));
}

UniqueFileHandle HoldFile(const std::wstring& path, DWORD share) {
  return UniqueFileHandle(
      ::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

void DeleteProductRegistry() {
  for (const wchar_t* key : {kVendorKey, kUninstallKey, kAppPathKey}) DropKey(HKEY_LOCAL_MACHINE, key);
  ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kRegisteredApplicationsKey, kProgId);
  DropKey(HKEY_CLASSES_ROOT, kProgId);
  DropKey(HKEY_CLASSES_ROOT, kApplicationsTarget);
  // The maker's key goes when the product was its only child.
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold");
}

std::wstring GetString(HKEY root, const std::wstring& path, const wchar_t* name) {
  wchar_t text[1024] = {};
  DWORD size = sizeof text - sizeof(wchar_t);
  return ::RegGetValueW(root, path.c_str(), name, RRF_RT_ANY | RRF_NOEXPAND, nullptr, text, &size) == ERROR_SUCCESS
             ? text
             : L"<missing>";
}

bool MakeKey(HKEY root, const std::wstring& path, REGSAM view) {
  UniqueRegKey key;
  const wchar_t value[] = L"x";
  return ::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, key.put(),
                           nullptr) == ERROR_SUCCESS &&
         ::RegSetValueExW(key.get(), L"v", 0, REG_SZ, reinterpret_cast<const BYTE*>(value), sizeof value) ==
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
    ::RegDeleteTreeW(key.get(), nullptr);
  }
  ::RegDeleteKeyExW(root, path.c_str(), view, 0);
}

}  // namespace qmtest
