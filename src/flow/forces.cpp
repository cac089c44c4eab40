#include "flow/forces.hpp"

#include <cmath>

#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"
#include "flow/openreach.hpp"

namespace rl {

// Body accelerations of the step.  The streamwise force is a proportional
// controller on the discharge through the first x face plane (i = 0),
// measured from the velocities at the end of the previous step.  Gravity
// acts on z.
void FORCES() {
  if (open_reach()) {
    // An open reach: gravity in the frame tilted by the mean slope; the
    // inflow sets the discharge.
    const double c = 1.0 / std::sqrt(1.0 + reach_slope() * reach_slope());
    forcex = gravity * reach_slope() * c;
    forcey = 0.0;
    forcez = -gravity * c;
    return;
  }
  const double sum = INFLOW(&uo);
  forcex = (discharge - sum) * 100.0;
  forcey = 0.0;
  forcez = -gravity;
}

// Every position of the plane of faces i not below the bed adds u*dy times its wet
// height, the height from the bed (mean of the two columns at the face) to
// the top of the cell, limited to one cell.  Over several processes, the
// blocks at the plane add their rows and the sums of all processes are
// added in rank order, so that every process gets the same discharge.
double INFLOW(const Array3<double>* vel) { return section_discharge(vel, 0); }

double section_discharge(const Array3<double>* vel, int i) {
  const int K = kmax;
  const Ownership& o = ownership();
  // Only the block that owns the face adds its rows.
  const bool mine = !o.on || (i == 0 ? o.west : (o.blk.ilo <= i && i <= o.blk.ihi));
  const int j0 = own_lo_j(1), j1 = mine ? own_hi_j(jmax) : j0 - 1;
  const double z0 = zmin, h0 = dz, wy = dy;
  double sum = 0.0;

#pragma omp parallel for default(shared) schedule(dynamic, 1) reduction(+ : sum) \
    if (worth_sharing(cells_of(1, jmax, kmax)))
  for (int j = j0; j <= j1; ++j) {
    const double Hb = (bed(i, j) + bed(i + 1, j)) * 0.5;
    for (int k = 1; k <= K; ++k) {
      if (flagu(i, j, k) != -1) {
        double h = (z0 - Hb) + static_cast<double>(k) * h0;
        h = h < h0 ? h : h0;
        const double un = vel ? (*vel)(i, j, k) : 1.0;
        sum += (un * wy) * h;
      }
    }
  }
  if (o.on) sum = dist_sum(sum);
  return sum;
}

}  // namespace rl
