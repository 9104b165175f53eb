#include "uninstall/registry_cleanup.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <string>
#include <vector>

#include "sys/platform.h"
#include "sys/registry.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::DropKey;
using qmtest::GetString;
using qmtest::KeyExists;
using qmtest::MakeKey;

constexpr wchar_t kMakerKey[] = L"SOFTWARE\\QmTest Maker";
constexpr wchar_t kProductKey[] = L"SOFTWARE\\QmTest Maker\\QmTest Product";
constexpr wchar_t kApplicationKey[] = L"SOFTWARE\\Classes\\Applications\\QmTestView.exe";
constexpr wchar_t kUninstallEntry[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\QmTest Entry";
constexpr wchar_t kHostKey[] = L"SOFTWARE\\Mozilla\\NativeMessagingHosts\\qmrkff";

std::vector<std::wstring> Profiles() {
  std::vector<std::wstring> names;
  wchar_t name[512];
  for (DWORD i = 0; ::RegEnumKeyW(HKEY_USERS, i, name, 512) == ERROR_SUCCESS; ++i) names.push_back(name);
  return names;
}

void RemoveEntries() {
  RemoveRegistryEntries(L"QmTest Maker", L"QmTest Product", L"QmTest Entry", L"QmTestView.exe");
}

// The machine's two views and the current user, for the host key.
struct HostPlace { HKEY root; REGSAM view; };
const HostPlace kHostPlaces[] = {
    {HKEY_LOCAL_MACHINE, KEY_WOW64_64KEY}, {HKEY_LOCAL_MACHINE, KEY_WOW64_32KEY}, {HKEY_CURRENT_USER, 0}};

// Drops the keys the tests make (the prefix is the test bench's own).
class RegistryCleanupTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const wchar_t* key : {kMakerKey, kApplicationKey, kUninstallEntry}) DropKey(HKEY_LOCAL_MACHINE, key);
    for (const std::wstring& profile : Profiles())
      for (const wchar_t* key : {kMakerKey, kApplicationKey}) DropKey(HKEY_USERS, profile + L"\\" + key);
    for (const HostPlace& place : kHostPlaces) DropKey(place.root, kHostKey, place.view);
    DropKey(HKEY_CLASSES_ROOT, L"QM8.Document");
  }
};

// The product key goes with its whole tree, for the machine and every profile
// under HKEY_USERS (the current user among them), and so does the application
// key; the maker key stays while another product is in it and goes once empty.
TEST_F(RegistryCleanupTest, MakerKeyKeptOnlyWhileShared) {
  std::vector<std::wstring> profiles = Profiles();
  ASSERT_GE(profiles.size(), 2u);
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kProductKey) + L"\\Settings\\Deeper"));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kMakerKey) + L"\\Other Product"));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kApplicationKey) + L"\\shell\\open\\command"));
  for (const std::wstring& profile : profiles)
    for (const wchar_t* key : {kProductKey, kApplicationKey})
      ASSERT_TRUE(MakeKey(HKEY_USERS, profile + L"\\" + key + L"\\Sub"));
  ASSERT_TRUE(MakeKey(HKEY_USERS, profiles[0] + L"\\" + kMakerKey + L"\\Sibling"));
  RemoveEntries();
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kProductKey));
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, std::wstring(kMakerKey) + L"\\Other Product"));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kApplicationKey));
  for (size_t i = 0; i < profiles.size(); ++i) {
    SCOPED_TRACE(qmtest::Narrow(profiles[i]));
    for (const wchar_t* key : {kProductKey, kApplicationKey})
      EXPECT_FALSE(KeyExists(HKEY_USERS, profiles[i] + L"\\" + key));
    EXPECT_EQ(KeyExists(HKEY_USERS, profiles[i] + L"\\" + kMakerKey), i == 0);
  }
  DropKey(HKEY_LOCAL_MACHINE, std::wstring(kMakerKey) + L"\\Other Product");
  RemoveEntries();
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kMakerKey));
}

// The earlier version's identifier goes with its tree; the uninstall entry goes
// by a plain delete, so one with a sub-key stays; the native-messaging host
// goes for the user and from the machine's 64-bit view on a 64-bit system (the
// 32-bit view is another key and stays). The other keys the install writes are
// checked by the end-to-end removal.
TEST_F(RegistryCleanupTest, OldIdentifierUninstallEntryAndNativeMessagingHost) {
  ASSERT_TRUE(MakeKey(HKEY_CLASSES_ROOT, L"QM8.Document\\shell\\open\\command"));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kUninstallEntry) + L"\\Child"));
  for (const HostPlace& place : kHostPlaces)
    ASSERT_TRUE(MakeKey(place.root, std::wstring(kHostKey) + L"\\sub", place.view));
  RemoveEntries();
  EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, L"QM8.Document"));
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, kUninstallEntry));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kHostKey, KEY_WOW64_64KEY));
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, kHostKey, KEY_WOW64_32KEY));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, kHostKey));
}

// ---------------------------------------------------------------------------
// Association restore.

