// Tests of the multigrid pressure solver: level counts, ghost rules, level
// operators, the line smoother and the cycle's stop rule.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>

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

// Fills the whole array (ghosts too) with a sentinel, then the interior with
// a value that tells the cell apart.
void fill_tagged(rl::Array3<double>& a, int nx, int ny, int nz, double sentinel) {
  a.fill(sentinel);
  for (int k = 1; k <= nz; ++k)
    for (int j = 1; j <= ny; ++j)
      for (int i = 1; i <= nx; ++i) a(i, j, k) = 100.0 * i + 10.0 * j + k + 0.5;
}

}  // namespace

TEST(Multigrid, LevelCountWithAnyCellCounts) {
  struct Case {
    int I, J, K, lmin;
  };
  // 9 x 5 nodes and kmaxItm 3 give 8 x 4 x 8 cells: the count stops once y
  // has halved to one cell.  128 x 64 x 32 stops at 4 x 2 x 1.  One cell in
  // x, or one in y or z, gives no coarsening.  Counts that are not powers of
  // two truncate: 30 -> 15 -> 7 -> 3; 6 -> 3 -> 1 stops on x.
  const Case cases[] = {{8, 4, 8, -2},  {128, 64, 32, -5}, {1, 8, 8, 0},  {5, 1, 8, 0},
                        {5, 8, 1, 0},   {30, 8, 8, -3},    {6, 8, 8, -2}, {10, 6, 8, -2},
                        {3, 3, 3, -1}};
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

TEST(Multigrid, GhostRuleClosedFormsPerType) {
  make_box(4, 3, 2, 0);
  rl::MGLEVEL& g = rl::pmg(0);
  const int nx = 4, ny = 3, nz = 2;
  const double S = 777.0;  // edges and corners must keep it
  for (int t = -1; t <= 1; ++t) {
    set_ibcp(t, t, t, t, t, t);
    fill_tagged(g.phi, nx, ny, nz, S);
    rl::BOUNDARYP(0);
    for (int k = 1; k <= nz; ++k)
      for (int j = 1; j <= ny; ++j) {
        const double lo = t == 1 ? g.phi(1, j, k) : t == 0 ? g.phi(nx, j, k) : -g.phi(1, j, k);
        const double hi = t == 1 ? g.phi(nx, j, k) : t == 0 ? g.phi(1, j, k) : -g.phi(nx, j, k);
        EXPECT_EQ(g.phi(0, j, k), lo) << "t=" << t;
        EXPECT_EQ(g.phi(nx + 1, j, k), hi) << "t=" << t;
      }
    for (int k = 1; k <= nz; ++k)
      for (int i = 1; i <= nx; ++i) {
        const double lo = t == 1 ? g.phi(i, 1, k) : t == 0 ? g.phi(i, ny, k) : -g.phi(i, 1, k);
        const double hi = t == 1 ? g.phi(i, ny, k) : t == 0 ? g.phi(i, 1, k) : -g.phi(i, ny, k);
        EXPECT_EQ(g.phi(i, 0, k), lo) << "t=" << t;
        EXPECT_EQ(g.phi(i, ny + 1, k), hi) << "t=" << t;
      }
    for (int j = 1; j <= ny; ++j)
      for (int i = 1; i <= nx; ++i) {
        const double lo = t == 1 ? g.phi(i, j, 1) : t == 0 ? g.phi(i, j, nz) : -g.phi(i, j, 1);
        const double hi = t == 1 ? g.phi(i, j, nz) : t == 0 ? g.phi(i, j, 1) : -g.phi(i, j, nz);
        EXPECT_EQ(g.phi(i, j, 0), lo) << "t=" << t;
        EXPECT_EQ(g.phi(i, j, nz + 1), hi) << "t=" << t;
      }
    // Edges and corners of the ghost layer are not touched.
    EXPECT_EQ(g.phi(0, 0, 1), S);
    EXPECT_EQ(g.phi(nx + 1, 1, nz + 1), S);
    EXPECT_EQ(g.phi(2, ny + 1, 0), S);
    EXPECT_EQ(g.phi(0, 0, 0), S);
    EXPECT_EQ(g.phi(nx + 1, ny + 1, nz + 1), S);
  }

  // Each face takes its own type: 1 | 0 on x, -1 | 2 on y, 0 | -1 on z.  A
  // type outside -1..1 is used as a number: 2 * adjacent - far end.
  set_ibcp(1, 0, -1, 2, 0, -1);
  fill_tagged(g.phi, nx, ny, nz, S);
  rl::BOUNDARYP(0);
  EXPECT_EQ(g.phi(0, 2, 1), 121.5);                  // phi(1,2,1), the adjacent cell
  EXPECT_EQ(g.phi(nx + 1, 2, 1), 121.5);             // phi(1,2,1), the far end
  EXPECT_EQ(g.phi(3, 0, 2), -312.5);                 // -phi(3,1,2)
  EXPECT_EQ(g.phi(3, ny + 1, 2), 2 * 332.5 - 312.5);  // 2 phi(3,3,2) - phi(3,1,2)
  EXPECT_EQ(g.phi(2, 3, 0), 232.5);                  // phi(2,3,nz)
  EXPECT_EQ(g.phi(2, 3, nz + 1), -232.5);            // -phi(2,3,nz)

  // The weight 1-|t| multiplies even for t = 1: a non-finite far end spoils
  // the ghost; the rule has no branches.
  set_ibcp(1, 1, 1, 1, 1, 1);
  fill_tagged(g.phi, nx, ny, nz, S);
  g.phi(nx, 2, 2) = std::numeric_limits<double>::infinity();
  rl::BOUNDARYP(0);
  EXPECT_TRUE(std::isnan(g.phi(0, 2, 2)));
}

TEST(Multigrid, ResidualGhostsExtrapolateALinearField) {
  // With two cells per direction and type 2 on every face, the face rule is
  // linear extrapolation; the edges and corners extrapolate bilinearly.  A
  // linear field must thus come out exact on the whole ghost layer.
  make_box(4, 4, 4, -1);
  set_ibcp(2, 2, 2, 2, 2, 2);
  rl::MGLEVEL& g = rl::pmg(-1);
  ASSERT_EQ(g.nx, 2);
  auto lin = [](int i, int j, int k) { return 3.0 + 2.0 * i + 5.0 * j + 11.0 * k; };
  g.res.fill(-999.0);
  for (int k = 1; k <= 2; ++k)
    for (int j = 1; j <= 2; ++j)
      for (int i = 1; i <= 2; ++i) g.res(i, j, k) = lin(i, j, k);
  rl::BOUNDARYPRES(-1);
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j)
      for (int i = 0; i <= 3; ++i) EXPECT_EQ(g.res(i, j, k), lin(i, j, k)) << i << "," << j << "," << k;

  // phi of the level is not touched by the residual's ghost routine.
  EXPECT_EQ(g.phi(0, 1, 1), 0.0);
}

