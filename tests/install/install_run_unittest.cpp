// The install run and its parts: registration, shortcuts, the run itself.
#include <gtest/gtest.h>
#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>

#include <algorithm>
#include <string>
#include <vector>

#include "install/install_run.h"
#include "install/registration.h"
#include "install/shortcuts.h"
#include "product/product.h"
#include "product/settings.h"
#include "sys/platform.h"
#include "sys/registry.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::FileExists;
using qmtest::Narrow;
using qmtest::ReadFileBytes;
using qmtest::WriteFileBytes;
using Lines = std::vector<std::string>;

constexpr wchar_t kWindows[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\";

// Every value of a key as "name=text;" (a REG_SZ whose size counts its zero),
// "name=#number;" (a REG_DWORD) or "name=?type;", sorted by name.
std::wstring Dump(HKEY root, const std::wstring& key) {
  CKey open;
  std::vector<std::wstring> values;
  wchar_t name[256], data[1024];
  DWORD nameSize, type, size;
  auto* bytes = reinterpret_cast<BYTE*>(data);
  if (open.Open(root, key.c_str(), KEY_READ) == ERROR_SUCCESS)
    for (DWORD i = 0; nameSize = 256, size = sizeof data - sizeof(wchar_t),
                      !::RegEnumValueW(open.get(), i, name, &nameSize, nullptr, &type, bytes, &size);
         ++i) {
      data[size / sizeof(wchar_t)] = 0;
      std::wstring text = L"?" + std::to_wstring(type);
      if (type == REG_DWORD) text = L"#" + std::to_wstring(data[0] | data[1] << 16);
      if (type == REG_SZ && size == (::wcslen(data) + 1) * sizeof(wchar_t)) text = data;
      values.push_back(std::wstring(name) + L"=" + text + L";");
    }
  std::sort(values.begin(), values.end());
  std::wstring dump;
  for (const std::wstring& value : values) dump += value;
  return dump;
}

std::wstring Lower(std::wstring text) {
  ::CharLowerBuffW(text.data(), static_cast<DWORD>(text.size()));
  return text;
}

// "path|arguments|working folder|description|show command" in lower case as
// the shell reads the link back (the show command from the file's header at
// offset 60, which the shell's loader does not hand back); "not loaded" on failure.
std::wstring ReadLink(const std::wstring& linkPath) {
  ComPtr<IShellLinkW> link;
  ComPtr<IPersistFile> file;
  if (FAILED(::CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                link.put_void())) ||
      FAILED(link->QueryInterface(IID_IPersistFile, file.put_void())) ||
      FAILED(file->Load(linkPath.c_str(), STGM_READ)))
    return L"not loaded";
  wchar_t path[1024] = {}, arguments[1024] = {}, folder[1024] = {}, description[1024] = {};
  link->GetPath(path, 1024, nullptr, SLGP_RAWPATH);
  link->GetArguments(arguments, 1024);
  link->GetWorkingDirectory(folder, 1024);
  link->GetDescription(description, 1024);
  std::string bytes = ReadFileBytes(linkPath);
  return Lower(std::wstring(path) + L"|" + arguments + L"|" + folder + L"|" + description + L"|" +
               std::to_wstring(bytes.size() >= 64 ? *reinterpret_cast<const INT32*>(bytes.data() + 60) : 0));
}

