// Tests of the multigrid pressure solver: level counts, ghost rules, level
// operators, the line smoother and the cycle's stop rule.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <vector>

#include "driver/fields.hpp"
#include "pressure/multigridp.hpp"

namespace {

void make_box(int I, int J, int K, int lm, double hx = 1.0, double hy = 1.0, double hz = 1.0) {
  rl::imax = I;
  rl::jmax = J;
  rl::kmax = K;
  rl::lmin = lm;
  rl::dx = hx;
  rl::dy = hy;
  rl::dz = hz;
  rl::ALLOCFIELDS();
}

void set_ibcp(int a, int b, int c, int d, int e, int f) {
  rl::ibcp(1) = a;
  rl::ibcp(2) = b;
  rl::ibcp(3) = c;
  rl::ibcp(4) = d;
  rl::ibcp(5) = e;
  rl::ibcp(6) = f;
}

}  // namespace

TEST(Multigrid, LevelCountWithAnyCellCounts) {
  struct Case {
    int I, J, K, lmin;
  };
  // 9 x 5 nodes and kmaxItm 3 give 8 x 4 x 8 cells: the count stops once y
  // has halved to one cell.  128 x 64 x 32 stops at 4 x 2 x 1.  One cell in
  // x, or one in y or z, gives no coarsening.  Counts that are not powers of
  // two truncate: 30 -> 15 -> 7 -> 3; 6 -> 3 -> 1 stops on x.  4 x 16 x 16
  // goes on with 2 cells in x and stops at 1.
  const Case cases[] = {{8, 4, 8, -2},  {128, 64, 32, -5}, {1, 8, 8, 0},  {5, 1, 8, 0},
                        {5, 8, 1, 0},   {30, 8, 8, -3},    {6, 8, 8, -2}, {10, 6, 8, -2},
                        {3, 3, 3, -1},  {4, 16, 16, -2}};
  for (const Case& c : cases) {
    rl::imax = c.I;
    rl::jmax = c.J;
    rl::kmax = c.K;
    rl::LEVELCOUNT();
    EXPECT_EQ(rl::lmin, c.lmin) << c.I << "x" << c.J << "x" << c.K;
  }

  // The hierarchy of 30 x 8 x 8: truncated counts on every level, and the
  // arrays of each level span 0..n+1.
  make_box(30, 8, 8, -3);
  const int nx[4] = {3, 7, 15, 30};
  const int ny[4] = {1, 2, 4, 8};
  for (int l = -3; l <= 0; ++l) {
    EXPECT_EQ(rl::pmg(l).nx, nx[l + 3]);
    EXPECT_EQ(rl::pmg(l).ny, ny[l + 3]);
    EXPECT_EQ(rl::pmg(l).nz, ny[l + 3]);
    EXPECT_EQ(rl::pmg(l).phi.hi(0), nx[l + 3] + 1);
    EXPECT_EQ(rl::pmg(l).res.lo(2), 0);
  }
  // 6 cells at level -2 are 1 cell, not 1.5 rounded up.
  make_box(6, 8, 8, -2);
  EXPECT_EQ(rl::pmg(-2).nx, 1);
}

