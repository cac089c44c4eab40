// Work sharing inside a parallel region.
#pragma once

#include <omp.h>

#include <algorithm>
#include <cstdint>

namespace rl {

// Whether a parallel region over `n` positions is worth sharing among the
// threads.  Opening a region and each barrier in it cost the threads a
// wake-up and a join, some microseconds each, more when idle threads sleep
// or when the machine is busy with other work; a region with less work than
// that (the coarse multigrid levels, the ghost layers, small cases) runs on
// the calling thread alone (the `if` clause of the region).  With one thread
// nothing changes; with more, a region run alone gives the one-thread result.
constexpr std::int64_t kShareCells = 32768;
inline bool worth_sharing(std::int64_t n) { return n >= kShareCells && omp_get_max_threads() > 1; }
inline std::int64_t cells_of(int nx, int ny, int nz) {
  return static_cast<std::int64_t>(nx) * ny * nz;
}
// Positions of the six ghost faces of a box of nx x ny x nz cells.
inline std::int64_t face_cells(int nx, int ny, int nz) {
  return 2 * (cells_of(1, ny, nz) + cells_of(nx, 1, nz) + cells_of(nx, ny, 1));
}

// The calling thread's contiguous share b..e of lo..hi, as a static
// schedule without chunk size deals it out (an empty share has e < b).
inline void static_share(int lo, int hi, int& b, int& e) {
  const int n = hi - lo + 1;
  const int nt = omp_get_num_threads(), t = omp_get_thread_num();
  if (n <= 0) {
    b = lo;
    e = lo - 1;
    return;
  }
  const int q = n / nt, r = n % nt;
  b = lo + t * q + std::min(t, r);
  e = b + q + (t < r ? 1 : 0) - 1;
}

}  // namespace rl

namespace rl {

// The default thread count of a run, when OMP_NUM_THREADS does not set one:
// as many threads as there are idle cores among those the process may use,
// measured over a short moment at the start (at least one).  Threads on
// cores that other work keeps busy would hold the others up at every
// barrier, so on a busy machine fewer threads are faster.  Returns the count
// chosen, or 0 when the user set one (nothing is changed then).  The
// moment begins at start_thread_choice() where the run called it first
// (the run's serial start-up then goes on meanwhile), otherwise at the call.
void start_thread_choice();
int choose_threads();

}  // namespace rl
