// Helpers of the installer and removal tests: settings that come back after a
// test, 8-bit text lines, pending restart operations, held files and registry
// probes.
#pragma once
#include <windows.h>
#include <string>
#include <vector>

#include "product/settings.h"
#include "sys/platform.h"
#include "sys/handles.h"

namespace qmtest {

// Puts installSettings and the Windows version record back on destruction.
class SettingsRestorer {
 public:
  ~SettingsRestorer() {
    installSettings = settings_;
    windowsVersion = version_;
  }

 private:
  InstallSettings settings_ = installSettings;
  OSVERSIONINFOEXW version_ = windowsVersion;
};

// Writes lines as 8-bit text, each ended by CR LF.
bool WriteLines(const std::wstring& path, const std::vector<std::string>& lines);
// The lines of an 8-bit text file, line ends removed.
std::vector<std::string> ReadLines(const std::wstring& path);

// Index of the first PendingFileRenameOperations entry (source, target; an
// empty target for a deletion) at or after start, or -1. Paths compare without
// case, '/' as '\', doubled and trailing '\' ignored.
int FindPendingRename(const std::wstring& source, const std::wstring& target, size_t start = 0);
// Number of pending operations whose source lies at or below folder.
size_t PendingUnder(const std::wstring& folder);
// Drops those operations, so tests leave no restart work behind.
void ForgetPendingUnder(const std::wstring& folder);

// Opens path for reading with the given share mode (held until the handle goes).
UniqueFileHandle HoldFile(const std::wstring& path, DWORD share);

// Removes every registry entry the install run writes for the product.
void DeleteProductRegistry();
// The text of a value, or "<missing>".
std::wstring GetString(HKEY root, const std::wstring& path, const wchar_t* name);
// Creates root\path (in the given registry view) with one string value "v".
bool MakeKey(HKEY root, const std::wstring& path, REGSAM view = 0);
bool KeyExists(HKEY root, const std::wstring& path, REGSAM view = 0);
// Removes root\path with everything below it; no error when missing.
void DropKey(HKEY root, const std::wstring& path, REGSAM view = 0);

}  // namespace qmtest
