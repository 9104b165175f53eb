#include <gtest/gtest.h>

#include "app/exit_codes.h"
#include "app/settings.h"
#include "app/setup_app.h"
#include "instances/instance_manager.h"
#include "tests/app/app_test_util.h"

namespace {

using Args = std::vector<std::wstring>;

// Ids that name no process, so that nothing real is ever closed.
constexpr DWORD kFakeIds[] = {0x7FFFFF00, 0x7FFFFF04, 0x7FFFFF08};

const std::wstring kSetupPath = L"C:\\Downloads\\setup.exe";
const std::wstring kUninstallerPath = L"C:\\Program Files\\Quillmark 8\\QmkUnInst.exe";

// The application with the other subsystems' work replaced by records.
class RecordingApp : public CSetupApp {
 public:
  using CSetupApp::CSetupApp;
  int installModeResult = 0;
  std::vector<Args> workerRuns, installModeRuns;
  std::vector<int> closeCalls;
  int workerStarts = 0;
  std::vector<int> modesSeen;  // installMode when each hand-over happened

 protected:
  void RunRemovalWorkerRole(const Args& argv) override {
    workerRuns.push_back(argv);
    modesSeen.push_back(installSettings.installMode);
  }
  void CloseCopies(int otherCopies) override { closeCalls.push_back(otherCopies); }
  INT_PTR StartRemovalWorker() override {
    ++workerStarts;
    modesSeen.push_back(installSettings.installMode);
    return -1;  // "failed": the real one does not come back on success
  }
  int RunInstallMode(const Args& argv) override {
    installModeRuns.push_back(argv);
    modesSeen.push_back(installSettings.installMode);
    return installModeResult;
  }
};

struct Box {
  std::wstring text;
  UINT style;
};
const Box kConfirm = {apptest::kConfirmText, MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2};
const Box kOneCopy = {apptest::kOneCopyText, MB_YESNO | MB_ICONWARNING};
const Box kAborted = {apptest::kAbortedText, MB_OK | MB_ICONINFORMATION};

struct RoleCase {
  const char* what;
  int otherCopies;
  int answer;  // 0: no box expected to need one
  Args argv;
  std::wstring path;
  int installModeResult;
  BOOL initResult;
  std::vector<Box> boxes;
  std::vector<int> closeCalls;
  int workerStarts;
  bool workerRan, installRan;  // with argv
  std::vector<int> modesSeen;
  int exitCode;
  std::wstring sfxFolder = L"";
};

}  // namespace

// The role choice, the questions and the hand-over of each role, with the mode it runs in.
TEST(SetupApp, RolesQuestionsAndHandOver) {
  const Args worker = {L"C:\\Temp\\uni5.tmp", L"-delself", kUninstallerPath, L"-s"};
  const RoleCase cases[] = {
      {"uninstaller without arguments: no question, worker started silently", 2, 0, {kUninstallerPath},
       kUninstallerPath, 0, FALSE, {}, {2}, 1, false, false, {1}, kExitWorkerNotStarted},
      {"-v declined changes nothing", 1, IDNO, {kUninstallerPath, L"-v"}, kUninstallerPath, 0, FALSE,
       {kConfirm}, {}, 0, false, false, {}, kExitDeclined},
      {"-V accepted: copies closed without a second question, mode 0", 1, IDYES, {kUninstallerPath, L"-V"},
       kUninstallerPath, 0, FALSE, {kConfirm}, {1}, 1, false, false, {0}, kExitWorkerNotStarted},
      {"-DELSELF a b is not the worker; alone, no sweep", 0, 0, {kUninstallerPath, L"-DELSELF", L"a", L"b"},
       kUninstallerPath, 0, FALSE, {}, {}, 1, false, false, {1}, kExitWorkerNotStarted},
      {"-delself runs the worker first, in the scanned mode", 1, 0, worker, L"C:\\Temp\\setup.exe", 0, FALSE,
       {}, {}, 0, true, false, {1}, kExitOk},
      {"a worker started by hand with -v runs in mode 0", 0, 0, {worker[0], L"-delself", kUninstallerPath, L"-v"},
       worker[0], 0, FALSE, {}, {}, 0, true, false, {0}, kExitOk},
      {"setup with one copy: Yes closes it and runs the entry", 1, IDYES, {kSetupPath}, kSetupPath, 1, TRUE,
       {kOneCopy}, {1}, 0, false, true, {0}, kExitCancelled},
      {"setup with three copies declined", 3, IDNO, {kSetupPath, L"-sfxname=C:\\Pkg\\q.exe"}, kSetupPath, 0,
       TRUE, {{apptest::CopiesText(3), MB_YESNO | MB_ICONWARNING}, kAborted}, {}, 0, false, false, {},
       kExitDeclined, L"C:\\Pkg"},
      {"setup.exe -s with one copy still asks", 1, IDCANCEL, {kSetupPath, L"-s"}, kSetupPath, 0, TRUE,
       {kOneCopy, kAborted}, {}, 0, false, false, {}, kExitDeclined},
      {"x.exe -install /s skips the question, mode 0", 2, 0, {L"C:\\x.exe", L"-install", L"/s"}, L"C:\\x.exe",
       0, FALSE, {}, {2}, 0, false, true, {0}, kExitOk},
      {"setup alone: straight to the entry in the scanned mode", 0, 0, {kSetupPath, L"-sconf", L"-v"},
       kSetupPath, 0, FALSE, {}, {}, 0, false, true, {2}, kExitOk},
      {"-INSTALL: setup role, -v asks nothing", 0, IDNO, {L"C:\\x.exe", L"-INSTALL", L"-v"}, L"C:\\x.exe", 0,
       FALSE, {}, {}, 0, false, true, {0}, kExitOk},
  };
  static int serial = 0;
  for (const RoleCase& c : cases) {
    SCOPED_TRACE(c.what);
    std::wstring name = L"qmtest.setupapp." + std::to_wstring(::GetCurrentProcessId()) + L"." +
                        std::to_wstring(++serial);
    COXInstanceManager registry(name.c_str(), 1024, TRUE);
    for (int i = 0; i < c.otherCopies; ++i) ASSERT_TRUE(registry.RegisterProcess(kFakeIds[i]));
    installSettings = InstallSettings();
    qmtest::MessageBoxRecorder boxes;
    if (c.answer) boxes.Answer(c.answer);
    RecordingApp app(registry);
    app.installModeResult = c.installModeResult;
    app.SetCommandLine(c.argv, c.path);

    EXPECT_EQ(app.InitInstance(), c.initResult);
    ASSERT_EQ(boxes.shown().size(), c.boxes.size());
    for (size_t i = 0; i < c.boxes.size(); ++i) {
      EXPECT_EQ(boxes.shown()[i].text, c.boxes[i].text);
      EXPECT_EQ(boxes.shown()[i].style, c.boxes[i].style);
    }
    EXPECT_EQ(app.closeCalls, c.closeCalls);
    EXPECT_EQ(app.workerStarts, c.workerStarts);
    EXPECT_EQ(app.workerRuns, c.workerRan ? std::vector<Args>{c.argv} : std::vector<Args>{});
    EXPECT_EQ(app.installModeRuns, c.installRan ? std::vector<Args>{c.argv} : std::vector<Args>{});
    EXPECT_EQ(app.modesSeen, c.modesSeen);
    EXPECT_EQ(app.ExitCode(), c.exitCode);
    if (!c.workerRan) {
      EXPECT_EQ(app.Caption(), L"Quillmark Setup");  // the worker runs before it is set
    }
    EXPECT_EQ(installSettings.sfxFolder, c.sfxFolder);
  }
}
