#include <gtest/gtest.h>
#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
#include <shobjidl.h>

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
using qmtest::Narrow;

std::wstring Lower(std::wstring text) {
  ::CharLowerBuffW(text.data(), static_cast<DWORD>(text.size()));
  return text;
}

// "path|arguments|working folder|description|show command" as the shell reads
// the link back (the show command from the file's header at offset 60, since
// the shell's loader does not hand every value back); "not loaded" on failure.
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
  std::string bytes = qmtest::ReadFileBytes(linkPath);
  int show = bytes.size() >= 64 ? *reinterpret_cast<const INT32*>(bytes.data() + 60) : 0;
  // Lower case, since paths compare without it.
  return Lower(std::wstring(path) + L"|" + arguments + L"|" + folder + L"|" + description + L"|" +
               std::to_wstring(show));
}

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
  // The arguments of the journal's entries of one kind.
  std::vector<std::string> Journalled(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const std::string& line : qmtest::ReadLines(installDir_ + L"\\QmkUnInst.log"))
      if (line.rfind(prefix, 0) == 0) found.push_back(line.substr(prefix.size()));
    return found;
  }

  qmtest::SettingsRestorer restorer_;
  qmtest::MessageBoxRecorder boxes_;
  qmtest::TempDir root_{L"qm engine links"};
  std::wstring installDir_ = root_ / L"Quillmark 8";
};

// A saved shortcut keeps target (quotes dropped), arguments, working folder,
// description and show command and only then is journalled; optional parts
// left out stay unset; a shortcut that cannot be saved leaves no entry.
TEST_F(ShortcutTest, CreateShellLinkSavesAndJournals) {
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
  EXPECT_EQ(Journalled("Shell Link: "), (std::vector<std::string>{Narrow(capture), Narrow(plain)}));
  EXPECT_TRUE(boxes_.shown().empty());
}

// The group " QmEngine Tools/Capture\" becomes two nested folders of which only
// the full one is journalled, with the program and help shortcuts; desktop and
// start-up shortcuts come only when asked, in the user's folders for a
// current-user installation and in the common ones for an all-users one.
TEST_F(ShortcutTest, GroupDesktopAndStartupFollowSettings) {
  struct Case { int type; bool extras; int programs, desktop, startup, otherDesktop, otherStartup; };
  for (const Case& c :
       {Case{0, false, CSIDL_PROGRAMS, CSIDL_DESKTOP, CSIDL_STARTUP, CSIDL_COMMON_DESKTOPDIRECTORY,
             CSIDL_COMMON_STARTUP},
        Case{0, true, CSIDL_PROGRAMS, CSIDL_DESKTOP, CSIDL_STARTUP, CSIDL_COMMON_DESKTOPDIRECTORY,
             CSIDL_COMMON_STARTUP},
        Case{1, true, CSIDL_COMMON_PROGRAMS, CSIDL_COMMON_DESKTOPDIRECTORY, CSIDL_COMMON_STARTUP, CSIDL_DESKTOP,
             CSIDL_STARTUP}}) {
    SCOPED_TRACE(testing::Message() << c.type << (c.extras ? " with" : " without") << " extras");
    ::DeleteFileW((installDir_ + L"\\QmkUnInst.log").c_str());
    RemoveProductShortcuts();
    installSettings.installType = c.type;
    installSettings.groupName = L" QmEngine Tools/Capture\\";
    installSettings.desktopIcon = c.extras;
    installSettings.autoStart = c.extras;
    ASSERT_NE(ShellFolderPath(c.desktop), ShellFolderPath(c.otherDesktop));

    CreateGroupAndShortcuts();
    EXPECT_EQ(installSettings.installType, c.type);
    const std::wstring group = ShellFolderPath(c.programs) + L"\\QmEngine Tools\\Capture";
    const std::wstring desktop = ShellFolderPath(c.desktop) + L"\\Quillmark 8.lnk";
    const std::wstring startup = ShellFolderPath(c.startup) + L"\\Quillmark 8.lnk";
    EXPECT_EQ(Journalled("Made Dir: "), std::vector<std::string>{Narrow(group)});
    std::vector<std::string> links = {Narrow(group + L"\\Quillmark 8.lnk"), Narrow(group + L"\\Quillmark 8 Help.lnk")};
    if (c.extras) links.insert(links.end(), {Narrow(desktop), Narrow(startup)});
    EXPECT_EQ(Journalled("Shell Link: "), links);
    const std::wstring program = Lower(installDir_ + L"\\Qmkview8.exe||" + ShellFolderPath(CSIDL_MYPICTURES) + L"|");
    EXPECT_EQ(ReadLink(group + L"\\Quillmark 8.lnk").find(program), 0u);
    EXPECT_EQ(ReadLink(group + L"\\Quillmark 8 Help.lnk").find(Lower(installDir_ + L"\\Qmkview8Man.chm|||")), 0u);
    EXPECT_EQ(ReadLink(desktop).find(program), c.extras ? 0u : std::wstring::npos);
    EXPECT_EQ(ReadLink(startup).find(program), c.extras ? 0u : std::wstring::npos);
    EXPECT_FALSE(FileExists(ShellFolderPath(c.otherDesktop) + L"\\Quillmark 8.lnk"));
    EXPECT_FALSE(FileExists(ShellFolderPath(c.otherStartup) + L"\\Quillmark 8.lnk"));
    EXPECT_TRUE(boxes_.shown().empty());
    qmtest::RemoveTree(ShellFolderPath(c.programs) + L"\\QmEngine Tools");
  }
}

// Without an all-users programs folder (one drive letter is what a system
// without one reports) an all-users installation becomes a current-user one.
TEST_F(ShortcutTest, AllUsersWithoutCommonProgramsFallsBackToCurrentUser) {
  installSettings.installType = 1;
  installSettings.groupName = L"QmEngine Tools";
  installSettings.desktopIcon = 1;
  const wchar_t* const keys[] = {L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders",
                                 L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders"};
  auto set = [](const wchar_t* key, DWORD type, const std::wstring& text) {
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key, L"Common Programs", type, text.c_str(),
                      static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  };
  qmtest::RegValue saved[2];
  for (int i = 0; i < 2; ++i) {
    saved[i] = qmtest::ReadRegValue(HKEY_LOCAL_MACHINE, keys[i], L"Common Programs");
    set(keys[i], REG_SZ, L"Q:");
  }
  const std::wstring common = ShellFolderPath(CSIDL_COMMON_PROGRAMS);
  if (common.size() < 4) CreateGroupAndShortcuts();
  for (int i = 0; i < 2; ++i) {
    if (saved[i].type == 0) ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, keys[i], L"Common Programs");
    else set(keys[i], saved[i].type, saved[i].text);
  }
  ASSERT_GE(ShellFolderPath(CSIDL_COMMON_PROGRAMS).size(), 4u) << "common programs folder not restored";
  if (common.size() >= 4) GTEST_SKIP() << "cannot take the common programs folder away: " << Narrow(common);
  EXPECT_EQ(installSettings.installType, 0);
  EXPECT_TRUE(FileExists(ShellFolderPath(CSIDL_PROGRAMS) + L"\\QmEngine Tools\\Quillmark 8.lnk"));
  EXPECT_TRUE(FileExists(ShellFolderPath(CSIDL_DESKTOP) + L"\\Quillmark 8.lnk"));
  EXPECT_FALSE(FileExists(ShellFolderPath(CSIDL_COMMON_DESKTOPDIRECTORY) + L"\\Quillmark 8.lnk"));
}

}  // namespace
