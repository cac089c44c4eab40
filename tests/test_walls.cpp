// Side-wall law: the first row beside each side wall from the row next to it.
#include <gtest/gtest.h>

#include <cmath>

#include "driver/fields.hpp"
#include "flow/wall.hpp"

namespace {

void side_grid() {
  rl::imax = 3;
  rl::jmax = 5;
  rl::kmax = 3;
  rl::lmin = 0;
  rl::ALLOCFIELDS();
  rl::dx = 0.3;
  rl::dy = 0.1;
  rl::dz = 0.2;
  rl::rough = 12.0;  // z0 = 0.001
}

// Distinct values everywhere, so a read of the wrong row or a write of the
// wrong row shows.
double val(int c, int i, int j, int k) { return 0.1 * c + 0.37 * i - 0.23 * j + 0.11 * k + 0.013 * i * k + 1.0; }

void fill_all() {
  for (int k = 0; k <= rl::kmax + 1; ++k)
    for (int j = 0; j <= rl::jmax + 1; ++j)
      for (int i = 0; i <= rl::imax + 1; ++i) {
        rl::u(i, j, k) = val(1, i, j, k);
        rl::v(i, j, k) = val(2, i, j, k);
        rl::w(i, j, k) = val(3, i, j, k);
      }
}

// The ratio of the law at half a cell to the law at two cells (not 1.5).
double law_ratio() {
  const double z0 = 0.001;
  return std::log(0.05 / z0) / std::log(0.2 / z0);
}

}  // namespace

TEST(SideWalls, LowWallScalesUFromUAndWFromV) {
  side_grid();
  fill_all();
  rl::WALLS();
  const double r = law_ratio();
  for (int k = 0; k <= rl::kmax + 1; ++k)
    for (int j = 0; j <= rl::jmax + 1; ++j)
      for (int i = 0; i <= rl::imax + 1; ++i) {
        const bool row = j == 1 && i >= 1 && i <= rl::imax && k >= 1 && k <= rl::kmax;
        if (row) {
          EXPECT_NEAR(rl::u(i, 1, k), val(1, i, 2, k) * r, 1e-13) << i << " " << k;
          // w of the wall row follows v of row 2: the low wall differs.
          EXPECT_NEAR(rl::w(i, 1, k), val(2, i, 2, k) * r, 1e-13) << i << " " << k;
        } else {
          EXPECT_EQ(rl::u(i, j, k), val(1, i, j, k));
          EXPECT_EQ(rl::w(i, j, k), val(3, i, j, k));
        }
        EXPECT_EQ(rl::v(i, j, k), val(2, i, j, k));
      }
}

TEST(SideWalls, HighWallScalesUAndWFromTheirOwnRow) {
  side_grid();
  fill_all();
  rl::WALLN();
  const double r = law_ratio();
  const int s = rl::jmax, rr = rl::jmax - 1;
  for (int k = 0; k <= rl::kmax + 1; ++k)
    for (int j = 0; j <= rl::jmax + 1; ++j)
      for (int i = 0; i <= rl::imax + 1; ++i) {
        const bool row = j == s && i >= 1 && i <= rl::imax && k >= 1 && k <= rl::kmax;
        if (row) {
          EXPECT_NEAR(rl::u(i, s, k), val(1, i, rr, k) * r, 1e-13);
          EXPECT_NEAR(rl::w(i, s, k), val(3, i, rr, k) * r, 1e-13);
        } else {
          EXPECT_EQ(rl::u(i, j, k), val(1, i, j, k));
          EXPECT_EQ(rl::w(i, j, k), val(3, i, j, k));
        }
        EXPECT_EQ(rl::v(i, j, k), val(2, i, j, k));
      }
}

TEST(SideWalls, ThresholdOnTheSpeed) {
  side_grid();
  fill_all();
  // Row 2 still: the wall row becomes zero.  At (1,2,1) and (2,2,1) the
  // speed is set to exactly 1e-8 and just below it.
  for (int k = 0; k <= rl::kmax + 1; ++k)
    for (int i = 0; i <= rl::imax + 1; ++i) {
      rl::u(i, 2, k) = 0.0;
      rl::v(i, 2, k) = 0.0;
      rl::w(i, 2, k) = 0.0;
    }
  rl::u(1, 2, 1) = 1e-8;
  rl::u(2, 2, 2) = 0.99e-8;
  rl::WALLS();
  const double r = law_ratio();
  EXPECT_NEAR(rl::u(1, 1, 1), 1e-8 * r, 1e-22);  // exactly at the threshold: the law applies
  EXPECT_GT(rl::u(1, 1, 1), 0.0);
  EXPECT_EQ(rl::u(2, 1, 2), 0.0);
  for (int k = 1; k <= rl::kmax; ++k)
    for (int i = 1; i <= rl::imax; ++i) {
      if (!(i == 1 && k == 1)) {
        EXPECT_EQ(rl::u(i, 1, k), 0.0);
      }
      EXPECT_EQ(rl::w(i, 1, k), 0.0);
    }
}