constexpr wchar_t kFileExts[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\FileExts";
const wchar_t* const kUsedExtensions[] = {L".bmp", L".gif", L".tif", L".png", L".jpg", L".dqm"};

int noticeCount = 0;
void WINAPI CountNotice(LONG eventId, UINT, LPCVOID, LPCVOID) { noticeCount += eventId == SHCNE_ASSOCCHANGED; }

std::wstring Ext(const wchar_t* ext) { return std::wstring(kFileExts) + L"\\" + ext; }
void Put(const wchar_t* ext, const wchar_t* name, const wchar_t* text) {
  ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, Ext(ext).c_str(), name, text));
}
void PutChoice(const wchar_t* ext, const wchar_t* progid) {
  ASSERT_TRUE(WriteRegString(HKEY_CURRENT_USER, (Ext(ext) + L"\\UserChoice").c_str(), L"Progid", progid));
}
std::wstring Get(const wchar_t* ext, const wchar_t* name) { return GetString(HKEY_CURRENT_USER, Ext(ext), name); }

// Counts the change notices; puts the version record and the per-user keys back.
class AssociationTest : public ::testing::Test {
 protected:
  void SetUp() override { pShellChangeNotify = CountNotice; noticeCount = 0; }
  void TearDown() override {
    pShellChangeNotify = savedNotify_;
    for (const wchar_t* ext : kUsedExtensions) DropKey(HKEY_CURRENT_USER, Ext(ext));
    if (!fileExtsExisted_) DropKey(HKEY_CURRENT_USER, kFileExts);
  }

  qmtest::SettingsRestorer restorer_;
  ShellChangeNotifyFn savedNotify_ = pShellChangeNotify;
  bool fileExtsExisted_ = KeyExists(HKEY_CURRENT_USER, kFileExts);
};

// Below 6 the product's handlers go back to what it saved, or go; from 6 on the
// product's user choice goes instead. Other programs' types are untouched,
// "QmkviewOld" goes everywhere, and the change notice comes only when the
// product's association changed.
TEST_F(AssociationTest, RestoreBySystemVersion) {
  struct Case { DWORD major, minor; };
  for (const Case& c : {Case{5, 1}, Case{6, 1}, Case{10, 0}}) {
    SCOPED_TRACE(testing::Message() << c.major << "." << c.minor);
    const bool vista = c.major >= 6;
    windowsVersion.dwMajorVersion = c.major;
    windowsVersion.dwMinorVersion = c.minor;
    for (const wchar_t* ext : kUsedExtensions) DropKey(HKEY_CURRENT_USER, Ext(ext));
    noticeCount = 0;
    Put(L".gif", L"Application", L"C:\\Program Files\\Quillmark 8\\Qmkview8.exe");
    Put(L".bmp", L"Application", L"\"C:\\Q\\Qmkview8.exe\" \"%1\"");
    Put(L".bmp", L"QmkviewOld", L"mspaint.exe");
    Put(L".tif", L"Application", L"viewer.exe");
    Put(L".tif", L"QmkviewOld", L"stale.exe");
    PutChoice(L".png", L"Applications\\Qmkview8.exe");
    Put(L".png", L"QmkviewOld", L"pngview.exe");
    PutChoice(L".jpg", L"Applications\\Other.exe");

    RestoreFileAssociations();
    EXPECT_EQ(Get(L".gif", L"Application"), vista ? L"C:\\Program Files\\Quillmark 8\\Qmkview8.exe" : L"<missing>");
    EXPECT_EQ(Get(L".bmp", L"Application"), vista ? L"\"C:\\Q\\Qmkview8.exe\" \"%1\"" : L"mspaint.exe");
    EXPECT_EQ(Get(L".tif", L"Application"), L"viewer.exe");
    EXPECT_EQ(KeyExists(HKEY_CURRENT_USER, Ext(L".png") + L"\\UserChoice"), !vista);
    EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".jpg") + L"\\UserChoice", L"Progid"), L"Applications\\Other.exe");
    for (const wchar_t* ext : {L".bmp", L".tif", L".png"}) EXPECT_EQ(Get(ext, L"QmkviewOld"), L"<missing>");
    EXPECT_EQ(noticeCount, 1);

    // Nothing of the product's left, only another program's type with a saved value: no notice.
    Put(L".jpg", L"Application", L"other.exe");
    Put(L".jpg", L"QmkviewOld", L"older.exe");
    RestoreFileAssociations();
    EXPECT_EQ(Get(L".jpg", L"Application"), L"other.exe");
    EXPECT_EQ(Get(L".jpg", L"QmkviewOld"), L"<missing>");
    EXPECT_EQ(noticeCount, 1);
  }
}

// Without the per-user key the classes root and its default values are used.
TEST_F(AssociationTest, ClassesRootWhenNoPerUserKey) {
  if (fileExtsExisted_) GTEST_SKIP() << "the prefix has a per-user association key";
  if (KeyExists(HKEY_CLASSES_ROOT, L".dqm")) GTEST_SKIP() << ".dqm is registered in this prefix";
  windowsVersion.dwMajorVersion = 5;
  windowsVersion.dwMinorVersion = 1;
  ASSERT_TRUE(WriteRegString(HKEY_CLASSES_ROOT, L".dqm", nullptr, L"C:\\Q\\Qmkview8.exe"));
  ASSERT_TRUE(WriteRegString(HKEY_CLASSES_ROOT, L".dqm", L"QmkviewOld", L"QM8.Document"));
  RestoreFileAssociations();
  EXPECT_EQ(GetString(HKEY_CLASSES_ROOT, L".dqm", nullptr), L"QM8.Document");
  EXPECT_EQ(GetString(HKEY_CLASSES_ROOT, L".dqm", L"QmkviewOld"), L"<missing>");
  EXPECT_EQ(noticeCount, 1);
  DropKey(HKEY_CLASSES_ROOT, L".dqm");
}

}  // namespace
