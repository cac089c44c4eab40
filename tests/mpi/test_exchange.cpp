// The halo exchange between processes, run under the launcher with 1, 2 and
// 4 processes: after EXCHANGE every halo position of a block holds what its
// owner holds there (across a periodic face, the column at the other end of
// the box), the box's own ghost layers stay untouched, and the corners come
// from the diagonal neighbours.  Odd plan counts, every mix of periodic
// directions.
#include <gtest/gtest.h>
#include <mpi.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "common/distributed.hpp"

namespace {

using rl::Array3;

// A value that names its global position.
double tag(int i, int j, int k) { return i + 100.0 * j + 10000.0 * k; }

TEST(Exchange, HalosHoldTheNeighboursColumns) {
  const int n = rl::dist_size(), rank = rl::dist_rank();
  const int I = 13, J = 9, K = 5, w = 2;
  rl::PlanSplit s;
  std::string why;
  ASSERT_TRUE(rl::PLANSPLIT(n, I, J, s, why)) << why;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (int periodic = 0; periodic < 4; ++periodic) {
    const bool px = periodic & 1, py = periodic & 2;
    const rl::Block b = rl::block_of(s, rank, px, py);
    Array3<double> f;
    ASSERT_TRUE(f.allocate("f", b.ilo - w, b.ihi + w, b.jlo - w, b.jhi + w, 0, K + 1));
    for (int k = 0; k <= K + 1; ++k)
      for (int j = b.jlo - w; j <= b.jhi + w; ++j)
        for (int i = b.ilo - w; i <= b.ihi + w; ++i) {
          const bool own = i >= b.ilo && i <= b.ihi && j >= b.jlo && j <= b.jhi;
          f(i, j, k) = own ? tag(i, j, k) : nan;
        }
    rl::EXCHANGE(f, b, w);
    for (int k = 0; k <= K + 1; ++k)
      for (int j = b.jlo - w; j <= b.jhi + w; ++j)
        for (int i = b.ilo - w; i <= b.ihi + w; ++i) {
          // Where the value comes from: the position itself, or its image
          // across a periodic face; outside the box and not periodic: none.
          int gi = i, gj = j;
          if (px) gi = (i - 1 + I) % I + 1;
          if (py) gj = (j - 1 + J) % J + 1;
          const bool inside = gi >= 1 && gi <= I && gj >= 1 && gj <= J;
          const std::string where = "rank " + std::to_string(rank) + " of " + std::to_string(n) + ", periodic " +
                                    std::to_string(periodic) + ", (" + std::to_string(i) + "," +
                                    std::to_string(j) + "," + std::to_string(k) + ")";
          if (inside)
            ASSERT_EQ(f(i, j, k), tag(gi, gj, k)) << where;
          else
            ASSERT_TRUE(std::isnan(f(i, j, k))) << where;
        }
  }
}

// Planes gathered onto the first process hold every global position once,
// from its owner: the box's ghost layers (here i from -1, as for u) from the
// blocks at the faces, never a halo (filled with NaN here).
TEST(Gather, PlanesComeWholeToTheFirstProcess) {
  const int n = rl::dist_size(), rank = rl::dist_rank();
  const int I = 13, J = 9, K = 4, w = 2;
  rl::PlanSplit s;
  std::string why;
  ASSERT_TRUE(rl::PLANSPLIT(n, I, J, s, why)) << why;
  const rl::Block b = rl::block_of(s, rank, false, false);
  const int lo_i = b.a == 0 ? -1 : b.ilo - w, hi_i = b.a == s.px - 1 ? I + 1 : b.ihi + w;
  const int lo_j = b.b == 0 ? 0 : b.jlo - w, hi_j = b.b == s.py - 1 ? J + 1 : b.jhi + w;
  Array3<double> f;
  ASSERT_TRUE(f.allocate("f", lo_i, hi_i, lo_j, hi_j, 0, K + 1));
  for (int k = 0; k <= K + 1; ++k)
    for (int j = lo_j; j <= hi_j; ++j)
      for (int i = lo_i; i <= hi_i; ++i) {
        const bool own = (i >= b.ilo || b.a == 0) && (i <= b.ihi || b.a == s.px - 1) &&
                         (j >= b.jlo || b.b == 0) && (j <= b.jhi || b.b == s.py - 1);
        f(i, j, k) = own ? tag(i, j, k) : std::numeric_limits<double>::quiet_NaN();
      }
  for (int k = 0; k <= K + 1; ++k) {
    std::vector<double> plane;
    rl::GATHERPLANE(f, s, k, -1, I + 1, 0, J + 1, plane);
    if (rank != 0) continue;
    ASSERT_EQ(plane.size(), std::size_t(I + 3) * std::size_t(J + 2));
    for (int j = 0; j <= J + 1; ++j)
      for (int i = -1; i <= I + 1; ++i)
        ASSERT_EQ(plane[std::size_t(j) * std::size_t(I + 3) + std::size_t(i + 1)], tag(i, j, k))
            << "(" << i << "," << j << "," << k << ") of " << n;
  }
}

// Reductions give every process the same answer; the sum adds by rank
// (values chosen so that another order rounds differently).
TEST(Reduce, EveryProcessGetsTheSameAnswer) {
  const int n = rl::dist_size(), rank = rl::dist_rank();
  EXPECT_EQ(rl::dist_min(10.0 - rank), 10.0 - (n - 1));
  EXPECT_EQ(rl::dist_max(-1.0 * rank), 0.0);
  EXPECT_EQ(rl::dist_any(rank == n - 1), true);
  EXPECT_EQ(rl::dist_any(false), false);
  const double v[4] = {1.0, 1e-16, 1e-16, -1.0};
  double expect = 0.0;
  for (int r = 0; r < n; ++r) expect = expect + v[r % 4];
  EXPECT_EQ(rl::dist_sum(v[rank % 4]), expect);
}

// The split: blocks cover every column once, in shares that differ by at
// most one, at least the minimum wide; the cut is the shortest; a count that
// cannot be split is refused with the largest that can.
TEST(PlanSplit, SharesCutsAndRefusals) {
  rl::PlanSplit s;
  std::string why;
  ASSERT_TRUE(rl::PLANSPLIT(4, 64, 32, s, why));
  EXPECT_EQ(s.px, 4);  // 4 x 1 and 2 x 2 both cut 96 columns: more along x
  EXPECT_EQ(s.py, 1);
  ASSERT_TRUE(rl::PLANSPLIT(6, 64, 64, s, why));
  EXPECT_EQ(s.px * s.py, 6);
  EXPECT_EQ(s.px, 3);  // 3 x 2 cuts 2*64 + 64, 6 x 1 cuts 5*64
  ASSERT_TRUE(rl::PLANSPLIT(3, 13, 9, s, why));
  EXPECT_EQ(s.px, 3);
  EXPECT_EQ(s.ilo, (std::vector<int>{1, 6, 10}));
  EXPECT_EQ(s.ihi, (std::vector<int>{5, 9, 13}));
  EXPECT_EQ(s.jlo, (std::vector<int>{1}));
  EXPECT_EQ(s.jhi, (std::vector<int>{9}));
  ASSERT_TRUE(rl::PLANSPLIT(1, 3, 2, s, why));  // one process: any plan
  EXPECT_FALSE(rl::PLANSPLIT(7, 16, 16, s, why));  // 7 x 1: blocks of 2 columns
  EXPECT_NE(why.find("7 processes cannot share a plan of 16 x 16"), std::string::npos) << why;
  EXPECT_NE(why.find("the most that can is 16"), std::string::npos) << why;
  EXPECT_FALSE(rl::PLANSPLIT(0, 16, 16, s, why));
}

}  // namespace

int main(int argc, char** argv) {
  rl::DISTSTART(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  if (rl::dist_rank() != 0) {
    // One report, from the first process; the others only fail the run.
    auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
  }
  int failed = RUN_ALL_TESTS() != 0 ? 1 : 0, any = 0;
  MPI_Allreduce(&failed, &any, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
  rl::DISTEND();
  return any;
}
