#include "uninstall/registry_cleanup.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <string>
#include <vector>

#include "sys/platform.h"
#include "sys/registry.h"
#include "tests/uninstall/uninstall_test_support.h"

namespace {

using namespace uninstalltest;

constexpr wchar_t kMaker[] = L"QmTest Maker";
constexpr wchar_t kProduct[] = L"QmTest Product";
constexpr wchar_t kEntry[] = L"QmTest Entry";
constexpr wchar_t kExe[] = L"QmTestView.exe";
constexpr wchar_t kMakerKey[] = L"SOFTWARE\\QmTest Maker";
constexpr wchar_t kProductKey[] = L"SOFTWARE\\QmTest Maker\\QmTest Product";
constexpr wchar_t kApplicationKey[] = L"SOFTWARE\\Classes\\Applications\\QmTestView.exe";
constexpr wchar_t kUninstallKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr wchar_t kAppPathsKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths";
constexpr wchar_t kHostsKey[] = L"SOFTWARE\\Mozilla\\NativeMessagingHosts";

std::vector<std::wstring> Profiles() {
  std::vector<std::wstring> names;
  wchar_t name[512];
  for (DWORD i = 0; ::RegEnumKeyW(HKEY_USERS, i, name, 512) == ERROR_SUCCESS; ++i) names.push_back(name);
  return names;
}

void RemoveEntries() { RemoveRegistryEntries(kMaker, kProduct, kEntry, kExe); }

class RegistryCleanupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    mozillaExisted_[0] = KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Mozilla", KEY_WOW64_64KEY);
    mozillaExisted_[1] = KeyExists(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Mozilla", KEY_WOW64_32KEY);
    mozillaExisted_[2] = KeyExists(HKEY_CURRENT_USER, L"SOFTWARE\\Mozilla");
  }
  void TearDown() override {
    DropKey(HKEY_LOCAL_MACHINE, kMakerKey);
    DropKey(HKEY_CURRENT_USER, kMakerKey);
    DropKey(HKEY_LOCAL_MACHINE, kApplicationKey);
    for (const std::wstring& profile : Profiles()) {
      DropKey(HKEY_USERS, profile + L"\\" + kMakerKey);
      DropKey(HKEY_USERS, profile + L"\\" + kApplicationKey);
    }
    DropKey(HKEY_LOCAL_MACHINE, std::wstring(kUninstallKey) + L"\\" + kEntry);
    DropKey(HKEY_LOCAL_MACHINE, std::wstring(kUninstallKey) + L"\\QmTest Nested");
    DropKey(HKEY_LOCAL_MACHINE, std::wstring(kAppPathsKey) + L"\\" + kExe);
    DropKey(HKEY_CLASSES_ROOT, L"QM8.Document");
    DropKey(HKEY_CLASSES_ROOT, L"Quillmark.8");
    CKey registered;
    if (registered.Open(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", KEY_ALL_ACCESS) == ERROR_SUCCESS) {
      ::RegDeleteValueW(registered.get(), L"Quillmark.8");
      ::RegDeleteValueW(registered.get(), L"QmTest Other");
    }
    const REGSAM views[] = {KEY_WOW64_64KEY, KEY_WOW64_32KEY};
    for (int i = 0; i < 2; ++i) {
      DropKey(HKEY_LOCAL_MACHINE, std::wstring(kHostsKey) + L"\\qmrkff", views[i]);
      if (!mozillaExisted_[i]) DropKey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Mozilla", views[i]);
    }
    DropKey(HKEY_CURRENT_USER, std::wstring(kHostsKey) + L"\\qmrkff");
    if (!mozillaExisted_[2]) DropKey(HKEY_CURRENT_USER, L"SOFTWARE\\Mozilla");
  }

  bool mozillaExisted_[3] = {};
};

// The product key goes with its whole tree; the maker key stays while another product is in it.
TEST_F(RegistryCleanupTest, MakerKeyKeptOnlyWhileShared) {
  for (HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
    ASSERT_TRUE(MakeKey(root, std::wstring(kProductKey) + L"\\Settings\\Deeper"));
    ASSERT_TRUE(MakeKey(root, std::wstring(kProductKey) + L"\\Recent"));
  }
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kMakerKey) + L"\\Other Product"));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kApplicationKey) + L"\\shell\\open\\command"));
  RemoveEntries();
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kProductKey));
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, std::wstring(kMakerKey) + L"\\Other Product"));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, kMakerKey));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kApplicationKey));

  DropKey(HKEY_LOCAL_MACHINE, std::wstring(kMakerKey) + L"\\Other Product");
  RemoveEntries();
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, kMakerKey));
}

