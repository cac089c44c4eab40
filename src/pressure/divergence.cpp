#include "pressure/divergence.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <string>

#include "common/console.hpp"
#include "driver/fields.hpp"

namespace rl {

void DIVERGENCE() {
  const int I = imax, J = jmax, K = kmax;
  const double hx = dx, hy = dy, hz = dz;
  divmax = 0.0;
  divsum = 0.0;
#pragma omp parallel
  {
    double mymax = -DBL_MAX;
    double mysum = 0.0;
    // Parallel over i; k innermost, so that the running sum and the pauses
    // follow the order i, j, k.
#pragma omp for schedule(static)
    for (int i = 1; i <= I; ++i) {
      for (int j = 1; j <= J; ++j) {
        for (int k = 1; k <= K; ++k) {
          const double d = (u(i, j, k) - u(i - 1, j, k)) / hx + (v(i, j, k) - v(i, j - 1, k)) / hy +
                           (w(i, j, k) - w(i, j, k - 1)) / hz;
          mysum = mysum + d;
          const double ad = std::fabs(d);
          mymax = std::max(mymax, ad);
          if (ad > 0.01) {
            // The cell's indices are all the operator sees; only this
            // thread waits, and the run goes on afterwards.
#pragma omp critical(riverles_console)
            {
              say(std::to_string(i) + " " + std::to_string(j) + " " + std::to_string(k));
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
