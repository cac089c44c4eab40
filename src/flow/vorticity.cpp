#include "flow/vorticity.hpp"

#include <cmath>
#include <cstdlib>

#include "driver/fields.hpp"
#include "common/parallel.hpp"

namespace rl {

void VORTICITY() {
  const int I = imax, J = jmax, K = kmax;
  const double c1 = std::abs(ibcp(LowX)), c2 = std::abs(ibcp(HighX)), c3 = std::abs(ibcp(LowY)), c4 = std::abs(ibcp(HighY)),
               c5 = std::abs(ibcp(LowZ)), c6 = std::abs(ibcp(HighZ));

#pragma omp parallel default(shared) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
#pragma omp for schedule(static)
    for (int k = 1; k <= K; ++k)
      for (int j = 1; j <= J; ++j)
        for (int i = 1; i <= I; ++i) {
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
      for (int j = 0; j <= J + 1; ++j) {
        vort(0, j, k) = c1 * vort(1, j, k) + (1.0 - c1) * vort(I, j, k);
        Q(0, j, k) = c1 * Q(1, j, k) + (1.0 - c1) * Q(I, j, k);
        vort(I + 1, j, k) = c2 * vort(I, j, k) + (1.0 - c2) * vort(1, j, k);
        Q(I + 1, j, k) = c2 * Q(I, j, k) + (1.0 - c2) * Q(1, j, k);
      }
#pragma omp for schedule(static)
    for (int k = 0; k <= K + 1; ++k)
      for (int i = 0; i <= I + 1; ++i) {
        vort(i, 0, k) = c3 * vort(i, 1, k) + (1.0 - c3) * vort(i, J, k);
        Q(i, 0, k) = c3 * Q(i, 1, k) + (1.0 - c3) * Q(i, J, k);
        vort(i, J + 1, k) = c4 * vort(i, J, k) + (1.0 - c4) * vort(i, 1, k);
        Q(i, J + 1, k) = c4 * Q(i, J, k) + (1.0 - c4) * Q(i, 1, k);
      }
#pragma omp for schedule(static)
    for (int j = 0; j <= J + 1; ++j)
      for (int i = 0; i <= I + 1; ++i) {
        vort(i, j, 0) = c5 * vort(i, j, 1) + (1.0 - c5) * vort(i, j, K);
        Q(i, j, 0) = c5 * Q(i, j, 1) + (1.0 - c5) * Q(i, j, K);
        vort(i, j, K + 1) = c6 * vort(i, j, K) + (1.0 - c6) * vort(i, j, 1);
        Q(i, j, K + 1) = c6 * Q(i, j, K) + (1.0 - c6) * Q(i, j, 1);
      }
  }
}

}  // namespace rl