// Every profile under HKEY_USERS loses the product's keys.
TEST_F(RegistryCleanupTest, EveryProfileIsCleaned) {
  std::vector<std::wstring> profiles = Profiles();
  ASSERT_GE(profiles.size(), 2u);
  for (const std::wstring& profile : profiles) {
    ASSERT_TRUE(MakeKey(HKEY_USERS, profile + L"\\" + kProductKey + L"\\Sub"));
    ASSERT_TRUE(MakeKey(HKEY_USERS, profile + L"\\" + kApplicationKey + L"\\shell"));
  }
  ASSERT_TRUE(MakeKey(HKEY_USERS, profiles[0] + L"\\" + kMakerKey + L"\\Sibling"));
  RemoveEntries();
  for (const std::wstring& profile : profiles) {
    SCOPED_TRACE(std::string(profile.begin(), profile.end()));
    EXPECT_FALSE(KeyExists(HKEY_USERS, profile + L"\\" + kProductKey));
    EXPECT_FALSE(KeyExists(HKEY_USERS, profile + L"\\" + kApplicationKey));
  }
  EXPECT_TRUE(KeyExists(HKEY_USERS, profiles[0] + L"\\" + kMakerKey + L"\\Sibling"));
  for (size_t i = 1; i < profiles.size(); ++i)
    EXPECT_FALSE(KeyExists(HKEY_USERS, profiles[i] + L"\\" + kMakerKey));
}

// Identifiers, uninstall entry (plain delete), App Paths, registered application and the
// native-messaging host in the 64-bit view on 64-bit Windows.
TEST_F(RegistryCleanupTest, MachineEntries) {
  ASSERT_TRUE(MakeKey(HKEY_CLASSES_ROOT, L"QM8.Document\\shell\\open\\command"));
  ASSERT_TRUE(MakeKey(HKEY_CLASSES_ROOT, L"Quillmark.8\\DefaultIcon"));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kUninstallKey) + L"\\" + kEntry));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kUninstallKey) + L"\\QmTest Nested\\Child"));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kAppPathsKey) + L"\\" + kExe + L"\\Sub"));
  ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"Quillmark.8", L"x"));
  ASSERT_TRUE(SetString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"QmTest Other", L"y"));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kHostsKey) + L"\\qmrkff\\sub", KEY_WOW64_64KEY));
  ASSERT_TRUE(MakeKey(HKEY_LOCAL_MACHINE, std::wstring(kHostsKey) + L"\\qmrkff", KEY_WOW64_32KEY));
  ASSERT_TRUE(MakeKey(HKEY_CURRENT_USER, std::wstring(kHostsKey) + L"\\qmrkff\\sub"));

  RemoveEntries();
  EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, L"QM8.Document"));
  EXPECT_FALSE(KeyExists(HKEY_CLASSES_ROOT, L"Quillmark.8"));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, std::wstring(kUninstallKey) + L"\\" + kEntry));
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, std::wstring(kAppPathsKey) + L"\\" + kExe));
  EXPECT_EQ(GetString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"Quillmark.8"), L"<missing>");
  EXPECT_EQ(GetString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"QmTest Other"), L"y");
  EXPECT_FALSE(KeyExists(HKEY_LOCAL_MACHINE, std::wstring(kHostsKey) + L"\\qmrkff", KEY_WOW64_64KEY));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, std::wstring(kHostsKey) + L"\\qmrkff"));
  // An uninstall entry with a sub-key survives the plain delete.
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, std::wstring(kUninstallKey) + L"\\QmTest Nested"));
  // The 32-bit view is a different key: left alone.
  EXPECT_TRUE(KeyExists(HKEY_LOCAL_MACHINE, std::wstring(kHostsKey) + L"\\qmrkff", KEY_WOW64_32KEY));
}

