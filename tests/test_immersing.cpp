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

// Inverse distance: the image point stays at z = 3 and yq = 1.0.
TEST(Immersing, FlatBedRoughInverseDistance) {
  flat_bed_case();
  rl::iibm = 1;
  rl::ibed = 2;
  rl::IMMERSING();
  const double expect = kU0 * std::log(0.5 / kZ0) / std::log(1.0 / kZ0);
  for (int j = 1; j <= 8; ++j)
    for (int i = 1; i <= 8; ++i) {
      EXPECT_NEAR(rl::u(i, j, 3), expect, 1e-12);
      EXPECT_EQ(rl::v(i, j, 3), 0.0);
      EXPECT_EQ(rl::w(i, j, 2), 0.0);
    }
}

// iibm picks the sampling and ibed the law; any non-zero value counts.
TEST(Immersing, ChoiceOfWallRoutine) {
  using LawFn = void (*)(double&, double&, double&, double, double, double, double&, double&, double&, double&,
                         double&, double&, double&, double&);
  struct Case {
    int iibm, ibed;
    LawFn fn;
  } cases[] = {{0, 1, rl::WALLROUGHTRI},
               {0, 0, rl::WALLSMOOTHTRI},
               {3, -1, rl::WALLROUGHIDW},
               {1, 0, rl::WALLSMOOTHIDW}};
  double values[4];
  int n = 0;
  for (const Case& c : cases) {
    flat_bed_case();
    rl::iibm = c.iibm;
    rl::ibed = c.ibed;
    double value = -1.0;
    rl::IMMERSEU(4, 4, 3, value);
    double px = 4.0, py = 3.5, pz = 2.5, ux, uy, uz, g, us, tx, ty, tz;
    c.fn(px, py, pz, 4.0, 3.5, 2.0, ux, uy, uz, g, us, tx, ty, tz);
    EXPECT_EQ(value, ux);
    values[n++] = value;
  }
  // The four laws really differ here.
  EXPECT_NE(values[0], values[1]);
  EXPECT_NE(values[0], values[2]);
  EXPECT_NE(values[1], values[3]);
}

// The eddy viscosity at the forcing centres: the image value scaled by
// dist/(dist + |q - p|).  On a shear u = a*z every cell has nut = a*c*c.
TEST(Immersing, EddyViscosityAtTheBed) {
  flat_bed_case();
  const double a = 0.4;
  for (int k = 0; k <= 9; ++k)
    for (int j = 0; j <= 9; ++j)
      for (int i = -1; i <= 9; ++i) rl::u(i, j, k) = a * (k - 0.5);
  rl::v.fill(0.0);
  rl::w.fill(0.0);
  rl::smagorinsky = 0.2;
  const double N = a * 0.2 * 0.2;
  // Trilinear: q marches from z = 3 to 3.5, |d| = 1.0, so N*0.5/1.5.
  rl::iibm = 0;
  rl::SMAGORINSKY();
  for (int j = 1; j <= 8; ++j)
    for (int i = 1; i <= 8; ++i) {
      EXPECT_NEAR(rl::nut(i, j, 3), N / 3, 1e-15);
      EXPECT_NEAR(rl::nut(i, j, 4), N, 1e-15);
      EXPECT_NEAR(rl::nut(i, j, 2), N, 1e-15);  // solid keeps the model value
    }
  // Inverse distance: q stays at z = 3, so N*0.5/1.0.  (4,4) has its whole
  // cloud inside the box.
  rl::iibm = 1;
  rl::ibed = 0;  // plays no part here
  rl::SMAGORINSKY();
  EXPECT_NEAR(rl::nut(4, 4, 3), N / 2, 1e-15);
  // A centre on the bed gets 0.
  double r = 1.0;
  rl::VISCTRI(3.5, 3.5, 2.0, 3.5, 3.5, 2.0, r);
  EXPECT_EQ(r, 0.0);
  r = 1.0;
  rl::VISCIDW(3.5, 3.5, 2.0, 3.5, 3.5, 2.0, r);
  EXPECT_EQ(r, 0.0);
}

// Positions that turned from solid into forcing points get the wall law in
// the old field; positions that became fluid, or stayed, keep their values.
TEST(FlagMove, FillsOldVelocitiesWhereSolidBecameForcing) {
  flat_bed_case();
  rl::iibm = 0;
  rl::ibed = 0;
  rl::uo.fill(9.0);
  rl::vo.fill(9.0);
  rl::wo.fill(9.0);
  // Previously everything below k = 5 was solid.
  for (int k = 0; k <= 9; ++k)
    for (int j = 0; j <= 9; ++j)
      for (int i = 0; i <= 9; ++i) {
        const int old = k <= 4 ? -1 : 1;
        rl::flaguo(i, j, k) = old;
        rl::flagvo(i, j, k) = old;
        rl::flagwo(i, j, k) = old;
      }
  double eu = 0, ev = 0, ew = 0;
  rl::IMMERSEU(4, 5, 3, eu);
  rl::IMMERSEV(4, 5, 3, ev);
  rl::IMMERSEW(4, 5, 2, ew);
  rl::FLAGMOVE();
  EXPECT_EQ(rl::uo(4, 5, 3), eu);
  EXPECT_EQ(rl::vo(4, 5, 3), ev);
  EXPECT_EQ(rl::wo(4, 5, 2), ew);
  EXPECT_NE(eu, 9.0);
  // Became fluid (k = 4), stayed solid (k = 1), outside the range (i = 0).
  EXPECT_EQ(rl::uo(4, 5, 4), 9.0);
  EXPECT_EQ(rl::uo(4, 5, 1), 9.0);
  EXPECT_EQ(rl::uo(0, 5, 3), 9.0);
  EXPECT_EQ(rl::wo(4, 5, 3), 9.0);
  // The current field is only read.
  EXPECT_EQ(rl::u(4, 5, 3), kU0);
}

// Kept foot points give the values of a fresh search as long as the bed
// stands; the wall law still follows the current velocities.
TEST(FootCache, ReusedSearchGivesTheSameValues) {
  flat_bed_case();
  rl::iibm = 0;
  rl::ibed = 1;
  double fresh = 0, kept = 0, again = 0;
  rl::IMMERSEU(4, 5, 3, fresh);
  rl::FOOTCACHE(true);
  rl::IMMERSEU(4, 5, 3, kept);  // searches and keeps
  rl::IMMERSEU(4, 5, 3, again);  // reuses
  EXPECT_EQ(kept, fresh);
  EXPECT_EQ(again, fresh);
  // New velocities: the kept foot point, the new wall-law value.
  for (int k = 3; k <= 9; ++k)
    for (int j = 0; j <= 9; ++j)
      for (int i = -1; i <= 9; ++i) rl::u(i, j, k) = 2 * kU0;
  double faster = 0;
  rl::IMMERSEU(4, 5, 3, faster);
  EXPECT_NE(faster, fresh);
  rl::FOOTCACHE(false);
  double uncached = 0;
  rl::IMMERSEU(4, 5, 3, uncached);
  EXPECT_EQ(faster, uncached);
  // Proof of reuse: with the cache on, a raised bed goes unseen.
  rl::FOOTCACHE(true);
  double before = 0, after = 0, searched = 0;
  rl::IMMERSEU(4, 5, 3, before);
  rl::bed.fill(2.25);
  rl::IMMERSEU(4, 5, 3, after);
  rl::FOOTCACHE(false);
  rl::IMMERSEU(4, 5, 3, searched);
  EXPECT_EQ(after, before);
  EXPECT_NE(searched, before);
}
