#include "immersed/immersing.hpp"

#include "driver/fields.hpp"
#include "immersed/immerse.hpp"
#include "common/parallel.hpp"

namespace rl {

// Direct forcing: every forcing point of flagu, flagv, flagw in the ranges
// below gets the value of its wall law written into u, v or w.  The wall
// laws read only fluid positions, so the order of the points is immaterial.
// The w pass stops one plane below the top.
void IMMERSING() {
#pragma omp parallel if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int j = 1; j <= jmax; ++j) {
        const int* f = flagu.at(0, j, k);
        for (int i = 1; i <= imax; ++i)
          if (f[i] == 0) IMMERSEU(i, j, k, u(i, j, k));
      }

#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int j = 1; j <= jmax; ++j) {
        const int* f = flagv.at(0, j, k);
        for (int i = 1; i <= imax; ++i)
          if (f[i] == 0) IMMERSEV(i, j, k, v(i, j, k));
      }

#pragma omp for schedule(static)
    for (int k = 1; k <= kmax - 1; ++k)
      for (int j = 1; j <= jmax; ++j) {
        const int* f = flagw.at(0, j, k);
        for (int i = 1; i <= imax; ++i)
          if (f[i] == 0) IMMERSEW(i, j, k, w(i, j, k));
      }
  }
}

}  // namespace rl
