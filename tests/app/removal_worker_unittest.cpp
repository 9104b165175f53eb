#include <gtest/gtest.h>
#include <windows.h>
#include <shellapi.h>

#include "app/removal_worker.h"

namespace {

// How the worker's C runtime will split the command line it is given.
std::vector<std::wstring> Split(const std::wstring& commandLine) {
  std::vector<std::wstring> argv;
  int count = 0;
  LPWSTR* list = ::CommandLineToArgvW(commandLine.c_str(), &count);
  for (int i = 0; list && i < count; ++i) argv.emplace_back(list[i]);
  if (list) ::LocalFree(list);
  return argv;
}

}  // namespace

// Paths with blanks are quoted and arrive unquoted; "-s" follows every non-zero mode only.
TEST(RemovalWorkerCommandLine, QuotedPathsArriveUnquoted) {
  const std::wstring worker = L"C:\\Users\\Jo Ann\\Temp\\uni3F.tmp";
  const std::wstring uninstaller = L"C:\\Program Files\\Quillmark 8\\QmkUnInst.exe";
  std::wstring commandLine = RemovalWorkerCommandLine(worker, uninstaller, 1);
  EXPECT_EQ(commandLine,
            L"\"C:\\Users\\Jo Ann\\Temp\\uni3F.tmp\" -delself \"C:\\Program Files\\Quillmark 8\\QmkUnInst.exe\" -s");
  EXPECT_EQ(Split(commandLine), (std::vector<std::wstring>{worker, L"-delself", uninstaller, L"-s"}));
  EXPECT_EQ(RemovalWorkerCommandLine(L"C:\\T\\uni1.tmp", L"C:\\Q\\QmkUnInst.exe", 0),
            L"C:\\T\\uni1.tmp -delself C:\\Q\\QmkUnInst.exe");
  EXPECT_EQ(RemovalWorkerCommandLine(L"C:\\T\\uni1.tmp", L"C:\\Q\\QmkUnInst.exe", 2),
            L"C:\\T\\uni1.tmp -delself C:\\Q\\QmkUnInst.exe -s");
  EXPECT_EQ(QuoteIfBlank(L"C:\\a\tb\\x.exe"), L"\"C:\\a\tb\\x.exe\"");
}

// The installation folder is the drive and folder of the uninstaller's path.
TEST(InstallFolderOf, DriveAndFolder) {
  EXPECT_EQ(InstallFolderOf(L"C:\\Program Files\\Quillmark 8\\QmkUnInst.exe"), L"C:\\Program Files\\Quillmark 8\\");
  EXPECT_EQ(InstallFolderOf(L"C:\\QmkUnInst.exe"), L"C:\\");
  EXPECT_EQ(InstallFolderOf(L"D:QmkUnInst.exe"), L"D:");
  EXPECT_EQ(InstallFolderOf(L"QmkUnInst.exe"), L"");
  EXPECT_EQ(InstallFolderOf(L"C:/apps/q/QmkUnInst.exe"), L"C:/apps/q/");
  EXPECT_EQ(InstallFolderOf(L"\\\\server\\share\\q\\QmkUnInst.exe"), L"\\\\server\\share\\q\\");
}

// The thumbnail DLL by 64-bit Windows and version generation (the worker test sees only one of them).
TEST(ThumbnailDllToUnregister, ByPlatform) {
  const std::wstring folder = L"C:\\Q 8\\";
  EXPECT_EQ(ThumbnailDllToUnregister(folder, TRUE, TRUE), L"C:\\Q 8\\x64\\ThumbDqm64.dll");
  EXPECT_EQ(ThumbnailDllToUnregister(folder, TRUE, FALSE), L"");
  EXPECT_EQ(ThumbnailDllToUnregister(folder, FALSE, TRUE), L"C:\\Q 8\\ThumbDqm32.dll");
  EXPECT_EQ(ThumbnailDllToUnregister(folder, FALSE, FALSE), L"C:\\Q 8\\ThumbDqmXP32.dll");
}
