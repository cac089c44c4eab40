#include "flow/smagorinsky.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "driver/fields.hpp"
#include "immersed/farsample.hpp"
#include "immersed/immerse.hpp"
#include "immersed/viscbed.hpp"
#include "common/distributed.hpp"
#include "common/parallel.hpp"

namespace rl {

namespace {

// Ghost value of a strain rate: c times the near inner cell plus (1-c) times
// the far one.
inline double ghost_w(double c, double near, double far) { return c * near + (1.0 - c) * far; }

// Ghost value of nut: (1-c) times the far inner cell minus the face type
// times the near one, so a given gradient (+1) negates the inner value.
inline double ghost_nut(double c, double t, double near, double far) { return (1.0 - c) * far - t * near; }

// One row (j, k) of stage 1, i = i0..i1: the strain rates of each cell from
// the staggered velocities, their magnitude and nut.
struct StrainViews {
  Stencil<const double> u, v, w;
  Stencil<double> s11, s22, s33, s12, s13, s23, sabs, nut;
};

void strain_row(const StrainViews& a, int j, int k, int i0, int i1, double dx, double dy, double dz, double c) {
#pragma GCC ivdep
  for (int i = i0; i <= i1; ++i) {
    const double a11 = (a.u(i, j, k) - a.u(i - 1, j, k)) / dx;
    const double a22 = (a.v(i, j, k) - a.v(i, j - 1, k)) / dy;
    const double a33 = (a.w(i, j, k) - a.w(i, j, k - 1)) / dz;
    // Four-point sums one spacing apart (their means scaled below).
    const double un = a.u(i, j + 1, k) + a.u(i, j, k) + a.u(i - 1, j, k) + a.u(i - 1, j + 1, k);
    const double us = a.u(i, j, k) + a.u(i - 1, j, k) + a.u(i, j - 1, k) + a.u(i - 1, j - 1, k);
    const double ut = a.u(i, j, k + 1) + a.u(i, j, k) + a.u(i - 1, j, k) + a.u(i - 1, j, k + 1);
    const double ub = a.u(i, j, k - 1) + a.u(i, j, k) + a.u(i - 1, j, k) + a.u(i - 1, j, k - 1);
    const double ve = a.v(i + 1, j, k) + a.v(i, j, k) + a.v(i, j - 1, k) + a.v(i + 1, j - 1, k);
    const double vw = a.v(i, j, k) + a.v(i, j - 1, k) + a.v(i - 1, j, k) + a.v(i - 1, j - 1, k);
    const double vt = a.v(i, j, k + 1) + a.v(i, j, k) + a.v(i, j - 1, k) + a.v(i, j - 1, k + 1);
    const double vb = a.v(i, j, k - 1) + a.v(i, j, k) + a.v(i, j - 1, k) + a.v(i, j - 1, k - 1);
    const double we = a.w(i + 1, j, k) + a.w(i, j, k) + a.w(i, j, k - 1) + a.w(i + 1, j, k - 1);
    const double ww = a.w(i, j, k) + a.w(i, j, k - 1) + a.w(i - 1, j, k) + a.w(i - 1, j, k - 1);
    const double wn = a.w(i, j + 1, k) + a.w(i, j, k) + a.w(i, j, k - 1) + a.w(i, j + 1, k - 1);
    const double ws = a.w(i, j - 1, k) + a.w(i, j, k) + a.w(i, j, k - 1) + a.w(i, j - 1, k - 1);
    const double a12 = ((un - us) * 0.25 / dy + (ve - vw) * 0.25 / dx) * 0.5;
    const double a13 = ((ut - ub) * 0.25 / dz + (we - ww) * 0.25 / dx) * 0.5;
    const double a23 = ((vt - vb) * 0.25 / dz + (wn - ws) * 0.25 / dy) * 0.5;
    const double sa =
        std::sqrt(((a12 * a12 + a13 * a13 + a23 * a23) * 2.0 + a11 * a11 + a22 * a22 + a33 * a33) * 2.0);
    a.s11(i, j, k) = a11;
    a.s22(i, j, k) = a22;
    a.s33(i, j, k) = a33;
    a.s12(i, j, k) = a12;
    a.s13(i, j, k) = a13;
    a.s23(i, j, k) = a23;
    a.sabs(i, j, k) = sa;
    a.nut(i, j, k) = sa * c * c;
  }
}

// nut at a forcing cell over several processes: stored once its image
// point's sample is at hand.
void visc_far(int i, int j, int k) {
  far_point(0, i, j, k, nut(i, j, k), [=](double& value) { IMMERSEVISC(i, j, k, value); });
}

}  // namespace

void SMAGORINSKY() {
  if (kmax < 1) return;

  const double delta = std::cbrt(dx * dy * dz);
  const double c = delta * smagorinsky;

  const double c1 = std::abs(ibcp(LowX)), c2 = std::abs(ibcp(HighX)), c3 = std::abs(ibcp(LowY));
  const double c4 = std::abs(ibcp(HighY)), c5 = std::abs(ibcp(LowZ)), c6 = std::abs(ibcp(HighZ));
  const double t1 = ibcp(LowX), t2 = ibcp(HighX), t3 = ibcp(LowY), t4 = ibcp(HighY), t5 = ibcp(LowZ), t6 = ibcp(HighZ);

  Array3<double>* const work[6] = {&s11, &s22, &s33, &s12, &s13, &s23};

  // In a run over several processes: this process's cells, and the ghost
  // layers of the faces its block touches; a periodic face across a cut
  // copies from the other end.
  const Ownership& o = ownership();
  const bool far = far_on();
  if (far) far_start();
  const int ci0 = own_lo_i(1), ci1 = own_hi_i(imax), cj0 = own_lo_j(1), cj1 = own_hi_j(jmax);
  const int gi0 = own_lo_i(0), gi1 = own_hi_i(imax + 1), gj0 = own_lo_j(0), gj1 = own_hi_j(jmax + 1);
  const bool cutx = o.on && o.split_x, cuty = o.on && o.split_y;
  // The far end of a row is not held across a cut: there the rule (whose
  // far term has weight 0 except on a periodic face, which copies instead)
  // takes the near cell in its place.
  const int far1 = cutx ? 1 : imax, far2 = cutx ? imax : 1;
  // Each x face by its rule here, or (periodic across a cut) by the copy.
  const bool rule1 = (!o.on || o.west) && !(cutx && c1 == 0.0), rule2 = (!o.on || o.east) && !(cutx && c2 == 0.0);
  const bool rule3 = (!o.on || o.south) && !(cuty && c3 == 0.0), rule4 = (!o.on || o.north) && !(cuty && c4 == 0.0);

#pragma omp parallel if (worth_sharing(cells_of(imax, jmax, kmax)))
  {
    // Stage 1: strain rates, their magnitude and nut at every cell, fluid
    // or not.
    const StrainViews views{Stencil<const double>(u), Stencil<const double>(v), Stencil<const double>(w),
                            Stencil<double>(s11),       Stencil<double>(s22),       Stencil<double>(s33),
                            Stencil<double>(s12),       Stencil<double>(s13),       Stencil<double>(s23),
                            Stencil<double>(sabs),      Stencil<double>(nut)};
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int j = cj0; j <= cj1; ++j) strain_row(views, j, k, ci0, ci1, dx, dy, dz, c);

    // The wall law of stage 2 reads nut of the neighbours' cells.
    if (o.on) {
#pragma omp master
      HALO(nut, kHalo);
#pragma omp barrier
    }

    // Stage 2: forcing cells at the bed take their value from the flow
    // farther out.
#pragma omp for schedule(static)
    for (int k = 1; k <= kmax; ++k)
      for (int j = cj0; j <= cj1; ++j) {
        const int* F = flagc.row(j, k);
        for (int i = ci0; i <= ci1; ++i)
          if (F[i] == 0) {
            if (far)
              visc_far(i, j, k);
            else
              IMMERSEVISC(i, j, k, nut(i, j, k));
          }
      }
    // Image points whose nut another process holds: their owners sample
    // them, in rounds, before the ghost layers.
    if (far) {
#pragma omp barrier
#pragma omp master
      far_rounds([](const FarPoint& p) { visc_far(p.i, p.j, p.k); });
#pragma omp barrier
    }

    // The log layer's viscosity at the bed, where the case asks for it.
    if (wall_viscosity_layers() > 0) {
#pragma omp barrier
#pragma omp for schedule(static)
      for (int j = cj0; j <= cj1; ++j) wall_viscosity_row(j, ci0, ci1);
    }

    // Stage 3: ghost layers, x then y then z; each pass sees the ghosts of
    // the ones before, which fills edges and corners.
#pragma omp for schedule(static)
    for (int k = 0; k <= kmax + 1; ++k)
      for (int j = gj0; j <= gj1; ++j) {
        for (Array3<double>* a : work) {
          Array3<double>& W = *a;
          if (rule1) W(0, j, k) = ghost_w(c1, W(1, j, k), W(far1, j, k));
          if (rule2) W(imax + 1, j, k) = ghost_w(c2, W(imax, j, k), W(far2, j, k));
        }
        if (rule1) nut(0, j, k) = ghost_nut(c1, t1, nut(1, j, k), nut(far1, j, k));
        if (rule2) nut(imax + 1, j, k) = ghost_nut(c2, t2, nut(imax, j, k), nut(far2, j, k));
      }
    // A periodic face across a cut: copies from the block at the other end.
    const Reach lines{0, imax + 1, 0, jmax + 1, 0, kmax + 1};
    if (cutx) wrap_in_team({&s11, &s22, &s33, &s12, &s13, &s23, &nut}, 0, imax, c1 == 0.0, c2 == 0.0, lines);

#pragma omp for schedule(static)
    for (int k = 0; k <= kmax + 1; ++k) {
      if (rule3 || rule4) {
        for (Array3<double>* a : work) {
          Array3<double>& W = *a;
          double* lo = W.origin() + k * W.sk();  // row (0, k)
          double* hi = lo + (jmax + 1) * W.sj();
          const double* in1 = lo + W.sj();
          const double* inn = lo + jmax * W.sj();
          const double* far3 = cuty ? in1 : inn;
          const double* far4 = cuty ? inn : in1;
          if (rule3 && rule4) {
            for (int i = gi0; i <= gi1; ++i) {
              lo[i] = ghost_w(c3, in1[i], far3[i]);
              hi[i] = ghost_w(c4, inn[i], far4[i]);
            }
          } else if (rule3) {
            for (int i = gi0; i <= gi1; ++i) lo[i] = ghost_w(c3, in1[i], far3[i]);
          } else {
            for (int i = gi0; i <= gi1; ++i) hi[i] = ghost_w(c4, inn[i], far4[i]);
          }
        }
        double* lo = nut.origin() + k * nut.sk();
        double* hi = lo + (jmax + 1) * nut.sj();
        const double* in1 = lo + nut.sj();
        const double* inn = lo + jmax * nut.sj();
        const double* far3 = cuty ? in1 : inn;
        const double* far4 = cuty ? inn : in1;
        if (rule3 && rule4) {
          for (int i = gi0; i <= gi1; ++i) {
            lo[i] = ghost_nut(c3, t3, in1[i], far3[i]);
            hi[i] = ghost_nut(c4, t4, inn[i], far4[i]);
          }
        } else if (rule3) {
          for (int i = gi0; i <= gi1; ++i) lo[i] = ghost_nut(c3, t3, in1[i], far3[i]);
        } else {
          for (int i = gi0; i <= gi1; ++i) hi[i] = ghost_nut(c4, t4, inn[i], far4[i]);
        }
      }
    }
    if (cuty) wrap_in_team({&s11, &s22, &s33, &s12, &s13, &s23, &nut}, 1, jmax, c3 == 0.0, c4 == 0.0, lines);

#pragma omp for schedule(static)
    for (int j = gj0; j <= gj1; ++j) {
      for (Array3<double>* a : work) {
        Array3<double>& W = *a;
        double* lo = W.row(j, 0);
        double* hi = W.row(j, kmax + 1);
        const double* in1 = W.row(j, 1);
        const double* inn = W.row(j, kmax);
        for (int i = gi0; i <= gi1; ++i) {
          lo[i] = ghost_w(c5, in1[i], inn[i]);
          hi[i] = ghost_w(c6, inn[i], in1[i]);
        }
      }
      double* lo = nut.row(j, 0);
      double* hi = nut.row(j, kmax + 1);
      const double* in1 = nut.row(j, 1);
      const double* inn = nut.row(j, kmax);
      for (int i = gi0; i <= gi1; ++i) {
        lo[i] = ghost_nut(c5, t5, in1[i], inn[i]);
        hi[i] = ghost_nut(c6, t6, inn[i], in1[i]);
      }
    }

    // The predictors read nut of the neighbours' cells and ghosts.
    if (o.on) {
#pragma omp master
      HALO(nut, 1);
#pragma omp barrier
    }
  }
}

}  // namespace rl
