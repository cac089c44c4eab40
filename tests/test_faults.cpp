// The solver under faults and bad input: beds that break the image-point
// march, stops raised inside parallel loops, degenerate grids, broken saved
// states, and what a run leaves behind.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "run_helpers.hpp"
// After the case library, whose names the CGNS macros would replace.
#include <cgns_io.h>

using rltest::CaseSpec;

namespace {

// Beds on which the march of the trilinear wall law (and of the eddy
// viscosity) finds no clean stencil: a bed that rises above the top at the
// low side wall, a one-node spike through the lid, a knife-edge ridge.
double wall_above_top(double x, double y) { return y < 0.15 ? 0.3 : (x > 0.35 && x < 0.45 ? 0.17 : 0.03); }
double spike(double x, double y) { return (x > 0.25 && x < 0.55 && y > 0.05 && y < 0.35) ? 0.5 : 0.02; }
double ridge(double x, double) { return (x > 0.35 && x < 0.45) ? 0.5 : 0.01; }
double nan_bed(double, double) { return std::nan(""); }

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
      EXPECT_EQ(rltest::count_lines_starting(r.err, "riverles: warning: the image-point march"), ibm == 0 ? 1 : 0)
          << "bed " << n << " iIBM " << ibm;
    }
  }
}

// A bed search that finds nothing (a box whose bottom lies above its top,
// so that every candidate is farther than zmax - zmin) stops inside a
// parallel loop: with one thread as with two, the message, the wait and
// exit status 1, never an abort.
TEST(Faults, StopFromAParallelLoopIsCleanWithAnyThreadCount) {
  for (int threads : {1, 2}) {
    CaseSpec s;
    s.set("zminItm", 0.2).set("zmaxItm", 0.0);
    const std::string dir = rltest::temp_dir("stop-parallel");
    s.write(dir + "/case.cgn", ridge);
    const auto r = rltest::run_solver(dir, {"case.cgn"}, threads);
    EXPECT_EQ(r.status, 1) << threads;
    EXPECT_NE(r.out.find("could not find the minimum point"), std::string::npos) << r.out;
  }
}

// Degenerate plans (all x equal, or not a number) give no undefined
// conversion: the run ends with a status, not a signal (and the sanitizer
// build finds nothing).
TEST(Faults, DegenerateGridsEndWithoutACrash) {
  for (double lx : {0.0, std::nan("")}) {
    CaseSpec s;
    s.lx = lx;
    s.bed = 0.05;
    const std::string dir = rltest::temp_dir("degenerate");
    s.write(dir + "/case.cgn");
    const auto r = rltest::run_solver(dir, {"case.cgn"}, 1);
    EXPECT_TRUE(r.status == 0 || r.status == 1) << r.status << r.out;
  }
  CaseSpec s;
  const std::string dir = rltest::temp_dir("degenerate-bed");
  s.write(dir + "/case.cgn", nan_bed);
  const auto r = rltest::run_solver(dir, {"case.cgn"}, 1);
  EXPECT_TRUE(r.status == 0 || r.status == 1) << r.status << r.out;
}

