// Common set-up of the wizard window tests: fresh InstallSettings for a
// fresh install into a temporary folder, an install step that only counts
// (and can ask for a restart), and a current directory without agreement.txt.
#pragma once
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "app/settings.h"
#include "tests/support/test_support.h"
#include "tests/wizard/wizard_driver.h"
#include "wizard/setup_dlg.h"

namespace wiztest {

inline std::atomic<int> installCalls{0};
inline std::atomic<bool> restartAfterInstall{false};

inline int CountingInstall() {
  ++installCalls;
  if (restartAfterInstall) installSettings.restartNeeded = 1;
  return 0;
}

class WizardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    installSettings = InstallSettings{};
    installSettings.installMode = 0;
    installSettings.installType = 1;
    installSettings.installDir = dest_.path() + L"\\Quillmark 8";
    installSettings.groupName = L"Quillmark 8";
    installSettings.defaultDirUsed = 1;
    installSettings.newVersion = {8, 5, 3, 0};
    installCalls = 0;
    restartAfterInstall = false;
    savedRunner_ = pInstallRun;
    pInstallRun = &CountingInstall;
    wchar_t current[MAX_PATH] = {};
    ::GetCurrentDirectoryW(MAX_PATH, current);
    savedDirectory_ = current;
    ::SetCurrentDirectoryW(work_.path().c_str());
  }
  void TearDown() override {
    pInstallRun = savedRunner_;
    ::SetCurrentDirectoryW(savedDirectory_.c_str());
  }

  qmtest::TempDir dest_{L"wizard dest"};
  qmtest::TempDir work_{L"wizard work"};

 private:
  InstallRunner savedRunner_ = nullptr;
  std::wstring savedDirectory_;
};

}  // namespace wiztest
