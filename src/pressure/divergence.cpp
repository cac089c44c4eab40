#include "pressure/divergence.hpp"

#include <omp.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include "common/console.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

namespace {

constexpr int B = 8;  // cells of i in a block: one cache line of a row
constexpr int kAhead = 8;  // planes to look ahead when fetching rows

// The divergences of one block, kept by each thread.
thread_local std::vector<double> block;

// Divergences of up to B cells along a row, from the row pointers of u, v, w
// at the first cell, with the three terms added from left to right.
void block_row(const double* __restrict uu, const double* __restrict vv, const double* __restrict ww,
               std::int64_t vj, std::int64_t wk, double hx, double hy, double hz, int nb, double* __restrict out) {
  for (int n = 0; n < nb; ++n)
    out[n] = (uu[n] - uu[n - 1]) / hx + (vv[n] - vv[n - vj]) / hy + (ww[n] - ww[n - wk]) / hz;
}

}  // namespace

// The running sum follows the order i, j, k with k innermost, so its last
// bits are those of that order.  Reading the velocities in that order would
// jump through memory; instead each thread works through its share of i in
// blocks of eight: the divergences of a block are formed with i innermost
// (whole cache lines of u, v, w), kept, and then summed, measured and
// reported in the order i, j, k.
// Writes i j k of each cell of a block whose divergence is above 0.01 and
// waits for the operator there; only this thread waits.
void report_block(const double* d, int ib, int nb, int J, int K) {
  for (int n = 0; n < nb; ++n)
    for (int j = 1; j <= J; ++j)
      for (int k = 1; k <= K; ++k)
        if (std::fabs(d[(static_cast<std::int64_t>(j - 1) * K + (k - 1)) * B + n]) > 0.01) {
#pragma omp critical(riverles_console)
          {
            say(std::to_string(ib + n) + " " + std::to_string(j) + " " + std::to_string(k));
            wait_operator();
          }
        }
}

void DIVERGENCE() {
  const int I = imax, J = jmax, K = kmax;
  const double hx = dx, hy = dy, hz = dz;
  divmax = 0.0;
  divsum = 0.0;
  if (I < 1 || J < 1 || K < 1) return;
  const std::int64_t vj = v.sj(), wk = w.sk();  // neighbours below in j and k
#pragma omp parallel
  {
    double mymax = -DBL_MAX;
    double mysum = 0.0;
    int i0, i1;  // this thread's share of i
    static_share(1, I, i0, i1);
    const std::int64_t plane = static_cast<std::int64_t>(J) * K;
    if (static_cast<std::int64_t>(block.size()) < B * plane) block.resize(static_cast<std::size_t>(B * plane));
    double* d = block.data();

    for (int ib = i0; ib <= i1; ib += B) {
      const int nb = std::min(B, i1 - ib + 1);
      // d[((j-1)*K + k-1)*B + n] holds cell (ib+n, j, k): each (j, k) of the
      // block is one cache line, filled from one stretch of each row.
      // The rows lie a whole plane apart, too far for the hardware to guess
      // the next one: ask for the lines a few planes ahead.
      const double* u0 = u.at(ib, 1, 1);
      const double* v0 = v.at(ib, 1, 1);
      const double* w0 = w.at(ib, 1, 1);
      const std::int64_t usj = u.sj(), usk = u.sk(), vsk = v.sk(), wsj = w.sj();
      for (int j = 1; j <= J; ++j)
        for (int k = 1; k <= K; ++k) {
          const double* uu = u0 + (j - 1) * usj + (k - 1) * usk;
          const double* vv = v0 + (j - 1) * vj + (k - 1) * vsk;
          const double* ww = w0 + (j - 1) * wsj + (k - 1) * wk;
          if (k + kAhead <= K) {
            __builtin_prefetch(uu + kAhead * usk);
            __builtin_prefetch(vv + kAhead * vsk);
            __builtin_prefetch(ww + kAhead * wk);
          }
          block_row(uu, vv, ww, vj, wk, hx, hy, hz, nb, d + (static_cast<std::int64_t>(j - 1) * K + (k - 1)) * B);
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
      if (above) report_block(d, ib, nb, J, K);
    }
#pragma omp critical(riverles_divergence_sum)
    {
      divmax = std::max(divmax, mymax);
      divsum = divsum + mysum;
    }
  }
}

}  // namespace rl
