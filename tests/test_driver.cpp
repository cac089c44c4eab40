// The run driver: boundary table, level count, bed, initial state, the
// due-output rule and the status block.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <string>

#include "driver/conditions.hpp"
#include "driver/domain.hpp"
#include "driver/fields.hpp"
#include "driver/initfields.hpp"
#include "driver/mainprogram.hpp"

namespace {

void sizes(int I, int J, int K) {
  rl::imax = I;
  rl::jmax = J;
  rl::kmax = K;
  rl::LEVELCOUNT();
  rl::ALLOCFIELDS();
  rl::ALLOCNODEARRAYS();
}

struct Types {
  int u[6], v[6], w[6], p[6];
};

Types current() {
  Types t;
  for (int f = 1; f <= 6; ++f) {
    t.u[f - 1] = rl::ibcu(f);
    t.v[f - 1] = rl::ibcv(f);
    t.w[f - 1] = rl::ibcw(f);
    t.p[f - 1] = rl::ibcp(f);
  }
  return t;
}

void expect_types(const Types& t, std::initializer_list<int> u, std::initializer_list<int> v,
                  std::initializer_list<int> w, std::initializer_list<int> p) {
  EXPECT_EQ(std::vector<int>(t.u, t.u + 6), std::vector<int>(u));
  EXPECT_EQ(std::vector<int>(t.v, t.v + 6), std::vector<int>(v));
  EXPECT_EQ(std::vector<int>(t.w, t.w + 6), std::vector<int>(w));
  EXPECT_EQ(std::vector<int>(t.p, t.p + 6), std::vector<int>(p));
}

}  // namespace

TEST(Conditions, BoundaryTypeTable) {
  // Periodic sides, free-slip top.
  rl::set_boundary_types(0, 0, 0);
  expect_types(current(), {0, 0, 0, 0, -1, 1}, {0, 0, 0, 0, -1, 1}, {0, 0, 0, 0, 1, -1}, {0, 0, 0, 0, -1, 1});
  // Side walls, no-slip top: only ibcu(6), ibcv(6) follow the z switch.
  rl::set_boundary_types(0, 1, 1);
  expect_types(current(), {0, 0, -1, -1, -1, -1}, {0, 0, -1, -1, -1, -1}, {0, 0, -1, -1, 1, -1},
               {0, 0, 1, 1, -1, 1});
  // The x switch has no effect at all, whatever its value.
  rl::ibcu(1) = 0;
  rl::set_boundary_types(7, -3, 2);
  expect_types(current(), {0, 0, -1, -1, -1, -1}, {0, 0, -1, -1, -1, -1}, {0, 0, -1, -1, 1, -1},
               {0, 0, 1, 1, -1, 1});
  for (int f = 1; f <= 6; ++f) {
    EXPECT_EQ(rl::bcu(f), 0.0);
    EXPECT_EQ(rl::bcv(f), 0.0);
    EXPECT_EQ(rl::bcw(f), 0.0);
  }
}

TEST(FieldStore, LevelCount) {
  auto lc = [](int I, int J, int K) {
    rl::imax = I;
    rl::jmax = J;
    rl::kmax = K;
    rl::LEVELCOUNT();
    return rl::lmin;
  };
  EXPECT_EQ(lc(8, 4, 8), -2);     // 9 x 5 nodes, kmaxItm 3: stops once j has one cell
  EXPECT_EQ(lc(128, 64, 32), -5);  // coarsest 4 x 2 x 1
  EXPECT_EQ(lc(1, 1, 8), 0);      // 2 x 2 nodes
  EXPECT_EQ(lc(30, 30, 32), -4);  // 15, 7, 3, 1: a reaches 1 and ends it
  EXPECT_EQ(lc(6, 40, 64), -2);   // 3, then 1
  EXPECT_EQ(lc(100, 12, 16), -3); // j: 6, 3, 1
  EXPECT_EQ(lc(50, 50, 1), 0);    // one layer in z: no coarsening
  EXPECT_EQ(lc(2, 9, 4), -1);     // a falls to 1 after the first pass

  // Level sizes truncate: imax = 6 at l = -2 has nx = 1.
  sizes(6, 8, 8);
  ASSERT_EQ(rl::lmin, -2);
  EXPECT_EQ(rl::pmg(-1).nx, 3);
  EXPECT_EQ(rl::pmg(-2).nx, 1);
  EXPECT_EQ(rl::pmg(-2).phi.hi(0), 2);
  EXPECT_EQ(rl::pmg(-2).phi.hi(1), 3);
  EXPECT_EQ(rl::u.lo(0), -1);
  EXPECT_EQ(rl::v.lo(1), -1);
  EXPECT_EQ(rl::w.lo(2), -1);
  EXPECT_EQ(rl::rhsuo.lo(0), 0);
  EXPECT_EQ(rl::nslot, 1);
  EXPECT_EQ(rl::slot1.hi(0), 1);
}

