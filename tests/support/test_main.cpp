#include <gtest/gtest.h>
#include <windows.h>

// Exit code CTest reads as "skipped" (SKIP_RETURN_CODE in cmake/QmTesting.cmake).
constexpr int kAllSkipped = 77;

int main(int argc, char** argv) {
  // A crash must end the test program, not wait on Wine's crash dialog.
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  testing::InitGoogleTest(&argc, argv);
  int result = RUN_ALL_TESTS();
  const testing::UnitTest& run = *testing::UnitTest::GetInstance();
  return result == 0 && run.skipped_test_count() > 0 && run.successful_test_count() == 0 ? kAllSkipped : result;
}
