// A run that restarts from a saved state against one that never stopped.
#include <gtest/gtest.h>
#include <omp.h>

#include <filesystem>
#include <sstream>
#include <vector>

#include "driver/fields.hpp"
#include "results/statistics.hpp"
#include "run_helpers.hpp"

namespace {

// The status blocks of the steps after `after`, in order.
std::string blocks_after(const std::string& out, int after) {
  std::istringstream in(out);
  std::string result, line;
  bool keep = false;
  while (std::getline(in, line)) {
    if (line.rfind("Step Number        = ", 0) == 0) keep = std::stoi(line.substr(21)) > after;
    if (keep && line != "Writing Orva output ...") result += line + "\n";
  }
  return result;
}

// Every statistics output on the nodes, one after the other.
std::vector<double> statistics(bool pressure) {
  const std::size_t n = static_cast<std::size_t>(rl::imax + 1) * (rl::jmax + 1) * (rl::kmax + 1);
  std::vector<double> all, one(n);
  for (const char* name :
       {"MeanVelocityX", "MeanVelocityY", "MeanVelocityZ", "MeanEddyViscosity", "ReynoldsStressUU", "ReynoldsStressVV",
        "ReynoldsStressWW", "ReynoldsStressUV", "ReynoldsStressUW", "ReynoldsStressVW", "MeanPressure"}) {
    if (!pressure && std::string(name) == "MeanPressure") continue;
    if (pressure && std::string(name) != "MeanPressure") continue;
    rl::statistics_nodes(name, one.data());
    all.insert(all.end(), one.begin(), one.end());
  }
  return all;
}

std::vector<double> interior(const rl::Array3<double>& a) {
  std::vector<double> v;
  for (int k = 1; k <= rl::kmax; ++k)
    for (int j = 1; j <= rl::jmax; ++j)
      for (int i = 1; i <= rl::imax; ++i) v.push_back(a(i, j, k));
  return v;
}

}  // namespace

TEST(Restart, ContinuesExactlyLikeAnUninterruptedRun) {
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  // The dune bed in its periodic box and as an open reach (whose inflow
  // generator's state is saved too).
  for (const std::string reach : {"", "open\n"}) {
    SCOPED_TRACE(reach.empty() ? "periodic" : "open reach");
    // Steps of 1/256 over the dune bed; the state is saved after step 32.
    // Statistics from step 16 on: the restarted run continues them.
    const std::string common =
        reach +
        "timetypeItm 1\ntimestepItm 0.00390625\nOTimeItm 0.0625\niPerturbItm 1\namplitudeItm 0.02\n"
        "StatisticsItm 1\nStatsStartItm 0.0625\n";
    int status = -1;
    std::string dir_a;
    const std::string out_a =
        rltest::run_description("dune-bed.txt", common + "endtimeItm 0.25", "whole", &status, &dir_a);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(rl::nstep, 64);
    const auto u_a = interior(rl::u), v_a = interior(rl::v), w_a = interior(rl::w), nut_a = interior(rl::nut),
               p_a = interior(rl::p);
    const auto stats_a = statistics(false), mean_p_a = statistics(true);
    ASSERT_EQ(rl::statistics_count(), 49);

    const std::string first = rltest::temp_dir("first");
    rltest::run_description(
        "dune-bed.txt",
        common + "endtimeItm 0.125\nHotoutItm 1\ndtHotoutItm 0.125\noutfileItm state\noutpathItm " + first, "first",
        &status);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(rl::nstep, 32);
    ASSERT_TRUE(std::filesystem::exists(first + "/state.dat"));
    ASSERT_TRUE(std::filesystem::exists(first + "/state.stats"));
    ASSERT_EQ(std::filesystem::exists(first + "/state.inflow"), !reach.empty());

    const std::string out_c = rltest::run_description(
        "dune-bed.txt",
        common + "endtimeItm 0.25\nHotstartItm 1\nTimeInitialItm 1\nStartfileItm " + first + "/state.dat", "second",
        &status);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(rl::nstep, 64);

    // The restarted run repeats the uninterrupted one: the same status lines
    // and the same velocities and eddy viscosity, bit for bit.
    EXPECT_EQ(blocks_after(out_c, 32), blocks_after(out_a, 32));
    EXPECT_EQ(interior(rl::u), u_a);
    EXPECT_EQ(interior(rl::v), v_a);
    EXPECT_EQ(interior(rl::w), w_a);
    EXPECT_EQ(interior(rl::nut), nut_a);
    // The pressure is not saved: it restarts from zero and accumulates the
    // same corrections, so it lags by what had built up in the first 32 steps.
    EXPECT_NE(interior(rl::p), p_a);
    // The statistics go on from those kept beside the saved state: the same
    // samples, the same averages bit for bit, but the mean pressure.
    EXPECT_EQ(rl::statistics_count(), 49);
    EXPECT_EQ(statistics(false), stats_a);
    EXPECT_NE(statistics(true), mean_p_a);
  }
  omp_set_num_threads(threads);
}
