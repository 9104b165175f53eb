#include <gtest/gtest.h>

#include "app/exit_codes.h"
#include "app/settings.h"
#include "app/setup_app.h"
#include "instances/instance_manager.h"
#include "tests/support/test_support.h"

namespace {

// Ids that name no process, so that nothing real is ever closed.
constexpr DWORD kFakeIds[] = {0x7FFFFF00, 0x7FFFFF04, 0x7FFFFF08};

const std::wstring kSetupPath = L"C:\\Downloads\\setup.exe";
const std::wstring kUninstallerPath = L"C:\\Program Files\\Quillmark 8\\QmkUnInst.exe";

// The application with the other subsystems' work replaced by records.
class RecordingApp : public CSetupApp {
 public:
  using CSetupApp::CSetupApp;
  int installModeResult = 0;

  std::vector<std::vector<std::wstring>> workerRuns;
  std::vector<int> closeCalls;
  int workerStarts = 0;
  std::vector<std::vector<std::wstring>> installModeRuns;
  std::vector<int> modesSeen;  // installMode when each hand-over happened

 protected:
  void RunRemovalWorkerRole(const std::vector<std::wstring>& argv) override {
    workerRuns.push_back(argv);
    modesSeen.push_back(installSettings.installMode);
  }
  void CloseCopies(int otherCopies) override { closeCalls.push_back(otherCopies); }
  INT_PTR StartRemovalWorker() override {
    ++workerStarts;
    modesSeen.push_back(installSettings.installMode);
    return -1;
  }
  int RunInstallMode(const std::vector<std::wstring>& argv) override {
    installModeRuns.push_back(argv);
    modesSeen.push_back(installSettings.installMode);
    return installModeResult;
  }
};

class SetupAppTest : public ::testing::Test {
 protected:
  SetupAppTest()
      : registryName_(L"qmtest.setupapp." + std::to_wstring(::GetCurrentProcessId()) + L"." +
                      std::to_wstring(++serial_)),
        registry_(registryName_.c_str(), 1024, TRUE),
        app_(registry_) {
    installSettings = InstallSettings();
  }

  // Makes `count` other processes appear in the instance list.
  void AddOtherCopies(int count) {
    for (int i = 0; i < count; ++i) ASSERT_TRUE(registry_.RegisterProcess(kFakeIds[i]));
  }
  BOOL Start(std::vector<std::wstring> argv, const std::wstring& path) {
    app_.SetCommandLine(std::move(argv), path);
    return app_.InitInstance();
  }

  static inline int serial_ = 0;
  std::wstring registryName_;
  COXInstanceManager registry_;
  RecordingApp app_;
  qmtest::MessageBoxRecorder boxes_;
};

const wchar_t kConfirmText[] = L"This will completely uninstall Quillmark 8.\nDo you want to continue?";
const wchar_t kOneCopyText[] =
    L"1 instance of Quillmark is currently opened. If you click \"Yes\" button, SETUP will try to close it "
    L"without saving any editing work you may have done. \n\nContinue installation?";
const wchar_t kThreeCopiesText[] =
    L"3 instances of Quillmark are currently opened. ff you click \"Yes\" button, SETUP will try to close "
    L"them without saving any editing work you may have done. \n\nContinue installation?";
const wchar_t kAbortedText[] =
    L"Setup of Quillmark aborted. Please close other instances of Quillmark manually, saving any editing "
    L"work you have done in them, then restart this setup program.";

}  // namespace

// The installed uninstaller without arguments: no question, copies closed, worker started silently.
TEST_F(SetupAppTest, UninstallerClosesCopiesWithoutAskingAndStartsWorker) {
  AddOtherCopies(2);
  EXPECT_FALSE(Start({kUninstallerPath}, kUninstallerPath));
  EXPECT_TRUE(boxes_.shown().empty());
  EXPECT_EQ(app_.closeCalls, std::vector<int>{2});
  EXPECT_EQ(app_.workerStarts, 1);
  EXPECT_TRUE(app_.installModeRuns.empty());
  EXPECT_EQ(app_.modesSeen, std::vector<int>{1});
  // The start "failed" here (the real one does not come back on success).
  EXPECT_EQ(app_.ExitCode(), kExitWorkerNotStarted);
  EXPECT_EQ(app_.Caption(), L"Quillmark Setup");
}

