#include <gtest/gtest.h>
#include <windows.h>

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

DWORD ValueCount(HKEY root, const wchar_t* key) {
  CKey open;
  DWORD count = 0;
  if (open.Open(root, key, KEY_READ) == ERROR_SUCCESS)
    ::RegQueryInfoKeyW(open.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                       nullptr, nullptr);
  return count;
}

// Expects a REG_SZ whose size counts the terminating zero.
void ExpectString(HKEY root, const wchar_t* key, const wchar_t* name, const std::wstring& text) {
  SCOPED_TRACE(qmtest::Narrow(name ? name : L"(default)"));
  RegValue value = ReadRegValue(root, key, name);
  EXPECT_EQ(value.type, static_cast<DWORD>(REG_SZ));
  EXPECT_EQ(value.text, text);
  EXPECT_EQ(value.size, (text.size() + 1) * sizeof(wchar_t));
}

void ExpectNumber(HKEY root, const wchar_t* key, const wchar_t* name, DWORD number) {
  RegValue value = ReadRegValue(root, key, name);
  EXPECT_EQ(value.type, static_cast<DWORD>(REG_DWORD)) << qmtest::Narrow(name);
  EXPECT_EQ(value.number, number) << qmtest::Narrow(name);
}

class RegistrationTest : public testing::Test {
 protected:
  void SetUp() override {
    qmtest::DeleteProductRegistry();
    installSettings.installDir = installDir_;
    windowsVersion.dwMajorVersion = 10;
    windowsVersion.dwMinorVersion = 0;
  }
  void TearDown() override { qmtest::DeleteProductRegistry(); }

  qmtest::SettingsRestorer restorer_;
  qmtest::TempDir root_{L"qm engine registration"};
  std::wstring installDir_ = root_ / L"Quillmark 8";
};

// Every value is written under the machine keys with its type and data, "A" or
// "B" by install type; version parts unpadded where "%d", padded in DisplayVersion.
TEST_F(RegistrationTest, WritesEveryValueWithItsType) {
  struct Case { int type; VersionQuad version; const wchar_t *allUsers, *display, *major, *minor; };
  for (const Case& c : {Case{0, {8, 5, 3, 7}, L"A", L"8.05.03", L"8", L"5"},
                        Case{1, {12, 34, 5, 0}, L"B", L"12.34.05", L"12", L"34"}}) {
    SCOPED_TRACE(c.type);
    installSettings.installType = c.type;
    installSettings.newVersion = c.version;
    WriteRegistryEntries();
    const std::wstring open = L"\"" + installDir_ + L"\\Qmkview8.exe\" \"%1\"";
    ExpectString(HKEY_LOCAL_MACHINE, kVendor, L"AllUsers", c.allUsers);
    ExpectString(HKEY_LOCAL_MACHINE, kVendor, L"Path", installDir_);
    ExpectString(HKEY_CLASSES_ROOT, L"Quillmark.8\\shell\\open\\command", nullptr, open);
    for (const wchar_t* extension : {L".bmp", L".dib", L".gif", L".jpg", L".jpeg", L".tif", L".tiff", L".png",
                                     L".cmp", L".tga", L".wpg", L".jp2", L".j2k", L".dqm"})
      ExpectString(HKEY_LOCAL_MACHINE, kAssociations, extension, L"Quillmark.8");
    ExpectString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"Quillmark.8",
                 L"SOFTWARE\\Lanternfold\\Quillmark 8\\Capabilities");
    ExpectString(HKEY_LOCAL_MACHINE, kAppPath, nullptr, installDir_ + L"\\Qmkview8.exe");
    ExpectString(HKEY_LOCAL_MACHINE, kAppPath, L"Path", installDir_);
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"Contact", L"Support");
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"DisplayName", L"Quillmark 8");
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"InstallLocation", installDir_);
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"DisplayVersion", c.display);
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"VersionMajor", c.major);
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"VersionMinor", c.minor);
    ExpectNumber(HKEY_LOCAL_MACHINE, kUninstall, L"MajorVersion", c.version.major);
    ExpectNumber(HKEY_LOCAL_MACHINE, kUninstall, L"MinorVersion", c.version.minor);
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"Publisher", L"Lanternfold Technology LLC");
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"UninstallString", installDir_ + L"\\QmkUnInst.exe");
    ExpectString(HKEY_LOCAL_MACHINE, kUninstall, L"URLInfoAbout", kMakerHomePage);
    ExpectString(HKEY_CLASSES_ROOT, L"Applications\\Qmkview8.exe\\shell\\open\\command", nullptr, open);
    EXPECT_EQ(ValueCount(HKEY_LOCAL_MACHINE, kAssociations), 14u);
    EXPECT_EQ(ValueCount(HKEY_LOCAL_MACHINE, kUninstall), 11u);
    EXPECT_EQ(ValueCount(HKEY_LOCAL_MACHINE, kVendor), 2u);
  }
}

// The associations point to the application entry before Windows 8 and to the
// programmatic identifier from Windows 8 on.
TEST_F(RegistrationTest, AssociationTargetFollowsWindowsVersion) {
  struct Case { DWORD major, minor; const wchar_t* target; };
  for (const Case& c : {Case{5, 1, L"Applications\\Qmkview8.exe"}, Case{6, 1, L"Applications\\Qmkview8.exe"},
                        Case{6, 2, L"Quillmark.8"}, Case{10, 0, L"Quillmark.8"}}) {
    SCOPED_TRACE(testing::Message() << c.major << "." << c.minor);
    windowsVersion.dwMajorVersion = c.major;
    windowsVersion.dwMinorVersion = c.minor;
    WriteRegistryEntries();
    ExpectString(HKEY_LOCAL_MACHINE, kAssociations, L".jpg", c.target);
    ExpectString(HKEY_LOCAL_MACHINE, kAssociations, L".dqm", c.target);
  }
}

// The thumbnail extension: the 64-bit one under WOW64 (none before Vista),
// else the 32-bit one, or its XP edition before Vista.
TEST_F(RegistrationTest, ThumbnailExtensionBySystem) {
  windowsVersion.dwMajorVersion = 5;
  const std::wstring beforeVista = ThumbnailExtensionPath();
  windowsVersion.dwMajorVersion = 6;
  windowsVersion.dwMinorVersion = 1;
  EXPECT_EQ(ThumbnailExtensionPath(), installDir_ + (IsWow64() ? L"\\x64\\ThumbDqm64.dll" : L"\\ThumbDqm32.dll"));
  EXPECT_EQ(beforeVista, IsWow64() ? L"" : installDir_ + L"\\ThumbDqmXP32.dll");
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

}  // namespace
