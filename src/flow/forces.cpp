#include "flow/forces.hpp"

#include "driver/fields.hpp"
#include "common/distributed.hpp"
#include "common/parallel.hpp"

namespace rl {

// Body accelerations of the step.  The streamwise force is a proportional
// controller on the discharge through the first x face plane (i = 0),
// measured from the velocities at the end of the previous step.  Gravity
// acts on z.
void FORCES() {
  const double sum = INFLOW(&uo);
  forcex = (discharge - sum) * 100.0;
  forcey = 0.0;
  forcez = -gravity;
}

// Every position of the plane not below the bed adds u*dy times its wet
// height, the height from the bed (mean of the two columns at the face) to
// the top of the cell, limited to one cell.  Over several processes, the
// blocks at the plane add their rows and the sums of all processes are
// added in rank order, so that every process gets the same discharge.
double INFLOW(const Array3<double>* vel) {
  const int K = kmax;
  const Ownership& o = ownership();
  const int j0 = own_lo_j(1), j1 = o.on && !o.west ? j0 - 1 : own_hi_j(jmax);  // no rows off the plane
  const double z0 = zmin, h0 = dz, wy = dy;
  double sum = 0.0;

#pragma omp parallel for default(shared) schedule(dynamic, 1) reduction(+ : sum) \
    if (worth_sharing(cells_of(1, jmax, kmax)))
  for (int j = j0; j <= j1; ++j) {
    const double Hb = (bed(0, j) + bed(1, j)) * 0.5;
    for (int k = 1; k <= K; ++k) {
      if (flagu(0, j, k) != -1) {
        double h = (z0 - Hb) + static_cast<double>(k) * h0;
        h = h < h0 ? h : h0;
        const double un = vel ? (*vel)(0, j, k) : 1.0;
        sum += (un * wy) * h;
      }
    }
  }
  if (o.on) sum = dist_sum(sum);
  return sum;
}

}  // namespace rl
