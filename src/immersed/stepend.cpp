#include "immersed/stepend.hpp"

#include "common/distributed.hpp"
#include "driver/fields.hpp"
#include "immersed/bedstress.hpp"

namespace rl {

// Copies the velocities and the face flags into their old arrays for the
// next step, over 0..n+1 in every direction: the layers at index -1 of the
// staggered directions are left as they are, and the centre flags have no
// old copy.  One serial pass, six row copies per row.  A process of a run
// over several copies its block with the halo it holds.
void SAVEOLD() {
  const int K = kmax;
  const int i0 = held_lo_i(0, kHalo), i1 = held_hi_i(imax + 1, kHalo);
  const int j0 = held_lo_j(0, kHalo), j1 = held_hi_j(jmax + 1, kHalo);
  for (int k = 0; k <= K + 1; ++k) {
    for (int j = j0; j <= j1; ++j) {
      const double* ur = u.row(j, k);
      const double* vr = v.row(j, k);
      const double* wr = w.row(j, k);
      double* uor = uo.row(j, k);
      double* vor = vo.row(j, k);
      double* wor = wo.row(j, k);
      const int* fu = flagu.row(j, k);
      const int* fv = flagv.row(j, k);
      const int* fw = flagw.row(j, k);
      int* fuo = flaguo.row(j, k);
      int* fvo = flagvo.row(j, k);
      int* fwo = flagwo.row(j, k);
      for (int i = i0; i <= i1; ++i) {
        uor[i] = ur[i];
        vor[i] = vr[i];
        wor[i] = wr[i];
        fuo[i] = fu[i];
        fvo[i] = fv[i];
        fwo[i] = fw[i];
      }
    }
  }
}

// Sets u, v, w and nut to zero at every solid position (flag exactly -1) of
// their own flag field, over 0..n+1 in every direction.  Forcing points
// (flag 0) keep their values.  Serial; a process of a run over several
// does its block with the halo it holds.
void ZEROFLAGGED() {
  for (const void* f : {static_cast<const void*>(&u), static_cast<const void*>(&v), static_cast<const void*>(&w),
                        static_cast<const void*>(&nut)})
    halo_wrote(f);
  const int K = kmax;
  const int i0 = held_lo_i(0, kHalo), i1 = held_hi_i(imax + 1, kHalo);
  const int j0 = held_lo_j(0, kHalo), j1 = held_hi_j(jmax + 1, kHalo);
  for (int k = 0; k <= K + 1; ++k) {
    for (int j = j0; j <= j1; ++j) {
      double* ur = u.row(j, k);
      double* vr = v.row(j, k);
      double* wr = w.row(j, k);
      double* nr = nut.row(j, k);
      const int* fu = flagu.row(j, k);
      const int* fv = flagv.row(j, k);
      const int* fw = flagw.row(j, k);
      const int* fc = flagc.row(j, k);
      for (int i = i0; i <= i1; ++i) {
        if (fu[i] == -1) ur[i] = 0.0;
        if (fv[i] == -1) vr[i] = 0.0;
        if (fw[i] == -1) wr[i] = 0.0;
        if (fc[i] == -1) nr[i] = 0.0;
      }
    }
  }
}

namespace {
bool at_rest = false;
double force_before = 0.0;  // forcex of the previous step
bool first_rest = true;
}  // namespace

void rest_solid_start(bool on) {
  at_rest = on;
  first_rest = true;
}
bool solid_at_rest() { return at_rest; }

void rest_solid(bool predicted) {
  for (const void* f : {static_cast<const void*>(&u), static_cast<const void*>(&v), static_cast<const void*>(&w),
                        static_cast<const void*>(&nut)})
    halo_wrote(f);
  if (bed_ledger_on()) {
    // The velocity about to be cleared from this process's own u and v
    // positions in the solid: momentum the water lost into it.  After the
    // predictor the driving force's own share is taken off (the predictor
    // adds it everywhere, the solid included, with the weights of its
    // Adams-Bashforth step).
    if (first_rest) force_before = forcex;
    const double body = predicted ? (3.0 * forcex - force_before) * 0.5 * dt : 0.0;
    for (int k = 1; k <= kmax; ++k)
      for (int j = own_lo_j(1); j <= own_hi_j(jmax); ++j) {
        const double* ur = u.row(j, k);
        const double* vr = v.row(j, k);
        const int* fu = flagu.row(j, k);
        const int* fv = flagv.row(j, k);
        for (int i = own_lo_i(1); i <= own_hi_i(imax); ++i) {
          if (fu[i] == -1) bed_take(0, i, j, ur[i] - body);
          if (fv[i] == -1) bed_take(1, i, j, vr[i]);
        }
      }
  }
  if (predicted) {
    force_before = forcex;
    first_rest = false;
  }
  ZEROFLAGGED();
}

}  // namespace rl