TEST(Domain, BedFromCornersWithGhostRowsAndCorners) {
  sizes(3, 2, 2);
  // Distinct node elevations: e = 10 i + 100 j.
  for (int j = 0; j <= 2; ++j)
    for (int i = 0; i <= 3; ++i) rl::elev(i, j) = 10.0 * i + 100.0 * j;
  auto centre = [](int i, int j) { return 10.0 * (i - 0.5) + 100.0 * (j - 0.5); };

  // Periodic in x and y.
  rl::set_boundary_types(0, 0, 0);
  rl::BUILDBED();
  EXPECT_DOUBLE_EQ(rl::bed(2, 1), centre(2, 1));
  EXPECT_DOUBLE_EQ(rl::bed(1, 0), centre(1, 2));  // opposite interior row
  EXPECT_DOUBLE_EQ(rl::bed(1, 3), centre(1, 1));
  EXPECT_DOUBLE_EQ(rl::bed(0, 1), centre(3, 1));  // opposite interior column
  EXPECT_DOUBLE_EQ(rl::bed(4, 2), centre(1, 2));
  EXPECT_DOUBLE_EQ(rl::bed(0, 0), centre(3, 2));  // corner through both passes
  EXPECT_DOUBLE_EQ(rl::bed(4, 3), centre(1, 1));

  // Walls in y (|ibcp| = 1): nearest row; x stays periodic.
  rl::set_boundary_types(0, 1, 0);
  rl::BUILDBED();
  EXPECT_DOUBLE_EQ(rl::bed(1, 0), centre(1, 1));
  EXPECT_DOUBLE_EQ(rl::bed(2, 3), centre(2, 2));
  // Corners come from the x pass after the y pass: the far column's ghost row.
  EXPECT_DOUBLE_EQ(rl::bed(0, 0), centre(3, 1));
  EXPECT_DOUBLE_EQ(rl::bed(4, 3), centre(1, 2));
  EXPECT_DOUBLE_EQ(rl::bed(0, 3), centre(3, 2));
}

