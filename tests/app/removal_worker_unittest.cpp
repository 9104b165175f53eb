#include <gtest/gtest.h>
#include <windows.h>
#include <shellapi.h>

#include "app/removal_worker.h"

// Paths with blanks or tabs are quoted and arrive unquoted (as the worker's C
// runtime splits them); "-s" follows every non-zero mode only.
TEST(RemovalWorkerCommandLine, QuotedPathsArriveUnquoted) {
  const std::wstring worker = L"C:\\Users\\Jo Ann\\Temp\\uni3F.tmp", uninstaller = L"C:\\Q\tP\\QmkUnInst.exe";
  std::wstring commandLine = RemovalWorkerCommandLine(worker, uninstaller, 1);
  EXPECT_EQ(commandLine, L"\"" + worker + L"\" -delself \"" + uninstaller + L"\" -s");
  int count = 0;
  LPWSTR* argv = ::CommandLineToArgvW(commandLine.c_str(), &count);
  ASSERT_EQ(count, 4);
  EXPECT_EQ(std::vector<std::wstring>(argv, argv + count),
            (std::vector<std::wstring>{worker, L"-delself", uninstaller, L"-s"}));
  ::LocalFree(argv);
  EXPECT_EQ(RemovalWorkerCommandLine(L"C:\\T\\uni1.tmp", L"C:\\Q\\QmkUnInst.exe", 0),
            L"C:\\T\\uni1.tmp -delself C:\\Q\\QmkUnInst.exe");
  EXPECT_EQ(RemovalWorkerCommandLine(L"C:\\T\\uni1.tmp", L"C:\\Q\\QmkUnInst.exe", 2),
            L"C:\\T\\uni1.tmp -delself C:\\Q\\QmkUnInst.exe -s");
}

// The installation folder is the drive and folder of the uninstaller's path;
// the thumbnail DLL to unregister goes by 64-bit Windows and version generation.
TEST(RemovalWorker, InstallFolderAndThumbnailDll) {
  EXPECT_EQ(InstallFolderOf(L"C:\\Program Files\\Quillmark 8\\QmkUnInst.exe"), L"C:\\Program Files\\Quillmark 8\\");
  EXPECT_EQ(InstallFolderOf(L"D:QmkUnInst.exe"), L"D:");
  EXPECT_EQ(InstallFolderOf(L"QmkUnInst.exe"), L"");
  EXPECT_EQ(InstallFolderOf(L"C:/apps/q/QmkUnInst.exe"), L"C:/apps/q/");
  EXPECT_EQ(InstallFolderOf(L"\\\\server\\share\\q\\QmkUnInst.exe"), L"\\\\server\\share\\q\\");

  EXPECT_EQ(ThumbnailDllToUnregister(L"C:\\Q 8\\", TRUE, TRUE), L"C:\\Q 8\\x64\\ThumbDqm64.dll");
  EXPECT_EQ(ThumbnailDllToUnregister(L"C:\\Q 8\\", TRUE, FALSE), L"");
  EXPECT_EQ(ThumbnailDllToUnregister(L"C:\\Q 8\\", FALSE, TRUE), L"C:\\Q 8\\ThumbDqm32.dll");
  EXPECT_EQ(ThumbnailDllToUnregister(L"C:\\Q 8\\", FALSE, FALSE), L"C:\\Q 8\\ThumbDqmXP32.dll");
}
