// The node values written to the case: averages and blanking at the bed.
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

template <typename F>
void set_all(rl::Array3<double>& a, F f) {
  for (int k = a.lo(2); k <= a.hi(2); ++k)
    for (int j = a.lo(1); j <= a.hi(1); ++j)
      for (int i = a.lo(0); i <= a.hi(0); ++i) a(i, j, k) = f(i, j, k);
}

}  // namespace

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
