// Whole runs of small generated cases: key reads, failure paths, the output
// rule, the cancel request and re-running a case.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <cstdio>

#include "run_helpers.hpp"

using rltest::CaseSpec;
using rltest::count_lines_starting;
using rltest::last_line;
using rltest::run_solver;
using rltest::stored_results;

namespace {

constexpr const char* kReadError = "Error in reading the cgn file ...";

struct Run {
  std::string dir, file;
  rltest::RunResult r;
};

Run run_case(const CaseSpec& desc, const std::string& tag) {
  Run run;
  run.dir = rltest::temp_dir(tag);
  run.file = run.dir + "/case.cgn";
  desc.write(run.file);
  run.r = run_solver(run.dir, {"case.cgn"});
  return run;
}

}  // namespace

TEST(Runs, ConditionalKeyReads) {
  // Keys that are read only under a condition may be absent otherwise.
  {
    CaseSpec s;
    s.set("timetypeItm", 0);
    s.omit = {"timestepItm", "dtHotoutItm", "dtTecplotItm", "igammaItm", "xInitItm", "amplitudeItm",
              "BAmplitudeItm", "StartfileItm", "TimeInitialItm", "SedimentItm", "RoughItm"};
    auto run = run_case(s, "keys-cfl");
    EXPECT_EQ(run.r.status, 0) << run.r.out;
    EXPECT_GE(count_lines_starting(run.r.out, "Step Number"), 1);
  }
  {
    CaseSpec s;
    s.omit = {"cflItm", "yInitItm"};
    auto run = run_case(s, "keys-fixed");
    EXPECT_EQ(run.r.status, 0) << run.r.out;
    EXPECT_EQ(count_lines_starting(run.r.out, "Step Number"), 5);
    EXPECT_EQ(count_lines_starting(run.r.out, "Time Step          = 0.01"), 5);
  }
  // The keys that are read must be there.
  for (const char* key : {"timestepItm", "outfileItm", "outpathItm", "zmaxItm", "kmaxItm", "epsItm"}) {
    CaseSpec s;
    s.omit = {key};
    auto run = run_case(s, "keys-missing");
    EXPECT_NE(run.r.status, 0) << key;
    EXPECT_EQ(last_line(run.r.out), kReadError) << key;
    EXPECT_EQ(count_lines_starting(run.r.out, "Step Number"), 0) << key;
    // Standard error names the key.
    EXPECT_NE(run.r.err.find(std::string("the case has no key ") + key), std::string::npos) << run.r.err;
    // Absent output names stop the run before the first result even with
    // saved states and Tecplot off.
    if (std::string(key) == "outfileItm") {
      EXPECT_EQ(stored_results(run.file), 0);
    }
  }
  {
    // Solver keys come after the first result: a failure leaves one result.
    CaseSpec s;
    s.set("iCycleItm", 2);
    s.omit = {"igammaItm"};
    auto run = run_case(s, "keys-igamma");
    EXPECT_EQ(last_line(run.r.out), kReadError);
    EXPECT_EQ(stored_results(run.file), 1);
  }
  {
    CaseSpec s;
    s.set("BedItm", 1);
    s.omit = {"SedimentItm"};
    auto run = run_case(s, "keys-sediment");
    EXPECT_EQ(last_line(run.r.out), kReadError);
  }
  {
    // A key of another type than the one read: said as such.
    CaseSpec s;
    s.set("kmaxItm", 2.5);
    auto run = run_case(s, "keys-type");
    EXPECT_EQ(last_line(run.r.out), kReadError);
    EXPECT_NE(run.r.err.find("the case's key kmaxItm cannot be read as an integer"), std::string::npos) << run.r.err;
  }
}