// A saved state that announces more slot entries than it holds ends in the
// read error, however large the count.
TEST(Faults, HugeSlotCountIsAReadError) {
  CaseSpec s;
  s.set("HotoutItm", 1).set("dtHotoutItm", 0.01).set("outfileItm", std::string("state"));
  const std::string dir = rltest::temp_dir("slots");
  s.write(dir + "/case.cgn");
  ASSERT_EQ(rltest::run_solver(dir, {"case.cgn"}).status, 0);
  std::string text;
  {
    std::ifstream in(dir + "/state.dat");
    std::stringstream ss;
    ss << in.rdbuf();
    text = ss.str();
  }
  for (const char* count : {"1000000000", "2147483647"}) {
    std::ofstream(dir + "/big.dat") << text.substr(0, text.rfind("0\n")) << count << "\n1 2 3 4 5 6\n7 8 9 10 11 12\n";
    CaseSpec h = s;
    h.set("HotstartItm", 1).set("StartfileItm", std::string("big.dat")).set("HotoutItm", 0);
    h.write(dir + "/case.cgn");
    const auto r = rltest::run_solver(dir, {"case.cgn"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(rltest::last_line(r.out), "ERROR : Failed to read the saved results ...");
  }
}

// What a killed run leaves (a result lock, the copy of an interrupted
// compaction) is cleared by the next run; the output folder is made.
TEST(Faults, LeftoversAreClearedAndTheOutputFolderMade) {
  CaseSpec s;
  s.set("HotoutItm", 1).set("dtHotoutItm", 0.01).set("outpathItm", std::string("out/deeper")).set("OTimeItm", 0.02);
  const std::string dir = rltest::temp_dir("leftovers");
  s.write(dir + "/case.cgn");
  std::ofstream(dir + "/case.cgn.lock") << "";
  std::ofstream(dir + "/case.cgn.next") << "half";
  std::filesystem::copy_file(dir + "/case.cgn", dir + "/case.cgn.temp");
  auto r = rltest::run_solver(dir, {"case.cgn"});
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_FALSE(std::filesystem::exists(dir + "/case.cgn.lock"));
  EXPECT_FALSE(std::filesystem::exists(dir + "/case.cgn.temp"));
  EXPECT_FALSE(std::filesystem::exists(dir + "/case.cgn.next"));
  EXPECT_FALSE(std::filesystem::exists(dir + "/case.cgn.run"));
  EXPECT_TRUE(std::filesystem::exists(dir + "/out/deeper/run.dat"));
  // A kill between the removal of the case and the renaming of its
  // compacted copy: the copy becomes the case.
  std::filesystem::rename(dir + "/case.cgn", dir + "/case.cgn.temp");
  r = rltest::run_solver(dir, {"case.cgn"});
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_EQ(rltest::stored_results(dir + "/case.cgn"), 3);
}

// A second run on a case that a run is working on refuses to start; the
// first goes on undisturbed.
TEST(Faults, SecondRunOnACaseIsRefused) {
  CaseSpec s;
  s.set("timetypeItm", 2).set("OTimeItm", 1.0);  // dt 0: runs until cancelled
  const std::string dir = rltest::temp_dir("two-runs");
  s.write(dir + "/case.cgn");
  const std::string cmd = "cd '" + dir + "' && OMP_NUM_THREADS=1 '" RIVERLES_EXE "' case.cgn < /dev/null > first.log 2>&1 &";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  for (int n = 0; n < 200 && rltest::count_lines_starting(rltest::slurp(dir + "/first.log"), "Step Number") < 2; ++n)
    ::usleep(50000);
  const auto r = rltest::run_solver(dir, {"case.cgn"});
  std::ofstream(dir + "/case.cgn.cancel") << "";
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("another run is working on case.cgn"), std::string::npos) << r.err;
  EXPECT_EQ(rltest::count_lines_starting(r.out, "Step Number"), 0);
  for (int n = 0; n < 200 && std::filesystem::exists(dir + "/case.cgn.run"); ++n) ::usleep(50000);
  EXPECT_FALSE(std::filesystem::exists(dir + "/case.cgn.run"));
}

// A kill at any moment of a result write, the kill times spread over the
// write: the CGNS library opens the case, and every result declared reads
// back, all results complete before the kill among them.
TEST(Faults, KillDuringAResultWriteLeavesAReadableFile) {
  CaseSpec s;
  s.set("timestepItm", 0.001).set("OTimeItm", 0.001).set("endtimeItm", 10.0);
  for (int trial = 0; trial < 12; ++trial) {
    const std::string dir = rltest::temp_dir("kill");
    s.write(dir + "/case.cgn");
    int out[2];
    ASSERT_EQ(::pipe(out), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::dup2(out[1], 1);
      ::close(out[0]);
      if (::chdir(dir.c_str()) != 0) ::_exit(3);
      ::setenv("OMP_NUM_THREADS", "1", 1);
      ::execl(RIVERLES_EXE, "riverles", "case.cgn", static_cast<char*>(nullptr));
      ::_exit(4);
    }
    ::close(out[1]);
    // The kill comes 0 to 3.3 ms after the start of the (3 + trial)-th result.
    int seen = 0;
    std::string pending;
    char buf[4096];
    while (seen < 3 + trial) {
      const ssize_t got = ::read(out[0], buf, sizeof buf);
      if (got <= 0) break;
      pending.append(buf, static_cast<std::size_t>(got));
      for (std::size_t at; (at = pending.find("Writing Orva output ...\n")) != std::string::npos;) {
        ++seen;
        pending.erase(0, at + 1);
      }
    }
    ::usleep(static_cast<useconds_t>(trial * 300));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(out[0]);
    EXPECT_GE(rltest::readable_results(dir + "/case.cgn"), seen - 1) << "trial " << trial;
  }
}

// A kill during a saved-state write (a state saved every step, so that the
// writes take most of the run's time) leaves the last complete state in
// place: a run continues from it.  Kill times spread over 0.45 s from the
// first save.
TEST(Faults, KillDuringASaveLeavesTheLastCompleteState) {
  CaseSpec s;
  s.ni = 33;
  s.nj = 17;
  s.set("kmaxItm", 5).set("timestepItm", 0.001).set("endtimeItm", 10.0).set("OTimeItm", 100.0);
  s.set("HotoutItm", 1).set("dtHotoutItm", 0.001).set("iPerturbItm", 1).set("amplitudeItm", 0.01);
  int checked = 0;
  for (int trial = 0; trial < 6; ++trial) {
    const std::string dir = rltest::temp_dir("kill-save");
    s.write(dir + "/case.cgn");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      if (::chdir(dir.c_str()) != 0) ::_exit(3);
      if (!std::freopen("/dev/null", "w", stdout) || !std::freopen("/dev/null", "r", stdin)) ::_exit(5);
      ::setenv("OMP_NUM_THREADS", "1", 1);
      ::execl(RIVERLES_EXE, "riverles", "case.cgn", static_cast<char*>(nullptr));
      ::_exit(4);
    }
    // The kill comes 0 to 0.45 s after the first save is there (a checked
    // build starts slowly: a fixed time from the start missed the saves).
    for (int n = 0; n < 1500 && !std::filesystem::exists(dir + "/run.dat"); ++n) ::usleep(2000);
    ::usleep(static_cast<useconds_t>(trial * 90000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    if (!std::filesystem::exists(dir + "/run.dat")) continue;  // killed before the first save
    ++checked;
    std::filesystem::copy_file(dir + "/run.dat", dir + "/state.dat");
    CaseSpec again = s;
    again.set("HotstartItm", 1).set("StartfileItm", std::string("state.dat")).set("HotoutItm", 0);
    again.set("endtimeItm", 0.0);
    std::filesystem::remove_all(dir + "/case.cgn.results");
    again.write(dir + "/case.cgn");
    const auto r = rltest::run_solver(dir, {"case.cgn"});
    EXPECT_EQ(r.status, 0) << "trial " << trial << ": " << r.out.substr(r.out.size() > 300 ? r.out.size() - 300 : 0);
  }
  EXPECT_GE(checked, 3);
}

// The case library forces each finished file to disk and renames the new
// version of the case into place behind the run's back.  Seen from outside,
// at any moment: while the result lock stands, the case declares the results
// before it or also the new one; once the lock is gone, the new one.  The
// next result's start and the close leave everything declared.
TEST(Faults, ResultLockStandsUntilTheCaseDeclaresTheResult) {
  const std::string dir = rltest::temp_dir("lockorder");
  const std::string file = dir + "/case.cgn", lock = file + ".lock";
  CaseSpec().write(file);
  int fid = 0, ier = 0;
  orva::CG_OPEN_F(file, orva::CG_MODE_MODIFY, fid, ier);
  ASSERT_EQ(ier, 0);
  orva::CG_ORVA_INIT_F(fid, ier);
  ASSERT_EQ(ier, 0);
  std::vector<double> x(27), y(27), z(27), a(27, 1.5);
  for (int n = 0; n < 27; ++n) {
    x[n] = n % 3;
    y[n] = n / 3 % 3;
    z[n] = n / 9;
  }
  orva::CG_ORVA_WRITEGRIDCOORD3D_F(3, 3, 3, x.data(), y.data(), z.data(), ier);
  ASSERT_EQ(ier, 0);
  const auto write_arrays = [&] {
    for (const char* f : {"VelocityX", "VelocityY", "VelocityZ", "Pressure", "Vorticity", "Coherent"})
      orva::CG_ORVA_WRITE_SOL_REAL_F(f, a.data(), ier);
  };
  orva::CG_ORVA_WRITE_SOL_TIME_F(0.0, ier);
  write_arrays();
  orva::CG_ORVA_FLUSH_F(file, fid, ier);
  ASSERT_EQ(ier, 0);
  for (int r = 2; r <= 6; ++r) {
    orva::ORVA_WRITE_SOL_START_F(file, ier);
    ASSERT_EQ(ier, 0);
    EXPECT_TRUE(std::filesystem::exists(lock));
    EXPECT_EQ(rltest::readable_results(file), r - 1) << "result " << r;
    orva::CG_ORVA_WRITE_SOL_TIME_F(0.1 * r, ier);
    write_arrays();
    orva::ORVA_WRITE_SOL_END_F(file, ier);
    ASSERT_EQ(ier, 0);
    const bool gone = !std::filesystem::exists(lock);
    const int seen = rltest::readable_results(file);
    if (gone)
      EXPECT_EQ(seen, r) << "result " << r << ": lock gone before the case declared it";
    else
      EXPECT_TRUE(seen == r - 1 || seen == r) << "result " << r << ": " << seen;
  }
  orva::CG_CLOSE_F(fid, ier);
  EXPECT_EQ(ier, 0);
  EXPECT_FALSE(std::filesystem::exists(lock));
  EXPECT_FALSE(std::filesystem::exists(file + ".next"));
  EXPECT_EQ(rltest::readable_results(file), 6);
}

// Another program holding the case: a writer (open for changes longer than
// a failed open is retried, 7 s) is waited for; a reader (a viewer looking at
// the results) does not stop or delay a whole run.
TEST(Faults, HeldCaseFileIsWaitedFor) {
  CaseSpec s;
  s.set("OTimeItm", 0.02);
  const std::string dir = rltest::temp_dir("held"), path = dir + "/case.cgn";
  s.write(path);
  // Forks a child that opens the case in the given mode and holds it for
  // `seconds`; returns once it has it open.
  auto hold = [&](int mode, unsigned seconds) {
    int ready[2];
    EXPECT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      int h = -1;
      const char ok = cgio_open_file(path.c_str(), mode, CGIO_FILE_NONE, &h) == CGIO_ERR_NONE ? 1 : 0;
      if (::write(ready[1], &ok, 1) != 1) ::_exit(2);
      ::sleep(seconds);
      if (ok) cgio_close_file(h);
      ::_exit(0);
    }
    char ok = 0;
    EXPECT_EQ(::read(ready[0], &ok, 1), 1);
    EXPECT_EQ(ok, 1);
    ::close(ready[0]);
    ::close(ready[1]);
    return child;
  };
  pid_t child = hold(CGIO_MODE_MODIFY, 7);
  auto t0 = std::chrono::steady_clock::now();
  int fid = 0, ier = 1, kmax = 0;
  orva::CG_OPEN_F(path, orva::CG_MODE_MODIFY, fid, ier);
  double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(ier, 0);
  EXPECT_GT(waited, 6.5);
  orva::CG_ORVA_READ_INTEGER_F("kmaxItm", kmax, ier);
  EXPECT_EQ(kmax, 3);
  orva::CG_CLOSE_F(fid, ier);

  child = hold(CGIO_MODE_READ, 30);
  t0 = std::chrono::steady_clock::now();
  const auto r = rltest::run_solver(dir, {"case.cgn"});
  waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_LT(waited, 20.0);
  EXPECT_EQ(rltest::stored_results(path), rltest::count_lines_starting(r.out, "Writing Orva output") + 1);
}

// A full disk during the results (a small tmpfs; skipped where it cannot be
// mounted): the run stops with the design's write error, says on standard
// error that the disk is full, leaves no half-written copy of the case, and
// the case opens with every result declared before.
TEST(Faults, FullDiskStopsCleanlyAndSaysWhy) {
  const std::string mnt = rltest::temp_dir("full-disk");
  if (std::system(("mount -t tmpfs -o size=400k tmpfs '" + mnt + "' 2> /dev/null").c_str()) != 0)
    GTEST_SKIP() << "no tmpfs can be mounted here";
  CaseSpec s;
  s.set("timestepItm", 0.01).set("OTimeItm", 0.01).set("endtimeItm", 1.0);
  s.write(mnt + "/case.cgn");
  const std::string err = rltest::temp_dir("full-disk-err") + "/errors.log";
  const std::string cmd = "cd '" + mnt + "' && OMP_NUM_THREADS=1 '" RIVERLES_EXE "' case.cgn < /dev/null > '" + err +
                          ".out' 2> '" + err + "'";
  const int status = std::system(cmd.c_str());
  const std::string out = rltest::slurp(err + ".out"), why = rltest::slurp(err);
  const int readable = rltest::readable_results(mnt + "/case.cgn");
  const bool next_left = std::filesystem::exists(mnt + "/case.cgn.next");
  std::system(("umount '" + mnt + "'").c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(rltest::last_line(out), "Error in writing to the cgn file ...");
  EXPECT_NE(why.find("riverles: cannot write the results (those written before stay) of case.cgn: the disk is full"), std::string::npos) << why;
  EXPECT_FALSE(next_left);
  EXPECT_GE(readable, 2) << "results written before the disk filled";
}

// A monitor log cut by a full disk is said once on standard error, at the
// step it stops; the run goes on to its end.
TEST(Faults, LogCutByAFullDiskIsSaid) {
  const std::string mnt = rltest::temp_dir("full-log");
  if (std::system(("mount -t tmpfs -o size=300k tmpfs '" + mnt + "' 2> /dev/null").c_str()) != 0)
    GTEST_SKIP() << "no tmpfs can be mounted here";
  CaseSpec s;
  s.set("timestepItm", 0.01).set("OTimeItm", 1000.0).set("endtimeItm", 40.0).set("MonitorItm", 1);
  s.write(mnt + "/case.cgn");
  const std::string err = rltest::temp_dir("full-log-err") + "/errors.log";
  const int status = std::system(("cd '" + mnt + "' && OMP_NUM_THREADS=1 '" RIVERLES_EXE
                                  "' case.cgn < /dev/null > /dev/null 2> '" + err + "'").c_str());
  std::system(("umount '" + mnt + "'").c_str());
  const std::string why = rltest::slurp(err);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << why;
  EXPECT_EQ(rltest::count_lines_starting(why, "riverles: warning: the monitor log stops at step "), 1) << why;
  EXPECT_NE(why.find("No space left on device; the run goes on"), std::string::npos) << why;
}

// A re-run clears only the files of earlier results from the case's results
// folder: a file of the user's there stays, and a file that merely bears the
// folder's name (another case called "a.results" beside case "a") is not
// deleted: the run says so and stops at its first result.
TEST(Faults, ARunDeletesOnlyItsOwnResults) {
  CaseSpec s;
  const std::string dir = rltest::temp_dir("own-results");
  s.write(dir + "/case.cgn");
  ASSERT_EQ(rltest::run_solver(dir, {"case.cgn"}).status, 0);
  std::ofstream(dir + "/case.cgn.results/notes.txt") << "mine\n";
  ASSERT_EQ(rltest::run_solver(dir, {"case.cgn"}).status, 0);
  EXPECT_EQ(rltest::slurp(dir + "/case.cgn.results/notes.txt"), "mine\n");
  EXPECT_EQ(rltest::stored_results(dir + "/case.cgn"), rltest::readable_results(dir + "/case.cgn"));

  s.write(dir + "/a");
  s.write(dir + "/a.results");
  const auto size = std::filesystem::file_size(dir + "/a.results");
  const auto r = rltest::run_solver(dir, {"a"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("a.results is not this case's results folder (it is a file): it is left as it is"),
            std::string::npos)
      << r.err;
  EXPECT_EQ(std::filesystem::file_size(dir + "/a.results"), size);
}

// The case and its results folder changed under a running run, as users and
// hosts do: each is said at once on standard error, and every result that
// can be kept stays readable.
TEST(Faults, CaseAndResultsChangedDuringARunAreSaid) {
  CaseSpec s;
  s.set("timestepItm", 0.01).set("OTimeItm", 0.01).set("endtimeItm", 1.5);
  const std::string sign = "case.cgn.results/FlowSolution5.cgns";
  namespace fs = std::filesystem;
  {  // The results folder deleted: before, the run made it again and the case
     // still declared the lost results, so that it no longer opened.
    const std::string dir = rltest::temp_dir("folder-gone");
    s.write(dir + "/case.cgn");
    // (Moved to the bin first: a folder being written cannot be removed in
    // one sweep.)
    const auto r = rltest::run_then(dir, sign, [&](int) {
      fs::rename(dir + "/case.cgn.results", dir + "/bin");
      fs::remove_all(dir + "/bin");
    });
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("riverles: the results folder case.cgn.results was deleted or replaced during the run: "),
              std::string::npos)
        << r.err;
    const int kept = rltest::readable_results(dir + "/case.cgn");
    EXPECT_GT(kept, 100) << "the results after the deletion";
    EXPECT_LT(kept, 151) << "the lost results are no longer declared";
    EXPECT_EQ(kept, rltest::stored_results(dir + "/case.cgn"));
  }
  {  // The case moved away: said with its path, the results before stay
     // readable through the moved case.
    const std::string dir = rltest::temp_dir("case-gone");
    s.write(dir + "/case.cgn");
    const auto r = rltest::run_then(dir, sign, [&](int) { fs::rename(dir + "/case.cgn", dir + "/moved.cgn"); });
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(rltest::last_line(r.out), "Error in writing to the cgn file ...");
    EXPECT_NE(r.err.find("case.cgn: the case was moved or deleted during the run"), std::string::npos) << r.err;
    EXPECT_GE(rltest::readable_results(dir + "/moved.cgn"), 4);
  }
  {  // The results folder made read-only (a bind mount: as root, modes do
     // not stop writes): said with the folder and the system's reason.
    const std::string dir = rltest::temp_dir("folder-read-only");
    s.write(dir + "/case.cgn");
    const std::string folder = dir + "/case.cgn.results";
    bool mounted = false;
    const auto r = rltest::run_then(dir, sign, [&](int) {
      mounted = std::system(("mount --bind '" + folder + "' '" + folder + "' 2> /dev/null && mount -o remount,ro,bind '" +
                             folder + "' '" + folder + "' 2> /dev/null").c_str()) == 0;
    });
    std::system(("umount '" + folder + "' 2> /dev/null").c_str());
    if (mounted) {
      EXPECT_EQ(r.status, 1);
      EXPECT_NE(r.err.find("case.cgn.results cannot be written: Read-only file system"), std::string::npos) << r.err;
      EXPECT_GE(rltest::readable_results(dir + "/case.cgn"), 4);
    }
  }
  {  // The case rewritten again and again (a new copy renamed over it, as
     // riverles-case does): before, an edit made while the run stored a
     // result was lost without a word, and a case made anew lost its results
     // zone, which the run's next result could not declare.
    const std::string dir = rltest::temp_dir("case-rewritten");
    s.write(dir + "/edit.cgn");
    CaseSpec longer = s;
    longer.set("endtimeItm", 3.0);
    longer.write(dir + "/case.cgn");
    std::thread editor;
    const auto r = rltest::run_then(dir, sign, [&](int) {
      editor = std::thread([&] {  // over the run's first third or so
        for (int n = 0; n < 100; ++n) {
          fs::copy_file(dir + "/edit.cgn", dir + "/edit.tmp", fs::copy_options::overwrite_existing);
          fs::rename(dir + "/edit.tmp", dir + "/case.cgn");
          ::usleep(2000);
        }
      });
    });
    editor.join();
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("was changed by another program"), std::string::npos) << r.err;
    // The last version is the run's, declaring every result written.
    int files = 0;
    for (const auto& e : fs::directory_iterator(dir + "/case.cgn.results"))
      files += e.path().filename().string().starts_with("FlowSolution");
    EXPECT_GT(files, 290);
    EXPECT_EQ(rltest::readable_results(dir + "/case.cgn"), files);
  }
}

// A case renamed with its results folder by riverles-case: the links name
// the folder, so a plain rename of both loses every result; the tool's
// rename rewrites them (into another folder too), and refuses taken names.
TEST(Faults, RenamedCaseKeepsItsResults) {
  CaseSpec s;
  s.set("OTimeItm", 0.02);
  const std::string dir = rltest::temp_dir("rename");
  s.write(dir + "/case.cgn");
  ASSERT_EQ(rltest::run_solver(dir, {"case.cgn"}).status, 0);
  const int n = rltest::readable_results(dir + "/case.cgn");
  ASSERT_GE(n, 2);
  std::filesystem::create_directories(dir + "/elsewhere");
  const auto tool = [&](const std::string& a, const std::string& b) {
    return std::system(("cd '" + dir + "' && '" RIVERLES_CASE_EXE "' rename " + a + " " + b + " 2> rename.err").c_str());
  };
  ASSERT_EQ(tool("case.cgn", "elsewhere/reach.cgn"), 0) << rltest::slurp(dir + "/rename.err");
  EXPECT_FALSE(std::filesystem::exists(dir + "/case.cgn"));
  EXPECT_FALSE(std::filesystem::exists(dir + "/case.cgn.results"));
  EXPECT_EQ(rltest::readable_results(dir + "/elsewhere/reach.cgn"), n);
  s.write(dir + "/other.cgn");
  EXPECT_NE(tool("other.cgn", "elsewhere/reach.cgn"), 0);
  EXPECT_NE(rltest::slurp(dir + "/rename.err").find("exists already"), std::string::npos);
  EXPECT_EQ(rltest::readable_results(dir + "/elsewhere/reach.cgn"), n);
}