TEST(Multigrid, OperatorStencilAndLevelSpacing) {
  make_box(6, 4, 4, -1, 0.5, 0.25, 1.0);
  set_ibcp(1, 1, 1, 1, 1, 1);
  // A constant with all types 1 has zero Laplacian in every cell.
  for (int l = -1; l <= 0; ++l) {
    rl::MGLEVEL& g = rl::pmg(l);
    g.phi.fill(0.0);
    for (int k = 1; k <= g.nz; ++k)
      for (int j = 1; j <= g.ny; ++j)
        for (int i = 1; i <= g.nx; ++i) g.phi(i, j, k) = 3.7;
    g.lap.fill(5.0);
    rl::OPERATORP(l);
    for (int k = 1; k <= g.nz; ++k)
      for (int j = 1; j <= g.ny; ++j)
        for (int i = 1; i <= g.nx; ++i) EXPECT_EQ(g.lap(i, j, k), 0.0);
  }

  // phi = i^2 + k on level -1 (cell sizes 1, 0.5, 2 there), all types 1.
  // x: the second difference is 2 inside; the low cell sees the mirrored
  // ghost: 4 - 1 - 1 + 1 = 3; the high cell (3): 9 - 9 - 9 + 4 = -5.
  // z: cell 1 gets (2 - 1 - 1 + 1) / 4 = 0.25, cell 2 (2 - 2 - 2 + 1) / 4.
  rl::MGLEVEL& g = rl::pmg(-1);
  ASSERT_EQ(g.nx, 3);
  for (int k = 1; k <= 2; ++k)
    for (int j = 1; j <= 2; ++j)
      for (int i = 1; i <= 3; ++i) g.phi(i, j, k) = i * i + k;
  rl::OPERATORP(-1);
  for (int j = 1; j <= 2; ++j) {
    EXPECT_DOUBLE_EQ(g.lap(1, j, 1), 3.0 + 0.25);
    EXPECT_DOUBLE_EQ(g.lap(2, j, 1), 2.0 + 0.25);
    EXPECT_DOUBLE_EQ(g.lap(3, j, 2), -5.0 - 0.25);
    EXPECT_DOUBLE_EQ(g.lap(2, j, 2), 2.0 - 0.25);
  }
  // The ghosts were refreshed by the operator.
  EXPECT_EQ(g.phi(0, 1, 1), g.phi(1, 1, 1));
  EXPECT_EQ(g.phi(1, 1, 0), g.phi(1, 1, 1));

  // The residual is src - lap, cell by cell.
  g.src.fill(1.0);
  rl::RESIDUALP(-1);
  EXPECT_DOUBLE_EQ(g.res(1, 2, 1), 1.0 - 3.25);
  EXPECT_DOUBLE_EQ(g.res(3, 1, 2), 1.0 + 5.25);
  EXPECT_EQ(g.res(0, 1, 1), 0.0);  // ghosts are not part of it
}

