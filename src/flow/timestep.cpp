#include "flow/timestep.hpp"

#include <cfloat>
#include <cmath>
#include <cstdint>

#include "driver/fields.hpp"
#include "common/distributed.hpp"
#include "common/parallel.hpp"

namespace rl {

// Sets dt from the current velocities by the CFL condition.  Per cell the
// convective rates of the three directions (the larger magnitude of the
// cell's two faces, over the cell size) and the molecular viscous rate are
// added into one denominator; dt is the smallest cfl/denominator over all
// cells, but never more than 1.0.  The eddy viscosity plays no part.  Over
// several processes, the smallest of all processes' cells.
void TIMESTEP() {
  dt = 1.0;
  const double S = 1.0 / (dx * dx) + 1.0 / (dy * dy) + 1.0 / (dz * dz);
  const double D = S * visc;
  const double c = cfl, hx = dx, hy = dy, hz = dz;
  const int K = kmax;
  const int i0 = own_lo_i(1), i1 = own_hi_i(imax), j0 = own_lo_j(1), j1 = own_hi_j(jmax);
  const std::int64_t vsj = v.sj(), wsk = w.sk();

#pragma omp parallel default(shared) reduction(min : dt) if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    double tmin = DBL_MAX;
#pragma omp for schedule(static)
    for (int k = 1; k <= K; ++k) {
      for (int j = j0; j <= j1; ++j) {
        const double* ur = u.row(j, k);
        const double* vr = v.row(j, k);
        const double* wr = w.row(j, k);
        for (int i = i0; i <= i1; ++i) {
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
  if (ownership().on) dt = dist_min(dt);
}

}  // namespace rl
