// Removal of the product's registry entries and restore of image file types.
#pragma once
#include <windows.h>

void RemoveRegistryEntries(const wchar_t* maker, const wchar_t* productKey,
                           const wchar_t* uninstallName, const wchar_t* exeName);
void RestoreFileAssociations();
// Deletes subKey with everything below it; true when subKey itself went.
bool DeleteKeyTree(HKEY root, const wchar_t* subKey, REGSAM extraAccess = 0);
// Deletes subKey only when it has no sub-keys.
void DeleteKeyIfLeaf(HKEY root, const wchar_t* subKey);
