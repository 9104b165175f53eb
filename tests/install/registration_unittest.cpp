#include <gtest/gtest.h>
#include <windows.h>
#include <shlobj.h>

#include <string>

#include "app/product.h"
#include "app/settings.h"
#include "install/registration.h"
#include "sys/platform.h"
#include "sys/registry.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::ReadRegValue;
using qmtest::RegValue;

constexpr wchar_t kVendor[] = L"SOFTWARE\\Lanternfold\\Quillmark 8";
constexpr wchar_t kUninstall[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Quillmark 8";
constexpr wchar_t kAppPath[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\Qmkview8.exe";
constexpr wchar_t kAssociations[] = L"SOFTWARE\\Lanternfold\\Quillmark 8\\Capabilities\\FileAssociations";

class RegistrationTest : public testing::Test {
 protected:
  void SetUp() override {
    qmtest::DeleteProductRegistry();
    installSettings.installDir = installDir_;
    installSettings.newVersion = {8, 5, 3, 7};
    windowsVersion.dwMajorVersion = 10;
    windowsVersion.dwMinorVersion = 0;
  }
  void TearDown() override { qmtest::DeleteProductRegistry(); }

  // Expects a REG_SZ whose size counts the terminating zero.
  static void ExpectString(HKEY root, const wchar_t* key, const wchar_t* name, const std::wstring& text) {
    RegValue value = ReadRegValue(root, key, name);
    EXPECT_EQ(value.type, static_cast<DWORD>(REG_SZ)) << qmtest::Narrow(name ? name : L"(default)");
    EXPECT_EQ(value.text, text) << qmtest::Narrow(name ? name : L"(default)");
    EXPECT_EQ(value.size, (text.size() + 1) * sizeof(wchar_t)) << qmtest::Narrow(name ? name : L"(default)");
  }
  static void ExpectNumber(HKEY root, const wchar_t* key, const wchar_t* name, DWORD number) {
    RegValue value = ReadRegValue(root, key, name);
    EXPECT_EQ(value.type, static_cast<DWORD>(REG_DWORD)) << qmtest::Narrow(name);
    EXPECT_EQ(value.number, number) << qmtest::Narrow(name);
  }
  static DWORD ValueCount(HKEY root, const wchar_t* key) {
    CKey open;
    if (open.Open(root, key, KEY_READ) != ERROR_SUCCESS) return 0;
    DWORD count = 0;
    ::RegQueryInfoKeyW(open.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr,
                       nullptr, nullptr, nullptr);
    return count;
  }

  qmtest::SettingsRestorer restorer_;
  qmtest::TempDir root_{L"qm engine registration"};
  std::wstring installDir_ = root_ / L"Quillmark 8";
};

// A current-user installation writes all nineteen values under the machine
// keys, with their types and data, and records "A".
TEST_F(RegistrationTest, WritesEveryValueWithItsType) {
  installSettings.installType = 0;
  WriteRegistryEntries();
  const std::wstring open = L"\"" + installDir_ + L"\\Qmkview8.exe\" \"%1\"";

  ExpectString(HKEY_LOCAL_MACHINE, kVendor, L"AllUsers", L"A");
  ExpectString(HKEY_LOCAL_MACHINE, kVendor, L"Path", installDir_);
  ExpectString(HKEY_CLASSES_ROOT, L"Quillmark.8\\shell\\open\\command", nullptr, open);
  for (const wchar_t* extension : {L".bmp", L".dib", L".gif", L".jpg", L".jpeg", L".tif", L".tiff", L".png",
                                   L".cmp", L".tga", L".wpg", L".jp2", L".j2k", L".dqm"})
    ExpectString(HKEY_LOCAL_MACHINE, kAssociations, extension, L"Quillmark.8");
  EXPECT_EQ(ValueCount(HKEY_LOCAL_MACHINE, kAssociations), 14u);
  ExpectString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"Quillmark.8",
               L"SOFTWARE\\Lanternfold\\Quillmark 8\\Capabilities");
  ExpectString(HKEY_LOCAL_MACHINE, kAppPath, nullptr, installDir_ + L"\\Qmkview8.exe");
  ExpectString(HKEY_LOCAL_MACHINE, kAppPath, L"Path", installDir_);
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"Contact", L"Support");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"DisplayName", L"Quillmark 8");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"InstallLocation", installDir_);
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"DisplayVersion", L"8.05.03");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"VersionMajor", L"8");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"VersionMinor", L"5");
  ExpectNumber(HKEY_LOCAL_MACHINE, kUninstall, L"MajorVersion", 8);
  ExpectNumber(HKEY_LOCAL_MACHINE, kUninstall, L"MinorVersion", 5);
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"Publisher", L"Lanternfold Technology LLC");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"UninstallString", installDir_ + L"\\QmkUnInst.exe");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"URLInfoAbout", kMakerHomePage);
  ExpectString(HKEY_CLASSES_ROOT, L"Applications\\Qmkview8.exe\\shell\\open\\command", nullptr, open);
  EXPECT_EQ(ValueCount(HKEY_LOCAL_MACHINE, kUninstall), 11u);
  EXPECT_EQ(ValueCount(HKEY_LOCAL_MACHINE, kVendor), 2u);
}