// "-v" asks string 6 with No as default; No ends with nothing done.
TEST_F(SetupAppTest, UninstallerConfirmationDeclined) {
  AddOtherCopies(1);
  boxes_.Answer(IDNO);
  EXPECT_FALSE(Start({kUninstallerPath, L"-v"}, kUninstallerPath));
  ASSERT_EQ(boxes_.shown().size(), 1u);
  EXPECT_EQ(boxes_.shown()[0].text, kConfirmText);
  EXPECT_EQ(boxes_.shown()[0].style, UINT(MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2));
  EXPECT_TRUE(app_.closeCalls.empty());
  EXPECT_EQ(app_.workerStarts, 0);
  EXPECT_EQ(app_.ExitCode(), kExitDeclined);
}

// "-v" answered Yes: copies closed without a second question, worker started in mode 0.
TEST_F(SetupAppTest, UninstallerConfirmationAccepted) {
  AddOtherCopies(1);
  boxes_.Answer(IDYES);
  EXPECT_FALSE(Start({kUninstallerPath, L"-V"}, kUninstallerPath));
  EXPECT_EQ(boxes_.shown().size(), 1u);
  EXPECT_EQ(app_.closeCalls, std::vector<int>{1});
  EXPECT_EQ(app_.workerStarts, 1);
  EXPECT_EQ(app_.modesSeen, std::vector<int>{0});
}

// Alone in the list, the uninstaller skips the sweep.
TEST_F(SetupAppTest, UninstallerAloneSkipsSweep) {
  EXPECT_FALSE(Start({kUninstallerPath, L"-DELSELF", L"a", L"b"}, kUninstallerPath));
  EXPECT_TRUE(app_.closeCalls.empty());
  EXPECT_TRUE(app_.workerRuns.empty());
  EXPECT_EQ(app_.workerStarts, 1);
}

// "-delself <path>" runs the worker before anything else, with the scanned mode.
TEST_F(SetupAppTest, RemovalWorkerComesFirst) {
  AddOtherCopies(1);
  std::vector<std::wstring> argv = {L"C:\\Temp\\uni5.tmp", L"-delself", kUninstallerPath, L"-s"};
  Start(argv, L"C:\\Temp\\setup.exe");
  ASSERT_EQ(app_.workerRuns.size(), 1u);
  EXPECT_EQ(app_.workerRuns[0], argv);
  EXPECT_EQ(app_.modesSeen, std::vector<int>{1});
  EXPECT_TRUE(boxes_.shown().empty());
  EXPECT_TRUE(app_.closeCalls.empty());
  EXPECT_TRUE(app_.installModeRuns.empty());

  RecordingApp byHand(registry_);
  byHand.SetCommandLine({L"C:\\Temp\\uni5.tmp", L"-delself", kUninstallerPath, L"-v"}, L"C:\\Temp\\uni5.tmp");
  byHand.InitInstance();
  EXPECT_EQ(byHand.modesSeen, std::vector<int>{0});
}

// Setup with one other copy: string 33; Yes closes it and runs the install-mode entry.
TEST_F(SetupAppTest, SetupAsksAboutOneCopy) {
  AddOtherCopies(1);
  boxes_.Answer(IDYES);
  app_.installModeResult = 1;
  EXPECT_TRUE(Start({kSetupPath}, kSetupPath));
  ASSERT_EQ(boxes_.shown().size(), 1u);
  EXPECT_EQ(boxes_.shown()[0].text, kOneCopyText);
  EXPECT_EQ(boxes_.shown()[0].style, UINT(MB_YESNO | MB_ICONWARNING));
  EXPECT_EQ(app_.closeCalls, std::vector<int>{1});
  ASSERT_EQ(app_.installModeRuns.size(), 1u);
  EXPECT_EQ(app_.installModeRuns[0], std::vector<std::wstring>{kSetupPath});
  EXPECT_EQ(app_.modesSeen, std::vector<int>{0});
  EXPECT_EQ(app_.ExitCode(), kExitCancelled);
}

