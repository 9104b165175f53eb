// Helpers of the installer engine's tests: settings that come back after a
// test, package scripts, pending restart operations and product registry keys.
#pragma once
#include <windows.h>
#include <string>
#include <utility>
#include <vector>

#include "app/settings.h"
#include "sys/handles.h"

namespace qmtest {

// Puts installSettings and the Windows version record back on destruction.
class SettingsRestorer {
 public:
  SettingsRestorer();
  ~SettingsRestorer();

 private:
  InstallSettings settings_;
  OSVERSIONINFOEXW version_;
};

// Writes lines as 8-bit text, each ended by CR LF.
bool WriteLines(const std::wstring& path, const std::vector<std::string>& lines);
// The lines of an 8-bit text file, line ends removed.
std::vector<std::string> ReadLines(const std::wstring& path);

// PendingFileRenameOperations as (source, target) pairs with the "\??\"
// prefixes removed; target is empty for a deletion.
std::vector<std::pair<std::wstring, std::wstring>> PendingRenames();
// Drops every pending operation whose source or target lies under folder
// (case-insensitive), so tests leave no restart work behind.
void ForgetPendingRenamesUnder(const std::wstring& folder);
// Index of the first pending operation (source, target) at or after start, or
// -1. Names compare case-insensitively.
int FindPendingRename(const std::wstring& source, const std::wstring& target, size_t start = 0);

// Opens path for reading with the given share mode (held until the handle goes).
UniqueFileHandle HoldFile(const std::wstring& path, DWORD share);
// Maps a PE file as an image, as the loader does for a running program or a
// loaded DLL: the file then cannot be deleted but can be renamed.
class ImageHold {
 public:
  explicit ImageHold(const std::wstring& path);
  ~ImageHold();
  bool held() const { return view_ != nullptr; }

 private:
  UniqueFileHandle file_;
  UniqueHandle mapping_;
  void* view_ = nullptr;
};

// Removes every registry entry the install run writes for the product.
void DeleteProductRegistry();
// A value as stored: its type, its size in bytes, the REG_SZ or REG_EXPAND_SZ
// text (without the terminator) or the REG_DWORD number; type 0 when missing.
struct RegValue {
  DWORD type = 0;
  DWORD size = 0;
  std::wstring text;
  DWORD number = 0;
};
RegValue ReadRegValue(HKEY root, const wchar_t* subkey, const wchar_t* name);

}  // namespace qmtest
