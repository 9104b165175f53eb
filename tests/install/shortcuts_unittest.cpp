#include <gtest/gtest.h>
#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>

#include <cwchar>
#include <string>
#include <vector>

#include "app/settings.h"
#include "install/shortcuts.h"
#include "sys/handles.h"
#include "sys/platform.h"
#include "tests/install/install_test_util.h"
#include "tests/support/test_support.h"

namespace {

using qmtest::DirExists;
using qmtest::FileExists;

struct LinkData {
  bool loaded = false;
  std::wstring path, arguments, workingFolder, description;
  int showCommand = 0;
};

LinkData ReadLink(const std::wstring& linkPath) {
  LinkData data;
  ComPtr<IShellLinkW> link;
  if (FAILED(::CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                link.put_void())))
    return data;
  ComPtr<IPersistFile> file;
  if (FAILED(link->QueryInterface(IID_IPersistFile, file.put_void()))) return data;
  if (FAILED(file->Load(linkPath.c_str(), STGM_READ))) return data;
  wchar_t buffer[1024] = {};
  data.loaded = true;
  if (SUCCEEDED(link->GetPath(buffer, 1024, nullptr, SLGP_RAWPATH))) data.path = buffer;
  buffer[0] = 0;
  if (SUCCEEDED(link->GetArguments(buffer, 1024))) data.arguments = buffer;
  buffer[0] = 0;
  if (SUCCEEDED(link->GetWorkingDirectory(buffer, 1024))) data.workingFolder = buffer;
  buffer[0] = 0;
  if (SUCCEEDED(link->GetDescription(buffer, 1024))) data.description = buffer;
  // The show command as stored in the file's header (offset 60), since the
  // shell's loader does not hand every value back.
  std::string bytes = qmtest::ReadFileBytes(linkPath);
  if (bytes.size() >= 64) data.showCommand = *reinterpret_cast<const INT32*>(bytes.data() + 60);
  return data;
}

bool SamePath(const std::wstring& a, const std::wstring& b) { return ::_wcsicmp(a.c_str(), b.c_str()) == 0; }

class ShortcutTest : public testing::Test {
 protected:
  void SetUp() override {
    ::CoInitialize(nullptr);
    ::CreateDirectoryW(installDir_.c_str(), nullptr);
    ASSERT_TRUE(qmtest::WriteFileBytes(installDir_ + L"\\Qmkview8.exe", "program"));
    ASSERT_TRUE(qmtest::WriteFileBytes(installDir_ + L"\\Qmkview8Man.chm", "help"));
    installSettings.installDir = installDir_;
    installSettings.installType = 0;
    installSettings.desktopIcon = 0;
    installSettings.autoStart = 0;
    RemoveProductShortcuts();
  }
  void TearDown() override {
    RemoveProductShortcuts();
    for (int csidl : {CSIDL_PROGRAMS, CSIDL_COMMON_PROGRAMS})
      qmtest::RemoveTree(ShellFolderPath(csidl) + L"\\QmEngine Tools");
  }
  static void RemoveProductShortcuts() {
    for (int csidl : {CSIDL_DESKTOP, CSIDL_COMMON_DESKTOPDIRECTORY, CSIDL_STARTUP, CSIDL_COMMON_STARTUP})
      ::DeleteFileW((ShellFolderPath(csidl) + L"\\Quillmark 8.lnk").c_str());
  }
  std::vector<std::string> Journal() const { return qmtest::ReadLines(installDir_ + L"\\QmkUnInst.log"); }
  std::vector<std::string> JournalLines(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const std::string& line : Journal())
      if (line.rfind(prefix, 0) == 0) found.push_back(line.substr(prefix.size()));
    return found;
  }
  // The folders as the journal spells them (8-bit text).
  static std::string Journalled(const std::wstring& path) { return qmtest::Narrow(path); }

  qmtest::SettingsRestorer restorer_;
  qmtest::MessageBoxRecorder boxes_;
  qmtest::TempDir root_{L"qm engine links"};
  std::wstring installDir_ = root_ / L"Quillmark 8";
};

