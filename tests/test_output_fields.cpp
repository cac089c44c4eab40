// Vorticity, Q and the node values written to the case.
#include <gtest/gtest.h>

#include <cmath>

#include "driver/conditions.hpp"
#include "driver/fields.hpp"
#include "flow/vorticity.hpp"
#include "results/caseresults.hpp"

namespace {

void box(int I, int J, int K, double h) {
  rl::imax = I;
  rl::jmax = J;
  rl::kmax = K;
  rl::LEVELCOUNT();
  rl::ALLOCFIELDS();
  rl::ALLOCNODEARRAYS();
  rl::dx = rl::dy = rl::dz = h;
}

// Face positions of the staggered grid (origin 0).
double xu(int i) { return i * rl::dx; }
double yc(int j) { return (j - 0.5) * rl::dy; }
double xc(int i) { return (i - 0.5) * rl::dx; }
double yv(int j) { return j * rl::dy; }

template <typename F>
void set_all(rl::Array3<double>& a, F f) {
  for (int k = a.lo(2); k <= a.hi(2); ++k)
    for (int j = a.lo(1); j <= a.hi(1); ++j)
      for (int i = a.lo(0); i <= a.hi(0); ++i) a(i, j, k) = f(i, j, k);
}

}  // namespace

TEST(Vorticity, ShearAndSolidRotation) {
  box(5, 4, 3, 0.5);
  rl::set_boundary_types(0, 1, 0);
  const double a = 0.75;

  // Uniform flow: nothing.
  set_all(rl::u, [](int, int, int) { return 1.0; });
  set_all(rl::v, [](int, int, int) { return -2.0; });
  set_all(rl::w, [](int, int, int) { return 0.5; });
  rl::VORTICITY();
  for (int k = 0; k <= 4; ++k)
    for (int j = 0; j <= 5; ++j)
      for (int i = 0; i <= 6; ++i) {
        EXPECT_EQ(rl::vort(i, j, k), 0.0);
        EXPECT_EQ(rl::Q(i, j, k), 0.0);
      }

  // Shear u = a y: |vorticity| = |a|, Q = 0.
  set_all(rl::u, [a](int, int j, int) { return a * yc(j); });
  set_all(rl::v, [](int, int, int) { return 0.0; });
  set_all(rl::w, [](int, int, int) { return 0.0; });
  rl::VORTICITY();
  for (int k = 1; k <= 3; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 5; ++i) {
        EXPECT_NEAR(rl::vort(i, j, k), a, 1e-14);
        EXPECT_NEAR(rl::Q(i, j, k), 0.0, 1e-14);
      }

  // Solid rotation u = -a y, v = a x: |vorticity| = 2|a|, Q = a^2.
  set_all(rl::u, [a](int, int j, int) { return -a * yc(j); });
  set_all(rl::v, [a](int i, int, int) { return a * xc(i); });
  rl::VORTICITY();
  for (int k = 1; k <= 3; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 5; ++i) {
        EXPECT_NEAR(rl::vort(i, j, k), 2 * a, 1e-14);
        EXPECT_NEAR(rl::Q(i, j, k), a * a, 1e-14);
      }
  (void)xu;
  (void)yv;
}

