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

// Cells of one block of i, in the order i, j, k (k fastest).
thread_local std::vector<double> block;

}  // namespace

// The running sum follows the order i, j, k with k innermost, so its last
// bits are those of that order.  Reading the velocities in that order would
// jump through memory; instead each thread works through its share of i in
// blocks of eight: the divergences of a block are formed with i innermost
// (whole cache lines of u, v, w), kept, and then summed, measured and
// reported in the order i, j, k.
void DIVERGENCE() {
  const int I = imax, J = jmax, K = kmax;
  const double hx = dx, hy = dy, hz = dz;
  constexpr int B = 8;
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
      for (int j = 1; j <= J; ++j)
        for (int k = 1; k <= K; ++k) {
          const double* uu = u.at(ib, j, k);
          const double* vv = v.at(ib, j, k);
          const double* ww = w.at(ib, j, k);
          double* out = d + static_cast<std::int64_t>(j - 1) * K + (k - 1);
          for (int n = 0; n < nb; ++n)
            out[n * plane] = (uu[n] - uu[n - 1]) / hx + (vv[n] - vv[n - vj]) / hy + (ww[n] - ww[n - wk]) / hz;
        }
      for (int n = 0; n < nb; ++n) {
        const double* dn = d + n * plane;
        for (int j = 1; j <= J; ++j)
          for (int k = 1; k <= K; ++k) {
            const double dd = dn[static_cast<std::int64_t>(j - 1) * K + (k - 1)];
            mysum = mysum + dd;
            const double ad = std::fabs(dd);
            mymax = std::max(mymax, ad);
            if (ad > 0.01) {
              // The cell's indices are all the operator sees; only this
              // thread waits, and the run goes on afterwards.
#pragma omp critical(riverles_console)
              {
                say(std::to_string(ib + n) + " " + std::to_string(j) + " " + std::to_string(k));
                wait_operator();
              }
            }
          }
      }
    }
#pragma omp critical(riverles_divergence_sum)
    {
      divmax = std::max(divmax, mymax);
      divsum = divsum + mysum;
    }
  }
}

}  // namespace rl
