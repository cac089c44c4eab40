#include "pressure/correction.hpp"

#include <omp.h>

#include <algorithm>

#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

namespace {


}  // namespace

void CORRECTION() {
  Array3<double>& phi = pmg(0).phi;
  const int I = imax, J = jmax, K = kmax;
  const double hx = dx, hy = dy, hz = dz;

  // Four loops in one parallel region, each split over its first index (i)
  // and each thread walking its share of every row, with a barrier after
  // each loop.
#pragma omp parallel
  {
    int ib, ie;

    // 1. The pressure accumulates the correction, ghost layer included.
    static_share(0, I + 1, ib, ie);
    for (int k = 0; k <= K + 1; ++k) {
      for (int j = 0; j <= J + 1; ++j) {
        double* pr = p.at(0, j, k);
        const double* f = phi.at(0, j, k);
        for (int i = ib; i <= ie; ++i) pr[i] = pr[i] + f[i];
      }
    }
#pragma omp barrier

    // 2. u on the x faces 0..imax.
    {
      const double c = dt / dens;
      static_share(0, I, ib, ie);
      for (int k = 1; k <= K; ++k) {
        for (int j = 1; j <= J; ++j) {
          double* ur = u.at(0, j, k);
          const double* f = phi.at(0, j, k);
          for (int i = ib; i <= ie; ++i) ur[i] = ur[i] - (f[i + 1] - f[i]) * c / hx;
        }
      }
    }
#pragma omp barrier

    // 3. v on the y faces 0..jmax.
    {
      const double c = dt / dens;
      static_share(1, I, ib, ie);
      for (int k = 1; k <= K; ++k) {
        for (int j = 0; j <= J; ++j) {
          double* vr = v.at(0, j, k);
          const double* f = phi.at(0, j, k);
          const double* fn = phi.at(0, j + 1, k);
          for (int i = ib; i <= ie; ++i) vr[i] = vr[i] - (fn[i] - f[i]) * c / hy;
        }
      }
    }
#pragma omp barrier

    // 4. w on the z faces 0..kmax.
    {
      const double c = dt / dens;
      static_share(1, I, ib, ie);
      for (int k = 0; k <= K; ++k) {
        for (int j = 1; j <= J; ++j) {
          double* wr = w.at(0, j, k);
          const double* f = phi.at(0, j, k);
          const double* fn = phi.at(0, j, k + 1);
          for (int i = ib; i <= ie; ++i) wr[i] = wr[i] - (fn[i] - f[i]) * c / hz;
        }
      }
    }
#pragma omp barrier
  }
}

}  // namespace rl
