// The product's identity, shared by every subsystem: its names, files,
// registry keys and the instance list it shares with us. Nothing else spells
// them.
#pragma once

// The words the names are made of, as literals so that the keys below are
// joined at compile time. Code uses the constants; the words end with this
// header.
#define QM_MAKER L"Lanternfold"
#define QM_PRODUCT_WORD L"Quillmark"
#define QM_PRODUCT QM_PRODUCT_WORD L" 8"
#define QM_PRODUCT_EXE L"Qmkview8.exe"
#define QM_PROG_ID QM_PRODUCT_WORD L".8"
#define QM_WINDOWS_KEY L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\"

inline constexpr wchar_t kProductName[] = QM_PRODUCT;            // display, key and folder name
inline constexpr wchar_t kProductWord[] = QM_PRODUCT_WORD;       // how the product's window titles begin
inline constexpr wchar_t kProductExe[] = QM_PRODUCT_EXE;
inline constexpr wchar_t kHelpFile[] = L"Qmkview8Man.chm";
inline constexpr wchar_t kUninstallerExe[] = L"QmkUnInst.exe";
inline constexpr wchar_t kSetupExe[] = L"setup.exe";              // the package's setup program
inline constexpr wchar_t kJournalName[] = L"QmkUnInst.log";      // install script and journal
inline constexpr wchar_t kOldJournalName[] = L"install.log";     // journal of an earlier version
inline constexpr wchar_t kAgreementFile[] = L"agreement.txt";
// Settings that travel beside a self-extracting package.
inline constexpr wchar_t kSideSettingsIni[] = L"Qmkview8.ini";
inline constexpr wchar_t kSideSettingsReg[] = L"Qmkview8.reg";
// Executables of earlier generations, whose folders a new installation must
// not share.
inline constexpr const wchar_t* kOlderGenerationExes[] = {L"Qmkview5.exe", L"Qmkview6.exe"};
inline constexpr wchar_t kMakerWord[] = QM_MAKER;
inline constexpr wchar_t kPublisher[] = QM_MAKER L" Technology LLC";
inline constexpr wchar_t kThumbDll64[] = L"x64\\ThumbDqm64.dll";
inline constexpr wchar_t kThumbDll32[] = L"ThumbDqm32.dll";
inline constexpr wchar_t kThumbDllXP32[] = L"ThumbDqmXP32.dll";
inline constexpr wchar_t kInstanceListName[] = QM_MAKER L"." QM_PRODUCT_WORD L"-DX.v4";
inline constexpr unsigned kInstanceSharedDataSize = 1024;
// Started from the system folder, by full path.
inline constexpr wchar_t kRegsvr32Exe[] = L"regsvr32.exe";

// Registry keys (under HKEY_LOCAL_MACHINE unless noted) and names.
inline constexpr wchar_t kVendorKey[] = L"SOFTWARE\\" QM_MAKER L"\\" QM_PRODUCT;
inline constexpr wchar_t kCapabilitiesKey[] = L"SOFTWARE\\" QM_MAKER L"\\" QM_PRODUCT L"\\Capabilities";
inline constexpr wchar_t kFileAssociationsKey[] =
    L"SOFTWARE\\" QM_MAKER L"\\" QM_PRODUCT L"\\Capabilities\\FileAssociations";
inline constexpr wchar_t kUninstallKey[] = QM_WINDOWS_KEY L"Uninstall\\" QM_PRODUCT;
inline constexpr wchar_t kAppPathKey[] = QM_WINDOWS_KEY L"App Paths\\" QM_PRODUCT_EXE;
inline constexpr wchar_t kProgId[] = QM_PROG_ID;
inline constexpr wchar_t kOldDocumentProgId[] = L"QM8.Document";  // removed, never written
inline constexpr wchar_t kApplicationsTarget[] = L"Applications\\" QM_PRODUCT_EXE;  // under HKCR
inline constexpr wchar_t kDocumentOpenCommandKey[] = QM_PROG_ID L"\\shell\\open\\command";  // under HKCR
inline constexpr wchar_t kApplicationOpenCommandKey[] =
    L"Applications\\" QM_PRODUCT_EXE L"\\shell\\open\\command";  // under HKCR
// The value in which the product, when it took an image type over, kept the
// type's previous handler.
inline constexpr wchar_t kSavedHandlerValue[] = L"QmkviewOld";
// The product's native-messaging host for the browser.
inline constexpr wchar_t kNativeMessagingHost[] = L"qmrkff";

// The image types the product offers to open (and hands back on removal), its
// own document type last.
inline constexpr const wchar_t* kImageExtensions[] = {
    L".bmp", L".dib", L".gif", L".jpg",  L".jpeg", L".tif", L".tiff",
    L".png", L".cmp", L".tga", L".wpg",  L".jp2",  L".j2k", L".dqm"};

// Build-time setting (CMake QM_HOMEPAGE).
#ifndef QM_HOMEPAGE_W
#define QM_HOMEPAGE_W L"https://www.lanternfold.com/"
#endif
inline constexpr wchar_t kMakerHomePage[] = QM_HOMEPAGE_W;

#undef QM_MAKER
#undef QM_PRODUCT_WORD
#undef QM_PRODUCT
#undef QM_PRODUCT_EXE
#undef QM_PROG_ID
#undef QM_WINDOWS_KEY
