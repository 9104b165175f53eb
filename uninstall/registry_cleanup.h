// Removal of the product's registry entries and restore of image file types.
// Both are silent: a key or value that cannot be opened or deleted only skips
// its own step.
#pragma once
#include <windows.h>

// Deletes the product's keys and values for the machine and for every profile
// under HKEY_USERS: vendor key (the maker's key only when nothing else is left
// in it), Applications entry, document and program identifiers, uninstall
// entry, App Paths, registered application, native-messaging host (64-bit
// view on 64-bit Windows).
void RemoveRegistryEntries(const wchar_t* maker, const wchar_t* productKey,
                           const wchar_t* uninstallName, const wchar_t* exeName);
// Gives the image file types the product had taken over back: below Windows
// 6 the handler the product saved (or none), from 6 on the user's choice is
// removed. The product's saved handler values go in every case. Sends
// the association-changed notice only when something changed.
void RestoreFileAssociations();
// Deletes subKey with everything below it; true when subKey itself went.
// extraAccess (such as KEY_WOW64_64KEY) is added to every open and delete.
bool DeleteKeyTree(HKEY root, const wchar_t* subKey, REGSAM extraAccess = 0);
// Deletes subKey only when it has no sub-keys (its values go with it).
void DeleteKeyIfLeaf(HKEY root, const wchar_t* subKey);

// The shell's change notice, replaceable so that tests can watch it.
using ShellChangeNotifyFn = void(WINAPI*)(LONG eventId, UINT flags, LPCVOID item1, LPCVOID item2);
extern ShellChangeNotifyFn pShellChangeNotify;
