// Classification of grid positions against the bed.
#include <gtest/gtest.h>

#include <vector>

#include "driver/fields.hpp"
#include "immersed/flagdeter.hpp"

namespace {

using namespace rl;

// A box of I x J x K cells of size 1 x 1 x dz from z = zmin, every
// boundary word set to w, flat bed at height b.
void box(int I, int J, int K, double dzz, double z0, int word, double b) {
  imax = I;
  jmax = J;
  kmax = K;
  lmin = 0;
  ALLOCFIELDS();
  dx = 1.0;
  dy = 1.0;
  dz = dzz;
  xmin = ymin = 0.0;
  zmin = z0;
  for (int f = 1; f <= 6; ++f) ibcu(f) = ibcv(f) = ibcw(f) = ibcp(f) = word;
  bed.fill(b);
}

// u and v positions compare with the mean of the two columns they stand
// between, w and centre positions with their own column; a position exactly
// at its bed height is never solid.
TEST(FlagDeter, EdgeMeanAgainstColumnHeightAndStrictness) {
  box(4, 2, 4, 0.5, 0.0, 1, 0.0);
  // columns i = 3, 4 (and the halo column 5) at 1.0, column 2 at 0.5
  for (int j = 0; j <= 3; ++j) {
    bed(2, j) = 0.5;
    for (int i = 3; i <= 5; ++i) bed(i, j) = 1.0;
  }
  FLAGDETER();
  const int j = 1;
  // u(2): mean of 0.5 and 1.0 is 0.75; heights 0.25 and exactly 0.75
  EXPECT_EQ(flagu(2, j, 1), -1);
  EXPECT_EQ(flagu(2, j, 2), 0);  // at the height: not solid, solid below it
  EXPECT_EQ(flagu(2, j, 3), 1);
  // u(1): mean of 0.0 and 0.5 is 0.25: k = 1 exactly at it
  EXPECT_EQ(flagu(1, j, 1), 0);  // forcing through its solid neighbour u(2,j,1)
  EXPECT_EQ(flagu(1, j, 2), 1);
  // Centre of column 2 compares with 0.5: 0.25 solid, 0.75 forcing
  EXPECT_EQ(flagc(2, j, 1), -1);
  EXPECT_EQ(flagc(2, j, 2), 0);
  // Centre of column 1 compares with 0.0: no solid cell from k = 1 upward,
  // but a forcing point beside the solid centre (2,j,1)
  EXPECT_EQ(flagc(1, j, 1), 0);
  EXPECT_EQ(flagc(1, j, 2), 1);
  // plane 0 is classified solid (z = -0.25) but then overwritten by the
  // halo copy of plane 1
  EXPECT_EQ(flagc(1, j, 0), 0);
  // w of column 2 at z = k*0.5: z = 0.5 exactly at the bed is not solid
  EXPECT_EQ(flagw(2, j, 0), -1);
  EXPECT_EQ(flagw(2, j, 1), 0);
  EXPECT_EQ(flagw(2, j, 2), 1);
  // w of column 3 (bed 1.0): z = 1.0 exactly at the bed
  EXPECT_EQ(flagw(3, j, 1), -1);
  EXPECT_EQ(flagw(3, j, 2), 0);
  // w of column 1 (bed 0.0): z = 0 exactly at the bed is not solid, but its
  // x neighbour w(2,j,0) is
  EXPECT_EQ(flagw(1, j, 0), 0);
  EXPECT_EQ(flagw(1, j, 1), 1);
  // v positions over uniform columns in y take the column height
  EXPECT_EQ(flagv(3, j, 2), -1);
  EXPECT_EQ(flagv(3, j, 3), 0);
  EXPECT_EQ(flagv(2, j, 2), 0);
  EXPECT_EQ(flagv(2, j, 1), -1);
}

// A solid column at i = 1 reaches the far side of a periodic x direction
// through the halo; with a word of magnitude 1 it does not.  For flagu the
// staggered halo copies plane 1 into plane imax+1 and imax-1 into -1.
TEST(FlagDeter, DetectionAcrossPeriodicFace) {
  for (int word : {0, 1, -1}) {
    box(6, 2, 2, 1.0, 0.5, 1, 0.0);
    ibcu(1) = ibcu(2) = ibcp(1) = ibcp(2) = word;
    for (int j = 0; j <= 3; ++j) bed(1, j) = 10.0;
    FLAGDETER();
    for (int j = 1; j <= 2; ++j)
      for (int k = 1; k <= 2; ++k) {
        SCOPED_TRACE(word);
        // centres: column 1 solid; 2 beside it forcing; imax via the halo
        EXPECT_EQ(flagc(1, j, k), -1);
        EXPECT_EQ(flagc(2, j, k), 0);
        EXPECT_EQ(flagc(5, j, k), 1);
        EXPECT_EQ(flagc(6, j, k), word == 0 ? 0 : 1);
        EXPECT_EQ(flagc(7, j, k), word == 0 ? -1 : flagc(6, j, k));
        EXPECT_EQ(flagc(0, j, k), word == 0 ? flagc(6, j, k) : -1);
        // u: faces 0 and 1 stand beside column 1 (mean 5.0), solid
        EXPECT_EQ(flagu(0, j, k), -1);
        EXPECT_EQ(flagu(1, j, k), -1);
        EXPECT_EQ(flagu(2, j, k), 0);
        EXPECT_EQ(flagu(5, j, k), 1);
        EXPECT_EQ(flagu(6, j, k), word == 0 ? 0 : 1);
        EXPECT_EQ(flagu(7, j, k), word == 0 ? -1 : flagu(6, j, k));
        EXPECT_EQ(flagu(-1, j, k), word == 0 ? flagu(5, j, k) : -1);
      }
  }
}

}  // namespace