// DeleteKeyTree takes every level and sibling; DeleteKeyIfLeaf keeps a key with a sub-key.
TEST_F(RegistryCleanupTest, KeyHelpers) {
  std::wstring base = std::wstring(kMakerKey) + L"\\Tree";
  for (const wchar_t* path : {L"\\a\\a1\\a11", L"\\a\\a2", L"\\b", L"\\c\\c1", L"\\c\\c2\\c21"})
    ASSERT_TRUE(MakeKey(HKEY_CURRENT_USER, base + path));
  EXPECT_TRUE(DeleteKeyTree(HKEY_CURRENT_USER, base.c_str()));
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, base));
  EXPECT_FALSE(DeleteKeyTree(HKEY_CURRENT_USER, base.c_str()));

  ASSERT_TRUE(MakeKey(HKEY_CURRENT_USER, std::wstring(kMakerKey) + L"\\Parent\\Child"));
  DeleteKeyIfLeaf(HKEY_CURRENT_USER, (std::wstring(kMakerKey) + L"\\Parent").c_str());
  EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, std::wstring(kMakerKey) + L"\\Parent\\Child"));
  DeleteKeyIfLeaf(HKEY_CURRENT_USER, (std::wstring(kMakerKey) + L"\\Parent\\Child").c_str());
  EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, std::wstring(kMakerKey) + L"\\Parent\\Child"));
  EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, std::wstring(kMakerKey) + L"\\Parent"));
}

// ---------------------------------------------------------------------------
// Association restore.

constexpr wchar_t kFileExts[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\FileExts";
const wchar_t* const kUsedExtensions[] = {L".bmp", L".gif", L".tif", L".png", L".jpg", L".dqm"};

int noticeCount = 0;
LONG lastNotice = 0;
void WINAPI CountNotice(LONG eventId, UINT, LPCVOID, LPCVOID) {
  ++noticeCount;
  lastNotice = eventId;
}

class AssociationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    savedVersion_ = windowsVersion;
    savedNotify_ = pShellChangeNotify;
    pShellChangeNotify = CountNotice;
    noticeCount = 0;
    fileExtsExisted_ = KeyExists(HKEY_CURRENT_USER, kFileExts);
    for (const wchar_t* ext : kUsedExtensions)
      if (KeyExists(HKEY_CURRENT_USER, std::wstring(kFileExts) + L"\\" + ext))
        GTEST_SKIP() << "the prefix already has per-user associations";
    ASSERT_TRUE(MakeKey(HKEY_CURRENT_USER, kFileExts));
  }
  void TearDown() override {
    windowsVersion = savedVersion_;
    pShellChangeNotify = savedNotify_;
    for (const wchar_t* ext : kUsedExtensions) DropKey(HKEY_CURRENT_USER, std::wstring(kFileExts) + L"\\" + ext);
    if (!fileExtsExisted_) DropKey(HKEY_CURRENT_USER, kFileExts);
  }
  void PlayWindows(DWORD major, DWORD minor) {
    windowsVersion.dwMajorVersion = major;
    windowsVersion.dwMinorVersion = minor;
  }
  static std::wstring Ext(const wchar_t* ext) { return std::wstring(kFileExts) + L"\\" + ext; }

  OSVERSIONINFOEXW savedVersion_ = {};
  ShellChangeNotifyFn savedNotify_ = nullptr;
  bool fileExtsExisted_ = false;
};

// Below 6 the product's handlers go back to what it saved, or go; others keep theirs.
TEST_F(AssociationTest, BeforeVersion6RestoresSavedHandlers) {
  PlayWindows(5, 1);
  SetString(HKEY_CURRENT_USER, Ext(L".gif"), L"Application", L"C:\\Program Files\\Quillmark 8\\Qmkview8.exe");
  SetString(HKEY_CURRENT_USER, Ext(L".bmp"), L"Application", L"\"C:\\Q\\Qmkview8.exe\" \"%1\"");
  SetString(HKEY_CURRENT_USER, Ext(L".bmp"), L"QmkviewOld", L"mspaint.exe");
  SetString(HKEY_CURRENT_USER, Ext(L".tif"), L"Application", L"viewer.exe");
  SetString(HKEY_CURRENT_USER, Ext(L".tif"), L"QmkviewOld", L"stale.exe");
  SetString(HKEY_CURRENT_USER, Ext(L".png") + L"\\UserChoice", L"Progid", L"Applications\\Qmkview8.exe");
  RestoreFileAssociations();
  EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".gif"), L"Application"), L"<missing>");
  EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".bmp"), L"Application"), L"mspaint.exe");
  EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".bmp"), L"QmkviewOld"), L"<missing>");
  EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".tif"), L"Application"), L"viewer.exe");
  EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".tif"), L"QmkviewOld"), L"<missing>");
  EXPECT_TRUE(KeyExists(HKEY_CURRENT_USER, Ext(L".png") + L"\\UserChoice"));
  EXPECT_EQ(noticeCount, 1);
  EXPECT_EQ(lastNotice, SHCNE_ASSOCCHANGED);

  // Nothing of the product's is left: no notice.
  RestoreFileAssociations();
  EXPECT_EQ(noticeCount, 1);
}