TEST(Multigrid, TridiagonalSolve) {
  // One row: x = d / b.
  {
    double a[1] = {9.0}, b[1] = {4.0}, c[1] = {9.0}, d[1] = {2.0}, x[1] = {0.0};
    rl::TRIDIAGP(1, a, b, c, d, x);
    EXPECT_EQ(x[0], 0.5);
  }
  // Four rows with the solution (1, -2, 3, 0.5); a(1) and c(n) unused.
  {
    const double xs[4] = {1.0, -2.0, 3.0, 0.5};
    double a[4] = {123.0, 1.0, 2.0, -1.0}, b[4] = {4.0, 5.0, 6.0, 3.0}, c[4] = {1.0, -1.0, 0.5, 456.0};
    double d[4], x[4] = {};
    for (int k = 0; k < 4; ++k) {
      d[k] = b[k] * xs[k];
      if (k > 0) d[k] += a[k] * xs[k - 1];
      if (k < 3) d[k] += c[k] * xs[k + 1];
    }
    rl::TRIDIAGP(4, a, b, c, d, x);
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(x[k], xs[k], 1e-14);
  }
}

TEST(Multigrid, LineSmootherSolvesColumnsInOrder) {
  // nz = 1: the column is the single equation
  //   (diag + (ibcp(5) + ibcp(6)) * cz) x = d.
  {
    make_box(1, 1, 1, 0, 0.5, 1.0, 0.25);
    rl::MGLEVEL& g = rl::pmg(0);
    const double cx = 4.0, cy = 1.0, cz = 16.0, diag = -42.0;
    const int types[4][2] = {{-1, -1}, {-1, 1}, {0, 0}, {1, 0}};
    for (const auto& tt : types) {
      set_ibcp(1, 1, 1, 1, tt[0], tt[1]);
      g.phi(1, 1, 1) = 2.0;
      g.src(1, 1, 1) = 3.0;
      rl::SMOOTHINGP(0, 1);
      // x and y ghosts are copies of the old value 2.
      const double d = 3.0 - (2.0 + 2.0) * cx - (2.0 + 2.0) * cy;
      EXPECT_DOUBLE_EQ(g.phi(1, 1, 1), d / (diag + (tt[0] + tt[1]) * cz)) << tt[0] << " " << tt[1];
    }
  }

  // Two columns of four cells in one row: after one sweep, column 1
  // satisfies its equations with the old column 2, and column 2 those with
  // the NEW column 1.  The ends fold the type in alone:
  // x(0) = ibcp(5) x(1), x(nz+1) = ibcp(6) x(nz); type 0 on top gives a zero
  // end here although the ghost rule would wrap.
  {
    make_box(2, 1, 4, 0, 1.0, 0.5, 0.5);
    rl::MGLEVEL& g = rl::pmg(0);
    const double cx = 1.0, cy = 4.0, cz = 4.0, diag = -18.0;
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> U(-1.0, 1.0);
    for (int bottom = -1; bottom <= 1; ++bottom) {
      set_ibcp(-1, 1, 1, 1, bottom, 0);
      double old1[5], old2[5];
      for (int k = 1; k <= 4; ++k) {
        old1[k] = g.phi(1, 1, k) = U(gen);
        old2[k] = g.phi(2, 1, k) = U(gen);
        g.src(1, 1, k) = U(gen);
        g.src(2, 1, k) = U(gen);
      }
      rl::SMOOTHINGP(0, 1);
      auto lhs = [&](int i, int k) {
        const double xm = k == 1 ? bottom * g.phi(i, 1, 1) : g.phi(i, 1, k - 1);
        const double xp = k == 4 ? 0.0 * g.phi(i, 1, 4) : g.phi(i, 1, k + 1);
        return cz * xm + diag * g.phi(i, 1, k) + cz * xp;
      };
      for (int k = 1; k <= 4; ++k) {
        // The x and y ghosts were set from the values before the sweep.
        EXPECT_EQ(g.phi(0, 1, k), -old1[k]);
        EXPECT_EQ(g.phi(3, 1, k), old2[k]);
        EXPECT_EQ(g.phi(1, 0, k), old1[k]);
        EXPECT_EQ(g.phi(2, 2, k), old2[k]);
        const double rhs1 = g.src(1, 1, k) - (-old1[k] + old2[k]) * cx - (old1[k] + old1[k]) * cy;
        const double rhs2 = g.src(2, 1, k) - (g.phi(1, 1, k) + old2[k]) * cx - (old2[k] + old2[k]) * cy;
        EXPECT_NEAR(lhs(1, k), rhs1, 1e-12) << "column 1, k=" << k << ", bottom " << bottom;
        EXPECT_NEAR(lhs(2, k), rhs2, 1e-12) << "column 2, k=" << k << ", bottom " << bottom;
      }
    }
  }

  // A larger level, one thread: every column satisfies its equations with
  // the new west (i-1) and south (j-1) columns and the old east and north
  // ones, i.e. the sweep is a Gauss-Seidel in i within j ascending.
  {
    const int threads = omp_get_max_threads();
    omp_set_num_threads(1);
    const int nx = 13, ny = 11, nz = 3;
    make_box(nx, ny, nz, 0, 0.5, 0.25, 0.5);
    set_ibcp(1, -1, 0, 1, -1, 1);
    rl::MGLEVEL& g = rl::pmg(0);
    const double cx = 4.0, cy = 16.0, cz = 4.0, diag = -48.0;
    std::mt19937 gen(13);
    std::uniform_real_distribution<double> U(-1.0, 1.0);
    rl::Array3<double> old;
    old.allocate("old", 0, nx + 1, 0, ny + 1, 0, nz + 1);
    for (int k = 1; k <= nz; ++k)
      for (int j = 1; j <= ny; ++j)
        for (int i = 1; i <= nx; ++i) {
          old(i, j, k) = g.phi(i, j, k) = U(gen);
          g.src(i, j, k) = U(gen);
        }
    rl::SMOOTHINGP(0, 1);
    double worst = 0.0;
    for (int j = 1; j <= ny; ++j)
      for (int i = 1; i <= nx; ++i)
        for (int k = 1; k <= nz; ++k) {
          const double W = i > 1 ? g.phi(i - 1, j, k) : g.phi(0, j, k);
          const double E = i < nx ? old(i + 1, j, k) : g.phi(nx + 1, j, k);
          const double S = j > 1 ? g.phi(i, j - 1, k) : g.phi(i, 0, k);
          const double N = j < ny ? old(i, j + 1, k) : g.phi(i, ny + 1, k);
          const double xm = k == 1 ? -g.phi(i, j, 1) : g.phi(i, j, k - 1);
          const double xp = k == nz ? g.phi(i, j, nz) : g.phi(i, j, k + 1);
          const double lhs = cz * xm + diag * g.phi(i, j, k) + cz * xp;
          const double rhs = g.src(i, j, k) - (W + E) * cx - (S + N) * cy;
          worst = std::max(worst, std::fabs(lhs - rhs));
        }
    EXPECT_LT(worst, 1e-12);
    // The face ghosts came from the values before the sweep.
    EXPECT_EQ(g.phi(0, 5, 2), old(1, 5, 2));
    EXPECT_EQ(g.phi(7, 0, 3), old(7, ny, 3));
    omp_set_num_threads(threads);
  }

  // No sweep at all for n < 1: not even the ghost layer is refreshed.
  {
    make_box(2, 2, 2, 0);
    rl::MGLEVEL& g = rl::pmg(0);
    set_ibcp(1, 1, 1, 1, 1, 1);
    fill_tagged(g.phi, 2, 2, 2, 55.0);
    rl::SMOOTHINGP(0, 0);
    rl::SMOOTHINGP(0, -3);
    EXPECT_EQ(g.phi(0, 1, 1), 55.0);
    EXPECT_EQ(g.phi(1, 1, 1), 111.5);
  }
}

