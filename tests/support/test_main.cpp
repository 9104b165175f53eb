#include <gtest/gtest.h>
#include <windows.h>

int main(int argc, char** argv) {
  // A crash must end the test program, not wait on Wine's crash dialog.
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
