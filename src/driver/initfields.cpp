#include "driver/initfields.hpp"

#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"

namespace rl {

std::mt19937_64& random_generator() {
  static std::mt19937_64 gen;
  return gen;
}

double uniform_draw() { return static_cast<double>(random_generator()() >> 11) * 0x1.0p-53; }

namespace {

// One pass of noise over the cell range of a face field and its old copy,
// k outermost, i innermost; the draw order is part of the result.  A process
// of a run over several draws every number of the box and keeps those of
// the positions it holds.
void perturb(Array3<double>& old, Array3<double>& now, double factor) {
  const int i0 = held_lo_i(0, kHalo), i1 = held_hi_i(imax + 1, kHalo);
  const int j0 = held_lo_j(0, kHalo), j1 = held_hi_j(jmax + 1, kHalo);
  for (int k = 0; k <= kmax + 1; ++k)
    for (int j = 0; j <= jmax + 1; ++j)
      for (int i = 0; i <= imax + 1; ++i) {
        const double r = uniform_draw();
        if (i < i0 || i > i1 || j < j0 || j > j1) continue;
        old(i, j, k) = old(i, j, k) + (r - 0.5) * factor;
        now(i, j, k) = old(i, j, k);
      }
}

}  // namespace

void INITFIELDS() {
  // The pressure and the finest level's solution (held like the fields) are
  // cleared with the fields below, by the threads that work on them.
  for (int l = lmin; l < 0; ++l) pmg(l).phi.fill(0.0);

  if (initial == 0) {
    xinit = discharge / (ymax - ymin) / zmax;
    yinit = 0.0;
    zinit = 0.0;
  }

  // The constant start values (the draws below stay one serial pass): each
  // thread fills the planes k it works on in the steps; a process of a run
  // over several, the positions it holds.
  const int i0 = held_lo_i(0, kHalo), i1 = held_hi_i(imax + 1, kHalo);
  const int j0 = held_lo_j(0, kHalo), j1 = held_hi_j(jmax + 1, kHalo);
  Array3<double>& phi = pmg(0).phi;
#pragma omp parallel for schedule(static) if (worth_sharing(cells_of(imax, jmax, kmax)))
  for (int k = 0; k <= kmax + 1; ++k)
    for (int j = j0; j <= j1; ++j)
      for (int i = i0; i <= i1; ++i) {
        uo(i, j, k) = xinit;
        vo(i, j, k) = yinit;
        wo(i, j, k) = zinit;
        u(i, j, k) = xinit;
        v(i, j, k) = yinit;
        w(i, j, k) = zinit;
        p(i, j, k) = 0.0;
        phi(i, j, k) = 0.0;
        vort(i, j, k) = 0.0;
        Q(i, j, k) = 0.0;
        rhsuo(i, j, k) = 0.0;
        rhsvo(i, j, k) = 0.0;
        rhswo(i, j, k) = 0.0;
        rhsu(i, j, k) = 0.0;
        rhsv(i, j, k) = 0.0;
        rhsw(i, j, k) = 0.0;
        nut(i, j, k) = 0.0;
        s11(i, j, k) = 0.0;
        s22(i, j, k) = 0.0;
        s33(i, j, k) = 0.0;
        s12(i, j, k) = 0.0;
        s13(i, j, k) = 0.0;
        s23(i, j, k) = 0.0;
        sabs(i, j, k) = 0.0;
      }

  nslot = 0;
  slotflag.fill(0);

  if (iperturb != 0) {
    const double factor = amplitude + amplitude;
    perturb(uo, u, factor);
    perturb(vo, v, factor);
    perturb(wo, w, factor);
  }
}

void PERTURBBED() {
  for (int j = 0; j <= jmax; ++j)
    for (int i = 0; i <= imax; ++i) {
      const double r = uniform_draw();
      elev(i, j) = elev(i, j) + (r - 0.5) * 2 * bamplitude;
    }
}

}  // namespace rl