TEST(Runs, CommandLineAndOpenFailures) {
  const std::string dir = rltest::temp_dir("args");
  for (const auto& args : std::vector<std::vector<std::string>>{{}, {"a.cgn", "b.cgn"}}) {
    auto r = run_solver(dir, args);
    EXPECT_NE(r.status, 0);
    EXPECT_EQ(r.out, "Input File not specified\n");
  }
  auto r = run_solver(dir, {"no-such-case.cgn"});
  EXPECT_NE(r.status, 0);
  EXPECT_EQ(last_line(r.out), "*** Open error of CGNS file ***");
  // Standard error says which path and why: missing, a folder, no case,
  // read-only.
  EXPECT_NE(r.err.find("cannot open the case \"no-such-case.cgn\" for reading and writing: no such file"),
            std::string::npos)
      << r.err;
  std::filesystem::create_directory(dir + "/folder.cgn");
  r = run_solver(dir, {"folder.cgn"});
  EXPECT_NE(r.err.find("\"folder.cgn\" for reading and writing: it is a folder"), std::string::npos) << r.err;
  std::ofstream(dir + "/text.cgn") << "not a case\n";
  r = run_solver(dir, {"text.cgn"});
  EXPECT_NE(r.err.find("\"text.cgn\" for reading and writing: not a CGNS case file"), std::string::npos) << r.err;
  EXPECT_EQ(last_line(r.out), "*** Open error of CGNS file ***");
}

TEST(Runs, ResultsAtCrossedMultiplesOfTheInterval) {
  {
    // Steps of 1/16 and results every 1/4: due at steps 4, 8, 12, 16.
    CaseSpec s;
    s.set("timestepItm", 0.0625).set("OTimeItm", 0.25).set("endtimeItm", 1.0);
    auto run = run_case(s, "due");
    EXPECT_EQ(run.r.status, 0) << run.r.out;
    EXPECT_EQ(count_lines_starting(run.r.out, "Step Number"), 16);
    EXPECT_EQ(count_lines_starting(run.r.out, "Writing Orva output ..."), 4);
    EXPECT_EQ(stored_results(run.file), 5);
    // The result is written after the status block of its step.
    const auto at = run.r.out.find("Writing Orva output ...");
    EXPECT_NE(run.r.out.rfind("Step Number        = 4\n", at), std::string::npos);
    EXPECT_EQ(run.r.out.rfind("Step Number        = 5\n", at), std::string::npos);
  }
  {
    // A step larger than the interval writes once per step.
    CaseSpec s;
    s.set("timestepItm", 0.75).set("OTimeItm", 0.25).set("endtimeItm", 1.5);
    auto run = run_case(s, "due-big");
    EXPECT_EQ(count_lines_starting(run.r.out, "Step Number"), 2);
    EXPECT_EQ(count_lines_starting(run.r.out, "Writing Orva output ..."), 2);
    EXPECT_EQ(stored_results(run.file), 3);
  }
  {
    // An interval of 0: nothing after the first result.  An end time not
    // above the start still computes one step.
    CaseSpec s;
    s.set("OTimeItm", 0.0).set("starttimeItm", 2.0).set("endtimeItm", 1.0);
    auto run = run_case(s, "due-zero");
    EXPECT_EQ(run.r.status, 0);
    EXPECT_EQ(count_lines_starting(run.r.out, "Step Number"), 1);
    EXPECT_EQ(count_lines_starting(run.r.out, "Time               = 2.0099999999999998"), 1);
    EXPECT_EQ(stored_results(run.file), 1);
  }
}

TEST(Runs, CancelEndsTheRunAfterThatPassOutputs) {
  CaseSpec s;
  // A time type other than 0 or 1: dt stays 0, time never advances, and
  // only the host's cancel ends the run.
  s.set("timetypeItm", 2).set("endtimeItm", 1.0).set("OTimeItm", 0.25);
  const std::string dir = rltest::temp_dir("cancel");
  s.write(dir + "/case.cgn");
  auto r = rltest::run_then_cancel(dir, "case.cgn.results/Grid.cgns");
  EXPECT_EQ(r.status, 0);
  EXPECT_GE(count_lines_starting(r.out, "Step Number"), 1);
  EXPECT_NE(r.out.find("Time Step          = 0\n"), std::string::npos);
  EXPECT_EQ(stored_results(dir + "/case.cgn"), 1);

  // The pass that sees the cancel still writes the outputs due in it: a
  // result every step, one more than the steps.
  s.set("timetypeItm", 1).set("timestepItm", 0.5).set("endtimeItm", 1e6).set("OTimeItm", 0.5);
  s.write(dir + "/case.cgn");
  r = rltest::run_then_cancel(dir, "case.cgn.results/FlowSolution3.cgns");
  EXPECT_EQ(r.status, 0);
  const int steps = count_lines_starting(r.out, "Step Number");
  EXPECT_GE(steps, 2);
  EXPECT_EQ(stored_results(dir + "/case.cgn"), steps + 1);
}

