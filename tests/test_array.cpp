#include <gtest/gtest.h>

#include <cstdint>

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

// Small arrays come from the heap, large ones (2 MiB and more) straight from
// the system on huge pages: both zero-filled, aligned, fully addressable,
// reallocatable, and a reallocation starts from zero again.
TEST(Array, SmallAndLargeAllocationsAreZeroAlignedAndWhole) {
  for (int n : {8, 80}) {  // 8^3 doubles: 4 KiB; 80^3: 4 MiB
    Array3<double> a;
    ASSERT_TRUE(a.allocate("big", -1, n, 0, n, 0, n));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a.data()) % 64, 0u) << n;
    double sum = 0.0;
    for (std::int64_t m = 0; m < a.size(); ++m) sum += a.data()[m] == 0.0 ? 0.0 : 1.0;
    EXPECT_EQ(sum, 0.0) << n;
    a(-1, 0, 0) = 1.0;
    a(n, n, n) = 2.0;
    EXPECT_EQ(a.data()[0], 1.0);
    EXPECT_EQ(a.data()[a.size() - 1], 2.0);
    ASSERT_TRUE(a.allocate("big", -1, n, 0, n, 0, n));
    EXPECT_EQ(a(n, n, n), 0.0) << n;
  }
}
