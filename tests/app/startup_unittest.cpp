#include <gtest/gtest.h>

#include "product/exit_codes.h"
#include "product/settings.h"
#include "app/setup_app.h"
#include "app/startup.h"
#include "instances/instance_manager.h"
#include "tests/support/test_support.h"
#include "ui/strings.h"

namespace {

using Args = std::vector<std::wstring>;

// The application with the other subsystems' work replaced by a record of
// each hand-over and of the installMode it happened in.
class RecordingApp : public CSetupApp {
 public:
  using CSetupApp::CSetupApp;
  std::wstring record;

 protected:
  void Note(const std::wstring& what) { record += what + std::to_wstring(static_cast<int>(installSettings.installMode)) + L" "; }
  void RunRemovalWorkerRole(const Args&) override { Note(L"worker"); }
  void CloseCopies(int otherCopies) override { record += L"close" + std::to_wstring(otherCopies) + L" "; }
  // -1: "failed", as the real one does not come back on success.
  INT_PTR StartRemovalWorker() override { Note(L"start"); return -1; }
  int RunInstallMode(const Args&) override { Note(L"install"); return kExitCancelled; }
};

}  // namespace

// The scan: mode options ignore case and end it, "-s" is seen before them,
// "-sfxname=" is exact and cut to its folder (one trailing backslash dropped
// first), the last one wins.
TEST(ScanOptions, ModesAndPackageFolder) {
  constexpr InstallMode kAsk = InstallMode::kInteractive, kSilent = InstallMode::kSilent,
                        kThenFinish = InstallMode::kSilentThenFinishPage;
  struct Case { Args argv; InstallMode mode; bool silent; const wchar_t* sfxFolder; } cases[] = {
      {{L"-v"}, kSilent, false, L""},  // the program name is never an option
      {{L"p", L"unknown", L"-vv", L"-silent", L"/s"}, kSilent, false, L""},
      {{L"p", L"-V", L"-s", L"-sfxname=C:\\x\\y.exe"}, kAsk, false, L""},
      {{L"p", L"-S", L"-sfxname=D:\\a b\\c d\\pkg.exe", L"-SConf", L"-v"}, kThenFinish, true, L"D:\\a b\\c d"},
      {{L"p", L"-sfxname=C:\\a\\1.exe", L"-sfxname=C:\\x\\\\"}, kSilent, false, L"C:\\x"},
      {{L"p", L"-sfxname=\\y.exe", L"-SFXNAME=C:\\a\\b.exe", L"x-sfxname=C:\\a\\b.exe"}, kSilent, false, L""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.argv));
    StartupOptions options = ScanOptions(c.argv);
    EXPECT_EQ(options.installMode, c.mode);
    EXPECT_EQ(options.silentSwitchSeen, c.silent);
    EXPECT_EQ(options.sfxFolder, c.sfxFolder);
  }
}

// The worker needs "-delself" first and a path behind it; setup is "-install"
// first or "setup.exe" anywhere in the lower-cased path; the close question is
// skipped only for "/s" or "-s" from the second argument on.
TEST(ChooseSetupRole, WorkerSetupAndSkipRules) {
  EXPECT_FALSE(IsRemovalWorkerStart({L"uni1.tmp", L"-delself"}));
  EXPECT_FALSE(IsRemovalWorkerStart({L"x.exe", L"a", L"-delself", L"b"}));
  EXPECT_FALSE(ChooseSetupRole({L"x", L"-s", L"-install"}, L"C:\\Q\\QmkUnInst.exe"));
  EXPECT_FALSE(ChooseSetupRole({L"x", L"-installx"}, L"C:\\Q\\QmkUnInst.exe"));
  EXPECT_TRUE(ChooseSetupRole({L"x"}, L"D:\\Downloads\\qmk8Setup.EXE"));
  EXPECT_TRUE(ChooseSetupRole({L"x"}, L"D:\\setup.exe.d\\QmkUnInst.exe"));
  EXPECT_FALSE(ChooseSetupRole({L"x"}, L"D:\\Downloads\\setup_qmk.exe"));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"/s"}));
  EXPECT_TRUE(SkipCloseQuestion({L"setup.exe", L"a", L"b", L"/S"}));
  EXPECT_FALSE(SkipCloseQuestion({L"setup.exe", L"-s", L"-runafter"}));
}

