// The search for the foot point on the bilinear bed.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "driver/fields.hpp"
#include "immersed/immerse.hpp"

namespace {

void search_grid(double dzz, double z0) {
  rl::imax = 6;
  rl::jmax = 6;
  rl::kmax = 8;
  rl::lmin = 0;
  rl::ALLOCFIELDS();
  rl::dx = 1.0;
  rl::dy = 0.5;
  rl::dz = dzz;
  rl::xmin = 0.0;
  rl::ymin = 0.0;
  rl::zmin = z0;
  rl::xmax = 6.0;
  rl::ymax = 3.0;
  rl::zmax = z0 + 8 * dzz;
}

void set_bed(double (*f)(int i, int j)) {
  for (int j = 0; j <= rl::jmax + 1; ++j)
    for (int i = 0; i <= rl::imax + 1; ++i) rl::bed(i, j) = f(i, j);
}

}  // namespace

// A v position above a ramp rising to the south, on a grid with dz = 2*dy:
// steps 1 to 5 find nothing, and the south edge, which ends 1.5*dz (not
// 1.5*dy) south of P, holds the foot.
TEST(Search, VSouthEdgeEndsAtOneAndAHalfDz) {
  search_grid(1.0, -4.0);
  // Rows: z = 3 - 2y at the row centres y = (j - 0.5)*0.5.
  set_bed([](int, int j) { return 3.0 - 2.0 * ((j - 0.5) * 0.5); });
  const rl::FootPoint f = rl::foot_v(3, 3, 7);  // P = (2.5, 1.5, 2.5)
  EXPECT_TRUE(f.found);
  // Segment from (1.25, 0.5) to (0.0, 1.5) in the y-z plane.
  const double t = ((1.5 - 1.25) * -1.25 + (2.5 - 0.5) * 1.0) / (1.25 * 1.25 + 1.0);
  EXPECT_NEAR(f.X, 2.5, 1e-12);
  EXPECT_NEAR(f.Y, 1.25 - 1.25 * t, 1e-12);
  EXPECT_NEAR(f.Z, 0.5 + t, 1e-12);
  EXPECT_NEAR(f.best, std::hypot(1.5 - f.Y, 2.5 - f.Z), 1e-12);
}
