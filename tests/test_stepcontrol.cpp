// Time step, discharge controller and the end-of-step copies.
#include <gtest/gtest.h>

#include "driver/fields.hpp"
#include "flow/forces.hpp"
#include "flow/timestep.hpp"
#include "immersed/stepend.hpp"

namespace {

using namespace rl;

void grid(int I, int J, int K) {
  imax = I;
  jmax = J;
  kmax = K;
  lmin = 0;
  ALLOCFIELDS();
}

// No flow and no viscosity: every candidate is infinite and dt is the cap
// 1.0.  A hand-worked case in which the ghost face u(0) and the faces v(.,0)
// and w(.,.,kmax) take part.  A slow flow gives the cap, cfl 0 gives 0.
TEST(TimeStep, CapZeroFlowAndHandWorkedCells) {
  grid(2, 1, 1);
  dx = 0.1;
  dy = 0.2;
  dz = 0.5;
  visc = 0.0;
  cfl = 0.5;
  dt = 0.123;
  TIMESTEP();
  EXPECT_EQ(dt, 1.0);

  visc = 0.01;
  u(0, 1, 1) = -2.0;  // low ghost face of cell 1
  u(1, 1, 1) = 1.0;
  u(2, 1, 1) = 3.0;   // high face of cell 2, the last column: the fastest
  v(1, 0, 1) = 0.3;
  v(1, 1, 1) = -0.1;
  w(1, 1, 1) = 0.4;   // top face of cell 1 (kmax)
  w(2, 1, 1) = -0.8;
  u(0, 0, 0) = 1.0e6;  // outside every cell: ignored
  w(1, 1, 2) = 1.0e6;
  // S = 100 + 25 + 4 = 129, D = 1.29
  // cell 1: 2/0.1 + 1.29 + 0.3/0.2 + 0.4/0.5 = 23.59
  // cell 2: 3/0.1 + 1.29 + 0/0.2 + 0.8/0.5 = 32.89
  TIMESTEP();
  EXPECT_NEAR(dt, 0.5 / 32.89, 1e-15);
  u(2, 1, 1) = 0.5;  // now cell 1, with the low ghost face, limits
  TIMESTEP();
  EXPECT_NEAR(dt, 0.5 / 23.59, 1e-15);

  cfl = 0.0;
  TIMESTEP();
  EXPECT_EQ(dt, 0.0);

  // very slow flow, little viscosity, big cells: the cap holds
  grid(3, 3, 2);
  dx = dy = dz = 10.0;
  visc = 1.0e-6;
  cfl = 0.9;
  u.fill(1.0e-3);
  v.fill(-2.0e-3);
  w.fill(5.0e-4);
  TIMESTEP();
  EXPECT_EQ(dt, 1.0);

  // no cell layer at all: the loop is empty
  grid(3, 3, 0);
  u.fill(50.0);
  TIMESTEP();
  EXPECT_EQ(dt, 1.0);
}

// SAVEOLD copies 0..n+1 in all directions and leaves the -1 layers;
// ZEROFLAGGED zeroes exactly the positions flagged -1 (not the forcing
// points), whatever dt is: the threshold on dt belongs to its caller.
TEST(StepEnd, SaveOldRangesAndZeroFlaggedSemantics) {
  grid(3, 2, 2);
  for (Array3<double>* a : {&u, &v, &w})
    for (std::int64_t n = 0; n < a->size(); ++n) a->data()[n] = 1.0 + static_cast<double>(n);
  for (Array3<int>* f : {&flagu, &flagv, &flagw})
    for (std::int64_t n = 0; n < f->size(); ++n) f->data()[n] = static_cast<int>(n % 3) - 1;
  uo.fill(-5.0);
  vo.fill(-5.0);
  wo.fill(-5.0);
  flaguo.fill(9);
  flagco.fill(9);
  SAVEOLD();
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j)
      for (int i = 0; i <= 4; ++i) {
        EXPECT_EQ(uo(i, j, k), u(i, j, k));
        EXPECT_EQ(vo(i, j, k), v(i, j, k));
        EXPECT_EQ(wo(i, j, k), w(i, j, k));
        EXPECT_EQ(flaguo(i, j, k), flagu(i, j, k));
        EXPECT_EQ(flagvo(i, j, k), flagv(i, j, k));
        EXPECT_EQ(flagwo(i, j, k), flagw(i, j, k));
        EXPECT_EQ(flagco(i, j, k), 9);
      }
  EXPECT_EQ(uo(-1, 1, 1), -5.0);
  EXPECT_EQ(vo(1, -1, 1), -5.0);
  EXPECT_EQ(wo(1, 1, -1), -5.0);
  EXPECT_EQ(flaguo(-1, 2, 2), 9);

  dt = 1.0;
  nut.fill(0.5);
  flagc.fill(1);
  flagc(2, 1, 1) = -1;
  flagc(3, 1, 1) = 0;
  flagu.fill(0);
  flagu(1, 1, 1) = -1;
  flagu(-1, 1, 1) = -1;  // outside the range of the routine
  flagv.fill(1);
  flagv(0, 0, 0) = -1;
  flagw.fill(1);
  flagw(4, 3, 3) = -1;
  u.fill(2.0);
  v.fill(3.0);
  w.fill(4.0);
  ZEROFLAGGED();
  EXPECT_EQ(nut(2, 1, 1), 0.0);
  EXPECT_EQ(nut(3, 1, 1), 0.5);
  EXPECT_EQ(u(1, 1, 1), 0.0);
  EXPECT_EQ(u(2, 1, 1), 2.0);  // forcing point keeps its value
  EXPECT_EQ(u(-1, 1, 1), 2.0);
  EXPECT_EQ(v(0, 0, 0), 0.0);
  EXPECT_EQ(w(4, 3, 3), 0.0);
  double total = 0.0;
  for (std::int64_t n = 0; n < w.size(); ++n) total += w.data()[n];
  EXPECT_EQ(total, 4.0 * static_cast<double>(w.size() - 1));
}

}  // namespace
