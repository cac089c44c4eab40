// The message passing's own pieces, run under the launcher with 1, 2 and 4
// processes: reductions that give every process the same bits, and the cut
// of the plan.  (The halo exchange is tested through the routines that use
// it, in tests/mpi/test_routines.cpp.)
#include <gtest/gtest.h>
#include <mpi.h>

#include <string>
#include <vector>

#include "common/distributed.hpp"

namespace {

// Reductions give every process the same answer; the sum adds by rank
// (values chosen so that another order rounds differently).
TEST(Reduce, EveryProcessGetsTheSameAnswer) {
  const int n = rl::dist_size(), rank = rl::dist_rank();
  EXPECT_EQ(rl::dist_min(10.0 - rank), 10.0 - (n - 1));
  EXPECT_EQ(rl::dist_max(-1.0 * rank), 0.0);
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
  ASSERT_TRUE(rl::plan_split(4, 64, 32, s, why));
  EXPECT_EQ(s.px, 4);  // 4 x 1 and 2 x 2 both cut 96 columns: more along x
  EXPECT_EQ(s.py, 1);
  ASSERT_TRUE(rl::plan_split(6, 64, 64, s, why));
  EXPECT_EQ(s.px * s.py, 6);
  EXPECT_EQ(s.px, 3);  // 3 x 2 cuts 2*64 + 64, 6 x 1 cuts 5*64
  ASSERT_TRUE(rl::plan_split(3, 13, 9, s, why));
  EXPECT_EQ(s.px, 3);
  EXPECT_EQ(s.ilo, (std::vector<int>{1, 6, 10}));
  EXPECT_EQ(s.ihi, (std::vector<int>{5, 9, 13}));
  EXPECT_EQ(s.jlo, (std::vector<int>{1}));
  EXPECT_EQ(s.jhi, (std::vector<int>{9}));
  ASSERT_TRUE(rl::plan_split(1, 3, 2, s, why));  // one process: any plan
  EXPECT_FALSE(rl::plan_split(7, 16, 16, s, why));  // 7 x 1: blocks of 2 columns
  EXPECT_NE(why.find("7 processes cannot share a plan of 16 x 16"), std::string::npos) << why;
  EXPECT_NE(why.find("the most that can is 16"), std::string::npos) << why;
  EXPECT_FALSE(rl::plan_split(0, 16, 16, s, why));
}

}  // namespace

int main(int argc, char** argv) {
  rl::dist_start(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  if (rl::dist_rank() != 0) {
    // One report, from the first process; the others only fail the run.
    auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
  }
  int failed = RUN_ALL_TESTS() != 0 ? 1 : 0, any = 0;
  MPI_Allreduce(&failed, &any, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
  rl::dist_end();
  return any;
}
