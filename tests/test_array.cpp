#include <gtest/gtest.h>

#include "common/array.hpp"

using rl::Array2;
using rl::Array3;

TEST(Array, BoundsStridesAndZeroFill) {
  Array3<double> a;
  ASSERT_TRUE(a.allocate("a", -1, 4, 0, 3, 0, 2));
  EXPECT_EQ(a.size(), 6 * 4 * 3);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a.data()) % 64, 0u);
  for (std::int64_t n = 0; n < a.size(); ++n) EXPECT_EQ(a.data()[n], 0.0);
  // i fastest, then j, then k; the lower corner is the first element.
  EXPECT_EQ(&a(-1, 0, 0), a.data());
  EXPECT_EQ(&a(0, 0, 0) - &a(-1, 0, 0), 1);
  EXPECT_EQ(&a(-1, 1, 0) - &a(-1, 0, 0), 6);
  EXPECT_EQ(&a(-1, 0, 1) - &a(-1, 0, 0), 24);
  EXPECT_EQ(&a(4, 3, 2), a.data() + a.size() - 1);
  EXPECT_EQ(a.sj(), 6);
  EXPECT_EQ(a.sk(), 24);
}

TEST(Array, OverflowingSizeFails) {
  Array3<double> a;
  EXPECT_FALSE(a.allocate("huge", 0, 2000000000, 0, 2000000000, 0, 2000000000));
  Array2<int> b;
  EXPECT_FALSE(b.allocate("negative", 0, -2, 0, 3));
}

#ifdef RIVERLES_BOUNDS_CHECK
TEST(ArrayDeathTest, OutOfRangeNamesArrayAndIndex) {
  Array3<double> a;
  ASSERT_TRUE(a.allocate("uvel", -1, 4, 0, 3, 0, 2));
  EXPECT_DEATH(a(5, 0, 0) = 1.0, "uvel\\(5,0,0\\)");
  EXPECT_DEATH(a(0, -1, 0) = 1.0, "uvel\\(0,-1,0\\)");
}
#endif
