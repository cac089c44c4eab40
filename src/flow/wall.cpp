#include "flow/wall.hpp"

#include <cmath>

#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"
#include "immersed/bedstress.hpp"

namespace rl {

namespace {

// The log law between the row read (taken as 2*dy from the wall) and the
// row written (half a cell from the wall).
struct SideWallLaw {
  double lnear, lfar;
  SideWallLaw() {
    const double z0 = 0.0833333333333333 * rough / 1000.0;
    lnear = std::log(0.5 * dy / z0);
    lfar = std::log((0.5 * dy + 0.5 * dy + dy) / z0);
  }
  // Value in the wall row for the component c of the far row, whose speed
  // with the other wall-parallel component is vel.
  double operator()(double c, double vel) const {
    if (1e-8 > vel) return 0.0;
    const double ustar = vel * 0.4 / lfar;
    return (c / vel) * (ustar / 0.4) * lnear;
  }
};

// Rows r (read) and s (written) of one side wall: pass 1 sets u of row s,
// pass 2 sets w of row s from the component `c` of row r, taken with the mean
// of u at the w position.  The u each row loses goes into the bed's ledger
// (the wall's stress counts with the bed of its column).  Over several processes, the blocks at the wall do
// their columns, reading the neighbours' of the last exchange.
void wall_rows(int r, int s, const Array3<double>& c) {
  const SideWallLaw law;
  const int i0 = own_lo_i(1), i1 = own_hi_i(imax);
  const bool ledger = bed_ledger_on();
#pragma omp parallel if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int i = i0; i <= i1; ++i) {
        const double wm = (w(i, r, k) + w(i + 1, r, k) + w(i, r, k - 1) + w(i + 1, r, k - 1)) * 0.25;
        const double vel = std::sqrt(u(i, r, k) * u(i, r, k) + wm * wm);
        const double before = u(i, s, k);
        u(i, s, k) = law(u(i, r, k), vel);
        if (ledger) bed_take(0, i, s, before - u(i, s, k));
      }

#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int i = i0; i <= i1; ++i) {
        const double um = (u(i, r, k) + u(i, r, k + 1) + u(i - 1, r, k) + u(i - 1, r, k + 1)) * 0.25;
        const double vel = std::sqrt(um * um + c(i, r, k) * c(i, r, k));
        w(i, s, k) = law(c(i, r, k), vel);
      }
  }
}

}  // namespace

// Low-y side wall: u and w of row 1 from row 2.  The w row is scaled from v
// of row 2, not from w: the two side walls differ on purpose.
void WALLS() {
  halo_wrote(&u);
  halo_wrote(&w);
  const Ownership& o = ownership();
  if (!o.on || o.south) wall_rows(2, 1, v);
}

// High-y side wall: u and w of row jmax from row jmax-1.
void WALLN() {
  halo_wrote(&u);
  halo_wrote(&w);
  const Ownership& o = ownership();
  if (!o.on || o.north) wall_rows(jmax - 1, jmax, w);
}

}  // namespace rl
