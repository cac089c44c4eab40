// Bit-for-bit regression: the dune example over its first steps with one
// thread must print the same status lines and leave the same saved state as
// the stored reference.  Speed-ups must not change a single bit.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "run_helpers.hpp"

namespace {

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// The first line where two texts differ, for the failure message.
std::string first_difference(const std::string& a, const std::string& b) {
  std::istringstream ia(a), ib(b);
  std::string la, lb;
  for (int n = 1;; ++n) {
    const bool ga = static_cast<bool>(std::getline(ia, la)), gb = static_cast<bool>(std::getline(ib, lb));
    if (!ga && !gb) return "none";
    if (!ga || !gb || la != lb) return "line " + std::to_string(n) + ": '" + la + "' vs reference '" + lb + "'";
  }
}

}  // namespace

TEST(Regression, DuneExampleBitForBitWithOneThread) {
  const std::string ref = std::string(RIVERLES_SOURCE_DIR) + "/tests/reference/";
  const std::string dir = rltest::temp_dir("regression");
  std::ofstream(dir + "/case.txt") << slurp(std::string(RIVERLES_SOURCE_DIR) + "/examples/dune-bed.txt")
                                   << slurp(ref + "dune-regression.txt");
  const std::string cmd = "'" RIVERLES_CASE_EXE "' '" + dir + "/case.txt' '" + dir + "/case.cgn'";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  const auto run = rltest::run_solver(dir, {"case.cgn"}, 1);
  ASSERT_EQ(run.status, 0);

  const std::string console = slurp(ref + "dune-regression.console");
  EXPECT_TRUE(run.out == console) << first_difference(run.out, console);
  const std::string state = slurp(dir + "/state.dat"), state_ref = slurp(ref + "dune-regression.state");
  EXPECT_TRUE(state == state_ref) << first_difference(state, state_ref);
}
