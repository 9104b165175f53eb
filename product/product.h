// The product's identity, shared by every subsystem.
#pragma once

inline constexpr wchar_t kProductName[] = L"Quillmark 8";        // display, key and folder name
inline constexpr wchar_t kProductExe[] = L"Qmkview8.exe";
inline constexpr wchar_t kHelpFile[] = L"Qmkview8Man.chm";
inline constexpr wchar_t kUninstallerExe[] = L"QmkUnInst.exe";
inline constexpr wchar_t kJournalName[] = L"QmkUnInst.log";      // install script and journal
inline constexpr wchar_t kOldJournalName[] = L"install.log";     // journal of an earlier version
inline constexpr wchar_t kAgreementFile[] = L"agreement.txt";
inline constexpr wchar_t kMakerWord[] = L"Lanternfold";
inline constexpr wchar_t kVendorKey[] = L"SOFTWARE\\Lanternfold\\Quillmark 8";
inline constexpr wchar_t kProgId[] = L"Quillmark.8";
inline constexpr wchar_t kPublisher[] = L"Lanternfold Technology LLC";
inline constexpr wchar_t kThumbDll64[] = L"x64\\ThumbDqm64.dll";
inline constexpr wchar_t kThumbDll32[] = L"ThumbDqm32.dll";
inline constexpr wchar_t kThumbDllXP32[] = L"ThumbDqmXP32.dll";
inline constexpr wchar_t kInstanceListName[] = L"Lanternfold.Quillmark-DX.v4";
inline constexpr unsigned kInstanceSharedDataSize = 1024;
// Started from the system folder, by full path.
inline constexpr wchar_t kRegsvr32Exe[] = L"regsvr32.exe";

// Build-time setting (CMake QM_HOMEPAGE).
#ifndef QM_HOMEPAGE_W
#define QM_HOMEPAGE_W L"https://www.lanternfold.com/"
#endif
inline constexpr wchar_t kMakerHomePage[] = QM_HOMEPAGE_W;