// A shortcut keeps target (its quotes dropped), arguments, working folder,
// description and show command, and only then is journalled.
TEST_F(ShortcutTest, CreateShellLinkSavesAndJournals) {
  const std::wstring target = installDir_ + L"\\Qmkview8.exe";
  const std::wstring link = root_ / L"Capture.lnk";
  HRESULT result = CreateShellLink(L"\"" + target + L"\"", link, L"Screen capture", SW_SHOWMAXIMIZED,
                                   L"-capture 1", root_.path().c_str());
  EXPECT_TRUE(SUCCEEDED(result));
  LinkData data = ReadLink(link);
  ASSERT_TRUE(data.loaded);
  EXPECT_TRUE(SamePath(data.path, target)) << qmtest::Narrow(data.path);
  EXPECT_EQ(data.arguments, L"-capture 1");
  EXPECT_TRUE(SamePath(data.workingFolder, root_.path())) << qmtest::Narrow(data.workingFolder);
  EXPECT_EQ(data.description, L"Screen capture");
  EXPECT_EQ(data.showCommand, SW_SHOWMAXIMIZED);
  EXPECT_EQ(JournalLines("Shell Link: "), std::vector<std::string>{Journalled(link)});
  EXPECT_TRUE(boxes_.shown().empty());
}

// Without arguments, working folder or show command the link has none of them.
TEST_F(ShortcutTest, CreateShellLinkLeavesOptionalPartsUnset) {
  const std::wstring link = root_ / L"Plain.lnk";
  EXPECT_TRUE(SUCCEEDED(CreateShellLink(installDir_ + L"\\Qmkview8Man.chm", link, L"", SW_SHOWNORMAL,
                                        nullptr, nullptr)));
  LinkData data = ReadLink(link);
  ASSERT_TRUE(data.loaded);
  EXPECT_TRUE(SamePath(data.path, installDir_ + L"\\Qmkview8Man.chm"));
  EXPECT_EQ(data.arguments, L"");
  EXPECT_EQ(data.workingFolder, L"");
  EXPECT_EQ(data.showCommand, SW_SHOWNORMAL);
}

// A shortcut that cannot be saved (its folder is missing) leaves no entry.
TEST_F(ShortcutTest, FailedSaveWritesNoEntry) {
  const std::wstring link = root_ / L"missing\\Capture.lnk";
  HRESULT result = CreateShellLink(installDir_ + L"\\Qmkview8.exe", link, L"", SW_SHOWNORMAL, nullptr, nullptr);
  EXPECT_TRUE(FAILED(result));
  EXPECT_FALSE(FileExists(link));
  EXPECT_TRUE(JournalLines("Shell Link: ").empty());
}