// An all-users installation records "B"; two-digit parts show unpadded where
// they are "%d" and padded in the display version.
TEST_F(RegistrationTest, AllUsersAndVersionFormats) {
  installSettings.installType = 1;
  installSettings.newVersion = {12, 34, 5, 0};
  WriteRegistryEntries();
  ExpectString(HKEY_LOCAL_MACHINE, kVendor, L"AllUsers", L"B");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"DisplayVersion", L"12.34.05");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"VersionMajor", L"12");
  ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"VersionMinor", L"34");
  ExpectNumber(HKEY_LOCAL_MACHINE, kUninstall, L"MinorVersion", 34);
}

// The associations point to the application entry before Windows 8 and to the
// programmatic identifier from Windows 8 on.
TEST_F(RegistrationTest, AssociationTargetFollowsWindowsVersion) {
  struct Case { DWORD major, minor; const wchar_t* target; };
  for (const Case& c : {Case{5, 1, L"Applications\\Qmkview8.exe"}, Case{6, 1, L"Applications\\Qmkview8.exe"},
                        Case{6, 2, L"Quillmark.8"}, Case{10, 0, L"Quillmark.8"}}) {
    windowsVersion.dwMajorVersion = c.major;
    windowsVersion.dwMinorVersion = c.minor;
    WriteRegistryEntries();
    SCOPED_TRACE(testing::Message() << c.major << "." << c.minor);
    ExpectString(HKEY_LOCAL_MACHINE, kAssociations, L".jpg", c.target);
    ExpectString(HKEY_LOCAL_MACHINE, kAssociations, L".dqm", c.target);
  }
}

// The thumbnail extension: the 64-bit one under WOW64 (none before Vista),
// else the 32-bit one, or its XP edition before Vista.
TEST_F(RegistrationTest, ThumbnailExtensionBySystem) {
  windowsVersion.dwMajorVersion = 6;
  windowsVersion.dwMinorVersion = 1;
  const std::wstring current = ThumbnailExtensionPath();
  windowsVersion.dwMajorVersion = 5;
  const std::wstring beforeVista = ThumbnailExtensionPath();
  if (IsWow64()) {
    EXPECT_EQ(current, installDir_ + L"\\x64\\ThumbDqm64.dll");
    EXPECT_EQ(beforeVista, L"");
    EXPECT_FALSE(RegisterThumbnailExtension());
  } else {
    EXPECT_EQ(current, installDir_ + L"\\ThumbDqm32.dll");
    EXPECT_EQ(beforeVista, installDir_ + L"\\ThumbDqmXP32.dll");
  }
}

// The chosen extension is handed to "regsvr32.exe /s" with its path quoted
// (the folder has blanks). Only the 64-bit build is checked: Wine's 32-bit
// regsvr32 cannot take the 64-bit extension that WOW64 chooses.
TEST_F(RegistrationTest, RegistersThumbnailExtension) {
  if (IsWow64()) GTEST_SKIP() << "32-bit regsvr32 of this Wine crashes on a 64-bit DLL";
  const std::wstring dll = qmtest::BinDir() + L"\\ThumbDqm32.dll";
  if (!qmtest::FileExists(dll)) GTEST_SKIP() << "thumbnail extension stand-in not built";
  windowsVersion.dwMajorVersion = 10;
  ::CreateDirectoryW(installDir_.c_str(), nullptr);
  ASSERT_TRUE(::CopyFileW(dll.c_str(), ThumbnailExtensionPath().c_str(), FALSE));
  const std::wstring trace = root_ / L"trace.log";
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace.c_str());

  EXPECT_TRUE(RegisterThumbnailExtension());
  std::string lines;
  for (int i = 0; i < 150 && lines.find("register") == std::string::npos; ++i) {
    ::Sleep(100);
    lines = qmtest::ReadFileBytes(trace);
  }
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
  EXPECT_NE(lines.find("register"), std::string::npos) << lines;
  EXPECT_EQ(lines.find("unregister"), std::string::npos) << lines;
  ::Sleep(1000);  // let regsvr32 let go of the DLL before its folder goes
}

