#include "pressure/divergence.hpp"

#include <omp.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

namespace {

constexpr int B = 8;  // cells of i in a block: one cache line of a row
constexpr int kAhead = 8;  // planes to look ahead when fetching rows

// The divergences of one block, kept by each thread.
thread_local std::vector<double> block;

// Over several processes, the cells above the threshold (i, j, k after
// each other), collected to be reported by the first process.
std::vector<int> above_cells;

// Divergences of the cells ib..ib+nb-1 of row (j, k), the three terms
// added from left to right.
void block_row(const Stencil<const double>& U, const Stencil<const double>& V, const Stencil<const double>& W, int ib,
               int nb, int j, int k, double hx, double hy, double hz, double* __restrict out) {
#pragma GCC ivdep
  for (int n = 0; n < nb; ++n) {
    const int i = ib + n;
    out[n] = (U(i, j, k) - U(i - 1, j, k)) / hx + (V(i, j, k) - V(i, j - 1, k)) / hy + (W(i, j, k) - W(i, j, k - 1)) / hz;
  }
}

}  // namespace

// The running sum follows the order i, j, k with k innermost, so its last
// bits are those of that order.  Reading the velocities in that order would
// jump through memory; instead each thread works through its share of i in
// blocks of eight: the divergences of a block are formed with i innermost
// (whole cache lines of u, v, w), kept, and then summed, measured and
// reported in the order i, j, k.
// Writes i j k of each cell of a block whose divergence is above 0.01 and
// waits for the operator there; only this thread waits.  Over several
// processes the cells are kept, and reported after the loop.
void report_block(const double* d, int ib, int nb, int j0, int j1, int K) {
  const bool keep = ownership().on;
  for (int n = 0; n < nb; ++n)
    for (int j = j0; j <= j1; ++j)
      for (int k = 1; k <= K; ++k)
        if (std::fabs(d[(static_cast<std::int64_t>(j - j0) * K + (k - 1)) * B + n]) > 0.01) {
#pragma omp critical(riverles_console)
          {
            if (keep) {
              above_cells.insert(above_cells.end(), {ib + n, j, k});
            } else {
              say(std::to_string(ib + n) + " " + std::to_string(j) + " " + std::to_string(k));
              divergence_pause();
            }
          }
        }
}

// The cells of all processes above the threshold, on the console of the
// first, in the order i, j, k of one process, each with its pause; the
// others wait for it in the reductions that follow.
void report_processes() {
  std::vector<int> all;
  gather_ints(above_cells, all);
  above_cells.clear();
  std::vector<std::array<int, 3>> cells;
  for (std::size_t m = 0; m + 2 < all.size(); m += 3) cells.push_back({all[m], all[m + 1], all[m + 2]});
  std::sort(cells.begin(), cells.end());
  for (const auto& c : cells) {
    say(std::to_string(c[0]) + " " + std::to_string(c[1]) + " " + std::to_string(c[2]));
    divergence_pause();
  }
}

void DIVERGENCE() {
  const int I = imax, J = jmax, K = kmax;
  const double hx = dx, hy = dy, hz = dz;
  divmax = 0.0;
  divsum = 0.0;
  if (I < 1 || J < 1 || K < 1) return;
  // This process's cells (over several processes, its block; the maximum
  // and the sum then go over all processes, the sum added in rank order).
  const int ci0 = own_lo_i(1), ci1 = own_hi_i(I), j0 = own_lo_j(1), j1 = own_hi_j(J);
  const Stencil<const double> U(u), V(v), W(w);
#pragma omp parallel if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    double mymax = -DBL_MAX;
    double mysum = 0.0;
    int i0, i1;  // this thread's share of i
    static_share(ci0, ci1, i0, i1);
    const std::int64_t plane = static_cast<std::int64_t>(j1 - j0 + 1) * K;
    if (static_cast<std::int64_t>(block.size()) < B * plane) block.resize(static_cast<std::size_t>(B * plane));
    double* d = block.data();

    for (int ib = i0; ib <= i1; ib += B) {
      const int nb = std::min(B, i1 - ib + 1);
      // d[((j-1)*K + k-1)*B + n] holds cell (ib+n, j, k): each (j, k) of the
      // block is one cache line, filled from one stretch of each row.
      // The rows lie a whole plane apart, too far for the hardware to guess
      // the next one: ask for the lines a few planes ahead.
      for (int j = j0; j <= j1; ++j)
        for (int k = 1; k <= K; ++k) {
          if (k + kAhead <= K) {
            __builtin_prefetch(&U(ib, j, k + kAhead));
            __builtin_prefetch(&V(ib, j, k + kAhead));
            __builtin_prefetch(&W(ib, j, k + kAhead));
          }
          block_row(U, V, W, ib, nb, j, k, hx, hy, hz, d + (static_cast<std::int64_t>(j - j0) * K + (k - 1)) * B);
        }
      // Sum and maximum in the order i, j, k, with nothing else in the
      // loop; cells above the threshold are reported afterwards, in the same
      // order (the pause changes no value).
      bool above = false;
      for (int n = 0; n < nb; ++n)
        for (std::int64_t m = 0; m < plane; ++m) {
          const double dd = d[m * B + n];
          mysum = mysum + dd;
          const double ad = std::fabs(dd);
          mymax = std::max(mymax, ad);
          above = above || ad > 0.01;
        }
      if (above) report_block(d, ib, nb, j0, j1, K);
    }
#pragma omp critical(riverles_divergence_sum)
    {
      divmax = std::max(divmax, mymax);
      divsum = divsum + mysum;
    }
  }
  if (ownership().on) {
    report_processes();
    divmax = dist_max(divmax);
    divsum = dist_sum(divsum);
  }
}

}  // namespace rl
