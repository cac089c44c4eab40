#include "pressure/correction.hpp"

#include <omp.h>

#include <algorithm>

#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

// Closes the projection: p accumulates the correction phi (ghost layer
// included) and the velocities lose its gradient, times dt/dens, on every
// face of the box, boundary faces included (through the ghosts of phi).
// Four loops, each split over its first index (i) among the threads, each
// thread walking its share of every row, with a barrier after each.
// reads: pmg(0).phi, dt, dens, dx, dy, dz; writes: p, u, v, w.
void CORRECTION() {
  const Stencil<const double> phi(pmg(0).phi);
  const Stencil<double> P(p), U(u), V(v), W(w);
  const int I = imax, J = jmax, K = kmax;
  const double hx = dx, hy = dy, hz = dz;

#pragma omp parallel if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    int ib, ie;

    // 1. The pressure accumulates the correction, ghost layer included.
    static_share(0, I + 1, ib, ie);
    for (int k = 0; k <= K + 1; ++k)
      for (int j = 0; j <= J + 1; ++j)
#pragma GCC ivdep
        for (int i = ib; i <= ie; ++i) P(i, j, k) = P(i, j, k) + phi(i, j, k);
#pragma omp barrier

    // 2. u on the x faces 0..imax.
    const double c = dt / dens;
    static_share(0, I, ib, ie);
    for (int k = 1; k <= K; ++k)
      for (int j = 1; j <= J; ++j)
#pragma GCC ivdep
        for (int i = ib; i <= ie; ++i) U(i, j, k) = U(i, j, k) - (phi(i + 1, j, k) - phi(i, j, k)) * c / hx;
#pragma omp barrier

    // 3. v on the y faces 0..jmax.
    static_share(1, I, ib, ie);
    for (int k = 1; k <= K; ++k)
      for (int j = 0; j <= J; ++j)
#pragma GCC ivdep
        for (int i = ib; i <= ie; ++i) V(i, j, k) = V(i, j, k) - (phi(i, j + 1, k) - phi(i, j, k)) * c / hy;
#pragma omp barrier

    // 4. w on the z faces 0..kmax.
    for (int k = 0; k <= K; ++k)
      for (int j = 1; j <= J; ++j)
#pragma GCC ivdep
        for (int i = ib; i <= ie; ++i) W(i, j, k) = W(i, j, k) - (phi(i, j, k + 1) - phi(i, j, k)) * c / hz;
#pragma omp barrier
  }
}

}  // namespace rl
