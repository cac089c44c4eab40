// The immersing step and the eddy viscosity at the bed, over a flat bed.
#include <gtest/gtest.h>

#include <cmath>

#include "driver/fields.hpp"
#include "flow/smagorinsky.hpp"
#include "immersed/flagdeter.hpp"
#include "immersed/immerse.hpp"
#include "immersed/immersing.hpp"
#include "immersed/viscbed.hpp"
#include "immersed/wallaw.hpp"

namespace {

const double kU0 = 0.7;
const double kZ0 = 0.0833333333333333 / 1000.0;

// 8x8x8 unit cells, periodic in plan, bed flat at z = 2.  Flags as the
// classification gives them: u, v and centres at k = 3 (half a cell above
// the bed) are forcing points, k = 1, 2 solid; w at k = 2 (on the bed) is a
// forcing point, k <= 1 solid.
void flat_bed_case() {
  rl::imax = 8;
  rl::jmax = 8;
  rl::kmax = 8;
  rl::lmin = 0;
  rl::ALLOCFIELDS();
  rl::dx = rl::dy = rl::dz = 1.0;
  rl::xmin = rl::ymin = rl::zmin = 0.0;
  rl::xmax = rl::ymax = rl::zmax = 8.0;
  rl::rough = 1.0;
  rl::visc = 1e-6;
  for (int f = 1; f <= 6; ++f) {
    const int t = f <= 4 ? 0 : -1;
    rl::ibcu(f) = t;
    rl::ibcv(f) = t;
    rl::ibcw(f) = t;
    rl::ibcp(f) = t;
  }
  rl::bed.fill(2.0);
  auto cls = [](int k) { return k <= 2 ? -1 : (k == 3 ? 0 : 1); };
  auto clsw = [](int k) { return k <= 1 ? -1 : (k == 2 ? 0 : 1); };
  for (int k = -1; k <= 9; ++k)
    for (int j = -1; j <= 9; ++j)
      for (int i = -1; i <= 9; ++i) {
        if (j >= 0 && k >= 0) {
          rl::flagu(i, j, k) = cls(k);
          rl::u(i, j, k) = k <= 2 ? 5.0 : kU0;
        }
        if (i >= 0 && k >= 0) {
          rl::flagv(i, j, k) = cls(k);
          rl::v(i, j, k) = k == 3 ? 3.0 : 0.0;
        }
        if (i >= 0 && j >= 0) {
          rl::flagw(i, j, k) = clsw(k);
          rl::w(i, j, k) = k == 2 ? 4.0 : 0.0;
        }
        if (i >= 0 && j >= 0 && k >= 0) rl::flagc(i, j, k) = cls(k);
      }
}

}  // namespace

// Rough law, trilinear: the image point at z = 3 has the forcing plane in its
// stencil and marches four steps of 0.125 to z = 3.5, so yq = 0.5 + 1.0.
TEST(Immersing, FlatBedRoughTrilinear) {
  flat_bed_case();
  rl::iibm = 0;
  rl::ibed = 1;
  // Forcing points outside the ranges of the step: u plane i = 0 and the
  // top w plane.
  for (int j = 1; j <= 8; ++j) {
    rl::u(0, j, 3) = 9.0;
    for (int i = 1; i <= 8; ++i) {
      rl::flagw(i, j, 8) = 0;
      rl::w(i, j, 8) = 6.0;
    }
  }
  rl::IMMERSING();
  const double expect = kU0 * std::log(0.5 / kZ0) / std::log(1.5 / kZ0);
  for (int j = 1; j <= 8; ++j) {
    EXPECT_EQ(rl::u(0, j, 3), 9.0);
    for (int i = 1; i <= 8; ++i) {
      EXPECT_NEAR(rl::u(i, j, 3), expect, 1e-13) << i << " " << j;
      EXPECT_EQ(rl::u(i, j, 4), kU0);
      EXPECT_EQ(rl::u(i, j, 2), 5.0);  // solid: untouched
      EXPECT_EQ(rl::v(i, j, 3), 0.0);
      EXPECT_EQ(rl::w(i, j, 2), 0.0);
      EXPECT_EQ(rl::w(i, j, 8), 6.0);
    }
  }
  // A second call reads only fluid positions: the same values.
  const double first = rl::u(3, 5, 3);
  rl::IMMERSING();
  EXPECT_EQ(rl::u(3, 5, 3), first);
}