TEST(Multigrid, RestrictionAndProlongation) {
  // 5 x 4 x 4 cells: level -1 is 2 x 2 x 2; fine cell i = 5 belongs to no
  // coarse cell.
  make_box(5, 4, 4, -1);
  set_ibcp(1, 1, 1, 1, -1, 1);
  rl::MGLEVEL& f = rl::pmg(0);
  rl::MGLEVEL& c = rl::pmg(-1);
  ASSERT_EQ(c.nx, 2);

  // Restriction: the plain mean of the eight fine cells; coarse phi cleared
  // in the interior only.
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 5; ++i) f.res(i, j, k) = (i == 5) ? 1e6 : i + 2.0 * j + 4.0 * k;
  c.phi.fill(9.0);
  rl::RESTRICTIONP(0);
  // Coarse (i,j,k) covers fine i in 2i-1..2i: mean = (4i-1)/2 + 2(4j-1)/2 + 4(4k-1)/2.
  for (int k = 1; k <= 2; ++k)
    for (int j = 1; j <= 2; ++j)
      for (int i = 1; i <= 2; ++i) {
        EXPECT_DOUBLE_EQ(c.src(i, j, k), (4 * i - 1) / 2.0 + (4 * j - 1) + 2.0 * (4 * k - 1));
        EXPECT_EQ(c.phi(i, j, k), 0.0);
      }
  EXPECT_EQ(c.phi(0, 1, 1), 9.0);
  EXPECT_EQ(c.phi(3, 2, 2), 9.0);

  // A constant coarse phi with a constant ghost layer adds the same constant
  // to the fine cells; the cell beyond 2 * nx keeps its value.
  f.phi.fill(0.0);
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 5; ++i) f.phi(i, j, k) = 0.5 * i - j + 0.25 * k;
  c.phi.fill(1.5);
  rl::PROLONGATIONP(0);
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j) {
      for (int i = 1; i <= 4; ++i) {
        EXPECT_EQ(f.phi(i, j, k), 0.5 * i - j + 0.25 * k + 1.5);
        EXPECT_EQ(f.res(i, j, k), 1.5);
      }
      EXPECT_EQ(f.phi(5, j, k), 0.5 * 5 - j + 0.25 * k);
    }

  // The quarter weights: P = i on the coarse level.  Fine cell 2i-1 takes
  // (i + (i-1) + i + i)/4 = i - 1/4, fine cell 2i takes i + 1/4.  The x ghosts
  // of phi are read as they stand (they are not refreshed first): 10 and 20
  // here, far from what the ghost rule would give.
  f.phi.fill(0.0);
  c.phi.fill(0.0);
  for (int k = 0; k <= 3; ++k)
    for (int j = 0; j <= 3; ++j) {
      for (int i = 1; i <= 2; ++i) c.phi(i, j, k) = i;
      c.phi(0, j, k) = 10.0;
      c.phi(3, j, k) = 20.0;
    }
  rl::PROLONGATIONP(0);
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j) {
      EXPECT_EQ(f.phi(1, j, k), (1 + 10 + 1 + 1) / 4.0);
      EXPECT_EQ(f.phi(2, j, k), 1.25);
      EXPECT_EQ(f.phi(3, j, k), 1.75);
      EXPECT_EQ(f.phi(4, j, k), (2 + 20 + 2 + 2) / 4.0);
      EXPECT_EQ(f.phi(5, j, k), 0.0);
    }
  // The coarse phi ghosts stay; res of the coarse level got its ghosts.
  EXPECT_EQ(c.phi(0, 1, 1), 10.0);
}