class InstallRunTest : public testing::Test {
 protected:
  void SetUp() override {
    ::CoInitialize(nullptr);
    TearDown();
    for (const std::wstring& folder : {package_, sfx_, root_ / L"Programs", installDir_})
      ::CreateDirectoryW(folder.c_str(), nullptr);
    installSettings = {.installType = 0, .installDir = installDir_, .sourceDir = package_,
                       .groupName = L"QmEngine Old Group", .defaultDirUsed = 1, .newVersion = {8, 5, 3, 0},
                       .sfxFolder = sfx_};
    windowsVersion.dwMajorVersion = 10;
    windowsVersion.dwMinorVersion = 0;
  }
  void TearDown() override {
    qmtest::DeleteProductRegistry();
    for (int csidl : {CSIDL_PROGRAMS, CSIDL_COMMON_PROGRAMS})
      for (const wchar_t* group : {L"\\QmEngine Old Group", L"\\QmEngine New Group", L"\\QmEngine Tools"})
        qmtest::RemoveTree(ShellFolderPath(csidl) + group);
    for (int csidl : {CSIDL_DESKTOP, CSIDL_COMMON_DESKTOPDIRECTORY})
      ::DeleteFileW((ShellFolderPath(csidl) + L"\\Quillmark 8.lnk").c_str());
    qmtest::ForgetPendingUnder(root_.path());
  }
  static void PutFiles(const std::wstring& folder, const std::vector<std::wstring>& names) {
    for (const std::wstring& name : names) ASSERT_TRUE(WriteFileBytes(folder + L"\\" + name, Narrow(name)));
  }
  // The arguments of the journal's entries of one kind.
  Lines Journalled(const std::string& prefix) const {
    Lines found;
    for (const std::string& line : qmtest::ReadLines(installDir_ + L"\\QmkUnInst.log"))
      if (line.rfind(prefix, 0) == 0) found.push_back(line.substr(prefix.size()));
    return found;
  }

  qmtest::SettingsRestorer restorer_;
  qmtest::MessageBoxRecorder boxes_;
  qmtest::TempDir root_{L"qm engine run"};
  std::wstring package_ = root_ / L"package", sfx_ = root_ / L"sfx";
  std::wstring installDir_ = root_ / L"Programs\\Quillmark 8";
};

