#include "flow/vorticity.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "common/distributed.hpp"
#include "common/ghosts.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

// In a run over several processes: this process's cells, the ghost layers
// of the faces its block touches (the far end of a row, weight 0 there,
// replaced by the near cell across a cut; a periodic face across a cut by a
// copy), then one column of the neighbours' values for the node values.
void VORTICITY() {
  const int I = imax, J = jmax, K = kmax;
  double c[7];  // [face]: the weight of the near cell
  for (int f = LowX; f <= HighZ; ++f) c[f] = std::abs(ibcp(f));
  const int ci0 = own_lo_i(1), ci1 = own_hi_i(I), cj0 = own_lo_j(1), cj1 = own_hi_j(J);
  const GhostFaces g = field_faces(I, J, K);
  const LineExtent lines = own_extent(0, I + 1, 0, J + 1, 0, K + 1);
  const Reach reach{0, I + 1, 0, J + 1, 0, K + 1};

#pragma omp parallel default(shared) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
#pragma omp for schedule(static)
    for (int k = 1; k <= K; ++k)
      for (int j = cj0; j <= cj1; ++j)
        for (int i = ci0; i <= ci1; ++i) {
          const double Uxx = (u(i, j, k) - u(i - 1, j, k)) / dx;
          const double Vyy = (v(i, j, k) - v(i, j - 1, k)) / dy;
          const double Wzz = (w(i, j, k) - w(i, j, k - 1)) / dz;
          const double Uy = ((u(i, j + 1, k) + u(i, j, k) + u(i - 1, j, k) + u(i - 1, j + 1, k)) * 0.25 -
                             (u(i, j - 1, k) + u(i, j, k) + u(i - 1, j, k) + u(i - 1, j - 1, k)) * 0.25) /
                            dy;
          const double Uz = ((u(i, j, k + 1) + u(i, j, k) + u(i - 1, j, k) + u(i - 1, j, k + 1)) * 0.25 -
                             (u(i, j, k - 1) + u(i, j, k) + u(i - 1, j, k) + u(i - 1, j, k - 1)) * 0.25) /
                            dz;
          const double Vx = ((v(i + 1, j, k) + v(i, j, k) + v(i, j - 1, k) + v(i + 1, j - 1, k)) * 0.25 -
                             (v(i - 1, j, k) + v(i, j, k) + v(i, j - 1, k) + v(i - 1, j - 1, k)) * 0.25) /
                            dx;
          const double Vz = ((v(i, j, k + 1) + v(i, j, k) + v(i, j - 1, k) + v(i, j - 1, k + 1)) * 0.25 -
                             (v(i, j, k - 1) + v(i, j, k) + v(i, j - 1, k) + v(i, j - 1, k - 1)) * 0.25) /
                            dz;
          const double Wx = ((w(i + 1, j, k) + w(i, j, k) + w(i, j, k - 1) + w(i + 1, j, k - 1)) * 0.25 -
                             (w(i - 1, j, k) + w(i, j, k) + w(i, j, k - 1) + w(i - 1, j, k - 1)) * 0.25) /
                            dx;
          const double Wy = ((w(i, j + 1, k) + w(i, j, k) + w(i, j, k - 1) + w(i, j + 1, k - 1)) * 0.25 -
                             (w(i, j - 1, k) + w(i, j, k) + w(i, j, k - 1) + w(i, j - 1, k - 1)) * 0.25) /
                            dy;
          const double a = Wy - Vz, b = Uz - Wx, c = Vx - Uy;
          vort(i, j, k) = std::sqrt(a * a + b * b + c * c);
          Q(i, j, k) = ((Vx + Vx) * Uy + (Wx + Wx) * Uz + (Wy + Wy) * Vz + Uxx * Uxx + Vyy * Vyy + Wzz * Wzz) * (-0.5);
        }

    // Ghost layers: x, then y, then z; later passes read earlier ghosts.
    for (int ax = 0; ax < 3; ++ax) {
      const int lo = 2 * ax + 1, hi = lo + 1, n = g.n[ax], flo = g.far(lo), fhi = g.far(hi);
      const bool rlo = g.rule(lo, ibcp(lo)), rhi = g.rule(hi, ibcp(hi));
      const double clo = c[lo], chi = c[hi];
      face_lines({&vort, &Q}, ax, lines, [=](double* e, std::int64_t s) {
        if (rlo) e[0] = clo * e[s] + (1.0 - clo) * e[flo * s];
        if (rhi) e[(n + 1) * s] = chi * e[n * s] + (1.0 - chi) * e[fhi * s];
      });
      ghost_barrier();
      if (g.cut[ax]) wrap_team({&vort, &Q}, g, ax, g.wraps(lo, ibcp(lo)), g.wraps(hi, ibcp(hi)), reach);
    }
    halo_team({&vort, &Q}, 1);
  }
}

}  // namespace rl