namespace {

// u, v, w set to dt/dens times the face gradient of a cell field q whose
// ghosts follow the ghost rule: then the source of the solver is exactly the
// discrete Laplacian of q, and q is the solution.
void velocity_from_potential(const rl::Array3<double>& q) {
  const double c = rl::dt / rl::dens;
  for (int k = 1; k <= rl::kmax; ++k)
    for (int j = 1; j <= rl::jmax; ++j)
      for (int i = 0; i <= rl::imax; ++i) rl::u(i, j, k) = c * (q(i + 1, j, k) - q(i, j, k)) / rl::dx;
  for (int k = 1; k <= rl::kmax; ++k)
    for (int j = 0; j <= rl::jmax; ++j)
      for (int i = 1; i <= rl::imax; ++i) rl::v(i, j, k) = c * (q(i, j + 1, k) - q(i, j, k)) / rl::dy;
  for (int k = 0; k <= rl::kmax; ++k)
    for (int j = 1; j <= rl::jmax; ++j)
      for (int i = 1; i <= rl::imax; ++i) rl::w(i, j, k) = c * (q(i, j, k + 1) - q(i, j, k)) / rl::dz;
}

// Ghosts of a cell field by the rule ghost = t adjacent + (1-|t|) far end,
// written out per face in the test's own words.
void ghosts_by_rule(rl::Array3<double>& q, int nx, int ny, int nz) {
  for (int k = 1; k <= nz; ++k)
    for (int j = 1; j <= ny; ++j) {
      const int t1 = rl::ibcp(1), t2 = rl::ibcp(2);
      q(0, j, k) = t1 == 0 ? q(nx, j, k) : t1 * q(1, j, k);
      q(nx + 1, j, k) = t2 == 0 ? q(1, j, k) : t2 * q(nx, j, k);
    }
  for (int k = 1; k <= nz; ++k)
    for (int i = 1; i <= nx; ++i) {
      const int t3 = rl::ibcp(3), t4 = rl::ibcp(4);
      q(i, 0, k) = t3 == 0 ? q(i, ny, k) : t3 * q(i, 1, k);
      q(i, ny + 1, k) = t4 == 0 ? q(i, 1, k) : t4 * q(i, ny, k);
    }
  for (int j = 1; j <= ny; ++j)
    for (int i = 1; i <= nx; ++i) {
      const int t5 = rl::ibcp(5), t6 = rl::ibcp(6);
      q(i, j, 0) = t5 == 0 ? q(i, j, nz) : t5 * q(i, j, 1);
      q(i, j, nz + 1) = t6 == 0 ? q(i, j, 1) : t6 * q(i, j, nz);
    }
}

}  // namespace

TEST(Multigrid, PoissonStopRule) {
  make_box(8, 4, 4, 0);
  rl::LEVELCOUNT();
  rl::ALLOCFIELDS();
  set_ibcp(1, 1, 0, 0, -1, 1);
  rl::dt = 0.1;
  rl::dens = 1000.0;
  rl::igamma = 1;
  rl::ipres = 2;
  rl::iposts = 2;
  rl::Array3<double> q;
  q.allocate("q", 0, 9, 0, 5, 0, 5);
  std::mt19937 gen(3);
  std::uniform_real_distribution<double> U(-1.0, 1.0);
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 8; ++i) q(i, j, k) = U(gen);
  ghosts_by_rule(q, 8, 4, 4);
  velocity_from_potential(q);

  // At least two cycles, even when the first one meets a huge tolerance.
  rl::eps = 1e30;
  rl::kpoismax = 50;
  rl::pmg(0).phi.fill(0.0);
  EXPECT_EQ(rl::POISSONP(), 2);
  // kpoismax = 0 allows exactly one cycle, kpoismax = 1 exactly two.
  rl::kpoismax = 0;
  EXPECT_EQ(rl::POISSONP(), 1);
  rl::kpoismax = 1;
  rl::eps = 0.0;
  EXPECT_EQ(rl::POISSONP(), 2);
  // A tolerance of zero runs into the limit: kpoismax + 1 cycles.
  rl::kpoismax = 3;
  rl::pmg(0).phi.fill(0.0);
  EXPECT_EQ(rl::POISSONP(), 4);

  // Zero divergence: divnorm = 0.  With phi = 0 the residual is 0 too, the
  // ratio is not a number and counts as converged at the second cycle.
  rl::u.fill(0.0);
  rl::v.fill(0.0);
  rl::w.fill(0.0);
  rl::pmg(0).phi.fill(0.0);
  rl::eps = 1e-12;
  rl::kpoismax = 20;
  EXPECT_EQ(rl::POISSONP(), 2);
  // With a non-zero starting phi the ratio is infinite and the limit ends
  // the loop.
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 8; ++i) rl::pmg(0).phi(i, j, k) = U(gen);
  rl::kpoismax = 4;
  EXPECT_EQ(rl::POISSONP(), 5);
}

