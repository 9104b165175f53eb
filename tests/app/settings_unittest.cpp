#include <gtest/gtest.h>

#include "app/settings.h"

// Versions compare as one number; parts above 99 spill into the next part.
TEST(VersionNumber, CombinesPartsAndSpills) {
  EXPECT_EQ(VersionNumber({8, 5, 3, 0}), 8050300u);
  EXPECT_LT(VersionNumber({8, 5, 3, 0}), VersionNumber({8, 5, 3, 1}));
  EXPECT_EQ(VersionNumber({1, 100, 0, 0}), VersionNumber({2, 0, 0, 0}));
}
