// Cost of what a run reports besides the console, against the step itself:
// runs a case (made with the monitor and statistics keys on) to its end,
// then times, on its final state, the step (ADVANCE), the monitor pass
// (MONITOR: the scan of every cell, a probe-free log line) and the
// statistics pass (STATISTICS), each the median of N calls, in nanoseconds
// per cell and call.  The bed's ledger apart: the step again with the ledger
// off (the difference is what the forcings' records of the removed momentum
// cost) and the pass that turns the ledger into the columns' stresses (part
// of the statistics pass), and the wall law's friction velocity of every
// column (BEDFRICTION, part of the statistics pass).  One CSV line per case:
//   cells,threads,step_ns,monitor_ns,statistics_ns,step_without_ledger_ns,bed_pass_ns,wall_law_ns
//   riverles_report_bench CASEFILE [N]
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "driver/fields.hpp"
#include "driver/mainprogram.hpp"
#include "immersed/bedstress.hpp"
#include "immersed/flagdeter.hpp"
#include "immersed/immerse.hpp"
#include "results/monitors.hpp"
#include "results/statistics.hpp"

namespace {

template <typename F>
double median_ns_per_cell(int n, F f) {
  std::vector<double> t;
  for (int r = 0; r < n; ++r) {
    const double t0 = omp_get_wtime();
    f();
    t.push_back(omp_get_wtime() - t0);
  }
  std::sort(t.begin(), t.end());
  return t[t.size() / 2] * 1e9 / (static_cast<double>(rl::imax) * rl::jmax * rl::kmax);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: riverles_report_bench CASEFILE [N]\n");
    return 2;
  }
  const int n = argc > 2 ? std::atoi(argv[2]) : 20;
  char arg0[] = "riverles";
  char* args[] = {arg0, argv[1], nullptr};
  std::FILE* keep = stdout;
  stdout = std::fopen("/dev/null", "w");  // the run's console
  const int status = rl::RIVERLES(2, args);
  std::fclose(stdout);
  stdout = keep;
  if (status != 0 || !rl::statistics_on()) {
    std::fprintf(stderr, "the run failed, or its case has no StatisticsItm 1\n");
    return 1;
  }
  rl::FOOTCACHE(true);
  rl::FLAGREUSE(true);
  std::FILE* quiet = stdout;
  stdout = std::fopen("/dev/null", "w");
  const double step = median_ns_per_cell(n, [] { rl::ADVANCE(); });
  std::fclose(stdout);
  stdout = quiet;
  const double monitor = median_ns_per_cell(n, [] { rl::MONITOR(2); });
  const double stats = median_ns_per_cell(n, [] { rl::STATISTICS(); });
  rl::Array2<double> tx, ty;
  if (!tx.allocate("bench", 0, rl::imax + 1, 0, rl::jmax + 1) || !ty.allocate("bench", 0, rl::imax + 1, 0, rl::jmax + 1))
    return 1;
  const double bed_pass = median_ns_per_cell(n, [&] { rl::bed_stress_of_step(tx, ty); });
  const double wall_law = median_ns_per_cell(n, [&] { rl::BEDFRICTION(tx); });
  rl::bed_ledger_start(false);
  stdout = std::fopen("/dev/null", "w");
  const double bare = median_ns_per_cell(n, [] { rl::ADVANCE(); });
  std::fclose(stdout);
  stdout = quiet;
  std::printf("%d,%d,%.2f,%.2f,%.2f,%.2f,%.2f,%.2f\n", rl::imax * rl::jmax * rl::kmax, omp_get_max_threads(), step,
              monitor, stats, bare, bed_pass, wall_law);
  return 0;
}
