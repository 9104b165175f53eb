#include <gtest/gtest.h>

#include "install/registration.h"
#include "sys/platform.h"
#include "tests/support/test_support.h"

namespace {

BOOL WINAPI ClaimWow64(HANDLE, PBOOL wow64) { return *wow64 = TRUE; }
BOOL WINAPI DenyWow64(HANDLE, PBOOL wow64) { return (*wow64 = FALSE), TRUE; }

}  // namespace

// What depends on the system, where the end-to-end runs see only Windows 7:
// the associations point to the identifier from Windows 8 on; the thumbnail
// extension registered at install and unregistered at removal is the x64 one
// on 64-bit Windows (none before Vista), else the 32-bit one or its XP edition.
TEST(SystemDependentChoices, AssociationTargetAndThumbnailExtension) {
  qmtest::SettingsRestorer restorer;
  const IsWow64ProcessFn saved = pIsWow64Process;
  installSettings.installDir = L"C:\\Q 8";
  const struct {
    DWORD major, minor;
    bool wow64;
    const wchar_t *target, *dll;
  } cases[] = {{5, 1, false, L"Applications\\Qmkview8.exe", L"C:\\Q 8\\ThumbDqmXP32.dll"},
               {5, 2, true, L"Applications\\Qmkview8.exe", L""},
               {6, 0, false, L"Applications\\Qmkview8.exe", L"C:\\Q 8\\ThumbDqm32.dll"},
               {6, 1, true, L"Applications\\Qmkview8.exe", L"C:\\Q 8\\x64\\ThumbDqm64.dll"},
               {6, 2, false, L"Quillmark.8", L"C:\\Q 8\\ThumbDqm32.dll"},
               {7, 0, true, L"Quillmark.8", L"C:\\Q 8\\x64\\ThumbDqm64.dll"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.major << "." << c.minor << (c.wow64 ? " 64-bit" : " 32-bit"));
    qmtest::PlayWindows(c.major, c.minor);
    pIsWow64Process = c.wow64 ? ClaimWow64 : DenyWow64;
    EXPECT_EQ(AssociationTarget(), c.target);
    EXPECT_EQ(ThumbnailExtensionPath(), c.dll);
    EXPECT_EQ(ThumbnailExtensionIn(L"C:\\Q 8\\", IsWow64(), IsVistaOrLater()), c.dll);
  }
  pIsWow64Process = saved;
}
