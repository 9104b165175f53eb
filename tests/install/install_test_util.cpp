#include "tests/install/install_test_util.h"

#include <fstream>

#include "app/product.h"
#include "install/registration.h"
#include "sys/platform.h"
#include "tests/support/test_support.h"

namespace qmtest {

namespace {

constexpr wchar_t kSessionManagerKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingValue[] = L"PendingFileRenameOperations";

std::wstring StripNtPrefix(std::wstring path) {
  if (!path.empty() && path[0] == L'!') path.erase(0, 1);
  if (path.rfind(L"\\??\\", 0) == 0) path.erase(0, 4);
  return path;
}

bool Under(const std::wstring& path, const std::wstring& folder) {
  return !folder.empty() && path.size() >= folder.size() &&
         ::_wcsnicmp(path.c_str(), folder.c_str(), folder.size()) == 0;
}

std::vector<std::wstring> RawPendingList() {
  std::vector<std::wstring> list;
  HKEY key = nullptr;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManagerKey, 0, KEY_READ, &key) != ERROR_SUCCESS)
    return list;
  UniqueRegKey owner(key);
  DWORD size = 0, type = 0;
  if (::RegQueryValueExW(key, kPendingValue, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return list;
  std::wstring data(size / sizeof(wchar_t) + 2, L'\0');
  if (::RegQueryValueExW(key, kPendingValue, nullptr, &type, reinterpret_cast<BYTE*>(data.data()), &size) !=
      ERROR_SUCCESS)
    return list;
  data.resize(size / sizeof(wchar_t));
  // Entries come in pairs; an empty target string is part of the data.
  size_t at = 0;
  while (at < data.size()) {
    size_t end = data.find(L'\0', at);
    if (end == std::wstring::npos) end = data.size();
    list.push_back(data.substr(at, end - at));
    at = end + 1;
  }
  // Drop the list terminator(s) that would otherwise pair up as an empty entry.
  while (list.size() % 2 != 0 && !list.empty() && list.back().empty()) list.pop_back();
  while (list.size() >= 2 && list[list.size() - 2].empty() && list.back().empty()) list.resize(list.size() - 2);
  return list;
}

}  // namespace

SettingsRestorer::SettingsRestorer() : settings_(installSettings), version_(windowsVersion) {}

SettingsRestorer::~SettingsRestorer() {
  installSettings = settings_;
  windowsVersion = version_;
}

bool WriteLines(const std::wstring& path, const std::vector<std::string>& lines) {
  std::string bytes;
  for (const std::string& line : lines) bytes += line + "\r\n";
  return WriteFileBytes(path, bytes);
}

std::vector<std::string> ReadLines(const std::wstring& path) {
  std::vector<std::string> lines;
  std::string bytes = ReadFileBytes(path);
  size_t at = 0;
  while (at < bytes.size()) {
    size_t end = bytes.find('\n', at);
    if (end == std::string::npos) end = bytes.size();
    std::string line = bytes.substr(at, end - at);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    at = end + 1;
  }
  return lines;
}

std::vector<std::pair<std::wstring, std::wstring>> PendingRenames() {
  std::vector<std::pair<std::wstring, std::wstring>> pairs;
  std::vector<std::wstring> list = RawPendingList();
  for (size_t i = 0; i + 1 < list.size(); i += 2)
    pairs.emplace_back(StripNtPrefix(list[i]), StripNtPrefix(list[i + 1]));
  return pairs;
}

void ForgetPendingRenamesUnder(const std::wstring& folder) {
  std::vector<std::wstring> list = RawPendingList();
  std::wstring kept;
  bool changed = false;
  for (size_t i = 0; i + 1 < list.size(); i += 2) {
    if (Under(StripNtPrefix(list[i]), folder) || Under(StripNtPrefix(list[i + 1]), folder)) {
      changed = true;
      continue;
    }
    kept += list[i] + L'\0' + list[i + 1] + L'\0';
  }
  if (!changed) return;
  HKEY key = nullptr;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManagerKey, 0, KEY_SET_VALUE, &key) != ERROR_SUCCESS) return;
  UniqueRegKey owner(key);
  if (kept.empty()) {
    ::RegDeleteValueW(key, kPendingValue);
    return;
  }
  kept += L'\0';
  ::RegSetValueExW(key, kPendingValue, 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(kept.data()),
                   static_cast<DWORD>(kept.size() * sizeof(wchar_t)));
}

int FindPendingRename(const std::wstring& source, const std::wstring& target, size_t start) {
  auto pairs = PendingRenames();
  for (size_t i = start; i < pairs.size(); ++i)
    if (::_wcsicmp(pairs[i].first.c_str(), source.c_str()) == 0 &&
        ::_wcsicmp(pairs[i].second.c_str(), target.c_str()) == 0)
      return static_cast<int>(i);
  return -1;
}

UniqueFileHandle HoldFile(const std::wstring& path, DWORD share) {
  return UniqueFileHandle(
      ::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

ImageHold::ImageHold(const std::wstring& path)
    : file_(HoldFile(path, FILE_SHARE_READ | FILE_SHARE_DELETE)) {
  if (!file_) return;
  mapping_.reset(::CreateFileMappingW(file_.get(), nullptr, PAGE_READONLY | SEC_IMAGE, 0, 0, nullptr));
  if (mapping_) view_ = ::MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, 0);
}

ImageHold::~ImageHold() {
  if (view_) ::UnmapViewOfFile(view_);
}

void DeleteProductRegistry() {
  ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kVendorKey);
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kVendorKey);
  ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kUninstallKey);
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kUninstallKey);
  ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kAppPathKey);
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kAppPathKey);
  ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kRegisteredApplicationsKey, kProgId);
  ::RegDeleteTreeW(HKEY_CLASSES_ROOT, kProgId);
  ::RegDeleteKeyW(HKEY_CLASSES_ROOT, kProgId);
  ::RegDeleteTreeW(HKEY_CLASSES_ROOT, kApplicationsTarget);
  ::RegDeleteKeyW(HKEY_CLASSES_ROOT, kApplicationsTarget);
  // The maker's key goes when the product was its only child.
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold");
}

RegValue ReadRegValue(HKEY root, const wchar_t* subkey, const wchar_t* name) {
  RegValue value;
  HKEY key = nullptr;
  if (::RegOpenKeyExW(root, subkey, 0, KEY_READ, &key) != ERROR_SUCCESS) return value;
  UniqueRegKey owner(key);
  BYTE data[2048] = {};
  DWORD size = sizeof data - 2, type = 0;
  if (::RegQueryValueExW(key, name, nullptr, &type, data, &size) != ERROR_SUCCESS) return value;
  value.type = type;
  value.size = size;
  if (type == REG_DWORD && size == 4) {
    value.number = *reinterpret_cast<DWORD*>(data);
  } else if (type == REG_SZ || type == REG_EXPAND_SZ) {
    value.text.assign(reinterpret_cast<wchar_t*>(data), size / sizeof(wchar_t));
    if (!value.text.empty() && value.text.back() == L'\0') value.text.pop_back();
  }
  return value;
}

}  // namespace qmtest