// The existing installation: "Path" first, else App Paths cut before the
// executable's name; one trailing backslash dropped; empty when neither says.
TEST_F(RegistrationTest, ExistingInstallFolder) {
  EXPECT_EQ(ExistingInstallFolder(), L"");
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPath, nullptr, L"C:\\Apps\\QM\\Qmkview8.exe");
  EXPECT_EQ(ExistingInstallFolder(), L"C:\\Apps\\QM");
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPath, nullptr, L"C:\\Apps\\QM\\\\Qmkview8.exe");
  EXPECT_EQ(ExistingInstallFolder(), L"C:\\Apps\\QM");
  WriteRegString(HKEY_LOCAL_MACHINE, kAppPath, nullptr, L"C:\\Apps\\QM\\Other.exe");
  EXPECT_EQ(ExistingInstallFolder(), L"");
  WriteRegString(HKEY_LOCAL_MACHINE, kVendor, L"Path", L"D:\\Tools\\Q8\\");
  EXPECT_EQ(ExistingInstallFolder(), L"D:\\Tools\\Q8");
}

// The default base folder is the machine's program-files folder (as the shell
// names it for this process), without a trailing backslash.
TEST_F(RegistrationTest, DefaultBaseFolderIsProgramFiles) {
  wchar_t shell[MAX_PATH] = {};
  ASSERT_EQ(::SHGetFolderPathW(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, shell), S_OK);
  std::wstring folder = DefaultBaseFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_NE(folder.back(), L'\\');
  EXPECT_EQ(::_wcsicmp(folder.c_str(), shell), 0) << qmtest::Narrow(folder);
}

// Prepared settings beside the package travel into the installation; without
// a package folder nothing is copied.
TEST_F(RegistrationTest, ImportsSettingsFromPackageFolder) {
  const std::wstring sfx = root_ / L"sfx";
  ::CreateDirectoryW(sfx.c_str(), nullptr);
  ::CreateDirectoryW(installDir_.c_str(), nullptr);
  ASSERT_TRUE(qmtest::WriteFileBytes(sfx + L"\\Qmkview8.ini", "[ini]"));
  ASSERT_TRUE(qmtest::WriteFileBytes(sfx + L"\\Qmkview8.reg", "REGEDIT4"));
  ASSERT_TRUE(qmtest::WriteFileBytes(sfx + L"\\other.ini", "no"));

  installSettings.sfxFolder.clear();
  ImportSettings();
  EXPECT_FALSE(qmtest::FileExists(installDir_ + L"\\Qmkview8.ini"));

  installSettings.sfxFolder = sfx;
  ImportSettings();
  EXPECT_EQ(qmtest::ReadFileBytes(installDir_ + L"\\Qmkview8.ini"), "[ini]");
  EXPECT_EQ(qmtest::ReadFileBytes(installDir_ + L"\\Qmkview8.reg"), "REGEDIT4");
  EXPECT_FALSE(qmtest::FileExists(installDir_ + L"\\other.ini"));
}

// The installed product is started with " -regonly" in the installation folder.
TEST_F(RegistrationTest, StartsProductWithRegonly) {
  const std::wstring standin = qmtest::BinDir() + L"\\standin-8.5.3.0\\Qmkview8.exe";
  if (!qmtest::FileExists(standin)) GTEST_SKIP() << "stand-in product not built";
  ::CreateDirectoryW(installDir_.c_str(), nullptr);
  ASSERT_TRUE(::CopyFileW(standin.c_str(), (installDir_ + L"\\Qmkview8.exe").c_str(), FALSE));
  const std::wstring trace = root_ / L"trace.log";
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", trace.c_str());

  EXPECT_TRUE(StartProductRegistration());
  std::string lines;
  for (int i = 0; i < 100 && lines.find("regonly") == std::string::npos; ++i) {
    ::Sleep(100);
    lines = qmtest::ReadFileBytes(trace);
  }
  ::SetEnvironmentVariableW(L"QM_TRACE_FILE", nullptr);
  EXPECT_NE(lines.find("regonly " + qmtest::Narrow(installDir_) + "\\Qmkview8.exe"), std::string::npos)
      << lines;
  // Let the stand-in end before its folder goes.
  DWORD pid = std::stoul(lines.empty() ? "0" : lines);
  UniqueHandle process(::OpenProcess(SYNCHRONIZE, FALSE, pid));
  if (process) ::WaitForSingleObject(process.get(), 10000);
}

}  // namespace