// With CancelOutputItm 1 the step that ends the run on a cancel request,
// SIGTERM or SIGINT writes what it did not write anyway: a result, the saved
// state (that step's) and the statistics, numbered after every earlier
// statistics file; no lock or part is left, and a signal gives exit status
// 128 + the signal.  Without the key, the design's cancel writes nothing
// beyond what is due.
TEST(Runs, CancelAndSignalsWriteTheFinalOutputs) {
  CaseSpec s;
  s.set("timetypeItm", 1).set("timestepItm", 0.01).set("endtimeItm", 1e6).set("OTimeItm", 1000.0);
  s.set("HotoutItm", 1).set("dtHotoutItm", 1000.0);
  s.set("StatisticsItm", 1).set("StatsStartItm", 0.0).set("dtStatsItm", 1000.0).set("CancelOutputItm", 1);
  for (int sig : {0, SIGTERM, SIGINT}) {
    const std::string dir = rltest::temp_dir("final-outputs");
    s.write(dir + "/case.cgn");
    const auto r = rltest::run_then_cancel(dir, "case.cgn.results/Grid.cgns", sig);
    EXPECT_EQ(r.status, sig == 0 ? 0 : 128 + sig) << r.err;
    if (sig != 0) {
      EXPECT_NE(r.err.find(sig == SIGTERM ? "SIGTERM received" : "SIGINT received"), std::string::npos) << r.err;
    }
    EXPECT_NE(r.err.find("cancelled at time"), std::string::npos) << r.err;
    const int steps = count_lines_starting(r.out, "Step Number");
    ASSERT_GE(steps, 1) << sig;
    EXPECT_EQ(stored_results(dir + "/case.cgn"), 2) << sig;
    std::ifstream saved(dir + "/run.dat");
    int step = -1;
    saved >> step;
    EXPECT_EQ(step, steps) << sig;
    EXPECT_TRUE(std::filesystem::exists(dir + "/run_stats_000001.cgns")) << sig;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir)) {
      const std::string name = e.path().filename().string();
      EXPECT_FALSE(name.ends_with(".part") || name.ends_with(".lock") || name.ends_with(".next")) << name;
    }
  }

  s.set("CancelOutputItm", 0);
  const std::string bare = rltest::temp_dir("cancel-design");
  s.write(bare + "/case.cgn");
  const auto r = rltest::run_then_cancel(bare, "case.cgn.results/Grid.cgns");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(stored_results(bare + "/case.cgn"), 1);
  EXPECT_FALSE(std::filesystem::exists(bare + "/run.dat"));
  EXPECT_FALSE(std::filesystem::exists(bare + "/run_stats_000001.cgns"));
}

