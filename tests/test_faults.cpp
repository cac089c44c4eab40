// The solver under faults and bad input: beds that break the image-point
// march, stops raised inside parallel loops, degenerate grids, broken saved
// states, and what a run leaves behind.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "run_helpers.hpp"

using rltest::CaseSpec;

namespace {

// Beds on which the march of the trilinear wall law (and of the eddy
// viscosity) finds no clean stencil: a bed that rises above the top at the
// low side wall, a one-node spike through the lid, a knife-edge ridge.
double wall_above_top(double x, double y) { return y < 0.15 ? 0.3 : (x > 0.35 && x < 0.45 ? 0.17 : 0.03); }
double spike(double x, double y) { return (x > 0.25 && x < 0.55 && y > 0.05 && y < 0.35) ? 0.5 : 0.02; }
double ridge(double x, double) { return (x > 0.35 && x < 0.45) ? 0.5 : 0.01; }

}  // namespace

TEST(Faults, BedsThatBreakTheMarchRunOnWithOneWarning) {
  int n = 0;
  for (auto bed : {wall_above_top, spike, ridge}) {
    ++n;
    for (int ibm : {0, 1}) {
      CaseSpec s;
      s.set("iIBMItm", ibm).set("BedItm", 1).set("iPerturbItm", 1).set("amplitudeItm", 0.01);
      const std::string dir = rltest::temp_dir("march");
      s.write(dir + "/case.cgn", bed);
      const auto r = rltest::run_solver(dir, {"case.cgn"}, 1);
      EXPECT_EQ(r.status, 0) << r.out;
      EXPECT_EQ(rltest::count_lines_starting(r.out, "Step Number"), 5);
      // One warning line per run, on standard error, only where the march
      // of the trilinear law is used.
      EXPECT_EQ(rltest::count_lines_starting(r.out, "riverles: warning: the image-point march"), ibm == 0 ? 1 : 0)
          << "bed " << n << " iIBM " << ibm;
    }
  }
}
