#include "pressure/correction.hpp"

#include <omp.h>

#include <algorithm>

#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

// Closes the projection: p accumulates the correction phi (ghost layer
// included) and the velocities lose its gradient, times dt/dens, on every
// face of the box, boundary faces included (through the ghosts of phi).
// Four loops, each split among the threads in contiguous shares of planes
// k, as the sweeps before and after it are, so that each thread updates the
// data it wrote last (and holds in its cache); a barrier after each loop.
// Every position is updated on its own, so the split changes no result.
// In a run over several processes each updates its own block (and the
// box's ghost layers and faces it touches), reading phi's halo.
// reads: pmg(0).phi, dt, dens, dx, dy, dz; writes: p, u, v, w.
void CORRECTION() {
  for (const void* f : {static_cast<const void*>(&p), static_cast<const void*>(&u), static_cast<const void*>(&v),
                        static_cast<const void*>(&w)})
    halo_wrote(f);
  const Stencil<const double> phi(pmg(0).phi);
  const Stencil<double> P(p), U(u), V(v), W(w);
  const int I = imax, J = jmax, K = kmax;
  const double hx = dx, hy = dy, hz = dz;
  // The cells, faces and ghosts of this process along x and y.
  const int i0 = own_lo_i(0), i1 = own_hi_i(I + 1), j0 = own_lo_j(0), j1 = own_hi_j(J + 1);
  const int ic0 = own_lo_i(1), ic1 = own_hi_i(I), jc0 = own_lo_j(1), jc1 = own_hi_j(J);
  const int if1 = own_hi_i(I), jf1 = own_hi_j(J);

#pragma omp parallel if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    int kb, ke;

    // 1. The pressure accumulates the correction, ghost layer included.
    static_share(0, K + 1, kb, ke);
    for (int k = kb; k <= ke; ++k)
      for (int j = j0; j <= j1; ++j)
#pragma GCC ivdep
        for (int i = i0; i <= i1; ++i) P(i, j, k) = P(i, j, k) + phi(i, j, k);
#pragma omp barrier

    // 2. u on the x faces 0..imax.
    const double c = dt / dens;
    static_share(1, K, kb, ke);
    for (int k = kb; k <= ke; ++k)
      for (int j = jc0; j <= jc1; ++j)
#pragma GCC ivdep
        for (int i = i0; i <= if1; ++i) U(i, j, k) = U(i, j, k) - (phi(i + 1, j, k) - phi(i, j, k)) * c / hx;
#pragma omp barrier

    // 3. v on the y faces 0..jmax.
    for (int k = kb; k <= ke; ++k)
      for (int j = j0; j <= jf1; ++j)
#pragma GCC ivdep
        for (int i = ic0; i <= ic1; ++i) V(i, j, k) = V(i, j, k) - (phi(i, j + 1, k) - phi(i, j, k)) * c / hy;
#pragma omp barrier

    // 4. w on the z faces 0..kmax.
    static_share(0, K, kb, ke);
    for (int k = kb; k <= ke; ++k)
      for (int j = jc0; j <= jc1; ++j)
#pragma GCC ivdep
        for (int i = ic0; i <= ic1; ++i) W(i, j, k) = W(i, j, k) - (phi(i, j, k + 1) - phi(i, j, k)) * c / hz;
#pragma omp barrier
  }
}

}  // namespace rl