// The role choice, the questions and the hand-over of each role, with the mode it runs in.
TEST(SetupApp, RolesQuestionsAndHandOver) {
  const std::wstring setup = L"C:\\Downloads\\setup.exe", uninstaller = L"C:\\Program Files\\Q 8\\QmkUnInst.exe";
  const Args worker = {L"C:\\Temp\\uni5.tmp", L"-delself", uninstaller, L"-s"};
  // The texts as the users know them, typos included.
  struct Box { const wchar_t* text; UINT style; };
  const Box confirm = {L"This will completely uninstall Quillmark 8.\nDo you want to continue?",
                       MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2},
            oneCopy = {L"1 instance of Quillmark is currently opened. If you click \"Yes\" button, SETUP will try to "
                       L"close it without saving any editing work you may have done. \n\nContinue installation?",
                       MB_YESNO | MB_ICONWARNING},
            copies = {L"3 instances of Quillmark are currently opened. ff you click \"Yes\" button, SETUP will try "
                      L"to close them without saving any editing work you may have done. \n\nContinue installation?",
                      MB_YESNO | MB_ICONWARNING},
            aborted = {L"Setup of Quillmark aborted. Please close other instances of Quillmark manually, saving any "
                       L"editing work you have done in them, then restart this setup program.",
                       MB_ICONINFORMATION};
  const struct {
    const char* what; Args argv; std::wstring path; int otherCopies, answer; std::vector<Box> boxes;
    const wchar_t* record; BOOL init; int exitCode;
  } cases[] = {
      {"uninstaller, -DELSELF a b is no worker: no question, worker started silently",
       {uninstaller, L"-DELSELF", L"a", L"b"}, uninstaller, 2, 0, {}, L"close2 start1 ", FALSE, kExitWorkerNotStarted},
      {"-v declined changes nothing", {uninstaller, L"-v"}, uninstaller, 1, IDNO, {confirm}, L"", FALSE,
       kExitDeclined},
      {"-V accepted: copies closed without a second question", {uninstaller, L"-V"}, uninstaller, 1, IDYES,
       {confirm}, L"close1 start0 ", FALSE, kExitWorkerNotStarted},
      {"-delself runs the worker first, in the scanned mode", worker, setup, 1, 0, {}, L"worker1 ", FALSE, kExitOk},
      {"a worker started by hand with -v runs in mode 0", {worker[0], L"-delself", uninstaller, L"-v"}, worker[0],
       0, 0, {}, L"worker0 ", FALSE, kExitOk},
      {"setup -v with one copy: no confirmation, Yes closes it, the entry's value is passed on", {setup, L"-v"},
       setup, 1, IDYES, {oneCopy}, L"close1 install0 ", TRUE, kExitCancelled},
      {"setup with three copies declined", {setup, L"-sfxname=C:\\Pkg\\q.exe"}, setup, 3, IDNO, {copies, aborted},
       L"", TRUE, kExitDeclined},
      {"x.exe -INSTALL /s: setup role, the question skipped", {L"C:\\x.exe", L"-INSTALL", L"/s"}, L"C:\\x.exe", 2, 0,
       {}, L"close2 install0 ", TRUE, kExitCancelled},
  };
  SetResourceModule(::GetModuleHandleW(nullptr));
  // Ids that name no process, so that nothing real is ever closed.
  constexpr DWORD kFakeIds[] = {0x7FFFFF00, 0x7FFFFF04, 0x7FFFFF08};
  const std::wstring listName = L"qmtest.setupapp." + std::to_wstring(::GetCurrentProcessId());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    COXInstanceManager registry(listName.c_str(), 1024, TRUE);  // a fresh list: the last one has gone
    for (int i = 0; i < c.otherCopies; ++i) ASSERT_TRUE(registry.RegisterProcess(kFakeIds[i]));
    installSettings = InstallSettings();
    qmtest::MessageBoxRecorder boxes;
    if (c.answer) boxes.Answer(c.answer);
    RecordingApp app(registry);
    app.SetCommandLine(c.argv, c.path);

    EXPECT_EQ(app.InitInstance(), c.init);
    ASSERT_EQ(boxes.shown().size(), c.boxes.size());
    for (size_t i = 0; i < c.boxes.size(); ++i) {
      EXPECT_EQ(boxes.shown()[i].text, c.boxes[i].text);
      EXPECT_EQ(boxes.shown()[i].style, c.boxes[i].style);
    }
    EXPECT_EQ(app.record, c.record);
    EXPECT_EQ(app.ExitCode(), c.exitCode);
    // The worker runs before the caption is loaded.
    EXPECT_EQ(app.Caption(), app.record.starts_with(L"worker") ? L"" : L"Quillmark Setup");
    EXPECT_EQ(installSettings.sfxFolder, ScanOptions(c.argv).sfxFolder);
  }
}
