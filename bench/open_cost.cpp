// Cost of an open reach's faces against the step: runs a case to its end,
// then times N steps (ADVANCE) on its final state with the step's timer, and
// prints the median step and the mean share of each of the open faces'
// routines ("open faces": the inflow plane with its recycling, the outflow's
// balance, the pressure level) and of the boundary passes (which in an open
// reach put the faces back and run the y and z faces again), in
// microseconds, with the pressure solve's cycles.  One CSV line:
//   cells,threads,step_us,open_faces_us,boundaries_us,poisson_us,cycles
//   riverles_open_bench CASEFILE [N]
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "driver/fields.hpp"
#include "driver/mainprogram.hpp"
#include "immersed/flagdeter.hpp"
#include "immersed/immerse.hpp"

namespace {

double open_faces = 0.0, boundaries = 0.0, poisson = 0.0;

void hook(const char* routine, double seconds) {
  if (std::strcmp(routine, "open faces") == 0) open_faces += seconds;
  if (std::strcmp(routine, "boundaries") == 0) boundaries += seconds;
  if (std::strcmp(routine, "POISSONP") == 0) poisson += seconds;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: riverles_open_bench CASEFILE [N]\n");
    return 2;
  }
  const int n = argc > 2 ? std::atoi(argv[2]) : 50;
  char arg0[] = "riverles";
  char* args[] = {arg0, argv[1], nullptr};
  std::FILE* keep = stdout;
  stdout = std::fopen("/dev/null", "w");  // the run's console
  const int status = rl::RIVERLES(2, args);
  if (status != 0) {
    std::fclose(stdout);
    stdout = keep;
    std::fprintf(stderr, "the run failed\n");
    return 1;
  }
  rl::FOOTCACHE(true);
  rl::FLAGREUSE(true);
  rl::step_timer = hook;
  std::vector<double> t;
  long cycles = 0;
  for (int r = 0; r < n; ++r) {
    const double t0 = omp_get_wtime();
    cycles += rl::ADVANCE();
    t.push_back(omp_get_wtime() - t0);
  }
  rl::step_timer = nullptr;
  std::fclose(stdout);
  stdout = keep;
  std::sort(t.begin(), t.end());
  std::printf("%d,%d,%.0f,%.0f,%.0f,%.0f,%.2f\n", rl::imax * rl::jmax * rl::kmax, omp_get_max_threads(),
              t[t.size() / 2] * 1e6, open_faces / n * 1e6, boundaries / n * 1e6, poisson / n * 1e6,
              static_cast<double>(cycles) / n);
  return 0;
}
