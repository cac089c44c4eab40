#include "flow/vorticity.hpp"

#include <cmath>
#include <cstdlib>

#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

// In a run over several processes: this process's cells, the ghost layers
// of the faces its block touches (the far end of a row, weight 0 there,
// replaced by the near cell across a cut; a periodic face across a cut by a
// copy), then one column of the neighbours' values for the node values.
void VORTICITY() {
  const int I = imax, J = jmax, K = kmax;
  const double c1 = std::abs(ibcp(LowX)), c2 = std::abs(ibcp(HighX)), c3 = std::abs(ibcp(LowY)), c4 = std::abs(ibcp(HighY)),
               c5 = std::abs(ibcp(LowZ)), c6 = std::abs(ibcp(HighZ));
  const Ownership& o = ownership();
  const int ci0 = own_lo_i(1), ci1 = own_hi_i(I), cj0 = own_lo_j(1), cj1 = own_hi_j(J);
  const int gi0 = own_lo_i(0), gi1 = own_hi_i(I + 1), gj0 = own_lo_j(0), gj1 = own_hi_j(J + 1);
  const bool cutx = o.on && o.split_x, cuty = o.on && o.split_y;
  const bool rule1 = (!o.on || o.west) && !(cutx && c1 == 0.0), rule2 = (!o.on || o.east) && !(cutx && c2 == 0.0);
  const bool rule3 = (!o.on || o.south) && !(cuty && c3 == 0.0), rule4 = (!o.on || o.north) && !(cuty && c4 == 0.0);
  const int far1 = cutx ? 1 : I, far2 = cutx ? I : 1, far3 = cuty ? 1 : J, far4 = cuty ? J : 1;

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
#pragma omp for schedule(static)
    for (int k = 0; k <= K + 1; ++k)
      for (int j = gj0; j <= gj1; ++j) {
        if (rule1) {
          vort(0, j, k) = c1 * vort(1, j, k) + (1.0 - c1) * vort(far1, j, k);
          Q(0, j, k) = c1 * Q(1, j, k) + (1.0 - c1) * Q(far1, j, k);
        }
        if (rule2) {
          vort(I + 1, j, k) = c2 * vort(I, j, k) + (1.0 - c2) * vort(far2, j, k);
          Q(I + 1, j, k) = c2 * Q(I, j, k) + (1.0 - c2) * Q(far2, j, k);
        }
      }
    const Reach lines{0, I + 1, 0, J + 1, 0, K + 1};
    if (cutx) wrap_in_team({&vort, &Q}, 0, I, c1 == 0.0, c2 == 0.0, lines);
#pragma omp for schedule(static)
    for (int k = 0; k <= K + 1; ++k)
      for (int i = gi0; i <= gi1; ++i) {
        if (rule3) {
          vort(i, 0, k) = c3 * vort(i, 1, k) + (1.0 - c3) * vort(i, far3, k);
          Q(i, 0, k) = c3 * Q(i, 1, k) + (1.0 - c3) * Q(i, far3, k);
        }
        if (rule4) {
          vort(i, J + 1, k) = c4 * vort(i, J, k) + (1.0 - c4) * vort(i, far4, k);
          Q(i, J + 1, k) = c4 * Q(i, J, k) + (1.0 - c4) * Q(i, far4, k);
        }
      }
    if (cuty) wrap_in_team({&vort, &Q}, 1, J, c3 == 0.0, c4 == 0.0, lines);
#pragma omp for schedule(static)
    for (int j = gj0; j <= gj1; ++j)
      for (int i = gi0; i <= gi1; ++i) {
        vort(i, j, 0) = c5 * vort(i, j, 1) + (1.0 - c5) * vort(i, j, K);
        Q(i, j, 0) = c5 * Q(i, j, 1) + (1.0 - c5) * Q(i, j, K);
        vort(i, j, K + 1) = c6 * vort(i, j, K) + (1.0 - c6) * vort(i, j, 1);
        Q(i, j, K + 1) = c6 * Q(i, j, K) + (1.0 - c6) * Q(i, j, 1);
      }

    if (o.on) {
#pragma omp master
      HALOS({&vort, &Q}, 1);
#pragma omp barrier
    }
  }
}

}  // namespace rl