// A cancel request left beside the case by an earlier run is not this run's:
// it is removed with a note, and the run goes to its end with every result
// (it ended the run after its first step, replacing the case's results).
TEST(Runs, StaleCancelRequestIsRemovedAndTheRunGoesOn) {
  CaseSpec s;
  s.set("timestepItm", 0.0625).set("OTimeItm", 0.125).set("endtimeItm", 0.5);
  const std::string dir = rltest::temp_dir("stale-cancel");
  s.write(dir + "/case.cgn");
  std::ofstream(dir + "/case.cgn.cancel") << "stop\n";
  const auto r = run_solver(dir, {"case.cgn"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(count_lines_starting(r.out, "Step Number"), 8);
  EXPECT_EQ(stored_results(dir + "/case.cgn"), 5);
  EXPECT_FALSE(std::filesystem::exists(dir + "/case.cgn.cancel"));
  EXPECT_NE(r.err.find("removed case.cgn.cancel, a cancel request left from an earlier run"), std::string::npos)
      << r.err;
}

// A run that stops in its start-up after the 3-D grid was written (here a
// saved state that does not read) leaves the case with the results zone and
// its whole grid, and no result.
TEST(Runs, StopBeforeTheFirstResultLeavesTheGrid) {
  CaseSpec s;
  s.set("HotstartItm", 1).set("StartfileItm", std::string("short.dat")).set("zminItm", -0.5).set("zmaxItm", 0.5);
  const std::string dir = rltest::temp_dir("stop-grid");
  s.write(dir + "/case.cgn");
  std::ofstream(dir + "/short.dat") << "3 0.25\n";
  const auto r = run_solver(dir, {"case.cgn"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(last_line(r.out), "ERROR : Failed to read the saved results ...");
  long nodes = 0;
  const std::vector<double> z = rltest::grid_heights(dir + "/case.cgn", &nodes);
  const int nk = 1 + (1 << s.keys.at("kmaxItm").ivalue);
  ASSERT_EQ(nodes, 1L * s.ni * s.nj * nk);
  // Flat layers from zmin to zmax, k slowest.
  const long plane = 1L * s.ni * s.nj;
  EXPECT_DOUBLE_EQ(z.front(), -0.5);
  EXPECT_DOUBLE_EQ(z[static_cast<std::size_t>(plane)], -0.5 + 1.0 / (nk - 1));
  EXPECT_DOUBLE_EQ(z.back(), 0.5);
  EXPECT_EQ(stored_results(dir + "/case.cgn"), 0);
}

TEST(Runs, RerunReplacesResultsWithoutGrowingTheFile) {
  CaseSpec s;
  s.set("timestepItm", 0.0625).set("OTimeItm", 0.125).set("endtimeItm", 0.5);
  auto run = run_case(s, "rerun");
  ASSERT_EQ(run.r.status, 0);
  const auto size1 = std::filesystem::file_size(run.file);
  EXPECT_EQ(stored_results(run.file), 5);
  for (int n = 0; n < 3; ++n) {
    auto r = run_solver(run.dir, {"case.cgn"});
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.out, run.r.out);
    EXPECT_EQ(stored_results(run.file), 5);
  }
  const auto size2 = std::filesystem::file_size(run.file);
  EXPECT_LE(size2, size1 + size1 / 20) << size1 << " -> " << size2;
  EXPECT_FALSE(std::filesystem::exists(run.file + ".lock"));
  // The grid and the five results, nothing of the earlier runs.
  const auto side = std::filesystem::directory_iterator(run.file + ".results");
  EXPECT_EQ(std::distance(begin(side), end(side)), 6);
}

// The divergence pause: a console line "i j k" per cell above 0.01, each
// with a wait for the operator; the first brings a note on standard error.
// With SkipPausesItm 1 the run goes through with its input open and idle
// (a FIFO opened for reading and writing: no line ever comes, no end).
TEST(Runs, DivergencePausesAreExplainedAndCanBeSkipped) {
  CaseSpec s;
  s.set("iPerturbItm", 1).set("amplitudeItm", 50.0).set("timestepItm", 0.0001).set("endtimeItm", 0.0002);
  s.set("kpoismaxItm", 1).set("SkipPausesItm", 1);
  const std::string dir = rltest::temp_dir("pauses");
  s.write(dir + "/case.cgn");
  const std::string cmd = "cd '" + dir + "' && mkfifo input && timeout 120 '" RIVERLES_EXE
                          "' case.cgn 0<> input > console.log 2> errors.log";
  const int status = std::system(cmd.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the run waited for its input";
  const std::string out = rltest::slurp(dir + "/console.log"), err = rltest::slurp(dir + "/errors.log");
  int cells = 0;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    int i, j, k;
    char rest;
    if (std::sscanf(line.c_str(), "%d %d %d%c", &i, &j, &k, &rest) == 3) ++cells;
  }
  EXPECT_GT(cells, 0) << out;
  EXPECT_EQ(count_lines_starting(err, "riverles: each line \"i j k\" on the console is a cell whose divergence"), 1)
      << err;
  EXPECT_NE(err.find("skips the operator's pause"), std::string::npos) << err;
}
