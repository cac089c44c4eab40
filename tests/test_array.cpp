#include <gtest/gtest.h>

#include "common/array.hpp"

using rl::Array2;
using rl::Array3;

#ifdef RIVERLES_BOUNDS_CHECK
TEST(ArrayDeathTest, OutOfRangeNamesArrayAndIndex) {
  Array3<double> a;
  ASSERT_TRUE(a.allocate("uvel", -1, 4, 0, 3, 0, 2));
  EXPECT_DEATH(a(5, 0, 0) = 1.0, "uvel\\(5,0,0\\)");
  EXPECT_DEATH(a(0, -1, 0) = 1.0, "uvel\\(0,-1,0\\)");
}
#endif
