#include "immersed/immersing.hpp"

#include "common/distributed.hpp"
#include "common/parallel.hpp"
#include "driver/fields.hpp"
#include "immersed/bedstress.hpp"
#include "immersed/farsample.hpp"
#include "immersed/immerse.hpp"

namespace rl {

namespace {

// The forcing of one position of pass 0 (u), 1 (v) or 2 (w).
void force(int pass, int i, int j, int k, double& value) {
  if (pass == 0)
    IMMERSEU(i, j, k, value);
  else if (pass == 1)
    IMMERSEV(i, j, k, value);
  else
    IMMERSEW(i, j, k, value);
}

// The forcing of one position, the velocity it removed noted in the bed's
// ledger (u and v).
void force_noted(int pass, int i, int j, int k, Array3<double>& f) {
  double& target = f(i, j, k);
  const double before = target;
  force(pass, i, j, k, target);
  if (pass < 2) bed_take(pass, i, j, before - target);
}

// Over several processes a point whose image point lies with another
// process waits for its sample: its value is stored only once it has it.
void force_far(int pass, int i, int j, int k, Array3<double>& f, bool ledger) {
  const double before = f(i, j, k);
  const bool stored = far_point(pass, i, j, k, f(i, j, k), [=](double& value) { force(pass, i, j, k, value); });
  if (stored && ledger && pass < 2) bed_take(pass, i, j, before - f(i, j, k));
}

// One pass of the forcing, planes 1..ktop, inside the caller's parallel
// region: the planes handed out one at a time (dynamic).  `law` forces one
// position in place.
template <void (*law)(int, int, int, double&)>
void force_pass(int pass, const Array3<int>& flag, Array3<double>& f, int ktop, bool far, bool ledger, int i0, int i1,
                int j0, int j1) {
#pragma omp for schedule(dynamic)
  for (int k = 1; k <= ktop; ++k)
    for (int j = j0; j <= j1; ++j) {
      const int* fl = flag.row(j, k);
      for (int i = i0; i <= i1; ++i)
        if (fl[i] == 0) {
          if (far)
            force_far(pass, i, j, k, f, ledger);
          else if (ledger)
            force_noted(pass, i, j, k, f);
          else
            law(i, j, k, f(i, j, k));
        }
    }
}

}  // namespace

// Direct forcing: every forcing point of flagu, flagv, flagw in the ranges
// below gets the value of its wall law written into u, v or w.  The wall
// laws read only fluid positions, so the order of the points is immaterial.
// The w pass stops one plane below the top.  When the bed's ledger is kept,
// the velocity each forcing of u and v removed is noted in it.  The forcing
// points lie in the planes near the bed, so the planes are handed out one at
// a time to the thread that is free (shared in equal blocks, one thread got nearly all of
// them: two threads took 0.9-1.0 of the time of one, now 0.7-0.8).
void IMMERSING() {
  // Over several processes: the forcing points of this process's block; the
  // wall laws sample the velocities up to 3 columns away (the step brings
  // the neighbours' current values into the halos before the call), and
  // the image points beyond them are sampled by their owners (rounds below).
  halo_read(&u, "u", kHalo, "IMMERSING");
  halo_read(&v, "v", kHalo, "IMMERSING");
  halo_read(&w, "w", kHalo, "IMMERSING");
  halo_wrote(&u);
  halo_wrote(&v);
  halo_wrote(&w);
  const bool far = far_on(), ledger = bed_ledger_on();
  if (far) far_start();
  const int i0 = own_lo_i(1), i1 = own_hi_i(imax), j0 = own_lo_j(1), j1 = own_hi_j(jmax);
#pragma omp parallel if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    force_pass<IMMERSEU>(0, flagu, u, kmax, far, ledger, i0, i1, j0, j1);
    force_pass<IMMERSEV>(1, flagv, v, kmax, far, ledger, i0, i1, j0, j1);
    force_pass<IMMERSEW>(2, flagw, w, kmax - 1, far, false, i0, i1, j0, j1);
  }
  if (far) {
    Array3<double>* fields[3] = {&u, &v, &w};
    far_rounds([&](const FarPoint& p) { force_far(p.pass, p.i, p.j, p.k, *fields[p.pass], ledger); });
  }
}

}  // namespace rl
