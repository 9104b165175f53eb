// Single registry values, one key open and close per call. Nothing here shows
// anything or throws: failure is an empty string, 0 or FALSE.
#pragma once
#include <windows.h>
#include <functional>
#include <string>
#include "sys/handles.h"

// Reads a value as text with a 260-byte data limit (129 characters plus the
// terminator). Empty when the key or value is missing or longer. `name` null
// or empty reads the default value. The type is not checked.
std::wstring ReadRegString(HKEY root, const wchar_t* subkey, const wchar_t* name);
// Reads an 8-byte value of any type; 0 when missing or not exactly 8 bytes.
ULONGLONG ReadRegQword(HKEY root, const wchar_t* subkey, const wchar_t* name);
// TRUE when the subkey opens with KEY_READ.
BOOL RegKeyExists(HKEY root, const wchar_t* subkey);

// Writers create the key (RegCreateKeyW) as needed; FALSE when the key cannot
// be created or the value cannot be stored.
BOOL WriteRegString(HKEY root, const wchar_t* subkey, const wchar_t* name, const wchar_t* text);
BOOL WriteRegDword(HKEY root, const wchar_t* subkey, const wchar_t* name, DWORD value);
BOOL WriteRegBinary(HKEY root, const wchar_t* subkey, const wchar_t* name, const void* data, DWORD size);
BOOL WriteRegQword(HKEY root, const wchar_t* subkey, const wchar_t* name, ULONGLONG value);

// A small owner for an open key.
class CKey {
 public:
  CKey() = default;
  // ERROR_SUCCESS or the registry's error code; the old key is closed first.
  LONG Open(HKEY root, const wchar_t* subkey, REGSAM access);
  LONG Create(HKEY root, const wchar_t* subkey);
  void Close() { key_.reset(); }
  HKEY get() const { return key_.get(); }
  explicit operator bool() const { return key_.valid(); }

 private:
  UniqueRegKey key_;
};

// Calls action with every user profile loaded under HKEY_USERS, opened with
// full access, in the order the registry lists them; a profile that cannot be
// opened is skipped.
void ForEachProfile(const std::function<void(HKEY profile)>& action);
