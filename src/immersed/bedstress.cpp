#include "immersed/bedstress.hpp"

#include "common/console.hpp"
#include "common/distributed.hpp"
#include "driver/fields.hpp"
#include "flow/openreach.hpp"

namespace rl {

namespace {

// Removed velocity summed over each column of u faces and of v faces (one
// plane; over several processes the block with one column of halo, which
// brings the neighbour's face before the block's first column).
bool on = false;
Array3<double> takeu, takev;

}  // namespace

void bed_ledger_start(bool want) {
  on = want;
  takeu = Array3<double>();
  takev = Array3<double>();
  if (!on) return;
  const int i0 = held_lo_i(0, kHalo), i1 = held_hi_i(imax + 1, kHalo);
  const int j0 = held_lo_j(0, kHalo), j1 = held_hi_j(jmax + 1, kHalo);
  if (!takeu.allocate("bed ledger", i0, i1, j0, j1, 0, 0) || !takev.allocate("bed ledger", i0, i1, j0, j1, 0, 0))
    ERRORSTOP(2);
}

bool bed_ledger_on() { return on; }

void bed_take(int pass, int i, int j, double d) {
  double& t = pass == 0 ? takeu(i, j, 0) : takev(i, j, 0);
#pragma omp atomic
  t += d;
}

void bed_ledger_clear() {
  if (!on) return;
  takeu.fill(0.0);
  takev.fill(0.0);
}

void bed_stress_of_step(Array2<double>& tx, Array2<double>& ty) {
  // The faces before the block's first column: the neighbour's, or across
  // the periodic face the last face of the box (face 0 is face imax, which
  // the forcing does not visit; likewise v in a periodic y).
  fill_halos({&takeu, &takev}, 1);
  const Ownership& o = ownership();
  const int i0 = own_lo_i(1), i1 = own_hi_i(imax), j0 = own_lo_j(1), j1 = own_hi_j(jmax);
  const bool yperiodic = ibcv(LowY) == Periodic;
  if (open_reach()) {
    // The inlet's face is never forced: the first column's own face stands
    // in for it.
    if (o.west)
      for (int j = j0; j <= j1; ++j) takeu(0, j, 0) = takeu(1, j, 0);
  } else if (o.on && o.split_x) {
    wrap_copy(takeu, 0, imax, 0);
  } else {
    for (int j = j0; j <= j1; ++j) takeu(0, j, 0) = takeu(imax, j, 0);
  }
  if (yperiodic) {
    if (o.on && o.split_y)
      wrap_copy(takev, 1, jmax, 0);
    else
      for (int i = i0; i <= i1; ++i) takev(i, 0, 0) = takev(i, jmax, 0);
  }
  const double s = dens * dz / dt;
  for (int j = j0; j <= j1; ++j)
    for (int i = i0; i <= i1; ++i) {
      tx(i, j) = s * (0.5 * (takeu(i - 1, j, 0) + takeu(i, j, 0)));
      // Between side walls the last face is the wall's own: all of it to the
      // last column (the first face, the other wall, the forcing never visits).
      const double north = !yperiodic && j == jmax ? takev(i, j, 0) : 0.5 * takev(i, j, 0);
      ty(i, j) = s * (0.5 * takev(i, j - 1, 0) + north);
    }
  bed_ledger_clear();
}

}  // namespace rl
