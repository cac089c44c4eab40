// Helpers for tests that write a small case, run the solver on it as a
// separate process and look at what it left.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "orvalib/orvalib.hpp"

namespace rltest {

// A fresh empty directory under the system's temporary directory.
std::string temp_dir(const std::string& tag);

struct CaseSpec {
  int ni = 9, nj = 5;            // nodes
  double lx = 0.8, ly = 0.4;     // plan extents
  double bed = -1.0;             // flat bed level (below the domain)
  std::map<std::string, orva::Condition> keys;  // the 44 keys
  std::set<std::string> omit;                   // keys left out of the case

  CaseSpec();  // a small fixed-step channel that runs in well under a second
  CaseSpec& set(const std::string& key, int v);
  CaseSpec& set(const std::string& key, double v);
  CaseSpec& set(const std::string& key, const std::string& v);
  // Writes the case file; elevation(x, y) overrides the flat bed if given.
  void write(const std::string& path, double (*elevation)(double, double) = nullptr) const;
};

struct RunResult {
  int status = -1;
  std::string out;  // console output (standard output)
  std::string err;  // standard error: warnings, notes, progress
};

// Runs riverles in the case's directory with the given arguments, standard
// input from /dev/null (console.log and errors.log are left there) and OMP_NUM_THREADS as given.
RunResult run_solver(const std::string& dir, const std::vector<std::string>& args, int threads = 1);

// Runs riverles on dir/case.cgn as run_solver does, but in the background:
// once the run has written the file `sign` (relative to dir) the host's
// cancel request (case.cgn.cancel) is made, and the run is waited for (and
// killed if it does not end).
// With a signal number, that signal is sent to the run instead.
RunResult run_then_cancel(const std::string& dir, const std::string& sign, int signal = 0);
// The same with another act once `sign` is there (given the run's pid).
RunResult run_then(const std::string& dir, const std::string& sign, const std::function<void(int)>& act);

// Runs the solver inside this process on a case file; the field store keeps
// the final state for the test to look at.  Returns the console output.
std::string run_file_in_process(const std::string& casefile, int* status = nullptr);
std::string run_in_process(const CaseSpec& desc, const std::string& tag, int* status = nullptr);
// The same on a case that riverles-case makes from one of the examples with
// extra description lines appended; dir receives the run's directory.
std::string run_description(const std::string& example, const std::string& extra, const std::string& tag,
                            int* status = nullptr, std::string* dir = nullptr);
// Whether u, v, w, p and nut hold finite numbers only.
bool all_finite();

int count_lines_starting(const std::string& text, const std::string& prefix);
std::string slurp(const std::string& path);
std::string last_line(const std::string& text);

// Number of results stored in a run's case file, read with the CGNS library.
int stored_results(const std::string& casefile);
// Number of results the case file declares, once the CGNS library has opened
// it and read every declared result's arrays; -1 if a declared result does
// not read back, -2 if the library cannot open the file.
int readable_results(const std::string& casefile);

// The z coordinates of the 3-D grid of the case's results zone, read with
// the CGNS library (empty when there is no zone or it does not read), and
// the zone's node count.
std::vector<double> grid_heights(const std::string& casefile, long* nodes = nullptr);

}  // namespace rltest