TEST(Multigrid, SolvesAPoissonProblemWithKnownSolution) {
  // Even and uneven counts: 16 x 8 x 8 coarsens to 2 x 1 x 1; 10 x 6 x 8 has a
  // level -1 of 5 x 3 x 4 whose fifth x cell has no coarse parent.
  struct Case {
    int I, J, K, gamma;
    int t[6];
  };
  const Case cases[] = {{16, 8, 8, 1, {1, 1, 0, 0, -1, 1}},
                        {16, 8, 8, 2, {-1, -1, 1, 1, -1, -1}},
                        {10, 6, 8, 1, {0, 0, 1, -1, -1, 1}}};
  for (const Case& cs : cases) {
    make_box(cs.I, cs.J, cs.K, 0, 0.5, 0.25, 0.125);
    rl::LEVELCOUNT();
    rl::ALLOCFIELDS();
    set_ibcp(cs.t[0], cs.t[1], cs.t[2], cs.t[3], cs.t[4], cs.t[5]);
    rl::dt = 0.05;
    rl::dens = 998.0;
    rl::igamma = cs.gamma;
    rl::ipres = 2;
    rl::iposts = 2;
    rl::eps = 1e-11;
    rl::kpoismax = 200;
    rl::Array3<double> q;
    q.allocate("q", 0, cs.I + 1, 0, cs.J + 1, 0, cs.K + 1);
    double qmax = 0.0;
    for (int k = 1; k <= cs.K; ++k)
      for (int j = 1; j <= cs.J; ++j)
        for (int i = 1; i <= cs.I; ++i) {
          q(i, j, k) = std::sin(0.7 * i) * std::cos(0.4 * j + 0.3 * k) + 0.01 * i * k;
          qmax = std::max(qmax, std::fabs(q(i, j, k)));
        }
    ghosts_by_rule(q, cs.I, cs.J, cs.K);
    velocity_from_potential(q);
    const int n = rl::POISSONP();
    EXPECT_GE(n, 2);
    EXPECT_LT(n, 100) << cs.I << "x" << cs.J << "x" << cs.K << " gamma " << cs.gamma;
    double err = 0.0;
    for (int k = 1; k <= cs.K; ++k)
      for (int j = 1; j <= cs.J; ++j)
        for (int i = 1; i <= cs.I; ++i) err = std::max(err, std::fabs(rl::pmg(0).phi(i, j, k) - q(i, j, k)));
    EXPECT_LT(err, 1e-7 * qmax) << cs.I << "x" << cs.J << "x" << cs.K << " gamma " << cs.gamma;
    double rn = 0.0, dn = 0.0;
    rl::RESNORMP(0, rn);
    rl::DIVNORMP(0, dn);
    EXPECT_LE(rn / dn, rl::eps);
  }
}

// The tuned line smoother gives, bit for bit, what the plain column solve
// gives column by column (j ascending, i ascending within j, in place), on
// a level with odd counts, every pressure type in z and a random field.
TEST(Multigrid, TunedLineSmootherIsThePlainColumnSolve) {
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  for (int types : {0, 1}) {
    make_box(13, 11, 7, 0, 0.3, 0.2, 0.1);
    set_ibcp(0, 0, 1, 1, types ? -1 : 0, types ? 1 : 0);
    std::mt19937_64 gen(7);
    std::uniform_real_distribution<double> r(-1.0, 1.0);
    rl::MGLEVEL& g = rl::pmg(0);
    for (std::int64_t n = 0; n < g.phi.size(); ++n) g.phi.data()[n] = r(gen);
    for (std::int64_t n = 0; n < g.src.size(); ++n) g.src.data()[n] = r(gen);
    const std::vector<double> start(g.phi.data(), g.phi.data() + g.phi.size());
    rl::SMOOTHINGP(0, 2);
    const std::vector<double> tuned(g.phi.data(), g.phi.data() + g.phi.size());
    std::copy(start.begin(), start.end(), g.phi.data());
    for (int sweep = 0; sweep < 2; ++sweep) {
      rl::BOUNDARYP(0);
      for (int j = 1; j <= g.ny; ++j)
        for (int i = 1; i <= g.nx; ++i) rl::LINESOLVE(0, i, j);
    }
    EXPECT_EQ(std::vector<double>(g.phi.data(), g.phi.data() + g.phi.size()), tuned) << types;
  }
  omp_set_num_threads(threads);
}