// "Tools/Capture\" becomes two nested folders; only the full group folder is
// journalled, and it holds the program and help shortcuts.
TEST_F(ShortcutTest, NestedGroupJournalsOnlyFullFolder) {
  installSettings.groupName = L" QmEngine Tools/Capture\\";
  CreateGroupAndShortcuts();
  const std::wstring programs = ShellFolderPath(CSIDL_PROGRAMS);
  const std::wstring group = programs + L"\\QmEngine Tools\\Capture";
  ASSERT_TRUE(DirExists(group));
  EXPECT_EQ(JournalLines("Made Dir: "), std::vector<std::string>{Journalled(group)});
  const std::wstring program = group + L"\\Quillmark 8.lnk";
  const std::wstring help = group + L"\\Quillmark 8 Help.lnk";
  EXPECT_EQ(JournalLines("Shell Link: "), (std::vector<std::string>{Journalled(program), Journalled(help)}));

  LinkData programLink = ReadLink(program);
  ASSERT_TRUE(programLink.loaded);
  EXPECT_TRUE(SamePath(programLink.path, installDir_ + L"\\Qmkview8.exe"));
  EXPECT_TRUE(SamePath(programLink.workingFolder, ShellFolderPath(CSIDL_MYPICTURES)));
  LinkData helpLink = ReadLink(help);
  ASSERT_TRUE(helpLink.loaded);
  EXPECT_TRUE(SamePath(helpLink.path, installDir_ + L"\\Qmkview8Man.chm"));
  EXPECT_EQ(helpLink.workingFolder, L"");
  // No desktop or start-up shortcut was asked for.
  EXPECT_FALSE(FileExists(ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk"));
  EXPECT_FALSE(FileExists(ShellFolderPath(CSIDL_STARTUP) + L"\\Quillmark 8.lnk"));
  EXPECT_TRUE(boxes_.shown().empty());
}

// Desktop and start-up shortcuts go to the user's folders for a current-user
// installation and to the common ones for an all-users installation.
TEST_F(ShortcutTest, DesktopAndStartupFollowInstallType) {
  struct Case { int type; int programs, desktop, startup, otherDesktop, otherStartup; };
  for (const Case& c : {Case{0, CSIDL_PROGRAMS, CSIDL_DESKTOP, CSIDL_STARTUP, CSIDL_COMMON_DESKTOPDIRECTORY,
                             CSIDL_COMMON_STARTUP},
                        Case{1, CSIDL_COMMON_PROGRAMS, CSIDL_COMMON_DESKTOPDIRECTORY, CSIDL_COMMON_STARTUP,
                             CSIDL_DESKTOP, CSIDL_STARTUP}}) {
    SCOPED_TRACE(c.type);
    ::DeleteFileW((installDir_ + L"\\QmkUnInst.log").c_str());
    RemoveProductShortcuts();
    installSettings.installType = c.type;
    installSettings.groupName = L"QmEngine Tools";
    installSettings.desktopIcon = 1;
    installSettings.autoStart = 1;
    ASSERT_NE(ShellFolderPath(c.desktop), ShellFolderPath(c.otherDesktop));

    CreateGroupAndShortcuts();
    EXPECT_EQ(installSettings.installType, c.type);
    const std::wstring group = ShellFolderPath(c.programs) + L"\\QmEngine Tools";
    const std::wstring desktop = ShellFolderPath(c.desktop) + L"\\Quillmark 8.lnk";
    const std::wstring startup = ShellFolderPath(c.startup) + L"\\Quillmark 8.lnk";
    EXPECT_EQ(JournalLines("Made Dir: "), std::vector<std::string>{Journalled(group)});
    EXPECT_EQ(JournalLines("Shell Link: "),
              (std::vector<std::string>{Journalled(group + L"\\Quillmark 8.lnk"),
                                        Journalled(group + L"\\Quillmark 8 Help.lnk"), Journalled(desktop),
                                        Journalled(startup)}));
    for (const std::wstring& link : {desktop, startup}) {
      LinkData data = ReadLink(link);
      ASSERT_TRUE(data.loaded) << qmtest::Narrow(link);
      EXPECT_TRUE(SamePath(data.path, installDir_ + L"\\Qmkview8.exe"));
      EXPECT_TRUE(SamePath(data.workingFolder, ShellFolderPath(CSIDL_MYPICTURES)));
    }
    EXPECT_FALSE(FileExists(ShellFolderPath(c.otherDesktop) + L"\\Quillmark 8.lnk"));
    EXPECT_FALSE(FileExists(ShellFolderPath(c.otherStartup) + L"\\Quillmark 8.lnk"));
    qmtest::RemoveTree(group);
  }
}

// Sets a registry text value for the life of the object, then puts the old
// one back (or removes it when there was none).
class ValueOverride {
 public:
  ValueOverride(HKEY root, const wchar_t* key, const wchar_t* name, const wchar_t* text)
      : root_(root), key_(key), name_(name), saved_(qmtest::ReadRegValue(root, key, name)) {
    ::RegSetKeyValueW(root_, key_, name_, REG_SZ, text,
                      static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t)));
  }
  ~ValueOverride() {
    if (saved_.type == 0) {
      ::RegDeleteKeyValueW(root_, key_, name_);
      return;
    }
    ::RegSetKeyValueW(root_, key_, name_, saved_.type, saved_.text.c_str(),
                      static_cast<DWORD>((saved_.text.size() + 1) * sizeof(wchar_t)));
  }

 private:
  HKEY root_;
  const wchar_t* key_;
  const wchar_t* name_;
  qmtest::RegValue saved_;
};

// Without an all-users programs folder an all-users installation becomes a
// current-user one: group and shortcuts land in the user's folders.
TEST_F(ShortcutTest, AllUsersWithoutCommonProgramsFallsBackToCurrentUser) {
  installSettings.installType = 1;
  installSettings.groupName = L"QmEngine Tools";
  installSettings.desktopIcon = 1;
  {
    // A common programs folder of one drive letter is what a system without one reports.
    ValueOverride folder(HKEY_LOCAL_MACHINE,
                         L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders",
                         L"Common Programs", L"Q:");
    ValueOverride cache(HKEY_LOCAL_MACHINE,
                        L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders",
                        L"Common Programs", L"Q:");
    const std::wstring common = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
    if (common.size() >= 4) GTEST_SKIP() << "cannot take the common programs folder away: " << qmtest::Narrow(common);
    CreateGroupAndShortcuts();
  }
  ASSERT_GE(ShellFolderPath(CSIDL_COMMON_PROGRAMS).size(), 4u) << "common programs folder not restored";

  EXPECT_EQ(installSettings.installType, 0);
  const std::wstring group = ShellFolderPath(CSIDL_PROGRAMS) + L"\\QmEngine Tools";
  EXPECT_TRUE(FileExists(group + L"\\Quillmark 8.lnk"));
  EXPECT_TRUE(FileExists(ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk"));
  EXPECT_FALSE(FileExists(ShellFolderPath(CSIDL_COMMON_DESKTOPDIRECTORY) + L"\\Quillmark 8.lnk"));
}

}  // namespace
