#include "flow/timestep.hpp"

#include <cfloat>
#include <cmath>
#include <cstdint>

#include "driver/fields.hpp"
#include "common/parallel.hpp"

namespace rl {

// Sets dt from the current velocities by the CFL condition.  Per cell the
// convective rates of the three directions (the larger magnitude of the
// cell's two faces, over the cell size) and the molecular viscous rate are
// added into one denominator; dt is the smallest cfl/denominator over all
// cells, but never more than 1.0.  The eddy viscosity plays no part.
void TIMESTEP() {
  dt = 1.0;
  const double S = 1.0 / (dx * dx) + 1.0 / (dy * dy) + 1.0 / (dz * dz);
  const double D = S * visc;
  const double c = cfl, hx = dx, hy = dy, hz = dz;
  const int I = imax, J = jmax, K = kmax;
  const std::int64_t vsj = v.sj(), wsk = w.sk();

#pragma omp parallel default(shared) reduction(min : dt) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    double tmin = DBL_MAX;
#pragma omp for schedule(static)
    for (int k = 1; k <= K; ++k) {
      for (int j = 1; j <= J; ++j) {
        const double* ur = u.at(1, j, k);
        const double* vr = v.at(1, j, k);
        const double* wr = w.at(1, j, k);
        for (int i = 0; i < I; ++i) {
          const double au = std::fabs(ur[i]), aum = std::fabs(ur[i - 1]);
          const double av = std::fabs(vr[i]), avm = std::fabs(vr[i - vsj]);
          const double aw = std::fabs(wr[i]), awm = std::fabs(wr[i - wsk]);
          const double cu = au > aum ? au : aum;
          const double cv = av > avm ? av : avm;
          const double cw = aw > awm ? aw : awm;
          const double t = c / (cu / hx + D + cv / hy + cw / hz);
          tmin = t < tmin ? t : tmin;
        }
      }
    }
    dt = tmin < dt ? tmin : dt;
  }
}

}  // namespace rl