// Below 6, a type held by another program only loses "QmkviewOld" and causes no notice.
TEST_F(AssociationTest, BeforeVersion6OtherProgramsNoNotice) {
  PlayWindows(5, 1);
  SetString(HKEY_CURRENT_USER, Ext(L".jpg"), L"Application", L"other.exe");
  SetString(HKEY_CURRENT_USER, Ext(L".jpg"), L"QmkviewOld", L"older.exe");
  RestoreFileAssociations();
  EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".jpg"), L"Application"), L"other.exe");
  EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".jpg"), L"QmkviewOld"), L"<missing>");
  EXPECT_EQ(noticeCount, 0);
}

// From 6 on the product's user choice is removed; others' choices stay; "QmkviewOld" goes everywhere.
TEST_F(AssociationTest, FromVersion6RemovesUserChoice) {
  for (DWORD major : {6u, 10u}) {
    SCOPED_TRACE(major);
    PlayWindows(major, major == 6 ? 1 : 0);
    noticeCount = 0;
    SetString(HKEY_CURRENT_USER, Ext(L".png") + L"\\UserChoice", L"Progid", L"Applications\\Qmkview8.exe");
    SetString(HKEY_CURRENT_USER, Ext(L".png"), L"QmkviewOld", L"pngview.exe");
    SetString(HKEY_CURRENT_USER, Ext(L".jpg") + L"\\UserChoice", L"Progid", L"Applications\\Other.exe");
    SetString(HKEY_CURRENT_USER, Ext(L".jpg"), L"QmkviewOld", L"x.exe");
    SetString(HKEY_CURRENT_USER, Ext(L".gif"), L"Application", L"Qmkview8.exe");
    RestoreFileAssociations();
    EXPECT_FALSE(KeyExists(HKEY_CURRENT_USER, Ext(L".png") + L"\\UserChoice"));
    EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".png"), L"QmkviewOld"), L"<missing>");
    EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".jpg") + L"\\UserChoice", L"Progid"), L"Applications\\Other.exe");
    EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".jpg"), L"QmkviewOld"), L"<missing>");
    EXPECT_EQ(GetString(HKEY_CURRENT_USER, Ext(L".gif"), L"Application"), L"Qmkview8.exe");
    EXPECT_EQ(noticeCount, 1);
    RestoreFileAssociations();
    EXPECT_EQ(noticeCount, 1);
    DropKey(HKEY_CURRENT_USER, Ext(L".jpg") + L"\\UserChoice");
  }
}

// Without the per-user key the classes root and its default values are used.
TEST_F(AssociationTest, ClassesRootWhenNoPerUserKey) {
  if (fileExtsExisted_) GTEST_SKIP() << "the prefix has a per-user association key";
  DropKey(HKEY_CURRENT_USER, kFileExts);
  bool dqmExisted = KeyExists(HKEY_CLASSES_ROOT, L".dqm");
  if (dqmExisted) GTEST_SKIP() << ".dqm is registered in this prefix";
  PlayWindows(5, 1);
  ASSERT_TRUE(SetString(HKEY_CLASSES_ROOT, L".dqm", nullptr, L"C:\\Q\\Qmkview8.exe"));
  ASSERT_TRUE(SetString(HKEY_CLASSES_ROOT, L".dqm", L"QmkviewOld", L"QM8.Document"));
  RestoreFileAssociations();
  EXPECT_EQ(GetString(HKEY_CLASSES_ROOT, L".dqm", nullptr), L"QM8.Document");
  EXPECT_EQ(GetString(HKEY_CLASSES_ROOT, L".dqm", L"QmkviewOld"), L"<missing>");
  EXPECT_EQ(noticeCount, 1);
  DropKey(HKEY_CLASSES_ROOT, L".dqm");
}

}  // namespace