// Every value with its type and data; association target by Windows version (6.2 the turning point).
TEST_F(InstallRunTest, RegistrationWritesEveryValueWithItsType) {
  installSettings.installType = 1;
  installSettings.newVersion = {12, 34, 5, 7};
  WriteRegistryEntries();
  const std::wstring dir = installDir_, exe = dir + L"\\Qmkview8.exe", open = L"=\"" + exe + L"\" \"%1\";";
  EXPECT_EQ(Dump(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold\\Quillmark 8"), L"AllUsers=B;Path=" + dir + L";");
  EXPECT_EQ(Dump(HKEY_LOCAL_MACHINE, kWindows + std::wstring(L"Uninstall\\Quillmark 8")),
            L"Contact=Support;DisplayIcon=" + exe + L";DisplayName=Quillmark 8;DisplayVersion=12.34.05;" +
                L"EstimatedSize=#0;InstallDate=" + TodayAsYyyymmdd() + L";InstallLocation=" + dir +
                L";MajorVersion=#12;MinorVersion=#34;NoModify=#1;NoRepair=#1;Publisher=Lanternfold Technology LLC;" +
                L"QuietUninstallString=\"" + dir + L"\\QmkUnInst.exe\";URLInfoAbout=" +
                kMakerHomePage + L";UninstallString=" + dir + L"\\QmkUnInst.exe;VersionMajor=12;VersionMinor=34;");
  EXPECT_EQ(Dump(HKEY_LOCAL_MACHINE, kWindows + std::wstring(L"App Paths\\Qmkview8.exe")),
            L"=" + exe + L";Path=" + dir + L";");
  EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, L"Quillmark.8\\shell\\open\\command"), open);
  EXPECT_EQ(Dump(HKEY_CLASSES_ROOT, L"Applications\\Qmkview8.exe\\shell\\open\\command"), open);
  EXPECT_EQ(qmtest::GetString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\RegisteredApplications", L"Quillmark.8"),
            L"SOFTWARE\\Lanternfold\\Quillmark 8\\Capabilities");
  struct Case { DWORD major, minor; const wchar_t* target; };
  for (const Case& c : {Case{10, 0, L"Quillmark.8"}, Case{6, 2, L"Quillmark.8"},
                        Case{6, 1, L"Applications\\Qmkview8.exe"}, Case{5, 1, L"Applications\\Qmkview8.exe"}}) {
    windowsVersion.dwMajorVersion = c.major;
    windowsVersion.dwMinorVersion = c.minor;
    WriteRegistryEntries();
    std::wstring associations;
    for (const wchar_t* type : {L".bmp", L".cmp", L".dib", L".dqm", L".gif", L".j2k", L".jp2", L".jpeg", L".jpg",
                                L".png", L".tga", L".tif", L".tiff", L".wpg"})
      associations += type + (L"=" + std::wstring(c.target) + L";");
    EXPECT_EQ(Dump(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold\\Quillmark 8\\Capabilities\\FileAssociations"),
              associations) << c.major << "." << c.minor;
  }
}

// Thumbnail extension: 64-bit under WOW64 (none before Vista), else 32-bit or its XP edition.
TEST_F(InstallRunTest, ThumbnailExtensionBySystem) {
  windowsVersion.dwMajorVersion = 5;
  EXPECT_EQ(ThumbnailExtensionPath(), IsWow64() ? L"" : installDir_ + L"\\ThumbDqmXP32.dll");
  windowsVersion.dwMajorVersion = 6;
  windowsVersion.dwMinorVersion = 1;
  EXPECT_EQ(ThumbnailExtensionPath(), installDir_ + (IsWow64() ? L"\\x64\\ThumbDqm64.dll" : L"\\ThumbDqm32.dll"));
}

// A saved shortcut reads back as asked (quotes dropped) and is journalled; a failed save is not.
TEST_F(InstallRunTest, CreateShellLinkSavesAndJournals) {
  PutFiles(installDir_, {L"Qmkview8.exe", L"Qmkview8Man.chm"});
  const std::wstring program = installDir_ + L"\\Qmkview8.exe", help = installDir_ + L"\\Qmkview8Man.chm";
  const std::wstring capture = root_ / L"Capture.lnk", plain = root_ / L"Plain.lnk";
  EXPECT_TRUE(SUCCEEDED(CreateShellLink(L"\"" + program + L"\"", capture, L"Screen capture", SW_SHOWMAXIMIZED,
                                        L"-capture 1", root_.path().c_str())));
  EXPECT_EQ(ReadLink(capture), Lower(program + L"|-capture 1|" + root_.path() + L"|Screen capture|3"));
  EXPECT_TRUE(SUCCEEDED(CreateShellLink(help, plain, L"", SW_SHOWNORMAL, nullptr, nullptr)));
  EXPECT_EQ(ReadLink(plain), Lower(help + L"||||1"));
  const std::wstring missing = root_ / L"missing\\Capture.lnk";
  EXPECT_TRUE(FAILED(CreateShellLink(program, missing, L"", SW_SHOWNORMAL, nullptr, nullptr)));
  EXPECT_FALSE(FileExists(missing));
  EXPECT_EQ(Journalled("Shell Link: "), (Lines{Narrow(capture), Narrow(plain)}));
  EXPECT_TRUE(boxes_.shown().empty());
}

// No all-users programs folder: current-user links; a nested group journalled only as the full folder.
TEST_F(InstallRunTest, AllUsersWithoutCommonProgramsFallsBackToCurrentUser) {
  PutFiles(installDir_, {L"Qmkview8.exe", L"Qmkview8Man.chm"});
  installSettings.installType = 1;
  installSettings.groupName = L" QmEngine Tools/Capture\\";
  struct Saved {
    const wchar_t* key;
    DWORD type = 0;
    wchar_t text[MAX_PATH] = {};
    DWORD size = sizeof text;
  } saved[] = {{L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders"},
               {L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders"}};
  for (Saved& s : saved) {
    if (::RegGetValueW(HKEY_LOCAL_MACHINE, s.key, L"Common Programs", RRF_RT_ANY | RRF_NOEXPAND, &s.type, s.text,
                       &s.size) != ERROR_SUCCESS)
      s.type = 0;
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, s.key, L"Common Programs", REG_SZ, L"Q:", 3 * sizeof(wchar_t));
  }
  const std::wstring common = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
  if (common.size() < 4) CreateGroupAndShortcuts();
  for (Saved& s : saved)
    if (s.type == 0) ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, s.key, L"Common Programs");
    else ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, s.key, L"Common Programs", s.type, s.text, s.size);
  ASSERT_GE(ShellFolderPath(CSIDL_COMMON_PROGRAMS).size(), 4u) << "common programs folder not restored";
  if (common.size() >= 4) GTEST_SKIP() << "cannot take the common programs folder away: " << Narrow(common);

  EXPECT_EQ(installSettings.installType, 0);
  const std::string group = Narrow(ShellFolderPath(CSIDL_PROGRAMS) + L"\\QmEngine Tools\\Capture");
  EXPECT_EQ(Journalled("Made Dir: "), Lines{group});
  EXPECT_EQ(Journalled("Shell Link: "), (Lines{group + "\\Quillmark 8.lnk", group + "\\Quillmark 8 Help.lnk",
                                               Narrow(ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk")}));
  for (const std::string& link : Journalled("Shell Link: ")) EXPECT_TRUE(FileExists(qmtest::Widen(link))) << link;
  EXPECT_FALSE(FileExists(ShellFolderPath(CSIDL_COMMON_DESKTOPDIRECTORY) + L"\\Quillmark 8.lnk"));
  EXPECT_TRUE(boxes_.shown().empty());
}

// A reinstall with another group: old links and "File Del: " files go first, but not into the default folder.
TEST_F(InstallRunTest, ReinstallReplacesGroupAndObsoleteFiles) {
  PutFiles(package_, {L"Qmkview8.exe", L"legacy.txt", L"stale.dat"});
  PutFiles(sfx_, {L"Qmkview8.ini", L"Qmkview8.reg", L"other.ini"});
  ASSERT_TRUE(WriteFileBytes(package_ + L"\\QmkUnInst.log",
                             "File Copy: Qmkview8.exe\r\nFile Copy: legacy.txt\r\nFile Copy: stale.dat"));
  // A journal of an earlier version names a shortcut of its own.
  const std::wstring olderLink = root_ / L"older version.lnk";
  ASSERT_TRUE(WriteFileBytes(olderLink, "link"));
  ASSERT_TRUE(qmtest::WriteLines(installDir_ + L"\\install.log", {"Shell Link: " + Narrow(olderLink)}));
  EXPECT_EQ(RunInstall(), 0);
  const std::wstring programs = ShellFolderPath(CSIDL_PROGRAMS);
  ASSERT_TRUE(FileExists(programs + L"\\QmEngine Old Group\\Quillmark 8.lnk"));
  ASSERT_TRUE(FileExists(installDir_ + L"\\legacy.txt"));
  EXPECT_TRUE(FileExists(olderLink));  // nothing earlier is cleared in the default folder
  // Only the product's settings come from beside the package.
  EXPECT_EQ(ReadFileBytes(installDir_ + L"\\Qmkview8.ini") + ReadFileBytes(installDir_ + L"\\Qmkview8.reg"),
            "Qmkview8.iniQmkview8.reg");
  EXPECT_FALSE(FileExists(installDir_ + L"\\other.ini"));
  // The script lacks a final line break, so no empty line comes before the group.
  EXPECT_EQ(qmtest::ReadLines(installDir_ + L"\\QmkUnInst.log").at(3),
            "Made Dir: " + Narrow(programs) + "\\QmEngine Old Group");
  EXPECT_EQ(ReadRegString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Lanternfold\\Quillmark 8", L"AllUsers"), L"A");

  const std::wstring package2 = root_ / L"package two";
  ::CreateDirectoryW(package2.c_str(), nullptr);
  PutFiles(package2, {L"Qmkview8.exe", L"fresh.dat"});
  ASSERT_TRUE(qmtest::WriteLines(package2 + L"\\QmkUnInst.log", {"File Del: legacy.txt | replaced by fresh.dat",
                                                          "File Del: *.dat", "File Copy: fresh.dat"}));
  installSettings.sourceDir = package2;
  installSettings.groupName = L"QmEngine New Group";
  installSettings.defaultDirUsed = 0;
  RunInstall();

  EXPECT_FALSE(qmtest::DirExists(programs + L"\\QmEngine Old Group"));
  EXPECT_FALSE(FileExists(olderLink));
  EXPECT_TRUE(FileExists(programs + L"\\QmEngine New Group\\Quillmark 8.lnk"));
  EXPECT_TRUE(FileExists(ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk"));
  EXPECT_FALSE(FileExists(installDir_ + L"\\legacy.txt"));
  EXPECT_FALSE(FileExists(installDir_ + L"\\stale.dat"));
  EXPECT_EQ(ReadFileBytes(installDir_ + L"\\fresh.dat"), "fresh.dat");
}

}  // namespace