// Setup with three other copies: string 4 with the count; No gives string 15 and nothing else.
TEST_F(SetupAppTest, SetupCloseQuestionDeclined) {
  AddOtherCopies(3);
  boxes_.Answer(IDNO);
  EXPECT_TRUE(Start({kSetupPath, L"-sfxname=C:\\Pkg\\q.exe"}, kSetupPath));
  ASSERT_EQ(boxes_.shown().size(), 2u);
  EXPECT_EQ(boxes_.shown()[0].text, kThreeCopiesText);
  EXPECT_EQ(boxes_.shown()[0].style, UINT(MB_YESNO | MB_ICONWARNING));
  EXPECT_EQ(boxes_.shown()[1].text, kAbortedText);
  EXPECT_EQ(boxes_.shown()[1].style, UINT(MB_OK | MB_ICONINFORMATION));
  EXPECT_TRUE(app_.closeCalls.empty());
  EXPECT_TRUE(app_.installModeRuns.empty());
  EXPECT_EQ(app_.workerStarts, 0);
  EXPECT_EQ(app_.ExitCode(), kExitDeclined);
  EXPECT_EQ(installSettings.sfxFolder, L"C:\\Pkg");
}

// "setup.exe -s" with a running copy is silent yet still asks (the lone argument is not looked at).
TEST_F(SetupAppTest, SetupLoneSilentSwitchStillAsks) {
  AddOtherCopies(1);
  boxes_.Answer(IDCANCEL);
  EXPECT_TRUE(Start({kSetupPath, L"-s"}, kSetupPath));
  ASSERT_EQ(boxes_.shown().size(), 2u);
  EXPECT_EQ(boxes_.shown()[0].text, kOneCopyText);
  EXPECT_EQ(boxes_.shown()[1].text, kAbortedText);
  EXPECT_EQ(installSettings.installMode, 1);
  EXPECT_TRUE(app_.installModeRuns.empty());
}

// "x.exe -install /s" skips the question, but runs the wizard (mode 0).
TEST_F(SetupAppTest, InstallOptionWithSlashSSkipsQuestion) {
  AddOtherCopies(2);
  std::vector<std::wstring> argv = {L"C:\\x.exe", L"-install", L"/s"};
  EXPECT_FALSE(Start(argv, L"C:\\x.exe"));
  EXPECT_TRUE(boxes_.shown().empty());
  EXPECT_EQ(app_.closeCalls, std::vector<int>{2});
  ASSERT_EQ(app_.installModeRuns.size(), 1u);
  EXPECT_EQ(app_.installModeRuns[0], argv);
  EXPECT_EQ(app_.modesSeen, std::vector<int>{0});
  EXPECT_EQ(app_.ExitCode(), kExitOk);
}

// Setup alone: no question, no sweep, straight to the install-mode entry in the scanned mode.
TEST_F(SetupAppTest, SetupAloneGoesStraightToInstall) {
  EXPECT_FALSE(Start({kSetupPath, L"-sconf", L"-v"}, kSetupPath));
  EXPECT_TRUE(boxes_.shown().empty());
  EXPECT_TRUE(app_.closeCalls.empty());
  EXPECT_EQ(app_.installModeRuns.size(), 1u);
  EXPECT_EQ(app_.modesSeen, std::vector<int>{2});
}

// "-v" never asks for confirmation in the setup role.
TEST_F(SetupAppTest, SetupNeverConfirmsUninstall) {
  boxes_.Answer(IDNO);
  Start({L"C:\\x.exe", L"-INSTALL", L"-v"}, L"C:\\x.exe");
  EXPECT_TRUE(boxes_.shown().empty());
  EXPECT_EQ(app_.installModeRuns.size(), 1u);
  EXPECT_EQ(app_.modesSeen, std::vector<int>{0});
}