TEST(Multigrid, CoarseSolverConverges) {
  // One thread: the in-place sweep is then a true Gauss-Seidel, and a tiny
  // level does not pay a barrier per group for every sweep.
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  make_box(3, 2, 2, 0, 1.0, 0.5, 1.0);
  set_ibcp(-1, -1, 1, 1, -1, 1);
  rl::MGLEVEL& g = rl::pmg(0);
  // A zero right-hand side with zero phi stays zero.
  g.phi.fill(0.0);
  g.src.fill(0.0);
  rl::SOLVERP(0, 100);
  for (std::int64_t n = 0; n < g.phi.size(); ++n) EXPECT_EQ(g.phi.data()[n], 0.0);
  // ncoarse <= 0 does nothing.
  g.src(2, 1, 1) = 1.0;
  rl::SOLVERP(0, 0);
  EXPECT_EQ(g.phi(2, 1, 1), 0.0);
  // Converged: the discrete equation holds to the sweep tolerance.
  g.src(1, 2, 2) = -3.0;
  g.src(3, 1, 2) = 0.5;
  rl::SOLVERP(0, 100);
  rl::OPERATORP(0);
  for (int k = 1; k <= 2; ++k)
    for (int j = 1; j <= 2; ++j)
      for (int i = 1; i <= 3; ++i) EXPECT_NEAR(g.lap(i, j, k), g.src(i, j, k), 1e-6);
  omp_set_num_threads(threads);
}