TEST(Vorticity, StencilReachIntoGhostsAndGhostRule) {
  box(4, 4, 4, 1.0);
  // Periodic x and y; bottom |ibcp| = 1, top |ibcp| = 1.
  rl::set_boundary_types(0, 0, 0);
  set_all(rl::u, [](int, int, int) { return 0.0; });
  set_all(rl::v, [](int, int, int) { return 0.0; });
  set_all(rl::w, [](int, int, int) { return 0.0; });
  // u non-zero only in row j = 0 (a ghost row): cells of row j = 1 see it.
  for (int k = 0; k <= 5; ++k)
    for (int i = -1; i <= 5; ++i) rl::u(i, 0, k) = 1.0;
  rl::VORTICITY();
  // Uy at row 1: (0 - (0 + 0 + 1 + 1)/4... ) -> mean of the low side is 0.5.
  EXPECT_DOUBLE_EQ(rl::vort(2, 1, 2), 0.5);
  EXPECT_DOUBLE_EQ(rl::vort(2, 2, 2), 0.0);
  // Ghost rows in y are periodic: row 0 copies row jmax, row jmax+1 row 1.
  EXPECT_EQ(rl::vort(2, 0, 2), rl::vort(2, 4, 2));
  EXPECT_EQ(rl::vort(2, 5, 2), 0.5);
  // Ghost layers in z copy the nearest layer (|type| 1), corners included.
  EXPECT_EQ(rl::vort(0, 5, 0), 0.5);
  EXPECT_EQ(rl::vort(3, 1, 5), 0.5);
  EXPECT_EQ(rl::vort(5, 1, 0), rl::vort(1, 1, 1));
}

TEST(NodeValues, AveragesAndBlankingAtTheBed) {
  box(2, 2, 2, 1.0);
  rl::zmin = 0.0;
  for (int k = 0; k <= 2; ++k)
    for (int j = 0; j <= 2; ++j)
      for (int i = 0; i <= 2; ++i) rl::zg3(i, j, k) = k * 1.0;
  // Distinct cell values: p = i + 10 j + 100 k, ghosts included.
  set_all(rl::p, [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; });
  set_all(rl::Q, [](int i, int j, int k) { return 2.0 * i + 10.0 * j + 100.0 * k; });
  set_all(rl::vort, [](int i, int, int) { return 1.0 * i; });
  set_all(rl::u, [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; });
  set_all(rl::v, [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; });
  set_all(rl::w, [](int i, int j, int k) { return i + 10.0 * j + 100.0 * k; });
  rl::elev.fill(-1.0);
  rl::elev(1, 1) = 1.0;  // exactly at node k = 1: in the bed
  rl::elev(2, 0) = 5.0;  // dry column: the whole column is blanked
  rl::NODEVALUES();

  // Node (0,0,0): mean of cells 0..1 in each direction; i = imax uses the ghost.
  EXPECT_DOUBLE_EQ(rl::pout(0, 0, 0), 0.5 + 5.0 + 50.0);
  EXPECT_DOUBLE_EQ(rl::pout(2, 1, 1), 2.5 + 15.0 + 150.0);
  EXPECT_DOUBLE_EQ(rl::qout(1, 2, 0), 3.0 + 25.0 + 50.0);
  // Face means: u in the plane of x node i, v of y node j, w of z node k.
  EXPECT_DOUBLE_EQ(rl::uout(0, 0, 0), 0.0 + 5.0 + 50.0);
  EXPECT_DOUBLE_EQ(rl::vout(1, 0, 0), 1.5 + 0.0 + 50.0);
  EXPECT_DOUBLE_EQ(rl::wout(1, 2, 2), 1.5 + 25.0 + 200.0);

  // Node (1,1,1) lies exactly at the bed: blanked but for the pressure.
  EXPECT_EQ(rl::uout(1, 1, 1), 0.0);
  EXPECT_EQ(rl::vout(1, 1, 1), 0.0);
  EXPECT_EQ(rl::wout(1, 1, 1), 0.0);
  EXPECT_EQ(rl::vortout(1, 1, 1), 0.0);
  EXPECT_EQ(rl::qout(1, 1, 1), 0.0);
  EXPECT_DOUBLE_EQ(rl::pout(1, 1, 1), 1.5 + 15.0 + 150.0);
  EXPECT_EQ(rl::uout(1, 1, 0), 0.0);
  EXPECT_NE(rl::uout(1, 1, 2), 0.0);
  for (int k = 0; k <= 2; ++k) {
    EXPECT_EQ(rl::vout(2, 0, k), 0.0);
    EXPECT_NE(rl::pout(2, 0, k), 0.0);
  }
  EXPECT_NE(rl::uout(0, 0, 1), 0.0);
}
