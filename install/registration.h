// The product's registry entries, the thumbnail extension, the settings that
// travel beside a package, and where an installation lies.
#pragma once
#include <windows.h>

#include <string>

inline constexpr wchar_t kUninstallKey[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Quillmark 8";
inline constexpr wchar_t kAppPathKey[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Qmkview8.exe";
inline constexpr wchar_t kCapabilitiesKey[] = L"SOFTWARE\\Lanternfold\\Quillmark 8\\Capabilities";
inline constexpr wchar_t kFileAssociationsKey[] =
    L"SOFTWARE\\Lanternfold\\Quillmark 8\\Capabilities\\FileAssociations";
inline constexpr wchar_t kRegisteredApplicationsKey[] = L"SOFTWARE\\RegisteredApplications";
inline constexpr wchar_t kDocumentOpenCommandKey[] = L"Quillmark.8\\shell\\open\\command";  // under HKCR
inline constexpr wchar_t kApplicationOpenCommandKey[] =
    L"Applications\\Qmkview8.exe\\shell\\open\\command";  // under HKCR
inline constexpr wchar_t kApplicationsTarget[] = L"Applications\\Qmkview8.exe";

// The image types the product offers to open, its own document type last.
inline constexpr const wchar_t* kImageExtensions[] = {
    L".bmp", L".dib", L".gif", L".jpg",  L".jpeg", L".tif", L".tiff",
    L".png", L".cmp", L".tga", L".wpg",  L".jp2",  L".j2k", L".dqm"};

// "\"<installDir>\Qmkview8.exe\" \"%1\"".
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
// Starts "regsvr32.exe /s" on the extension without waiting. FALSE when no
// extension fits or the start failed.
bool RegisterThumbnailExtension();
// Copies "Qmkview8.ini" and "Qmkview8.reg" from sfxFolder (when set) into installDir.
void ImportSettings();
// Starts the installed product with " -regonly" without waiting. FALSE when it
// could not be started.
bool StartProductRegistration();

// The folder of an existing installation ("Path" of the vendor key, else App
// Paths), without a trailing backslash; empty when there is none.
std::wstring ExistingInstallFolder();
// The folder under which a fresh installation goes by default (program files),
// without a trailing backslash.
std::wstring DefaultBaseFolder();