TEST(Multigrid, CycleWithoutCoarseVisits) {
  // igamma = 0 and no smoothing: the cycle still restricts (clearing the
  // coarse interior) and prolongs, so the fine level receives only what the
  // coarse ghosts held from before.  The coarse solver never runs.
  make_box(4, 4, 4, -1);
  set_ibcp(1, 1, 1, 1, -1, 1);
  rl::MGLEVEL& f = rl::pmg(0);
  rl::MGLEVEL& c = rl::pmg(-1);
  f.phi.fill(0.0);
  f.src.fill(1.0);
  c.phi.fill(0.0);
  for (int k = 1; k <= 2; ++k)
    for (int j = 1; j <= 2; ++j) {
      c.phi(1, j, k) = 7.0;  // interior: cleared by the restriction
      c.phi(0, j, k) = 4.0;  // low x ghost: kept and read by the prolongation
    }
  rl::MULTIGRIDP(0, 0, 0, 0, 100);
  for (int k = 1; k <= 2; ++k)
    for (int j = 1; j <= 2; ++j) {
      EXPECT_EQ(c.phi(1, j, k), 0.0);
      EXPECT_EQ(c.phi(0, j, k), 4.0);
    }
  for (int k = 1; k <= 4; ++k)
    for (int j = 1; j <= 4; ++j)
      for (int i = 1; i <= 4; ++i) EXPECT_EQ(f.phi(i, j, k), i == 1 ? 1.0 : 0.0) << i << "," << j << "," << k;
  // The coarse source is the restricted residual: src - lap of phi = 0.
  EXPECT_EQ(c.src(2, 1, 2), 1.0);
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

// Convergence figures on a 64 x 32 x 32 box with a random divergent
// velocity, for V and W cycles.  Not part of the regular run:
//   riverles_tests --gtest_also_run_disabled_tests --gtest_filter='*MeasureCycles*'
TEST(Multigrid, DISABLED_MeasureCycles) {
  make_box(64, 32, 32, 0, 0.1, 0.1, 0.05);
  rl::LEVELCOUNT();
  rl::ALLOCFIELDS();
  set_ibcp(0, 0, 1, 1, -1, 1);
  rl::dt = 0.01;
  rl::dens = 1000.0;
  std::mt19937 gen(2024);
  std::uniform_real_distribution<double> U(-1.0, 1.0);
  for (std::int64_t n = 0; n < rl::u.size(); ++n) rl::u.data()[n] = U(gen);
  for (std::int64_t n = 0; n < rl::v.size(); ++n) rl::v.data()[n] = U(gen);
  for (std::int64_t n = 0; n < rl::w.size(); ++n) rl::w.data()[n] = U(gen);
  std::printf("box 64x32x32, lmin %d, threads %d\n", rl::lmin, omp_get_max_threads());
  for (int sweeps = 1; sweeps <= 2; ++sweeps) {
    for (int gamma = 1; gamma <= 2; ++gamma) {
      rl::igamma = gamma;
      rl::ipres = sweeps;
      rl::iposts = sweeps;
      // Residual history of one solve from zero.
      rl::pmg(0).phi.fill(0.0);
      rl::SOURCEP();
      double dn = 0.0, rn = 0.0, prev = 0.0;
      rl::DIVNORMP(0, dn);
      prev = dn;
      std::printf("%s cycle, %d+%d sweeps: ratio per cycle:", gamma == 1 ? "V" : "W", sweeps, sweeps);
      const double t0 = omp_get_wtime();
      const int ncyc = 12;
      double at4 = 0.0;
      for (int c = 1; c <= ncyc; ++c) {
        rl::MULTIGRIDP(0, gamma, sweeps, sweeps, 100);
        rl::OPERATORP(0);
        rl::RESIDUALP(0);
        rl::RESNORMP(0, rn);
        std::printf(" %.3f", rn / prev);
        prev = rn;
        if (c == 4) at4 = rn;
      }
      const double t1 = omp_get_wtime();
      std::printf("\n   mean factor of cycles 5-%d: %.3f, %.2f ms per cycle\n", ncyc,
                  std::pow(rn / at4, 1.0 / (ncyc - 4)), (t1 - t0) / ncyc * 1e3);
      for (double e : {1e-3, 1e-6, 1e-9}) {
        rl::pmg(0).phi.fill(0.0);
        rl::eps = e;
        rl::kpoismax = 200;
        const int n = rl::POISSONP();
        std::printf("   eps %.0e: %d cycles per solve\n", e, n);
      }
    }
  }
  // Cost of the kernels on level 0.
  const int reps = 50;
  double t0 = omp_get_wtime();
  for (int r = 0; r < reps; ++r) rl::SMOOTHINGP(0, 1);
  double t1 = omp_get_wtime();
  for (int r = 0; r < reps; ++r) rl::OPERATORP(0);
  double t2 = omp_get_wtime();
  for (int r = 0; r < reps; ++r) rl::RESIDUALP(0);
  double t3 = omp_get_wtime();
  std::printf("level 0: SMOOTHINGP %.3f ms/sweep, OPERATORP %.3f ms, RESIDUALP %.3f ms\n", (t1 - t0) / reps * 1e3,
              (t2 - t1) / reps * 1e3, (t3 - t2) / reps * 1e3);
}
