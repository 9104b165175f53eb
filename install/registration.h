// The product's registry entries, the thumbnail extension, the settings that
// travel beside a package, and where an installation lies.
#pragma once
#include <windows.h>

#include <string>

#include "product/product.h"

inline constexpr wchar_t kRegisteredApplicationsKey[] = L"SOFTWARE\\RegisteredApplications";

// The product executable in installDir, between double quotes, then " \"%1\"".
std::wstring OpenCommand();
// What the file associations point to: the programmatic identifier on Windows 8
// and later, the application entry before.
std::wstring AssociationTarget();
// The vendor key, document type, capabilities, App Paths and uninstall entry,
// all under HKEY_LOCAL_MACHINE / HKEY_CLASSES_ROOT whatever the install type.
// Write failures are ignored.
void WriteRegistryEntries();
// The size of every file below folder in KiB, rounded up (the uninstall
// entry's "EstimatedSize"); 0 for a folder that cannot be read.
DWORD FolderSizeKiB(const std::wstring& folder);
// Today's local date as "yyyymmdd" (the uninstall entry's "InstallDate").
std::wstring TodayAsYyyymmdd();
// The thumbnail extension for this system inside installDir; empty when none
// fits (64-bit systems before Vista).
std::wstring ThumbnailExtensionPath();
// Which thumbnail extension fits a system, inside folder (which ends in a
// backslash): the x64 DLL on 64-bit Windows from version 6 on, none (empty)
// on older 64-bit Windows, else the 32-bit DLL of the version's generation.
// Registration and the removal worker both choose by it.
std::wstring ThumbnailExtensionIn(const std::wstring& folder, BOOL wow64, BOOL vistaOrLater);
// Starts "regsvr32.exe /s" on the extension without waiting. FALSE when no
// extension fits or the start failed.
bool RegisterThumbnailExtension();
// Copies the side settings (kSideSettingsIni, kSideSettingsReg) from sfxFolder
// (when set) into installDir.
void ImportSettings();
// Starts the installed product with " -regonly" without waiting. FALSE when it
// could not be started.
bool StartProductRegistration();

// The folder of an existing installation ("Path" of the vendor key, else App
// Paths), without a trailing backslash; empty when there is none.
std::wstring ExistingInstallFolder();
