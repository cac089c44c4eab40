// What a run reports besides the console: the monitor log against the
// console, the health warnings and the stop on a run that blows up on
// purpose, probes against the fields they sample.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "driver/fields.hpp"
#include "run_helpers.hpp"

using rltest::CaseSpec;
using rltest::count_lines_starting;

namespace {

std::vector<std::vector<std::string>> read_csv(const std::string& path) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    std::vector<std::string> cells;
    std::stringstream ss(line);
    for (std::string c; std::getline(ss, c, ',');) cells.push_back(c);
    rows.push_back(cells);
  }
  return rows;
}

// The values of the console lines that start with `label`, in order.
std::vector<double> console_values(const std::string& out, const std::string& label) {
  std::vector<double> v;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);)
    if (line.rfind(label, 0) == 0) v.push_back(std::stod(line.substr(line.find('=') + 1)));
  return v;
}

}  // namespace

// The log has a line per step whose time, time step, divergence and Poisson
// cycles are the console's; the target discharge and the measured one are
// the controller's.  Without the keys nothing is written.
TEST(Monitors, LogLinesMatchTheConsole) {
  CaseSpec s;
  s.set("timetypeItm", 0).set("cflItm", 0.3).set("endtimeItm", 1.5).set("InitialItm", 1).set("xInitItm", 0.1);
  s.set("MonitorItm", 1);
  const std::string dir = rltest::temp_dir("monitor");
  s.write(dir + "/case.cgn");
  const auto r = rltest::run_solver(dir, {"case.cgn"});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto rows = read_csv(dir + "/run_monitor.csv");
  const auto times = console_values(r.out, "Time               ="), dts = console_values(r.out, "Time Step");
  const auto divs = console_values(r.out, "Maximum divergence"), cycles = console_values(r.out, "Number of Poisson");
  ASSERT_EQ(rows.size(), times.size() + 1);
  ASSERT_EQ(rows[0].size(), 14u);
  EXPECT_EQ(rows[0][3], "discharge");
  EXPECT_EQ(rows[0][6], "slope");
  for (std::size_t n = 1; n < rows.size(); ++n) {
    ASSERT_EQ(rows[n].size(), 14u);
    EXPECT_EQ(std::stoi(rows[n][0]), static_cast<int>(n));
    EXPECT_NEAR(std::stod(rows[n][1]), times[n - 1], 1e-9 * times[n - 1]);
    EXPECT_NEAR(std::stod(rows[n][2]), dts[n - 1], 1e-9 * dts[n - 1]);
    EXPECT_NEAR(std::stod(rows[n][11]), divs[n - 1], 1e-9 * divs[n - 1] + 1e-300);
    EXPECT_EQ(std::stod(rows[n][12]), cycles[n - 1]);
    EXPECT_EQ(std::stod(rows[n][4]), 0.008);
    // The equivalent slope is the driving acceleration over gravity.
    EXPECT_NEAR(std::stod(rows[n][6]), std::stod(rows[n][5]) / 9.81, 1e-9 * std::fabs(std::stod(rows[n][5])) + 1e-300);
    // The next step's dt brings the largest CFL number of this step's
    // velocities to the target 0.3 (the viscous part of the rate is a few
    // thousandths of the convective one here).
    if (n + 1 < rows.size()) {
      EXPECT_NEAR(std::stod(rows[n][10]) * dts[n] / dts[n - 1], 0.3, 0.003) << "step " << n;
    }
  }
  // Started at 0.1 everywhere in a channel 0.2 deep and 0.4 wide: the
  // measured discharge begins near 0.1 * 0.2 * 0.4 = 0.008.
  EXPECT_NEAR(std::stod(rows[1][3]), 0.008, 0.0008);

  s.omit.insert("MonitorItm");
  const std::string plain = rltest::temp_dir("no-monitor");
  s.write(plain + "/case.cgn");
  EXPECT_EQ(rltest::run_solver(plain, {"case.cgn"}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(plain + "/run_monitor.csv"));
}

// Far too large a fixed time step: the CFL, velocity and non-finite
// warnings come once each, with step and position; with StopNonFiniteItm the
// run stops at the first non-finite step, its log line written.
TEST(Monitors, BlowUpIsWarnedAndStopped) {
  CaseSpec s;
  s.set("timestepItm", 2.0).set("endtimeItm", 60.0).set("InitialItm", 1).set("xInitItm", 0.1);
  s.set("iPerturbItm", 1).set("amplitudeItm", 0.05).set("MonitorItm", 1).set("VelocityLimitItm", 20.0);
  const std::string dir = rltest::temp_dir("blowup");
  s.write(dir + "/case.cgn");
  auto r = rltest::run_solver(dir, {"case.cgn"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(count_lines_starting(r.err, "riverles: warning: CFL number"), 1) << r.err;
  EXPECT_EQ(count_lines_starting(r.err, "riverles: warning: |"), 1) << r.err;
  EXPECT_EQ(count_lines_starting(r.err, "riverles: warning: non-finite"), 1) << r.err;
  EXPECT_NE(r.err.find("times the bulk velocity 0.1 at step"), std::string::npos) << r.err;
  auto rows = read_csv(dir + "/run_monitor.csv");
  int first_nan = 0;
  for (std::size_t n = 1; n < rows.size() && !first_nan; ++n)
    if (rows[n][7] == "nan" || rows[n][7] == "-nan") first_nan = static_cast<int>(n);
  ASSERT_GT(first_nan, 1);
  EXPECT_NE(r.err.find("non-finite u at step " + std::to_string(first_nan) + ", first at (i, j, k) = ("),
            std::string::npos)
      << r.err;

  s.set("StopNonFiniteItm", 1);
  s.write(dir + "/case.cgn");
  r = rltest::run_solver(dir, {"case.cgn"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("the run stops (StopNonFiniteItm 1)"), std::string::npos) << r.err;
  EXPECT_EQ(count_lines_starting(r.out, "Step Number"), first_nan);
  rows = read_csv(dir + "/run_monitor.csv");
  EXPECT_EQ(rows.size(), static_cast<std::size_t>(first_nan + 1));
}

// A probe on a position of a field gives that value; one midway between two
// positions their mean; the four fields each at their own positions.  A
// probe outside the box or a malformed line stops the run naming the line.
TEST(Monitors, ProbesSampleTheFields) {
  CaseSpec s;
  s.set("timetypeItm", 1).set("InitialItm", 1).set("xInitItm", 0.1).set("iPerturbItm", 1).set("amplitudeItm", 0.05);
  const std::string dir = rltest::temp_dir("probes");
  // Grid: 8 x 4 cells of 0.1 in plan (lx 0.8, ly 0.4), 8 cells of 0.025 in z.
  const double d = 0.1, h = 0.025;
  std::ofstream(dir + "/points.txt") << "# x y z\n"
                                     << 3 * d << " " << 1.5 * d << " " << 2.5 * h << "\n"  // a u face
                                     << 2.5 * d << " " << 2 * d << " " << 4.5 * h << "\n"  // a v face
                                     << 4.5 * d << " " << 2.5 * d << " " << 6 * h << "\n"  // a w face
                                     << "\n"
                                     << 5.5 * d << " " << 0.5 * d << " " << 0.5 * h << "   # a cell centre\n"
                                     << 3.5 * d << " " << 1.5 * d << " " << 2.5 * h << "\n";  // between u faces
  s.set("ProbeFileItm", dir + "/points.txt").set("outpathItm", dir).set("kmaxItm", 3);
  s.write(dir + "/case.cgn");
  int status = -1;
  rltest::run_file_in_process(dir + "/case.cgn", &status);
  ASSERT_EQ(status, 0);
  ASSERT_EQ(rl::imax, 8);
  ASSERT_EQ(rl::kmax, 8);
  const auto rows = read_csv(dir + "/run_probes.csv");
  ASSERT_EQ(rows.size(), 6u);
  ASSERT_EQ(rows.back().size(), 2u + 5 * 4);
  auto at = [&](int probe, int field) { return std::stod(rows.back()[2 + 4 * (probe - 1) + field]); };
  auto near = [](double a, double b) { EXPECT_NEAR(a, b, 1e-9 * std::fabs(b) + 1e-12); };
  // Cell (i,j,k) spans nodes i-1..i: u(3,2,3) is the x face at x = 3d, y = 1.5d, z = 2.5h.
  near(at(1, 0), rl::u(3, 2, 3));
  near(at(2, 1), rl::v(3, 2, 5));
  near(at(3, 2), rl::w(5, 3, 6));
  near(at(4, 3), rl::p(6, 1, 1));
  near(at(5, 0), 0.5 * (rl::u(3, 2, 3) + rl::u(4, 2, 3)));
  EXPECT_NE(rl::u(3, 2, 3), rl::u(4, 2, 3));

  for (const char* bad : {"0.1 0.1\n", "0.1 0.1 0.1 0.1\n", "0.1 0.5 0.1\n"}) {
    std::ofstream(dir + "/points.txt") << "0.1 0.1 0.1\n" << bad;
    const auto r = rltest::run_solver(dir, {"case.cgn"});
    EXPECT_EQ(r.status, 1) << bad;
    EXPECT_NE(r.err.find("points.txt:2: "), std::string::npos) << r.err;
    EXPECT_EQ(count_lines_starting(r.out, "Step Number"), 0);
  }
}

// The progress line: on standard error when it is a terminal (here one that
// `script` provides), never into a file or a pipe.
TEST(Monitors, ProgressOnlyOnATerminal) {
  CaseSpec s;
  s.set("ProgressItm", 1).set("endtimeItm", 0.1);
  const std::string dir = rltest::temp_dir("progress");
  s.write(dir + "/case.cgn");
  const auto plain = rltest::run_solver(dir, {"case.cgn"});
  ASSERT_EQ(plain.status, 0);
  EXPECT_EQ(plain.err.find("riverles: t = "), std::string::npos) << plain.err;
  const std::string cmd = "cd '" + dir + "' && script -qec \"OMP_NUM_THREADS=1 '" RIVERLES_EXE
                          "' case.cgn < /dev/null > console.txt\" /dev/null > tty.txt 2>&1";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  const std::string tty = rltest::slurp(dir + "/tty.txt");
  // The first step is shown at once; the line is ended when the run ends.
  EXPECT_EQ(tty.find("\rriverles: t = 0.01 of 0.1 (10.0 %), "), 0u) << tty;
  EXPECT_TRUE(tty.ends_with("left   \r\n")) << tty;
  EXPECT_EQ(rltest::slurp(dir + "/console.txt"), plain.out);
}

// A run that continues an older saved state (TimeInitialItm 1) cuts the
// monitor and probe logs at that state's step before it appends: every
// step appears once, and time runs forward.
TEST(Monitors, ARestartFromAnOlderStateCutsTheLogs) {
  CaseSpec s;
  s.set("timetypeItm", 1).set("timestepItm", 0.02).set("endtimeItm", 0.1).set("InitialItm", 1).set("xInitItm", 0.1);
  s.set("HotoutItm", 1).set("dtHotoutItm", 0.1).set("MonitorItm", 1).set("ProbeFileItm", std::string("points.txt"));
  const std::string dir = rltest::temp_dir("log-cut");
  std::ofstream(dir + "/points.txt") << "0.3 0.15 0.05\n";
  s.write(dir + "/case.cgn");
  ASSERT_EQ(rltest::run_solver(dir, {"case.cgn"}).status, 0);
  std::filesystem::copy_file(dir + "/run.dat", dir + "/state5.dat");
  // On to 0.2 from the state at step 5; then again from the same state.
  s.set("endtimeItm", 0.2).set("HotstartItm", 1).set("StartfileItm", std::string("state5.dat"));
  s.set("TimeInitialItm", 1);
  s.write(dir + "/case.cgn");
  ASSERT_EQ(rltest::run_solver(dir, {"case.cgn"}).status, 0);
  s.write(dir + "/case.cgn");
  auto r = rltest::run_solver(dir, {"case.cgn"});
  ASSERT_EQ(r.status, 0) << r.err;
  const int steps = count_lines_starting(r.out, "Step Number");
  EXPECT_NE(r.err.find("run_monitor.csv: cut " + std::to_string(steps) + " line(s) after step 5"), std::string::npos)
      << r.err;
  for (const char* log : {"/run_monitor.csv", "/run_probes.csv"}) {
    const auto rows = read_csv(dir + log);
    ASSERT_EQ(rows.size(), static_cast<std::size_t>(5 + steps + 1)) << log;
    for (std::size_t n = 1; n < rows.size(); ++n) {
      EXPECT_EQ(rows[n][0], std::to_string(n)) << log;
      if (n > 1) {
        EXPECT_GT(std::stod(rows[n][1]), std::stod(rows[n - 1][1])) << log;
      }
    }
  }
}

namespace {
// A riffle whose crest stands above the lid at the inflow plane, water
// elsewhere.
double crest_above_the_lid(double x, double) { return x < 0.15 ? 10.0 : -1.0; }
}  // namespace

// StopFailedItm 1 stops the runs that have failed, naming what happened and
// the likely causes, with the results so far kept: a discharge typed in
// litres, an inflow plane without water (the crest above the lid there),
// velocities beyond any river's.
TEST(Monitors, FailedRunsStop) {
  const std::string dir = rltest::temp_dir("failed");
  auto run = [&](CaseSpec s, double (*bed)(double, double)) {
    s.set("StopFailedItm", 1);
    s.write(dir + "/case.cgn", bed);
    return rltest::run_solver(dir, {"case.cgn"});
  };
  CaseSpec litres;
  litres.set("dischargeItm", 60.0);
  auto r = run(litres, nullptr);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("is a bulk velocity of"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("litres per second"), std::string::npos) << r.err;
  EXPECT_EQ(count_lines_starting(r.out, "Step Number"), 0);
  EXPECT_EQ(rltest::stored_results(dir + "/case.cgn"), 1);

  r = run(CaseSpec(), crest_above_the_lid);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("the inflow plane (i = 0) holds no water"), std::string::npos) << r.err;
  EXPECT_EQ(rltest::stored_results(dir + "/case.cgn"), 1);

  // The blow-up of BlowUpIsWarnedAndStopped: stopped before anything is
  // non-finite.
  CaseSpec big;
  big.set("timestepItm", 2.0).set("endtimeItm", 60.0).set("InitialItm", 1).set("xInitItm", 0.1);
  big.set("iPerturbItm", 1).set("amplitudeItm", 0.05);
  r = run(big, nullptr);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("m/s at step"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("beyond any river flow"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("non-finite"), std::string::npos) << r.err;

  // Without the key the crest case runs to its end.
  CaseSpec crest;
  crest.set("StopFailedItm", 0);
  crest.write(dir + "/case.cgn", crest_above_the_lid);
  EXPECT_EQ(rltest::run_solver(dir, {"case.cgn"}).status, 0);
}

// Accumulators carry the step and time of the save they belong to: beside
// a saved state of another step (an older state copied back) they would
// count samples twice, so the run refuses them with a warning and starts
// its statistics anew; beside their own state they continue.
TEST(Monitors, AccumulatorsOfAnotherSaveAreRefused) {
  CaseSpec s;
  s.set("timetypeItm", 1).set("timestepItm", 0.01).set("endtimeItm", 0.05).set("InitialItm", 1).set("xInitItm", 0.1);
  s.set("HotoutItm", 1).set("dtHotoutItm", 0.05).set("StatisticsItm", 1).set("StatsStartItm", 0.0);
  s.set("dtStatsItm", 0.05);
  const std::string dir = rltest::temp_dir("stats-save");
  s.write(dir + "/case.cgn");
  ASSERT_EQ(rltest::run_solver(dir, {"case.cgn"}).status, 0);
  std::filesystem::copy_file(dir + "/run.dat", dir + "/old.dat");
  s.set("endtimeItm", 0.1).set("HotstartItm", 1).set("StartfileItm", std::string("run.dat")).set("TimeInitialItm", 1);
  s.write(dir + "/case.cgn");
  auto r = rltest::run_solver(dir, {"case.cgn"});
  ASSERT_EQ(r.status, 0);
  EXPECT_NE(r.err.find("statistics continue from run.stats (5 samples"), std::string::npos) << r.err;
  // The state of step 5 beside the accumulators of step 10.
  std::filesystem::copy_file(dir + "/old.dat", dir + "/mixed.dat");
  std::filesystem::copy_file(dir + "/run.stats", dir + "/mixed.stats");
  s.set("StartfileItm", std::string("mixed.dat")).set("HotoutItm", 0);
  s.write(dir + "/case.cgn");
  r = rltest::run_solver(dir, {"case.cgn"});
  ASSERT_EQ(r.status, 0);
  EXPECT_NE(r.err.find("mixed.stats belongs to the save of step 11 (t = 0.11"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("not to mixed.dat (step 5, t = 0.05"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("statistics continue"), std::string::npos) << r.err;
}