TEST(InitialState, UniformFlowFromDischargeAndNoiseOrder) {
  sizes(4, 3, 2);
  rl::ymin = 0.0;
  rl::ymax = 0.5;
  rl::zmax = 0.2;
  rl::discharge = 0.05;
  rl::initial = 0;
  rl::iperturb = 0;
  rl::u(-1, 1, 1) = 7.0;  // layer -1 is not the initial state's
  rl::p(2, 2, 2) = 3.0;
  rl::nut(0, 0, 0) = 1.0;
  rl::INITFIELDS();
  EXPECT_DOUBLE_EQ(rl::xinit, 0.05 / 0.5 / 0.2);
  EXPECT_EQ(rl::u(5, 4, 3), rl::xinit);
  EXPECT_EQ(rl::uo(0, 0, 0), rl::xinit);
  EXPECT_EQ(rl::v(2, 2, 2), 0.0);
  EXPECT_EQ(rl::u(-1, 1, 1), 7.0);
  EXPECT_EQ(rl::p(2, 2, 2), 0.0);
  EXPECT_EQ(rl::nut(0, 0, 0), 0.0);
  EXPECT_EQ(rl::nslot, 0);

  // Noise: k outermost, i innermost, u then v then w, one draw per element,
  // from the default-state generator; the old copy equals the field.
  rl::random_generator() = std::mt19937_64();
  rl::iperturb = 1;
  rl::amplitude = 0.25;
  rl::INITFIELDS();
  std::mt19937_64 g;
  auto draw = [&g] { return static_cast<double>(g() >> 11) * 0x1.0p-53; };
  const double r0 = draw(), r1 = draw();
  EXPECT_EQ(rl::uo(0, 0, 0), rl::xinit + (r0 - 0.5) * 0.5);
  EXPECT_EQ(rl::uo(1, 0, 0), rl::xinit + (r1 - 0.5) * 0.5);
  const int n = 6 * 5 * 4;
  for (int m = 2; m < n; ++m) draw();
  const double rv = draw();
  EXPECT_EQ(rl::vo(0, 0, 0), (rv - 0.5) * 0.5);
  for (int m = 1; m < n; ++m) draw();
  const double rw = draw();
  EXPECT_EQ(rl::wo(0, 0, 0), (rw - 0.5) * 0.5);
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 4; ++j)
      for (int i = 0; i <= 5; ++i) {
        EXPECT_EQ(rl::u(i, j, k), rl::uo(i, j, k));
        EXPECT_LT(std::abs(rl::w(i, j, k)), 0.25 + 1e-15);
      }

  // Bed draws follow the velocity draws; switch 2 draws and adds nothing.
  rl::random_generator() = std::mt19937_64();
  rl::iperturb = 2;
  rl::amplitude = 0.0;
  rl::INITFIELDS();
  EXPECT_EQ(rl::uo(3, 2, 1), rl::xinit);
  rl::elev.fill(1.0);
  rl::bamplitude = 0.1;
  rl::PERTURBBED();
  std::mt19937_64 h;
  h.discard(3 * n);
  const double rb = static_cast<double>(h() >> 11) * 0x1.0p-53;
  EXPECT_EQ(rl::elev(0, 0), 1.0 + (rb - 0.5) * 2 * 0.1);
}

TEST(TimeLoop, OutputIsDueWhenAStepCrossesAMultiple) {
  EXPECT_FALSE(rl::output_due(0.25, 0.15, 0.1 * 4));  // no multiple of 0.4 crossed
  EXPECT_TRUE(rl::output_due(0.42, 0.38, 0.4));      // crosses 0.4
  EXPECT_TRUE(rl::output_due(0.4, 0.38, 0.5 * 0.8));  // lands exactly on it
  EXPECT_FALSE(rl::output_due(0.45, 0.4, 0.4));     // starting on it is not a crossing
  EXPECT_TRUE(rl::output_due(2.5, 0.1, 0.4));       // a step over several multiples: once
  EXPECT_FALSE(rl::output_due(0.3, 0.0, 0.4));
  // otime 0: quotients are infinite or NaN; their truncations are equal.
  EXPECT_FALSE(rl::output_due(0.1, 0.0, 0.0));
  EXPECT_FALSE(rl::output_due(0.2, 0.1, 0.0));
  // Truncation towards zero: -0.5 and 0.5 both give 0.
  EXPECT_FALSE(rl::output_due(0.2, -0.2, 0.4));
  EXPECT_EQ(rl::trunc_i32(-2.7), -2);
  EXPECT_EQ(rl::trunc_i32(2147483647.9), INT_MAX);
  EXPECT_EQ(rl::trunc_i32(2147483648.0), INT_MIN);
  EXPECT_EQ(rl::trunc_i32(std::nan("")), INT_MIN);
  EXPECT_EQ(rl::trunc_i32(-INFINITY), INT_MIN);
}

TEST(TimeLoop, StatusBlockLabels) {
  rl::nstep = 12;
  rl::dt = 0.001;
  rl::simtime = 0.5;
  rl::divmax = 1.0 / 3.0 * 1e-9;
  rl::divsum = -2.0e-12;
  testing::internal::CaptureStdout();
  rl::print_status(7);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out,
            "Step Number        = 12\n"
            "Time Step          = 0.001\n"
            "Time               = 0.5\n"
            "Number of Poisson  = 7\n"
            "Maximum divergence = 3.3333333333333332E-10\n"
            "Total divergence   = -2E-12\n"
            "--------------------------------------------------------\n");
}
